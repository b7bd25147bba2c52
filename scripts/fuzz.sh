#!/usr/bin/env bash
# Builds the libFuzzer targets (fuzz/*_fuzzer.cpp, ASan+UBSan) and runs each
# for a fixed time, then prints executions, coverage and crashes per target.
#
#   scripts/fuzz.sh                      fuzz preset (build/fuzz), 20 s each
#   scripts/fuzz.sh --seconds 600        longer run
#   scripts/fuzz.sh --build-dir DIR      another build dir (configured with
#                                        -DLUMX_BUILD_FUZZ=ON if it is new)
#   scripts/fuzz.sh --no-build           run what is built
#   scripts/fuzz.sh NAME...              only these targets (e.g. control_reply_fuzzer)
#
# The corpus each target grows is kept in DIR/fuzz-corpus/NAME (the seeds of
# fuzz/corpus/NAME are read too, never written); crash inputs go to
# DIR/fuzz-artifacts/, full logs to DIR/fuzz-logs/. Reproduce a crash with
#   DIR/fuzz/NAME DIR/fuzz-artifacts/NAME-crash-<hash>
# Exit status: 0 when no target crashed, leaked or timed out, 1 otherwise.
set -euo pipefail
cd "$(dirname "$0")/.."

seconds=20
build_dir=build/fuzz
build=1
only=()
while [ $# -gt 0 ]; do
  case "$1" in
    --seconds) seconds="$2"; shift 2 ;;
    --build-dir) build_dir="$2"; shift 2 ;;
    --no-build) build=0; shift ;;
    -h|--help) sed -n '2,18p' "$0"; exit 0 ;;
    -*) echo "fuzz.sh: unknown option $1" >&2; exit 64 ;;
    *) only+=("$1"); shift ;;
  esac
done

targets=()
for src in fuzz/*_fuzzer.cpp; do
  [ -e "$src" ] || continue
  name=$(basename "$src" .cpp)
  if [ ${#only[@]} -gt 0 ]; then
    case " ${only[*]} " in *" $name "*) ;; *) continue ;; esac
  fi
  targets+=("$name")
done
if [ ${#targets[@]} -eq 0 ]; then
  echo "fuzz.sh: no fuzz targets" >&2
  exit 64
fi

if [ "$build" = 1 ]; then
  if [ "$build_dir" = build/fuzz ]; then
    cmake --preset fuzz >/dev/null
  elif [ ! -f "$build_dir/CMakeCache.txt" ]; then
    cmake -S . -B "$build_dir" -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
      -DCMAKE_BUILD_TYPE=Debug -DLUMX_SANITIZE=address,undefined -DLUMX_BUILD_FUZZ=ON \
      -DLUMX_BUILD_TESTS=OFF -DLUMX_BUILD_BENCH=OFF >/dev/null
  fi
  cmake --build "$build_dir" -j2 --target "${targets[@]}"
fi

logs="$build_dir/fuzz-logs"
arts="$build_dir/fuzz-artifacts"
mkdir -p "$logs" "$arts"
export ASAN_OPTIONS="${ASAN_OPTIONS:-detect_leaks=1:abort_on_error=1}"
export UBSAN_OPTIONS="${UBSAN_OPTIONS:-print_stacktrace=1:halt_on_error=1}"

child=
trap '[ -n "$child" ] && kill "$child" 2>/dev/null; exit 130' INT TERM

failed=0
rows=()
for name in "${targets[@]}"; do
  bin="$build_dir/fuzz/$name"
  if [ ! -x "$bin" ]; then
    rows+=("$(printf '%-28s %s' "$name" 'not built')")
    failed=1
    continue
  fi
  corpus="$build_dir/fuzz-corpus/$name"
  mkdir -p "$corpus"
  seeds=()
  [ -d "fuzz/corpus/$name" ] && seeds=("fuzz/corpus/$name")
  log="$logs/$name.log"
  before=$(ls "$arts" | grep -c "^$name-" || true)
  echo "== $name: ${seconds} s" >&2
  set +e
  # -timeout: one input that runs 10 s is a hang; the harnesses answer every
  # control command at once, so no input waits on the daemon's own time-outs.
  "$bin" "$corpus" "${seeds[@]}" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2560 \
    -print_final_stats=1 -artifact_prefix="$arts/$name-" >"$log" 2>&1 &
  child=$!
  wait "$child"
  rc=$?
  child=
  set -e
  after=$(ls "$arts" | grep -c "^$name-" || true)
  execs=$(sed -n 's/^stat::number_of_executed_units: *//p' "$log" | tail -1)
  rate=$(sed -n 's/^stat::average_exec_per_sec: *//p' "$log" | tail -1)
  rss=$(sed -n 's/^stat::peak_rss_mb: *//p' "$log" | tail -1)
  cov=$(grep -a -o 'cov: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
  ft=$(grep -a -o 'ft: [0-9]*' "$log" | tail -1 | cut -d' ' -f2)
  units=$(ls "$corpus" | wc -l)
  crashes=$((after - before))
  verdict=ok
  if [ "$rc" -ne 0 ] || [ "$crashes" -gt 0 ]; then
    verdict="FAILED (exit $rc; see $log)"
    failed=1
    grep -a -m3 -E 'ERROR: |runtime error|SUMMARY|Test unit written' "$log" >&2 || true
  fi
  rows+=("$(printf '%-28s %10s %8s %7s %7s %7s %7s %7s  %s' "$name" "${execs:-0}" "${rate:-0}" \
    "${cov:-0}" "${ft:-0}" "$units" "${rss:-0}" "$crashes" "$verdict")")
done

echo
printf '%-28s %10s %8s %7s %7s %7s %7s %7s  %s\n' target execs exec/s cov ft corpus rss_mb crashes result
for r in "${rows[@]}"; do echo "$r"; done
echo "(${seconds} s each; cov = covered edges, ft = features, corpus = units kept in $build_dir/fuzz-corpus)"
exit "$failed"
