#!/usr/bin/env bash
# Installs what is needed, builds and runs the whole test suite:
#   scripts/test.sh              ASan+UBSan build (with short fuzz runs), then
#                                the ThreadSanitizer build; beside them a
#                                release build with GCC (compiled, not run,
#                                in the background while tests run): what CI runs
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
# Beside a tested preset, a build-only one is compiled in the background at
# the lowest priority once the first tests start: they spend most of their
# time waiting on timers and devices, so CI stays well inside its time.
is_build_only() { case "$build_only" in *" $1 "*) return 0 ;; esac; return 1; }
background=()
trap 'for j in "${background[@]+"${background[@]}"}"; do kill "${j%%:*}" 2>/dev/null || true; done' EXIT
has_tested=0
for preset in "${presets[@]}"; do is_build_only "$preset" || has_tested=1; done
start_background() {
  [ "$has_tested" = 1 ] && [ ${#background[@]} -eq 0 ] || return 0
  local p
  for p in "${presets[@]}"; do
    is_build_only "$p" || continue
    echo "=== $p: build, in the background (log: build/$p.log) ==="
    mkdir -p build
    nice -n 19 scripts/build.sh "$p" >"build/$p.log" 2>&1 &
    background+=("$!:$p")
  done
}
for preset in "${presets[@]}"; do
  if is_build_only "$preset" && [ "$has_tested" = 1 ]; then continue; fi
  echo "=== $preset: build ==="
  SECONDS=0
  scripts/build.sh "$preset"
  echo "=== $preset: built in ${SECONDS} s ==="
  is_build_only "$preset" && continue
  start_background
  echo "=== $preset: tests ==="
  ctest --preset "$preset"
done
for job in "${background[@]+"${background[@]}"}"; do
  if ! wait "${job%%:*}"; then
    tail -n 50 "build/${job#*:}.log"
    echo "=== ${job#*:}: build FAILED ===" >&2
    exit 1
  fi
  echo "=== ${job#*:}: built ==="
done
