"""liborucore from Python: NumPy arrays in and out over the library's C interface.

The library is found through $ORUCORE_LIBRARY, then beside this package, then on the
system loader's paths; the face detector's library through $ORUCORE_ULTRAFACE_LIBRARY,
this package's folder, liborucore's folder, then the loader's paths."""
from ._version import __version__
from ._native import OrucoreError
from .image import Image, imread, imwrite, resize, BGR, RGB, GRAY
from .tracking import Sort, Tracks
from .pose import solve_pnp
from .face import FaceDetector

__all__ = ["__version__", "OrucoreError", "Image", "imread", "imwrite", "resize", "BGR", "RGB", "GRAY",
           "Sort", "Tracks", "solve_pnp", "FaceDetector"]
