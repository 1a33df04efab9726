"""The SORT multi-object tracker."""
import collections
import ctypes

import numpy as np

from . import _native
from ._arrays import require, pointer

Tracks = collections.namedtuple("Tracks", "boxes ids times")
Tracks.__doc__ = """Live tracks after a frame: boxes (M x 4 float32, x0 y0 x1 y1), ids (M int32)
and times (M int32, frames since each track last had a detection)."""


class Sort:
    """One tracker; update() once per frame with that frame's detections."""

    def __init__(self, max_age=1, min_hits=3, iou_threshold=0.3):
        params = _native.SortParams(int(max_age), int(min_hits), float(iou_threshold), 0.0)
        self._handle = ctypes.c_void_p(_native.pointer_call(_native.core().oru_create_sort_handle,
                                                            ctypes.byref(params)))

    def update(self, detections):
        """detections: N x 5 (x0 y0 x1 y1 score) or N x 4 floats, N may be 0."""
        require(detections, "detections", [np.float32, np.float64], (2,))
        if detections.shape[1] not in (4, 5):
            raise ValueError("detections must be N x 4 or N x 5, not shape %s" % (detections.shape,))
        if not self._handle:
            raise ValueError("the tracker is closed")
        records = np.zeros((len(detections), 5), np.float32)
        records[:, :detections.shape[1]] = detections
        lib = _native.core()
        data = pointer(records, ctypes.c_float) if len(records) else None
        info = _native.pointer_call(lib.oru_sort_update, data, len(records), self._handle)
        try:
            n = info.contents.count
            boxes = np.ctypeslib.as_array(info.contents.boxes, (n, 4)).copy() if n else np.zeros((0, 4), np.float32)
            ids = np.ctypeslib.as_array(info.contents.ids, (n,)).copy() if n else np.zeros(0, np.int32)
            times = np.ctypeslib.as_array(info.contents.times, (n,)).copy() if n else np.zeros(0, np.int32)
        finally:
            lib.oru_release_track_info(ctypes.byref(info))
        return Tracks(boxes, ids, times)

    @property
    def frame_count(self):
        return _native.core().oru_sort_get_frame_count(self._handle)

    def close(self):
        if self._handle:
            _native.core().oru_release_sort_handle(ctypes.byref(self._handle))
            self._handle = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        if getattr(self, "_handle", None):
            try:
                self.close()
            except Exception:  # interpreter shutdown
                pass
