#!/usr/bin/python3
"""Reference roots of monic polynomials of degree 2 to 4 from numpy.roots.

Line format: degree, the degree coefficients after the leading 1, then the roots as
(real, imaginary) pairs sorted by real then imaginary part. Run from the repository root.
"""
import numpy as np

rng = np.random.default_rng(20240611)
lines = []


def emit(coeffs):
    roots = np.roots(np.concatenate(([1.0], coeffs)))
    roots = sorted(roots, key=lambda z: (round(z.real, 9), z.imag))
    vals = [len(coeffs)] + list(coeffs) + [v for z in roots for v in (z.real, z.imag)]
    lines.append(" ".join(repr(float(v)) for v in vals))


for degree in (2, 3, 4):
    for _ in range(40):  # random coefficients: a mix of real and complex roots
        emit(rng.uniform(-10, 10, degree))
    for _ in range(20):  # chosen real roots, some repeated
        r = rng.integers(-5, 6, degree).astype(float)
        if rng.random() < 0.5:
            r[1] = r[0]
        emit(np.poly(r)[1:])

with open("tests/data/matrix/poly_roots_ref.txt", "w") as f:
    f.write("\n".join(lines) + "\n")
