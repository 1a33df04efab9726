#!/usr/bin/env python3
"""Reference outputs of the float graph operators, computed with PyTorch and NumPy.

Each case file under tests/data/ops/ is a list of arrays, all little-endian:
  int32 count, then for each array: int32 ndims, ndims int32 dims (fastest first: W, H, C),
  then the float32 values in that order (which is PyTorch's contiguous N, C, H, W order).
Run from the repository root:  /usr/bin/python3 tests/oracles/ops_reference.py
"""
import os
import struct

import numpy as np
import torch
import torch.nn.functional as F

OUT = os.path.join(os.path.dirname(__file__), "..", "data", "ops")
rng = np.random.default_rng(20261123)


def write(name, arrays):
    """arrays: list of (dims fastest-first, numpy array in matching C order)."""
    with open(os.path.join(OUT, name + ".bin"), "wb") as f:
        f.write(struct.pack("<i", len(arrays)))
        for dims, a in arrays:
            a = np.ascontiguousarray(a, dtype=np.float32)
            assert a.size == int(np.prod(dims)), (name, dims, a.shape)
            f.write(struct.pack("<i", len(dims)))
            f.write(struct.pack("<%di" % len(dims), *dims))
            f.write(a.tobytes())


def rand(*shape, lo=-3.0, hi=3.0):
    return rng.uniform(lo, hi, size=shape).astype(np.float32)


def t(a):
    return torch.from_numpy(np.ascontiguousarray(a))


def unary_cases():
    x = rand(1003, lo=-9, hi=9)
    write("sigmoid", [((1003,), x), ((1003,), torch.sigmoid(t(x)).numpy())])
    write("hswish", [((1003,), x), ((1003,), F.hardswish(t(x)).numpy())])
    write("relu6", [((1003,), x), ((1003,), F.relu6(t(x)).numpy())])
    # Rows along dim 0: a (7, 5) tensor is 5 rows of 7, a (2, 33) one 33 two-class rows.
    for name, (w, h) in (("softmax_7x5", (7, 5)), ("softmax_2x33", (2, 33)), ("softmax_37x3", (37, 3))):
        x = rand(h, w, lo=-12, hi=12)
        write(name, [((w, h), x), ((w, h), torch.softmax(t(x), dim=-1).numpy())])


def binary_cases():
    a = rand(3, 4, 5)
    b = rand(3, 4, 5)
    write("add_same", [((5, 4, 3), a), ((5, 4, 3), b), ((5, 4, 3), (t(a) + t(b)).numpy())])
    a = rand(3, 4, 4)
    v = rand(3)
    write("add_channel", [((4, 4, 3), a), ((3,), v), ((4, 4, 3), (t(a) + t(v).view(3, 1, 1)).numpy())])
    a = rand(3, 1, 1)
    b = rand(3, 4, 4)
    write("mul_channel", [((1, 1, 3), a), ((4, 4, 3), b), ((4, 4, 3), (t(a) * t(b)).numpy())])
    a = rand(2, 3, 6)
    b = rand(2, 3, 6)
    write("mul_same", [((6, 3, 2), a), ((6, 3, 2), b), ((6, 3, 2), (t(a) * t(b)).numpy())])


def linear_cases():
    fin, fout, rows = 13, 7, 3
    x = rand(rows, fin)
    w = rand(fout, fin)
    b = rand(fout)
    y = F.linear(t(x), t(w)).numpy()
    yb = y.copy()
    yb[0] += b  # the operator adds the bias to the first row only
    write("linear", [((fin, rows), x), ((fin * fout + fout,), np.concatenate([w.ravel(), b])),
                     ((fout, rows), y), ((fout, rows), yb)])


def bn_cases():
    c, h, w = 5, 3, 4
    x = rand(1, c, h, w)
    gamma, beta, mean = rand(c), rand(c), rand(c)
    var = rand(c, lo=0.1, hi=2.0)
    eps = 1e-3
    y = F.batch_norm(t(x), t(mean), t(var), t(gamma), t(beta), training=False, eps=eps).numpy()
    write("bn2d", [((w, h, c), x), ((4 * c,), np.concatenate([gamma, beta, mean, var])), ((w, h, c), y),
                   ((1,), np.array([eps], np.float32))])
    n = 17
    x = rand(n)
    g, bt, m = rand(n), rand(n), rand(n)
    v = rand(n, lo=0.1, hi=2.0)
    y = (bt.astype(np.float64) + g * (x.astype(np.float64) - m) / np.sqrt(v.astype(np.float64) + eps))
    write("bn1d", [((n,), x), ((4 * n,), np.concatenate([g, bt, m, v])), ((n,), y.astype(np.float32)),
                   ((1,), np.array([eps], np.float32))])


def affine_cases():
    for name, (w, h, c), scale, corners in (("affine_a", (10, 6, 3), 1.0, 0), ("affine_b", (9, 7, 2), 0.5, 1),
                                             ("affine_c", (8, 8, 2), 1.0, 1)):
        x = rand(1, c, h, w)
        theta = np.array([[0.9, -0.2, 0.1], [0.15, 1.1, -0.05]], np.float32)
        wo, ho = int(np.float32(scale) * np.float32(w)), int(np.float32(scale) * np.float32(h))
        grid = F.affine_grid(t(theta)[None], [1, c, ho, wo], align_corners=bool(corners))
        y = F.grid_sample(t(x), grid, mode="bilinear", padding_mode="zeros", align_corners=bool(corners)).numpy()
        write(name, [((w, h, c), x), ((6,), theta.ravel()), ((wo, ho, c), y),
                     ((2,), np.array([scale, corners], np.float32))])


def pool_cases():
    for name, (w, h, c), k in (("pool_2", (22, 10, 3), 2), ("pool_3", (9, 6, 2), 3), ("pool_global", (7, 7, 6), 7)):
        x = rand(1, c, h, w)
        mx = F.max_pool2d(t(x), k).numpy()
        av = F.avg_pool2d(t(x), k).numpy()
        write(name, [((w, h, c), x), ((w // k, h // k, c), mx), ((w // k, h // k, c), av),
                     ((1,), np.array([k], np.float32))])


def shape_cases():
    a = rand(2, 4, 4)
    b = rand(3, 4, 4)
    write("concat_c", [((4, 4, 2), a), ((4, 4, 3), b), ((4, 4, 5), np.concatenate([a, b], axis=0))])
    a = rand(3, 2)
    b = rand(3, 1)
    write("concat_w", [((2, 3), a), ((1, 3), b), ((3, 3), np.concatenate([a, b], axis=1))])
    x = rand(6, 3, 5)
    write("split_odd", [((5, 3, 6), x), ((5, 3, 3), x[1::2])])
    order = np.array([2, 0, 1, 1], np.int64)
    x = rand(4, 2, 3)
    write("shuffle", [((3, 2, 4), x), ((4,), order.astype(np.float32)), ((3, 2, 4), x[order])])


if __name__ == "__main__":
    os.makedirs(OUT, exist_ok=True)
    torch.manual_seed(0)
    unary_cases()
    binary_cases()
    linear_cases()
    bn_cases()
    affine_cases()
    pool_cases()
    shape_cases()
