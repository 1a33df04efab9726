#!/usr/bin/env python3
"""Reference detections of the 320x240 face network, computed with OpenCV DNN on the
ONNX file and NumPy post-processing, written to tests/data/face/.

* faces-N.boxes.txt: the final boxes of data/images/faces-N.bmp, one "x0 y0 x1 y1 score"
  line each in the image's pixels, best first (bilinear resize to 320x240 with the
  NumPy model of the library's resizer in resize_model.py, so the network sees the very
  bytes the library feeds it; RGB, (v - 127.5) / 128, threshold 0.7, greedy NMS at
  IoU 0.3).
* faces-1.sampled.boxes.txt: the final boxes for that sampled input.
* faces-2.padded-4x3.boxes.txt: the same for faces-2.bmp padded to 4:3 first (black
  bands, the extra rows and columns rounded and split in single precision).
* raw_scores.f32 / raw_boxes.f32: the raw outputs (4420 x 2 and
  4420 x 4 little-endian floats) for an input that a test can rebuild exactly without
  any resizer: faces-1.bmp sampled at integer nearest positions (x * w // 320,
  y * h // 240), RGB, (v - 127.5) / 128.

Run: /usr/bin/python3 tests/oracles/face_reference.py
"""
import os
import sys

import cv2
import numpy as np

from resize_model import model_resize_bilinear

ROOT = os.path.normpath(os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", ".."))
MODEL = os.path.join(ROOT, "models", "ultraface", "version-slim-320_without_postprocessing.onnx")
OUT = os.path.join(ROOT, "tests", "data", "face")
W, H = 320, 240
MIN_BOXES = [[10, 16, 24], [32, 48], [64, 96], [128, 192, 256]]
STRIDES = [8, 16, 32, 64]


def priors():
    out = []
    for (fw, fh), sizes in zip([(40, 30), (20, 15), (10, 8), (5, 4)], MIN_BOXES):
        for j in range(fh):
            for i in range(fw):
                for m in sizes:
                    out.append([(i + 0.5) / fw, (j + 0.5) / fh, m / W, m / H])
    return np.clip(np.array(out, dtype=np.float64), 0.0, 1.0)


def resized_rgb(bgr):
    return np.ascontiguousarray(model_resize_bilinear(bgr, W, H)[:, :, ::-1])


def padded_to(bgr, ratio):
    """Constant black border to the height / width ratio, centred, in single precision."""
    h, w = bgr.shape[:2]
    r = np.float32(ratio)
    extra_rows = max(int(np.float32(w) * r + np.float32(0.5)) - h, 0)
    extra_cols = max(int(np.float32(h) / r + np.float32(0.5)) - w, 0)
    top, left = extra_rows // 2, extra_cols // 2
    out = np.zeros((h + extra_rows, w + extra_cols, 3), np.uint8)
    out[top:top + h, left:left + w] = bgr
    return out, top, left


def run_net(net, blob):
    net.setInput(blob)
    scores, boxes = net.forward(["scores", "boxes"])
    return scores.reshape(-1, 2), boxes.reshape(-1, 4)


def blob_from_rgb(rgb):
    x = (rgb.astype(np.float32) - 127.5) / 128.0
    return np.ascontiguousarray(x.transpose(2, 0, 1)[None])


def iou(a, b):
    iw = np.maximum(0.0, np.minimum(a[2], b[:, 2]) - np.maximum(a[0], b[:, 0]))
    ih = np.maximum(0.0, np.minimum(a[3], b[:, 3]) - np.maximum(a[1], b[:, 1]))
    inter = iw * ih
    area = lambda r: np.maximum(0.0, r[..., 2] - r[..., 0]) * np.maximum(0.0, r[..., 3] - r[..., 1])
    return inter / (area(a) + area(b) - inter + 1e-5)


def detect(scores, locs, width, height, threshold=0.7, iou_threshold=0.3):
    p = priors()
    centre = locs[:, :2] * 0.1 * p[:, 2:] + p[:, :2]
    size = np.exp(locs[:, 2:] * 0.2) * p[:, 2:]
    corners = np.concatenate([centre - size / 2, centre + size / 2], axis=1)
    keep = scores[:, 1] > threshold
    cand, conf = corners[keep], scores[keep, 1]
    order = np.argsort(-conf, kind="stable")
    cand, conf = cand[order], conf[order]
    kept = []
    alive = np.ones(len(cand), bool)
    for i in range(len(cand)):
        if not alive[i]:
            continue
        kept.append(i)
        rest = np.arange(i + 1, len(cand))
        alive[rest[iou(cand[i], cand[rest]) > iou_threshold]] = False
    scale = np.array([width, height, width, height])
    return [(cand[i] * scale, conf[i]) for i in kept]


def main():
    net = cv2.dnn.readNetFromONNX(MODEL)
    net.setPreferableBackend(cv2.dnn.DNN_BACKEND_OPENCV)
    os.makedirs(OUT, exist_ok=True)
    for n in (1, 2, 3):
        bgr = cv2.imread(os.path.join(ROOT, "data", "images", f"faces-{n}.bmp"))
        h, w = bgr.shape[:2]
        rgb = resized_rgb(bgr)
        scores, locs = run_net(net, blob_from_rgb(rgb))
        found = detect(scores.astype(np.float64), locs.astype(np.float64), w, h)
        with open(os.path.join(OUT, f"faces-{n}.boxes.txt"), "w") as f:
            for box, score in found:
                f.write("%.4f %.4f %.4f %.4f %.6f\n" % (*box, score))
        print(f"faces-{n}: {len(found)} faces")

    # Padded to 4:3 first (black bands, centred), boxes mapped back to the image.
    bgr = cv2.imread(os.path.join(ROOT, "data", "images", "faces-2.bmp"))
    padded, top, left = padded_to(bgr, H / W)
    ph, pw = padded.shape[:2]
    rgb = resized_rgb(padded)
    scores, locs = run_net(net, blob_from_rgb(rgb))
    found = detect(scores.astype(np.float64), locs.astype(np.float64), pw, ph)
    with open(os.path.join(OUT, "faces-2.padded-4x3.boxes.txt"), "w") as f:
        for box, score in found:
            f.write("%.4f %.4f %.4f %.4f %.6f\n" % (box[0] - left, box[1] - top, box[2] - left, box[3] - top, score))
    print(f"faces-2 padded to 4:3: {len(found)} faces")

    bgr = cv2.imread(os.path.join(ROOT, "data", "images", "faces-1.bmp"))
    h, w = bgr.shape[:2]
    ys = (np.arange(H) * h) // H
    xs = (np.arange(W) * w) // W
    rgb = bgr[ys][:, xs][:, :, ::-1]
    scores, locs = run_net(net, blob_from_rgb(rgb))
    scores.astype("<f4").tofile(os.path.join(OUT, "raw_scores.f32"))
    locs.astype("<f4").tofile(os.path.join(OUT, "raw_boxes.f32"))
    print("raw outputs:", scores.shape, locs.shape)
    found = detect(scores.astype(np.float64), locs.astype(np.float64), w, h)
    with open(os.path.join(OUT, "faces-1.sampled.boxes.txt"), "w") as f:
        for box, score in found:
            f.write("%.4f %.4f %.4f %.4f %.6f\n" % (*box, score))
    return 0


if __name__ == "__main__":
    sys.exit(main())
