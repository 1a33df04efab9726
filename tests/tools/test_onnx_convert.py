"""The ONNX converter and the network loader end to end: small graphs built here with
onnx.helper, converted by tools/onnx_convert.py, run by the run_network program, and
compared with OpenCV DNN running the same ONNX file (within 1e-4); then the refusals.

Run by CTest with ORU_RUN_NETWORK set to the run_network program.
"""
import os
import subprocess
import sys

import cv2
import numpy as np
import onnx
import pytest
from onnx import TensorProto, helper, numpy_helper

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
sys.path.insert(0, os.path.join(ROOT, "tools"))
import onnx_convert  # noqa: E402

RUN_NETWORK = os.environ.get("ORU_RUN_NETWORK", "")
pytestmark = pytest.mark.skipif(not os.path.isfile(RUN_NETWORK), reason="ORU_RUN_NETWORK is not set")
MAGIC = b"Morvex Tensor V1.0\0"


def write_tensor(path, array):
    dims = list(reversed(array.shape))
    head = MAGIC.ljust(32, b"\0") + np.array([len(dims), 6, 0] + dims, "<i4").tobytes()
    with open(path, "wb") as f:
        f.write(head + np.ascontiguousarray(array, "<f4").tobytes())


def read_tensor(path):
    blob = open(path, "rb").read()
    ndims = int(np.frombuffer(blob, "<i4", 1, 32)[0])
    return np.frombuffer(blob, "<f4", -1, 44 + 4 * ndims)


class Builder:
    """A graph in the making: random initialisers from one seed, nodes in order."""

    def __init__(self, shape, seed=1):
        self.opset = 14
        self.rng = np.random.default_rng(seed)
        self.nodes, self.inits, self.count = [], [], 0
        self.input = helper.make_tensor_value_info("x", TensorProto.FLOAT, shape)
        self.shape = shape

    def const(self, array):
        name = f"c{len(self.inits)}"
        self.inits.append(numpy_helper.from_array(np.asarray(array), name))
        return name

    def weights(self, *shape, lo=-1.0, hi=1.0):
        return self.const(self.rng.uniform(lo, hi, shape).astype(np.float32))

    def node(self, op, inputs, **attrs):
        self.count += 1
        out = f"t{self.count}"
        self.nodes.append(helper.make_node(op, inputs, [out], name=f"n{self.count}_{op}", **attrs))
        return out

    def conv(self, x, cin, cout, k=3, group=1, bias=True, **attrs):
        ins = [x, self.weights(cout, cin // group, k, k, lo=-0.5, hi=0.5)]
        if bias:
            ins.append(self.weights(cout))
        attrs.setdefault("pads", [k // 2] * 4)
        return self.node("Conv", ins, kernel_shape=[k, k], group=group, **attrs)

    def relu6(self, x):
        # OpenCV takes Clip only in its attribute form, so these graphs are of opset 10
        self.opset = 10
        return self.node("Clip", [x], min=0.0, max=6.0)

    def bn(self, x, c):
        return self.node("BatchNormalization", [x, self.weights(c, lo=0.5, hi=1.5), self.weights(c),
                                                self.weights(c), self.weights(c, lo=0.5, hi=2.0)], epsilon=1e-5)

    def model(self, *outputs):
        outs = [helper.make_tensor_value_info(o, TensorProto.FLOAT, None) for o in outputs]
        graph = helper.make_graph(self.nodes, "g", [self.input], outs, self.inits)
        model = helper.make_model(graph, opset_imports=[helper.make_opsetid("", self.opset)])
        return onnx.shape_inference.infer_shapes(model, data_prop=True)  # OpenCV wants the outputs' shapes


def run_both(model, tmp_path, method="auto", run_method=None):
    """Converts and runs the model through the library, and through OpenCV; gives pairs."""
    path = str(tmp_path / "m.onnx")
    onnx.save(model, path)
    out = str(tmp_path / "m")
    assert onnx_convert.main([path, out, "--method", method]) == 0
    shape = [d.dim_value for d in model.graph.input[0].type.tensor_type.shape.dim]
    x = np.random.default_rng(7).uniform(-2, 2, shape).astype(np.float32)
    write_tensor(str(tmp_path / "x.tensor"), x)
    dump = tmp_path / "out"
    dump.mkdir()
    cmd = [RUN_NETWORK, out, str(tmp_path / "x.tensor"), str(dump)] + (["--method", run_method] if run_method else [])
    run = subprocess.run(cmd, capture_output=True, text=True)
    if run.returncode != 0 and "status 4" in run.stdout + run.stderr:
        pytest.skip("the library answers not supported for an operator of this graph: " + run.stderr.strip())
    assert run.returncode == 0, run.stdout + run.stderr
    files = {line.split()[1]: line.split()[2] for line in open(dump / "nodes.txt")}
    net = cv2.dnn.readNetFromONNX(path)
    net.setPreferableBackend(cv2.dnn.DNN_BACKEND_OPENCV)
    net.setInput(x)
    (name,) = [o.name for o in model.graph.output]
    return [(read_tensor(str(dump / files[name])), np.asarray(net.forward(), np.float32).ravel())]


def assert_close(pairs, tol=1e-4):
    for got, ref in pairs:
        assert got.shape == ref.shape
        scale = max(1.0, float(np.max(np.abs(ref))))
        assert np.max(np.abs(got - ref)) <= tol * scale, np.max(np.abs(got - ref))


# ---- one graph per operator mapping, and mixed graphs ----

def g_std_conv(b):
    return b.conv("x", 3, 5, k=3, strides=[2, 2])


def g_pointwise_conv(b):
    return b.conv("x", 3, 6, k=1, bias=False)


def g_depthwise_conv(b):
    return b.conv("x", 3, 3, k=3, group=3)


def g_conv_bn_relu(b):
    return b.node("Relu", [b.bn(b.conv("x", 3, 8, bias=False), 8)])


def g_depthwise_bn_relu6(b):
    c = b.node("Relu", [b.bn(b.conv("x", 3, 4), 4)])
    return b.relu6(b.bn(b.conv(c, 4, 4, group=4), 4))


def g_conv_relu(b):
    return b.node("Relu", [b.conv("x", 3, 4)])


def g_conv_hswish(b):
    return b.node("HardSwish", [b.conv("x", 3, 4)])


def g_dilated_conv(b):
    return b.conv("x", 3, 4, k=3, dilations=[2, 2], pads=[2, 2, 2, 2])


def g_transposed_conv(b):
    w = b.weights(3, 4, 3, 3, lo=-0.5, hi=0.5)
    return b.node("ConvTranspose", ["x", w, b.weights(4)], kernel_shape=[3, 3], strides=[2, 2], pads=[1, 1, 1, 1],
                  output_padding=[1, 0])


def g_bn(b):
    return b.bn(b.conv("x", 3, 4), 4)


def g_sigmoid_hswish(b):
    return b.node("Sigmoid", [b.node("HardSwish", [b.conv("x", 3, 4)])])


def g_relu6_relu(b):
    return b.node("Relu", [b.relu6(b.conv("x", 3, 4))])


def g_softmax(b):
    c = b.conv("x", 3, 4, k=1)
    t = b.node("Transpose", [c], perm=[0, 2, 3, 1])
    return b.node("Softmax", [b.node("Reshape", [t, b.const(np.array([1, -1, 4], np.int64))])], axis=-1)


def g_pools(b):
    c = b.conv("x", 3, 4)
    m = b.node("MaxPool", [c], kernel_shape=[2, 2], strides=[2, 2])
    return b.node("AveragePool", [m], kernel_shape=[2, 2], strides=[2, 2])


def g_squeeze_excite(b):
    c = b.conv("x", 3, 4)
    s = b.node("Sigmoid", [b.conv(b.node("GlobalAveragePool", [c]), 4, 4, k=1)])
    return b.node("Mul", [c, s])


def g_global_max_and_gemm(b):
    c = b.node("Relu", [b.conv("x", 3, 6)])
    f = b.node("Flatten", [b.node("GlobalMaxPool", [c])], axis=1)
    return b.node("Gemm", [f, b.weights(5, 6), b.weights(5)], transB=1)


def g_flatten_matmul(b):
    c = b.conv("x", 3, 2, k=3, strides=[2, 2])
    return b.node("MatMul", [b.node("Flatten", [c]), b.weights(2 * 4 * 4, 3)])


def g_branches(b):
    c = b.node("Relu", [b.conv("x", 3, 4)])
    left = b.conv(c, 4, 4, k=3, dilations=[2, 2], pads=[2, 2, 2, 2])
    right = b.node("Relu", [b.conv(c, 4, 4, k=1)])
    s = b.node("Add", [left, right])
    cat = b.node("Concat", [s, c, b.conv(c, 4, 2, k=3, group=2 // 2)], axis=1)
    return b.node("Add", [b.conv(cat, 10, 3, k=1), b.const(b.rng.uniform(-1, 1, (3, 1, 1)).astype(np.float32))])


def g_folded_shape_and_layout(b):
    """Heads as exported detectors write them: NHWC transpose, a Reshape whose shape is
    computed by Shape/Gather/Unsqueeze/Concat, then a concat of heads and a softmax."""
    heads = []
    for k in range(2):
        h = b.conv("x" if k == 0 else b.conv("x", 3, 3, k=3, strides=[2, 2]), 3, 4, k=3)
        t = b.node("Transpose", [h], perm=[0, 2, 3, 1])
        n = b.node("Unsqueeze", [b.node("Gather", [b.node("Shape", [t]), b.const(np.array(0, np.int64))], axis=0),
                                 b.const(np.array([0], np.int64))])
        shape = b.node("Concat", [n, b.const(np.array([-1], np.int64)), b.const(np.array([2], np.int64))], axis=0)
        heads.append(b.node("Reshape", [t, shape]))
    return b.node("Softmax", [b.node("Concat", heads, axis=1)], axis=2)


def g_squeeze_unsqueeze_identity(b):
    b.opset = 11  # OpenCV takes the axes of Squeeze and Unsqueeze only as attributes
    f = b.node("Flatten", [b.conv("x", 3, 2, k=3, strides=[2, 2])])
    u = b.node("Unsqueeze", [f], axes=[2])
    q = b.node("Identity", [b.node("Squeeze", [u], axes=[2])])
    return b.node("Add", [q, b.weights(1, 32)])


def g_resize(b):
    c = b.conv("x", 3, 2)
    return b.node("Resize", [c, "", b.const(np.array([1, 1, 2, 2], np.float32))], mode="nearest",
                  coordinate_transformation_mode="asymmetric", nearest_mode="floor")


GRAPHS = [g_std_conv, g_pointwise_conv, g_depthwise_conv, g_conv_bn_relu, g_depthwise_bn_relu6, g_conv_relu,
          g_conv_hswish, g_dilated_conv, g_transposed_conv, g_bn, g_sigmoid_hswish, g_relu6_relu, g_softmax, g_pools,
          g_squeeze_excite, g_global_max_and_gemm, g_flatten_matmul, g_squeeze_unsqueeze_identity, g_branches,
          g_folded_shape_and_layout, g_resize]


@pytest.mark.parametrize("graph", GRAPHS, ids=lambda g: g.__name__[2:])
def test_graph_matches_opencv(graph, tmp_path):
    b = Builder([1, 3, 8, 8], seed=GRAPHS.index(graph))
    assert_close(run_both(b.model(graph(b)), tmp_path))


@pytest.mark.parametrize("method", ["0", "2"])
def test_mixed_graph_under_each_conv_method(method, tmp_path):
    b = Builder([1, 3, 12, 10], seed=5)
    assert_close(run_both(b.model(g_branches(b)), tmp_path, method=method))


def test_folds_batch_norm_and_activation_into_one_node(tmp_path):
    b = Builder([1, 3, 8, 8])
    path = str(tmp_path / "m.onnx")
    onnx.save(b.model(g_conv_bn_relu(b)), path)
    assert onnx_convert.main([path, str(tmp_path / "m")]) == 0
    lines = [l.split() for l in open(tmp_path / "m.net") if l[0].isdigit()]
    assert [l[1] for l in lines] == ["input", "conv2d_bn2d_act"]
    assert lines[1][4].split(",")[-1] == "1"  # ReLU


# ---- refusals ----

def test_unsupported_op_names_the_node_and_writes_nothing(tmp_path, capsys):
    b = Builder([1, 3, 8, 8])
    c = b.conv("x", 3, 4)
    out = b.node("LRN", [c], size=3)
    path = str(tmp_path / "m.onnx")
    onnx.save(b.model(out), path)
    assert onnx_convert.main([path, str(tmp_path / "m")]) == 1
    err = capsys.readouterr().err
    assert "n2_LRN" in err and "(LRN)" in err and "no operator" in err
    assert os.listdir(tmp_path) == ["m.onnx"]


@pytest.mark.parametrize("make, why", [
    (lambda b: b.conv("x", 3, 4, pads=[1, 1, 0, 0]), "asymmetric padding"),
    (lambda b: b.node("MaxPool", ["x"], kernel_shape=[3, 3], strides=[2, 2]), "square windows"),
    (lambda b: b.node("Softmax", ["x"], axis=1), "axis other than the last"),
    (lambda b: b.node("Transpose", ["x"], perm=[0, 3, 1, 2][::-1]), "not a swap"),
])
def test_mappings_the_library_cannot_express_are_refused(make, why, tmp_path, capsys):
    b = Builder([1, 3, 8, 6])
    path = str(tmp_path / "m.onnx")
    onnx.save(b.model(make(b)), path)
    assert onnx_convert.main([path, str(tmp_path / "m")]) == 1
    assert why in capsys.readouterr().err
    assert os.listdir(tmp_path) == ["m.onnx"]


def test_weights_one_word_short_stops_the_loader(tmp_path):
    b = Builder([1, 3, 8, 8])
    path = str(tmp_path / "m.onnx")
    onnx.save(b.model(g_std_conv(b)), path)
    out = str(tmp_path / "m")
    assert onnx_convert.main([path, out]) == 0
    blob = open(out + ".weights", "rb").read()
    open(out + ".weights", "wb").write(blob[:-20] + blob[-16:])
    write_tensor(str(tmp_path / "x.tensor"), np.zeros((1, 3, 8, 8), np.float32))
    run = subprocess.run([RUN_NETWORK, out, str(tmp_path / "x.tensor"), str(tmp_path)], capture_output=True,
                         text=True)
    assert run.returncode == 1
    assert "m.weights:0: the weight file holds" in run.stdout and "status 256" in run.stderr
    assert not os.path.exists(tmp_path / "nodes.txt")


def test_shipped_face_network_is_what_the_converter_writes(tmp_path):
    model = os.path.join(ROOT, "models", "ultraface", "version-slim-320_without_postprocessing.onnx")
    shipped = os.path.join(ROOT, "models", "ultraface", "ultraface-slim-320")
    assert onnx_convert.main([model, str(tmp_path / "m")]) == 0
    assert open(tmp_path / "m.net").read() == open(shipped + ".net").read()
    assert open(tmp_path / "m.weights", "rb").read() == open(shipped + ".weights", "rb").read()


FACE_DETECT = os.environ.get("ORU_FACE_DETECT", "")


@pytest.mark.skipif(not os.path.isfile(FACE_DETECT), reason="ORU_FACE_DETECT is not set")
def test_face_detector_converted_for_640x480_matches_opencv_and_finds_the_faces(tmp_path):
    """A graph nobody bound by hand: the face network converted for another input size,
    whose reshapes and prior count (17640) differ from the built-in graph's."""
    model = os.path.join(ROOT, "models", "ultraface", "version-slim-320_without_postprocessing.onnx")
    out = str(tmp_path / "face640")
    assert onnx_convert.main([model, out, "--input-size", "640x480"]) == 0
    x = np.random.default_rng(3).uniform(-1, 1, (1, 3, 480, 640)).astype(np.float32)
    write_tensor(str(tmp_path / "x.tensor"), x)
    dump = tmp_path / "out"
    dump.mkdir()
    subprocess.run([RUN_NETWORK, out, str(tmp_path / "x.tensor"), str(dump)], check=True, capture_output=True)
    net = cv2.dnn.readNetFromONNX(model)
    net.setInput(x)
    scores, boxes = net.forward(["scores", "boxes"])
    assert_close([(read_tensor(str(dump / "scores.tensor")), scores.ravel()),
                  (read_tensor(str(dump / "boxes.tensor")), boxes.ravel())])

    image = os.path.join(ROOT, "data", "images", "faces-3.bmp")

    def faces(*args):
        run = subprocess.run([FACE_DETECT, image] + list(args), check=True, capture_output=True, text=True)
        return [list(map(float, l.split())) for l in run.stdout.splitlines() if not l.startswith("ORU_")]

    big, small = faces("--model", out, "--input-size", "640x480"), faces()
    assert len(big) == len(small) >= 3

    def iou(a, b):
        w = max(0.0, min(a[2], b[2]) - max(a[0], b[0]))
        h = max(0.0, min(a[3], b[3]) - max(a[1], b[1]))
        return w * h / ((a[2] - a[0]) * (a[3] - a[1]) + (b[2] - b[0]) * (b[3] - b[1]) - w * h)

    assert all(max(iou(f, g) for g in small) > 0.6 for f in big)
    refused = subprocess.run([FACE_DETECT, image, "--model", out, "--input-size", "320x240"], capture_output=True,
                             text=True)
    assert refused.returncode == 1 and "converted for 640x480" in refused.stderr


def test_compare_layers_checks_every_named_node_and_names_the_first_that_differs(tmp_path, capsys):
    import compare_layers
    b = Builder([1, 3, 12, 10], seed=9)
    path = str(tmp_path / "m.onnx")
    onnx.save(b.model(g_branches(b)), path)
    out = str(tmp_path / "m")
    assert onnx_convert.main([path, out]) == 0
    write_tensor(str(tmp_path / "x.tensor"), np.random.default_rng(2).uniform(-1, 1, (1, 3, 12, 10)).astype(np.float32))
    dump = tmp_path / "dump"
    dump.mkdir()
    subprocess.run([RUN_NETWORK, out, str(tmp_path / "x.tensor"), str(dump), "--all"], check=True, capture_output=True)
    argv = [str(dump), "--net", str(tmp_path / "x.tensor"), "--onnx", path]
    assert compare_layers.main(argv) == 0
    said = capsys.readouterr().out
    assert "all layers agree" in said and int(said.split(" of ")[0].split()[-1]) >= 6
    # spoil one node's dump: the tool must name it
    victim = [l.split() for l in open(dump / "nodes.txt") if l.split()[1] == "t3"][0][2]
    blob = bytearray(open(dump / victim, "rb").read())
    blob[-4:] = np.float32(1e3).tobytes()
    open(dump / victim, "wb").write(bytes(blob))
    assert compare_layers.main(argv) == 1
    assert "first layer beyond tolerance: t3" in capsys.readouterr().out


def test_a_file_that_is_not_onnx_is_refused(tmp_path, capsys):
    (tmp_path / "bad.onnx").write_bytes(b"\x08\x07garbage that is not a model" * 4)
    assert onnx_convert.main([str(tmp_path / "bad.onnx"), str(tmp_path / "m")]) == 1
    assert "cannot read" in capsys.readouterr().err
    assert sorted(os.listdir(tmp_path)) == ["bad.onnx"]
