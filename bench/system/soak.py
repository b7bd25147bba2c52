#!/usr/bin/env python3
"""Soak and fault run of lumxd against lumx-dspsim (run through scripts/soak.sh).

For a set time, with MIC_IN and AREL_TELE streaming and relay clients
attached:
  - the simulator restarts the DSP every few seconds, delays, drops and
    duplicates control replies, and splits, misaligns, corrupts and renumbers
    packets (its --fault-* flags);
  - client threads call every ILumx operation through the lumx tool, creating,
    wiring, enabling, parameterising and deleting their own processors;
  - relay clients (lumx relay art0/art1) are killed (SIGKILL or SIGTERM) and
    attached again;
  - after every restart the use cases are enabled again, and the run checks
    that audio flows again on the MIC_IN and AREL_TELE inject nodes before it
    restarts the DSP again (the restarts are the simulator's, on SIGUSR2).
Afterwards: the daemon still answers; its descriptor and thread counts are
back to what they were in the same state at the start; its log holds no
sanitizer report; it was alive all along and ends by the SIGTERM it is sent.
Prints a summary (faults injected and survived, from the simulator's
statistics) and writes it as JSON. Exits 1 on any failure.
"""

import argparse
import collections
import json
import os
import random
import re
import signal
import struct
import subprocess
import sys
import threading
import time
import wave

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import lumxsys  # noqa: E402
from lumxsys import log  # noqa: E402

USE_CASE_INJECTS = (20, 40, 41)  # MIC_IN on 20, AREL_TELE on 40 and 41
CLIENT_BUFFERS = (50, 51)
PARAMS = ("VERSION", "PASSTHROUGH_MODE", "TEST_MODE", "BLOCK_LENGTH", "AUDIO_FORMAT", "UNSPECIFIED", "9")


def write_tone(path, seconds=2.0, hz=440.0):
    n = int(48000 * seconds)
    frames = bytearray()
    for i in range(n):
        # a square-ish tone is enough; no math import needed for the soak
        frames += struct.pack("<h", 8000 if (int(i * hz * 2 / 48000) % 2) else -8000)
    with wave.open(path, "wb") as w:
        w.setnchannels(1)
        w.setsampwidth(2)
        w.setframerate(48000)
        w.writeframes(bytes(frames))


class Soak:
    def __init__(self, rig, args):
        self.rig = rig
        self.args = args
        self.stop = threading.Event()
        self.lock = threading.Lock()
        self.stats_lock = threading.Lock()
        self.failures = []
        self.calls = collections.defaultdict(collections.Counter)  # op -> rc -> count
        self.hangs = []
        self.unreachable = []
        self.stacks_saved = False
        self.kinds0 = self.kinds1 = None
        self.hung = False
        self.relay = collections.Counter()
        self.relay_packets = 0
        self.restarts_seen = 0
        self.resumes = collections.Counter()
        self.resume_times = []
        self.daemon_died_at = None
        self.tone = rig.path("tone.wav")
        write_tone(self.tone)

    def fail(self, what):
        with self.lock:
            self.failures.append(what)
        log("FAIL: " + what)

    def sim_stats(self):
        with self.stats_lock:
            return self.rig.sim_stats()

    # ---- use cases ----

    def enable_use_cases(self, attempts=6):
        """Enables MIC_IN and AREL_TELE; control replies may be delayed or
        dropped by the simulator, so a failed step is retried."""
        for uc in ("MIC_IN", "AREL_TELE"):
            for i in range(attempts):
                rc, res = self.rig.lumx(["EnableUseCase", uc, 1], timeout=60)
                if rc == 0:
                    break
                if rc is None:
                    self.hangs.append("EnableUseCase %s" % uc)
                    self.fail("EnableUseCase %s did not return within 60 s" % uc)
                    self.on_hang()
                    return False
                time.sleep(0.3)
            else:
                return False
        return True

    def injected(self, stats=None):
        stats = stats or self.sim_stats()
        return {i: lumxsys.stream(stats, "inject", i).get("packets_received", 0) for i in USE_CASE_INJECTS}

    def wait_flow(self, base, timeout, min_packets=5):
        """True once every use-case inject node has received min_packets more."""
        deadline = time.time() + timeout
        while time.time() < deadline:
            now = self.injected()
            if all(now[i] - base[i] >= min_packets for i in USE_CASE_INJECTS):
                return True
            time.sleep(0.25)
        return False

    # ---- simulator events (its log) ----

    def sim_events(self):
        try:
            with open(self.rig.sim_log, "rb") as f:
                text = f.read().decode("utf-8", "replace")
        except OSError:
            return 0, 0
        return text.count("DSP restart"), text.count("lumx-dspsim: ready")

    def restart_and_resume(self):
        """One simulated DSP restart (SIGUSR2): waits for the new nodes,
        enables the use cases again and checks that the streams come back.
        Returns the outcome."""
        removed, ready = self.sim_events()
        self.rig.sim.send_signal(signal.SIGUSR2)
        t0 = time.time()
        deadline = t0 + 30
        while self.sim_events()[1] <= ready:
            if time.time() > deadline:
                return "the simulator did not come back"
            time.sleep(0.05)
        with self.lock:
            self.restarts_seen += 1
        time.sleep(self.args.rescan_wait)  # the daemon's rescan sleeps 500 ms first
        base = self.injected()
        if self.enable_use_cases() and self.wait_flow(base, self.args.resume_timeout):
            self.resume_times.append(time.time() - t0)
            return "resumed"
        return "failed"

    def restarts(self):
        """Restarts the DSP every few seconds (jittered), and after every
        restart checks that the streams resume once the use cases are
        enabled again."""
        rnd = random.Random(self.args.seed + 17)
        while not self.stop.wait(rnd.uniform(0.5, 1.0) * self.args.restart_every):
            outcome = self.restart_and_resume()
            self.resumes[outcome] += 1
            if outcome != "resumed":
                self.fail("streams did not resume after restart %d: %s" % (self.restarts_seen, outcome))

    # ---- clients ----

    def client_call(self, rnd, t):
        own = ["s%dp%d" % (t, k) for k in range(3)]
        p = rnd.choice(own)
        b = rnd.choice(CLIENT_BUFFERS + (-1, 99))
        tap = rnd.choice(("hwin", "hwdt"))
        choices = [
            ["Ping"], ["ShowGraph"], ["ListProcessors"], ["ListSupportedProcessors"],
            ["NewProcessor", p], ["NewProcessorWithType", p, rnd.choice(("pass", "arel", "xxxx"))],
            ["DeleteProcessor", p], ["ListSupportedUseCases"],
            ["Enable", rnd.choice(("HOTWORDAEC", "mic-in", "")), rnd.choice((0, 1))],
            ["IsEnabled", rnd.choice(("MIC_IN", "arel_tele", "x"))],
            ["ProcessorInfo", rnd.choice(own + ["pas1", "art0"])],
            ["ProcessorEnable", p, rnd.choice((0, 1))],
            ["ProcessorIsEnabled", rnd.choice(own + ["art1"])],
            ["TapList", rnd.choice((2, 3, 4, 9))],
            ["TapInfo", rnd.choice((2, 3, 4)), rnd.choice(("imic", "hwin", "vpdl")), 0],
            ["TapEnable", 3, tap, 0, rnd.choice((0, 1))],
            ["TapSetBlockLength", 3, tap, 0, rnd.choice((480, 960, 500))],
            ["ListTapOutBuffers"], ["ListInjectBuffers"],
            ["Connect", p, b, rnd.choice(CLIENT_BUFFERS + (-1,))],
            ["ConnectTap", 3, tap, 0, CLIENT_BUFFERS[0], CLIENT_BUFFERS[1]],
            ["StartIo", rnd.choice((50, 51, -1, 99))], ["StopIo", rnd.choice((50, 51, 99))],
            ["Debug"] + rnd.choice(([], ["help"], ["log_start", self.rig.path("cap")], ["log_stop"],
                                     ["buffer_dump", "tapout", "50"], ["buffer_dump", "inject", "x"], ["bogus"])),
            ["EnableUseCase", rnd.choice(("HOTWORDAEC", "UNSPECIFIED", "7")), rnd.choice((0, 1))],
            ["IsUseCaseEnabled", rnd.choice(("MIC_IN", "AREL_TELE", "HOTWORDAEC", "-1"))],
            ["SetParameter", p, rnd.choice(PARAMS), rnd.choice((0, 1, 7)),
             rnd.choice(("i:1", "i:960", "i:500", "f:1.5", "i:0"))],
            ["GetParameter", rnd.choice(own + ["art0", "pas1"]), rnd.choice(PARAMS), rnd.choice((0, 1, 5, 9, -1))],
            ["SetParameterBulk", p, "PASSTHROUGH_MODE:0=i:1", "BLOCK_LENGTH:0=i:%d" % rnd.choice((960, 4800, 7))],
            ["GetParameterBulk", rnd.choice(own + ["art0"]), "VERSION:1", "AUDIO_FORMAT:1", "BLOCK_LENGTH:0"],
            ["ListParameters"],
            ["SendAudio", rnd.choice(own + ["art0", "art1"]), self.tone] + rnd.choice(([], ["5", "0", "1", "2"])),
            ["RegisterReceiveAudioCallback", p],
        ]
        return rnd.choice(choices)

    def client(self, t):
        rnd = random.Random(self.args.seed * 1000 + t)
        while not self.stop.is_set():
            args = self.client_call(rnd, t)
            t0 = time.time()
            rc, _ = self.rig.lumx(args, timeout=60)
            with self.lock:
                self.calls[args[0]]["hang" if rc is None else str(rc)] += 1
            if rc is None:
                self.hangs.append(" ".join(map(str, args)))
                self.fail("call did not return within 60 s: lumx %s" % " ".join(map(str, args)))
                self.on_hang()
            elif rc == 69 and self.rig.daemon.poll() is not None:
                return
            elif rc == 69:
                # Not reached within the tool's ~2 s lookup, or broken in
                # transport, while the daemon is alive: its single binder
                # pool thread may be busy with a slow call (an enable that
                # waits out dropped replies). Counted, and shown.
                with self.lock:
                    self.unreachable.append("%s after %.1f s" % (" ".join(map(str, args)), time.time() - t0))

    def relays(self):
        rnd = random.Random(self.args.seed)
        while not self.stop.is_set():
            proc = rnd.choice(("art0", "art1"))
            p = self.rig.spawn([self.rig.tools.lumx, "relay", proc, "--play", self.tone, "--seconds", "60",
                                "--json-stats"], log_name="relay.log", append=True)
            with self.lock:
                self.relay["started"] += 1
            self.stop.wait(rnd.uniform(0.5, 4.0))
            if p.poll() is None:
                sig = signal.SIGKILL if rnd.random() < 0.7 else signal.SIGTERM
                with self.lock:
                    self.relay["killed (SIGKILL)" if sig == signal.SIGKILL else "stopped (SIGTERM)"] += 1
                self.rig.stop(p, sig, 15)
            else:
                with self.lock:
                    self.relay["ended by itself (exit %s)" % p.returncode] += 1
            with self.rig._lock:
                if p in self.rig.others:
                    self.rig.others.remove(p)
        try:
            with open(self.rig.path("relay.log")) as f:
                for m in re.finditer(r'"packets":(\d+)', f.read()):
                    self.relay_packets += int(m.group(1))
        except OSError:
            pass

    def dump_stacks(self, name):
        """Writes the daemon's thread stacks (gdb) into the run's directory."""
        out = self.rig.path(name)
        try:
            with open(out, "wb") as f:
                subprocess.run(["gdb", "-p", str(self.rig.daemon.pid), "-batch", "-ex", "thread apply all bt"],
                               stdout=f, stderr=subprocess.STDOUT, timeout=120)
            log("daemon stacks written to " + out)
        except (OSError, subprocess.SubprocessError) as e:
            log("could not take the daemon's stacks: %s" % e)

    # What each of the daemon's threads is, from its stack: the first of
    # these functions found in it.
    THREAD_KINDS = (("Lumxd::BinderThread", "binder thread (joined pool)"),
                    ("ThreadPool::Loop", "binder pool"),
                    ("LumxBuffer::ioProcess", "buffer I/O"),
                    ("Lumxd::EventThread", "event loop"),
                    ("AcceptLoop", "service socket accept"),
                    ("ReaderThread", "binder connection reader"),
                    ("initLumBuffersWithRetry", "buffer rescan"),
                    (" main ", "main"))

    def thread_kinds(self):
        """Counts the daemon's threads by kind (gdb), or None without gdb."""
        try:
            p = subprocess.run(["gdb", "-p", str(self.rig.daemon.pid), "-batch", "-ex", "thread apply all bt"],
                               capture_output=True, timeout=120)
        except (OSError, subprocess.SubprocessError):
            return None
        kinds = collections.Counter()
        for block in re.split(r"\nThread \d+ ", p.stdout.decode("utf-8", "replace"))[1:]:
            for marker, kind in self.THREAD_KINDS:
                if marker in block:
                    kinds[kind] += 1
                    break
            else:
                frames = re.findall(r" in (\S+) \(", block)
                kinds["other: " + (frames[0] if frames else "?")] += 1
        return kinds

    def on_hang(self):
        """A call that never returns means the daemon is stuck: keep its
        threads' stacks for the report and end the run."""
        with self.lock:
            if self.stacks_saved:
                return
            self.stacks_saved = True
        self.dump_stacks("hang-stacks.txt")
        self.hung = True
        self.stop.set()

    def watch_daemon(self):
        limit = self.args.max_log_mb * 1024 * 1024
        while not self.stop.is_set():
            if self.rig.daemon.poll() is not None:
                self.daemon_died_at = time.time()
                self.fail("lumxd exited during the run (code %s)" % self.rig.daemon.returncode)
                self.stop.set()
                return
            try:
                size = os.path.getsize(self.rig.daemon_log)
            except OSError:
                size = 0
            if size > limit:
                self.fail("the daemon's log passed %d MB (a log flood; see its last lines)" % self.args.max_log_mb)
                self.on_hang()
                return
            time.sleep(0.2)

    # ---- the run ----

    def counts(self):
        pid = self.rig.daemon.pid
        return lumxsys.fd_count(pid), lumxsys.task_count(pid)

    def run(self):
        a = self.args
        log("enabling MIC_IN and AREL_TELE")
        base = self.injected()
        if not (self.enable_use_cases(attempts=20) and self.wait_flow(base, 20)):
            self.fail("use cases did not start streaming")
            return
        # Warm-up: whatever the daemon and its binder runtime set up on first
        # use (a relay client's callback, a restart, each kind of call) is
        # there before the reference count, so the comparison at the end
        # shows growth, not first use.
        # (Concurrent calls grow the binder pool to its bounded size.)
        log("warm-up: concurrent calls, one relay session, one restart")

        def warm(t):
            rnd = random.Random(self.args.seed + 99 + t)
            for _ in range(15):
                self.rig.lumx(self.client_call(rnd, 9), timeout=60)

        warmers = [threading.Thread(target=warm, args=(t,)) for t in range(max(4, a.clients))]
        for th in warmers:
            th.start()
        for th in warmers:
            th.join()
        p = self.rig.spawn([self.rig.tools.lumx, "relay", "art0", "--play", self.tone, "--seconds", "60"])
        time.sleep(1.5)
        self.rig.stop(p, signal.SIGKILL)
        with self.rig._lock:
            self.rig.others.remove(p)
        outcome = self.restart_and_resume()
        self.resumes[outcome] += 1
        if outcome != "resumed":
            self.fail("streams did not resume after the warm-up restart: %s" % outcome)
            return
        time.sleep(1)
        fd0, task0 = self.counts()
        self.kinds0 = self.thread_kinds()
        log("reference state: %d descriptors, %d threads %s" % (fd0, task0, dict(self.kinds0 or {})))

        threads = [threading.Thread(target=self.restarts, name="restarts"),
                   threading.Thread(target=self.relays, name="relays"),
                   threading.Thread(target=self.watch_daemon, name="watch")]
        threads += [threading.Thread(target=self.client, args=(t,), name="client%d" % t) for t in range(a.clients)]
        for th in threads:
            th.start()
        t_end = time.time() + a.seconds
        next_note = time.time() + 15
        while time.time() < t_end and not self.stop.is_set():
            time.sleep(0.5)
            if time.time() >= next_note:
                next_note += 15
                with self.lock:
                    n = sum(sum(c.values()) for c in self.calls.values())
                log("%.0f s left: %d client calls, %d restarts, resumes %s, relay %s" %
                    (t_end - time.time(), n, self.restarts_seen, dict(self.resumes), dict(self.relay)))
        self.stop.set()
        for th in threads:
            th.join()
        if self.daemon_died_at is not None or self.hung:
            return

        # The same state as the reference: clients and relays gone, use cases
        # enabled again after one last restart, nothing else going on.
        log("settling: one last restart, then the counts")
        outcome = self.restart_and_resume()
        self.resumes[outcome] += 1
        if outcome != "resumed":
            self.fail("streams did not resume after the final restart: %s" % outcome)
        time.sleep(1)
        deadline = time.time() + 15
        fd1, task1 = self.counts()
        while (fd1 > fd0 or task1 > task0) and time.time() < deadline:
            time.sleep(0.5)
            fd1, task1 = self.counts()
        self.fd = (fd0, fd1)
        self.tasks = (task0, task1)
        if fd1 != fd0:
            self.fail("descriptors %d -> %d (%s)" % (fd0, fd1, self.fd_listing()))
        self.kinds1 = self.thread_kinds()
        if task1 != task0:
            # The binder pool spawns its one extra thread (the daemon sets a
            # maximum of 1) only when calls overlap; that one is no growth.
            k0, k1 = self.kinds0, self.kinds1
            grown = None if k0 is None or k1 is None else {
                k: (k0.get(k, 0), n) for k, n in k1.items()
                if n > k0.get(k, 0) and not (k == "binder pool" and n <= 2)}
            if grown is None or grown:
                self.fail("threads %d -> %d, grown: %s" % (task0, task1, grown))
                self.dump_stacks("thread-stacks.txt")
            else:
                log("threads %d -> %d: the binder pool's bounded extra thread" % (task0, task1))
        # The daemon answers: Ping and ListProcessors never reach the DSP;
        # ShowGraph does, and may meet an injected control fault (status 1).
        for op, ok in (("Ping", (0,)), ("ListProcessors", (0,)), ("ShowGraph", (0, 1))):
            rc, _ = self.rig.lumx([op], timeout=30)
            if rc not in ok:
                self.fail("final %s failed (rc %s)" % (op, rc))

    def fd_listing(self):
        pid = self.rig.daemon.pid
        out = collections.Counter()
        for fd in os.listdir("/proc/%d/fd" % pid):
            try:
                target = os.readlink("/proc/%d/fd/%s" % (pid, fd))
            except OSError:
                continue
            out[re.sub(r"\[\d+\]", "", target)] += 1
        return ", ".join("%s x%d" % kv for kv in sorted(out.items()))


def log_profile(path, top=3):
    """Lines per second of the daemon's log at its busiest, and its most
    repeated messages (numbers masked)."""
    per_second = collections.Counter()
    messages = collections.Counter()
    digits = re.compile(r"\d+")
    try:
        with open(path, "rb") as f:
            for raw in f:
                parts = raw.split(None, 5)
                if len(parts) < 6:
                    continue
                per_second[parts[1][:8]] += 1
                messages[digits.sub("N", parts[5].decode("utf-8", "replace").strip())] += 1
    except OSError:
        pass
    busiest = per_second.most_common(1)
    return {"lines": sum(per_second.values()),
            "busiest_second": {"time": busiest[0][0].decode(), "lines": busiest[0][1]} if busiest else None,
            "top_messages": [{"message": m, "count": c} for m, c in messages.most_common(top)]}


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--build-dir", default="build/debug")
    ap.add_argument("--seconds", type=float, default=300)
    ap.add_argument("--clients", type=int, default=4, help="client threads calling operations")
    ap.add_argument("--restart-every", type=float, default=6.0,
                    help="mean period of the simulated DSP restarts (s; jittered 0.5-1.0 x this after each resume)")
    ap.add_argument("--restart-down-ms", type=int, default=800)
    ap.add_argument("--rescan-wait", type=float, default=1.5, help="pause after a restart before re-enabling")
    ap.add_argument("--resume-timeout", type=float, default=8.0)
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--json-out", default=None, help="default: <build-dir>/soak.json")
    ap.add_argument("--max-log-mb", type=int, default=1024, help="fail when the daemon's log grows past this")
    ap.add_argument("--max-log-lines-per-s", type=int, default=20000,
                    help="fail when the daemon logs more lines than this in one second (a flood)")
    ap.add_argument("--keep", action="store_true", help="keep the temporary directory and logs")
    args = ap.parse_args()

    tools = lumxsys.Tools(args.build_dir)
    tools.check("lumxd", "lumx", "sim")
    json_out = args.json_out or os.path.join(tools.build, "soak.json")
    rig = lumxsys.Rig(tools, keep=args.keep, prefix="lumx_soak.")
    bufs = ",".join(map(str, (20, 21, 40, 41) + CLIENT_BUFFERS))
    # Restarts come from this script (SIGUSR2), so that every one is
    # followed by a check that the streams come back before the next.
    faults = ["--fault-restart-down-ms", str(args.restart_down_ms),
              "--fault-delay-reply-ms", "600", "--fault-delay-rate", "0.02",
              "--fault-drop-reply", "0.02", "--fault-stray-reply", "0.05",
              "--fault-split", "0.05", "--fault-stale", "0.02", "--fault-misalign", "0.01",
              "--fault-bad-version", "0.01", "--fault-oversize", "0.005", "--fault-jump", "0.01",
              "--fault-pause", "11:300"]
    rig.start_sim(["--buffers", bufs, "--seed", str(args.seed)] + faults)
    san_env = {
        "ASAN_OPTIONS": os.environ.get("ASAN_OPTIONS", "detect_leaks=1:abort_on_error=1:strict_string_checks=1"),
        "UBSAN_OPTIONS": os.environ.get("UBSAN_OPTIONS", "print_stacktrace=1:halt_on_error=1"),
    }
    rig.start_daemon(extra_env=san_env)
    soak = Soak(rig, args)
    soak.fd = soak.tasks = (None, None)
    started = time.time()
    soak.run()

    # The daemon must still be there, and end by the signal it is sent.
    alive = rig.daemon.poll() is None
    code = rig.stop(rig.daemon, signal.SIGTERM, 20)
    if alive and code != -signal.SIGTERM:
        soak.fail("lumxd did not end by SIGTERM (exit %s)" % code)
    reports = lumxsys.sanitizer_lines(rig.daemon_log)
    if reports:
        soak.fail("sanitizer report in the daemon's log: " + reports[0])
    profile = log_profile(rig.daemon_log)
    busiest = profile["busiest_second"]
    if busiest and busiest["lines"] > args.max_log_lines_per_s:
        soak.fail("log flood: %d lines in one second (%s); most repeated: %s" %
                  (busiest["lines"], busiest["time"], profile["top_messages"][0]))
    final = rig.final_sim_stats()

    summary = {
        "seconds": round(time.time() - started, 1),
        "build_dir": tools.build,
        "clients": args.clients,
        "restart_every_s": args.restart_every,
        "restarts": final.get("faults", {}).get("restart"),
        "restarts_checked": soak.restarts_seen,
        "resumes": dict(soak.resumes),
        "resume_s": {"max": round(max(soak.resume_times), 2) if soak.resume_times else None,
                     "mean": round(sum(soak.resume_times) / len(soak.resume_times), 2) if soak.resume_times else None},
        "faults_injected": final.get("faults", {}),
        "commands": final.get("commands", []),
        "streams": [{k: s.get(k) for k in ("node", "packets_sent", "packets_received", "gaps", "errors",
                                           "dropped_no_reader") if k in s} for s in final.get("streams", [])],
        "client_calls": {op: dict(c) for op, c in sorted(soak.calls.items())},
        "client_calls_total": sum(sum(c.values()) for c in soak.calls.values()),
        "client_calls_unreachable": soak.unreachable[:50],
        "relay_sessions": dict(soak.relay),
        "relay_packets_received": soak.relay_packets,
        "daemon": {"alive_at_end": alive, "exit": code, "fds": soak.fd, "threads": soak.tasks,
                   "thread_kinds": [dict(soak.kinds0 or {}), dict(soak.kinds1 or {})],
                   "sanitizer_reports": reports, "log": profile},
        "failures": soak.failures,
        "passed": not soak.failures,
    }
    with open(json_out, "w") as f:
        json.dump(summary, f, indent=1)

    print()
    print("lumxd soak: %.0f s, %d client threads, DSP restart every %.0f s (%s)" %
          (summary["seconds"], args.clients, args.restart_every, tools.build))
    print("  faults injected by the simulator:")
    for k, v in sorted(summary["faults_injected"].items()):
        print("    %-18s %d" % (k, v))
    print("  restarts: %s; after each: %s (resume time max %s s)" %
          (summary["restarts"], summary["resumes"], summary["resume_s"]["max"]))
    print("  client calls: %d over %d operations; by exit code: %s" %
          (summary["client_calls_total"], len(summary["client_calls"]),
           dict(sum((collections.Counter(c) for c in summary["client_calls"].values()), collections.Counter()))))
    print("  relay sessions: %s" % summary["relay_sessions"])
    print("  packets delivered to relay clients (sessions ended by SIGTERM report theirs): %d" %
          summary["relay_packets_received"])
    for s in summary["streams"]:
        if s.get("packets_received") or s.get("packets_sent"):
            print("    %-20s sent %-7s received %-7s gaps %-5s errors %s" % (
                s["node"], s.get("packets_sent", "-"), s.get("packets_received", "-"), s.get("gaps", "-"),
                s.get("errors", "-")))
    print("  daemon: alive %s, exit %s, descriptors %s -> %s, threads %s -> %s, sanitizer reports %d" %
          (alive, code, soak.fd[0], soak.fd[1], soak.tasks[0], soak.tasks[1], len(reports)))
    print("  daemon log: %d lines, busiest second %s, most repeated: %s" %
          (profile["lines"], busiest, profile["top_messages"][:1]))
    print("  result: %s" % ("PASS" if summary["passed"] else "FAIL"))
    for f in soak.failures:
        print("    - " + f)
    print("JSON: " + json_out)
    if soak.failures and not args.keep:
        rig.keep = True  # keep the logs of a failed run
    rig.close()
    return 0 if summary["passed"] else 1


if __name__ == "__main__":
    sys.exit(main())
