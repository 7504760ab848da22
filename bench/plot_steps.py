#!/usr/bin/env python3
"""Cost per word of a product beside GMP's, in eighths of an octave: runs `products steps` and draws the figure.

Usage: bench/plot_steps.py FIRST LAST RUNS OUTPUT.svg

Builds what it needs (preset "bench"), prints the medians of RUNS sweeps as a Markdown table and the largest step
up between neighbouring sizes, and writes the plot: nanoseconds a word against log2 of the words.
"""

import math
import os
import statistics
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def main():
    if len(sys.argv) != 5:
        sys.exit(__doc__)
    first, last, runs, path = sys.argv[1:]
    for command in (["cmake", "--preset", "bench"], ["cmake", "--build", "--preset", "bench", "-j2"]):
        subprocess.run(command, cwd=ROOT, check=True, stdout=subprocess.DEVNULL)
    program = os.path.join(ROOT, "build", "bench", "bench", "products")
    # Whole sweeps in turn, so that a slow minute of the machine touches every length once and no median.
    sweeps = []
    for _ in range(int(runs)):
        out = subprocess.run([program, "steps", first, last, "1"], capture_output=True, text=True, check=True).stdout
        sweeps.append([[float(x) for x in line.split()] for line in out.splitlines()[1:]])
    rows = [[statistics.median(column) for column in zip(*lines)] for lines in zip(*sweeps)]
    print("| words | GMP, ns a word | Kelvane, ns a word | times faster | factor of 2 threads |\n|---|---|---|---|---|")
    for words, gmp, ours, times, two in rows:
        print(f"| {words:.0f} | {gmp:.1f} | {ours:.1f} | {times:.2f} | {two:.2f} |")
    steps = [b[2] / a[2] for a, b in zip(rows, rows[1:])]
    print(f"\nLargest step up: {max(steps):.3f}")
    with open(path, "w") as file:
        file.write(svg(rows))


def svg(rows):
    width, height, left, bottom, top = 760, 420, 60, 50, 30
    x0, x1 = math.log2(rows[0][0]), math.log2(rows[-1][0])
    highest = 1.05 * max(row[1] for row in rows)

    def x(words):
        return left + (math.log2(words) - x0) / (x1 - x0) * (width - left - 20)

    def y(cost):
        return height - bottom - cost / highest * (height - bottom - top)

    parts = [f'<svg xmlns="http://www.w3.org/2000/svg" viewBox="0 0 {width} {height}" font-family="sans-serif" font-size="13">',
             f'<rect width="{width}" height="{height}" fill="white"/>']
    step = 10 ** math.floor(math.log10(highest / 4))
    step *= next(k for k in (1, 2, 5, 10) if highest / (k * step) <= 6)
    tick = 0.0
    while tick <= highest:
        parts.append(f'<line x1="{left}" x2="{width - 20}" y1="{y(tick):.1f}" y2="{y(tick):.1f}" stroke="#ddd"/>'
                     f'<text x="{left - 8}" y="{y(tick) + 4:.1f}" text-anchor="end">{tick:g}</text>')
        tick += step
    for power in range(math.ceil(x0), math.floor(x1) + 1):
        parts.append(f'<text x="{x(2**power):.1f}" y="{height - bottom + 20}" text-anchor="middle">2^{power}</text>')
    for column, colour, name in ((1, "#b04030", "GMP mpn_mul_n"), (2, "#2060a0", "Kelvane")):
        points = " ".join(f"{x(row[0]):.1f},{y(row[column]):.1f}" for row in rows)
        parts.append(f'<polyline points="{points}" fill="none" stroke="{colour}" stroke-width="2"/>')
        parts += [f'<circle cx="{x(row[0]):.1f}" cy="{y(row[column]):.1f}" r="2.5" fill="{colour}"/>' for row in rows]
        parts.append(f'<text x="{x(rows[len(rows) // 2][0]):.1f}" y="{y(rows[len(rows) // 2][column]) - 14:.1f}" '
                     f'fill="{colour}" text-anchor="middle">{name}</text>')
    parts.append(f'<text x="{width / 2}" y="{height - 8}" text-anchor="middle">words an operand, one thread</text>'
                 f'<text x="16" y="{height / 2}" transform="rotate(-90 16 {height / 2})" text-anchor="middle">nanoseconds a word</text></svg>')
    return "\n".join(parts) + "\n"


main()
