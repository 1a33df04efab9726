#!/usr/bin/python3
"""Reference decompositions from numpy.linalg.svd and numpy.linalg.eigh.

svd_ref.txt, per case: a line "rows cols", then the matrix row by row, the singular
values (falling), U (rows x k) and Vt (k x cols) with k = min(rows, cols), one line each.
eigh_ref.txt, per case: "n", the symmetric matrix, the eigenvalues (rising), and the
eigenvectors as rows. Run from the repository root.
"""
import numpy as np

rng = np.random.default_rng(7211)


def fmt(v):
    return " ".join(repr(float(x)) for x in np.ravel(v))


cases = []
for shape in [(3, 3), (3, 3), (9, 9), (9, 9), (12, 12), (4, 2), (2, 4), (1, 5), (5, 1), (1, 1), (7, 3), (3, 7)]:
    cases.append(rng.standard_normal(shape))
for m, n, r in [(6, 6, 3), (8, 5, 2), (4, 7, 1), (9, 9, 8)]:  # rank deficient
    cases.append(rng.standard_normal((m, r)) @ rng.standard_normal((r, n)))
cases.append(np.diag([1.0, 3.0, 2.0]))
cases.append(np.diag(rng.uniform(-5, 5, 6)))
cases.append(rng.standard_normal((5, 5)) * np.array([1e3, 1.0, 1e-3, 1.0, 10.0]))  # spread column scales

with open("tests/data/matrix/svd_ref.txt", "w") as f:
    for a in cases:
        u, s, vt = np.linalg.svd(a, full_matrices=False)
        f.write(f"{a.shape[0]} {a.shape[1]}\n{fmt(a)}\n{fmt(s)}\n{fmt(u)}\n{fmt(vt)}\n")

with open("tests/data/matrix/eigh_ref.txt", "w") as f:
    for n in [1, 2, 3, 4, 5, 6, 9, 9, 12]:
        b = rng.standard_normal((n, n))
        a = (b + b.T) / 2
        w, v = np.linalg.eigh(a)
        f.write(f"{n}\n{fmt(a)}\n{fmt(w)}\n{fmt(v.T)}\n")
    a = np.diag([1.0, 3.0, 2.0])
    w, v = np.linalg.eigh(a)
    f.write(f"3\n{fmt(a)}\n{fmt(w)}\n{fmt(v.T)}\n")
