"""NumPy model of the library's 8-bit resizer workers and of the choice among them,
bit-exact (the image tests compare the library's output with it byte for byte)."""
import numpy as np

f32 = np.float32


def positions(dst, src):
    s = f32(src) / f32(dst)
    f = (np.arange(dst, dtype=f32) + f32(0.5)) * s - f32(0.5)
    i = np.floor(f)
    w = np.floor((f - i) * f32(2048)).astype(np.int64)
    return i.astype(np.int64), w


def clamped_taps(dst, src, three):
    i, w = positions(dst, src)
    w = np.where(i < 0, 0, w)
    i0 = np.maximum(i, 0)
    edge = i0 >= src - 1
    c = np.where(edge, (src - 2 if three and src >= 2 else src - 1), i0)
    return c, np.where(edge, c, i0 + 1), np.where(edge, 0, w)


def lerp(p, q, w):
    return ((p << 11) + (q - p) * w + 1024) >> 11


def model_two_stage(src, dw, dh):
    img = src.astype(np.int64)
    if img.ndim == 2:
        img = img[:, :, None]
    sh, sw, ch = img.shape
    c0, c1, wx = clamped_taps(dw, sw, ch == 3)
    r0, r1, wy = clamped_taps(dh, sh, False)
    hor = lerp(img[:, c0, :], img[:, c1, :], wx[None, :, None])
    out = lerp(hor[r0], hor[r1], wy[:, None, None]).astype(np.uint8)
    return out if src.ndim == 3 else out[:, :, 0]


def model_fast_bilinear(src, dw, dh):
    img = src.astype(np.int64)
    if img.ndim == 2:
        img = img[:, :, None]
    sh, sw, ch = img.shape

    def axis(dst, size, clamp_weights):
        inv = 1.0 / (dst / size)
        f = ((np.arange(dst, dtype=f32) + f32(0.5)).astype(np.float64) * inv - 0.5).astype(f32)
        i = np.floor(f)
        fr = (f - i).astype(f32)
        i = i.astype(np.int64)
        limit = dst
        if clamp_weights:
            neg = i < 0
            fr[neg] = 0
            i[neg] = 0
            hits = np.nonzero(i + 1 >= size)[0]
            limit = int(hits[0]) if len(hits) else dst
            over = i >= size - 1
            fr[over] = 0
            i[over] = size - 1
        a0 = np.rint((f32(1) - fr) * f32(2048)).astype(np.int64)
        a1 = np.rint(fr * f32(2048)).astype(np.int64)
        return i, a0, a1, limit

    sx, a0, a1, xlim = axis(dw, sw, True)
    sy, b0, b1, _ = axis(dh, sh, False)
    nx = np.minimum(sx + 1, sw - 1)
    rows = img
    hor = rows[:, sx, :] * a0[None, :, None] + rows[:, nx, :] * a1[None, :, None]
    hor[:, xlim:, :] = rows[:, sx[xlim:], :] << 11
    ra = np.clip(sy, 0, sh - 1)
    rb = np.clip(sy + 1, 0, sh - 1)
    out = ((hor[ra] * b0[:, None, None] + hor[rb] * b1[:, None, None] + 0x200000) >> 22).astype(np.uint8)
    return out if src.ndim == 3 else out[:, :, 0]


def model_nn(src, dw, dh):
    sh, sw = src.shape[:2]
    cx = np.minimum(np.floor(np.arange(dw, dtype=f32) * (f32(sw) / f32(dw))).astype(np.int64), sw - 1)
    cy = np.minimum(np.floor(np.arange(dh, dtype=f32) * (f32(sh) / f32(dh))).astype(np.int64), sh - 1)
    return src[cy][:, cx]


def model_box2(src):
    s = src.astype(np.int64)
    return ((s[0::2, 0::2] + s[0::2, 1::2] + s[1::2, 0::2] + s[1::2, 1::2] + 2) >> 2).astype(np.uint8)


def model_sub_image(src, dw, dh, bw, bh, cx, cy, bgr_rule):
    img = src.astype(np.int64)
    if img.ndim == 2:
        img = img[:, :, None]
    sh, sw, _ = img.shape
    left, top = cx - (bw >> 1), cy - (bh >> 1)
    i, w = positions(dw, bw)
    limit = sw if bgr_rule else bw
    w = np.where((i < 0) | (i >= limit - 1), 0, w)
    p = i + left
    c0 = np.where(p < 0, 0, np.where(p < sw, p, sw - 1))
    c1 = np.where(p < -1, 0, np.where(p < sw - 1, p + 1, sw - 1))
    ry, _ = positions(dh, bh)
    rows = np.clip(ry + top, 0, sh - 1)
    out = lerp(img[rows][:, c0], img[rows][:, c1], w[None, :, None]).astype(np.uint8)
    return out if src.ndim == 3 else out[:, :, 0]


def model_resize_bilinear(src, dw, dh):
    """The bilinear resize of a one-plane 8-bit image (grey or three channels) as the
    library's whole-image resizer does it: a copy at the same size, the 2 x 2 box at
    exactly half size, the fast scheme when the image grows in height, and otherwise
    the two-stage scheme."""
    sh, sw = src.shape[:2]
    if (sh, sw) == (dh, dw):
        return src.copy()
    if sh == 2 * dh and sw == 2 * dw:
        return model_box2(src)
    if dh > sh:
        return model_fast_bilinear(src, dw, dh)
    return model_two_stage(src, dw, dh)
