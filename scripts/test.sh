#!/usr/bin/env bash
# Builds and tests everything: the native and the 32-bit library with all
# tests, the AddressSanitizer + UBSan build running every test, valgrind over
# the C-interface tests, the installed package, the Python wheel in a fresh
# venv, and a short fuzzing pass.
# Usage: scripts/test.sh            (everything)
#        STAGES="native m32" scripts/test.sh   (a subset)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
out=${ZELK_ELF_BUILD_ROOT:-$root/out}
jobs=${JOBS:-$(nproc)}
stages=${STAGES:-"native m32 sanitize valgrind install wheel fuzz"}
shared=$(cd "$root/.." && pwd)/shared
export CTEST_OUTPUT_ON_FAILURE=1

bash scripts/setup.sh

summary=()
run_stage() { echo; echo "=== $1"; }
# The native build insists on the Python package, so its pytest suite (a
# ctest test) cannot drop out unnoticed when pybind11 is missing.
native_args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DZELK_ELF_BENCH=ON -DZELK_ELF_PYTHON=ON)

build() {  # build DIR [cmake args...]
  local dir=$1; shift
  cmake -S "$root" -B "$dir" -DZELK_ELF_SHARED_DIR="$shared" "$@" >/dev/null
  cmake --build "$dir" -j"$jobs"
}

for stage in $stages; do
  case $stage in
    native)
      run_stage "native build and tests"
      build "$out/native" "${native_args[@]}"
      (cd "$out/native" && ctest -j"$jobs")
      ;;
    m32)
      run_stage "32-bit build and tests"
      m32_args=(-DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_TOOLCHAIN_FILE="$root/cmake/i386.cmake")
      # ZELK_ELF_I386_EMULATOR="/usr/bin/qemu-i386;-L;/" emulates even where
      # the kernel runs i386 programs itself.
      [ -n "${ZELK_ELF_I386_EMULATOR:-}" ] &&
        m32_args+=(-DCMAKE_CROSSCOMPILING_EMULATOR="$ZELK_ELF_I386_EMULATOR")
      build "$out/m32" "${m32_args[@]}"
      emulator=$(sed -n 's/^CMAKE_CROSSCOMPILING_EMULATOR:[A-Z]*=//p' "$out/m32/CMakeCache.txt")
      if [ -n "$emulator" ]; then
        echo "32-bit tests run under ${emulator//;/ }"
      else
        echo "32-bit tests run natively: this kernel executes i386 programs"
      fi
      (cd "$out/m32" && ctest -j"$jobs")
      ;;
    sanitize)
      run_stage "AddressSanitizer + UBSan build and tests"
      build "$out/asan" -DCMAKE_BUILD_TYPE=Debug -DZELK_ELF_SANITIZE=ON \
        -DCMAKE_CXX_FLAGS_DEBUG="-O1 -g"
      (cd "$out/asan" && ASAN_OPTIONS=detect_leaks=1 ctest -j"$jobs")
      ;;
    valgrind)
      run_stage "valgrind over the C-interface tests"
      build "$out/native" "${native_args[@]}"
      bash scripts/valgrind.sh "$out/native"
      ;;
    install)
      run_stage "install and build consumers"
      build "$out/native" "${native_args[@]}"
      bash tests/install/check_install.sh "$out/native" "$out/install-check"
      ;;
    wheel)
      run_stage "the Python wheel in a fresh venv, and pip install ."
      bash tests/install/check_wheel.sh "$out/wheel"
      ;;
    fuzz)
      run_stage "fuzzing (short, bounded)"
      build "$out/fuzz" -DCMAKE_BUILD_TYPE=Release -DZELK_ELF_FUZZ=ON \
        -DZELK_ELF_TESTS=OFF -DZELK_ELF_TOOLS=OFF -DCMAKE_C_COMPILER=clang-14 -DCMAKE_CXX_COMPILER=clang++-14
      bash scripts/fuzz.sh "$out/fuzz" "${FUZZ_SECONDS:-}"
      ;;
    *) echo "unknown stage $stage" >&2; exit 2 ;;
  esac
done
echo
echo "all stages passed: $stages"
