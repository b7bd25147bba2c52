#!/usr/bin/env python3
"""System benchmark of lumxd against lumx-dspsim (run through scripts/bench.sh).

Measures, in one simulator run on this machine:
  1. stream latency: simulator send -> simulator receipt on the inject node,
     for MIC_IN (tap imic.0, 480-sample blocks) through lumxd, against a bare
     relay loop (bare_relay_tool: read the tap-out node, write the inject node,
     no daemon) on a second tap of the same simulator, in alternating rounds;
  2. the daemon's CPU time per second of audio with 1, 4 and 8 passthrough
     streams of 480-sample blocks (and idle);
  3. control path: calls/s and p99 of Ping, ListProcessors, TapInfo from 1
     and 8 client threads (ilumx_client_bench, against the transport floor);
  4. the daemon's peak RSS (VmHWM) idle and with 8 streams.
Prints a table with the goals and writes every figure as JSON.
"""

import argparse
import json
import os
import platform
import subprocess
import sys
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import lumxsys  # noqa: E402
from lumxsys import log  # noqa: E402

BENCH_STREAMS = 8
BENCH_BUF0 = 50  # buffers 50..57 carry the CPU streams
BARE_BUF = 60  # the bare relay's tap-out/inject pair
GOALS = {
    "latency_p99_ratio_max": 1.5,
    "latency_p99_us_max": 1000.0,
    "cpu_per_stream_percent_max": 0.5,
    "rss_8_streams_kib_max": 8 * 1024,
}


def tap_table(tools):
    """The built-in table, plus 8 mono streams for the CPU figures and one
    for the bare relay (bound and enabled from the start)."""
    base = subprocess.run([tools.sim, "--print-taps"], capture_output=True, check=True).stdout.decode()
    lines = [base.rstrip("\n")]
    for i in range(BENCH_STREAMS):
        lines.append("3 bnc%d.0 48000 480 1 16" % i)
    lines.append("3 bare.0 48000 480 1 16 enabled=1 tapout=%d inject=%d" % (BARE_BUF, BARE_BUF))
    return "\n".join(lines) + "\n"


def add_stream(rig, i):
    pid = "bp%02d" % i
    buf = BENCH_BUF0 + i
    for args in (["NewProcessorWithType", pid, "pass"],
                 ["Connect", pid, buf, buf],
                 ["ProcessorEnable", pid, 1],
                 ["ConnectTap", 3, "bnc%d" % i, 0, buf, buf],
                 ["TapEnable", 3, "bnc%d" % i, 0, 1],
                 ["StartIo", buf]):
        rig.lumx_ok(args)


def remove_stream(rig, i):
    buf = BENCH_BUF0 + i
    rig.lumx_ok(["TapEnable", 3, "bnc%d" % i, 0, 0])
    rig.lumx_ok(["StopIo", buf])
    rig.lumx_ok(["DeleteProcessor", "bp%02d" % i])


def latency_of(stats, ident):
    s = lumxsys.stream(stats, "inject", ident)
    lat = s.get("latency_us", {})
    return {"packets": s.get("packets_received", 0), "count": lat.get("count", 0),
            "p50_us": lat.get("p50"), "p99_us": lat.get("p99"), "max_us": lat.get("max"),
            "errors": s.get("errors", 0), "gaps": s.get("gaps", 0)}


def measure_cpu(rig, seconds, streams):
    pid = rig.daemon.pid
    before = rig.sim_stats()
    c0, s0, t0 = lumxsys.cpu_seconds_tasks(pid), lumxsys.cpu_seconds_stat(pid), time.monotonic()
    time.sleep(seconds)
    c1, s1, t1 = lumxsys.cpu_seconds_tasks(pid), lumxsys.cpu_seconds_stat(pid), time.monotonic()
    after = rig.sim_stats()
    wall = t1 - t0
    packets = 0
    for i in range(streams):
        b = BENCH_BUF0 + i
        packets += (lumxsys.stream(after, "inject", b).get("packets_received", 0)
                    - lumxsys.stream(before, "inject", b).get("packets_received", 0))
    cpu_pct = 100.0 * (c1 - c0) / wall
    return {
        "streams": streams,
        "window_s": round(wall, 3),
        "daemon_cpu_percent": round(cpu_pct, 4),
        "daemon_cpu_percent_ticks": round(100.0 * (s1 - s0) / wall, 3),
        "per_stream_percent": round(cpu_pct / streams, 4) if streams else None,
        "cpu_ms_per_audio_s_per_stream": round(1000.0 * (c1 - c0) / wall / streams, 4) if streams else None,
        "packets_injected": packets,
        "expected_packets": int(round(streams * wall * 100)),
        "threads": lumxsys.task_count(pid),
        "vmhwm_kib": lumxsys.status_kb(pid, "VmHWM"),
        "vmrss_kib": lumxsys.status_kb(pid, "VmRSS"),
    }


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--build-dir", default="build/release")
    ap.add_argument("--seconds", type=float, default=10.0, help="length of each measurement window")
    ap.add_argument("--rounds", type=int, default=2, help="alternating bare/daemon latency rounds")
    ap.add_argument("--calls", type=int, default=20000, help="control-path calls per op and thread count")
    ap.add_argument("--json-out", default=None, help="default: <build-dir>/bench-system.json")
    ap.add_argument("--keep", action="store_true", help="keep the temporary directory and logs")
    ap.add_argument("--strict", action="store_true", help="exit 1 when a goal is missed")
    args = ap.parse_args()

    tools = lumxsys.Tools(args.build_dir)
    tools.check("lumxd", "lumx", "sim", "bare_relay", "client_bench")
    json_out = args.json_out or os.path.join(tools.build, "bench-system.json")

    rig = lumxsys.Rig(tools, keep=args.keep, prefix="lumx_bench.")
    taps = rig.path("taps.txt")
    with open(taps, "w") as f:
        f.write(tap_table(tools))
    bufs = [20, 21, 40, 41] + [BENCH_BUF0 + i for i in range(BENCH_STREAMS)] + [BARE_BUF]
    rig.start_sim(["--taps", taps, "--buffers", ",".join(map(str, bufs))])
    rig.start_daemon()
    pid = rig.daemon.pid
    result = {"machine": {"cpus": os.cpu_count(), "kernel": platform.release(),
                          "python": platform.python_version(), "build_dir": tools.build},
              "goals": GOALS}

    # ---- idle ----
    time.sleep(2)
    idle = measure_cpu(rig, min(args.seconds, 5.0), 0)
    result["idle"] = {"daemon_cpu_percent": idle["daemon_cpu_percent"], "vmhwm_kib": idle["vmhwm_kib"],
                      "vmrss_kib": idle["vmrss_kib"], "threads": idle["threads"],
                      "fds": lumxsys.fd_count(pid)}
    log("idle: %s" % result["idle"])

    # ---- latency: bare relay and MIC_IN in alternating rounds ----
    # The CPU time of both paths over the same windows is kept too: the bare
    # loop's is the floor of what one stream costs on this machine.
    per_round = args.seconds / max(1, args.rounds)
    cpu_bare = cpu_daemon = wall_bare = wall_daemon = 0.0
    for r in range(args.rounds):
        log("latency round %d: bare relay %.1f s" % (r + 1, per_round))
        bare = rig.spawn([tools.bare_relay, "--tapout", os.path.join(rig.dev, "zch-lumx_tapout%d" % BARE_BUF),
                          "--inject", os.path.join(rig.dev, "zch-lumx_inject%d" % BARE_BUF)],
                         log_name="bare%d.log" % r)
        time.sleep(0.5)
        c0, t0 = lumxsys.cpu_seconds_tasks(bare.pid), time.monotonic()
        time.sleep(per_round)
        cpu_bare += lumxsys.cpu_seconds_tasks(bare.pid) - c0
        wall_bare += time.monotonic() - t0
        rig.stop(bare)
        log("latency round %d: lumxd MIC_IN %.1f s" % (r + 1, per_round))
        rig.lumx_ok(["Enable", "MIC_IN", 1])
        time.sleep(0.5)
        c0, t0 = lumxsys.cpu_seconds_tasks(pid), time.monotonic()
        time.sleep(per_round)
        cpu_daemon += lumxsys.cpu_seconds_tasks(pid) - c0
        wall_daemon += time.monotonic() - t0
        rig.lumx_ok(["Enable", "MIC_IN", 0])
    rig.lumx_ok(["TapEnable", 3, "bare", 0, 0])
    stats = rig.sim_stats()
    lat_d = latency_of(stats, 20)
    lat_b = latency_of(stats, BARE_BUF)
    ratio = (lat_d["p99_us"] / lat_b["p99_us"]) if lat_d["p99_us"] and lat_b["p99_us"] else None
    result["latency"] = {"block_samples": 480, "window_s_each": args.seconds, "rounds": args.rounds,
                         "lumxd_mic_in": lat_d, "bare_relay": lat_b,
                         "p99_ratio": round(ratio, 3) if ratio else None,
                         "lumxd_cpu_percent": round(100.0 * cpu_daemon / wall_daemon, 4),
                         "bare_relay_cpu_percent": round(100.0 * cpu_bare / wall_bare, 4)}
    log("latency: %s" % result["latency"])

    # ---- CPU per stream ----
    cpu = []
    added = 0
    for n in (1, 4, 8):
        while added < n:
            add_stream(rig, added)
            added += 1
        time.sleep(2)
        m = measure_cpu(rig, args.seconds, n)
        log("cpu %d streams: %s" % (n, m))
        cpu.append(m)
    result["cpu"] = cpu
    result["rss"] = {"idle_vmhwm_kib": result["idle"]["vmhwm_kib"], "streams8_vmhwm_kib": cpu[-1]["vmhwm_kib"],
                     "streams8_vmrss_kib": cpu[-1]["vmrss_kib"]}
    for i in range(added):
        remove_stream(rig, i)

    # ---- control path (idle daemon) ----
    ctl_json = rig.path("control.json")
    log("control path: %d calls per op and thread count" % args.calls)
    p = subprocess.run([tools.client_bench, "--calls=%d" % args.calls, "--json-out=" + ctl_json,
                        "--benchmark_format=console"], env=rig.env, capture_output=True, timeout=900)
    sys.stderr.write(p.stdout.decode("utf-8", "replace"))
    if p.returncode != 0:
        sys.stderr.write(p.stderr.decode("utf-8", "replace"))
        raise SystemExit("ilumx_client_bench failed (%d)" % p.returncode)
    with open(ctl_json) as f:
        result["control"] = json.load(f)

    final = rig.final_sim_stats()
    result["simulator"] = {"cpu_percent": final.get("cpu_percent"), "faults": final.get("faults")}
    result["daemon_alive_at_end"] = rig.daemon.poll() is None
    rig.close()

    # ---- verdicts ----
    checks = []
    checks.append(("latency p99 <= 1.5 x bare relay", ratio is not None and ratio <= GOALS["latency_p99_ratio_max"]))
    checks.append(("latency p99 < 1 ms", bool(lat_d["p99_us"]) and lat_d["p99_us"] < GOALS["latency_p99_us_max"]))
    worst = max(c["per_stream_percent"] for c in cpu)
    checks.append(("CPU < 0.5 % of a core per stream", worst < GOALS["cpu_per_stream_percent_max"]))
    checks.append(("peak RSS < 8 MiB with 8 streams", result["rss"]["streams8_vmhwm_kib"] < GOALS["rss_8_streams_kib_max"]))
    checks.append(("all streams delivered", all(c["packets_injected"] >= 0.95 * c["expected_packets"] for c in cpu)))
    result["checks"] = [{"goal": g, "met": ok} for g, ok in checks]
    with open(json_out, "w") as f:
        json.dump(result, f, indent=1)

    # ---- table ----
    def f1(v):
        return "-" if v is None else ("%.1f" % v)

    print()
    print("lumxd system benchmark (%d CPUs, %s)" % (os.cpu_count(), tools.build))
    print()
    print("Stream latency, simulator send -> inject receipt, 480-sample blocks (us)")
    print("  %-22s %8s %8s %8s %8s" % ("path", "packets", "p50", "p99", "max"))
    for name, l in (("bare relay loop", lat_b), ("lumxd MIC_IN", lat_d)):
        print("  %-22s %8d %8s %8s %8s" % (name, l["count"], f1(l["p50_us"]), f1(l["p99_us"]), f1(l["max_us"])))
    print("  p99 ratio lumxd / bare: %s   (goal <= 1.5 and p99 < 1000 us)" % (f1(ratio) if ratio is None else "%.2f" % ratio))
    print("  CPU of one stream over the same windows: lumxd %.3f %%, bare relay %.3f %% of a core" %
          (result["latency"]["lumxd_cpu_percent"], result["latency"]["bare_relay_cpu_percent"]))
    print()
    print("Daemon CPU per second of audio (480-sample blocks, passthrough)")
    print("  %-8s %12s %14s %16s %10s" % ("streams", "daemon %cpu", "per stream %", "packets in/exp", "VmHWM KiB"))
    print("  %-8s %12.3f %14s %16s %10d" % (0, idle["daemon_cpu_percent"], "-", "-", idle["vmhwm_kib"]))
    for c in cpu:
        print("  %-8d %12.3f %14.4f %16s %10d" % (c["streams"], c["daemon_cpu_percent"], c["per_stream_percent"],
                                                 "%d/%d" % (c["packets_injected"], c["expected_packets"]),
                                                 c["vmhwm_kib"]))
    print("  floor: the bare relay loop costs %.3f %% of a core for one stream on this machine" %
          result["latency"]["bare_relay_cpu_percent"])
    print("  goal: < 0.5 % of one core per stream")
    print()
    print("Control path (one proxy shared by the client threads)")
    print("  %-16s %7s %10s %9s %9s %9s" % ("operation", "threads", "calls/s", "p50 us", "p99 us", "p99/base"))
    for row in result["control"]:
        print("  %-16s %7d %10.0f %9.1f %9.1f %9.2f" % (row["op"], row["threads"], row["calls_per_s"], row["p50_us"],
                                                        row["p99_us"], row["p99_over_baseline"]))
    print("  (binder_ping: the runtime's own ping of the daemon, the transport floor)")
    print()
    print("Peak RSS (VmHWM): idle %d KiB, 8 streams %d KiB   (goal < 8192 KiB)" %
          (result["rss"]["idle_vmhwm_kib"], result["rss"]["streams8_vmhwm_kib"]))
    print()
    for g, ok in checks:
        print("  [%s] %s" % ("met " if ok else "MISS", g))
    print()
    print("JSON: %s" % json_out)
    if args.strict and not all(ok for _, ok in checks):
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
