#!/usr/bin/env bash
# Installs what is needed, builds and runs the whole test suite:
#   scripts/test.sh              ASan+UBSan build (with short fuzz runs), then
#                                the ThreadSanitizer build, then a release
#                                build with GCC (compiled, not run): what CI runs
#   scripts/test.sh debug        only the ASan+UBSan build
#   scripts/test.sh tsan         only the ThreadSanitizer build
#   scripts/test.sh gcc-release  only the GCC build
set -euo pipefail
cd "$(dirname "$0")/.."
presets=("$@")
[ ${#presets[@]} -gt 0 ] || presets=(debug tsan gcc-release)
# Presets that are built to prove they compile warning-free; their tests are
# the same code the sanitizer builds run.
build_only=" gcc-release "
scripts/install-deps.sh
# Sanitizer settings for every test and every process the tests start.
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:strict_string_checks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1 second_deadlock_stack=1 suppressions=$PWD/tests/tsan.supp}"
for preset in "${presets[@]}"; do
  echo "=== $preset: build ==="
  SECONDS=0
  scripts/build.sh "$preset"
  echo "=== $preset: built in ${SECONDS} s ==="
  case "$build_only" in *" $preset "*) continue ;; esac
  echo "=== $preset: tests ==="
  ctest --preset "$preset"
done
