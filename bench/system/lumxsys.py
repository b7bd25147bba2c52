"""Shared plumbing of the system benchmark and the soak run.

One `Rig` is one private world: a temporary directory with the simulator's
device directory (LUMX_DEV_ROOT), the binder runtime directory
(LUMX_BINDER_DIR) and a sysfs root with power/ (LUMX_SYSFS_ROOT), the
lumx-dspsim and lumxd processes started in it, and helpers to call the `lumx`
tool, read the simulator's statistics and the daemon's /proc figures. Every
process a Rig starts is stopped and the directory removed by `close()`, which
also runs on SIGINT/SIGTERM and at interpreter exit.

Python 3 standard library only.
"""

import atexit
import json
import os
import shutil
import signal
import subprocess
import sys
import tempfile
import threading
import time

SANITIZER_MARKERS = (
    "ERROR: AddressSanitizer",
    "ERROR: LeakSanitizer",
    "WARNING: ThreadSanitizer",
    "ERROR: ThreadSanitizer",
    "runtime error:",
    "SUMMARY: AddressSanitizer",
    "SUMMARY: UndefinedBehaviorSanitizer",
    "AddressSanitizer:DEADLYSIGNAL",
)


def log(msg):
    sys.stderr.write("[%s] %s\n" % (time.strftime("%H:%M:%S"), msg))
    sys.stderr.flush()


class Tools:
    """Paths of the programs in one build directory."""

    def __init__(self, build_dir):
        self.build = os.path.abspath(build_dir)
        self.lumxd = os.path.join(self.build, "lumxd")
        self.lumx = os.path.join(self.build, "tools", "lumx", "lumx")
        self.sim = os.path.join(self.build, "tools", "lumx-dspsim", "lumx-dspsim")
        self.bare_relay = os.path.join(self.build, "bench", "system", "bare_relay_tool")
        self.client_bench = os.path.join(self.build, "bench", "ilumx_client_bench")

    def check(self, *names):
        missing = [getattr(self, n) for n in names if not os.access(getattr(self, n), os.X_OK)]
        if missing:
            raise SystemExit("missing programs (build first): " + ", ".join(missing))


def memory_tmp():
    """A RAM-backed directory for temporary files, or None (the default)."""
    for d in ("/dev/shm", "/run/shm"):
        try:
            if os.statvfs(d).f_bavail > 0 and os.access(d, os.W_OK | os.X_OK):
                with open("/proc/mounts") as f:
                    if any(l.split()[1] == d and l.split()[2] == "tmpfs" for l in f):
                        return d
        except OSError:
            pass
    return None


_live_rigs = []


def _close_all(*_):
    for rig in list(_live_rigs):
        rig.close()


def _on_signal(signum, _frame):
    _close_all()
    raise SystemExit(128 + signum)


atexit.register(_close_all)
signal.signal(signal.SIGTERM, _on_signal)
signal.signal(signal.SIGINT, _on_signal)


class Rig:
    def __init__(self, tools, keep=False, prefix="lumx_sys.", in_memory=False):
        """`in_memory`: the directory (logs included) on a RAM file system when
        there is one, so that no process of the rig ever waits for the disk."""
        self.tools = tools
        self.keep = keep
        self.root = tempfile.mkdtemp(prefix=prefix, dir=memory_tmp() if in_memory else None)
        self.dev = os.path.join(self.root, "dev")
        self.binder = os.path.join(self.root, "binder")
        self.sysfs = os.path.join(self.root, "sysfs")
        for d in (self.dev, self.binder, os.path.join(self.sysfs, "power")):
            os.makedirs(d, exist_ok=True)
        os.chmod(self.binder, 0o700)
        for name in ("wake_lock", "wake_unlock"):
            open(os.path.join(self.sysfs, "power", name), "w").close()
        self.env = dict(os.environ)
        self.env.update(LUMX_DEV_ROOT=self.dev, LUMX_BINDER_DIR=self.binder, LUMX_SYSFS_ROOT=self.sysfs)
        self.sim = None
        self.daemon = None
        self.others = []
        self.stats_path = os.path.join(self.root, "sim-stats.json")
        self.sim_log = os.path.join(self.root, "sim.log")
        self.daemon_log = os.path.join(self.root, "lumxd.log")
        self.daemon_out = os.path.join(self.root, "lumxd.out")
        self._lock = threading.Lock()
        self._closed = False
        _live_rigs.append(self)

    def path(self, name):
        return os.path.join(self.root, name)

    # ---- processes ----

    def start_sim(self, extra_args, ready_timeout=15, fifo_priority=None):
        """Starts lumx-dspsim; with `fifo_priority` under SCHED_FIFO at that
        priority when the system allows it (check with scheduling())."""
        ready = self.path("sim.ready")
        args = [self.tools.sim, "--dev-root", self.dev, "--stats", self.stats_path,
                "--ready-file", ready] + list(extra_args)
        self._sim_err = open(self.sim_log, "wb")

        def realtime():
            try:
                os.sched_setscheduler(0, os.SCHED_FIFO, os.sched_param(fifo_priority))
            except OSError:
                pass

        self.sim = subprocess.Popen(args, env=self.env, stdin=subprocess.DEVNULL,
                                    stdout=subprocess.DEVNULL, stderr=self._sim_err,
                                    preexec_fn=realtime if fifo_priority else None)
        deadline = time.time() + ready_timeout
        while not os.path.exists(ready):
            if self.sim.poll() is not None:
                raise SystemExit("lumx-dspsim exited with %s; see %s" % (self.sim.returncode, self.sim_log))
            if time.time() > deadline:
                raise SystemExit("lumx-dspsim not ready within %d s" % ready_timeout)
            time.sleep(0.05)

    def start_daemon(self, extra_env=None, ready_timeout=30):
        env = dict(self.env)
        if extra_env:
            env.update(extra_env)
        self._d_err = open(self.daemon_log, "wb")
        self._d_out = open(self.daemon_out, "wb")
        # A plain child (no new session): the control node is a pty, and a
        # session leader without a terminal would acquire it as its own.
        self.daemon = subprocess.Popen([self.tools.lumxd], env=env, stdin=subprocess.DEVNULL,
                                       stdout=self._d_out, stderr=self._d_err)
        deadline = time.time() + ready_timeout
        while True:
            if self.daemon.poll() is not None:
                raise SystemExit("lumxd exited with %s; see %s" % (self.daemon.returncode, self.daemon_log))
            rc, res = self.lumx(["ListTapOutBuffers"], timeout=10)
            if rc == 0 and res and any("tapout" in l for l in res.get("lines", [])):
                return
            if time.time() > deadline:
                raise SystemExit("lumxd not serving within %d s (last rc %s)" % (ready_timeout, rc))
            time.sleep(0.2)

    def spawn(self, args, log_name=None, append=False, **kw):
        out = open(self.path(log_name), "ab" if append else "wb") if log_name else subprocess.DEVNULL
        p = subprocess.Popen(args, env=self.env, stdin=subprocess.DEVNULL, stdout=out,
                             stderr=subprocess.STDOUT if log_name else subprocess.DEVNULL, **kw)
        with self._lock:
            self.others.append(p)
        return p

    @staticmethod
    def stop(proc, sig=signal.SIGTERM, timeout=10):
        if proc is None or proc.poll() is not None:
            return proc.returncode if proc else None
        try:
            proc.send_signal(sig)
            return proc.wait(timeout=timeout)
        except subprocess.TimeoutExpired:
            proc.kill()
            return proc.wait()

    def close(self):
        with self._lock:
            if self._closed:
                return
            self._closed = True
            others = list(self.others)
        for p in others:
            self.stop(p, signal.SIGKILL, 5)
        self.stop(self.daemon)
        self.stop(self.sim)
        if self in _live_rigs:
            _live_rigs.remove(self)
        if self.keep:
            log("kept " + self.root)
        else:
            shutil.rmtree(self.root, ignore_errors=True)

    # ---- the lumx tool ----

    def lumx(self, args, timeout=30):
        """Runs `lumx --json ARGS`. Returns (exit code, parsed JSON or None);
        the code is None when the call did not finish within `timeout`."""
        try:
            p = subprocess.run([self.tools.lumx, "--json"] + [str(a) for a in args], env=self.env,
                               stdin=subprocess.DEVNULL, capture_output=True, timeout=timeout)
        except subprocess.TimeoutExpired:
            return None, None
        res = None
        out = p.stdout.decode("utf-8", "replace").strip()
        if out:
            try:
                res = json.loads(out.splitlines()[-1])
            except ValueError:
                res = None
        return p.returncode, res

    def lumx_ok(self, args, timeout=30):
        rc, res = self.lumx(args, timeout)
        if rc != 0:
            raise SystemExit("lumx %s failed: rc %s %s" % (" ".join(map(str, args)), rc,
                                                          res and res.get("lines")))
        return res

    # ---- simulator statistics ----

    def sim_stats(self, timeout=5):
        """Asks the simulator for a fresh statistics document (SIGUSR1)."""
        before = os.stat(self.stats_path).st_mtime_ns if os.path.exists(self.stats_path) else 0
        self.sim.send_signal(signal.SIGUSR1)
        deadline = time.time() + timeout
        while time.time() < deadline:
            try:
                if os.stat(self.stats_path).st_mtime_ns != before:
                    with open(self.stats_path) as f:
                        return json.load(f)
            except (OSError, ValueError):
                pass
            time.sleep(0.02)
        with open(self.stats_path) as f:
            return json.load(f)

    def final_sim_stats(self):
        self.stop(self.sim)
        with open(self.stats_path) as f:
            return json.load(f)


def stream(stats, direction, ident):
    for s in stats.get("streams", []):
        if s.get("direction") == direction and s.get("id") == ident:
            return s
    return {}


# ---- /proc figures of a process ----

def cpu_seconds_tasks(pid):
    """CPU time of the live threads of `pid`, in seconds, from the scheduler's
    per-task run time (nanosecond resolution)."""
    total = 0.0
    base = "/proc/%d/task" % pid
    for tid in os.listdir(base):
        try:
            with open("%s/%s/sched" % (base, tid)) as f:
                for line in f:
                    if line.startswith("se.sum_exec_runtime"):
                        total += float(line.split(":")[1]) / 1000.0  # ms -> s
                        break
        except OSError:
            pass
    return total


def cpu_seconds_stat(pid):
    """utime + stime of the whole process (dead threads included), clock-tick resolution."""
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    tck = os.sysconf("SC_CLK_TCK")
    return (int(fields[11]) + int(fields[12])) / float(tck)


def status_kb(pid, key):
    with open("/proc/%d/status" % pid) as f:
        for line in f:
            if line.startswith(key + ":"):
                return int(line.split()[1])
    return 0


def fd_count(pid):
    return len(os.listdir("/proc/%d/fd" % pid))


def task_count(pid):
    return len(os.listdir("/proc/%d/task" % pid))


def scheduling(tid):
    """(policy name, real-time priority) of one thread or process."""
    try:
        policy = os.sched_getscheduler(tid)
        prio = os.sched_getparam(tid).sched_priority
    except OSError:
        return None, 0
    names = {os.SCHED_OTHER: "normal", os.SCHED_FIFO: "fifo", os.SCHED_RR: "rr",
             getattr(os, "SCHED_BATCH", -1): "batch", getattr(os, "SCHED_IDLE", -2): "idle"}
    return names.get(policy, str(policy)), prio


def realtime_tasks(pid):
    """Thread ids of `pid` under a real-time policy, with (policy, priority, name)."""
    found = {}
    try:
        tids = os.listdir("/proc/%d/task" % pid)
    except OSError:
        return found
    for tid in map(int, tids):
        policy, prio = scheduling(tid)
        if policy in ("fifo", "rr"):
            try:
                with open("/proc/%d/task/%d/comm" % (pid, tid)) as f:
                    name = f.read().strip()
            except OSError:
                name = "?"
            found[tid] = (policy, prio, name)
    return found


# ---- small statistics over a handful of values ----

def median(values):
    values = sorted(v for v in values if v is not None)
    if not values:
        return None
    mid = len(values) // 2
    return values[mid] if len(values) % 2 else (values[mid - 1] + values[mid]) / 2.0


def quantile(values, q):
    """Linear interpolation between the closest ranks (q in 0..1)."""
    values = sorted(v for v in values if v is not None)
    if not values:
        return None
    pos = q * (len(values) - 1)
    lo = int(pos)
    hi = min(lo + 1, len(values) - 1)
    return values[lo] + (values[hi] - values[lo]) * (pos - lo)


def sanitizer_lines(path, limit=20):
    found = []
    try:
        with open(path, "rb") as f:
            for raw in f:
                line = raw.decode("utf-8", "replace")
                if any(m in line for m in SANITIZER_MARKERS):
                    found.append(line.rstrip())
                    if len(found) >= limit:
                        break
    except OSError:
        pass
    return found
