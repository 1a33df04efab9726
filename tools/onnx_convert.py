#!/usr/bin/env python3
"""Converts an ONNX network into the library's network file and weight file.

  /usr/bin/python3 tools/onnx_convert.py MODEL.onnx OUT [--method auto|0|1|2] [--backend 0|1]
                                         [--input-size WxH]

writes OUT.net (the graph as text, one line per node; see docs/network_file.md) and
OUT.weights (32-bit words and their MD5 digest). Constant sub-graphs (shape arithmetic
feeding a Reshape) are folded; a batch norm after a convolution and an activation after
that become one fused node. A node that cannot be mapped stops the conversion with a
message naming it, and nothing is written.

Needs Debian's python3-onnx and python3-numpy (run with /usr/bin/python3).
"""
import argparse
import hashlib
import os
import sys

import numpy as np
import onnx
from onnx import numpy_helper

ACT_NONE, ACT_RELU, ACT_HSWISH, ACT_RELU6 = 0, 1, 2, 3
MAX_CONCAT = 4096


class Refusal(Exception):
    """A node the library cannot run; the message names it."""

    def __init__(self, node, why):
        name = node.name or (node.output[0] if node.output else "?")
        super().__init__(f"node '{name}' ({node.op_type}): {why}")


def attrs(node):
    return {a.name: onnx.helper.get_attribute_value(a) for a in node.attribute}


def lib_dims(shape):
    """The library's dims of an ONNX shape: fastest first, a batch of 1 dropped from 4-D."""
    s = [int(d) for d in shape]
    if len(s) == 4 and s[0] == 1:
        s = s[1:]
    return list(reversed(s)) or [1]


def fmt(v):
    if isinstance(v, float):
        return str(np.float32(v))  # the shortest text that reads back as the same float
    return str(int(v))


def clean(name):
    out = "".join(c if c.isprintable() and not c.isspace() and c != "," else "_" for c in name)
    return out[:63] or "_"


class Converter:
    def __init__(self, model, method="auto", input_size=None):
        self.model = model
        self.graph = model.graph
        self.method = method
        self.consts = {t.name: numpy_helper.to_array(t) for t in self.graph.initializer}
        self.shapes = {}       # ONNX shape of every non-constant tensor
        self.where = {}        # tensor name -> library node id holding it
        self.actual = {}       # library node id -> its dims in the library
        self.lines = []        # (op, name, inputs, params, weights)
        self.names = set()
        self.words = []
        self.word_count = 0
        self.consumers = {}
        for node in self.graph.node:
            for name in node.input:
                if name:
                    self.consumers.setdefault(name, []).append(node)
        self.outputs = [o.name for o in self.graph.output]
        for o in self.outputs:
            self.consumers.setdefault(o, []).append(None)  # a graph output counts as a reader
        self.done = set()
        self.input_size = input_size

    # ---- emitting ----
    def emit(self, op, name, inputs, params=(), weights=None, dims=None):
        base, k = clean(name), 1
        unique = base
        while unique in self.names:
            k += 1
            unique = clean(f"{name}#{k}")
        self.names.add(unique)
        w = "-"
        if weights is not None:
            block = np.ascontiguousarray(weights, dtype="<f4").ravel()
            w = f"{self.word_count}:{block.size}"
            self.words.append(block)
            self.word_count += block.size
        self.lines.append((op, unique, list(inputs), [fmt(p) for p in params], w))
        nid = len(self.lines) - 1
        self.actual[nid] = list(dims) if dims is not None else None
        return nid

    def bind(self, tensor, nid, shape):
        self.where[tensor] = nid
        self.shapes[tensor] = [int(d) for d in shape]
        if self.actual[nid] is None:
            self.actual[nid] = lib_dims(shape)

    def need(self, tensor, node):
        """The library node holding a tensor in its canonical dims (a reshape if needed)."""
        if tensor not in self.where:
            raise Refusal(node, f"input '{tensor}' is neither computed nor a supported constant here")
        nid = self.where[tensor]
        want = lib_dims(self.shapes[tensor])
        if self.actual[nid] != want:
            nid = self.emit("reshape", tensor + "#view", [nid], want, dims=want)
            self.where[tensor] = nid
        return nid

    def private(self, tensor, node):
        """A node whose output this one may overwrite: the library's unary operators and
        bias work in place, so a tensor that has other readers is copied first."""
        nid = self.need(tensor, node)
        readers = self.consumers.get(tensor, [])
        is_input = self.lines[nid][0] == "input"
        if len(readers) > 1 or is_input:
            dims = self.actual[nid]
            nid = self.emit("reshape", tensor + "#copy", [nid], dims, dims=dims)
        return nid

    # ---- helpers ----
    def const(self, name, node, what="operand"):
        if name not in self.consts:
            raise Refusal(node, f"{what} '{name}' must be a constant")
        return self.consts[name]

    def optional_const(self, node, index, what):
        if len(node.input) > index and node.input[index]:
            return self.const(node.input[index], node, what).astype(np.float32)
        return None

    def sole_reader(self, tensor, op_types):
        readers = self.consumers.get(tensor, [])
        if len(readers) == 1 and readers[0] is not None and readers[0].op_type in op_types:
            return readers[0]
        return None

    def activation_of(self, node):
        """The fused activation code of a reader node, or None."""
        if node is None:
            return None
        if node.op_type == "Relu":
            return ACT_RELU
        if node.op_type == "HardSwish":
            return ACT_HSWISH
        if node.op_type == "Clip":
            lo, hi = self.clip_bounds(node)
            if lo == 0 and hi == 6:
                return ACT_RELU6
            if lo == 0 and hi == np.inf:
                return ACT_RELU
        return None

    def clip_bounds(self, node):
        a = attrs(node)
        lo, hi = a.get("min", -np.inf), a.get("max", np.inf)
        if len(node.input) > 1 and node.input[1]:
            lo = float(self.const(node.input[1], node, "clip bound"))
        if len(node.input) > 2 and node.input[2]:
            hi = float(self.const(node.input[2], node, "clip bound"))
        return float(lo), float(hi)

    # ---- the graph ----
    def run(self):
        for inp in self.graph.input:
            if inp.name in self.consts:
                continue
            dims = [d.dim_value if d.HasField("dim_value") else 1 for d in inp.type.tensor_type.shape.dim]
            if self.input_size and len(dims) == 4:
                dims[3], dims[2] = self.input_size
            if any(d < 1 for d in dims) or not 1 <= len(lib_dims(dims)) <= 5:
                raise SystemExit(f"onnx_convert: input '{inp.name}' has an unusable shape {dims}")
            nid = self.emit("input", inp.name, [], lib_dims(dims))
            self.bind(inp.name, nid, dims)
        for node in self.graph.node:
            if id(node) in self.done:
                continue
            if self.try_fold(node):
                continue
            handler = getattr(self, "op_" + node.op_type, None)
            if handler is None:
                raise Refusal(node, "the library has no operator for this op type")
            handler(node)
        for o in self.outputs:
            if o not in self.where:
                raise SystemExit(f"onnx_convert: graph output '{o}' is a constant or was never computed")
            nid = self.need(o, self.graph.node[-1])
            op, name, inputs, params, w = self.lines[nid]
            if name != clean(o) and clean(o) not in self.names:
                self.names.discard(name)
                self.names.add(clean(o))
                self.lines[nid] = (op, clean(o), inputs, params, w)
        return self

    def try_fold(self, node):
        """Evaluates a node whose inputs are all constant; true when it was folded."""
        ins = [n for n in node.input if n]
        if node.op_type in ("Shape",) and ins and ins[0] in self.shapes:
            self.consts[node.output[0]] = np.array(self.shapes[ins[0]], dtype=np.int64)
            return True
        if not ins or not all(n in self.consts for n in ins):
            return node.op_type == "Constant" and self.op_Constant(node)
        v = [self.consts[n] for n in ins]
        a = attrs(node)
        t = node.op_type
        if t == "Gather":
            out = np.take(v[0], v[1], axis=a.get("axis", 0))
        elif t == "Unsqueeze":
            axes = a.get("axes", list(v[1]) if len(v) > 1 else [])
            out = v[0]
            for ax in sorted(int(x) % (out.ndim + len(axes)) for x in axes):
                out = np.expand_dims(out, ax)
        elif t == "Squeeze":
            axes = a.get("axes", list(v[1]) if len(v) > 1 else None)
            out = np.squeeze(v[0], axis=tuple(int(x) for x in axes) if axes is not None else None)
        elif t == "Concat":
            out = np.concatenate(v, axis=a["axis"])
        elif t == "Cast":
            out = v[0].astype(onnx.helper.tensor_dtype_to_np_dtype(a["to"]))
        elif t in ("Add", "Sub", "Mul", "Div"):
            f = {"Add": np.add, "Sub": np.subtract, "Mul": np.multiply, "Div": np.divide}[t]
            out = f(v[0], v[1])
            if t == "Div" and np.issubdtype(v[0].dtype, np.integer):
                out = (v[0] // v[1]).astype(v[0].dtype)
        elif t in ("Identity", "Reshape", "Flatten", "Transpose"):
            return False  # constant data of these is not expected; let the mapping refuse it
        else:
            return False
        self.consts[node.output[0]] = np.asarray(out)
        return True

    # ---- constants and aliases ----
    def op_Constant(self, node):
        a = attrs(node)
        if "value" not in a:
            raise Refusal(node, "only tensor constants are supported")
        self.consts[node.output[0]] = numpy_helper.to_array(a["value"])
        return True

    def op_Shape(self, node):
        raise Refusal(node, "the shape of this tensor is not known at conversion time")

    def alias(self, node):
        src = node.input[0]
        if src in self.consts:
            self.consts[node.output[0]] = self.consts[src]
            return
        self.where[node.output[0]] = self.where[src]
        self.shapes[node.output[0]] = self.shapes[src]
        for r in self.consumers.get(node.output[0], []):
            self.consumers.setdefault(src, []).append(r)

    op_Identity = alias
    op_Dropout = alias

    # ---- convolutions ----
    def op_Conv(self, node):
        a = attrs(node)
        if a.get("auto_pad", b"NOTSET") not in (b"NOTSET", "NOTSET", b"VALID", "VALID"):
            raise Refusal(node, "auto_pad other than NOTSET or VALID")
        w = self.const(node.input[1], node, "kernel").astype(np.float32)
        if w.ndim != 4:
            raise Refusal(node, "only 2-D convolutions")
        b = self.optional_const(node, 2, "bias")
        out_c, in_per_group, kh, kw = w.shape
        groups = int(a.get("group", 1))
        in_c = in_per_group * groups
        sh, sw = a.get("strides", [1, 1])
        dh, dw = a.get("dilations", [1, 1])
        pads = a.get("pads", [0, 0, 0, 0])
        if pads[0] != pads[2] or pads[1] != pads[3]:
            raise Refusal(node, f"asymmetric padding {list(pads)}")
        ph, pw = pads[0], pads[1]
        x = node.input[0]
        n, c, h, wd = self.shapes[x]
        if c != in_c:
            raise Refusal(node, f"kernel expects {in_c} channels, input has {c}")
        oh = (h + 2 * ph - dh * (kh - 1) - 1) // sh + 1
        ow = (wd + 2 * pw - dw * (kw - 1) - 1) // sw + 1
        depthwise = groups > 1 and groups == in_c == out_c
        if groups > 1 and not depthwise:
            raise Refusal(node, f"grouped convolution with {groups} groups that is not depthwise")
        src = self.need(x, node)
        conv = [in_c, out_c, kw, kh, sw, sh, pw, ph, 0, 0, dw, dh, groups, int(b is not None)]
        dilated = dh != 1 or dw != 1
        tail = node.output[0]
        if dilated:
            if groups != 1:
                raise Refusal(node, "dilated convolution with groups")
            nid = self.emit("dilated_conv2d", tail + ("#conv" if b is not None else ""), [src], conv[:13] + [0], w)
            if b is not None:
                self.bind(tail, nid, [n, out_c, oh, ow])
                nid = self.emit("bias", tail, [nid], (), b)
            self.bind(tail, nid, [n, out_c, oh, ow])
            return
        fusable = pw == ph
        bn = self.sole_reader(tail, {"BatchNormalization"}) if fusable else None
        if bn is not None and not all(i in self.consts for i in bn.input[1:5]):
            bn = None
        after = bn.output[0] if bn is not None else tail
        act_node = self.sole_reader(after, {"Relu", "Clip", "HardSwish"}) if fusable else None
        act = self.activation_of(act_node)
        if act == ACT_RELU6 and (bn is None or self.method == "1"):
            act = None  # only the batch-norm form clamps at 6, and not on HWG output
        if act == ACT_HSWISH and bn is None and b is None:
            act = None
        if bn is None and act is None:
            kind = "depthwise_conv2d" if depthwise else (
                "pointwise_conv2d" if kh == kw == 1 and sh == sw == 1 and ph == pw == 0 else "std_conv2d")
            nid = self.emit(kind, tail, [src], conv, np.concatenate([w.ravel()] + ([b] if b is not None else [])))
            self.bind(tail, nid, [n, out_c, oh, ow])
            return
        if act is not None:
            self.done.add(id(act_node))
            final = act_node.output[0]
        else:
            final = after
            act = ACT_NONE
        if bn is not None:
            self.done.add(id(bn))
            eps = float(attrs(bn).get("epsilon", 1e-5))
            stats = [self.consts[i].astype(np.float32).ravel() for i in bn.input[1:5]]
            parts = [w.ravel()] + ([b] if b is not None else []) + stats
            nid = self.emit("conv2d_bn2d_act", final, [src], conv + [eps, act], np.concatenate(parts))
        else:
            parts = [w.ravel()] + ([b] if b is not None else [])
            nid = self.emit("conv2d_act", final, [src], conv + [act], np.concatenate(parts))
        for t in (tail, after, final):
            self.bind(t, nid, [n, out_c, oh, ow])

    def op_ConvTranspose(self, node):
        a = attrs(node)
        w = self.const(node.input[1], node, "kernel").astype(np.float32)
        b = self.optional_const(node, 2, "bias")
        in_c, out_per_group, kh, kw = w.shape
        groups = int(a.get("group", 1))
        if groups != 1:
            raise Refusal(node, "grouped transposed convolution")
        if list(a.get("dilations", [1, 1])) != [1, 1]:
            raise Refusal(node, "dilated transposed convolution")
        if "output_shape" in a:
            raise Refusal(node, "output_shape is not supported; give pads and output_padding")
        sh, sw = a.get("strides", [1, 1])
        pads = a.get("pads", [0, 0, 0, 0])
        if pads[0] != pads[2] or pads[1] != pads[3]:
            raise Refusal(node, f"asymmetric padding {list(pads)}")
        oph, opw = a.get("output_padding", [0, 0])
        if opw != 0:
            raise Refusal(node, "output padding on the width")
        ph, pw = pads[0], pads[1]
        n, c, h, wd = self.shapes[node.input[0]]
        oh = (h - 1) * sh - 2 * ph + kh + oph
        ow = (wd - 1) * sw - 2 * pw + kw
        src = self.need(node.input[0], node)
        conv = [in_c, out_per_group, kw, kh, sw, sh, pw, ph, 0, oph, 1, 1, 1, 0]
        tail = node.output[0]
        # the library reads kernel (o, i); ONNX stores (i, o)
        nid = self.emit("transposed_conv2d", tail + ("#conv" if b is not None else ""), [src], conv,
                        w.transpose(1, 0, 2, 3))
        if b is not None:
            self.bind(tail, nid, [n, out_per_group, oh, ow])
            nid = self.emit("bias", tail, [nid], (), b)
        self.bind(tail, nid, [n, out_per_group, oh, ow])

    def op_BatchNormalization(self, node):
        x = node.input[0]
        if len(self.shapes[x]) != 4:
            raise Refusal(node, "batch norm of a tensor that is not 4-D")
        stats = [self.const(i, node, "statistic").astype(np.float32).ravel() for i in node.input[1:5]]
        eps = float(attrs(node).get("epsilon", 1e-5))
        nid = self.emit("bn2d", node.output[0], [self.need(x, node)], [eps], np.concatenate(stats))
        self.bind(node.output[0], nid, self.shapes[x])

    # ---- element-wise ----
    def unary(self, node, op):
        x = node.input[0]
        nid = self.emit(op, node.output[0], [self.private(x, node)])
        self.bind(node.output[0], nid, self.shapes[x])

    def op_Relu(self, node):
        self.unary(node, "relu")

    def op_Sigmoid(self, node):
        self.unary(node, "sigmoid")

    def op_HardSwish(self, node):
        self.unary(node, "hswish")

    def op_Clip(self, node):
        lo, hi = self.clip_bounds(node)
        if lo == 0 and hi == 6:
            self.unary(node, "relu6")
        elif lo == 0 and hi == np.inf:
            self.unary(node, "relu")
        else:
            raise Refusal(node, f"clip to [{lo}, {hi}]: only [0, 6] and [0, inf) are supported")

    def op_Softmax(self, node):
        x = node.input[0]
        rank = len(self.shapes[x])
        axis = attrs(node).get("axis", -1)
        if axis % rank != rank - 1:
            raise Refusal(node, "softmax over an axis other than the last")
        self.unary(node, "softmax")

    def binary(self, node, op):
        a, b = node.input[0], node.input[1]
        if a in self.consts and b not in self.consts:
            a, b = b, a
        out = node.output[0]
        if b in self.consts:
            if op != "add":
                raise Refusal(node, "multiplication by a constant")
            v = self.consts[b].astype(np.float32)
            shape = self.shapes[a]
            if len(shape) == 4 and v.size == shape[1] and (v.ndim < 3 or v.shape[-1] == v.shape[-2] == 1):
                pass  # per channel
            elif v.size != int(np.prod(shape)):
                raise Refusal(node, "constant operand that is neither per channel nor of the same size")
            else:
                v = np.broadcast_to(v, shape)
            nid = self.emit("bias", out, [self.private(a, node)], (), v)
            self.bind(out, nid, shape)
            return
        sa, sb = self.shapes[a], self.shapes[b]
        if sa == sb:
            shape = sa
        elif op == "mul" and len(sa) == len(sb) == 4 and sa[:2] == sb[:2] and (sa[2:] == [1, 1] or sb[2:] == [1, 1]):
            shape = sa if sb[2:] == [1, 1] else sb
        else:
            raise Refusal(node, f"operand shapes {sa} and {sb} need a broadcast the library does not do")
        nid = self.emit(op, out, [self.need(a, node), self.need(b, node)])
        self.bind(out, nid, shape)

    def op_Add(self, node):
        self.binary(node, "add")

    def op_Mul(self, node):
        self.binary(node, "mul")

    # ---- pooling and fully connected ----
    def pool(self, node, op, kh, kw, sh, sw):
        x = node.input[0]
        n, c, h, w = self.shapes[x]
        if not (kh == kw == sh == sw):
            raise Refusal(node, "the library pools square windows with a stride equal to the window only")
        if h % kh or w % kw:
            raise Refusal(node, f"a {h} x {w} input is not a whole number of {kh} x {kw} windows")
        nid = self.emit(op, node.output[0], [self.need(x, node)], [kw, kh, sw, sh])
        self.bind(node.output[0], nid, [n, c, h // kh, w // kw])

    def windowed_pool(self, node, op):
        a = attrs(node)
        if any(a.get("pads", [0, 0, 0, 0])) or a.get("ceil_mode", 0) or any(d != 1 for d in a.get("dilations", [1, 1])):
            raise Refusal(node, "padding, ceil mode or dilation in pooling")
        if a.get("auto_pad", b"NOTSET") not in (b"NOTSET", "NOTSET", b"VALID", "VALID"):
            raise Refusal(node, "auto_pad in pooling")
        kh, kw = a["kernel_shape"]
        sh, sw = a.get("strides", [1, 1])
        self.pool(node, op, kh, kw, sh, sw)

    def op_MaxPool(self, node):
        if len(node.output) > 1 and node.output[1]:
            raise Refusal(node, "pooling indices")
        self.windowed_pool(node, "max_pool2d")

    def op_AveragePool(self, node):
        self.windowed_pool(node, "avg_pool2d")

    def op_GlobalAveragePool(self, node):
        _, _, h, w = self.shapes[node.input[0]]
        self.pool(node, "avg_pool2d", h, w, h, w)

    def op_GlobalMaxPool(self, node):
        _, _, h, w = self.shapes[node.input[0]]
        self.pool(node, "max_pool2d", h, w, h, w)

    def linear(self, node, x, weight, bias):
        shape = self.shapes[x]
        if len(shape) != 2:
            raise Refusal(node, "fully connected layer on an input that is not 2-D (flatten it first)")
        out_f, in_f = weight.shape
        if shape[1] != in_f:
            raise Refusal(node, f"{in_f} weights per output against {shape[1]} inputs")
        parts = [weight.astype(np.float32).ravel()] + ([np.broadcast_to(bias, (out_f,)).astype(np.float32)]
                                                      if bias is not None else [])
        nid = self.emit("linear", node.output[0], [self.need(x, node)], [in_f, out_f, int(bias is not None)],
                        np.concatenate(parts))
        self.bind(node.output[0], nid, [shape[0], out_f])

    def op_Gemm(self, node):
        a = attrs(node)
        if a.get("alpha", 1.0) != 1.0 or a.get("beta", 1.0) != 1.0 or a.get("transA", 0):
            raise Refusal(node, "alpha, beta or transA other than the defaults")
        w = self.const(node.input[1], node, "weight matrix")
        if not a.get("transB", 0):
            w = w.T
        bias = self.const(node.input[2], node, "bias") if len(node.input) > 2 and node.input[2] else None
        if bias is not None and bias.size not in (1, w.shape[0]):
            raise Refusal(node, "bias that is not one value per output")
        self.linear(node, node.input[0], w, bias)

    def op_MatMul(self, node):
        self.linear(node, node.input[0], self.const(node.input[1], node, "weight matrix").T, None)

    # ---- shapes ----
    def reshape_to(self, node, shape):
        x = node.input[0]
        if int(np.prod(shape)) != int(np.prod(self.shapes[x])):
            raise Refusal(node, f"reshape of {self.shapes[x]} to {shape}")
        dims = lib_dims(shape)
        if len(dims) > 5:
            raise Refusal(node, "more than five dimensions")
        nid = self.emit("reshape", node.output[0], [self.where_any(x, node)], dims, dims=dims)
        self.bind(node.output[0], nid, shape)

    def where_any(self, x, node):
        if x not in self.where:
            raise Refusal(node, f"input '{x}' is not computed")
        return self.where[x]  # any layout: a reshape reads the bytes in order

    def op_Reshape(self, node):
        target = [int(v) for v in self.const(node.input[1], node, "shape")]
        src = self.shapes[node.input[0]]
        target = [src[i] if v == 0 else v for i, v in enumerate(target)]
        if target.count(-1) == 1:
            known = int(np.prod([v for v in target if v != -1]))
            target[target.index(-1)] = int(np.prod(src)) // known
        self.reshape_to(node, target)

    def op_Flatten(self, node):
        src = self.shapes[node.input[0]]
        axis = attrs(node).get("axis", 1) % (len(src) + 1)
        self.reshape_to(node, [int(np.prod(src[:axis])), int(np.prod(src[axis:]))])

    def op_Squeeze(self, node):
        axes = attrs(node).get("axes")
        if axes is None and len(node.input) > 1:
            axes = list(self.const(node.input[1], node, "axes"))
        src = self.shapes[node.input[0]]
        keep = [d for i, d in enumerate(src) if (d != 1 if axes is None else i not in [a % len(src) for a in axes])]
        self.reshape_to(node, keep)

    def op_Unsqueeze(self, node):
        axes = attrs(node).get("axes")
        if axes is None:
            axes = list(self.const(node.input[1], node, "axes"))
        shape = list(self.shapes[node.input[0]])
        for ax in sorted(int(a) % (len(shape) + len(axes)) for a in axes):
            shape.insert(ax, 1)
        self.reshape_to(node, shape)

    def op_Concat(self, node):
        shapes = [self.shapes[i] for i in node.input]
        rank = len(shapes[0])
        axis = attrs(node)["axis"] % rank
        out = list(shapes[0])
        out[axis] = sum(s[axis] for s in shapes)
        dims = lib_dims(out)
        lib_axis = len(dims) - 1 - (axis - (1 if rank == 4 and out[0] == 1 else 0))
        if len(dims) > 3 or lib_axis < 0 or (rank == 4 and axis == 0):
            raise Refusal(node, "the library concatenates tensors of up to three dimensions")
        if len(node.input) > MAX_CONCAT:
            raise Refusal(node, "too many inputs")
        nid = self.emit("concat", node.output[0], [self.need(i, node) for i in node.input], [lib_axis])
        self.bind(node.output[0], nid, out)

    def op_Transpose(self, node):
        x = node.input[0]
        shape = self.shapes[x]
        perm = list(attrs(node).get("perm", reversed(range(len(shape)))))
        out = [shape[p] for p in perm]
        moved = [p for p in perm if shape[p] != 1]  # unit axes do not change the order of the data
        order = sorted(moved)
        k = next((k for k in range(len(order) + 1) if moved == order[k:] + order[:k]), None)
        if k is None:
            raise Refusal(node, f"permutation {perm} is not a swap of two groups of axes")
        if k in (0, len(order)):
            return self.reshape_to(node, out)
        # (P, Q) -> (Q, P): P one-plane splits of a (1, Q, P) view, interleaved by a concat on axis 0
        p_size = int(np.prod([shape[a] for a in order[:k]]))
        q_size = int(np.prod([shape[a] for a in order[k:]]))
        if p_size > MAX_CONCAT:
            raise Refusal(node, "too many planes to transpose")
        view = self.emit("reshape", node.output[0] + "#planes", [self.where_any(x, node)], [1, q_size, p_size],
                         dims=[1, q_size, p_size])
        pieces = [self.emit("split", f"{node.output[0]}#{i}", [view], [p_size, i, 1], dims=[1, q_size, 1])
                  for i in range(p_size)]
        nid = self.emit("concat", node.output[0], pieces, [0], dims=[p_size, q_size, 1])
        self.bind(node.output[0], nid, out)

    def op_Resize(self, node):
        a = attrs(node)
        mode = a.get("mode", b"nearest")
        mode = mode.decode() if isinstance(mode, bytes) else mode
        ctm = a.get("coordinate_transformation_mode", b"half_pixel")
        ctm = ctm.decode() if isinstance(ctm, bytes) else ctm
        x = node.input[0]
        n, c, h, w = self.shapes[x]
        scales = None
        if len(node.input) > 2 and node.input[2] and self.consts.get(node.input[2], np.zeros(0)).size:
            scales = [float(s) for s in self.consts[node.input[2]]]
        elif len(node.input) > 3 and node.input[3]:
            sizes = [int(s) for s in self.const(node.input[3], node, "sizes")]
            scales = [sizes[i] / [n, c, h, w][i] for i in range(4)]
        if scales is None or scales[0] != 1 or scales[1] != 1:
            raise Refusal(node, "resize needs constant scales on height and width only")
        if mode == "nearest":
            nm = a.get("nearest_mode", b"round_prefer_floor")
            nm = nm.decode() if isinstance(nm, bytes) else nm
            if ctm != "asymmetric" or nm != "floor":
                raise Refusal(node, "nearest resize other than asymmetric with floor")
            params = [0, scales[3], scales[2], 0]
        elif mode == "linear":
            if ctm not in ("half_pixel", "pytorch_half_pixel", "align_corners"):
                raise Refusal(node, f"linear resize with {ctm} coordinates")
            params = [1, scales[3], scales[2], int(ctm == "align_corners")]
        else:
            raise Refusal(node, f"{mode} resize")
        oh, ow = int(np.float32(scales[2]) * np.float32(h)), int(np.float32(scales[3]) * np.float32(w))
        nid = self.emit("sample", node.output[0], [self.need(x, node)], params)
        self.bind(node.output[0], nid, [n, c, oh, ow])

    op_Upsample = op_Resize

    # ---- output ----
    def text(self, backend=0):
        out = ["orunet 1", f"backend {backend}", f"conv_method {self.method}", f"weights {self.word_count}",
               "# id op name inputs params weights"]
        for i, (op, name, inputs, params, w) in enumerate(self.lines):
            out.append(f"{i} {op} {name} {','.join(map(str, inputs)) or '-'} {','.join(params) or '-'} {w}")
        return "\n".join(out) + "\n"

    def payload(self):
        return np.concatenate(self.words).astype("<f4").tobytes() if self.words else b""


def write_atomically(path, data):
    tmp = path + ".tmp"
    with open(tmp, "wb") as f:
        f.write(data)
    return tmp


def convert(model_path, method="auto", input_size=None):
    model = onnx.load(model_path)
    return Converter(model, method, input_size).run()


def main(argv):
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("model")
    ap.add_argument("out", help="OUT: writes OUT.net and OUT.weights")
    ap.add_argument("--method", default="auto", choices=["auto", "0", "1", "2"])
    ap.add_argument("--backend", default="0", choices=["0", "1"], help="0 float, 1 fixed point")
    ap.add_argument("--input-size", help="WxH of a 4-D input, replacing the model's")
    args = ap.parse_args(argv)
    size = None
    if args.input_size:
        try:
            size = [int(v) for v in args.input_size.lower().split("x")]
            assert len(size) == 2 and min(size) > 0
        except (ValueError, AssertionError):
            print(f"onnx_convert: bad --input-size {args.input_size}", file=sys.stderr)
            return 2
    try:
        conv = convert(args.model, args.method, size)
    except Refusal as e:
        print(f"onnx_convert: {args.model}: {e}", file=sys.stderr)
        return 1
    except (OSError, onnx.onnx_cpp2py_export.checker.ValidationError, google_decode_error()) as e:
        print(f"onnx_convert: cannot read {args.model}: {e}", file=sys.stderr)
        return 1
    payload = conv.payload()
    tmps = []
    try:
        tmps.append(write_atomically(args.out + ".weights", payload + hashlib.md5(payload).digest()))
        tmps.append(write_atomically(args.out + ".net", conv.text(int(args.backend)).encode()))
        os.replace(tmps[0], args.out + ".weights")
        os.replace(tmps[1], args.out + ".net")
    except OSError as e:
        for t in tmps:
            if os.path.exists(t):
                os.remove(t)
        print(f"onnx_convert: cannot write {args.out}: {e}", file=sys.stderr)
        return 1
    print(f"{len(conv.lines)} nodes, {conv.word_count} words -> {args.out}.net, {args.out}.weights")
    return 0


def google_decode_error():
    try:
        from google.protobuf.message import DecodeError
        return DecodeError
    except ImportError:
        return ValueError


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
