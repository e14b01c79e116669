"""Builds the Python package esforecast with the project's CMake build.

    python3 -m venv --system-site-packages venv && . venv/bin/activate
    pip install --no-build-isolation .

The extension esforecast._core and the libraries it loads (the module and
the host layer) are built by CMake for the interpreter running this script
and installed into the package directory, where each finds the others.
"""

import os
import subprocess
import sys
from pathlib import Path
from shutil import which

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


class CMakeExtension(Extension):
    def __init__(self, name):
        super().__init__(name, sources=[])


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        package_dir = Path(self.get_ext_fullpath(ext.name)).resolve().parent
        build_dir = Path(self.build_temp).resolve() / "cmake"
        configure = [
            "cmake", "-S", str(ROOT), "-B", str(build_dir),
            "-DCMAKE_BUILD_TYPE=Release", f"-DPython3_EXECUTABLE={sys.executable}",
            "-DESF_TESTS=OFF", "-DESF_BENCH=OFF",
        ]
        if not (build_dir / "CMakeCache.txt").exists() and which("ninja"):
            configure += ["-G", "Ninja"]
        subprocess.run(configure, check=True)
        jobs = os.environ.get("CMAKE_BUILD_PARALLEL_LEVEL", str(os.cpu_count() or 1))
        subprocess.run(["cmake", "--build", str(build_dir), "--target", "_core", "-j", jobs], check=True)
        subprocess.run(["cmake", "--install", str(build_dir), "--component", "python",
                        "--prefix", str(package_dir.parent)], check=True)


setup(
    package_dir={"": "python"},
    packages=["esforecast"],
    ext_modules=[CMakeExtension("esforecast._core")],
    cmdclass={"build_ext": CMakeBuild},
    options={"build": {"build_base": "build/python-wheel"}},
    zip_safe=False,
)
