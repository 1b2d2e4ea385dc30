#!/usr/bin/env python3
"""Plots the impulse response of the blur's recursive Gaussian against a true Gaussian of the same sigma.

Writes docs/images/gaussian-impulse-sigma4.png (blue: the recursive filter, red: the true Gaussian, grey: zero)
and prints the figures docs/gaussian-blur.md quotes. The coefficients and the two recursions are those of
Src/ImageProcessing/GaussianBlur.cpp and Kernels/GaussianBlur.cl, in double precision here. Needs nothing
beyond the standard library: usage: gaussian_impulse.py [output.png]
"""
import math
import struct
import sys
import zlib


def coefficients(sigma):
    w = 0.8448 / sigma
    e1, e2 = math.exp(-1.26 / sigma), math.exp(-2.52 / sigma)
    c, s = math.cos(w), math.sin(w)
    d = 1 - 2 * e1 * c + e2
    g = 2 * (0.9629 * (1 - e1 * c) / d + 1.942 * e1 * s / d) - 0.9629
    k = 1 / g
    a0 = 0.9629 * k
    a1 = e1 * (1.942 * k * s - a0 * c)
    return a0, a1, a1 + 2 * e1 * c * a0, -e2 * a0, 2 * e1 * c, -e2


def impulse_response(sigma, n):
    a0, a1, a2, a3, b1, b2 = coefficients(sigma)
    x = [0.0] * n
    x[n // 2] = 1.0
    y = [0.0] * n
    for i in range(n):
        y[i] = a0 * x[i] + a1 * (x[i - 1] if i else 0) + b1 * (y[i - 1] if i else 0) + b2 * (y[i - 2] if i > 1 else 0)
    z = [0.0] * n
    for i in range(n - 1, -1, -1):
        x1 = x[i + 1] if i + 1 < n else 0
        x2 = x[i + 2] if i + 2 < n else 0
        z1 = z[i + 1] if i + 1 < n else 0
        z2 = z[i + 2] if i + 2 < n else 0
        z[i] = a2 * x1 + a3 * x2 + b1 * z1 + b2 * z2
    return [y[i] + z[i] for i in range(n)]


def write_png(path, width, height, pixels):
    raw = b"".join(b"\x00" + bytes(pixels[y * width * 3:(y + 1) * width * 3]) for y in range(height))

    def chunk(kind, data):
        body = kind + data
        return struct.pack(">I", len(data)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    with open(path, "wb") as f:
        f.write(b"\x89PNG\r\n\x1a\n" + chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 2, 0, 0, 0)) +
                chunk(b"IDAT", zlib.compress(raw, 9)) + chunk(b"IEND", b""))


def main():
    output = sys.argv[1] if len(sys.argv) > 1 else "docs/images/gaussian-impulse-sigma4.png"
    sigma, n = 4.0, 81
    response = impulse_response(sigma, n)
    centre = n // 2
    true = [math.exp(-0.5 * ((i - centre) / sigma) ** 2) / (sigma * math.sqrt(2 * math.pi)) for i in range(n)]
    peak = max(true)
    error = max(abs(r - t) for r, t in zip(response, true))
    print("sum %.6f, most negative %.2e, largest difference %.4f (%.1f %% of the peak)" %
          (sum(response), min(response), error, 100 * error / peak))

    width, height, margin = 720, 360, 30
    pixels = [255] * (width * height * 3)
    top, bottom = 1.1 * peak, -0.1 * peak

    def point(i, v):
        return (margin + (width - 2 * margin) * i / (n - 1),
                margin + (height - 2 * margin) * (top - v) / (top - bottom))

    def plot(px, py, colour, thickness):
        for dx in range(-thickness, thickness + 1):
            for dy in range(-thickness, thickness + 1):
                x, y = int(round(px)) + dx, int(round(py)) + dy
                if 0 <= x < width and 0 <= y < height:
                    pixels[(y * width + x) * 3:(y * width + x) * 3 + 3] = colour

    def line(values, colour, thickness):
        for i in range(n - 1):
            (x0, y0), (x1, y1) = point(i, values[i]), point(i + 1, values[i + 1])
            steps = int(max(abs(x1 - x0), abs(y1 - y0))) + 1
            for s in range(steps + 1):
                plot(x0 + (x1 - x0) * s / steps, y0 + (y1 - y0) * s / steps, colour, thickness)

    line([0.0] * n, [170, 170, 170], 0)
    line(true, [220, 40, 40], 1)
    line(response, [30, 80, 220], 0)
    write_png(output, width, height, pixels)


if __name__ == "__main__":
    main()
