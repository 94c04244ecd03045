#!/usr/bin/env bash
# The Python package as Python packages install: a wheel built with
# `python3 -m build`, installed into a fresh venv, must load Abseil from the
# copies it carries, never from the system, and pass the Python suite from
# outside the source tree; and `pip install .` must work from the sources.
# Usage: tests/install/check_wheel.sh OUT_DIR
set -euo pipefail
root=$(cd "$(dirname "$0")/../.." && pwd)
out=$1
python=/usr/bin/python3
rm -rf "$out" && mkdir -p "$out"
cd "$root"

"$python" -m build --wheel --no-isolation --outdir "$out/dist" . >"$out/build.log" 2>&1 ||
  { tail -20 "$out/build.log"; exit 1; }
wheel=$(ls "$out"/dist/zelk_elf-*.whl)
echo "built $(basename "$wheel")"
# --system-site-packages only for pytest and hypothesis; the package itself
# is not installed system-wide.
"$python" -m venv --system-site-packages "$out/venv"
"$out/venv/bin/pip" install --quiet --no-index --no-deps "$wheel"
module=$("$out/venv/bin/python" -c "import zelk_elf._zelk_elf as m; print(m.__file__)")
case $module in "$out/venv/"*) ;; *) echo "zelk_elf came from $module"; exit 1 ;; esac

# Every library the module loads is Abseil from the wheel or the C and C++
# runtimes: nothing of libabsl-dev.
libs=$(ldd "$module" | awk '/=>/ {print $1 " " $3}')
bad=$(echo "$libs" | awk -v own="$(dirname "$module")/.libs/" '
  $1 ~ /^libabsl_/ && index($2, own) != 1 {print}
  $1 !~ /^(libabsl_|libc\.|libm\.|libstdc\+\+\.|libgcc_s\.|ld-linux)/ {print}')
if [ -n "$bad" ]; then
  echo "the installed module loads libraries from outside the wheel:"; echo "$bad"; exit 1
fi
echo "the module loads $(echo "$libs" | grep -c '^libabsl_') Abseil libraries, all from the wheel"

(cd "$out" && env -u PYTHONPATH ZELK_ELF_SHARED_DIR="$root/../shared" \
  "$out/venv/bin/python" -m pytest -q -p no:cacheprovider "$root/tests/python")

"$python" -m venv --system-site-packages "$out/source-venv"
"$out/source-venv/bin/pip" install --quiet --no-index --no-build-isolation . >"$out/pip.log" 2>&1 ||
  { tail -20 "$out/pip.log"; exit 1; }
"$out/source-venv/bin/python" -c "import zelk_elf; assert zelk_elf.__version__ == '1.2.0'"
echo "pip install . from the sources: ok"
