#!/usr/bin/env python3
"""System benchmark of lumxd against lumx-dspsim (run through scripts/bench.sh).

Measures, in one simulator run on this machine:
  1. stream latency: simulator send -> simulator receipt on the inject node,
     for MIC_IN (tap imic.0, 480-sample blocks) through lumxd and, at the same
     time, for a bare relay loop (bare_relay_tool: read a tap-out node, write
     an inject node, no daemon) on a second tap of the same simulator, the
     loop at the real-time priority of the daemon's I/O thread. Both are
     sampled in the same windows (the simulator's per-window latency), and
     the headline is the median over the windows of the ratio of their p99s;
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
MIC_IN_BUF = 20  # what the MIC_IN use case streams through
BLOCK_US = 10000  # 480 samples at 48 kHz
# The two measured streams are due half a block apart on the simulator's
# clock grid: neither packet waits behind the other in the simulator's one
# thread, and the offset is the same in every run.
MIC_IN_PHASE_US = 0
MIN_WINDOWS = 10
# The simulator stands for the DSP, which no host scheduler delays: one step
# above the relays' SCHED_FIFO 2, its own wake-ups stay out of both paths'
# figures instead of swamping them on a busy machine.
SIM_FIFO_PRIORITY = 3
GOALS = {
    "latency_p99_ratio_max": 1.5,
    "latency_p99_us_max": 1000.0,
    "cpu_per_stream_percent_max": 0.5,
    "rss_8_streams_kib_max": 8 * 1024,
}


def tap_table(tools, offset_us):
    """The built-in table with imic.0 on the phase grid, plus 8 mono streams
    for the CPU figures and one for the bare relay (bound and enabled from
    the start, half a block after imic.0)."""
    base = subprocess.run([tools.sim, "--print-taps"], capture_output=True, check=True).stdout.decode()
    lines = []
    for line in base.splitlines():
        f = line.split("#", 1)[0].split()
        if f[:2] == ["2", "imic.0"]:
            line += " phase=%d" % MIC_IN_PHASE_US
        lines.append(line)
    for i in range(BENCH_STREAMS):
        lines.append("3 bnc%d.0 48000 480 1 16" % i)
    lines.append("3 bare.0 48000 480 1 16 enabled=1 tapout=%d inject=%d phase=%d" %
                 (BARE_BUF, BARE_BUF, (MIC_IN_PHASE_US + offset_us) % BLOCK_US))
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


def window_of(doc, ident):
    s = lumxsys.stream(doc, "inject", ident)
    lat = s.get("window_latency_us", {})
    return {"count": lat.get("count", 0), "p50_us": lat.get("p50"), "p99_us": lat.get("p99"),
            "max_us": lat.get("max")}


def run_latency(rig, tools, args):
    """MIC_IN through lumxd and the bare relay loop streaming at once, sampled
    in the same windows. Returns the JSON section."""
    pid = rig.daemon.pid
    load_before = os.getloadavg()
    rig.lumx_ok(["Enable", "MIC_IN", 1])
    # The daemon's I/O thread puts itself at SCHED_FIFO 2 when it may; the
    # bare loop follows it. If the daemon could not, both run at normal
    # priority; if only the loop cannot, the daemon's thread is brought down.
    deadline = time.monotonic() + 3.0
    daemon_rt = {}
    while not daemon_rt and time.monotonic() < deadline:
        time.sleep(0.05)
        daemon_rt = lumxsys.realtime_tasks(pid)
    bare_args = [tools.bare_relay, "--tapout", os.path.join(rig.dev, "zch-lumx_tapout%d" % BARE_BUF),
                 "--inject", os.path.join(rig.dev, "zch-lumx_inject%d" % BARE_BUF)]
    if not daemon_rt:
        bare_args.append("--no-rt")
    bare = rig.spawn(bare_args, log_name="bare.log")
    # The loop raises its own priority first thing; give it the time to.
    deadline = time.monotonic() + 3.0
    bare_sched = lumxsys.scheduling(bare.pid)
    while daemon_rt and bare_sched[0] != "fifo" and bare.poll() is None and time.monotonic() < deadline:
        time.sleep(0.05)
        bare_sched = lumxsys.scheduling(bare.pid)
    if daemon_rt and bare_sched[0] != "fifo":
        for tid in daemon_rt:
            try:
                os.sched_setscheduler(tid, os.SCHED_OTHER, os.sched_param(0))
            except OSError:
                pass
        daemon_rt = lumxsys.realtime_tasks(pid)
    sched = {"simulator": "%s %d" % lumxsys.scheduling(rig.sim.pid), "bare_relay": "%s %d" % bare_sched,
             "lumxd_rt_threads": ["%s %d %s" % v for v in daemon_rt.values()]}
    sched["same_priority"] = (bare_sched == ("fifo", 2) and len(daemon_rt) > 0 and
                              all(v[:2] == ("fifo", 2) for v in daemon_rt.values())) or \
                             (bare_sched[0] == "normal" and not daemon_rt)
    sched["realtime"] = bare_sched[0] == "fifo" and sched["same_priority"]
    log("latency: scheduling %s" % sched)

    # Both streams flowing, then one window to settle, then the measured ones.
    settle = time.monotonic() + 10.0
    while time.monotonic() < settle:
        doc = rig.sim_stats()
        if window_of(doc, MIC_IN_BUF)["count"] and window_of(doc, BARE_BUF)["count"]:
            break
        time.sleep(0.2)
    time.sleep(1.0)
    rig.sim_stats()
    c_d0, c_b0, t0 = lumxsys.cpu_seconds_tasks(pid), lumxsys.cpu_seconds_tasks(bare.pid), time.monotonic()
    windows = []
    for w in range(args.windows):
        time.sleep(args.window_seconds)
        doc = rig.sim_stats()
        d, b = window_of(doc, MIC_IN_BUF), window_of(doc, BARE_BUF)
        expected = 1e6 * float(doc.get("window_s", args.window_seconds)) / BLOCK_US
        # A window where a path lost packets says nothing about its latency.
        full = d["count"] >= 0.9 * expected and b["count"] >= 0.9 * expected
        ratio = d["p99_us"] / b["p99_us"] if full and d["p99_us"] and b["p99_us"] else None
        windows.append({"window_s": doc.get("window_s"), "lumxd": d, "bare": b,
                        "p99_ratio": round(ratio, 4) if ratio else None})
        log("latency window %d/%d: lumxd p99 %s us, bare p99 %s us, ratio %s" %
            (w + 1, args.windows, d["p99_us"], b["p99_us"], "%.3f" % ratio if ratio else "-"))
    wall = time.monotonic() - t0
    cpu_d = lumxsys.cpu_seconds_tasks(pid) - c_d0
    cpu_b = lumxsys.cpu_seconds_tasks(bare.pid) - c_b0
    load_after = os.getloadavg()
    rig.lumx_ok(["Enable", "MIC_IN", 0])
    rig.stop(bare)
    rig.lumx_ok(["TapEnable", 3, "bare", 0, 0])
    whole = rig.sim_stats()

    ratios = [w["p99_ratio"] for w in windows if w["p99_ratio"] is not None]

    def path(key, ident):
        s = lumxsys.stream(whole, "inject", ident)
        lat = s.get("latency_us", {})
        return {"packets": s.get("packets_received", 0), "errors": s.get("errors", 0), "gaps": s.get("gaps", 0),
                "run_p50_us": lat.get("p50"), "run_p99_us": lat.get("p99"), "run_max_us": lat.get("max"),
                "median_window_p50_us": lumxsys.median(w[key]["p50_us"] for w in windows),
                "median_window_p99_us": lumxsys.median(w[key]["p99_us"] for w in windows),
                "max_window_p99_us": max((w[key]["p99_us"] or 0) for w in windows)}

    def r3(v):
        return None if v is None else round(v, 3)

    return {"block_samples": 480, "method": "same windows, both paths streaming at once",
            "windows": windows, "window_s": args.window_seconds, "valid_windows": len(ratios),
            "phase_offset_us": args.offset_us, "scheduling": sched,
            "p99_ratio": r3(lumxsys.median(ratios)),
            "p99_ratio_q1": r3(lumxsys.quantile(ratios, 0.25)), "p99_ratio_q3": r3(lumxsys.quantile(ratios, 0.75)),
            "p99_ratio_min": r3(min(ratios)) if ratios else None, "p99_ratio_max": r3(max(ratios)) if ratios else None,
            "lumxd_mic_in": path("lumxd", MIC_IN_BUF), "bare_relay": path("bare", BARE_BUF),
            "lumxd_cpu_percent": round(100.0 * cpu_d / wall, 4),
            "bare_relay_cpu_percent": round(100.0 * cpu_b / wall, 4),
            "load_average_before": [round(v, 2) for v in load_before],
            "load_average_after": [round(v, 2) for v in load_after]}


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
    ap.add_argument("--seconds", type=float, default=10.0, help="length of each CPU measurement window")
    ap.add_argument("--windows", type=int, default=12,
                    help="latency windows, both paths at once (at least %d)" % MIN_WINDOWS)
    ap.add_argument("--window-seconds", type=float, default=5.0, help="length of each latency window")
    ap.add_argument("--offset-us", type=int, default=BLOCK_US // 2,
                    help="how long after a MIC_IN block the bare relay's block is due (0..9999)")
    ap.add_argument("--calls", type=int, default=20000, help="control-path calls per op and thread count")
    ap.add_argument("--json-out", default=None, help="default: <build-dir>/bench-system.json")
    ap.add_argument("--keep", action="store_true", help="keep the temporary directory and logs")
    ap.add_argument("--strict", action="store_true", help="exit 1 when a goal is missed")
    # scripts/bench.sh passes its arguments to the fault run too.
    ap.add_argument("--rounds", type=int, help=argparse.SUPPRESS)
    ap.add_argument("--fault-json-out", help=argparse.SUPPRESS)
    args = ap.parse_args()
    if args.windows < MIN_WINDOWS:
        ap.error("--windows must be at least %d: the median of fewer per-window ratios moves too much"
                 % MIN_WINDOWS)

    tools = lumxsys.Tools(args.build_dir)
    tools.check("lumxd", "lumx", "sim", "bare_relay", "client_bench")
    json_out = args.json_out or os.path.join(tools.build, "bench-system.json")

    # Nodes, logs and the statistics file on a RAM file system: the
    # simulator writes a document at every window boundary from its one
    # real-time thread, and no path should wait for the disk of a busy machine.
    rig = lumxsys.Rig(tools, keep=args.keep, prefix="lumx_bench.", in_memory=True)
    taps = rig.path("taps.txt")
    with open(taps, "w") as f:
        f.write(tap_table(tools, args.offset_us))
    bufs = [20, 21, 40, 41] + [BENCH_BUF0 + i for i in range(BENCH_STREAMS)] + [BARE_BUF]
    rig.start_sim(["--taps", taps, "--buffers", ",".join(map(str, bufs))], fifo_priority=SIM_FIFO_PRIORITY)
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

    # ---- latency: MIC_IN and the bare relay in the same windows ----
    result["latency"] = lat = run_latency(rig, tools, args)
    ratio = lat["p99_ratio"]
    lat_d, lat_b = lat["lumxd_mic_in"], lat["bare_relay"]

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
    checks.append(("latency p99 <= 1.5 x bare relay (median of the windows)",
                   ratio is not None and ratio <= GOALS["latency_p99_ratio_max"]))
    checks.append(("latency p99 < 1 ms", bool(lat_d["run_p99_us"]) and lat_d["run_p99_us"] < GOALS["latency_p99_us_max"]))
    checks.append(("latency windows: at least %d with every packet of both paths" % MIN_WINDOWS,
                   lat["valid_windows"] >= MIN_WINDOWS))
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
    sch = lat["scheduling"]
    print("Stream latency, simulator send -> inject receipt, 480-sample blocks (us):")
    print("  both paths streaming at once, %d windows of %.0f s, streams %d us apart;" %
          (len(lat["windows"]), args.window_seconds, lat["phase_offset_us"]))
    if sch["realtime"]:
        print("  bare relay loop and lumxd's I/O thread both at SCHED_FIFO 2 (simulator: %s)" % sch["simulator"])
    elif sch["same_priority"]:
        print("  SCHED_FIFO not available: bare relay loop and lumxd's I/O thread both at normal priority")
    else:
        print("  WARNING: the two paths run at different priorities (bare %s, lumxd %s)" %
              (sch["bare_relay"], ", ".join(sch["lumxd_rt_threads"]) or "normal"))
    print("  load average %.2f before, %.2f after" % (lat["load_average_before"][0], lat["load_average_after"][0]))
    print("  %-7s %9s %9s %10s %10s %7s" % ("window", "bare p50", "bare p99", "lumxd p50", "lumxd p99", "ratio"))
    for i, w in enumerate(lat["windows"]):
        print("  %-7d %9s %9s %10s %10s %7s" % (i + 1, f1(w["bare"]["p50_us"]), f1(w["bare"]["p99_us"]),
                                                 f1(w["lumxd"]["p50_us"]), f1(w["lumxd"]["p99_us"]),
                                                 "-" if w["p99_ratio"] is None else "%.2f" % w["p99_ratio"]))
    print("  %-7s %9s %9s %10s %10s" % ("median", f1(lat_b["median_window_p50_us"]), f1(lat_b["median_window_p99_us"]),
                                        f1(lat_d["median_window_p50_us"]), f1(lat_d["median_window_p99_us"])))
    print("  whole run: bare p99 %s (max %s), lumxd p99 %s (max %s); packets %d / %d, errors %d / %d" %
          (f1(lat_b["run_p99_us"]), f1(lat_b["run_max_us"]), f1(lat_d["run_p99_us"]), f1(lat_d["run_max_us"]),
           lat_b["packets"], lat_d["packets"], lat_b["errors"], lat_d["errors"]))
    if ratio is None:
        print("  p99 ratio lumxd / bare: - (no window had every packet of both paths)")
    else:
        print("  p99 ratio lumxd / bare, median of %d windows: %.2f  (IQR %.2f-%.2f, min-max %.2f-%.2f)" %
              (lat["valid_windows"], ratio, lat["p99_ratio_q1"], lat["p99_ratio_q3"], lat["p99_ratio_min"],
               lat["p99_ratio_max"]))
    print("  goal: ratio <= 1.5 and lumxd p99 < 1000 us")
    print("  CPU of one stream over the same windows: lumxd %.3f %%, bare relay %.3f %% of a core" %
          (lat["lumxd_cpu_percent"], lat["bare_relay_cpu_percent"]))
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
