#!/usr/bin/python3
"""Synthetic PnP scenes with OpenCV's solvePnP (ITERATIVE) results as the reference.

One scene per line: n planar noise, camera fx fy cx cy, true rvec (3) and tvec (3),
OpenCV's rvec and tvec, then n object points (x y z) and n image points (u v).
Run from the repository root.
"""
import cv2
import numpy as np

rng = np.random.default_rng(90210)
fx, fy, cx, cy = 800.0, 780.0, 320.0, 240.0
K = np.array([[fx, 0, cx], [0, fy, cy], [0, 0, 1]])
lines = []


def scene(n, planar, noise):
    while True:
        rvec = rng.normal(size=3)
        rvec *= rng.uniform(0.05, 2.5) / np.linalg.norm(rvec)
        tvec = np.array([rng.uniform(-0.5, 0.5), rng.uniform(-0.5, 0.5), rng.uniform(4.0, 10.0)])
        obj = rng.uniform(-1.0, 1.0, (n, 3))
        if planar:
            obj[:, 2] = 0.0
        R, _ = cv2.Rodrigues(rvec)
        cam = obj @ R.T + tvec
        if np.all(cam[:, 2] > 1.0):
            break
    img = (cam[:, :2] / cam[:, 2:]) * [fx, fy] + [cx, cy]
    img = img + rng.normal(scale=noise, size=img.shape) if noise > 0 else img
    ok, r_cv, t_cv = cv2.solvePnP(obj, img, K, None, flags=cv2.SOLVEPNP_ITERATIVE)
    assert ok
    vals = [n, int(planar), noise, fx, fy, cx, cy, *rvec, *tvec, *r_cv.ravel(), *t_cv.ravel(), *obj.ravel(),
            *img.ravel()]
    lines.append(" ".join("%.12g" % v for v in vals))


for n in (6, 8, 12, 20, 50, 128):  # 3 scenes per count and noise level
    for noise in (0.0, 0.5, 1.0, 2.0):
        for _ in range(3):
            scene(n, False, noise)
for n in (4, 6, 12, 50):
    for noise in (0.0, 1.0):
        for _ in range(2):
            scene(n, True, noise)

with open("tests/data/pose/pnp_scenes.txt", "w") as f:
    f.write("\n".join(lines) + "\n")
