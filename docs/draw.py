#!/usr/bin/env python3
"""Draws the pictures of the documentation as SVG, beside this file.

growth.svg: how the cost of an operation grows with the significand width, from growth.txt, the
output of ./dev growth.
"""
import math
import pathlib

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

    def text(self, x, y, words, anchor="start", colour="#222"):
        self.parts.append(
            f'<text x="{x:.1f}" y="{y:.1f}" text-anchor="{anchor}" fill="{colour}">{words}</text>'
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
    picture.text((left + right) / 2, bottom + 42, "stored significand bits, e = 30", "middle")
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


if __name__ == "__main__":
    draw_growth()
