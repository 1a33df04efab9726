"""The 320 x 240 face detector of the examples, loaded from liborucore_ultraface.so."""
import ctypes
import os

import numpy as np

from . import _native
from ._arrays import require, pointer
from .image import Image

# The detector's own constants (ultraface.h).
METHOD_PER_LAYER = 255
BACKEND_FIXED = 1
_METHODS = {"auto": METHOD_PER_LAYER, 0: 0, 2: 2}


class FaceDetector:
    """The network built once from a weight file; detect() per image. fixed=True runs
    the 16-bit fixed-point network, where the detector library was built with it."""

    def __init__(self, weights, method="auto", fixed=False):
        if method not in _METHODS:
            raise ValueError("method must be \"auto\", 0 or 2")
        lib = _native.face()
        path = os.fsencode(weights)
        if fixed:
            if not hasattr(lib, "ultraface_create_backend"):
                raise NotImplementedError("this face detector library (%s) has no fixed-point network: "
                                          "it lacks ultraface_create_backend" % lib._name)
            net = _native.pointer_call(lib.ultraface_create_backend, path, _METHODS[method], BACKEND_FIXED)
        else:
            net = _native.pointer_call(lib.ultraface_create, path, _METHODS[method])
        self._net = ctypes.c_void_p(net)

    def detect(self, image, threshold=0.7, iou=0.3, keep_aspect=False, max_faces=256):
        """Faces in an H x W x 3 BGR uint8 array (or an Image): an N x 5 float32 array of
        x0 y0 x1 y1 score in the image's pixels, best first."""
        if not self._net:
            raise ValueError("the detector is closed")
        if isinstance(image, Image):
            return self._detect(image, threshold, iou, keep_aspect, max_faces)
        require(image, "image", [np.uint8], (3,), (None, None, 3))
        with Image.from_array(image) as bgr:
            return self._detect(bgr, threshold, iou, keep_aspect, max_faces)

    def _detect(self, image, threshold, iou, keep_aspect, max_faces):
        faces = np.zeros((int(max_faces), 5), np.float32)
        n = _native.call(_native.face().ultraface_detect, self._net, image._record, float(threshold), float(iou),
                         int(bool(keep_aspect)), pointer(faces, ctypes.c_float), len(faces),
                         failed=lambda count: count < 0)
        return faces[:n].copy()

    def close(self):
        if self._net:
            _native.face().ultraface_release(ctypes.byref(self._net))
            self._net = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        if getattr(self, "_net", None):
            try:
                self.close()
            except Exception:  # interpreter shutdown
                pass
