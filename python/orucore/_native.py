"""Loading the shared libraries, the records they share with Python, and the one way
every call goes through: what the library prints is captured, so a failure raises
OrucoreError with the status and the message of the library's report."""
import ctypes
import os
import re
import sys
import tempfile
import threading

from ._version import __version__

c_float_p = ctypes.POINTER(ctypes.c_float)
c_int32_p = ctypes.POINTER(ctypes.c_int32)

STATUS_NAMES = {
    1: "bad argument", 2: "out of memory", 4: "not supported", 8: "cannot open file",
    16: "uninitialised data", 32: "unknown error", 64: "end of file", 128: "waiting",
    256: "data too short", 257: "already exists", 258: "not found",
}

# "Error occurred: %s \nError position:\nFile:%s:%d\n"
_REPORT = re.compile(r"Error occurred: (.*?) \nError position:\nFile:[^\n]*:\d+\n", re.S)


class OrucoreError(RuntimeError):
    """A library call failed. status is the call's status code (None for a call that
    returns a pointer and gave null); message is the library's report, if it made one."""

    def __init__(self, function, status, message):
        self.function, self.status, self.message = function, status, message
        what = "returned null" if status is None else \
            "failed with status %d (%s)" % (status, STATUS_NAMES.get(status, "?"))
        super().__init__("%s %s%s" % (function, what, ": " + message if message else ""))


class Matrix(ctypes.Structure):
    """The matrix and image record, field for field."""
    _fields_ = [
        ("kind", ctypes.c_uint32), ("type", ctypes.c_uint32),
        ("data", ctypes.c_void_p), ("plane1", ctypes.c_void_p), ("plane2", ctypes.c_void_p),
        ("rows", ctypes.c_int32), ("cols", ctypes.c_int32), ("depth", ctypes.c_int32),
        ("stride", ctypes.c_int64), ("stride1", ctypes.c_int64), ("stride2", ctypes.c_int64),
        ("owns_data", ctypes.c_uint32), ("reserved_one", ctypes.c_uint32),
        ("channel_bytes", ctypes.c_uint32), ("channels", ctypes.c_int32), ("format", ctypes.c_uint32),
    ]


class SortParams(ctypes.Structure):
    _fields_ = [("max_age", ctypes.c_int32), ("min_hits", ctypes.c_int32),
                ("iou_threshold", ctypes.c_float), ("payload_bytes", ctypes.c_float)]


class TrackInfo(ctypes.Structure):
    _fields_ = [("boxes", c_float_p), ("ids", c_int32_p), ("times", c_int32_p),
                ("count", ctypes.c_int32), ("payloads", ctypes.POINTER(ctypes.c_uint8))]


Matrix_p = ctypes.POINTER(Matrix)
u32, i32, vp = ctypes.c_uint32, ctypes.c_int32, ctypes.c_void_p

# name: (result, argument types)
_CORE_FUNCTIONS = {
    "oru_create_image": (Matrix_p, [i32, i32, u32]),
    "oru_create_image_from_file": (Matrix_p, [ctypes.c_char_p, u32]),
    "oru_image_write_to_file_with_level": (u32, [ctypes.c_char_p, Matrix_p]),
    "oru_image_resizer": (u32, [Matrix_p, Matrix_p, u32]),
    "oru_release_matrix": (u32, [ctypes.POINTER(Matrix_p)]),
    "oru_set_matrix_header": (u32, [Matrix_p, i32, i32, i32, u32]),
    "oru_create_sort_handle": (vp, [ctypes.POINTER(SortParams)]),
    "oru_release_sort_handle": (u32, [ctypes.POINTER(vp)]),
    "oru_sort_update": (ctypes.POINTER(TrackInfo), [c_float_p, i32, vp]),
    "oru_release_track_info": (u32, [ctypes.POINTER(ctypes.POINTER(TrackInfo))]),
    "oru_sort_get_frame_count": (ctypes.c_int64, [vp]),
    "oru_solve_3d_pnp": (u32, [Matrix_p, Matrix_p, Matrix_p, Matrix_p, Matrix_p]),
}

_FACE_FUNCTIONS = {
    "ultraface_create": (vp, [ctypes.c_char_p, u32]),
    "ultraface_release": (None, [ctypes.POINTER(vp)]),
    "ultraface_detect": (i32, [vp, Matrix_p, ctypes.c_float, ctypes.c_float, ctypes.c_int, c_float_p, i32]),
}
# Present only in detector libraries built with the fixed-point network.
_FACE_OPTIONAL = {"ultraface_create_backend": (vp, [ctypes.c_char_p, u32, u32])}

_here = os.path.dirname(os.path.abspath(__file__))
_soname = "liborucore.so.%s" % __version__.split(".")[0]
_loaded = {}
_lock = threading.Lock()


def _open(variable, file_names, extra_dirs=()):
    """The library named by the environment variable, else the first of file_names in
    the package folder or extra_dirs, else what the system loader finds by those names."""
    path = os.environ.get(variable)
    if path:
        return ctypes.CDLL(path)
    for folder in (_here,) + tuple(extra_dirs):
        for name in file_names:
            if os.path.exists(os.path.join(folder, name)):
                return ctypes.CDLL(os.path.join(folder, name))
    errors = []
    for name in file_names:
        try:
            return ctypes.CDLL(name)
        except OSError as e:
            errors.append(str(e))
    raise OSError("cannot load %s (set %s to its path): %s" % (file_names[0], variable, "; ".join(errors)))


def _declare(lib, table, optional=False):
    for name, (result, arguments) in table.items():
        try:
            f = getattr(lib, name)
        except AttributeError:
            if optional:
                continue
            raise
        f.restype, f.argtypes = result, arguments


def core():
    """liborucore itself: $ORUCORE_LIBRARY, the package folder, or the system's paths."""
    with _lock:
        if "core" not in _loaded:
            lib = _open("ORUCORE_LIBRARY", [_soname, "liborucore.so"])
            _declare(lib, _CORE_FUNCTIONS)
            _loaded["core"] = lib
        return _loaded["core"]


def face():
    """The face detector library: $ORUCORE_ULTRAFACE_LIBRARY, the package folder, the
    folder of liborucore, or the system's paths."""
    core_lib = core()
    with _lock:
        if "face" not in _loaded:
            beside = os.path.dirname(os.path.abspath(core_lib._name)) if os.sep in core_lib._name else None
            lib = _open("ORUCORE_ULTRAFACE_LIBRARY", ["liborucore_ultraface.so"], (beside,) if beside else ())
            _declare(lib, _FACE_FUNCTIONS)
            _declare(lib, _FACE_OPTIONAL, optional=True)
            _loaded["face"] = lib
        return _loaded["face"]


_libc = ctypes.CDLL(None)
_libc.fflush.argtypes = [ctypes.c_void_p]
_call_lock = threading.Lock()


def _captured(function, arguments):
    """Runs the call with the process's standard output and error sent to files, and
    gives its result with what it printed on each."""
    with _call_lock:
        for stream in (sys.stdout, sys.stderr):
            if stream is not None:
                stream.flush()
        _libc.fflush(None)
        saved = (os.dup(1), os.dup(2))
        with tempfile.TemporaryFile() as out, tempfile.TemporaryFile() as err:
            os.dup2(out.fileno(), 1)
            os.dup2(err.fileno(), 2)
            try:
                result = function(*arguments)
            finally:
                _libc.fflush(None)
                os.dup2(saved[0], 1)
                os.dup2(saved[1], 2)
                os.close(saved[0])
                os.close(saved[1])
            out.seek(0)
            err.seek(0)
            return result, out.read().decode(errors="replace"), err.read().decode(errors="replace")


def call(function, *arguments, failed):
    """Calls a library function; failed(result) tells a failure, which raises
    OrucoreError. Whatever else the call printed goes on to standard output and error."""
    result, out, err = _captured(function, arguments)
    bad = failed(result)
    report = _REPORT.search(out) if bad else None
    if report:
        out = out[:report.start()] + out[report.end():]
    if out:
        os.write(1, out.encode())
    if bad:
        message = report.group(1).strip() if report else err.strip()
        status = result if isinstance(result, int) and result > 0 else None
        raise OrucoreError(function.__name__, status, message)
    if err:
        os.write(2, err.encode())
    return result


def status_call(function, *arguments):
    """A call whose result is a status, 0 on success."""
    return call(function, *arguments, failed=lambda status: status != 0)


def pointer_call(function, *arguments):
    """A call whose result is a pointer, null on failure."""
    return call(function, *arguments, failed=lambda pointer: not pointer)
