#!/usr/bin/env python3
"""Draws the pictures of the documentation as SVG, beside this file.

growth.svg: how the cost of an operation grows with the significand width, from growth.txt, the
output of ./dev growth.
ratios.svg: other libraries' time over zelk's, from bench.txt, the table that ./dev bench ends in.
layout.svg: the bits of a pattern.
line.svg: the values of (3, 2) around 0, and where numbers go in each direction of rounding.
"""
import math
import pathlib
import re
from fractions import Fraction

HERE = pathlib.Path(__file__).resolve().parent
COLOURS = {"add": "#1b6ca8", "mul": "#b3541e", "div": "#3a7d44"}


class Picture:
    """An SVG drawing, built element by element."""

    def __init__(self, width, height):
        self.head = (
            f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" '
            f'width="{width}" height="{height}" font-family="sans-serif" font-size="13">'
        )
        self.parts = [f'<rect width="{width}" height="{height}" fill="white"/>']

    def line(self, points, colour, width=1.0, dash=""):
        path = " ".join(f"{x:.1f},{y:.1f}" for x, y in points)
        self.parts.append(
            f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="{width}"'
            + (f' stroke-dasharray="{dash}"/>' if dash else "/>")
        )

    def dot(self, x, y, colour, filled=True):
        fill = colour if filled else "white"
        self.parts.append(f'<circle cx="{x:.1f}" cy="{y:.1f}" r="3" fill="{fill}" stroke="{colour}"/>')

    def box(self, x, y, width, height, fill, stroke="none"):
        self.parts.append(
            f'<rect x="{x:.1f}" y="{y:.1f}" width="{width:.1f}" height="{height:.1f}" fill="{fill}"'
            f' stroke="{stroke}"/>'
        )

    def arrow(self, x, y, to_x, to_y, colour):
        """A line that ends in a head, which points down."""
        self.line([(x, y), (to_x, to_y - 5)], colour, 1.5)
        head = f"{to_x - 4:.1f},{to_y - 8:.1f} {to_x + 4:.1f},{to_y - 8:.1f} {to_x:.1f},{to_y:.1f}"
        self.parts.append(f'<polygon points="{head}" fill="{colour}"/>')

    def text(self, x, y, words, anchor="start", colour="#222", size=13):
        self.parts.append(
            f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" fill="{colour}"'
            f' font-size="{size}">{words}</text>'
        )

    def save(self, name):
        (HERE / name).write_text("\n".join([self.head, *self.parts, "</svg>", ""]))


def grouped(rows):
    """{operation: [(m, zelk, mpfr)]} of the rows 'operation m zelk mpfr ratio'."""
    groups = {}
    for operation, m, zelk, mpfr, _ in rows:
        groups.setdefault(operation, []).append((float(m), float(zelk), float(mpfr)))
    return groups


def duration(ns):
    for unit, size in (("ms", 1e6), ("µs", 1e3)):
        if ns >= size:
            return f"{ns / size:g} {unit}"
    return f"{ns:g} ns"


def draw_growth():
    lines = (HERE / "growth.txt").read_text().splitlines()
    groups = grouped(words for words in map(str.split, lines) if words[0] in COLOURS)
    left, right, top, bottom = 70, 580, 20, 380
    picture = Picture(640, 430)

    def place(m, ns):
        x = left + (math.log10(m) - 2) / 4 * (right - left)
        return x, bottom - (math.log10(ns) - 1) / 6 * (bottom - top)

    for power in range(2, 7):
        x, _ = place(10**power, 10)
        picture.line([(x, top), (x, bottom)], "#ddd")
        picture.text(x, bottom + 20, f"{10**power:,}".replace(",", " "), "middle")
    for power in range(1, 8):
        _, y = place(100, 10**power)
        picture.line([(left, y), (right, y)], "#ddd")
        picture.text(left - 8, y + 4, duration(10**power), "end")
    picture.text((left + right) / 2, bottom + 42, "stored significand bits m, e = 30", "middle")
    picture.text(4, top - 10, "time of one operation", size=11)
    for operation, rows in groups.items():
        colour = COLOURS[operation]
        for which, dash in ((1, ""), (2, "5 4")):
            points = [place(row[0], row[which]) for row in rows]
            picture.line(points, colour, 2, dash)
            for x, y in points:
                picture.dot(x, y, colour, filled=which == 1)
        x, y = place(*rows[-1][:2])
        # Products and quotients of a million bits cost nearly the same: their names move apart.
        picture.text(x + 10, y + {"mul": 14, "div": -2}.get(operation, 4), operation, colour=colour)
    for y, name, dash in ((top + 22, "zelk", ""), (top + 44, "MPFR", "5 4")):
        picture.line([(left + 16, y), (left + 56, y)], "#222", 2, dash)
        picture.text(left + 64, y + 4, name)
    picture.save("growth.svg")


def draw_ratios():
    peers = {"mpfr": ("MPFR", "#1b6ca8"), "cpp_bin_float": ("Boost cpp_bin_float", "#b3541e")}
    rows = [
        (line.split()[0], re.findall(r"(\w+) [\d.]+ x([\d.]+)", line))
        for line in (HERE / "bench.txt").read_text().splitlines()[1:]  # below the heading
    ]
    rows.sort(key=lambda row: [float(width) for width in row[0].split("/")[1].split(".")])
    left, right, top, bar = 130, 600, 40, 9
    bars = [(name, [p for p in found if p[0] in peers]) for name, found in rows]
    height = top + sum(len(found) * bar + 8 for _, found in bars) + 50
    picture = Picture(640, height)

    # As far as the ratios go, in whole powers of two: no bar is cut.
    logs = [math.log2(float(ratio)) for _, found in bars for _, ratio in found]
    least, most = min(-1, math.floor(min(logs))), max(1, math.ceil(max(logs)))

    def place(ratio):
        return left + (math.log2(float(ratio)) - least) / (most - least) * (right - left)

    for power in range(least, most + 1):
        picture.line([(place(2**power), top), (place(2**power), height - 40)], "#ddd")
        label = "1" if power == 0 else f"{2**power}×" if power > 0 else f"1/{2**-power}"
        picture.text(place(2**power), height - 24, label, "middle")
    picture.text(4, 24, "operation (e, m)", size=11)
    picture.text(place(2), height - 8, "zelk is faster →", "middle", "#777", 11)
    picture.text(place(0.5), height - 8, "← zelk is slower", "middle", "#777", 11)
    y = top
    for name, found in bars:
        operation, widths = name.split("/")
        middle = y + len(found) * bar / 2 + 4
        picture.text(left - 10, middle, f"{operation} ({widths.replace('.', ', ')})", "end")
        for who, ratio in sorted(found, reverse=True):
            x = place(ratio)
            picture.box(min(x, place(1)), y, abs(x - place(1)), bar - 1, peers[who][1])
            y += bar
        y += 8
    picture.line([(place(1), top), (place(1), height - 40)], "#222", 1.5)
    for i, (label, colour) in enumerate(peers.values()):
        picture.box(left + 170 * i, 14, 14, 10, colour)
        picture.text(left + 20 + 170 * i, 24, label)
    picture.save("ratios.svg")


def draw_layout():
    """The pattern of 1.5 in (5, 10), with the places that its fields have in any format."""
    fields = [
        ("0", "sign S", "e + m", "#e8c9b8"),
        ("01111", "biased exponent E", "e + m − 1 … m", "#bcd7ea"),
        ("1000000000", "trailing significand T", "m − 1 … 0", "#c5e0c9"),
    ]
    cell, left, top = 38, 16, 58
    picture = Picture(640, 178)
    x, bit = left, 15
    for bits, name, places, fill in fields:
        middle = x + cell * len(bits) / 2
        picture.text(middle, top - 30, name, "middle")
        for digit in bits:
            picture.text(x + cell / 2, top - 8, bit, "middle", "#777", 11)
            picture.box(x, top, cell, cell, fill, "#555")
            picture.text(x + cell / 2, top + cell / 2 + 6, digit, "middle", size=17)
            x, bit = x + cell, bit - 1
        picture.text(middle, top + cell + 20, places, "middle", "#777", 11)
    picture.text(
        left,
        top + cell + 54,
        "(5, 10): 0x3E00 is (−1)⁰ × (2¹⁰ + 512) × 2^(15 − bias − 10) = 1536 × 2⁻¹⁰ = 1.5, bias = 15",
    )
    picture.text(
        left,
        top + cell + 74,
        "(e, m): bits 0 to e + m. The hidden bit, 2ᵐ, is not stored; it is there unless E = 0.",
        colour="#555",
    )
    picture.save("layout.svg")


# The values of (3, 2) near 0 that are not negative: the subnormals, then two binades.
SUBNORMALS = [Fraction(t, 16) for t in range(4)]
NORMALS = [Fraction(4 + t, 16) for t in range(4)] + [Fraction(4 + t, 8) for t in range(2)]
DIRECTIONS = ["nearest even", "toward zero", "toward plus infinity", "toward minus infinity"]


def rounded(q, direction):
    """The value of (3, 2) near 0 that q goes to, by its definition: a search."""
    magnitudes = SUBNORMALS + NORMALS
    below = max(v for v in magnitudes if v <= abs(q))
    above = min(v for v in magnitudes if v >= abs(q))
    sign = -1 if q < 0 else 1
    if direction == "nearest even":
        is_odd = magnitudes.index(below) % 2 == 1  # patterns count up with magnitudes
        up = 2 * abs(q) > below + above or (2 * abs(q) == below + above and is_odd)
    else:
        outward = "toward minus infinity" if q < 0 else "toward plus infinity"
        up = direction == outward
    return sign * (above if up else below)


def draw_line():
    numbers = [Fraction(-19, 64), Fraction(-3, 32), Fraction(1, 100), Fraction(5, 32), Fraction(27, 64)]
    colours = ["#b3541e", "#7a3db8", "#1b6ca8", "#3a7d44", "#a8851b"]
    middle, scale, gap = 400, 560, 92
    picture = Picture(760, 100 + 4 * gap)

    def place(q):
        return middle + float(q) * scale

    picture.box(place(Fraction(-1, 4)), 44, scale / 2, 48 + 4 * gap, "#f2f2f2")
    picture.text(middle, 82 + 4 * gap, "subnormals: below 2^(1 − bias) = 1/4", "middle", "#777", 11)
    for q, colour in zip(numbers, colours):
        picture.text(place(q), 34, q if q > 0 else f"−{-q}", "middle", colour)
        if q.denominator == 32:
            picture.text(place(q), 18, "a tie:", "middle", "#777", 11)
        picture.line([(place(q), 40), (place(q), 66 + 4 * gap)], colour, 1, "2 4")
    for row, direction in enumerate(DIRECTIONS):
        y = 126 + row * gap
        picture.text(14, y - 36, direction)
        picture.line([(place(Fraction(-17, 32)), y), (place(Fraction(17, 32)), y)], "#222")
        for value in sorted({sign * v for v in SUBNORMALS + NORMALS for sign in (1, -1)}):
            if abs(value) > Fraction(1, 2):
                continue
            is_small = abs(value) in SUBNORMALS
            picture.line([(place(value), y - 4), (place(value), y + 4)], "#222", 2 if is_small else 1)
            label = f"{abs(value)}" if value >= 0 else f"−{-value}"
            picture.text(place(value), y + 19, label, "middle", "#222" if is_small else "#777", 10)
        for q, colour in zip(numbers, colours):
            picture.arrow(place(q), y - 30, place(rounded(q, direction)), y - 5, colour)
            picture.dot(place(q), y - 30, colour)
    picture.save("line.svg")


if __name__ == "__main__":
    draw_growth()
    draw_ratios()
    draw_layout()
    draw_line()
