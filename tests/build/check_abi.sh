#!/usr/bin/env bash
# Compares the ABI of a built library with the committed baseline: any
# difference, an addition included, fails. The library must carry debug
# information (a RelWithDebInfo or Debug build).
# Usage: check_abi.sh LIBRARY BASELINE SUPPRESSIONS HEADERS_DIR
# With ZELK_ELF_UPDATE_ABI=1 the baseline is rewritten instead, after a
# deliberate change of the interface.
set -euo pipefail
lib=${1:?usage: check_abi.sh LIBRARY BASELINE SUPPRESSIONS HEADERS_DIR}
baseline=${2:?}
suppressions=${3:?}
headers=${4:?}
root=$(cd "$(dirname "$0")/../.." && pwd)
# The ABI of LIBRARY into FILE, source paths relative to the checkout, so a
# baseline made in one checkout compares cleanly in another.
dump() {
  abidw --no-corpus-path --no-comp-dir-path --no-show-locs --type-id-style hash \
    --exported-interfaces-only --headers-dir "$headers" --drop-private-types \
    --suppressions "$suppressions" --out-file "$2" "$1"
  sed -i "s|path='$root/|path='|" "$2"
}
if [ -n "${ZELK_ELF_UPDATE_ABI:-}" ]; then
  dump "$lib" "$baseline"
  echo "abi: wrote $baseline"
  exit 0
fi
current=$(mktemp)
trap 'rm -f "$current"' EXIT
dump "$lib" "$current"
if ! abidiff --no-show-locs --suppressions "$suppressions" "$baseline" "$current"; then
  echo "abi: $lib differs from $baseline (rerun with ZELK_ELF_UPDATE_ABI=1 after a deliberate change)" >&2
  exit 1
fi
echo "abi: same as $baseline"
