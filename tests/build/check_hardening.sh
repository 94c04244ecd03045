#!/usr/bin/env bash
# Checks that each ELF file given was built hardened, the way
# hardening-check reads it: full RELRO (a GNU_RELRO segment and BIND_NOW),
# stack protection (__stack_chk_fail called), _FORTIFY_SOURCE (a checked
# __*_chk function called), and, for an executable, position independence.
# Usage: check_hardening.sh FILE...
set -euo pipefail
[ $# -gt 0 ] || { echo "usage: check_hardening.sh FILE..." >&2; exit 2; }
status=0
for file in "$@"; do
  missing=()
  headers=$(readelf -W --file-header --program-headers --dynamic "$file")
  symbols=$(readelf -W --dyn-syms "$file")
  grep -q 'GNU_RELRO' <<<"$headers" || missing+=("RELRO")
  grep -Eq '\(FLAGS\).*BIND_NOW|\(FLAGS_1\).*NOW' <<<"$headers" || missing+=("BIND_NOW")
  grep -q ' UND __stack_chk_fail' <<<"$symbols" || missing+=("stack protector")
  grep -Eq ' UND __[a-z0-9_]+_chk(@|$)' <<<"$symbols" || missing+=("_FORTIFY_SOURCE")
  if grep -q 'Type:.*DYN' <<<"$headers" && grep -q 'INTERP' <<<"$headers"; then
    grep -Eq '\(FLAGS_1\).*PIE' <<<"$headers" || missing+=("PIE")
  elif grep -q 'Type:.*EXEC' <<<"$headers"; then
    missing+=("PIE")
  fi
  if [ ${#missing[@]} -eq 0 ]; then
    echo "hardened: $file"
  else
    echo "not hardened: $file: no ${missing[*]}" >&2
    status=1
  fi
done
exit $status
