#!/usr/bin/env python3
"""Photographs the program for the README: the demo feeds added by typing,
the first entry (with its picture) selected, the window written as a PNG.

  tools/demo/screenshot.py PROGRAM TOOL OUT.png

scripts/screenshot.sh builds the program and runs this.
"""
import os
import shutil
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tests", "e2e"))
from harness import Failure, Session, check  # noqa: E402
from e2e import add_by_typing, blocks, start_drawn  # noqa: E402

PEACH = (250, 180, 130)  # the dawn sky just above the horizon in harbour-dawn.png


def main():
    if len(sys.argv) != 4:
        print(__doc__, file=sys.stderr)
        return 2
    program, tool, out = (os.path.abspath(a) for a in sys.argv[1:])
    s = Session(program, tool)
    try:
        p = start_drawn(s, s.folder("reader"))
        for count, name in enumerate(("/harbour-notes.xml", "/the-drift.atom", "/lighthouse-weekly.xml"), 1):
            add_by_typing(p, s.demo.url(name))
            blocks(p, count)
        p.key("Down")  # the first entry of Harbour Notes, with its picture
        p.display.xdotool("mousemove", "--window", p.window, 1270, 700)
        try:
            image = p.wait_drawn("the entry's picture",
                                 lambda i: i.count(PEACH, tolerance=24, box=(460, 30, 1280, 720)) > 500, timeout=30)
        except Failure:
            print("warning: the picture did not show; the screenshot is taken without it", file=sys.stderr)
            image = p.screenshot(out + ".part.png")
        shutil.copy(image.path, out)
        check(p.close() == 0, "exit status")
        print("wrote " + out)
        return 0
    except Failure as failure:
        print("FAILED: %s" % failure, file=sys.stderr)
        return 1
    finally:
        s.close()


if __name__ == "__main__":
    sys.exit(main())
