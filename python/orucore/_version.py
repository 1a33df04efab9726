"""The package's version. In the source tree it is read from the build's one declaration,
project(orucore VERSION x.y.z) in CMakeLists.txt; an installed package carries it
written out by setup.py instead of this file."""
import os
import re


def _from_source_tree():
    path = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "CMakeLists.txt")
    with open(path) as f:
        return re.search(r"project\(orucore\s+VERSION\s+([0-9.]+)", f.read()).group(1)


__version__ = _from_source_tree()
