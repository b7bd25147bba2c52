#!/usr/bin/env python3
"""What the dump's counters cost the I/O thread per packet.

Runs the packet path of bench/stats_cost_bench.cpp built twice, with the
counters and with them compiled out (-DLUMX_STATS=0), under callgrind on the
same input, counting the instructions of RunPackets() alone, and prints both
per-packet figures and their ratio (goal: at most 1.02). Instruction counts
hold still from run to run where a time per packet on a shared machine
swings by more than the 2 % measured; the wall times of a few native runs of
each are printed beside them for scale.

  bench/stats_cost.py --on build/release/bench/stats_cost_bench \\
                      --off build/release/bench/stats_cost_bench_nostats
"""
import argparse
import os
import re
import subprocess
import sys
import tempfile


def without_debug_info(binary, workdir):
    # valgrind 3.19 gives up on the DWARF 5 a current clang writes; the
    # symbol table, which --toggle-collect needs, is kept.
    copy = os.path.join(workdir, os.path.basename(binary))
    if not os.path.exists(copy):
        subprocess.run(["objcopy", "--strip-debug", binary, copy], check=True)
    return copy


def instructions(binary, packets, workdir):
    out = os.path.join(workdir, "callgrind.%s.out" % os.path.basename(binary))
    cmd = ["valgrind", "--tool=callgrind", "--toggle-collect=*RunPackets*",
           "--callgrind-out-file=" + out, without_debug_info(binary, workdir), str(packets)]
    run = subprocess.run(cmd, stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if run.returncode != 0:
        sys.exit("%s failed:\n%s" % (" ".join(cmd), run.stderr))
    with open(out) as f:
        for line in f:
            m = re.match(r"(summary|totals):\s+(\d+)", line)
            if m:
                return int(m.group(2))
    sys.exit("no instruction total in " + out)


def wall_ns(binary, packets, rounds):
    best = None
    for _ in range(rounds):
        run = subprocess.run([binary, str(packets)], stdout=subprocess.PIPE, text=True, check=True)
        ns = float(re.search(r"([\d.]+) ns/packet", run.stdout).group(1))
        best = ns if best is None else min(best, ns)
    return best


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--on", required=True, help="stats_cost_bench (counters on)")
    ap.add_argument("--off", required=True, help="stats_cost_bench_nostats (LUMX_STATS=0)")
    ap.add_argument("--packets", type=int, default=20000)
    ap.add_argument("--wall-rounds", type=int, default=5)
    ap.add_argument("--goal", type=float, default=1.02)
    args = ap.parse_args()

    with tempfile.TemporaryDirectory(prefix="lumx-stats-cost-") as tmp:
        # Two passes each, in alternation: the counts must agree.
        on = [instructions(args.on, args.packets, tmp) for _ in range(2)]
        off = [instructions(args.off, args.packets, tmp) for _ in range(2)]
    on_pp = on[0] / args.packets
    off_pp = off[0] / args.packets
    ratio = on_pp / off_pp
    print("I/O thread packet path, 1984-byte packets (480 samples, 2 ch, 16 bit), %d packets" % args.packets)
    print("  counters compiled out : %8.1f instructions/packet (passes: %s)" % (off_pp, ", ".join(map(str, off))))
    print("  counters on           : %8.1f instructions/packet (passes: %s)" % (on_pp, ", ".join(map(str, on))))
    print("  ratio                 : %.4f (goal <= %.2f)" % (ratio, args.goal))
    w_off = wall_ns(args.off, args.packets, args.wall_rounds)
    w_on = wall_ns(args.on, args.packets, args.wall_rounds)
    print("  wall, best of %d runs : %.0f ns/packet out, %.0f ns/packet on (%.3fx; noisy, for scale)"
          % (args.wall_rounds, w_off, w_on, w_on / w_off))
    return 0 if ratio <= args.goal else 1


if __name__ == "__main__":
    sys.exit(main())
