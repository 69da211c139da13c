#!/usr/bin/env python3
"""Draws the program's icon: a rounded tile of deep water, the feed sign (a
dot and two arcs) in sand white, and a wave along the bottom.

Writes, from one description of the shapes:
  desktop/icons/hicolor/<n>x<n>/apps/tidewrack.png   n = 16 .. 256
  desktop/icons/hicolor/scalable/apps/tidewrack.svg
  os/linux/window_icon.inc                           the window's icon, 64 by 64 RGBA

Usage: tools/icon/draw_icon.py [ROOT]   (default: the repository root)
Only the standard library: the PNGs are rasterised here with 4x4 samples a pixel.
"""
import math
import os
import struct
import sys
import zlib

SIZES = [16, 22, 24, 32, 48, 64, 128, 256]
WINDOW_ICON_SIZE = 64

# The shapes, in a unit square with y growing downwards.
MARGIN = 0.06
CORNER = 0.2
TOP = (0x1F, 0x8A, 0x9E)     # shallow water
BOTTOM = (0x12, 0x3A, 0x5C)  # deep water
SAND = (0xF4, 0xEF, 0xE3)
FOAM = (0x7F, 0xD1, 0xC7)
CENTRE = (0.30, 0.68)
DOT = 0.085
RINGS = [(0.29, 0.055), (0.49, 0.055)]  # radius, half width
WAVE_Y, WAVE_HEIGHT, WAVE_COUNT = 0.835, 0.03, 2.0


def inside_tile(x, y):
    lo, hi = MARGIN, 1 - MARGIN
    if x < lo or x > hi or y < lo or y > hi:
        return False
    cx = min(max(x, lo + CORNER), hi - CORNER)
    cy = min(max(y, lo + CORNER), hi - CORNER)
    return (x - cx) ** 2 + (y - cy) ** 2 <= CORNER ** 2


def wave_line(x):
    return WAVE_Y + WAVE_HEIGHT * math.sin(2 * math.pi * WAVE_COUNT * (x - MARGIN) / (1 - 2 * MARGIN))


def colour_at(x, y):
    """The colour and coverage (0 or 1) of one sample."""
    if not inside_tile(x, y):
        return (0, 0, 0, 0)
    t = (y - MARGIN) / (1 - 2 * MARGIN)
    colour = tuple(TOP[i] + (BOTTOM[i] - TOP[i]) * t for i in range(3))
    if y > wave_line(x):
        colour = FOAM
    dx, dy = x - CENTRE[0], y - CENTRE[1]
    distance = math.hypot(dx, dy)
    if distance <= DOT:
        colour = SAND
    elif dx >= 0 and dy <= 0:  # the quarter above and right of the dot
        for radius, half in RINGS:
            if abs(distance - radius) <= half:
                colour = SAND
    return (colour[0], colour[1], colour[2], 255)


def render(size, samples=4):
    pixels = []
    for row in range(size):
        line = []
        for column in range(size):
            r = g = b = a = 0.0
            for sy in range(samples):
                for sx in range(samples):
                    c = colour_at((column + (sx + 0.5) / samples) / size, (row + (sy + 0.5) / samples) / size)
                    r += c[0] * c[3]
                    g += c[1] * c[3]
                    b += c[2] * c[3]
                    a += c[3]
            if a:
                line.append((round(r / a), round(g / a), round(b / a), round(a / samples / samples)))
            else:
                line.append((0, 0, 0, 0))
        pixels.append(line)
    return pixels


def png(pixels):
    size = len(pixels)
    raw = b"".join(b"\x00" + bytes(v for p in line for v in p) for line in pixels)

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)

    header = struct.pack(">IIBBBBB", size, size, 8, 6, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b"")


def svg():
    s = 256.0
    lo, hi = MARGIN * s, (1 - MARGIN) * s
    cx, cy = CENTRE[0] * s, CENTRE[1] * s
    hexc = lambda c: "#%02x%02x%02x" % c
    wave = ["M %.2f %.2f" % (lo, wave_line(MARGIN) * s)]
    steps = 48
    for i in range(1, steps + 1):
        x = MARGIN + (1 - 2 * MARGIN) * i / steps
        wave.append("L %.2f %.2f" % (x * s, wave_line(x) * s))
    wave.append("L %.2f %.2f L %.2f %.2f Z" % (hi, hi, lo, hi))
    arcs = "".join(
        '  <path d="M %.2f %.2f A %.2f %.2f 0 0 1 %.2f %.2f" fill="none" stroke="%s" stroke-width="%.2f"/>\n'
        % (cx, cy - r * s, r * s, r * s, cx + r * s, cy, hexc(SAND), 2 * h * s)
        for r, h in RINGS
    )
    return (
        '<svg xmlns="http://www.w3.org/2000/svg" width="256" height="256" viewBox="0 0 256 256">\n'
        "  <defs>\n"
        '    <linearGradient id="water" x1="0" y1="%.2f" x2="0" y2="%.2f" gradientUnits="userSpaceOnUse">\n'
        '      <stop offset="0" stop-color="%s"/><stop offset="1" stop-color="%s"/>\n'
        "    </linearGradient>\n"
        '    <clipPath id="tile"><rect x="%.2f" y="%.2f" width="%.2f" height="%.2f" rx="%.2f"/></clipPath>\n'
        "  </defs>\n"
        '  <g clip-path="url(#tile)">\n'
        '  <rect x="%.2f" y="%.2f" width="%.2f" height="%.2f" fill="url(#water)"/>\n'
        '  <path d="%s" fill="%s"/>\n'
        "%s"
        '  <circle cx="%.2f" cy="%.2f" r="%.2f" fill="%s"/>\n'
        "  </g>\n"
        "</svg>\n"
        % (lo, hi, hexc(TOP), hexc(BOTTOM), lo, lo, hi - lo, hi - lo, CORNER * s, lo, lo, hi - lo, hi - lo,
           " ".join(wave), hexc(FOAM), arcs, cx, cy, DOT * s, hexc(SAND))
    )


def window_icon(pixels):
    size = len(pixels)
    words = ["0x%02X%02X%02X%02X" % (p[3], p[0], p[1], p[2]) for line in pixels for p in line]
    lines = [", ".join(words[i:i + 8]) + "," for i in range(0, len(words), 8)]
    return (
        "// window_icon.inc - the window's icon, %d by %d pixels, 0xAARRGGBB, rows from the top.\n"
        "// Made by tools/icon/draw_icon.py from the same shapes as the installed icons.\n"
        "constexpr int window_icon_size = %d;\n"
        "static const unsigned window_icon_pixels[%d] = {\n%s\n};\n"
        % (size, size, size, size * size, "\n".join(lines))
    )


def main():
    root = sys.argv[1] if len(sys.argv) > 1 else os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..")
    icons = os.path.join(root, "desktop", "icons", "hicolor")
    for size in SIZES:
        folder = os.path.join(icons, "%dx%d" % (size, size), "apps")
        os.makedirs(folder, exist_ok=True)
        pixels = render(size)
        with open(os.path.join(folder, "tidewrack.png"), "wb") as f:
            f.write(png(pixels))
        if size == WINDOW_ICON_SIZE:
            with open(os.path.join(root, "os", "linux", "window_icon.inc"), "w") as f:
                f.write(window_icon(pixels))
    folder = os.path.join(icons, "scalable", "apps")
    os.makedirs(folder, exist_ok=True)
    with open(os.path.join(folder, "tidewrack.svg"), "w") as f:
        f.write(svg())


if __name__ == "__main__":
    main()
