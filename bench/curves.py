"""Curves as SVG, written by hand: axes with grid lines, and lines with their names beside them."""

import collections
import math

COLOURS = ["#0b6e4f", "#6bbf59", "#888888", "#c0392b", "#d68910", "#8e44ad", "#2471a3", "#17a2b8", "#7b5e57", "#e377c2", "#444444"]

# Where a value lies between the ends of an axis, from 0 to 1, and the values that have a label: (value, label).
Axis = collections.namedtuple("Axis", "place labels")

# {where: value}; a strong line is drawn thicker.
Line = collections.namedtuple("Line", "name points strong", defaults=[False])


def logarithmic(low, high, labels):
    first, last = math.log10(low), math.log10(high)
    return Axis(lambda value: (math.log10(value) - first) / ((last - first) or 1), labels)


def powers_of_ten(values, unit):
    """An axis from one power of ten to another."""
    low, high = math.floor(math.log10(min(values))), math.ceil(math.log10(max(values)))
    return logarithmic(10 ** low, 10 ** high, [(10 ** power, f"{10 ** power:g} {unit}") for power in range(low, high + 1)])


def linear(highest, unit, labels=5):
    """An axis from 0 on, with round numbers."""
    step = 10 ** math.floor(math.log10((highest or 1) / labels))
    step *= next(factor for factor in (1, 2, 5, 10) if factor * step * labels >= (highest or 1))
    count = max(1, math.ceil((highest or 1) / step))
    return Axis(lambda value: value / (count * step), [(step * tick, f"{step * tick:g} {unit}".strip()) for tick in range(count + 1)])


class Plot:
    """One system of axes. Its place in a sheet is given in pixels."""

    WIDTH, LEFT, TOP, RIGHT, BOTTOM = 760, 70, 40, 170, 50

    def __init__(self, title, x, y, x_title, height=420):
        self.title, self.x_axis, self.y_axis, self.x_title, self.height = title, x, y, x_title, height
        self.lines = []

    def add(self, line):
        self.lines.append(line)

    def x(self, value):
        return self.LEFT + (self.WIDTH - self.LEFT - self.RIGHT) * self.x_axis.place(value)

    def y(self, value):
        return self.TOP + (self.height - self.TOP - self.BOTTOM) * (1 - self.y_axis.place(value))

    def parts(self, dots):
        right, bottom = self.WIDTH - self.RIGHT, self.height - self.BOTTOM
        parts = [f'<text x="{self.LEFT}" y="22" font-size="15">{self.title}</text>']
        for value, label in self.y_axis.labels:
            at = self.y(value)
            parts.append(f'<path d="M{self.LEFT} {at:.1f}H{right}" stroke="#ddd"/>'
                         f'<text x="{self.LEFT - 8}" y="{at + 4:.1f}" text-anchor="end">{label}</text>')
        for value, label in self.x_axis.labels:
            at = self.x(value)
            parts.append(f'<path d="M{at:.1f} {self.TOP}V{bottom}" stroke="#eee"/>'
                         f'<text x="{at:.1f}" y="{bottom + 18}" text-anchor="middle">{label}</text>')
        parts.append(f'<text x="{(self.LEFT + right) / 2}" y="{self.height - 10}" text-anchor="middle">{self.x_title}</text>')
        for number, line in enumerate(self.lines):
            colour = COLOURS[number % len(COLOURS)]
            path = " ".join(f"{self.x(at):.1f},{self.y(value):.1f}" for at, value in sorted(line.points.items()))
            named = self.TOP + 12 + 18 * number
            parts.append(f'<polyline points="{path}" fill="none" stroke="{colour}" stroke-width="{3 if line.strong else 1.5}"/>')
            if dots:
                parts += [f'<circle cx="{self.x(at):.1f}" cy="{self.y(value):.1f}" r="3" fill="{colour}"/>'
                          for at, value in line.points.items()]
            parts.append(f'<path d="M{right + 14} {named - 4}h22" stroke="{colour}" stroke-width="3"/>'
                         f'<text x="{right + 42}" y="{named}">{line.name}</text>')
        return parts


def sheet(plots, dots=True):
    """An SVG of plots, one below the other."""
    height = sum(plot.height for plot in plots)
    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" width="{Plot.WIDTH}" height="{height}" font-family="sans-serif" font-size="12">',
             f'<rect width="{Plot.WIDTH}" height="{height}" fill="white"/>']
    top = 0
    for plot in plots:
        parts += plot.parts(dots) if top == 0 else [f'<g transform="translate(0 {top})">', *plot.parts(dots), "</g>"]
        top += plot.height
    return "\n".join(parts + ["</svg>"]) + "\n"
