#!/usr/bin/env bash
# The main job: install what the build needs, configure and build everything,
# then write the sample image with zelk-elf and show it with info and debug.
# Usage: scripts/run.sh          (builds into out/native, writes out/sample.elf)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
out=${ZELK_ELF_BUILD_ROOT:-$root/out}
jobs=${JOBS:-$(nproc)}
shared=$(cd "$root/.." && pwd)/shared

bash scripts/setup.sh

echo "=== configure and build ($out/native)"
cmake -S "$root" -B "$out/native" -DCMAKE_BUILD_TYPE=Release \
  -DZELK_ELF_SHARED_DIR="$shared" >/dev/null
cmake --build "$out/native" -j"$jobs"

tool="$out/native/tools/zelk-elf"
sample="$out/sample.elf"
echo
echo "=== zelk-elf sample -o $sample"
"$tool" sample -o "$sample"
echo
echo "=== zelk-elf info $sample"
"$tool" info "$sample"
echo
echo "=== zelk-elf debug $sample"
"$tool" debug "$sample"
