#!/usr/bin/python3
"""References for the packed HWG convolution, the layout conversions and the sampling operator.

Writes, from the repository root (run with /usr/bin/python3):
  tests/data/hwg/hwg_cases.bin     PyTorch convolutions on every shape conv method 1 serves, in the
                                   format of conv_reference.py (magic b"ORUCONV1").
  tests/data/hwg/layout_cases.bin  b"ORULAY01", int32 count, then per case five arrays: a CHW
                                   tensor and its NHWC, HWG and NDHWC4 forms by NumPy transposes.
  tests/data/hwg/sample_cases.bin  b"ORUSMP01", int32 count, then per case int32 mode, int32
                                   align_corners, float32 scale_w, scale_h, and three arrays:
                                   input, PyTorch's interpolate (NaN where the library's border
                                   arithmetic differs on purpose), and a NumPy model of the library.
Each array is int32 ndims, int32 dims[ndims] (fastest first), float32 data.
"""
import struct

import numpy as np
import torch
import torch.nn.functional as F

torch.manual_seed(20261125)
rng = np.random.default_rng(20261125)


def array(t):
    a = np.ascontiguousarray(np.asarray(t, dtype=np.float32))
    dims = list(reversed(a.shape))
    return struct.pack("<i", len(dims)) + struct.pack("<%di" % len(dims), *dims) + a.tobytes()


def rnd(*shape):
    return torch.rand(*shape, dtype=torch.float64) * 2 - 1


# ---- Convolutions under method 1 ----
CHANNELS = [1, 3, 4, 5, 7, 8, 12, 13, 16, 17, 33]
SIZES = [(1, 1), (2, 3), (3, 2), (5, 7), (9, 4), (6, 6), (7, 5), (4, 9), (11, 3), (3, 10), (8, 7)]
ACTS = {0: lambda t: t, 1: F.relu, 2: F.hardswish, 3: F.relu6, 4: F.hardsigmoid,
        5: lambda t: F.leaky_relu(t, 0.1), 6: torch.tanh}
cases = []


def params(ic, oc, k, s, groups, bias):
    p = k // 2
    return [ic, oc, k, k, s, s, p, p, 0, 0, 1, 1, groups, 1 if bias else 0]


def conv_case(kind, ic, oc, w, h, k, s, depthwise=False, act=0, bias=True):
    groups = ic if depthwise else 1
    x = rnd(ic, h, w)
    wt = rnd(oc, 1 if depthwise else ic, k, k)
    b = rnd(oc) if bias else None
    y = F.conv2d(x[None], wt, b, stride=s, padding=k // 2, groups=groups)
    words = [wt.flatten()] + ([b] if bias else [])
    eps = 1e-5
    if kind == 2:
        gamma, beta, mean = rnd(oc) * 2, rnd(oc), rnd(oc) * 0.5
        var = torch.rand(oc, dtype=torch.float64) + 0.2
        y = F.batch_norm(y, mean, var, gamma, beta, training=False, eps=eps)
        words += [gamma, beta, mean, var]
    y = ACTS[act](y)[0]
    cases.append((kind, params(ic, oc, k, s, groups, bias), act, eps, x, torch.cat(words), y))


n = len(CHANNELS)
for i, c in enumerate(CHANNELS):
    other = CHANNELS[(i + 4) % n]
    w, h = SIZES[i]
    conv_case(0, c, other, w, h, 3, 1)
    conv_case(0, other, c, h, w, 3, 2)
    conv_case(0, c, CHANNELS[(i + 7) % n], w + 1, h + 2, 3, 2)   # the other parity
    conv_case(0, c, c, w, h, 3, 1, depthwise=True)
    conv_case(0, c, c, h + 1, w, 3, 2, depthwise=True)
    conv_case(0, c, other, w, h + 1, 1, 1)
conv_case(0, 13, 5, 7, 6, 3, 1)   # members o4i8, o4i4, o4i1, o1i8, o1i4, o1i1
conv_case(0, 32, 32, 20, 15, 3, 1, bias=False)
for act in range(7):
    conv_case(3, 13, 12, 7, 5, 3, 1, act=act)
    conv_case(2, 12, 13, 6, 7, 3, 2, act=act)
    conv_case(2, 17, 17, 5, 6, 3, 1, depthwise=True, act=act)
    conv_case(3, 9, 20, 5, 4, 1, 1, act=act, bias=act % 2 == 0)

out = bytearray(b"ORUCONV1" + struct.pack("<i", len(cases)))
for kind, prm, act, eps, x, words, y in cases:
    out += struct.pack("<i14iif", kind, *prm, act, eps)
    out += array(x.numpy()) + array(words.numpy()) + array(y.numpy())
with open("tests/data/hwg/hwg_cases.bin", "wb") as f:
    f.write(out)
print(len(cases), "convolution cases,", len(out), "bytes")


# ---- Layout conversions ----
def hwg_of(x):
    c, h, w = x.shape
    parts, at = [], 0
    while at < c:
        g = 8 if c - at >= 8 else 4 if c - at >= 4 else 1
        parts.append(x[at:at + g].transpose(1, 2, 0).reshape(-1))
        at += g
    return np.concatenate(parts).reshape(c, h, w)


def ndhwc4_of(x):
    c, h, w = x.shape
    d = (c + 3) // 4
    padded = np.zeros((4 * d, h, w), np.float32)
    padded[:c] = x
    return padded.reshape(d, 4, h, w).transpose(0, 2, 3, 1)  # dims (4, W, H, D)


layouts = bytearray()
shapes = [(1, 1, 1), (3, 2, 5), (5, 3, 4), (13, 5, 7), (33, 4, 3), (16, 1, 9), (8, 6, 1)]
for c, h, w in shapes:
    x = rng.uniform(-1, 1, (c, h, w)).astype(np.float32)
    layouts += array(x) + array(x.transpose(1, 2, 0).reshape(c, h, w)) + array(hwg_of(x)) + array(ndhwc4_of(x))
with open("tests/data/hwg/layout_cases.bin", "wb") as f:
    f.write(b"ORULAY01" + struct.pack("<i", len(shapes)) + layouts)
print(len(shapes), "layout cases")

# ---- Sampling ----
f32 = np.float32


def model_nearest(x, wo, ho):
    c, hi, wi = x.shape
    rx, ry = f32(wi) / f32(wo), f32(hi) / f32(ho)
    xs = np.minimum(np.floor(rx * np.arange(wo, dtype=f32)).astype(np.int64), wi - 1)
    ys = np.minimum(np.floor(ry * np.arange(ho, dtype=f32)).astype(np.int64), hi - 1)
    return x[:, ys][:, :, xs]


def half_pixel(i, inv):
    s = f32(inv * float(f32(f32(i) + f32(0.5))) - 0.5)
    t = int(s)  # toward zero
    return s, t, f32(s - f32(t))


def model_half_pixel(x, wo, ho):
    c, hi, wi = x.shape
    ifx, ify = 1.0 / (wo / wi), 1.0 / (ho / hi)
    out = np.zeros((c, ho, wo), f32)
    cols = []
    for xo in range(wo):
        s, t, f = half_pixel(xo, ifx)
        ix = max(t, 0)
        cols.append((ix, f32(1) - f, f) if ix + 1 < wi else (wi - 1, f32(1), f32(0), True))
    for ch in range(c):
        def filt(r):
            src = x[ch, r]
            return np.array([src[k[0]] if len(k) == 4 else f32(k[1] * src[k[0]]) + f32(k[2] * src[k[0] + 1])
                             for k in cols], f32)
        for yo in range(ho):
            s, t, g = half_pixel(yo, ify)
            y0, y1 = min(max(t, 0), hi - 1), min(max(t + 1, 0), hi - 1)
            out[ch, yo] = (f32(1) - g) * filt(y0) + g * filt(y1)
    return out


def corner(u, size):
    g = f32(u * f32(size - 1))
    fl = np.floor(g)
    i = int(fl)
    f = f32(g - fl) if fl >= 0 else f32(0)
    i = max(i, 0)
    if i >= size - 1:
        f = f32(0)
    return min(i, size - 1), f


def model_corners(x, wo, ho):
    c, hi, wi = x.shape
    out = np.zeros((c, ho, wo), f32)
    sy, sx = f32(1) / f32(ho - 1) if ho > 1 else f32(np.inf), f32(1) / f32(wo - 1) if wo > 1 else f32(np.inf)
    for ch in range(c):
        v = f32(0)
        for yo in range(ho):
            y0, g = corner(v, hi)
            u = f32(0)
            for xo in range(wo):
                x0, f = corner(u, wi)
                p00 = x[ch, y0, x0]
                p01 = x[ch, y0, x0 + 1] if f != 0 else f32(0)
                p10 = x[ch, y0 + 1, x0] if g != 0 else f32(0)
                p11 = x[ch, y0 + 1, x0 + 1] if g != 0 and f != 0 else f32(0)
                top = f32(f32(f * p01) + f32(f32(1 - f) * p00))
                bot = f32(f32(f * p11) + f32(f32(1 - f) * p10))
                out[ch, yo, xo] = f32(f32(bot * g) + f32(top * f32(1 - g)))
                u = f32(u + sx)
            v = f32(v + sy)
    return out


samples = bytearray()
count = 0
for mode, align, sw, sh, c, hi, wi in [
        (0, 0, 2.0, 2.0, 2, 3, 4), (0, 0, 1.0, 1.0, 3, 5, 5), (0, 0, 0.5, 0.5, 2, 3, 5), (0, 0, 1.7, 0.6, 3, 9, 7),
        (0, 0, 3.0, 2.5, 1, 4, 3),
        (1, 0, 2.0, 2.0, 2, 3, 4), (1, 0, 1.0, 1.0, 2, 4, 6), (1, 0, 0.5, 0.5, 3, 6, 8), (1, 0, 1.5, 2.5, 2, 5, 7),
        (1, 0, 0.7, 1.3, 3, 10, 9), (1, 0, 4.0, 3.0, 1, 3, 2),
        (1, 1, 2.0, 2.0, 2, 3, 4), (1, 1, 1.0, 1.0, 2, 4, 6), (1, 1, 0.5, 0.5, 3, 6, 8), (1, 1, 1.5, 2.5, 2, 5, 7),
        (1, 1, 0.7, 1.3, 3, 10, 9)]:
    x = rng.uniform(-1, 1, (c, hi, wi)).astype(f32)
    wo, ho = int(f32(sw) * f32(wi)), int(f32(sh) * f32(hi))
    t = torch.from_numpy(x)[None]
    if mode == 0:
        ref = F.interpolate(t, size=(ho, wo), mode="nearest")[0].numpy()
        model = model_nearest(x, wo, ho)
        assert np.array_equal(ref, model)
    elif align == 0:
        ref = F.interpolate(t, size=(ho, wo), mode="bilinear", align_corners=False)[0].numpy().copy()
        model = model_half_pixel(x, wo, ho)
        # The library extrapolates where the source position is left of or above the first centre.
        for xo in range(wo):
            if half_pixel(xo, 1.0 / (wo / wi))[0] < 0:
                ref[:, :, xo] = np.nan
        for yo in range(ho):
            if half_pixel(yo, 1.0 / (ho / hi))[0] < 0:
                ref[:, yo, :] = np.nan
        assert np.nanmax(np.abs(ref - model)) < 1e-5
    else:
        ref = F.interpolate(t, size=(ho, wo), mode="bilinear", align_corners=True)[0].numpy()
        model = model_corners(x, wo, ho)
        assert np.max(np.abs(ref - model)) < 1e-4
    samples += struct.pack("<iiff", mode, align, sw, sh) + array(x) + array(ref) + array(model)
    count += 1
with open("tests/data/hwg/sample_cases.bin", "wb") as f:
    f.write(b"ORUSMP01" + struct.pack("<i", count) + samples)
print(count, "sampling cases")
