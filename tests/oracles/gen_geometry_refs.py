#!/usr/bin/python3
"""Reference data of the geometry tests (tests/data/geometry), from NumPy and OpenCV.

Run from the repository root with Debian's python3: /usr/bin/python3 tests/oracles/gen_geometry_refs.py

* Quarter turns, mirrors, transposition and crops: np.rot90, np.flip, np.transpose and
  slicing of np.pad(mode="edge") (exact).
* Rotation by an angle and the warps: a NumPy model of the library's fixed-point and
  float formulas (bit-exact, in float32 step by step), and OpenCV's warpAffine /
  warpPerspective on the same inputs (interior pixels, within a tolerance).
* Homography: random point pairs with cv2.findHomography (method 0).
* Deformation: a NumPy model of the kernel matrix, its Cholesky solve and the map.
* Planar pose: synthetic plane scenes with cv2.solvePnP (SOLVEPNP_IPPE).
Raw files hold packed rows; text files one case a line.
"""
import math
from pathlib import Path

import cv2
import numpy as np

OUT = Path(__file__).resolve().parents[2] / "tests/data/geometry"
rng = np.random.RandomState(20251124)
f32 = np.float32


def save(name, *arrays):
    (OUT / name).write_bytes(b"".join(np.ascontiguousarray(a).tobytes() for a in arrays))


def fmt(values):
    return " ".join("%.12g" % v for v in np.ravel(values))


# ---- quarter turns, mirror, transposition, crop ----

def quarter_turns(src):
    out = []
    for degrees in (0, 90, 180, 270):
        for flip in (0, 1):
            a = np.flipud(src) if flip else src
            out.append(np.rot90(a, k={0: 0, 90: -1, 180: 2, 270: 1}[degrees]))
    return out


CROPS = [(-5, -5, 20, 15), (30, 25, 20, 15), (10, 8, 20, 15), (-7, 20, 60, 21)]


def crops(src):
    pad = 64
    widths = ((pad, pad), (pad, pad)) + (((0, 0),) if src.ndim == 3 else ())
    padded = np.pad(src, widths, mode="edge")
    return [padded[y + pad:y + pad + h, x + pad:x + pad + w] for x, y, w, h in CROPS]


# ---- rotation by an angle: the fixed-point and float model ----

def mapping(dw, dh, scx, scy, degrees, cx, cy):
    rad = f32(degrees) * f32(3.1415927) / f32(180)
    c, s = f32(math.cos(float(rad))), f32(math.sin(float(rad)))
    return dict(cx=f32(cx), cy=f32(cy), a=c / f32(scx), b=s / f32(scx), e=s / f32(scy), d=c / f32(scy),
                hw=f32(dw) * f32(0.5), hh=f32(dh) * f32(0.5))


def source_xy(m, u, v):
    return (m["cx"] + u * m["a"]) - v * m["e"], (m["cy"] + u * m["b"]) + v * m["d"]


def fixed(v):
    return int(np.rint(f32(v) * f32(2048)))


def fixed_positions(m, dw, dh):
    sx0, sy0 = source_xy(m, f32(0) - m["hw"], f32(0) - m["hh"])
    cxs, cys, rxs, rys = fixed(m["a"]), fixed(m["b"]), fixed(f32(0) - m["e"]), fixed(m["d"])
    x = np.arange(dw, dtype=np.int64)[None, :]
    y = np.arange(dh, dtype=np.int64)[:, None]
    return fixed(sx0) + x * cxs + y * rxs, fixed(sy0) + x * cys + y * rys


def rotate_bilinear(src, dw, dh, m, fill):
    img = src.astype(np.int64)
    if img.ndim == 2:
        img = img[:, :, None]
    sh, sw, ch = img.shape
    X, Y = fixed_positions(m, dw, dh)
    inside = (X >= 0) & (Y >= 0) & ((X >> 11) < sw - 1) & ((Y >> 11) < sh - 1)
    xi = np.where(inside, X >> 11, 0)
    yi = np.where(inside, Y >> 11, 0)
    wx = (X & 0x7FF)[:, :, None]
    wy = (Y & 0x7FF)[:, :, None]
    top = ((2048 - wx) * img[yi, xi] + wx * img[yi, xi + 1]) >> 11
    bottom = ((2048 - wx) * img[yi + 1, xi] + wx * img[yi + 1, xi + 1]) >> 11
    out = ((2048 - wy) * top + wy * bottom + 1024) >> 11
    out = np.where(inside[:, :, None], out, fill).astype(np.uint8)
    return out if src.ndim == 3 else out[:, :, 0]


def rotate_nearest_c3(src, dw, dh, m):
    sh, sw, _ = src.shape
    X, Y = fixed_positions(m, dw, dh)
    inside = (X >= -1024) & (Y >= -1024) & (((X + 1024) >> 11) < sw) & (((Y + 1024) >> 11) < sh)
    xi = np.where(inside, (X + 1024) >> 11, 0)
    yi = np.where(inside, (Y + 1024) >> 11, 0)
    return np.where(inside[:, :, None], src[yi, xi], 0).astype(np.uint8)


def rotate_nearest_c1(src, dw, dh, m, fill):
    sh, sw = src.shape
    u = np.arange(dw, dtype=f32)[None, :] - m["hw"]
    v = np.arange(dh, dtype=f32)[:, None] - m["hh"]
    xs, ys = source_xy(m, u, v)
    xs, ys = np.rint(xs), np.rint(ys)
    inside = (xs >= 0) & (ys >= 0) & (xs < sw) & (ys < sh)
    xi = np.where(inside, xs, 0).astype(np.int64)
    yi = np.where(inside, ys, 0).astype(np.int64)
    return np.where(inside, src[yi, xi], fill).astype(np.uint8)


# (angle, centre x, centre y, scale x, scale y, destination width, height)
ROTATIONS = [(30, 22.5, 17.5, 1.0, 1.0, 45, 35), (-73, 10.0, 20.0, 1.3, 0.8, 41, 31),
             (200, 30.25, 9.5, 0.7, 1.6, 52, 38), (0, 22.5, 17.5, 1.0, 1.0, 45, 35), (90, 22.0, 17.0, 2.0, 2.0, 64, 48)]


def inverse_affine(m, dw, dh):
    """The library's source position as a 2 x 3 matrix of destination x, y."""
    sx0, sy0 = source_xy(m, f32(0) - m["hw"], f32(0) - m["hh"])
    return np.array([[m["a"], -m["e"], sx0], [m["b"], m["d"], sy0]], np.float64)


# ---- warp maps and the warp ----

EPS = f32(1.1920929e-7)


def affine_map(pt):
    x0, y0, x1, y1, x2, y2 = pt[:6]
    D = x2 * (y1 - y0) + x0 * (y2 - y1) + x1 * (y0 - y2) + EPS
    f = np.zeros(9, f32)
    for r in range(2):
        u0, u1, u2 = pt[8 + r], pt[10 + r], pt[12 + r]
        f[3 * r] = (y2 * (u0 - u1) + y0 * (u1 - u2) + y1 * (u2 - u0)) / D
        f[3 * r + 1] = (x2 * (u1 - u0) + x0 * (u2 - u1) + x1 * (u0 - u2)) / D
        f[3 * r + 2] = (x2 * (y1 * u0 - y0 * u1) + x0 * (y2 * u1 - y1 * u2) + x1 * (y0 * u2 - y2 * u0)) / D
    f[8] = 1
    a, b, c, d, e, ff = f[:6]
    det = a * e - b * d + EPS
    inv = np.array([e / det, -b / det, (b * ff - c * e) / det, -d / det, a / det, (c * d - a * ff) / det, 0, 0, 1], f32)
    return f, inv


def square_to_quad(q):
    x0, y0, x1, y1, x2, y2, x3, y3 = q
    dx1, dx2, dy1, dy2 = x1 - x2, x3 - x2, y1 - y2, y3 - y2
    sx, sy = x0 - x1 + x2 - x3, y0 - y1 + y2 - y3
    den = dx1 * dy2 - dx2 * dy1 + EPS
    g, h = (sx * dy2 - dx2 * sy) / den, (dx1 * sy - sx * dy1) / den
    return np.array([x1 - x0 + g * x1, x3 - x0 + h * x3, x0, y1 - y0 + g * y1, y3 - y0 + h * y3, y0, g, h, 1], f32)


def invert3(m):
    c0, c1, c2 = m[4] * m[8] - m[5] * m[7], m[5] * m[6] - m[3] * m[8], m[3] * m[7] - m[4] * m[6]
    det = m[0] * c0 + m[1] * c1 + m[2] * c2
    adj = [c0, m[2] * m[7] - m[1] * m[8], m[1] * m[5] - m[2] * m[4], c1, m[0] * m[8] - m[2] * m[6],
           m[2] * m[3] - m[0] * m[5], c2, m[1] * m[6] - m[0] * m[7], m[0] * m[4] - m[1] * m[3]]
    return np.array([v / det for v in adj], f32)


def multiply3(a, b):
    return np.array([a[3 * r] * b[c] + a[3 * r + 1] * b[3 + c] + a[3 * r + 2] * b[6 + c]
                     for r in range(3) for c in range(3)], f32)


def perspective_map(pt):
    fwd = multiply3(square_to_quad(pt[8:]), invert3(square_to_quad(pt[:8])))
    return fwd, invert3(fwd)


def warp(src, dw, dh, inv, perspective, bilinear, border):
    sh, sw, _ = src.shape
    img = src.astype(f32)
    fx = np.arange(dw, dtype=f32)[None, :].repeat(dh, 0)
    fy = np.arange(dh, dtype=f32)[:, None].repeat(dw, 1)
    i = inv
    if perspective:
        rw = f32(1) / ((i[6] * fx + i[7] * fy) + i[8])
        xs, ys = ((i[0] * fx + i[1] * fy) + i[2]) * rw, ((i[3] * fx + i[4] * fy) + i[5]) * rw
    else:
        xs, ys = (i[0] * fx + i[1] * fy) + i[2], (i[3] * fx + i[4] * fy) + i[5]
    out = np.full((dh, dw, 3), 77, np.uint8)  # what the test puts in the destination first
    with np.errstate(invalid="ignore"):
        if bilinear:
            if perspective:
                inside = (xs >= 0) & (ys >= 0) & (xs < sw - 1) & (ys < sh - 1)
            else:
                inside = (xs > -1) & (ys > -1) & (xs < sw - 1) & (ys < sh - 1)
            X = np.where(inside, np.trunc(xs), 0).astype(np.int64)
            Y = np.where(inside, np.trunc(ys), 0).astype(np.int64)
            wx = (xs - X.astype(f32))[:, :, None]
            wy = (ys - Y.astype(f32))[:, :, None]
            ax, ay = f32(1) - wx, f32(1) - wy
            top = ax * img[Y, X] + wx * img[Y, X + 1]
            bottom = ax * img[Y + 1, X] + wx * img[Y + 1, X + 1]
            v = ay * top + wy * bottom
            v = np.rint(v) if perspective else np.trunc(v + f32(0.5))
            val = np.clip(v, 0, 255).astype(np.uint8)
        else:
            if perspective:
                xr, yr = np.rint(xs), np.rint(ys)
                inside = (xr >= 0) & (yr >= 0) & (xr < sw) & (yr < sh)
            else:
                xr, yr = xs + f32(0.5), ys + f32(0.5)
                inside = (xr > -1) & (yr > -1) & (xr < sw) & (yr < sh)
            X = np.where(inside, np.trunc(xr), 0).astype(np.int64)
            Y = np.where(inside, np.trunc(yr), 0).astype(np.int64)
            val = src[Y, X]
    out[inside] = val[inside]
    if perspective or border == 0:
        out[~inside] = 0
    return out


WARP_POINTS = [
    # affine: a rotation with shear and a shift
    (0, [3, 4, 40, 6, 12, 30, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0], [5, 10, 44, 2, 20, 36, 0, 0]),
    (0, [0, 0, 44, 0, 0, 34, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0], [-6, 4, 50, -3, 4, 40, 0, 0]),
    # perspective: a document-like quadrilateral onto the rectangle and back
    (1, [4, 3, 40, 6, 38, 31, 2, 28], [0, 0, 47, 0, 47, 35, 0, 35]),
    (1, [0, 0, 44, 0, 44, 34, 0, 34], [6, 2, 41, 8, 36, 30, 3, 27]),
]


# ---- deformation ----

def fast_exp(t):
    t = np.maximum(f32(t), f32(-40))
    k = np.trunc(t * f32(1.442695)).astype(np.int32)
    f = t - f32(0.6931472) * k.astype(f32)
    g = f * f
    P = f * f32(1.0000001) + f32(1) + g * (f * f32(0.1666657) + f32(0.5000006)) + \
        g * g * (f * f32(0.008336937) + f32(0.04165989) + g * (f * f32(0.00019578093) + f32(0.0014122663)))
    P = np.asarray(P, f32)
    return ((P.view(np.uint32) + (k.astype(np.uint32) << np.uint32(23))).astype(np.uint32)).view(f32)


def deform(inp, q, p, lam, sigma):
    n = len(p)
    a = f32(1) / (f32(sigma) * f32(sigma))
    d = (q - p).astype(f32)
    K = np.zeros((n, n), f32)
    for i in range(n):
        for j in range(n):
            dx, dy = p[j, 0] - p[i, 0], p[j, 1] - p[i, 1]
            K[i, j] = fast_exp(-a * (dx * dx + dy * dy))
        K[i, i] += f32(lam)
    rd = np.zeros(n, f32)
    w = d.copy()
    ok = True
    for i in range(n):
        for j in range(i):
            s = K[i, j]
            for m in range(j):
                s = f32(s - K[i, m] * K[j, m])
            K[i, j] = s * rd[j]
        s = K[i, i]
        for m in range(i):
            s = f32(s - K[i, m] * K[i, m])
        if s < f32(1.1920929e-7):
            ok = False
            break
        rd[i] = f32(1) / f32(math.sqrt(float(s)))
    if ok:
        z = np.zeros((n, 2), f32)
        for i in range(n):
            for c in range(2):
                s = d[i, c]
                for m in range(i):
                    s = f32(s - K[i, m] * z[m, c])
                z[i, c] = s * rd[i]
        for i in range(n - 1, -1, -1):
            for c in range(2):
                s = z[i, c]
                for m in range(i + 1, n):
                    s = f32(s - K[m, i] * w[m, c])
                w[i, c] = s * rd[i]
    rows, cols, _ = inp.shape
    x0, y = inp[:, :, 0], inp[:, :, 1]
    x = np.minimum(x0, f32(1))
    dx = np.zeros_like(x)
    dy = np.zeros_like(x)
    for i in range(n):
        ex, ey = x - p[i, 0], y - p[i, 1]
        k = fast_exp(-a * (ex * ex + ey * ey))
        dx = dx + k * w[i, 0]
        dy = dy + k * w[i, 1]
    out = np.stack([np.clip(x + dx, 0, 1), np.clip(y + dy, 0, 1)], axis=2).astype(f32)
    out[:, [0, cols - 1], 0] = x0[:, [0, cols - 1]]
    out[[0, rows - 1], :, 1] = y[[0, rows - 1], :]
    return out


# ---- planar pose ----

def planar_scene(n, noise, K):
    while True:
        rvec = rng.normal(size=3)
        rvec *= rng.uniform(0.05, 1.2) / np.linalg.norm(rvec)
        tvec = np.array([rng.uniform(-0.3, 0.3), rng.uniform(-0.3, 0.3), rng.uniform(2.0, 6.0)])
        obj = np.zeros((n, 3))
        obj[:, :2] = rng.uniform(-0.5, 0.5, (n, 2))
        if n == 4:  # a square marker
            obj[:, :2] = [[-0.5, 0.5], [0.5, 0.5], [0.5, -0.5], [-0.5, -0.5]]
        R, _ = cv2.Rodrigues(rvec)
        cam = obj @ R.T + tvec
        if np.all(cam[:, 2] > 0.5) and (cam[:, 2].max() / cam[:, 2].min()) < 3:
            break
    img = (cam[:, :2] / cam[:, 2:]) * [K[0, 0], K[1, 1]] + [K[0, 2], K[1, 2]]
    if noise > 0:
        img = img + rng.normal(scale=noise, size=img.shape)
    ok, r_cv, t_cv = cv2.solvePnP(obj, img, K, None, flags=cv2.SOLVEPNP_IPPE)
    assert ok
    # Some scenes: the plane is tilted out of z = 0 (any rigid placement must work).
    return obj, img, rvec, tvec, r_cv.ravel(), t_cv.ravel()


def main():
    OUT.mkdir(parents=True, exist_ok=True)
    bgr = rng.randint(0, 256, (35, 45, 3)).astype(np.uint8)
    grey = rng.randint(0, 256, (35, 45)).astype(np.uint8)
    save("src_bgr_45x35.raw", bgr)
    save("src_gray_45x35.raw", grey)
    save("quarter_bgr.raw", *quarter_turns(bgr))
    save("quarter_gray.raw", *quarter_turns(grey))
    save("crop_bgr.raw", *crops(bgr))
    save("crop_gray.raw", *crops(grey))

    # Smooth source for the comparison with OpenCV (random noise makes every
    # rounding difference visible); the bit-exact checks use the random one.
    yy, xx = np.mgrid[0:35, 0:45]
    smooth = np.stack([(128 + 100 * np.sin(xx / 5.0 + k) * np.cos(yy / 7.0 - k)) for k in range(3)], 2)
    smooth = smooth.astype(np.uint8)
    save("src_smooth_45x35.raw", smooth)
    yuv_y = rng.randint(0, 256, (36, 44)).astype(np.uint8)
    yuv_u = rng.randint(0, 256, (18, 22)).astype(np.uint8)
    yuv_v = rng.randint(0, 256, (18, 22)).astype(np.uint8)
    save("src_yuv_44x36.raw", yuv_y, yuv_u, yuv_v)
    rot_bilinear, rot_nearest, rot_cv, rot_yuv = [], [], [], []
    with open(OUT / "rotation_cases.txt", "w") as f:
        for (deg, cx, cy, scx, scy, dw, dh) in ROTATIONS:
            f.write(f"{deg} {cx!r} {cy!r} {scx!r} {scy!r} {dw} {dh}\n")
            m = mapping(dw, dh, scx, scy, deg, cx, cy)
            rot_bilinear += [rotate_bilinear(bgr, dw, dh, m, 0), rotate_bilinear(grey, dw, dh, m, 0)]
            rot_nearest += [rotate_nearest_c3(bgr, dw, dh, m), rotate_nearest_c1(grey, dw, dh, m, 0)]
            M = inverse_affine(m, dw, dh)
            rot_cv.append(cv2.warpAffine(smooth, M, (dw, dh), flags=cv2.INTER_LINEAR | cv2.WARP_INVERSE_MAP,
                                         borderMode=cv2.BORDER_CONSTANT, borderValue=0))
            mc = mapping(dw >> 1, dh >> 1, scx, scy, deg, f32(cx) * f32(0.5), f32(cy) * f32(0.5))
            mn = mapping(dw, dh, scx, scy, deg, cx, cy)
            rot_yuv += [rotate_bilinear(yuv_y, dw, dh, mn, 16), rotate_bilinear(yuv_u, dw >> 1, dh >> 1, mc, 128),
                        rotate_bilinear(yuv_v, dw >> 1, dh >> 1, mc, 128), rotate_nearest_c1(yuv_y, dw, dh, mn, 16),
                        rotate_nearest_c1(yuv_u, dw >> 1, dh >> 1, mc, 128),
                        rotate_nearest_c1(yuv_v, dw >> 1, dh >> 1, mc, 128)]
    save("rotation_bilinear.raw", *rot_bilinear)
    save("rotation_nearest.raw", *rot_nearest)
    save("rotation_cv_smooth.raw", *rot_cv)
    save("rotation_yuv.raw", *rot_yuv)

    maps, warps, warps_cv = [], [], []
    dw, dh = 48, 36
    for mode, src_pts, dst_pts in WARP_POINTS:
        pts = np.array(src_pts[:8] + dst_pts, f32)
        fwd, inv = (affine_map if mode == 0 else perspective_map)(pts)
        maps += [fwd, inv]
        for method in (0, 1):
            for border in (0, 1):
                warps.append(warp(bgr, dw, dh, inv, mode == 1, method == 1, border))
        F = fwd.astype(np.float64).reshape(3, 3)
        if mode == 0:
            warps_cv.append(cv2.warpAffine(smooth, F[:2], (dw, dh), flags=cv2.INTER_LINEAR))
        else:
            warps_cv.append(cv2.warpPerspective(smooth, F, (dw, dh), flags=cv2.INTER_LINEAR))
    save("warp_maps.raw", *maps)
    save("warp_model.raw", *warps)
    save("warp_cv_smooth.raw", *warps_cv)

    # Homography: one case a line: n, noise, source x y ..., destination x y ..., OpenCV's H.
    with open(OUT / "homography_cases.txt", "w") as f:
        for n, noise in [(4, 0), (5, 0), (10, 0), (100, 0), (8, 0.5), (20, 1.0), (50, 1.0), (100, 2.0), (30, 0.3)]:
            H = np.array([[1.1, 0.2, 30], [-0.15, 0.9, 12], [3e-4, -2e-4, 1.0]])
            H[:2] += rng.normal(scale=0.05, size=(2, 3)) * [1, 1, 10]
            src = rng.uniform(0, 640, (n, 2))
            p = np.c_[src, np.ones(n)] @ H.T
            dst = p[:, :2] / p[:, 2:]
            if noise:
                dst = dst + rng.normal(scale=noise, size=dst.shape)
            Hcv, _ = cv2.findHomography(src, dst, 0)
            f.write(f"{n} {noise} {fmt(src)} {fmt(dst)} {fmt(Hcv)}\n")

    # Deformation: 33 x 25 identity map, control points and targets; model output.
    rows, cols = 25, 33
    ident = np.stack(np.meshgrid(np.linspace(0, 1, cols, dtype=f32), np.linspace(0, 1, rows, dtype=f32)), 2)
    ident = ident.astype(f32)
    cases = [(np.array([[0.3, 0.4], [0.7, 0.35], [0.5, 0.7], [0.45, 0.5], [0.2, 0.8]], f32), 0.001, 0.25),
             (np.array([[0.5, 0.5]], f32), 0.0, 0.2),
             (np.array([[0.3, 0.3], [0.3, 0.3], [0.6, 0.6]], f32), 0.0, 0.3)]  # a repeated point: the pivot test
    out = [ident]
    with open(OUT / "deformation_cases.txt", "w") as f:
        for p, lam, sigma in cases:
            q = (p + rng.uniform(-0.06, 0.06, p.shape)).astype(f32)
            f.write(f"{len(p)} {lam!r} {sigma!r} {fmt(p)} {fmt(q)}\n")
            out.append(deform(ident, q, p, lam, sigma))
    save("deformation_maps.raw", *out)

    # Planar pose: n noise fx fy cx cy, true r t, IPPE r t, object points, image points.
    K = np.array([[800.0, 0, 320], [0, 780.0, 240], [0, 0, 1]])
    with open(OUT / "planar_scenes.txt", "w") as f:
        for n in (4, 6, 10, 30, 100):
            for noise in (0.0, 0.5, 1.0, 2.0):
                for _ in range(6):
                    obj, img, r, t, rcv, tcv = planar_scene(n, noise, K)
                    f.write(f"{n} {noise} 800 780 320 240 {fmt(r)} {fmt(t)} {fmt(rcv)} {fmt(tcv)} {fmt(obj)} "
                            f"{fmt(img)}\n")


if __name__ == "__main__":
    main()
