"""Builds the extension of the zelk_elf package through the project's CMake
build. The version is the one project() in CMakeLists.txt gives. Abseil's
shared libraries go into the package (zelk_elf/.libs, found through the
module's $ORIGIN run path), so the wheel needs no libabsl at run time."""

import os
import re
import shutil
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


def version():
    text = (ROOT / "CMakeLists.txt").read_text()
    return re.search(r"project\(zelk_elf VERSION ([0-9.]+)", text).group(1)


def needed(library):
    """The shared libraries `library` names in its dynamic section."""
    out = subprocess.run(["readelf", "-d", str(library)], check=True,
                         capture_output=True, text=True).stdout
    return re.findall(r"\(NEEDED\)\s+Shared library: \[(.+)\]", out)


class CMakeBuild(build_ext):
    def build_extension(self, ext):
        build = Path(self.build_temp).resolve() / "cmake"
        subprocess.run(["cmake", "-S", str(ROOT), "-B", str(build),
                        "-DCMAKE_BUILD_TYPE=Release", "-DZELK_ELF_PYTHON=ON",
                        "-DZELK_ELF_PYTHON_WHEEL=ON", "-DZELK_ELF_TESTS=OFF",
                        "-DZELK_ELF_TOOLS=OFF", f"-DPython3_EXECUTABLE={sys.executable}"],
                       check=True)
        subprocess.run(["cmake", "--build", str(build), "--target", "zelk_elf_python",
                        "-j", str(os.cpu_count() or 2)], check=True)
        module = next((build / "python" / "zelk_elf").glob("_zelk_elf*.so"))
        target = Path(self.get_ext_fullpath(ext.name))
        target.parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(module, target)
        # Every Abseil library the module names (it names all it links).
        libs = target.parent / ".libs"
        libs.mkdir(exist_ok=True)
        for name in needed(module):
            if name.startswith("libabsl_"):
                shutil.copy2(Path("/usr/lib") / self.multiarch() / name, libs / name)

    @staticmethod
    def multiarch():
        return subprocess.run(["gcc", "-print-multiarch"], check=True,
                              capture_output=True, text=True).stdout.strip()


setup(version=version(),
      ext_modules=[Extension("zelk_elf._zelk_elf", sources=[])],
      cmdclass={"build_ext": CMakeBuild})
