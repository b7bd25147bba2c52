#!/usr/bin/env bash
# System benchmark of lumxd against lumx-dspsim: stream latency against a bare
# relay loop (both streaming at once through one simulator, compared window by
# window), daemon CPU per stream (1, 4, 8 streams), control-path calls/s
# and p99 (1 and 8 client threads), peak RSS idle and with 8 streams; then
# the fault run (bench/system/fault_run.py): healthy streams' p99 beside a
# stalled inject reader, call times during the stall, daemon CPU while a
# tap-out writer is gone, packets lost to bursts.
# Prints tables with the goals and writes the figures as JSON.
#
#   scripts/bench.sh                        build the release preset, run (~4 min)
#   scripts/bench.sh --build-dir DIR        use another (RelWithDebInfo) build
#   scripts/bench.sh --no-build             do not build first
#   scripts/bench.sh --windows 20           latency windows (default 12, at least 10)
#   scripts/bench.sh --window-seconds 10    latency window length (default 5 s)
#   scripts/bench.sh --seconds 20           longer CPU windows and fault rounds (default 10 s)
#   scripts/bench.sh --json-out FILE        JSON path (default DIR/bench-system.json)
#   scripts/bench.sh --strict               exit 1 when a goal is missed
#   scripts/bench.sh --keep                 keep the run's temp dir (logs)
#   scripts/bench.sh --no-fault             skip the fault run
#   scripts/bench.sh --fault-only           only the fault run (JSON: DIR/bench-faults.json)
#   scripts/bench.sh --stats-cost           only the cost of the dump's counters on the I/O
#                                           thread's packet path (instructions under callgrind,
#                                           counters on against compiled out; goal <= 1.02)
#
# Every process it starts lives in a private temporary directory
# (LUMX_DEV_ROOT, LUMX_BINDER_DIR, LUMX_SYSFS_ROOT) and is stopped at the end,
# also on Ctrl-C.
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=build/release
build=1
fault=1
stats_cost=0
pass=()
while [ $# -gt 0 ]; do
  case "$1" in
    --build-dir) build_dir="$2"; shift 2 ;;
    --no-build) build=0; shift ;;
    --no-fault) fault=0; shift ;;
    --fault-only) fault=2; shift ;;
    --stats-cost) stats_cost=1; shift ;;
    -h|--help) sed -n '2,27p' "$0"; python3 bench/system/bench.py --help; exit 0 ;;
    *) pass+=("$1"); shift ;;
  esac
done

if [ "$stats_cost" = 1 ]; then
  if [ "$build_dir" = build/release ] && [ "$build" = 1 ]; then
    cmake --preset release >/dev/null
  fi
  exec cmake --build "$build_dir" -j2 --target stats_cost
fi

if [ "$build" = 1 ]; then
  if [ "$build_dir" = build/release ]; then
    cmake --preset release >/dev/null
  fi
  cmake --build "$build_dir" -j2 --target lumxd lumx lumx-dspsim ilumx_client_bench
fi

# The bare relay loop is built by bench/system/CMakeLists.txt when the
# top-level build includes it; otherwise compile it here, standalone.
bare="$build_dir/bench/system/bare_relay_tool"
if ! cmake --build "$build_dir" --target bare_relay_tool >/dev/null 2>&1; then
  if [ ! -x "$bare" ] || [ bench/bare_relay_tool.cpp -nt "$bare" ]; then
    mkdir -p "$(dirname "$bare")"
    "${CXX:-clang++}" -std=c++17 -O2 -g -Wall -Wextra -Werror -fno-exceptions -I. \
      bench/bare_relay_tool.cpp -o "$bare"
  fi
fi

if [ "$fault" != 2 ]; then
  python3 bench/system/bench.py --build-dir "$build_dir" "${pass[@]}"
fi
if [ "$fault" != 0 ]; then
  exec python3 bench/system/fault_run.py --build-dir "$build_dir" "${pass[@]}"
fi
