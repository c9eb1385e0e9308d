#!/usr/bin/env python3
"""Checks the windowed example's screenshot (a binary PPM): the window's corners show the plain
background, and its middle shows the animation recoloured green, not just the background."""
import re
import sys

BACKGROUND = (0x20, 0x20, 0x20)
# Below this share of green pixels in the frame's area the animation is not on screen.
MINIMUM_GREEN_SHARE = 0.005


def read_ppm(path):
    with open(path, "rb") as ppm:
        data = ppm.read()
    # One whitespace byte ends the header; the pixels may start with bytes that look like it.
    header = re.match(rb"P6\s+(\d+)\s+(\d+)\s+255\s", data)
    if not header:
        raise SystemExit(f"{path}: not an 8-bit binary PPM")
    width, height = int(header[1]), int(header[2])
    pixels = data[header.end():]
    if len(pixels) != width * height * 3:
        raise SystemExit(f"{path}: {len(pixels)} bytes of pixels for {width} x {height}")
    return width, height, pixels


def main():
    width, height, pixels = read_ppm(sys.argv[1])

    def pixel(x, y):
        offset = (y * width + x) * 3
        return tuple(pixels[offset:offset + 3])

    corners = [pixel(0, 0), pixel(width - 1, 0), pixel(0, height - 1), pixel(width - 1, height - 1)]
    if any(corner != BACKGROUND for corner in corners):
        raise SystemExit(f"corners {corners} are not the background {BACKGROUND}")
    middle = [pixel(x, y) for y in range(height // 10, height * 9 // 10)
              for x in range(width // 10, width * 9 // 10)]
    green = sum(1 for r, g, b in middle if g > 150 and r < 100 and b < 100)
    share = green / len(middle)
    print(f"screenshot: {width} x {height}, {share:.1%} of the middle green")
    if share < MINIMUM_GREEN_SHARE:
        raise SystemExit("the screenshot does not show the recoloured animation")


if __name__ == "__main__":
    main()
