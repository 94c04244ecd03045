#!/usr/bin/env bash
# Runs every libFuzzer target of a fuzz build for a bounded time.
# Usage: scripts/fuzz.sh BUILD_DIR [SECONDS_PER_TARGET]
# Without SECONDS the test command's budget applies: about a minute in all,
# most of it for the whole-image targets. New inputs go to a scratch folder;
# the committed seeds and findings (fuzz/corpus/<target>/, fuzz/findings/
# <target>/) and the shared corpus are read.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
build=${1:?usage: fuzz.sh BUILD_DIR [SECONDS]}
fixed=${2:-}
shared=$(cd "$root/.." && pwd)/shared
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
# Crashing inputs outlive the run, so a failure can be reproduced.
artifacts=$build/fuzz-artifacts
mkdir -p "$artifacts"

shopt -s nullglob
targets=("$build"/fuzz/*_fuzz)
if [ ${#targets[@]} -eq 0 ]; then
  echo "fuzz.sh: no fuzz targets in $build/fuzz" >&2
  exit 1
fi
for bin in "${targets[@]}"; do
  name=$(basename "$bin")
  case $name in
    engine_fuzz) secs=20 ;;
    capi_fuzz) secs=15 ;;
    *) secs=10 ;;
  esac
  [ -n "$fixed" ] && secs=$fixed
  dirs=("$work/$name")
  mkdir -p "$work/$name"
  for seeds in corpus findings; do
    [ -d "$root/fuzz/$seeds/$name" ] && dirs+=("$root/fuzz/$seeds/$name")
  done
  case $name in
    engine_fuzz|capi_fuzz) [ -d "$shared/corpus" ] && dirs+=("$shared/corpus/real" "$shared/corpus/hostile") ;;
  esac
  echo "fuzz: $name for ${secs}s"
  (cd "$work" && "$bin" -max_total_time="$secs" -timeout=10 -rss_limit_mb=2560 \
      -malloc_limit_mb=1024 -print_final_stats=1 -artifact_prefix="$artifacts/$name-" \
      "${dirs[@]}" 2>"$work/$name.log") || {
    tail -40 "$work/$name.log"
    echo "fuzz: $name FAILED" >&2
    exit 1
  }
  grep -E 'stat::number_of_executed_units|cov:' "$work/$name.log" | tail -2 | sed 's/^/  /'
done
