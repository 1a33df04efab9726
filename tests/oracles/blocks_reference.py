#!/usr/bin/env python3
"""A small network made of the standard blocks, run in PyTorch with fixed random weights.

Writes tests/data/ops/blocks.bin in the array format of ops_reference.py:
  input, then the weight tensor of each convolution node in node order, then the outputs
  of the four blocks (inverted residual with residual, inverted residual without, separable
  block, depthwise-separable base block).
Run from the repository root:  /usr/bin/python3 tests/oracles/blocks_reference.py
"""
import os

import numpy as np
import torch
import torch.nn.functional as F

from ops_reference import OUT, write

rng = np.random.default_rng(7)
EPS = 1e-5


def conv_bn_weights(cin, cout, k, groups):
    per = cin // groups
    w = rng.uniform(-0.6, 0.6, size=(cout, per, k, k)).astype(np.float32)
    gamma = rng.uniform(0.5, 1.5, size=cout).astype(np.float32)
    beta = rng.uniform(-0.3, 0.3, size=cout).astype(np.float32)
    mean = rng.uniform(-0.3, 0.3, size=cout).astype(np.float32)
    var = rng.uniform(0.5, 1.5, size=cout).astype(np.float32)
    flat = np.concatenate([w.ravel(), gamma, beta, mean, var])
    return flat, (w, gamma, beta, mean, var)


def conv_bias_weights(cin, cout, k, groups):
    per = cin // groups
    w = rng.uniform(-0.6, 0.6, size=(cout, per, k, k)).astype(np.float32)
    b = rng.uniform(-0.3, 0.3, size=cout).astype(np.float32)
    return np.concatenate([w.ravel(), b]), (w, b)


def conv_bn(x, p, stride, pad, groups, act):
    w, gamma, beta, mean, var = (torch.from_numpy(a) for a in p)
    y = F.conv2d(x, w, None, stride, pad, 1, groups)
    y = F.batch_norm(y, mean, var, gamma, beta, training=False, eps=EPS)
    return act(y)


def conv_bias(x, p, stride, pad, groups, act):
    w, b = (torch.from_numpy(a) for a in p)
    return act(F.conv2d(x, w, b, stride, pad, 1, groups))


def ident(y):
    return y


def main():
    c0, w0, h0 = 4, 10, 8
    x = torch.from_numpy(rng.uniform(-1, 1, size=(1, c0, h0, w0)).astype(np.float32))
    weights = []

    # Inverted residual, hard swish, with residual: 4 -> 8 -> 8 -> 4, stride 1.
    hid = 2 * c0
    p1 = conv_bn_weights(c0, hid, 1, 1)
    p2 = conv_bn_weights(hid, hid, 3, hid)
    p3 = conv_bn_weights(hid, c0, 1, 1)
    y = conv_bn(x, p1[1], 1, 0, 1, F.hardswish)
    y = conv_bn(y, p2[1], 1, 1, hid, F.hardswish)
    y = conv_bn(y, p3[1], 1, 0, 1, ident)
    b1 = y + x
    weights += [p1[0], p2[0], p3[0]]

    # Inverted residual, ReLU6, no residual: 4 -> 12 -> 12 (stride 2) -> 6.
    hid = 3 * c0
    p4 = conv_bn_weights(c0, hid, 1, 1)
    p5 = conv_bn_weights(hid, hid, 3, hid)
    p6 = conv_bn_weights(hid, 6, 1, 1)
    y = conv_bn(b1, p4[1], 1, 0, 1, F.relu6)
    y = conv_bn(y, p5[1], 2, 1, hid, F.relu6)
    b2 = conv_bn(y, p6[1], 1, 0, 1, ident)
    weights += [p4[0], p5[0], p6[0]]

    # Separable: depthwise 3x3 with bias and ReLU, then pointwise with bias: 6 -> 5.
    p7 = conv_bias_weights(6, 6, 3, 6)
    p8 = conv_bias_weights(6, 5, 1, 1)
    y = conv_bias(b2, p7[1], 1, 1, 6, F.relu)
    b3 = conv_bias(y, p8[1], 1, 0, 1, ident)
    weights += [p7[0], p8[0]]

    # Base depthwise block: depthwise 3x3 + BN + ReLU, pointwise + BN + ReLU: 5 -> 8.
    p9 = conv_bn_weights(5, 5, 3, 5)
    p10 = conv_bn_weights(5, 8, 1, 1)
    y = conv_bn(b3, p9[1], 1, 1, 5, F.relu)
    b4 = conv_bn(y, p10[1], 1, 0, 1, F.relu)
    weights += [p9[0], p10[0]]

    def dims(t):
        n, c, h, w = t.shape
        return (w, h, c)

    arrays = [(dims(x), x.numpy())]
    arrays += [((len(w),), w) for w in weights]
    arrays += [(dims(b), b.detach().numpy()) for b in (b1, b2, b3, b4)]
    write("blocks", arrays)


if __name__ == "__main__":
    os.makedirs(OUT, exist_ok=True)
    main()
