#!/usr/bin/env bash
# Installs what is needed, builds the sanitizer build and runs the whole suite.
#   scripts/test.sh            ASan+UBSan build (what CI runs)
#   scripts/test.sh tsan       ThreadSanitizer build
set -euo pipefail
cd "$(dirname "$0")/.."
preset="${1:-debug}"
scripts/install-deps.sh
scripts/build.sh "$preset"
# Sanitizer settings for every test and every process the tests start.
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1:strict_string_checks=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"
export TSAN_OPTIONS="${TSAN_OPTIONS:-halt_on_error=1 second_deadlock_stack=1 suppressions=$PWD/tests/tsan.supp}"
ctest --preset "$preset"
