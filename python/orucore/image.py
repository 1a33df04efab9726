"""Images: NumPy arrays in and out, BMP files, the resizer."""
import ctypes
import os

import numpy as np

from . import _native
from ._arrays import require

BGR, RGB, GRAY = 0, 1, 2
_CHANNELS = {BGR: 3, RGB: 3, GRAY: 1}
_READ_MODES = {"keep": 0, "gray": 1, "bgr": 2}
_RESIZE_METHODS = {"nearest": 0, "bilinear": 1}


class Image:
    """An image the library allocated (BGR, RGB or grey, 8 bits a channel); released by
    close(), by leaving a with block, or when garbage collected."""

    def __init__(self, record):
        self._record = record  # POINTER(Matrix), owned

    @classmethod
    def from_array(cls, array, format=None):
        """A copy of an H x W (grey) or H x W x 3 (BGR unless format=RGB) uint8 array."""
        require(array, "image", [np.uint8], (2, 3))
        if array.ndim == 3 and array.shape[2] != 3:
            raise ValueError("image must have 3 channels, not shape %s" % (array.shape,))
        if format is None:
            format = GRAY if array.ndim == 2 else BGR
        if _CHANNELS.get(format) != (1 if array.ndim == 2 else 3):
            raise ValueError("format %r does not fit an array of shape %s" % (format, array.shape))
        height, width = array.shape[:2]
        lib = _native.core()
        image = cls(_native.pointer_call(lib.oru_create_image, width, height, format))
        rows = image._rows()
        rows[:, :array[0].size] = array.reshape(height, -1)
        return image

    @classmethod
    def read(cls, path, mode="keep"):
        """A BMP file; mode "keep" keeps its kind, "gray" or "bgr" converts."""
        if mode not in _READ_MODES:
            raise ValueError("mode must be one of %s" % ", ".join(_READ_MODES))
        lib = _native.core()
        return cls(_native.pointer_call(lib.oru_create_image_from_file, os.fsencode(path), _READ_MODES[mode]))

    def _live(self):
        if not self._record:
            raise ValueError("the image is closed")
        return self._record.contents

    @property
    def width(self):
        return self._live().cols

    @property
    def height(self):
        return self._live().rows

    @property
    def format(self):
        return self._live().format

    def _rows(self):
        """The pixel rows as a uint8 view (height x stride) of the library's memory."""
        m = self._live()
        if m.format not in _CHANNELS:
            raise ValueError("image format %d has no array form here" % m.format)
        buffer = (ctypes.c_uint8 * (m.rows * m.stride)).from_address(m.data)
        return np.frombuffer(buffer, np.uint8).reshape(m.rows, m.stride)

    def to_array(self):
        """A copy: H x W for grey, H x W x 3 otherwise."""
        m = self._live()
        channels = _CHANNELS.get(m.format)
        out = self._rows()[:, :m.cols * (channels or 0)].copy()
        return out if channels == 1 else out.reshape(m.rows, m.cols, channels)

    def write(self, path):
        """Writes a BMP file."""
        _native.status_call(_native.core().oru_image_write_to_file_with_level, os.fsencode(path), self._record)

    def resize(self, width, height, method="bilinear"):
        """A new image of width x height, "bilinear" or "nearest"."""
        if method not in _RESIZE_METHODS:
            raise ValueError("method must be one of %s" % ", ".join(_RESIZE_METHODS))
        lib = _native.core()
        out = Image(_native.pointer_call(lib.oru_create_image, int(width), int(height), self.format))
        _native.status_call(lib.oru_image_resizer, out._record, self._record, _RESIZE_METHODS[method])
        return out

    def close(self):
        if self._record:
            _native.core().oru_release_matrix(ctypes.byref(self._record))
            self._record = None

    def __enter__(self):
        return self

    def __exit__(self, *exc):
        self.close()

    def __del__(self):
        if getattr(self, "_record", None):
            try:
                self.close()
            except Exception:  # interpreter shutdown
                pass


def imread(path, mode="keep"):
    """A BMP file as an array: H x W for grey, H x W x 3 (BGR) for colour."""
    with Image.read(path, mode) as image:
        return image.to_array()


def imwrite(path, array):
    """Writes an H x W (grey) or H x W x 3 (BGR) uint8 array as a BMP file."""
    with Image.from_array(array) as image:
        image.write(path)


def resize(array, size, method="bilinear"):
    """The array scaled to size = (width, height) by the library's resizer."""
    with Image.from_array(array) as image, image.resize(size[0], size[1], method) as out:
        return out.to_array()
