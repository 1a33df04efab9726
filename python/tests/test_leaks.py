"""Every record the library allocates goes back: heap in use (glibc's mallinfo2, which
counts the library's blocks too) stays flat over many rounds of each binding."""
import ctypes
import gc
import os

import numpy as np
import pytest

import orucore
from conftest import IMAGES, WEIGHTS


class MallInfo2(ctypes.Structure):
    _fields_ = [(name, ctypes.c_size_t) for name in
                ("arena", "ordblks", "smblks", "hblks", "hblkhd", "usmblks", "fsmblks", "uordblks", "fordblks",
                 "keepcost")]


def heap_in_use():
    libc = ctypes.CDLL(None)
    if not hasattr(libc, "mallinfo2"):
        pytest.skip("no mallinfo2 in this C library")
    libc.mallinfo2.restype = MallInfo2
    gc.collect()
    info = libc.mallinfo2()
    return info.uordblks + info.hblkhd


PHOTO = os.path.join(IMAGES, "faces-1.bmp")
FRAME = np.random.default_rng(3).integers(0, 256, (300, 400, 3), dtype=np.uint8)


def images_round():
    with orucore.Image.read(PHOTO) as image, image.resize(700, 500) as big:
        big.to_array()
    orucore.resize(FRAME, (640, 480))
    orucore.Image.from_array(FRAME)  # released by garbage collection
    with pytest.raises(orucore.OrucoreError):
        orucore.resize(FRAME, (0, 480))


def tracker_round():
    tracker = orucore.Sort(min_hits=1)
    for t in range(20):
        tracker.update(np.array([[10 + t, 10, 50 + t, 60, 1]] * 50, np.float32) + np.arange(50)[:, None] * 60)
    del tracker


def face_round():
    with orucore.FaceDetector(WEIGHTS) as net:
        net.detect(FRAME)


@pytest.mark.parametrize("work,rounds", [(images_round, 30), (tracker_round, 30), (face_round, 4)])
def test_heap_stays_flat(work, rounds):
    work()  # first use: tables and caches that live for the process
    before = heap_in_use()
    for _ in range(rounds):
        work()
    # One leaked image, tracker or network per round would add megabytes.
    assert heap_in_use() - before < 256 * 1024
