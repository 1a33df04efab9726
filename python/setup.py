"""pip install ./python: the pure-Python package; it uses an installed or built liborucore.
Nothing is fetched at install time (setuptools is the system's own)."""
import os
import re

from setuptools import setup
from setuptools.command.build_py import build_py

HERE = os.path.dirname(os.path.abspath(__file__))


def library_version():
    with open(os.path.join(HERE, "..", "CMakeLists.txt")) as f:
        return re.search(r"project\(orucore\s+VERSION\s+([0-9.]+)", f.read()).group(1)


class build_py_with_version(build_py):
    """The installed package carries the version as a constant, away from CMakeLists.txt."""

    def run(self):
        super().run()
        path = os.path.join(self.build_lib, "orucore", "_version.py")
        with open(path, "w") as f:
            f.write('__version__ = "%s"\n' % library_version())


setup(
    name="orucore",
    version=library_version(),
    description="NumPy interface to liborucore: images, resizing, face detection, SORT tracking, PnP",
    packages=["orucore"],
    package_data={"orucore": ["*.so", "*.so.*"]},
    python_requires=">=3.9",
    cmdclass={"build_py": build_py_with_version},
)
