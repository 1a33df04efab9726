#!/usr/bin/python3
"""NumPy integer models of the fixed-point kernels, for the fixed-point kernel tests.

Writes tests/data/fixed/fixed_cases.bin: magic b"ORUFIXD1", int32 case count, then per case
  int32 kind, int32 n, int32 ints[n]    (Q values first, then the kind's parameters)
  int32 m, m arrays (the inputs, in the kernel's argument order), then the expected output;
  each array int32 ndims, int32 dims[ndims] (dims[0] fastest), int16 data.
Kinds and their ints:
  0 standard conv, 1 depthwise, 2 pointwise: q_out q_in q_w, params[14]
  3 conv + act, 4 conv + batch norm + act (weights already fused): q_out q_in q_w, params[14], act
  5 bias: q_out q_in q_w, params[14]
  6 add: q_out q_a q_b
  7 batch norm 1-D: q_out q_in q_gamma q_beta q_mean q_var, eps as float32 bits
  8 linear: q_out q_in q_w, n_in n_out
  9 average pooling: q_out q_in k
  10 h-swish: q_out q_in
  11 affine: q_out q_in q_matrix
The models follow the written rules (32-bit wrap-around, rounded arithmetic shifts, low
16 bits stored), not the library's loops. Run with /usr/bin/python3 from the repository root.
"""
import struct
import sys

import numpy as np

rng = np.random.default_rng(20261125)
cases = []


def wrap32(x):
    return ((np.asarray(x, dtype=np.int64) + (1 << 31)) % (1 << 32)) - (1 << 31)


def low16(x):
    return (((np.asarray(x, dtype=np.int64) + (1 << 15)) % (1 << 16)) - (1 << 15)).astype(np.int16)


def rnd_term(s):
    return (1 << (s - 1)) if s > 0 else 0


def rescale(acc, s):
    return wrap32(acc + rnd_term(s)) >> s


def values(shape, big):
    """int16 values: full range for wrap-around cases, small otherwise; some at both ends."""
    lim = 32767 if big else 2000
    v = rng.integers(-lim - (1 if big else 0), lim + 1, size=shape, dtype=np.int64)
    if big and v.size > 2:
        flat = v.reshape(-1)
        flat[0], flat[-1] = -32768, 32767
    return v


def out_extent(n, k, s, p):
    return (n + 2 * p - k) // s + 1


def conv_params(ic, oc, kw, kh, sw, sh, pw, ph, groups, bias):
    return [ic, oc, kw, kh, sw, sh, pw, ph, 0, 0, 1, 1, groups, 1 if bias else 0]


def conv_model(x, w, p, q_out, q_in, q_w, kind):
    """x (C, H, W), w flat; the fixed-point rule with taps outside left out."""
    ic, oc, kw, kh, sw, sh, pw, ph = p[:8]
    s = q_in + q_w - q_out
    _, h, wd = x.shape
    oh, ow = out_extent(h, kh, sh, ph), out_extent(wd, kw, sw, pw)
    xp = np.zeros((ic, h + 2 * ph + kh, wd + 2 * pw + kw), dtype=np.int64)
    xp[:, ph:ph + h, pw:pw + wd] = x
    out = np.zeros((oc, oh, ow), dtype=np.int64)
    if kind == 2:  # pointwise: every product rounded by itself
        kern = w[:oc * ic].reshape(oc, ic)
        for o in range(oc):
            for i in range(ic):
                out[o] += rescale(wrap32(x[i] * kern[o, i]), s)
        return low16(out)
    dw = kind == 1
    kern = w[:(ic if dw else oc * ic) * kh * kw].reshape((ic, 1, kh, kw) if dw else (oc, ic, kh, kw))
    for o in range(oc):
        for i in ([o] if dw else range(ic)):
            acc = np.zeros((oh, ow), dtype=np.int64)
            for ky in range(kh):
                for kx in range(kw):
                    win = xp[i, ky:ky + sh * (oh - 1) + 1:sh, kx:kx + sw * (ow - 1) + 1:sw]
                    acc = wrap32(acc + win * kern[o, 0 if dw else i, ky, kx])
            out[o] = out[o] + rescale(acc, s)
    return low16(out)


def sum_rule(x, y, qa, qb, q_out):
    """x in Q qa plus y in Q qb into Q q_out: the bias and add table."""
    if qa <= qb:
        t = wrap32((x << (qb - qa)) + y)
        return wrap32(t + rnd_term(qb - q_out)) >> (qb - q_out) if qb >= q_out else wrap32(t << (q_out - qb))
    t = wrap32(x + (y << (qa - qb)))
    return wrap32(t + rnd_term(qa - q_out)) >> (qa - q_out) if qa >= q_out else wrap32(t << (q_out - qa))


def bias_model(y, w, p, q_out, q_in, q_w, act):
    ic, oc, kw, kh = p[:4]
    dw = p[12] == ic == oc and ic > 1
    at = (ic if dw else ic * oc) * kw * kh
    b = w[at:at + oc].reshape(oc, 1, 1)
    t = sum_rule(y.astype(np.int64), b, q_in, q_w, q_out)
    if act == 1:
        t = np.maximum(t, 0)
    elif act == 2:
        three, six = 3 << q_out, 6 << q_out
        c = np.clip(wrap32(t + three), 0, six)
        pr = wrap32(c * t + rnd_term(q_out)) >> q_out
        t = wrap32(pr * 5461 + 16384) >> 15
    elif act == 3:
        t = np.clip(t, 0, 6 << q_out)
    return low16(t)


def arr(a):
    a = np.asarray(a)
    return (list(reversed(a.shape)), low16(a))


def add_case(kind, ints, inputs, expected):
    cases.append((kind, [int(v) for v in ints], [arr(a) for a in inputs] + [arr(expected)]))


def conv_shapes():
    yield from [  # kind, ic, oc, k, stride, pad, w, h
        (0, 3, 4, 3, 1, 1, 9, 7), (0, 2, 3, 3, 2, 1, 9, 8), (0, 1, 1, 3, 1, 1, 1, 1), (0, 4, 2, 3, 2, 1, 33, 5),
        (0, 2, 5, 3, 1, 1, 35, 6), (0, 3, 2, 5, 1, 2, 8, 6), (0, 2, 2, 3, 1, 0, 7, 7), (0, 2, 3, 6, 1, 0, 6, 6),
        (0, 2, 2, 6, 1, 1, 6, 6), (0, 1, 2, 2, 2, 0, 9, 5), (0, 3, 3, 3, 2, 1, 40, 3),
        (1, 3, 3, 3, 1, 1, 9, 7), (1, 4, 4, 3, 2, 1, 37, 6), (1, 2, 2, 3, 2, 1, 2, 2), (1, 5, 5, 3, 1, 1, 40, 3),
        (1, 2, 2, 5, 1, 2, 7, 9), (1, 3, 3, 3, 1, 0, 6, 6), (1, 2, 2, 3, 2, 1, 41, 4),
        (2, 3, 5, 1, 1, 0, 7, 5), (2, 9, 6, 1, 1, 0, 23, 3), (2, 1, 1, 1, 1, 0, 1, 1), (2, 6, 9, 1, 1, 0, 17, 2),
    ]


def conv_cases():
    for n, (kind, ic, oc, k, st, pad, w, h) in enumerate(conv_shapes()):
        q_in, q_w = int(rng.integers(0, 16)), int(rng.integers(0, 16))
        # shifts of 0 and 1 and wide ones; the output Q never above the product's
        s = [0, 1, int(rng.integers(2, q_in + q_w + 1)) if q_in + q_w >= 2 else 0][n % 3]
        s = min(s, q_in + q_w)
        q_out = q_in + q_w - s
        if q_out > 15:
            q_out, s = 15, q_in + q_w - 15
        big = n % 2 == 0
        groups = ic if kind == 1 else 1
        p = conv_params(ic, oc, k, k, st, st, pad, pad, groups, True)
        x = values((ic, h, w), big)
        nk = (ic if kind == 1 else ic * oc) * k * k
        wt = values(nk + oc, big)
        y = conv_model(x, wt, p, q_out, q_in, q_w, kind)
        add_case(kind, [q_out, q_in, q_w] + p, [x, wt], y)
        # the same convolution with its bias and a tail of the fused operators (ReLU6 only
        # in the batch-norm form, whose weights come already folded)
        act = n % 4
        add_case(4 if act == 3 else 3, [q_out, q_in, q_w] + p + [act], [x, wt],
                 bias_model(y, wt, p, q_out, q_out, q_w, act))
        # the bias alone, with the input and the weights in Q values of their own
        q_x, q_b = (int(v) for v in rng.integers(0, 16, 2))
        add_case(5, [q_out, q_x, q_b] + p, [y, wt], bias_model(y, wt, p, q_out, q_x, q_b, 0))


def add_cases():
    for n in range(8):
        c, h, w = int(rng.integers(1, 5)), int(rng.integers(1, 9)), int(rng.integers(1, 40))
        qa, qb, qo = (int(v) for v in rng.integers(0, 16, 3))
        a = values((c, h, w), n % 2 == 0)
        b = values((c, h, w) if n < 5 else (c,), n % 2 == 0)
        bb = b if n < 5 else b.reshape(c, 1, 1)
        add_case(6, [qo, qa, qb], [a, b], sum_rule(a, bb, qa, qb, qo))


def bn1d_cases():
    for n in range(6):
        count = int(rng.integers(1, 30))
        q_in, q_g, q_b, q_m, q_v = (int(v) for v in rng.integers(2, 14, 5))
        q_out = int(rng.integers(0, 12))
        eps = np.float32(1e-3)
        x = values((count,), False)
        gamma, beta, mean = (values((count,), False) for _ in range(3))
        var = rng.integers(0, 3000, count)
        w = np.concatenate([gamma, beta, mean, var])
        e = int(2.0 ** (2 * q_v) * float(eps))
        y = np.zeros(count, dtype=np.int64)
        above = q_in >= q_m
        q = q_g + q_in - q_v if above else q_g + q_m - q_v
        if not ((q >= q_b) if above else (q > q_b)) or q < q_out:
            continue
        for i in range(count):
            v = int(wrap32((int(var[i]) << q_v) + e))
            if above:
                c = int(x[i]) - (int(mean[i]) << (q_in - q_m))
                s = int(np.sqrt(np.float32(v)))
            else:
                c = (int(x[i]) << (q_m - q_in)) - int(mean[i])
                s = int(np.sqrt(np.float64(v)))
            prod = c * int(gamma[i])
            quot = (abs(prod) // s) * (1 if prod >= 0 else -1) if s else 0  # toward zero
            y[i] = ((int(wrap32(int(beta[i]) << (q - q_b))) + quot) >> (q - q_out))
        eps_bits = struct.unpack("<i", struct.pack("<f", eps))[0]
        add_case(7, [q_out, q_in, q_g, q_b, q_m, q_v, eps_bits], [x, w], y)


def linear_cases():
    for n in range(6):
        n_in, n_out = int(rng.integers(1, 40)), int(rng.integers(1, 9))
        q_in, q_w = (int(v) for v in rng.integers(0, 16, 2))
        q_out = int(rng.integers(max(0, q_in + q_w - 30), min(15, q_in + q_w) + 1))
        s = q_in + q_w - q_out
        x = values((1, n_in), n % 2 == 0)
        w = values((n_in * n_out + n_out,), n % 2 == 0)
        y = np.zeros(n_out, dtype=np.int64)
        for o in range(n_out):
            acc = 0
            for i in range(n_in):
                acc = int(wrap32(acc + rescale(wrap32(int(x[0, i]) * int(w[o * n_in + i])), s)))
            b = int(w[n_in * n_out + o])
            acc += (b >> (q_w - q_out)) if q_out <= q_w else int(wrap32(b << (q_out - q_w)))
            y[o] = acc
        add_case(8, [q_out, q_in, q_w, n_in, n_out], [x], y.reshape(1, n_out))
        cases[-1][2].insert(1, arr(w))


def pool_cases():
    for n in range(6):
        k = int(rng.integers(1, 5))
        c, oh, ow = int(rng.integers(1, 4)), int(rng.integers(1, 6)), int(rng.integers(1, 9))
        q_in, q_out = (int(v) for v in rng.integers(0, 16, 2))
        x = values((c, oh * k, ow * k), n % 2 == 0)
        s = x.reshape(c, oh, k, ow, k).sum(axis=(2, 4))
        m = np.sign(s) * (np.abs(s) // (k * k))
        y = (m >> (q_in - q_out)) if q_in >= q_out else (m << (q_out - q_in))
        add_case(9, [q_out, q_in, k], [x], y)


def hswish_cases():
    for n in range(6):
        q_in, q_out = int(rng.integers(0, 16)), int(rng.integers(0, 16))
        x = values((int(rng.integers(1, 60)),), n % 2 == 0)
        one = 1 << q_in
        c = np.clip(x + 3 * one, 0, 6 * one)
        p = wrap32(c * x + one // 2) >> q_in
        sh = q_in - q_out + 15
        y = wrap32(p * 5461 + rnd_term(sh)) >> sh
        add_case(10, [q_out, q_in], [x], y)


def affine_cases():
    for n in range(6):
        c, h, w = int(rng.integers(1, 4)), int(rng.integers(2, 9)), int(rng.integers(2, 9))
        oh, ow = int(rng.integers(1, 10)), int(rng.integers(1, 10))
        q, q_in = int(rng.integers(4, 13)), int(rng.integers(0, 14))
        q_out = int(rng.integers(max(0, q_in + q - 20), min(15, q_in + q) + 1))
        one, half = 1 << q, (1 << q) >> 1
        t = (rng.uniform(-1.2, 1.2, 6) * one).astype(np.int64)
        x = values((c, h, w), False)
        sx, sy = one // ow, one // oh
        y = np.zeros((c, oh, ow), dtype=np.int64)

        def at(ch, xx, yy):
            return int(x[ch, yy, xx]) if 0 <= xx < w and 0 <= yy < h else 0
        for ch in range(c):
            for yy in range(oh):
                for xx in range(ow):
                    u, v = (2 * xx + 1) * sx - one, (2 * yy + 1) * sy - one
                    gx = ((half + u * t[0]) >> q) + t[2] + ((half + v * t[1]) >> q)
                    gy = ((half + u * t[3]) >> q) + t[5] + ((half + v * t[4]) >> q)
                    px, py = (half + (gx >> 1)) * w - half, (half + (gy >> 1)) * h - half
                    x0, y0 = px >> q, py >> q
                    x1, y1 = x0 + 1, y0 + 1
                    a, b = (x1 << q) - px, px - (x0 << q)
                    cc, d = (y1 << q) - py, py - (y0 << q)
                    s = (half + ((half + d * a) >> q) * at(ch, x0, y1) + ((half + cc * a) >> q) * at(ch, x0, y0)
                         + ((half + cc * b) >> q) * at(ch, x1, y0) + ((half + d * b) >> q) * at(ch, x1, y1))
                    y[ch, yy, xx] = int(wrap32(s)) >> (q_in - q_out + q)
        add_case(11, [q_out, q_in, q], [x, t.reshape(1, 6)], y)


conv_cases()
add_cases()
bn1d_cases()
linear_cases()
pool_cases()
hswish_cases()
affine_cases()

out = bytearray(b"ORUFIXD1")
out += struct.pack("<i", len(cases))
for kind, ints, arrays in cases:
    out += struct.pack("<ii", kind, len(ints)) + struct.pack(f"<{len(ints)}i", *ints)
    out += struct.pack("<i", len(arrays) - 1)
    for dims, data in arrays:
        out += struct.pack("<i", len(dims)) + struct.pack(f"<{len(dims)}i", *dims) + data.astype("<i2").tobytes()
path = sys.argv[1] if len(sys.argv) > 1 else "tests/data/fixed/fixed_cases.bin"
with open(path, "wb") as f:
    f.write(out)
print(f"{len(cases)} cases, {len(out)} bytes -> {path}")
