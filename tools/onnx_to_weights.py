#!/usr/bin/env python3
"""Converts a small SSD-style detector in ONNX form to the library's weight file.

The weight file is every convolution's parameters as 32-bit floats, in the order the
convolutions appear in the ONNX graph, followed by the MD5 digest of those bytes:
  kernels (out, in / groups, kh, kw), then the bias if the convolution has one,
  then, if a batch norm follows, its gamma, beta, mean and var.
A manifest beside it lists one line per convolution, so that the network builder
and the file can be checked against each other.

Run with the system's python3 (Debian's python3-onnx and python3-numpy):
  /usr/bin/python3 tools/onnx_to_weights.py MODEL.onnx OUT.weights [OUT.layers.txt]
"""
import hashlib
import sys

import numpy as np
import onnx
from onnx import numpy_helper

# Nodes that only reshape the heads' outputs or glue them together carry no weights.
PLUMBING = {"Transpose", "Shape", "Gather", "Unsqueeze", "Constant", "Reshape", "Concat", "Softmax"}


class UnknownLayer(Exception):
    pass


def attributes(node):
    return {a.name: onnx.helper.get_attribute_value(a) for a in node.attribute}


def convert(model_path):
    model = onnx.load(model_path)
    graph = model.graph
    inits = {t.name: numpy_helper.to_array(t).astype(np.float32) for t in graph.initializer}
    consumers = {}
    for node in graph.node:
        for name in node.input:
            consumers.setdefault(name, []).append(node)

    chunks, layers, offset = [], [], 0
    handled = set()
    for node in graph.node:
        if id(node) in handled:
            continue
        if node.op_type in PLUMBING:
            continue
        if node.op_type != "Conv":
            raise UnknownLayer(f"unsupported layer {node.op_type} ({node.name or node.output[0]})")
        a = attributes(node)
        if any(d != 1 for d in a.get("dilations", [1, 1])):
            raise UnknownLayer(f"dilated convolution {node.name or node.output[0]} is not supported")
        pads = a.get("pads", [0, 0, 0, 0])
        if len(set(pads)) != 1:
            raise UnknownLayer(f"asymmetric padding {pads} in {node.name or node.output[0]}")
        kernel = inits[node.input[1]]
        bias = inits[node.input[2]] if len(node.input) > 2 else None
        out_c, in_per_group, kh, kw = kernel.shape
        groups = a.get("group", 1)
        parts = [kernel.ravel()]
        if bias is not None:
            parts.append(bias.ravel())
        follower = consumers.get(node.output[0], [])
        has_bn = len(follower) == 1 and follower[0].op_type == "BatchNormalization"
        tail = node.output[0]
        if has_bn:
            bn = follower[0]
            handled.add(id(bn))
            eps = attributes(bn).get("epsilon", 1e-5)
            if abs(eps - 1e-5) > 1e-9:
                raise UnknownLayer(f"batch norm epsilon {eps} in {bn.name} (only 1e-5 is supported)")
            for name in bn.input[1:5]:  # gamma, beta, mean, var
                parts.append(inits[name].ravel())
            tail = bn.output[0]
        after = consumers.get(tail, [])
        relu = len(after) == 1 and after[0].op_type == "Relu"
        if relu:
            handled.add(id(after[0]))
            tail = after[0].output[0]
        for n in after:
            if n.op_type not in PLUMBING | {"Conv", "Relu"}:
                raise UnknownLayer(f"unsupported layer {n.op_type} after {node.name or node.output[0]}")
        block = np.concatenate(parts).astype("<f4")
        layers.append(dict(name=node.input[1].rsplit(".weight", 1)[0], in_c=in_per_group * groups, out_c=out_c,
                           k=kh, stride=a.get("strides", [1, 1])[0], pad=pads[0], groups=groups,
                           bias=int(bias is not None), bn=int(has_bn), relu=int(relu), offset=offset,
                           count=block.size, output=tail))
        offset += block.size
        chunks.append(block)
    for node in graph.node:
        if node.op_type == "Relu" and id(node) not in handled:
            raise UnknownLayer(f"activation {node.output[0]} does not follow a convolution")
    payload = np.concatenate(chunks).tobytes()
    return payload, layers


def main(argv):
    if len(argv) not in (3, 4):
        print(__doc__.strip().splitlines()[-1], file=sys.stderr)
        return 2
    try:
        payload, layers = convert(argv[1])
    except UnknownLayer as e:
        print(f"onnx_to_weights: {argv[1]}: {e}", file=sys.stderr)
        return 1
    except (OSError, onnx.onnx_cpp2py_export.checker.ValidationError, KeyError) as e:
        print(f"onnx_to_weights: cannot read {argv[1]}: {e}", file=sys.stderr)
        return 1
    with open(argv[2], "wb") as f:
        f.write(payload)
        f.write(hashlib.md5(payload).digest())
    if len(argv) == 4:
        with open(argv[3], "w") as f:
            f.write("# name in out k stride pad groups bias bn relu offset count\n")
            for l in layers:
                f.write("{name} {in_c} {out_c} {k} {stride} {pad} {groups} {bias} {bn} {relu} {offset} {count}\n".format(**l))
    print(f"{len(layers)} convolutions, {len(payload) // 4} words -> {argv[2]}")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
