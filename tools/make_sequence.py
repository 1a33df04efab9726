#!/usr/bin/env python3
"""Makes a short video of a moving camera from one photograph, with its ground truth.

The camera pans across the photograph, zooms in and turns a little; a dark bar
crosses the view and hides the faces behind it for a few frames, and a few frames carry
sensor noise or blur. The reference faces of the photograph (one "x0 y0 x1 y1 score" line
each, in the photograph's pixels) are moved with the camera: a face is in the ground
truth of a frame when at least half of it is seen, that is, inside the frame and not
behind the bar, and its box is cut at the frame's edges.

Output, in OUT_DIR: 000001.bmp, 000002.bmp, ... (320 x 240 by default) and gt.txt in the
MOT text format, "frame,id,x,y,w,h,1,-1,-1,-1", frames from 1, ids from 1 in the order of
the faces from left to right.

Run: /usr/bin/python3 tools/make_sequence.py data/images/faces-3.bmp \
         tests/data/face/faces-3.boxes.txt data/sequences/faces-3-pan
"""
import argparse
import math
import os

import cv2
import numpy as np

VISIBLE = 0.5  # least seen share of a face that still counts as in view


def camera(t, zoom, photo_w, photo_h, out_w, out_h):
    """Scale, angle (degrees) and the photograph point at the frame centre, t in [0, 1].
    The zoom only grows and the pan only goes right, so a face that leaves the view
    doesn't come back."""
    scale = zoom * (1.0 + 0.25 * t)
    angle = 3.0 * math.sin(2.0 * math.pi * t)
    half_w, half_h = 0.5 * out_w / scale, 0.5 * out_h / scale
    cx = half_w + 40 + (photo_w - 2 * half_w - 80) * t
    cy = min(max(140.0 + 15.0 * math.sin(math.pi * t), half_h), photo_h - half_h)
    return scale, angle, cx, cy


def affine(scale, angle, cx, cy, out_w, out_h):
    """2 x 3 map from photograph to frame pixels: turn and scale about (cx, cy), which
    lands on the frame centre."""
    m = cv2.getRotationMatrix2D((cx, cy), angle, scale)
    m[0, 2] += 0.5 * out_w - cx
    m[1, 2] += 0.5 * out_h - cy
    return m


def bar_span(k, frames, out_w):
    """Columns [x0, x1) of the occluding bar in frame k (0-based), or None. It enters on
    the right a quarter of the way in and moves left faster than the scene does."""
    first, speed, width = frames // 8, 12.0, 40.0
    if k < first:
        return None
    x0 = out_w - (k - first) * speed
    if x0 + width <= 0:
        return None
    return x0, x0 + width


def seen_share(box, out_w, out_h, bar):
    x0, y0, x1, y1 = box
    area = (x1 - x0) * (y1 - y0)
    if area <= 0:
        return 0.0
    ix0, iy0, ix1, iy1 = max(x0, 0), max(y0, 0), min(x1, out_w), min(y1, out_h)
    if ix1 <= ix0 or iy1 <= iy0:
        return 0.0
    inside = (ix1 - ix0) * (iy1 - iy0)
    if bar is not None:
        hidden = max(0.0, min(ix1, bar[1]) - max(ix0, bar[0])) * (iy1 - iy0)
        inside -= hidden
    return inside / area


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("photo")
    ap.add_argument("boxes")
    ap.add_argument("out_dir")
    ap.add_argument("--frames", type=int, default=32)
    ap.add_argument("--size", default="320x240")
    ap.add_argument("--zoom", type=float, default=0.7, help="frame pixels per photograph pixel at the start")
    ap.add_argument("--seed", type=int, default=7)
    args = ap.parse_args()

    out_w, out_h = (int(v) for v in args.size.split("x"))
    photo = cv2.imread(args.photo, cv2.IMREAD_COLOR)
    if photo is None:
        raise SystemExit(f"cannot read {args.photo}")
    faces = np.loadtxt(args.boxes, ndmin=2)[:, :4]
    faces = faces[np.argsort(faces[:, 0], kind="stable")]
    photo_h, photo_w = photo.shape[:2]
    rng = np.random.RandomState(args.seed)
    n = args.frames
    # a few frames of a noisy sensor and a few out of focus, past the middle
    noisy = {int(n * 0.55), int(n * 0.55) + 1, int(n * 0.55) + 2}
    blurred = {int(n * 0.7), int(n * 0.7) + 1}

    os.makedirs(args.out_dir, exist_ok=True)
    lines = []
    for k in range(n):
        t = k / (n - 1)
        scale, angle, cx, cy = camera(t, args.zoom, photo_w, photo_h, out_w, out_h)
        m = affine(scale, angle, cx, cy, out_w, out_h)
        frame = cv2.warpAffine(photo, m, (out_w, out_h), flags=cv2.INTER_LINEAR, borderMode=cv2.BORDER_REFLECT)
        bar = bar_span(k, n, out_w)
        if bar is not None:
            c0, c1 = max(int(round(bar[0])), 0), min(int(round(bar[1])), out_w)
            if c1 > c0:
                frame[:, c0:c1] = (52, 48, 44)
        if k in noisy:
            frame = np.clip(frame.astype(np.float32) + rng.normal(0.0, 12.0, frame.shape), 0, 255).astype(np.uint8)
        if k in blurred:
            frame = cv2.GaussianBlur(frame, (0, 0), 1.2)
        cv2.imwrite(os.path.join(args.out_dir, f"{k + 1:06d}.bmp"), frame)

        # A face keeps its size under the small turn: its centre moves with the camera,
        # its width and height scale with the zoom.
        centres = np.column_stack([(faces[:, 0] + faces[:, 2]) / 2, (faces[:, 1] + faces[:, 3]) / 2, np.ones(len(faces))])
        moved = centres @ m.T
        for i, (fx, fy) in enumerate(moved):
            w = (faces[i, 2] - faces[i, 0]) * scale
            h = (faces[i, 3] - faces[i, 1]) * scale
            box = (fx - w / 2, fy - h / 2, fx + w / 2, fy + h / 2)
            if seen_share(box, out_w, out_h, bar) >= VISIBLE:
                # what lies beyond the frame's edge is no part of what the camera saw
                x0, y0 = max(box[0], 0.0), max(box[1], 0.0)
                x1, y1 = min(box[2], float(out_w)), min(box[3], float(out_h))
                lines.append(f"{k + 1},{i + 1},{x0:.2f},{y0:.2f},{x1 - x0:.2f},{y1 - y0:.2f},1,-1,-1,-1")
    with open(os.path.join(args.out_dir, "gt.txt"), "w") as f:
        f.write("\n".join(lines) + "\n")


if __name__ == "__main__":
    main()
