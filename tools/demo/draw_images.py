#!/usr/bin/env python3
"""Draws the pictures of the demo feeds: a harbour at dawn and a lighthouse
at dusk, as PNGs in tools/demo/site/images/. Standard library only.

Usage: tools/demo/draw_images.py
"""
import math
import os
import struct
import zlib

HERE = os.path.dirname(os.path.abspath(__file__))


def png(width, height, pixel):
    rows = []
    for y in range(height):
        row = bytearray(b"\x00")
        for x in range(width):
            row += bytes(max(0, min(255, int(v))) for v in pixel(x, y))
        rows.append(bytes(row))

    def chunk(kind, data):
        return struct.pack(">I", len(data)) + kind + data + struct.pack(">I", zlib.crc32(kind + data) & 0xFFFFFFFF)

    header = struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)
    return b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", header) + chunk(b"IDAT", zlib.compress(b"".join(rows), 9)) + \
        chunk(b"IEND", b"")


def mix(a, b, t):
    t = max(0.0, min(1.0, t))
    return tuple(a[i] + (b[i] - a[i]) * t for i in range(3))


def harbour(x, y, w=480, h=270):
    u, v = x / w, y / h
    horizon = 0.58
    if v < horizon:  # sky: violet above, peach at the horizon, a low sun
        colour = mix((58, 64, 120), (250, 180, 130), (v / horizon) ** 1.6)
        d = math.hypot(u - 0.68, (v - 0.5) * h / w)
        if d < 0.055:
            colour = mix((255, 236, 190), colour, (d / 0.055) ** 6)
        elif d < 0.2:
            colour = mix(colour, (255, 210, 150), 0.35 * (1 - d / 0.2))
        # the far shore
        if v > horizon - 0.05 - 0.03 * math.sin(u * 9) and u < 0.45:
            colour = (44, 52, 80)
    else:  # water with a glittering path under the sun
        depth = (v - horizon) / (1 - horizon)
        colour = mix((210, 150, 120), (30, 60, 96), depth ** 0.7)
        ripple = math.sin(x * 0.35 + 40 * depth * depth) * math.sin(y * 1.7)
        if abs(u - 0.68) < 0.03 + 0.12 * depth and ripple > 0.6:
            colour = mix(colour, (255, 225, 170), 0.8)
        elif ripple > 0.85:
            colour = mix(colour, (255, 255, 255), 0.15)
    # the pier and a moored boat
    if 0.12 < u < 0.4 and horizon + 0.02 < v < horizon + 0.05:
        colour = (36, 30, 34)
    for post in (0.14, 0.22, 0.30, 0.38):
        if abs(u - post) < 0.006 and horizon + 0.05 <= v < horizon + 0.14:
            colour = (36, 30, 34)
    if abs(v - (horizon + 0.13)) < 0.025 and 0.47 < u < 0.6 - 0.4 * (v - horizon - 0.105):
        colour = (60, 40, 38)
    if abs(u - 0.53) < 0.003 and horizon - 0.12 < v < horizon + 0.11:
        colour = (60, 40, 38)
    return colour


def lighthouse(x, y, w=320, h=240):
    u, v = x / w, y / h
    colour = mix((20, 26, 60), (120, 90, 140), v ** 1.3)
    # the beam
    angle = math.atan2(v - 0.3, u - 0.62)
    if abs(angle - math.pi) < 0.12 and u < 0.62:
        colour = mix(colour, (255, 244, 200), 0.45)
    # the rock and the sea
    if v > 0.8:
        colour = mix((30, 50, 80), (16, 24, 44), (v - 0.8) / 0.2)
    if v > 0.72 - 0.1 * math.exp(-((u - 0.62) / 0.12) ** 2) and v > 0.62 and abs(u - 0.62) < 0.2:
        colour = (40, 36, 40)
    # the tower: white with a red band, and the lamp
    half = 0.035 + 0.03 * (v - 0.3) / 0.4
    if 0.3 < v < 0.7 and abs(u - 0.62) < half:
        colour = (200, 50, 50) if 0.45 < v < 0.52 else (235, 235, 228)
    if 0.24 < v <= 0.3 and abs(u - 0.62) < 0.03:
        colour = (255, 240, 170)
    if 0.21 < v <= 0.24 and abs(u - 0.62) < 0.045:
        colour = (50, 40, 40)
    return colour


def main():
    images = os.path.join(HERE, "site", "images")
    os.makedirs(images, exist_ok=True)
    with open(os.path.join(images, "harbour-dawn.png"), "wb") as f:
        f.write(png(480, 270, harbour))
    with open(os.path.join(images, "lighthouse.png"), "wb") as f:
        f.write(png(320, 240, lighthouse))


if __name__ == "__main__":
    main()
