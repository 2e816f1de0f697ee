"""Builds the Python module `quorblen` for pip: configures the project's CMake (without tests
and benchmarks, for this interpreter), builds the module target and puts into the wheel the
module, its type stub and, in quorblen.libs, the host library it links ($ORIGIN/quorblen.libs
is on the module's run path).

The CMake build folder is build-python/cmake, or the one QUORBLEN_CMAKE_BUILD_DIR names: a
folder already configured (for the same Python) is only built, so a build of the whole project
serves as it is."""
import os
import re
import shutil
import subprocess
import sys

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = os.path.dirname(os.path.abspath(__file__))
BUILD = os.path.join(ROOT, "build-python")
os.makedirs(BUILD, exist_ok=True)


def project_version():
    with open(os.path.join(ROOT, "CMakeLists.txt")) as cmake:
        return re.search(r"project\(Quorblen VERSION ([0-9.]+)", cmake.read()).group(1)


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        folder = os.environ.get("QUORBLEN_CMAKE_BUILD_DIR") or os.path.join(BUILD, "cmake")
        if not os.path.exists(os.path.join(folder, "CMakeCache.txt")):
            options = ["-DCMAKE_BUILD_TYPE=Release", "-DQUORBLEN_BUILD_TESTS=OFF",
                       "-DQUORBLEN_BUILD_BENCHMARKS=OFF", f"-DPython3_EXECUTABLE={sys.executable}"]
            try:
                import pybind11  # the index's pybind11 brings its CMake package along
                options.append(f"-Dpybind11_DIR={pybind11.get_cmake_dir()}")
            except ImportError:
                pass
            subprocess.run(["cmake", "-S", ROOT, "-B", folder, *options], check=True)
        subprocess.run(["cmake", "--build", folder, "--target", "quorblen_python",
                        "-j", str(os.cpu_count() or 1)], check=True)
        with open(os.path.join(folder, "python", "wheel-files.txt")) as manifest:
            module, stub, host = manifest.read().split()
        if not module.endswith(os.path.basename(self.get_ext_filename(ext.name))):
            sys.exit(f"{module} is not built for this Python: use another QUORBLEN_CMAKE_BUILD_DIR")
        target = os.path.dirname(os.path.abspath(self.get_ext_fullpath(ext.name)))
        os.makedirs(os.path.join(target, "quorblen.libs"), exist_ok=True)
        shutil.copy(module, target)
        shutil.copy(stub, target)
        shutil.copy(host, os.path.join(target, "quorblen.libs"))


setup(
    version=project_version(),
    packages=[],
    ext_modules=[Extension("quorblen", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
    options={"build": {"build_base": os.path.join(BUILD, "setuptools")},
             "egg_info": {"egg_base": BUILD}},
    zip_safe=False,
)
