#!/usr/bin/python3
"""Reference convolutions from PyTorch for the convolution tests.

Writes tests/data/conv/conv_cases.bin: magic b"ORUCONV1", int32 case count, then per case
  int32 kind (0 convolution, 1 transposed, 2 conv + batch norm + activation, 3 conv + activation)
  int32 params[14] (the convolution record), int32 act, float32 bn_eps
  three arrays (input, weight words, expected output), each int32 ndims, int32 dims[ndims], float32 data.
The weight words follow the library's layout: kernels (out, in, h, w), then the bias if any,
then gamma, beta, mean, var for kind 2. Run with /usr/bin/python3 from the repository root.
"""
import struct
import sys

import torch
import torch.nn.functional as F

torch.manual_seed(20261123)
cases = []


def rnd(*shape):
    return torch.rand(*shape, dtype=torch.float64) * 2 - 1


def params(ic, oc, k, s, p, d, groups, bias, kw=None, sh=None, ph=None, out_pad_h=0):
    kw = k if kw is None else kw
    return [ic, oc, kw, k, s, s if sh is None else sh, p, p if ph is None else ph, 0, out_pad_h, d, d, groups,
            1 if bias else 0]


def conv_case(ic, oc, w, h, k, s, p, d=1, groups=1, bias=True, kw=None, sh=None, ph=None):
    kw_ = k if kw is None else kw
    sh_ = s if sh is None else sh
    ph_ = p if ph is None else ph
    x = rnd(ic, h, w)
    depthwise = groups == ic == oc and groups > 1
    wt = rnd(oc, 1 if depthwise else ic, k, kw_)
    b = rnd(oc) if bias else None
    y = F.conv2d(x[None], wt, b, stride=(sh_, s), padding=(ph_, p), dilation=d, groups=groups)[0]
    words = torch.cat([wt.flatten()] + ([b] if bias else []))
    cases.append((0, params(ic, oc, k, s, p, d, groups, bias, kw, sh, ph), 0, 0.0, x, words, y))


def transposed_case(ic, oc, w, h, k, s, p, out_pad_h=0):
    x = rnd(ic, h, w)
    wt = rnd(oc, ic, k, k)  # library layout (out, in, h, w), before the operator rotates it
    y = F.conv_transpose2d(x[None], wt.transpose(0, 1), None, stride=s, padding=p,
                           output_padding=(out_pad_h, 0))[0]
    cases.append((1, params(ic, oc, k, s, p, 1, 1, False, out_pad_h=out_pad_h), 0, 0.0, x, wt.flatten(), y))


ACTS = {
    0: lambda t: t,
    1: F.relu,
    2: F.hardswish,
    3: F.relu6,
    4: F.hardsigmoid,
    5: lambda t: F.leaky_relu(t, 0.1),
    6: torch.tanh,
}


def fused_case(kind, ic, oc, w, h, k, s, act, groups=1, bias=True, eps=1e-5):
    p = k // 2
    x = rnd(ic, h, w)
    depthwise = groups == ic == oc and groups > 1
    wt = rnd(oc, 1 if depthwise else ic, k, k)
    b = rnd(oc) if bias else None
    y = F.conv2d(x[None], wt, b, stride=s, padding=p, groups=groups)
    words = [wt.flatten()] + ([b] if bias else [])
    if kind == 2:
        gamma, beta, mean = rnd(oc) * 2, rnd(oc), rnd(oc) * 0.5
        var = torch.rand(oc, dtype=torch.float64) + 0.2
        y = F.batch_norm(y, mean, var, gamma, beta, training=False, eps=eps if eps != 0 else 1e-5)
        words += [gamma, beta, mean, var]
    y = ACTS[act](y)[0]
    cases.append((kind, params(ic, oc, k, s, p, 1, groups, bias), act, eps, x, torch.cat(words), y))


# Standard convolutions: kernels 1, 3, 5; strides 1, 2; padding 0 to 2; dilation 1, 2; odd planes.
conv_case(3, 4, 7, 9, 3, 2, 1)
conv_case(3, 5, 9, 7, 3, 1, 1)
conv_case(4, 6, 8, 8, 3, 1, 1)
conv_case(8, 8, 16, 8, 3, 1, 1)          # every extent a multiple of 8
conv_case(2, 3, 5, 5, 3, 1, 1)           # output height 5
conv_case(2, 3, 6, 6, 3, 1, 1)           # output height 6
conv_case(3, 2, 11, 10, 3, 1, 1, bias=False)
conv_case(2, 3, 1, 1, 3, 1, 1)           # a single pixel
conv_case(3, 4, 1, 1, 3, 2, 1)
conv_case(3, 4, 2, 3, 3, 2, 1)
conv_case(5, 3, 12, 10, 3, 2, 1)         # even plane
conv_case(3, 4, 13, 11, 3, 2, 1)
conv_case(3, 4, 9, 7, 3, 1, 0)
conv_case(3, 4, 9, 7, 3, 1, 2)
conv_case(3, 4, 9, 9, 5, 1, 2)
conv_case(3, 4, 11, 9, 5, 2, 2)
conv_case(2, 3, 7, 8, 5, 1, 0)
conv_case(2, 3, 6, 5, 5, 2, 1)
conv_case(4, 5, 7, 9, 1, 1, 0)           # pointwise
conv_case(3, 9, 1, 1, 1, 1, 0)           # pointwise on one pixel, 3 inputs
conv_case(7, 5, 1, 1, 1, 1, 0)           # pointwise on one pixel, 7 inputs
conv_case(6, 7, 5, 3, 1, 1, 0)
conv_case(3, 4, 9, 8, 1, 2, 0)           # 1x1 stride 2
conv_case(3, 4, 9, 8, 1, 1, 1)           # 1x1 padded
conv_case(3, 4, 11, 9, 3, 1, 2, d=2)     # dilated
conv_case(2, 3, 13, 12, 5, 1, 2, d=2)
conv_case(2, 3, 11, 10, 3, 2, 1, d=2)
conv_case(3, 2, 9, 8, 3, 1, 1, sh=2)     # unequal strides
conv_case(3, 2, 9, 8, 3, 1, 1, kw=5, ph=1) # rectangular kernel
conv_case(1, 1, 4, 4, 3, 1, 1)           # one channel
# Depthwise.
conv_case(4, 4, 9, 7, 3, 1, 1, groups=4)
conv_case(5, 5, 10, 9, 3, 1, 1, groups=5)
conv_case(4, 4, 9, 7, 3, 2, 1, groups=4)
conv_case(4, 4, 8, 8, 3, 2, 1, groups=4)
conv_case(3, 3, 1, 1, 3, 1, 1, groups=3)
conv_case(3, 3, 2, 1, 3, 2, 1, groups=3)
conv_case(4, 4, 9, 11, 5, 1, 2, groups=4)
conv_case(4, 4, 9, 11, 5, 2, 2, groups=4)
conv_case(3, 3, 3, 5, 5, 2, 2, groups=3)
conv_case(4, 4, 9, 7, 3, 1, 0, groups=4)
conv_case(4, 4, 9, 7, 3, 1, 2, groups=4, d=2)
conv_case(16, 16, 11, 9, 3, 1, 1, groups=16)
# Transposed.
transposed_case(3, 2, 5, 5, 3, 2, 1, out_pad_h=1)
transposed_case(2, 3, 4, 3, 3, 1, 1)
transposed_case(2, 2, 4, 5, 4, 2, 1)
transposed_case(3, 2, 3, 3, 2, 2, 0)
# Conv + batch norm + activation, and conv + activation, over all activation codes.
for act in range(7):
    fused_case(2, 3, 5, 9, 7, 3, 1, act)
    fused_case(3, 3, 5, 9, 7, 3, 1, act)
fused_case(2, 4, 4, 9, 7, 3, 2, 1, groups=4)
fused_case(2, 6, 8, 7, 5, 1, 1, 1)
fused_case(2, 3, 4, 9, 7, 3, 1, 3, bias=False)
fused_case(2, 3, 4, 9, 7, 3, 1, 1, eps=0.0)
fused_case(2, 8, 8, 10, 8, 3, 1, 2)
fused_case(2, 8, 8, 10, 8, 3, 2, 1, groups=8)
fused_case(3, 4, 4, 9, 7, 3, 2, 1, groups=4)
fused_case(3, 6, 8, 7, 5, 1, 1, 1)
fused_case(3, 3, 4, 9, 7, 3, 1, 1, bias=False)


def array(t):
    t = t.to(torch.float32).contiguous()
    dims = list(reversed(t.shape))  # the library's dim 0 is the fastest axis
    return struct.pack("<i", len(dims)) + struct.pack("<%di" % len(dims), *dims) + t.numpy().tobytes()


out = bytearray(b"ORUCONV1" + struct.pack("<i", len(cases)))
for kind, prm, act, eps, x, words, y in cases:
    out += struct.pack("<i14iif", kind, *prm, act, eps)
    out += array(x) + array(words) + array(y)
path = sys.argv[1] if len(sys.argv) > 1 else "tests/data/conv/conv_cases.bin"
with open(path, "wb") as f:
    f.write(out)
print(len(cases), "cases,", len(out), "bytes")
