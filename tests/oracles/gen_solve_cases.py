#!/usr/bin/env python3
"""Reference systems for the linear solver, solved by NumPy (LAPACK) in double precision.

Writes tests/data/matrix/solve_cases.txt. Each case starts with a line "n m singular",
then n rows of A, n rows of B and, for a regular system, n rows of the solution X.
Singular systems have one column of A set to zero, which elimination meets exactly.
Run with the system python: /usr/bin/python3 tests/oracles/gen_solve_cases.py
"""
from pathlib import Path

import numpy as np

rng = np.random.default_rng(20240611)
out = Path(__file__).resolve().parent.parent / "data" / "matrix" / "solve_cases.txt"
lines = []


def rows(mat):
    return [" ".join("%.17g" % v for v in row) for row in mat]


cases = 0
for n in [1, 2, 3, 4, 5, 7, 8, 12, 17]:
    for m in [1, 3]:
        # Random rows with a shifted diagonal keep the condition number small.
        a = rng.uniform(-1, 1, (n, n)) + np.diag(rng.choice([-1, 1], n) * (1.0 + n / 4))
        a = a[rng.permutation(n)]  # forces row exchanges
        b = rng.uniform(-2, 2, (n, m))
        assert np.linalg.cond(a) < 50
        x = np.linalg.solve(a, b)
        lines.append("%d %d 0" % (n, m))
        lines += rows(a) + rows(b) + rows(x)
        cases += 1
for n, col in [(3, 0), (4, 2), (6, 5), (9, 4)]:
    a = rng.uniform(-1, 1, (n, n))
    a[:, col] = 0.0
    assert np.linalg.matrix_rank(a) < n
    b = rng.uniform(-1, 1, (n, 1))
    lines.append("%d 1 1" % n)
    lines += rows(a) + rows(b)
    cases += 1
out.write_text("%d\n" % cases + "\n".join(lines) + "\n")
