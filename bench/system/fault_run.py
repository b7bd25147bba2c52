#!/usr/bin/env python3
"""Fault run of the system benchmark (scripts/bench.sh runs it after bench.py).

Eight passthrough streams of 480-sample blocks (buffers 50..57) through lumxd
against lumx-dspsim, in fresh simulator and daemon pairs:
  1. baseline: every inject reader reads;
  2. stall: stream 7's inject reader never reads (--fault-stall-inject 57),
     rounds alternating with the baseline. Printed: the p99 latency of the
     seven healthy streams against the baseline's (goal: ratio <= 1.2), and
     how long StopIo, DeleteProcessor, an unrelated Connect and the listings
     take while the stall lasts;
  3. a vanishing writer: stream 7 alone, its tap-out writer away for 4 s
     every 12 s (--fault-writer-gone). Printed: the daemon's CPU while the
     writer is gone against a window with it there, and whether the stream
     resumes;
  4. bursts: stream 6 alone gets 100 ms of packets in one write every second
     (--fault-burst). Printed: packets received and lost.
Latency figures are medians (over streams and rounds) of each stream's p99,
which keeps one stray round on a busy machine from deciding the ratio.
Writes every figure as JSON.
"""

import argparse
import json
import os
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import lumxsys  # noqa: E402
from lumxsys import log, median  # noqa: E402

STREAMS = 8
BUF0 = 50
STALLED = BUF0 + 7
BURSTY = BUF0 + 6
GOALS = {"healthy_p99_ratio_max": 1.2, "call_ms_max": 1000.0, "writer_gone_cpu_percent_max": 2.0}


def tap_table(tools):
    base = subprocess.run([tools.sim, "--print-taps"], capture_output=True, check=True).stdout.decode()
    lines = [base.rstrip("\n")] + ["3 bnc%d.0 48000 480 1 16" % i for i in range(STREAMS)]
    return "\n".join(lines) + "\n"


def start(tools, keep, sim_args, streams=range(STREAMS)):
    rig = lumxsys.Rig(tools, keep=keep, prefix="lumx_fault.")
    taps = rig.path("taps.txt")
    with open(taps, "w") as f:
        f.write(tap_table(tools))
    bufs = ",".join(str(BUF0 + i) for i in range(STREAMS))
    rig.start_sim(["--taps", taps, "--buffers", bufs] + sim_args)
    rig.start_daemon()
    for i in streams:
        pid, buf = "bp%02d" % i, BUF0 + i
        for args in (["NewProcessorWithType", pid, "pass"], ["Connect", pid, buf, buf], ["ProcessorEnable", pid, 1],
                     ["ConnectTap", 3, "bnc%d" % i, 0, buf, buf], ["TapEnable", 3, "bnc%d" % i, 0, 1],
                     ["StartIo", buf]):
            rig.lumx_ok(args)
    return rig


def timed(rig, args):
    t0 = time.monotonic()
    rc, _ = rig.lumx(args, timeout=10)
    return {"call": " ".join(map(str, args)), "rc": rc, "ms": round(1000.0 * (time.monotonic() - t0), 1)}


def latency_round(tools, args, stalled):
    rig = start(tools, args.keep, ["--fault-stall-inject", str(STALLED)] if stalled else [])
    time.sleep(args.seconds)
    stats = rig.sim_stats()
    p99 = [lumxsys.stream(stats, "inject", BUF0 + i).get("latency_us", {}).get("p99") for i in range(STREAMS - 1)]
    packets = [lumxsys.stream(stats, "inject", BUF0 + i).get("packets_received", 0) for i in range(STREAMS - 1)]
    # The calls that used to hang behind a stalled inject write, timed through
    # the lumx tool (process start included), in the baseline too.
    calls = [timed(rig, a) for a in (["ListTapOutBuffers"], ["ListInjectBuffers"], ["ListProcessors"],
                                     ["NewProcessorWithType", "bp99", "pass"], ["Connect", "bp99", BUF0, -1],
                                     ["DeleteProcessor", "bp07"], ["StopIo", STALLED])]
    rig.close()
    return {"stalled": stalled, "healthy_p99_us": p99, "healthy_packets": packets, "calls": calls}


def writer_gone(tools, args):
    rig = start(tools, args.keep, ["--fault-writer-gone", "12:4000", "--fault-tapout", str(STALLED)], [7])
    pid = rig.daemon.pid

    def cpu(seconds):
        c0, t0 = lumxsys.cpu_seconds_tasks(pid), time.monotonic()
        time.sleep(seconds)
        return round(100.0 * (lumxsys.cpu_seconds_tasks(pid) - c0) / (time.monotonic() - t0), 3)

    def gone_count():
        return rig.sim_stats()["faults"].get("writer_gone", 0)

    # Windows inside one absence (3 s of 4) and after it (3 s of the 8 s
    # until the next), timed from the simulator's count of absences.
    first = gone_count()
    while gone_count() == first:
        time.sleep(0.05)
    went = time.monotonic()
    time.sleep(0.3)
    gone = cpu(3.0)
    time.sleep(max(0.0, went + 4.5 - time.monotonic()))
    before = lumxsys.stream(rig.sim_stats(), "inject", STALLED).get("packets_received", 0)
    present = cpu(3.0)
    after = lumxsys.stream(rig.final_sim_stats(), "inject", STALLED).get("packets_received", 0)
    rig.close()
    return {"cpu_percent_writer_present": present, "cpu_percent_writer_gone": gone, "resumed_packets": after - before}


def bursts(tools, args):
    rig = start(tools, args.keep, ["--fault-burst", "1:100", "--fault-tapout", str(BURSTY)], [6])
    time.sleep(max(args.seconds, 10.0))
    final = rig.final_sim_stats()
    s = lumxsys.stream(final, "inject", BURSTY)
    rig.close()
    return {"packets_received": s.get("packets_received", 0), "lost_packets": s.get("lost_packets", 0),
            "gaps": s.get("gaps", 0), "bursts": final["faults"].get("burst", 0),
            "burst_packets": final["faults"].get("burst_packets", 0)}


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--build-dir", default="build/release")
    ap.add_argument("--seconds", type=float, default=10.0, help="streaming time of each latency round")
    ap.add_argument("--rounds", type=int, default=2, help="baseline/stall round pairs")
    ap.add_argument("--fault-json-out", default=None, help="default: <build-dir>/bench-faults.json")
    ap.add_argument("--keep", action="store_true")
    ap.add_argument("--strict", action="store_true", help="exit 1 when a goal is missed")
    args, _ = ap.parse_known_args()
    tools = lumxsys.Tools(args.build_dir)
    tools.check("lumxd", "lumx", "sim")
    json_out = args.fault_json_out or os.path.join(tools.build, "bench-faults.json")

    rounds = []
    for r in range(args.rounds):
        for stalled in (False, True):
            log("fault run, round %d: %s, %.0f s" % (r + 1, "stalled inject 57" if stalled else "baseline",
                                                      args.seconds))
            rounds.append(latency_round(tools, args, stalled))
    log("fault run: vanishing writer")
    peer = writer_gone(tools, args)
    log("fault run: bursts")
    peer["burst_stream"] = bursts(tools, args)

    base = median([p for rd in rounds if not rd["stalled"] for p in rd["healthy_p99_us"]])
    fault = median([p for rd in rounds if rd["stalled"] for p in rd["healthy_p99_us"]])
    ratio = fault / base if base and fault else None
    slowest = max(c["ms"] for rd in rounds if rd["stalled"] for c in rd["calls"])
    hung = [c for rd in rounds for c in rd["calls"] if c["rc"] is None]
    checks = [("healthy p99 with a stalled stream <= 1.2 x without", ratio is not None and ratio <= 1.2),
              ("every call returns within 1 s while an inject reader stalls", not hung and slowest <= 1000.0),
              ("daemon CPU < 2 % of a core while a writer is gone", peer["cpu_percent_writer_gone"] < 2.0),
              ("the stream resumes when the writer returns", peer["resumed_packets"] > 0),
              ("no packet lost to bursts", peer["burst_stream"]["lost_packets"] == 0)]
    result = {"goals": GOALS, "rounds": rounds, "healthy_p99_us_baseline": base, "healthy_p99_us_stalled": fault,
              "p99_ratio": ratio, "slowest_call_ms_stalled": slowest, "peer_faults": peer,
              "checks": [{"goal": g, "met": ok} for g, ok in checks]}
    with open(json_out, "w") as f:
        json.dump(result, f, indent=1)

    print()
    print("Fault run: 8 passthrough streams of 480-sample blocks")
    print("  healthy streams' p99 (median of 7 streams x %d rounds): baseline %.0f us, one inject stalled %.0f us, "
          "ratio %.2f (goal <= 1.2)" % (args.rounds, base or 0, fault or 0, ratio or 0))
    print("  calls while the stall lasts (lumx tool, process start included), slowest per call:")
    for i, c in enumerate(rounds[1]["calls"]):
        worst = max(rd["calls"][i]["ms"] for rd in rounds if rd["stalled"])
        base_ms = max(rd["calls"][i]["ms"] for rd in rounds if not rd["stalled"])
        print("    %-32s %8.1f ms   (baseline %6.1f ms)" % (c["call"], worst, base_ms))
    print("  daemon CPU, one stream whose writer is gone: %.3f %% of a core (writer there: %.3f %%); resumed: %d packets"
          % (peer["cpu_percent_writer_gone"], peer["cpu_percent_writer_present"], peer["resumed_packets"]))
    b = peer["burst_stream"]
    print("  bursts on one stream: %d bursts of %d packets in all; %d packets received, %d lost"
          % (b["bursts"], b["burst_packets"], b["packets_received"], b["lost_packets"]))
    for g, ok in checks:
        print("  [%s] %s" % ("met " if ok else "MISS", g))
    print("JSON: %s" % json_out)
    return 1 if args.strict and not all(ok for _, ok in checks) else 0


if __name__ == "__main__":
    sys.exit(main())
