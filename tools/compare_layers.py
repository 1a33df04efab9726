#!/usr/bin/env python3
"""Finds the first layer where the library's face network departs from OpenCV DNN.

  build/.../dump_nodes IMAGE.bmp DUMPDIR            # the library's layer outputs
  /usr/bin/python3 tools/compare_layers.py DUMPDIR [--onnx MODEL.onnx] [--tol 1e-4]

or, for any converted model (tools/onnx_convert.py MODEL.onnx OUT):

  build/.../run_network OUT INPUT.tensor DUMPDIR --all
  /usr/bin/python3 tools/compare_layers.py DUMPDIR --net INPUT.tensor --onnx MODEL.onnx

which compares every node of the converted model that carries the name of an ONNX
tensor (DUMPDIR/nodes.txt lists them) with OpenCV's output of that tensor.

OpenCV DNN runs the ONNX network on the very input tensor the library used
(DUMPDIR/input.tensor); every convolution of the library (after its batch norm and
activation, as the library fuses them) is compared with the matching ONNX output, in
graph order, then the final scores and boxes. Prints one line per layer and names the
first one whose largest difference exceeds tol x max(1, largest reference value).
Exit status: 0 all agree, 1 a layer differs, 2 usage or file errors.

With a fixed-point dump (dump_nodes --fixed) and --float FLOAT_DUMPDIR, compares the
fixed-point run with the float run node by node instead, and prints each layer's largest
error in units of its Q (one step, 2^-q), to show where precision is lost; tol is then
in steps too (default 64).
"""
import argparse
import os
import sys

import cv2
import numpy as np

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import onnx_to_weights  # noqa: E402

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
MAGIC = b"Morvex Tensor V1.0\0"
TYPES = {6: np.float32, 7: np.float64, 5: np.int32, 3: np.int16}


def read_tensor(path):
    with open(path, "rb") as f:
        blob = f.read()
    if not blob.startswith(MAGIC):
        raise ValueError(f"{path}: not a tensor file")
    ndims, typ, _layout = np.frombuffer(blob, "<i4", 3, 32)
    dims = np.frombuffer(blob, "<i4", ndims, 44)
    data = np.frombuffer(blob, TYPES[int(typ) & 7], -1, 44 + 4 * ndims)
    return dims.tolist(), data


def compare_fixed(fixed_dir, float_dir, tol):
    """Fixed-point layer outputs against the float ones, the error in steps of each Q."""
    try:
        with open(os.path.join(fixed_dir, "q_list.txt")) as f:
            qs = [line.split() for line in f if line.strip()]
    except OSError as e:
        print(f"compare_layers: {e}", file=sys.stderr)
        return 2
    first_bad = None
    for name, q in qs + [["scores", None], ["boxes", None]]:
        try:
            _, got = read_tensor(os.path.join(fixed_dir, name + ".tensor"))
            _, ref = read_tensor(os.path.join(float_dir, name + ".tensor"))
        except (OSError, ValueError) as e:
            print(f"compare_layers: {e}", file=sys.stderr)
            return 2
        if got.size != ref.size:
            print(f"{name:32s} size {got.size} against {ref.size}")
            first_bad = first_bad or name
            continue
        if q is None:
            diff = np.abs(got.astype(np.float64) - ref)
            print(f"{name:32s} max |diff| {diff.max():.3e} (decoded floats)")
            continue
        step = 2.0 ** -int(q)
        value = got.astype(np.float64) * step
        if name == "input":  # the fixed-point input is byte - 127, the float one (byte - 127.5) / 128
            value -= 0.5 / 128
        steps = np.abs(value - ref) / step
        worst = int(np.argmax(steps))
        bad = steps[worst] > tol
        print(f"{name:32s} Q {int(q):2d}  max error {steps[worst]:9.1f} steps (mean {steps.mean():7.2f}) "
              f"at {worst} (float {ref[worst]:+.5f}, fixed {value[worst]:+.5f}){'  <-- beyond tol' if bad else ''}")
        if bad and first_bad is None:
            first_bad = name
    if first_bad:
        print(f"first layer beyond tolerance: {first_bad}")
        return 1
    print("all layers within tolerance")


def opencv_layers(model_path):
    """OpenCV's layer name for each ONNX tensor that a node computes."""
    import onnx
    graph = onnx.load(model_path).graph
    names = {}
    for node in graph.node:
        for k, out in enumerate(node.output):
            names[out] = ("onnx_node!" + node.name) if node.name else f"onnx_node_output_{k}!{out}"
    for out in graph.output:
        names[out.name] = out.name
    return names


def report(pairs, tol):
    """Prints one line per pair and gives the first name beyond tolerance, or None."""
    first_bad = None
    for mine, got, ref in pairs:
        ref = ref.astype(np.float32).ravel()
        if got.size != ref.size:
            print(f"{mine:32s} size {got.size} against {ref.size}")
            first_bad = first_bad or mine
            continue
        diff = np.abs(got - ref)
        worst = int(np.argmax(diff)) if diff.size else 0
        scale = max(1.0, float(np.max(np.abs(ref)))) if ref.size else 1.0
        bad = diff.size and diff[worst] > tol * scale
        print(f"{mine:32s} max |diff| {diff[worst] if diff.size else 0:.3e}{'  <-- differs' if bad else ''}")
        if bad and first_bad is None:
            first_bad = mine
    return first_bad


def compare_network(args):
    try:
        dims, x = read_tensor(args.net)
        rows = [line.split() for line in open(os.path.join(args.dump_dir, "nodes.txt"))]
        layers = opencv_layers(args.onnx)
    except (OSError, ValueError) as e:
        print(f"compare_layers: {e}", file=sys.stderr)
        return 2
    net = cv2.dnn.readNetFromONNX(args.onnx)
    net.setPreferableBackend(cv2.dnn.DNN_BACKEND_OPENCV)
    known = set(net.getLayerNames())
    wanted = [(name, layers[name], f) for _, name, f in rows if name in layers and layers[name] in known]
    net.setInput(x.reshape([int(d) for d in reversed(dims)]).astype(np.float32))
    outputs = net.forward([layer for _, layer, _ in wanted]) if wanted else []
    pairs = []
    for (name, _, f), ref in zip(wanted, outputs):
        _, got = read_tensor(os.path.join(args.dump_dir, f))
        pairs.append((name, got, ref))
    first_bad = report(pairs, args.tol)
    print(f"{len(pairs)} of {len(rows)} nodes compared (the others have no ONNX tensor of their name)")
    if first_bad:
        print(f"first layer beyond tolerance: {first_bad}")
        return 1
    print("all layers agree within tolerance")
    return 0


def main(argv):
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("dump_dir")
    ap.add_argument("--onnx", default=os.path.join(ROOT, "models", "ultraface",
                                                   "version-slim-320_without_postprocessing.onnx"))
    ap.add_argument("--tol", type=float, default=None)
    ap.add_argument("--float", dest="float_dir", default=None,
                    help="float dump to compare a fixed-point dump with, node by node")
    ap.add_argument("--net", metavar="INPUT.tensor",
                    help="compare a run_network --all dump of a converted model, run on this input")
    args = ap.parse_args(argv)
    if args.float_dir:
        return compare_fixed(args.dump_dir, args.float_dir, 64.0 if args.tol is None else args.tol)
    if args.tol is None:
        args.tol = 1e-4
    if args.net:
        return compare_network(args)
    try:
        _, layers = onnx_to_weights.convert(args.onnx)
        dims, x = read_tensor(os.path.join(args.dump_dir, "input.tensor"))
    except (OSError, ValueError, onnx_to_weights.UnknownLayer) as e:
        print(f"compare_layers: {e}", file=sys.stderr)
        return 2
    w, h, c = dims[0], dims[1], dims[2]
    net = cv2.dnn.readNetFromONNX(args.onnx)
    net.setPreferableBackend(cv2.dnn.DNN_BACKEND_OPENCV)
    net.setInput(x.reshape(1, c, h, w).astype(np.float32))
    wanted = [(l["name"], "onnx_node_output_0!" + l["output"]) for l in layers]
    wanted += [("scores", "scores"), ("boxes", "boxes")]
    outputs = net.forward([name for _, name in wanted])
    first_bad = None
    for (mine, _), ref in zip(wanted, outputs):
        path = os.path.join(args.dump_dir, mine + ".tensor")
        try:
            _, got = read_tensor(path)
        except (OSError, ValueError) as e:
            print(f"compare_layers: {e}", file=sys.stderr)
            return 2
        ref = ref.astype(np.float32).ravel()
        if got.size != ref.size:
            print(f"{mine:32s} size {got.size} against {ref.size}")
            first_bad = first_bad or mine
            continue
        diff = np.abs(got - ref)
        worst = int(np.argmax(diff))
        scale = max(1.0, float(np.max(np.abs(ref))))
        bad = diff[worst] > args.tol * scale
        print(f"{mine:32s} max |diff| {diff[worst]:.3e} at {worst} (ref {ref[worst]:+.5f}, got {got[worst]:+.5f})"
              f"{'  <-- differs' if bad else ''}")
        if bad and first_bad is None:
            first_bad = mine
    if first_bad:
        print(f"first layer beyond tolerance: {first_bad}")
        return 1
    print("all layers agree within tolerance")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
