"""Builds the Python module sorn with the project's CMake (see
pyproject.toml): the extension _sorn, with libSorn.so.1 and libKu.so.2
beside it in the package, where the extension finds them."""

import os
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))


class CMakeExtension(Extension):
    def __init__(self, name):
        super().__init__(name, sources=[])


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        # CMake lays the whole package out where setuptools collects it.
        package_dir = os.path.dirname(os.path.abspath(self.get_ext_fullpath(ext.name)))
        build_dir = os.path.abspath(os.path.join(self.build_temp, "cmake"))
        os.makedirs(build_dir, exist_ok=True)
        generator = ["-G", "Ninja"] if shutil.which("ninja") else []
        subprocess.check_call([
            "cmake", "-S", ROOT, "-B", build_dir, *generator,
            "-DCMAKE_BUILD_TYPE=Release",
            "-DSORN_BUILD_PYTHON=ON", "-DSORN_REQUIRE_PYTHON=ON",
            "-DSORN_BUILD_TESTS=OFF", "-DSORN_BUILD_BENCH=OFF",
            "-DSORN_BUILD_EXAMPLES=OFF",
            f"-DPython3_EXECUTABLE={sys.executable}",
            f"-DSORN_PYTHON_PACKAGE_DIR={package_dir}",
        ])
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", str(os.cpu_count() or 1))
        subprocess.check_call(["cmake", "--build", build_dir, "--target", "_sorn",
                               "--parallel", jobs])


setup(
    packages=["sorn"],
    package_dir={"": "python"},
    ext_modules=[CMakeExtension("sorn._sorn")],
    cmdclass={"build_ext": CMakeBuild},
    zip_safe=False,
)
