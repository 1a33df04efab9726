"""Paths shared by the Python module's tests. CTest sets ORUCORE_LIBRARY and friends to
the build's files; run by hand, point them at a build the same way."""
import os
import sys

import pytest

SOURCE = os.environ.get("ORUCORE_SOURCE_DIR",
                        os.path.abspath(os.path.join(os.path.dirname(__file__), "..", "..")))
IMAGES = os.path.join(SOURCE, "data", "images")
WEIGHTS = os.path.join(SOURCE, "models", "ultraface", "ultraface-slim-320.weights")
sys.path.insert(0, os.path.join(SOURCE, "tests", "oracles"))


def program(variable):
    """A helper program of the build named by an environment variable."""
    path = os.environ.get(variable)
    if not path:
        pytest.skip("%s is not set (run through ctest)" % variable)
    return path
