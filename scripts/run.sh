#!/usr/bin/env bash
# The main job: install what building the library and zelk-elf needs, build
# just those (no tests or benchmarks), then write the sample image with
# zelk-elf, show it, change its debug values through their JSON and compare.
# Usage: scripts/run.sh          (builds into out/cli, writes out/sample.elf)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
out=${ZELK_ELF_BUILD_ROOT:-$root/out}
jobs=${JOBS:-$(nproc)}

bash scripts/setup.sh --main

echo "=== configure and build the library and zelk-elf ($out/cli)"
cmake -S "$root" -B "$out/cli" -DCMAKE_BUILD_TYPE=Release \
  -DZELK_ELF_TESTS=OFF -DZELK_ELF_BENCH=OFF >/dev/null
cmake --build "$out/cli" -j"$jobs" --target zelk-elf

tool="$out/cli/tools/zelk-elf"
sample="$out/sample.elf"
show() { echo; echo "=== zelk-elf $*"; "$tool" "$@"; }
show sample -o "$sample"
show info "$sample"
show debug "$sample"
"$tool" debug "$sample" --json > "$out/sample.json"
echo '{"swp_list": [{"address": 12}, {"address": 20}, {"address": 28}], "pm_size": 16384}' \
  > "$out/patch.json"
echo; echo "=== $out/patch.json"; cat "$out/patch.json"
show edit "$sample" -o "$out/patched.elf" --set-debug "$out/patch.json"
show diff "$sample" "$out/patched.elf" || true
