#!/usr/bin/env bash
# End-to-end demo: lumxd against the lumx-dspsim simulator, driven by the lumx
# shell tool, in a private temporary device directory.
#
#   scripts/demo.sh [BUILD_DIR]     (default: $LUMX_BUILD_DIR, else build/release)
#
# Environment: LUMX_DEMO_SECONDS (streaming time per step, default 3);
# LUMX_DEMO_KEEP=DIR keeps the relay's recording, the statistics and both
# logs in DIR; LUMX_DEMO_GRAPH=FILE is where the graph picture goes (default
# BUILD_DIR/lumx-graph.png; .svg for an SVG).
#
# It switches MIC_IN on and shows the graph, the buffers and the processors,
# streams for a few seconds and prints what the simulated DSP saw coming back
# (packets, gaps, round-trip latency), switches to SPEAKER_OUT, then runs the
# telephony use case (AREL_TELE) with a relay client recording art0's audio.
# With MIC_IN on beside AREL_TELE it shows `lumx top --once` and draws the
# connection graph with Graphviz, then switches everything off, stops both
# processes and ends by saying where the picture is. Nothing outside the
# temporary directory is touched but the picture; the directory is removed on
# any exit. Exit status 0 when every step answered OK and audio came back on
# every path.
set -euo pipefail

BUILD_DIR="${1:-${LUMX_BUILD_DIR:-build/release}}"
STREAM_SECONDS="${LUMX_DEMO_SECONDS:-3}"
GRAPH_FILE="${LUMX_DEMO_GRAPH:-$BUILD_DIR/lumx-graph.png}"
LUMXD="$BUILD_DIR/lumxd"
LUMX="$BUILD_DIR/tools/lumx/lumx"
DSPSIM="$BUILD_DIR/tools/lumx-dspsim/lumx-dspsim"

for bin in "$LUMXD" "$LUMX" "$DSPSIM"; do
  if [[ ! -x "$bin" ]]; then
    echo "demo: $bin not found; build first (scripts/build.sh release) or pass the build directory" >&2
    exit 2
  fi
done

WORK="$(mktemp -d "${TMPDIR:-/tmp}/lumx-demo.XXXXXX")"
SIM_PID=""
LUMXD_PID=""
RELAY_PID=""

# Stops whatever is still running (daemon first: it writes into the
# simulator's FIFOs) and removes the temporary directory, on every exit.
cleanup() {
  local rc=$?
  trap - EXIT INT TERM
  if [[ -n "${LUMX_DEMO_KEEP:-}" ]]; then
    mkdir -p "$LUMX_DEMO_KEEP" &&
      cp -f "$WORK"/*.wav "$WORK"/*.log "$WORK"/stats.json "$LUMX_DEMO_KEEP"/ 2>/dev/null || true
  fi
  for pid in "$RELAY_PID" "$LUMXD_PID" "$SIM_PID"; do
    [[ -n "$pid" ]] || continue
    if kill -0 "$pid" 2>/dev/null; then
      kill -TERM "$pid" 2>/dev/null || true
      for _ in $(seq 50); do kill -0 "$pid" 2>/dev/null || break; sleep 0.1; done
      kill -KILL "$pid" 2>/dev/null || true
    fi
    wait "$pid" 2>/dev/null || true
  done
  rm -rf "$WORK"
  exit "$rc"
}
trap cleanup EXIT
trap 'exit 130' INT
trap 'exit 143' TERM

mkdir -p "$WORK/dev" "$WORK/sys/power"
mkdir -m 700 "$WORK/binder"   # the binder runtime accepts only a private directory
export LUMX_DEV_ROOT="$WORK/dev"
export LUMX_BINDER_DIR="$WORK/binder"
export LUMX_SYSFS_ROOT="$WORK/sys"
STATS="$WORK/stats.json"
FAILURES=()

section() { printf '\n=== %s ===\n' "$*"; }

# Runs one lumx command, shows it and its answer, and remembers a failure.
lumx() {
  printf '$ lumx %s\n' "$*"
  local out rc=0
  out="$("$LUMX" "$@" 2>&1)" || rc=$?
  [[ -z "$out" ]] || sed 's/^/  /' <<<"$out"
  if [[ $rc -ne 0 ]]; then
    printf '  (exit status %d)\n' "$rc"
    FAILURES+=("lumx $* -> exit $rc")
  fi
  return 0
}

# Waits up to $1 tenths of a second for the command in the remaining words.
wait_for() {
  local tenths=$1
  shift
  for _ in $(seq "$tenths"); do
    if "$@" >/dev/null 2>&1; then return 0; fi
    sleep 0.1
  done
  return 1
}

# Asks the simulator for fresh statistics and waits for the file.
dump_stats() {
  rm -f "$STATS"
  kill -USR1 "$SIM_PID"
  wait_for 50 test -s "$STATS" || { echo "demo: no statistics from the simulator" >&2; return 1; }
}

# stream_field NODE FIELD: a number from NODE's entry in the statistics.
stream_field() {
  local obj
  obj="$(grep -oE "\{\"node\":\"$1\"[^{}]*(\{[^{}]*\}[^{}]*)?\}" "$STATS" | head -n1)"
  grep -oE "\"$2\":[0-9.]+" <<<"$obj" | head -n1 | cut -d: -f2
}

# One line about the audio that came back on inject node ID.
report_inject() {
  local id=$1 node="zch-lumx_inject$1"
  local sent recv gaps errors p50 p99
  sent="$(stream_field "zch-lumx_tapout$id" packets_sent)"
  recv="$(stream_field "$node" packets_received)"
  gaps="$(stream_field "$node" gaps)"
  errors="$(stream_field "$node" errors)"
  p50="$(stream_field "$node" p50)"
  p99="$(stream_field "$node" p99)"
  printf '  tap-out %s -> inject %s: %s packets sent, %s came back, %s gaps, %s errors, latency p50 %s us, p99 %s us\n' \
    "$id" "$id" "${sent:-0}" "${recv:-0}" "${gaps:-?}" "${errors:-?}" "${p50:-?}" "${p99:-?}"
  SUMMARY+=("$(printf '%-12s %6s packets back, %s gaps, %s errors, latency p50 %s us / p99 %s us' \
    "inject$id" "${recv:-0}" "${gaps:-?}" "${errors:-?}" "${p50:-?}" "${p99:-?}")")
  if [[ "${recv:-0}" -eq 0 || "${errors:-1}" -ne 0 ]]; then
    FAILURES+=("inject $id: ${recv:-0} packets back, ${errors:-?} errors")
  fi
}
SUMMARY=()

section "Starting lumx-dspsim and lumxd in $WORK"
"$DSPSIM" --dev-root "$WORK/dev" --ready-file "$WORK/sim.ready" --stats "$STATS" \
  >"$WORK/dspsim.log" 2>&1 &
SIM_PID=$!
if ! wait_for 100 test -s "$WORK/sim.ready"; then
  echo "demo: lumx-dspsim did not come up; its log:" >&2
  cat "$WORK/dspsim.log" >&2
  exit 1
fi
echo "lumx-dspsim ready (pid $SIM_PID): $(cd "$WORK/dev" && echo *)"

LUMX_LOG_LEVEL="${LUMX_LOG_LEVEL:-I}" "$LUMXD" >"$WORK/lumxd.log" 2>&1 &
LUMXD_PID=$!
# The service appears after the daemon's first device scan (at least 0.5 s).
if ! wait_for 150 "$LUMX" Ping; then
  echo "demo: lumxd does not answer; its log:" >&2
  tail -n 30 "$WORK/lumxd.log" >&2
  exit 1
fi
echo "lumxd answers (pid $LUMXD_PID)"

section "MIC_IN: DSP tap 2:imic.0 -> tapout20 -> pas1 -> inject20 -> imic.0"
lumx ListSupportedUseCases
lumx Enable mic_in 1
lumx ShowGraph
lumx ListTapOutBuffers
lumx ListProcessors

echo "streaming for ${STREAM_SECONDS} s ..."
sleep "$STREAM_SECONDS"
dump_stats
report_inject 20

section "SPEAKER_OUT: DSP tap 2:sspk.0 -> tapout21 -> pas1 -> inject21 -> sspk.0"
lumx Enable mic_in 0
lumx Enable speaker_out 1
lumx ShowGraph
echo "streaming for ${STREAM_SECONDS} s ..."
sleep "$STREAM_SECONDS"
dump_stats
report_inject 21
lumx Enable speaker_out 0

section "AREL_TELE: relay processors art0 (4:vpdl.0, buffers 40) and art1 (4:vpul.1, buffers 41)"
lumx Enable arel_tele 1
lumx IsEnabled arel_tele
lumx ShowGraph
RELAY_WAV="$WORK/art0.wav"
printf '$ lumx relay art0 --record %s --seconds %s\n' "$RELAY_WAV" "$STREAM_SECONDS"
relay_rc=0
relay_out="$("$LUMX" relay art0 --record "$RELAY_WAV" --seconds "$STREAM_SECONDS" 2>&1)" || relay_rc=$?
[[ -z "$relay_out" ]] || sed 's/^/  /' <<<"$relay_out"
if [[ $relay_rc -ne 0 ]]; then
  FAILURES+=("lumx relay art0 -> exit $relay_rc")
fi
relay_bytes=0
[[ -f "$RELAY_WAV" ]] && relay_bytes=$(stat -c %s "$RELAY_WAV")
echo "  recorded $relay_bytes bytes of art0 audio into $(basename "$RELAY_WAV")"
if [[ $relay_bytes -le 44 ]]; then
  FAILURES+=("relay art0 recorded no audio")
fi
dump_stats
report_inject 40
SUMMARY+=("$(printf '%-12s exit %s, %s bytes of WAV recorded' "relay art0" "$relay_rc" "$relay_bytes")")

section "MIC_IN beside AREL_TELE: lumx top and the connection graph"
lumx Enable mic_in 1
sleep 1
# top reads the daemon's dump; a daemon built without one cannot answer it.
printf '$ lumx top --once\n'
top_rc=0
top_out="$("$LUMX" top --once 2>&1)" || top_rc=$?
[[ -z "$top_out" ]] || sed 's/^/  /' <<<"$top_out"
if [[ $top_rc -ne 0 && "$top_out" != *"answered no dump"* ]]; then
  FAILURES+=("lumx top --once -> exit $top_rc")
fi
GRAPH_NOTE=""
if command -v dot >/dev/null 2>&1; then
  graph_format=png
  [[ "$GRAPH_FILE" == *.svg ]] && graph_format=svg
  lumx graph "--$graph_format" "$GRAPH_FILE"
  [[ -s "$GRAPH_FILE" ]] && GRAPH_NOTE="$(cd "$(dirname "$GRAPH_FILE")" && pwd)/$(basename "$GRAPH_FILE")"
else
  echo "  Graphviz's dot is not installed (scripts/install-deps.sh installs it): no picture"
  lumx graph --dot
fi

section "Switching everything off"
lumx Enable mic_in 0
lumx Enable arel_tele 0
lumx IsEnabled arel_tele
lumx ShowGraph
lumx ListProcessors

section "Stopping"
# lumxd leaves its event loop on SIGINT but keeps serving by design; SIGTERM
# ends the process. The simulator writes its final statistics on SIGINT.
kill -TERM "$LUMXD_PID"
wait "$LUMXD_PID" 2>/dev/null || true
LUMXD_PID=""
rm -f "$STATS"
kill -INT "$SIM_PID"
sim_rc=0
wait "$SIM_PID" || sim_rc=$?
SIM_PID=""
echo "lumxd stopped; lumx-dspsim exited with $sim_rc"
if [[ $sim_rc -ne 0 ]]; then
  FAILURES+=("lumx-dspsim exit $sim_rc")
fi

section "Summary"
for line in "${SUMMARY[@]}"; do echo "  $line"; done
if [[ -n "$GRAPH_NOTE" ]]; then
  echo "  connection graph (MIC_IN and AREL_TELE): $GRAPH_NOTE"
fi
if [[ ${#FAILURES[@]} -eq 0 ]]; then
  echo "  all steps OK: audio went DSP -> lumxd -> DSP on every path"
  exit 0
fi
echo "  ${#FAILURES[@]} problem(s):"
for f in "${FAILURES[@]}"; do echo "    - $f"; done
exit 1
