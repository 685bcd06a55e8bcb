"""Builds the package for Python by CMake, with the rest of the project, of which it is a target.

JURN_BUILD_DIR names a build folder of CMake to use; without it, one of its own is made.
JURN_READ_FILES=OFF leaves out what reads and writes files, as happens by itself without libsndfile.
"""

import os
import re
import shutil
import subprocess
import sys
import sysconfig
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent
HEADER = (ROOT / "modules/libJURN/common/JURN_api.h").read_text(encoding="ascii")
VERSION = re.search(r'JURN_VERSION_STRING "(.*)"', HEADER)[1]
WORK = ROOT / "build/wheel"  # nothing is left elsewhere


class BuildByCMake(build_ext):
    def build_extension(self, ext):
        build = Path(os.environ.get("JURN_BUILD_DIR", WORK / "cmake"))
        if "JURN_BUILD_DIR" not in os.environ:
            off = [f"-DJURN_BUILD_{part}=OFF"
                   for part in ("TESTS", "JAVA", "BENCHMARKS", "EXAMPLES", "PLUGINS")]
            choices = ["-DJURN_BUILD_PYTHON=ON", f"-DJURN_PYTHON={sys.executable}", *off,
                       f"-DJURN_READ_FILES={os.environ.get('JURN_READ_FILES', 'ON')}"]
            subprocess.run(["cmake", "-S", ROOT, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
                            *choices], check=True)
        subprocess.run(["cmake", "--build", build, "--config", "Release", "--parallel",
                        str(os.cpu_count()), "--target", "jurn_python"], check=True)
        name = "_core" + sysconfig.get_config_var("EXT_SUFFIX")
        target = Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy(next((build / "bindings/python").rglob(name)), target)
        strip = shutil.which(os.environ.get("STRIP", "strip")) if os.name == "posix" else None
        if strip:
            subprocess.run([strip, "-x", target], check=True)


if __name__ == "__main__":
    WORK.mkdir(parents=True, exist_ok=True)
    setup(
        version=VERSION,
        ext_modules=[Extension("jurn._core", [])],
        cmdclass={"build_ext": BuildByCMake},
        options={"build": {"build_base": str(WORK)}, "egg_info": {"egg_base": str(WORK)}},
    )
