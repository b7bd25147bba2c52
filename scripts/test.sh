#!/usr/bin/env bash
# Installs what is needed, builds and runs the whole test suite:
#   scripts/test.sh            ASan+UBSan build (with short fuzz runs), then
#                              the ThreadSanitizer build: what CI runs
#   scripts/test.sh debug      only the ASan+UBSan build
#   scripts/test.sh tsan       only the ThreadSanitizer build
set -euo pipefail
cd "$(dirname "$0")/.."
presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(debug tsan)
scripts/install-deps.sh
# Sanitizer settings for every test and every process the tests start.
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:strict_string_checks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1 second_deadlock_stack=1 suppressions=$PWD/tests/tsan.supp}"
for preset in "${presets[@]}"; do
  echo "=== $preset: build ==="
  scripts/build.sh "$preset"
  echo "=== $preset: tests ==="
  ctest --preset "$preset"
done
