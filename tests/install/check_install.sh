#!/usr/bin/env bash
# Installs a built tree into a scratch prefix and builds a consumer against it
# twice: with find_package(zelk_elf) and with pkg-config.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
build=${1:?usage: check_install.sh BUILD_DIR WORK_DIR}
work=${2:?usage: check_install.sh BUILD_DIR WORK_DIR}
rm -rf "$work"
prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null

lib=$(find "$prefix" -name libzelk_elf.so.1.2.0 | head -1)
[ -n "$lib" ] || { echo "install: libzelk_elf.so.1.2.0 missing" >&2; exit 1; }
libdir=$(dirname "$lib")
for f in libzelk_elf.so libzelk_elf.so.1 libzelk_elf.so.1.2.0; do
  [ -e "$libdir/$f" ] || { echo "install: missing $f" >&2; exit 1; }
done
[ "$(readlink "$libdir/libzelk_elf.so.1")" = libzelk_elf.so.1.2.0 ] || { echo "install: bad SONAME link" >&2; exit 1; }
for h in elf.h zelk_elf.h fixed_vector.h; do
  [ -f "$prefix/include/zelk_elf/$h" ] || { echo "install: missing header $h" >&2; exit 1; }
done

# The installed library and tool are hardened.
bash "$here/../build/check_hardening.sh" "$lib" "$prefix/bin/zelk-elf" >/dev/null

# CMake package.
cmake -S "$here/consumer" -B "$work/cmake-consumer" -DCMAKE_PREFIX_PATH="$prefix" >/dev/null
cmake --build "$work/cmake-consumer" >/dev/null
LD_LIBRARY_PATH="$libdir" "$work/cmake-consumer/consumer"

# pkg-config.
PKG_CONFIG_PATH="$libdir/pkgconfig" c++ -std=c++17 "$here/consumer/main.cc" -o "$work/pc-consumer" \
  $(PKG_CONFIG_PATH="$libdir/pkgconfig" pkg-config --cflags --libs zelk_elf)
LD_LIBRARY_PATH="$libdir" "$work/pc-consumer"

# Python package, with the interpreter it was built for: importable from the
# installed tree, and installed where that interpreter looks under the
# default prefix.
cached() { sed -n "s/^$1:[A-Z]*=//p" "$build/CMakeCache.txt"; }
if [ "$(cached ZELK_ELF_PYTHON)" = ON ]; then
  python=$(cached Python3_EXECUTABLE)
  pydir=$(cached ZELK_ELF_PYTHON_INSTALL_DIR)
  for f in __init__.py _zelk_elf.pyi py.typed; do
    [ -f "$prefix/$pydir/zelk_elf/$f" ] || { echo "install: missing python $f" >&2; exit 1; }
  done
  (cd "$work" && PYTHONPATH="$prefix/$pydir" PYTHONNOUSERSITE=1 "$python" -c "
import zelk_elf
assert zelk_elf.__file__.startswith('$prefix/'), zelk_elf.__file__
assert zelk_elf.load(zelk_elf.Elf().save()).section_names == ['', '.shstrtab']
")
  (cd "$work" && "$python" -c "import sys; assert '/usr/local/$pydir' in sys.path, sys.path")
fi
echo "install: ok"
