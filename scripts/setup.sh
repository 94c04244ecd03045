#!/usr/bin/env bash
# Installs every Debian package the project needs, for the native and the
# 32-bit build, the sanitizers, fuzzing and benchmarks. Idempotent: when
# everything is present it only checks and returns.
# Usage: scripts/setup.sh          (everything scripts/test.sh needs)
#        scripts/setup.sh --main   (only what building the library and
#                                   zelk-elf needs, for scripts/run.sh)
set -euo pipefail

# The library and zelk-elf; JSON and argument parsing are header-only.
main=(build-essential cmake pkg-config libabsl-dev nlohmann-json3-dev
      libcli11-dev)
native=("${main[@]}" g++-12 g++-multilib
        libgtest-dev libgmock-dev googletest libbenchmark-dev
        clang-14 libfuzzer-14-dev libclang-rt-14-dev valgrind binutils
        pybind11-dev python3-dev python3-pytest python3-hypothesis
        python3-setuptools python3-build python3-venv python3-wheel
        qemu-user abigail-tools)
i386=(libabsl-dev:i386 libgtest-dev:i386 libgmock-dev:i386)
if [ "${1:-}" = "--main" ]; then
  native=("${main[@]}")
  i386=()
fi

missing=()
for p in "${native[@]}" "${i386[@]}"; do
  dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q 'install ok installed' || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ]; then
  echo "setup: all packages present"
  exit 0
fi

SUDO=""
[ "$(id -u)" -eq 0 ] || SUDO="sudo"
echo "setup: installing ${missing[*]}"
if [ ${#i386[@]} -gt 0 ] && ! dpkg --print-foreign-architectures | grep -qx i386; then
  $SUDO dpkg --add-architecture i386
fi
export DEBIAN_FRONTEND=noninteractive
# A mirror caught mid-sync fails one index now and then; retry, then go on
# with whatever lists were fetched.
for attempt in 1 2 3; do
  $SUDO apt-get update -qq && break
  echo "setup: apt-get update failed (attempt $attempt), retrying"
  sleep 5
done
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
echo "setup: done"
