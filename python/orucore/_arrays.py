"""Argument checks for NumPy arrays: a clear ValueError instead of a crash in C."""
import ctypes

import numpy as np


def require(array, name, dtypes, ndims, shape=None):
    """array must be an ndarray of one of dtypes, with one of ndims dimensions, C-contiguous,
    and, where shape gives a number for an axis (None for any), that length."""
    if not isinstance(array, np.ndarray):
        raise ValueError("%s must be a NumPy array, not %s" % (name, type(array).__name__))
    if array.dtype not in [np.dtype(d) for d in dtypes]:
        raise ValueError("%s must have dtype %s, not %s" % (name, " or ".join(np.dtype(d).name for d in dtypes),
                                                             array.dtype))
    if array.ndim not in ndims:
        raise ValueError("%s must have %s dimensions, not %d" % (name, " or ".join(map(str, ndims)), array.ndim))
    if shape is not None:
        for axis, want in enumerate(shape):
            if want is not None and array.shape[axis] != want:
                raise ValueError("%s must have %d along axis %d, not shape %s" % (name, want, axis, array.shape))
    if not array.flags.c_contiguous:
        raise ValueError("%s must be C-contiguous (np.ascontiguousarray makes a copy that is)" % name)
    return array


def pointer(array, ctype):
    return array.ctypes.data_as(ctypes.POINTER(ctype))
