#!/usr/bin/env python3
"""Optimal totals of seeded random assignment problems, by SciPy.

Every matrix is rebuilt from its number with splitmix64, in this script and in the
test (tests/tracking/assignment_test.cpp) alike, so only the totals are stored.
Output: tests/data/tracking/lsa_scipy.txt, one line per matrix:
  <number> <rows> <cols> <maximize> <total or 'refused'>
Run: /usr/bin/python3 tests/oracles/lsa_scipy.py
"""
import math
import sys
from pathlib import Path

import numpy as np
from scipy.optimize import linear_sum_assignment

MASK = (1 << 64) - 1
COUNT = 3000


class SplitMix:
    def __init__(self, seed):
        self.state = seed & MASK

    def next(self):
        self.state = (self.state + 0x9E3779B97F4A7C15) & MASK
        z = self.state
        z = ((z ^ (z >> 30)) * 0xBF58476D1CE4E5B9) & MASK
        z = ((z ^ (z >> 27)) * 0x94D049BB133111EB) & MASK
        return z ^ (z >> 31)

    def unit(self):
        # 24 random bits: exact in a float.
        return (self.next() >> 40) / float(1 << 24)


def make(number):
    g = SplitMix(number * 1000003 + 12345)
    rows = 1 + g.next() % 60
    cols = 1 + g.next() % 80
    if g.next() % 4 == 0:
        cols = min(rows, 80)
    kind = g.next() % 10
    maximize = int(g.next() % 2)
    a = np.zeros((rows, cols), dtype=np.float32)
    if kind == 3:
        base = [[g.unit() for _ in range(cols)] for _ in range(3)]
    for r in range(rows):
        for c in range(cols):
            if kind == 0:
                v = g.unit()
            elif kind == 1:
                v = float(g.next() % 4)
            elif kind == 2:
                v = float(g.next() % 100) - 50.0
            elif kind == 3:
                v = base[r % 3][c]
            elif kind == 4:
                v = g.unit() * 2.0 ** 100
            elif kind == 5:
                v = g.unit() * 2.0 ** -100
            elif kind == 6:
                v = 7.0
            elif kind == 7:
                v = g.unit() * 2.0 ** (int(g.next() % 60) - 30)
            else:
                # Kinds 8 and 9: forbidden pairs as +infinity, rare and frequent.
                u = g.unit()
                limit = 0.1 if kind == 8 else 0.6
                v = math.inf if u < limit else g.unit() - 0.5
            a[r, c] = np.float32(v)
    return a, maximize


def main():
    out = Path(__file__).resolve().parents[1] / "data" / "tracking" / "lsa_scipy.txt"
    lines = []
    for number in range(COUNT):
        a, maximize = make(number)
        try:
            rows, cols = linear_sum_assignment(a.astype(np.float64), maximize=bool(maximize))
            total = repr(math.fsum(float(a[r, c]) for r, c in zip(rows, cols)))
        except ValueError:
            total = "refused"
        lines.append(f"{number} {a.shape[0]} {a.shape[1]} {maximize} {total}")
    out.write_text("\n".join(lines) + "\n")
    print(f"wrote {len(lines)} lines to {out}", file=sys.stderr)


if __name__ == "__main__":
    main()
