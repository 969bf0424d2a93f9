#!/usr/bin/env python3
"""Makes the example textures: a photo-like landscape (landscape.jpg) and a
tile pattern (tiles.png, converted to tiles.bot by `shadenet bot convert`).
Plain Python, deterministic; writes PPM and converts with oiiotool."""
import math
import random
import subprocess
import sys


def clamp(v):
    return max(0, min(255, int(v + 0.5)))


def noise2(x, y, seed):
    # Value noise on a lattice, smoothly interpolated.
    def h(i, j):
        n = (i * 374761393 + j * 668265263 + seed * 1442695041) & 0xFFFFFFFF
        n = ((n ^ (n >> 13)) * 1274126177) & 0xFFFFFFFF
        return (n & 0xFFFF) / 65535.0
    xi, yi = math.floor(x), math.floor(y)
    fx, fy = x - xi, y - yi
    sx, sy = fx * fx * (3 - 2 * fx), fy * fy * (3 - 2 * fy)
    a = h(xi, yi) + (h(xi + 1, yi) - h(xi, yi)) * sx
    b = h(xi, yi + 1) + (h(xi + 1, yi + 1) - h(xi, yi + 1)) * sx
    return a + (b - a) * sy


def fbm(x, y, seed, octaves=5):
    s, amp, total = 0.0, 1.0, 0.0
    for o in range(octaves):
        s += amp * noise2(x, y, seed + o)
        total += amp
        x, y, amp = x * 2.03, y * 2.03, amp * 0.5
    return s / total


def landscape(w, h):
    rng = random.Random(7)
    px = bytearray()
    horizon = 0.55 * h
    sun = (0.72 * w, 0.3 * h, 0.06 * w)
    for y in range(h):
        for x in range(w):
            u, v = x / w, y / h
            # Sky: a gradient with soft clouds and a sun.
            t = y / horizon
            r, g, b = 70 + 120 * t, 120 + 95 * t, 200 + 40 * t
            c = fbm(u * 6, v * 14, 3)
            if c > 0.55:
                k = min(1, (c - 0.55) * 4)
                r, g, b = r + (245 - r) * k, g + (245 - g) * k, b + (250 - b) * k
            d = math.hypot(x - sun[0], y - sun[1])
            glow = math.exp(-(d / sun[2]) ** 2)
            r, g, b = r + 120 * glow, g + 100 * glow, b + 40 * glow
            # Far hills, near hills, then a lake.
            far = horizon - 0.12 * h * fbm(u * 3, 0.5, 11, 4)
            near = horizon + 0.05 * h - 0.18 * h * fbm(u * 2.2, 1.5, 21, 4)
            if y > far:
                k = fbm(u * 20, v * 20, 5)
                r, g, b = 90 + 40 * k, 110 + 40 * k, 140 + 30 * k
            if y > near:
                k = fbm(u * 40, v * 40, 9)
                shade = (y - near) / (h - near + 1)
                r, g, b = 40 + 70 * k + 30 * shade, 90 + 80 * k, 30 + 30 * k
            lake = 0.8 * h - 0.04 * h * math.sin(u * 9)
            if y > lake:
                ripple = 0.5 + 0.5 * math.sin(y * 1.7 + 3 * fbm(u * 30, v * 8, 13))
                r, g, b = 40 + 60 * ripple, 80 + 60 * ripple, 110 + 70 * ripple
            # Sensor noise.
            n = rng.gauss(0, 2.5)
            px += bytes((clamp(r + n), clamp(g + n), clamp(b + n)))
    return px


def tiles(w, h):
    px = bytearray()
    cell = w // 8
    for y in range(h):
        for x in range(w):
            i, j = x // cell, y // cell
            fx, fy = x % cell, y % cell
            grout = fx < 3 or fy < 3
            k = fbm(x / 9.0, y / 9.0, 31 + i + 8 * j, 3)
            if grout:
                r, g, b = 190 + 20 * k, 185 + 20 * k, 175 + 20 * k
            elif (i + j) % 3 == 0:
                r, g, b = 40 + 60 * k, 90 + 60 * k, 120 + 50 * k
            else:
                r, g, b = 200 + 40 * k, 170 + 40 * k, 120 + 40 * k
            px += bytes((clamp(r), clamp(g), clamp(b)))
    return px


def write(name, w, h, pixels, out):
    ppm = out + "/" + name + ".ppm"
    with open(ppm, "wb") as f:
        f.write(b"P6\n%d %d\n255\n" % (w, h))
        f.write(pixels)
    return ppm


def main():
    out = sys.argv[1] if len(sys.argv) > 1 else "."
    ppm = write("landscape", 512, 384, landscape(512, 384), out)
    subprocess.run(["oiiotool", ppm, "--attrib", "Compression", "jpeg:88", "-o", out + "/landscape.jpg"], check=True)
    ppm2 = write("tiles", 256, 256, tiles(256, 256), out)
    subprocess.run(["oiiotool", ppm2, "-o", out + "/tiles.png"], check=True)


if __name__ == "__main__":
    main()
