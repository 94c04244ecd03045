#!/usr/bin/env bash
# Runs the C-interface test binaries under valgrind; any error or leak fails.
set -euo pipefail
build=${1:?usage: valgrind.sh BUILD_DIR}
shopt -s nullglob
bins=("$build"/tests/capi/*_test)
if [ ${#bins[@]} -eq 0 ]; then
  echo "valgrind.sh: no C-interface tests in $build/tests/capi" >&2
  exit 1
fi
for bin in "${bins[@]}"; do
  echo "valgrind: $(basename "$bin")"
  valgrind -q --error-exitcode=1 --leak-check=full --errors-for-leak-kinds=definite,indirect \
    "$bin" --gtest_brief=1 >/dev/null
done
echo "valgrind: clean"
