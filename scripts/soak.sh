#!/usr/bin/env bash
# Soak and fault run of lumxd (ASan+UBSan debug build) against lumx-dspsim:
# DSP restarts every few seconds, delayed/dropped/stray control replies,
# split/stale/misaligned/corrupt packets, client threads calling every
# operation, relay clients killed and re-attached. Checks that the daemon
# survives, streams resume after every restart, descriptors and threads do
# not grow, and no sanitizer reports anything. Exit 1 on any failure.
#
#   scripts/soak.sh                     build the debug preset, run 300 s
#   scripts/soak.sh --seconds 60        the short form for CI (~1.5 min)
#   scripts/soak.sh --build-dir DIR     another ASan/UBSan build
#   scripts/soak.sh --no-build          do not build first
#   scripts/soak.sh --clients 8 --restart-every 5 --seed 7 --keep
#
# Every process it starts lives in a private temporary directory and is
# stopped at the end, also on Ctrl-C; the directory is kept (and named) only
# when the run fails or --keep is given.
set -euo pipefail
cd "$(dirname "$0")/.."

build_dir=build/debug
build=1
pass=()
while [ $# -gt 0 ]; do
  case "$1" in
    --build-dir) build_dir="$2"; shift 2 ;;
    --no-build) build=0; shift ;;
    -h|--help) sed -n '2,17p' "$0"; python3 bench/system/soak.py --help; exit 0 ;;
    *) pass+=("$1"); shift ;;
  esac
done

if [ "$build" = 1 ]; then
  if [ "$build_dir" = build/debug ]; then
    cmake --preset debug >/dev/null
  fi
  cmake --build "$build_dir" -j2 --target lumxd lumx lumx-dspsim
fi

exec python3 bench/system/soak.py --build-dir "$build_dir" "${pass[@]}"
