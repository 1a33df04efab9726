"""Camera pose from point correspondences."""
import ctypes

import numpy as np

from . import _native
from ._arrays import require

_AIF64 = 7


def _view(array):
    """A matrix record over the array's own memory; nothing for the library to free."""
    m = _native.Matrix()
    rows, cols = array.shape if array.ndim == 2 else (array.shape[0], 1)
    _native.status_call(_native.core().oru_set_matrix_header, ctypes.byref(m), rows, cols, 1, _AIF64)
    m.data = array.ctypes.data
    return m


def solve_pnp(object_points, image_points, camera):
    """Pose (R, t), camera point = R X + t, from N x 3 object points and N x 2 image points
    (float64, 4 <= N <= 128, not all in one plane) and the 3 x 3 camera matrix. Returns
    R as a 3 x 3 and t as a 3-vector, both float64."""
    require(object_points, "object_points", [np.float64], (2,), (None, 3))
    require(image_points, "image_points", [np.float64], (2,), (len(object_points), 2))
    require(camera, "camera", [np.float64], (2,), (3, 3))
    rotation, translation = np.zeros((3, 3)), np.zeros(3)
    views = [_view(a) for a in (rotation, translation, object_points, image_points, camera)]
    _native.status_call(_native.core().oru_solve_3d_pnp, *[ctypes.byref(v) for v in views])
    return rotation, translation
