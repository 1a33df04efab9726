#!/usr/bin/python3
"""Reference data of the image and detector tests, from independent oracles.

Run from the repository root with Debian's python3 (NumPy, OpenCV) and ImageMagick:
    /usr/bin/python3 tests/oracles/gen_image_refs.py [path/to/liborucore.so]

* BMP files written by OpenCV and ImageMagick, with the pixels OpenCV and ImageMagick
  read back from them (the two must agree before anything is stored).
* With the library given: BMP files the library writes, kept only after OpenCV and
  ImageMagick read back exactly the pixels that went in.
* Colour conversions and resizers: a NumPy model of the integer formulas (the resizer
  model lives in resize_model.py, shared with face_reference.py; bit-exact
  references) and OpenCV's cvtColor / resize on the same inputs (within 1).
* SSD priors from a NumPy model of the layout, and greedy NMS from a NumPy model and
  from cv2.dnn.NMSBoxes.
"""
import ctypes
import struct
import subprocess
import sys
from pathlib import Path

import cv2
import numpy as np

from resize_model import model_box2, model_fast_bilinear, model_nn, model_sub_image, model_two_stage

ROOT = Path(__file__).resolve().parents[2]
IMG = ROOT / "tests/data/image"
DET = ROOT / "tests/data/detector"
MAGICK = "/usr/bin/convert-im6.q16"  # the real ImageMagick, not a stand-in
rng = np.random.RandomState(20240611)
f32 = np.float32


def save(path, arr):
    path.write_bytes(np.ascontiguousarray(arr).tobytes())


def magick_bgr(path, w, h):
    raw = subprocess.run([MAGICK, str(path), "-depth", "8", "bgr:-"], check=True, capture_output=True).stdout
    return np.frombuffer(raw, np.uint8).reshape(h, w, 3)


def store_tool_file(name, data_bytes, w, h):
    """Stores a tool-written BMP and the pixels both tools read from it."""
    p = IMG / name
    p.write_bytes(data_bytes)
    cv = cv2.imread(str(p), cv2.IMREAD_COLOR)
    im = magick_bgr(p, w, h)
    assert cv is not None and cv.shape == (h, w, 3), name
    assert np.array_equal(cv, im), f"OpenCV and ImageMagick disagree on {name}"
    save(IMG / (name[:-4] + ".bgr"), cv)
    return cv


def tool_files():
    src = rng.randint(0, 256, (5, 7, 3)).astype(np.uint8)
    tmp = IMG / "_src.png"
    cv2.imwrite(str(tmp), src)

    def magick(args, name):
        out = IMG / name
        subprocess.run([MAGICK, str(tmp)] + args[:-1] + [args[-1] + str(out)], check=True)
        return out.read_bytes()

    pal = store_tool_file("im_pal8.bmp", magick(["-type", "Palette", "-compress", "None", "BMP3:"], "im_pal8.bmp"), 7, 5)
    assert np.array_equal(pal, src)
    store_tool_file("im_core24.bmp", magick(["BMP2:"], "im_core24.bmp"), 7, 5)
    store_tool_file("im_corepal8.bmp", magick(["-type", "Palette", "BMP2:"], "im_corepal8.bmp"), 7, 5)
    store_tool_file("im_gray8.bmp", magick(["-colorspace", "Gray", "-type", "Palette", "-compress", "None", "BMP3:"], "im_gray8.bmp"), 7, 5)
    # Refused by the reader: RLE8 and 32-bit bit fields; only the files are kept.
    magick(["-type", "Palette", "-compress", "RLE", "BMP3:"], "im_rle8.bmp")
    magick(["-alpha", "set", "BMP:"], "im_b32.bmp")
    tmp.unlink()

    bgr = rng.randint(0, 256, (6, 9, 3)).astype(np.uint8)
    ok, enc = cv2.imencode(".bmp", bgr)
    store_tool_file("cv_bgr24.bmp", enc.tobytes(), 9, 6)
    grey = rng.randint(0, 256, (6, 9)).astype(np.uint8)
    ok, enc = cv2.imencode(".bmp", grey)
    store_tool_file("cv_gray8.bmp", enc.tobytes(), 9, 6)
    # The same 24-bit file turned top-down: negative height, rows in image order.
    d = bytearray(enc_bgr := cv2.imencode(".bmp", bgr)[1].tobytes())
    off = struct.unpack_from("<I", d, 10)[0]
    row = (9 * 3 + 3) & ~3
    rows = [d[off + i * row: off + (i + 1) * row] for i in range(6)]
    d[off:] = b"".join(reversed(rows))
    struct.pack_into("<i", d, 22, -6)
    assert len(enc_bgr) == len(d)
    store_tool_file("cv_topdown24.bmp", bytes(d), 9, 6)


def library_files(lib_path):
    lib = ctypes.CDLL(lib_path)
    lib.oru_create_image.restype = ctypes.c_void_p
    lib.oru_create_image.argtypes = [ctypes.c_int32, ctypes.c_int32, ctypes.c_uint32]
    lib.oru_image_write_to_file_with_level.argtypes = [ctypes.c_char_p, ctypes.c_void_p]
    lib.oru_release_matrix.argtypes = [ctypes.POINTER(ctypes.c_void_p)]

    class Image(ctypes.Structure):
        _fields_ = [("kind", ctypes.c_uint32), ("type", ctypes.c_uint32), ("data", ctypes.c_void_p),
                    ("plane1", ctypes.c_void_p), ("plane2", ctypes.c_void_p), ("rows", ctypes.c_int32),
                    ("cols", ctypes.c_int32), ("depth", ctypes.c_int32), ("stride", ctypes.c_int64)]

    # Inputs are the same seeded pixels the C++ test makes (see image_bmp_test.cpp).
    for name, fmt, w, h in [("lib_bgr24.bmp", 0, 7, 3), ("lib_gray8.bmp", 2, 5, 2)]:
        ch = 3 if fmt == 0 else 1
        pixels = (np.arange(h * w * ch, dtype=np.uint32) * 37 + 11) % 256
        pixels = pixels.astype(np.uint8).reshape(h, w, ch)
        im = lib.oru_create_image(w, h, fmt)
        rec = Image.from_address(im)
        for y in range(h):
            ctypes.memmove(rec.data + y * rec.stride, pixels[y].tobytes(), w * ch)
        out = IMG / name
        assert lib.oru_image_write_to_file_with_level(str(out).encode(), im) == 0
        p = ctypes.c_void_p(im)
        lib.oru_release_matrix(ctypes.byref(p))
        cv = cv2.imread(str(out), cv2.IMREAD_UNCHANGED)
        cv = cv if cv.ndim == 3 else cv[:, :, None]
        assert np.array_equal(cv, pixels), f"OpenCV reads {name} differently"
        im_pix = magick_bgr(out, w, h)
        assert np.array_equal(im_pix, np.repeat(pixels, 3 // ch, axis=2)), f"ImageMagick reads {name} differently"


# ---- Colour conversion model -------------------------------------------------------------

def clamp(v):
    return np.clip(v, 0, 255).astype(np.uint8)


def model_gray(bgr):
    b, g, r = (bgr[..., k].astype(np.int64) for k in range(3))
    return ((1868 * b + 9617 * g + 4899 * r + 8192) >> 14).astype(np.uint8)


def model_yuv420(bgr):
    h, w, _ = bgr.shape
    eh, ew = h & ~1, w & ~1
    p = bgr.astype(np.int64)
    Y = np.zeros((h, w), np.uint8)
    U = np.zeros(((h + 1) // 2, (w + 1) // 2), np.uint8)
    V = np.zeros_like(U)
    b, g, r = p[..., 0], p[..., 1], p[..., 2]
    Y[:eh, :ew] = ((3211 * b + 16515 * g + 8421 * r + 16384) >> 15)[:eh, :ew] + 16
    blk = lambda c: (c[0:eh:2, 0:ew:2] + c[0:eh:2, 1:ew:2] + c[1:eh:2, 0:ew:2] + c[1:eh:2, 1:ew:2] + 2) >> 2
    ba, ga, ra = blk(b), blk(g), blk(r)
    U[:eh // 2, :ew // 2] = (((14385 * ba - 9535 * ga - 4850 * ra + 16384) >> 15) ^ 128) & 255
    V[:eh // 2, :ew // 2] = (((-2327 * ba - 12059 * ga + 14385 * ra + 16384) >> 15) ^ 128) & 255
    if w & 1:
        Y[:eh, w - 1] = Y[:eh, w - 2]
        U[:eh // 2, -1] = U[:eh // 2, -2]
        V[:eh // 2, -1] = V[:eh // 2, -2]
    if h & 1:
        Y[h - 1] = Y[h - 2]
        U[-1] = U[-2]
        V[-1] = V[-2]
    return Y, U, V


def model_yuv420_to_bgr(Y, U, V):
    h, w = Y.shape
    eh, ew = h & ~1, w & ~1
    y = 9535 * Y.astype(np.int64) - 152560
    u = np.repeat(np.repeat(U.astype(np.int64) - 128, 2, 0), 2, 1)[:h, :w]
    v = np.repeat(np.repeat(V.astype(np.int64) - 128, 2, 0), 2, 1)[:h, :w]
    out = np.zeros((h, w, 3), np.uint8)
    out[..., 0] = clamp((y + 16531 * u + 4096) >> 13)
    out[..., 1] = clamp((y - 3203 * u - 6660 * v + 4096) >> 13)
    out[..., 2] = clamp((y + 13074 * v + 4096) >> 13)
    if w & 1:
        out[:eh, w - 1] = out[:eh, w - 2]
    if h & 1:
        out[h - 1] = out[h - 2]
    return out


def q15(a, k):
    return np.clip((a.astype(np.int64) * k + 16384) >> 15, -32768, 32767)


def model_yuv420_arm(bgr):
    """Code 8 on Arm: whole runs of 8 columns round each product by itself."""
    Y, U, V = model_yuv420(bgr)
    h, w, _ = bgr.shape
    eh, ew = h & ~1, w & ~1
    run = ew & ~7 if ew >= 8 else 0
    if run and eh >= 2:
        p = bgr[:eh, :run].astype(np.int64)
        b, g, r = p[..., 0], p[..., 1], p[..., 2]
        Y[:eh, :run] = clamp(q15(b, 3211) + q15(g, 16515) + q15(r, 8421) + 16)
        blk = lambda c: (c[0::2, 0::2] + c[0::2, 1::2] + c[1::2, 0::2] + c[1::2, 1::2] + 2) >> 2
        ba, ga, ra = blk(b), blk(g), blk(r)
        U[:eh // 2, :run // 2] = clamp(q15(ba, 14385) + q15(ga, -9535) + q15(ra, -4850) + 128)
        V[:eh // 2, :run // 2] = clamp(q15(ba, -2327) + q15(ga, -12059) + q15(ra, 14385) + 128)
        if w & 1:
            Y[:eh, w - 1] = Y[:eh, w - 2]
            U[:eh // 2, -1] = U[:eh // 2, -2]
            V[:eh // 2, -1] = V[:eh // 2, -2]
        if h & 1:
            Y[h - 1] = Y[h - 2]
            U[-1] = U[-2]
            V[-1] = V[-2]
    return Y, U, V


def model_yuv420_to_bgr_arm(Y, U, V):
    """Code 9 on Arm: whole runs of 16 columns round each product by itself."""
    out = model_yuv420_to_bgr(Y, U, V)
    h, w = Y.shape
    eh, ew = h & ~1, w & ~1
    run = ew & ~15 if ew >= 16 else 0
    if run:
        yq = 4 * (Y[:eh, :run].astype(np.int64) - 16)
        uq = 4 * (np.repeat(np.repeat(U.astype(np.int64) - 128, 2, 0), 2, 1)[:eh, :run])
        vq = 4 * (np.repeat(np.repeat(V.astype(np.int64) - 128, 2, 0), 2, 1)[:eh, :run])
        py = q15(yq, 9535)
        out[:eh, :run, 0] = clamp(py + q15(uq, 16531))
        out[:eh, :run, 1] = clamp(py + q15(uq, -3203) + q15(vq, -6660))
        out[:eh, :run, 2] = clamp(py + q15(vq, 13074))
        if w & 1:
            out[:eh, w - 1] = out[:eh, w - 2]
        if h & 1:
            out[h - 1] = out[h - 2]
    return out


def model_yuv444(bgr):
    b, g, r = (bgr[..., k].astype(np.int64) for k in range(3))
    Y = ((3211 * b + 16515 * g + 8421 * r + 16384) >> 15) + 16
    U = (((14385 * b - 9535 * g - 4849 * r + 16384) >> 15) ^ 128) & 255
    V = (((-2326 * b - 12058 * g + 14385 * r + 16384) >> 15) ^ 128) & 255
    return np.stack([Y, U, V]).astype(np.uint8)


def model_yuv444_to_bgr(planes):
    y = 9535 * planes[0].astype(np.int64) - 148464
    u = planes[1].astype(np.int64) - 128
    v = planes[2].astype(np.int64) - 128
    return np.stack([clamp((y + 16515 * u) >> 13), clamp((y - 3211 * u - 6651 * v) >> 13),
                     clamp((y + 13074 * v) >> 13)], axis=-1)


def model_lab(bgr):
    """BGR to Lab with tables from the exact cube root and sRGB curve."""
    x = (np.arange(256, dtype=f32) * f32(0.003921569)).astype(np.float64)
    gamma = np.where(x <= 0.04045, x * 0.07739938, ((x + 0.055) * 0.9478672985781991) ** 2.4)
    gamma_tab = np.rint(gamma * 2040).astype(np.int64)
    t = np.arange(3072, dtype=f32) * f32(0.0004901961)
    f = np.where(t < f32(0.008856), f32(7.787) * t + f32(0.13793103), np.cbrt(t.astype(np.float64)).astype(f32))
    cbrt_tab = np.rint(f.astype(f32) * f32(32768)).astype(np.int64)
    b, g, r = (gamma_tab[bgr[..., k]] for k in range(3))
    fX = cbrt_tab[(778 * b + 1541 * g + 1777 * r + 2048) >> 12]
    fY = cbrt_tab[(296 * b + 2929 * g + 871 * r + 2048) >> 12]
    fZ = cbrt_tab[(3575 * b + 448 * g + 73 * r + 2048) >> 12]
    return np.stack([clamp((296 * fY - 1320550) >> 15), clamp((500 * (fX - fY) + 0x404000) >> 15),
                     clamp((200 * (fY - fZ) + 0x404000) >> 15)], axis=-1)


def colour_refs():
    for w, h in [(36, 22), (37, 23)]:
        tag = f"{w}x{h}"
        bgr = rng.randint(0, 256, (h, w, 3)).astype(np.uint8)
        save(IMG / f"conv_src_{tag}.bgr", bgr)
        save(IMG / f"conv_gray_{tag}.raw", model_gray(bgr))
        Y, U, V = model_yuv420(bgr)
        save(IMG / f"conv_yuv420_{tag}.raw", np.concatenate([Y.ravel(), U.ravel(), V.ravel()]))
        y2 = rng.randint(0, 256, (h, w)).astype(np.uint8)
        u2 = rng.randint(0, 256, ((h + 1) // 2, (w + 1) // 2)).astype(np.uint8)
        v2 = rng.randint(0, 256, ((h + 1) // 2, (w + 1) // 2)).astype(np.uint8)
        save(IMG / f"conv_yuvsrc_{tag}.raw", np.concatenate([y2.ravel(), u2.ravel(), v2.ravel()]))
        save(IMG / f"conv_yuv2bgr_{tag}.raw", model_yuv420_to_bgr(y2, u2, v2))
        Ya, Ua, Va = model_yuv420_arm(bgr)
        save(IMG / f"conv_yuv420_arm_{tag}.raw", np.concatenate([Ya.ravel(), Ua.ravel(), Va.ravel()]))
        save(IMG / f"conv_yuv2bgr_arm_{tag}.raw", model_yuv420_to_bgr_arm(y2, u2, v2))
        p444 = model_yuv444(bgr)
        save(IMG / f"conv_yuv444_{tag}.raw", p444)
        save(IMG / f"conv_yuv444bgr_{tag}.raw", model_yuv444_to_bgr(p444))
        save(IMG / f"conv_lab_{tag}.raw", model_lab(bgr))
        # OpenCV of the same families, for the within-one comparisons.
        save(IMG / f"cv_gray_{tag}.raw", cv2.cvtColor(bgr, cv2.COLOR_BGR2GRAY))
        save(IMG / f"cv_lab_{tag}.raw", cv2.cvtColor(bgr, cv2.COLOR_BGR2Lab))
        save(IMG / f"cv_lab2bgr_{tag}.raw", cv2.cvtColor(model_lab(bgr), cv2.COLOR_Lab2BGR))
        if w % 2 == 0 and h % 2 == 0:
            i420 = np.concatenate([y2.ravel(), u2.ravel(), v2.ravel()]).reshape(h * 3 // 2, w)
            save(IMG / f"cv_i420bgr_{tag}.raw", cv2.cvtColor(i420, cv2.COLOR_YUV2BGR_I420))


def resize_refs():
    bgr = rng.randint(0, 256, (29, 37, 3)).astype(np.uint8)
    grey = rng.randint(0, 256, (29, 37)).astype(np.uint8)
    small = rng.randint(0, 256, (9, 13, 3)).astype(np.uint8)
    small_g = rng.randint(0, 256, (9, 13)).astype(np.uint8)
    even = rng.randint(0, 256, (30, 38, 3)).astype(np.uint8)
    even_g = rng.randint(0, 256, (30, 38)).astype(np.uint8)
    for name, a in [("bgr_37x29", bgr), ("gray_37x29", grey), ("bgr_13x9", small), ("gray_13x9", small_g),
                    ("bgr_38x30", even), ("gray_38x30", even_g)]:
        save(IMG / f"rs_src_{name}.raw", a)
    refs = {
        "lin_bgr_23x17": model_two_stage(bgr, 23, 17),
        "lin_bgr_51x29": model_two_stage(bgr, 51, 29),
        "lin_gray_23x17": model_two_stage(grey, 23, 17),
        "lin_gray_23x29": model_two_stage(grey, 23, 29),
        "fast_bgr_29x21": model_fast_bilinear(small, 29, 21),
        "fast_gray_29x21": model_fast_bilinear(small_g, 29, 21),
        "fast_bgr_7x21": model_fast_bilinear(small, 7, 21),
        "nn_bgr_23x40": model_nn(bgr, 23, 40),
        "nn_gray_50x11": model_nn(grey, 50, 11),
        "box_bgr_19x15": model_box2(even),
        "box_gray_19x15": model_box2(even_g),
        "crop_bgr_20x12": model_sub_image(bgr, 20, 12, 30, 16, 3, 25, True),
        "crop_gray_20x12": model_sub_image(grey, 20, 12, 30, 16, 34, 2, False),
    }
    for k, v in refs.items():
        save(IMG / f"rs_{k}.raw", v)
    cv = {
        "cvlin_bgr_23x17": cv2.resize(bgr, (23, 17), interpolation=cv2.INTER_LINEAR),
        "cvlin_gray_23x17": cv2.resize(grey, (23, 17), interpolation=cv2.INTER_LINEAR),
        "cvlin_bgr_29x21": cv2.resize(small, (29, 21), interpolation=cv2.INTER_LINEAR),
        "cvnn_bgr_23x40": cv2.resize(bgr, (23, 40), interpolation=cv2.INTER_NEAREST),
        "cvbox_bgr_19x15": cv2.resize(even, (19, 15), interpolation=cv2.INTER_AREA),
    }
    # Float growth (depth 1 of the growth scheme) is plain float bilinear with edge clamping.
    small_f = rng.uniform(-1, 1, (9, 13, 3)).astype(np.float32)
    save(IMG / "rs_src_f32_13x9.raw", small_f)
    cv["cvlin_f32_29x21"] = cv2.resize(small_f, (29, 21), interpolation=cv2.INTER_LINEAR)
    for k, v in cv.items():
        save(IMG / f"rs_{k}.raw", v)


# ---- Detector output -----------------------------------------------------------------------

SIZES = {(120, 160): ([20, 10, 5, 3], [15, 8, 4, 2]), (180, 240): ([30, 15, 8, 4], [23, 12, 6, 3]),
         (240, 320): ([40, 20, 10, 5], [30, 15, 8, 4]), (360, 480): ([60, 30, 15, 8], [45, 23, 12, 6]),
         (480, 640): ([80, 40, 20, 10], [60, 30, 15, 8]), (960, 1280): ([160, 80, 40, 20], [120, 60, 30, 15])}
BOXES = [[10, 16, 24], [32, 48], [64, 96], [128, 192, 256]]


def model_priors(height, width, swapped):
    mw, mh = SIZES.get((height, width), ([16, 8, 4, 2], [12, 6, 3, 2]))
    W, H = (f32(height), f32(width)) if swapped else (f32(width), f32(height))
    out = []
    for i in range(4):
        sw, sh = f32(width) / f32(mw[i]), f32(height) / f32(mh[i])
        cols, rows = (mh[i], mw[i]) if swapped else (mw[i], mh[i])
        sx, sy = W / sw, H / sh
        j, k, m = np.meshgrid(np.arange(rows, dtype=f32), np.arange(cols, dtype=f32),
                              np.array(BOXES[i], dtype=f32), indexing="ij")
        x = (k + f32(0.5)) / sx
        y = (j + f32(0.5)) / sy
        out.append(np.stack([x, y, m / W, m / H], axis=-1).reshape(-1, 4))
    return np.clip(np.concatenate(out), 0, 1).astype(f32)


def detector_refs():
    cases = [(h, w, s) for (h, w) in list(SIZES) + [(100, 100), (96, 128)] for s in (0, 1)]
    with open(DET / "priors_index.txt", "w") as idx:
        for h, w, s in cases:
            p = model_priors(h, w, s)
            # About 300 priors evenly spread and the last one keep the file small; the count is exact.
            step = max(1, len(p) // 300)
            pick = np.unique(np.concatenate([np.arange(0, len(p), step), [len(p) - 1]]))
            save(DET / f"priors_{h}x{w}_{s}.f32", p[pick])
            idx.write(f"{h} {w} {s} {len(p)} {len(pick)} {step}\n")

    # NMS: random boxes with many equal scores; greedy model with the earlier box first among ties.
    def iou(a, b):
        iw = max(0.0, min(a[2], b[2]) - max(a[0], b[0]))
        ih = max(0.0, min(a[3], b[3]) - max(a[1], b[1]))
        inter = f32(f32(iw) * f32(ih))
        area = lambda r: f32(max(f32(0), r[2] - r[0]) * max(f32(0), r[3] - r[1]))
        return f32(inter / f32(f32(f32(area(a) + area(b)) - inter) + f32(1e-5)))

    def greedy(boxes, thr):
        order = sorted(range(len(boxes)), key=lambda i: (-boxes[i][4], i))
        keep = []
        rest = order
        while rest:
            i = rest[0]
            keep.append(i)
            rest = [j for j in rest[1:] if iou(boxes[i], boxes[j]) <= f32(thr)]
        return keep

    with open(DET / "nms_index.txt", "w") as idx:
        for case, (n, thr) in enumerate([(60, 0.3), (200, 0.5), (500, 0.45), (45, 0.0)]):
            xy = rng.uniform(0, 1, (n, 2)).astype(f32)
            wh = rng.uniform(0.02, 0.3, (n, 2)).astype(f32)
            score = (rng.randint(1, 13, n) / f32(12)).astype(f32)  # few levels: many ties
            boxes = np.concatenate([xy, xy + wh, score[:, None]], axis=1).astype(f32)
            keep = greedy(boxes.tolist(), thr)
            save(DET / f"nms_in_{case}.f32", boxes)
            save(DET / f"nms_keep_{case}.i32", np.array(keep, np.int32))
            rects = [[float(b[0]), float(b[1]), float(b[2] - b[0]), float(b[3] - b[1])] for b in boxes]
            cvk = cv2.dnn.NMSBoxes(rects, score.tolist(), 0.0, thr)
            cvk = np.array(cvk, np.int32).ravel()
            save(DET / f"nms_cv_{case}.i32", cvk)
            idx.write(f"{case} {n} {thr} {len(keep)} {len(cvk)}\n")


def main():
    IMG.mkdir(parents=True, exist_ok=True)
    DET.mkdir(parents=True, exist_ok=True)
    tool_files()
    if len(sys.argv) > 1:
        library_files(sys.argv[1])
    colour_refs()
    resize_refs()
    detector_refs()


if __name__ == "__main__":
    main()
