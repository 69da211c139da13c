#!/usr/bin/env python3
"""Counts non-blank, non-comment lines of C and C++ sources: the tests
(tests/) against the product (every layer folder and the tools, without the
generated tables in html/generated/). Python tests and scripts are not
counted on either side. Usage: tools/count_lines.py [REPO]"""
import os
import re
import sys

PRODUCT = ["os", "base", "html", "reader", "feed", "net", "gfx", "toolkit", "views", "app", "tools"]
SUFFIXES = (".c", ".cpp", ".h", ".inc")


def code_lines(path):
    text = open(path, encoding="utf-8", errors="replace").read()
    # Comments go, strings stay (a "//" inside a string is not a comment).
    pattern = re.compile(r'"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])*\'|//[^\n]*|/\*.*?\*/', re.S)
    def strip(match):
        token = match.group(0)
        if token.startswith("/"):
            return "\n" * token.count("\n")
        return token
    text = pattern.sub(strip, text)
    return sum(1 for line in text.splitlines() if line.strip())


def count(root, folders, skip=()):
    total = 0
    for folder in folders:
        for directory, _, names in os.walk(os.path.join(root, folder)):
            if any(directory.startswith(os.path.join(root, s)) for s in skip):
                continue
            for name in names:
                if name.endswith(SUFFIXES):
                    total += code_lines(os.path.join(directory, name))
    return total


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(__file__), "..")
    product = count(root, PRODUCT, skip=["html/generated"])
    tests = count(root, ["tests"])
    print(f"tests {tests}, product {product}, share {100.0 * tests / product:.1f}% of the product"
          f" ({100.0 * tests / (tests + product):.1f}% of all)")


if __name__ == "__main__":
    main()
