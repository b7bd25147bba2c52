#!/usr/bin/env python3
"""Mutation testing of the daemon's own code.

Makes small faults ("mutants") in daemon/, service/, buffer/, processors/ and
common/, rebuilds only what each one touches, runs the tests that cover that
folder with a time limit and reports which mutants the tests caught (killed),
which they missed (survived) and which made them hang (timed out). A mutant
that does not compile is dropped (unviable) and does not count.

    scripts/mutate.py                          150 mutants, seed 1
    scripts/mutate.py --seed 7 --sample 40     another repeatable sample
    scripts/mutate.py --files buffer/lumx_buffer_io.cpp --sample 0   all of one file
    scripts/mutate.py --list                   print the sample, build nothing
    scripts/mutate.py --json-out FILE          also write the results as JSON
    scripts/mutate.py --minutes 50             start no mutant after 50 minutes

Score = (killed + timed out) / (killed + timed out + survived).

The same seed, sample and tree give the same mutants. Each mutant is written
into the work tree, built in build/mutate (plain Debug, no sanitizers, so a
rebuild is one object and one link) and undone before the next; the original
text is restored on every exit, Ctrl-C included.
"""

import argparse
import json
import os
import random
import re
import signal
import subprocess
import sys
import time

ROOT = os.path.abspath(os.path.join(os.path.dirname(__file__), ".."))
FOLDERS = ["daemon", "service", "buffer", "processors", "common"]
# The test binaries that cover each folder. A mutant in common/ can break any
# area, so its tests are the areas that use it most.
TESTS = {
    "daemon": ["lumx_daemon_tests"],
    "service": ["lumx_service_tests"],
    "buffer": ["lumx_buffer_tests"],
    "processors": ["lumx_processor_tests"],
    "common": ["lumx_common_tests", "lumx_buffer_tests", "lumx_service_tests"],
}
# The daemon's tests start lumxd itself: for a mutant there, the daemon binary
# is rebuilt as well.
EXTRA_TARGETS = {"daemon": ["lumxd"]}

# ---------------------------------------------------------------- lexing


def mask_code(lines):
    """Returns the lines with comments, string and character literals and
    preprocessor lines replaced by blanks, so operators are only found in
    code. Columns are kept."""
    out = []
    in_block = False
    for line in lines:
        chars = list(line)
        i = 0
        n = len(chars)
        if not in_block and line.lstrip().startswith("#"):
            out.append(" " * n)
            continue
        while i < n:
            if in_block:
                if line.startswith("*/", i):
                    chars[i] = chars[i + 1] = " "
                    i += 2
                    in_block = False
                else:
                    chars[i] = " "
                    i += 1
                continue
            c = line[i]
            if line.startswith("//", i):
                for j in range(i, n):
                    chars[j] = " "
                break
            if line.startswith("/*", i):
                chars[i] = chars[i + 1] = " "
                i += 2
                in_block = True
                continue
            if c in "\"'":
                # Skip raw strings crudely: R"( ... )" on one line.
                j = i + 1
                while j < n and line[j] != c:
                    j += 2 if line[j] == "\\" else 1
                for k in range(i, min(j + 1, n)):
                    chars[k] = " "
                i = j + 1
                continue
            i += 1
        out.append("".join(chars))
    return out


# ---------------------------------------------------------------- operators

# (name, regex on the masked line, replacement for the matched text)
BINARY_SWAPS = [
    ("rel", r"(?<=[\w\)\]] )<(?= [\w\(!-])", "<="),
    ("rel", r"(?<=[\w\)\]] )<=(?= )", "<"),
    ("rel", r"(?<=[\w\)\]] )>(?= [\w\(!-])", ">="),
    ("rel", r"(?<=[\w\)\]] )>=(?= )", ">"),
    ("rel", r"(?<= )==(?= )", "!="),
    ("rel", r"(?<= )!=(?= )", "=="),
    ("logic", r"(?<= )&&(?= )", "||"),
    ("logic", r"(?<= )\|\|(?= )", "&&"),
    ("arith", r"(?<=[\w\)\]] )\+(?= [\w\(])", "-"),
    ("arith", r"(?<=[\w\)\]] )-(?= [\w\(])", "+"),
    ("arith", r"(?<=[\w\)\]] )\*(?= [\w\(])", "/"),
    ("arith", r"(?<=[\w\)\]] )/(?= [\w\(])", "*"),
    ("arith", r"\+\+(?=\w)|(?<=\w)\+\+", "--"),
    ("arith", r"(?<= )\+=(?= )", "-="),
    ("arith", r"(?<= )-=(?= )", "+="),
]

INT_LITERAL = re.compile(r"(?<![\w.])(\d+)(?:[uU]?[lL]{0,2})?(?![\w.])")
RETURN_STMT = re.compile(r"^(\s*)return\s+(.+);\s*$")
IF_COND = re.compile(r"\b(if|while)\s*\(")
CALL_STMT = re.compile(r"^(\s*)(?:[\w:]+(?:\.|->))*[A-Za-z_][\w:]*\s*\(.*\)\s*;\s*$")
NOT_CALL = re.compile(r"^\s*(return|delete|case|goto|break|continue|throw|using|typedef|static_assert)\b")


def match_paren(text, open_idx):
    depth = 0
    for i in range(open_idx, len(text)):
        if text[i] == "(":
            depth += 1
        elif text[i] == ")":
            depth -= 1
            if depth == 0:
                return i
    return -1


def mutants_of_file(path):
    """All mutants of one file: dicts with file, line (1-based), col, op,
    original and mutated line text."""
    with open(os.path.join(ROOT, path)) as f:
        lines = f.read().split("\n")
    masked = mask_code(lines)
    found = []

    def add(idx, op, new_line):
        if new_line != lines[idx]:
            found.append({"file": path, "line": idx + 1, "op": op,
                          "before": lines[idx], "after": new_line})

    for idx, (line, code) in enumerate(zip(lines, masked)):
        if not code.strip():
            continue
        # Operators.
        for op, rx, repl in BINARY_SWAPS:
            for m in re.finditer(rx, code):
                add(idx, op, line[:m.start()] + repl + line[m.end():])
        # Boundary constants: n -> n + 1, and 1 -> 0.
        for m in INT_LITERAL.finditer(code):
            if code[max(0, m.start() - 1):m.start()] in ("[",) and code.lstrip().startswith(("char", "uint8_t")):
                continue  # array sizes of declarations only break the build
            value = int(m.group(1))
            repl = "0" if value == 1 else str(value + 1)
            add(idx, "const", line[:m.start(1)] + repl + line[m.end(1):])
        # Negated conditions.
        for m in IF_COND.finditer(code):
            open_idx = m.end() - 1
            close_idx = match_paren(code, open_idx)
            if close_idx < 0:
                continue
            cond = line[open_idx + 1:close_idx]
            if not cond.strip() or ";" in cond:
                continue
            add(idx, "negate", line[:open_idx + 1] + "!(" + cond + ")" + line[close_idx:])
        # Changed return values (only where the new value surely compiles).
        m = RETURN_STMT.match(code)
        if m:
            value = line[m.start(2):m.end(2)].strip()
            swap = {"true": "false", "false": "true", "0": "-1", "-1": "0"}
            if value in swap:
                add(idx, "return", f"{m.group(1)}return {swap[value]};")
            elif value.startswith("!"):
                add(idx, "return", f"{m.group(1)}return {value[1:]};")
        # Removed calls: a statement that is only a call.
        if CALL_STMT.match(code) and not NOT_CALL.match(code) and "=" not in code.split("(")[0]:
            head = code.strip().split("(")[0]
            if not head.startswith(("LUMX_LOG", "snprintf", "static_cast", "assert")):
                add(idx, "remove-call", re.match(r"^\s*", line).group(0) + "(void)0;  // mutant: call removed")
    return found


def all_files(only):
    if only:
        return sorted(only)
    out = []
    for folder in FOLDERS:
        for dirpath, _, names in os.walk(os.path.join(ROOT, folder)):
            for name in names:
                if name.endswith((".cpp", ".h")):
                    out.append(os.path.relpath(os.path.join(dirpath, name), ROOT))
    return sorted(out)


# ---------------------------------------------------------------- running


class Tree:
    """Writes mutants into the work tree and always puts the original back."""

    def __init__(self):
        self.saved = {}

    def apply(self, m):
        path = os.path.join(ROOT, m["file"])
        with open(path) as f:
            text = f.read()
        self.saved[path] = text
        lines = text.split("\n")
        assert lines[m["line"] - 1] == m["before"], f"{m['file']}:{m['line']} changed since sampling"
        lines[m["line"] - 1] = m["after"]
        with open(path, "w") as f:
            f.write("\n".join(lines))

    def restore(self):
        for path, text in self.saved.items():
            with open(path, "w") as f:
                f.write(text)
        self.saved.clear()


def run(cmd, timeout=None, env=None):
    try:
        p = subprocess.run(cmd, cwd=ROOT, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                           timeout=timeout, env=env, start_new_session=True)
        return p.returncode, p.stdout.decode(errors="replace")
    except subprocess.TimeoutExpired as e:
        return None, (e.stdout or b"").decode(errors="replace")


def configure(build_dir):
    if os.path.exists(os.path.join(build_dir, "build.ninja")):
        return
    cmd = ["cmake", "-S", ROOT, "-B", build_dir, "-G", "Ninja",
           "-DCMAKE_BUILD_TYPE=Debug", "-DLUMX_BUILD_BENCH=OFF", "-DLUMX_BUILD_FUZZ=OFF",
           "-DCMAKE_C_COMPILER=clang", "-DCMAKE_CXX_COMPILER=clang++"]
    if subprocess.call(["which", "ccache"], stdout=subprocess.DEVNULL) == 0:
        cmd += ["-DCMAKE_C_COMPILER_LAUNCHER=ccache", "-DCMAKE_CXX_COMPILER_LAUNCHER=ccache"]
    rc, out = run(cmd)
    if rc != 0:
        sys.exit("mutate: configure failed\n" + out)


def build(build_dir, targets, timeout):
    return run(["cmake", "--build", build_dir, "--target", *targets], timeout=timeout)


def run_tests(build_dir, binaries, timeout):
    """('killed' | 'survived' | 'timeout', the failing test or binary)."""
    env = dict(os.environ, LUMX_BUILD_DIR=build_dir)
    deadline = time.monotonic() + timeout
    for b in binaries:
        left = deadline - time.monotonic()
        if left <= 0:
            return "timeout", b
        rc, out = run([os.path.join(build_dir, "tests", b), "--gtest_fail_fast", "--gtest_brief=1"],
                      timeout=left, env=env)
        if rc is None:
            return "timeout", b
        if rc != 0:
            failed = re.search(r"\[  FAILED  \] (\S+)", out or "")
            return "killed", failed.group(1) if failed else b
    return "survived", ""


def main():
    ap = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--sample", type=int, default=150, help="mutants to run; 0 = all")
    ap.add_argument("--files", nargs="*", help="only these files (paths from the top of the tree)")
    ap.add_argument("--build-dir", default=os.path.join(ROOT, "build", "mutate"))
    ap.add_argument("--timeout-factor", type=float, default=3.0,
                    help="test time limit as a multiple of the unmutated run (at least 30 s)")
    ap.add_argument("--list", action="store_true", help="print the sampled mutants and stop")
    ap.add_argument("--json-out")
    ap.add_argument("--minutes", type=float, default=0,
                    help="start no mutant after this many minutes (0 = no limit)")
    args = ap.parse_args()

    files = all_files(args.files)
    candidates = [m for f in files for m in mutants_of_file(f)]
    rng = random.Random(args.seed)
    sample = candidates if args.sample == 0 or args.sample >= len(candidates) else rng.sample(candidates, args.sample)
    # Run in the sampled (random) order, so a run cut short by --minutes is
    # still a random subset of the sample.
    print(f"mutate: {len(candidates)} candidate mutants in {len(files)} files; "
          f"running {len(sample)} (seed {args.seed})", flush=True)
    if args.list:
        for m in sorted(sample, key=lambda m: (m["file"], m["line"], m["op"], m["after"])):
            print(f"  {m['file']}:{m['line']} [{m['op']}] {m['after'].strip()}")
        return 0

    build_dir = os.path.abspath(args.build_dir)
    configure(build_dir)
    folders = sorted({m["file"].split("/")[0] for m in sample})
    binaries = {f: TESTS[f] for f in folders}
    targets = sorted({b for bs in binaries.values() for b in bs} |
                     {t for f in folders for t in EXTRA_TARGETS.get(f, [])})
    rc, out = build(build_dir, targets, timeout=3600)
    if rc != 0:
        sys.exit("mutate: the unmutated tree does not build\n" + out[-4000:])
    limits = {}
    for f in folders:
        # A test that fails once on a loaded machine gets two more tries
        # here; one that keeps failing makes every verdict meaningless.
        for attempt in range(3):
            t0 = time.monotonic()
            verdict, failed = run_tests(build_dir, binaries[f], timeout=1800)
            spent = time.monotonic() - t0
            if verdict == "survived":
                break
            print(f"mutate: {f}/ unmutated: {failed} {verdict}", flush=True)
        if verdict != "survived":
            sys.exit(f"mutate: the tests of {f}/ fail without any mutant ({failed}); fix them first")
        limits[f] = max(30.0, args.timeout_factor * spent)
        print(f"mutate: {f}/ tests pass unmutated in {spent:.1f} s; limit {limits[f]:.0f} s", flush=True)

    tree = Tree()

    def on_signal(signum, _frame):
        tree.restore()
        sys.exit(128 + signum)

    signal.signal(signal.SIGINT, on_signal)
    signal.signal(signal.SIGTERM, on_signal)

    results = []
    start = time.monotonic()
    try:
        for i, m in enumerate(sample, 1):
            if args.minutes and time.monotonic() - start > 60 * args.minutes:
                print(f"mutate: --minutes {args.minutes:g} spent; {len(sample) - i + 1} mutants not run",
                      flush=True)
                break
            folder = m["file"].split("/")[0]
            tree.apply(m)
            try:
                rc, _ = build(build_dir, sorted(set(binaries[folder]) | set(EXTRA_TARGETS.get(folder, []))), timeout=900)
                verdict, by = ("unviable", "") if rc != 0 else run_tests(build_dir, binaries[folder],
                                                                           limits[folder])
            finally:
                tree.restore()
            results.append(dict(m, verdict=verdict, by=by))
            print(f"[{i}/{len(sample)}] {verdict:9s} {m['file']}:{m['line']} [{m['op']}] {m['after'].strip()}",
                  flush=True)
    finally:
        tree.restore()
        # Leave the build matching the tree again.
        build(build_dir, targets, timeout=3600)
    elapsed = time.monotonic() - start

    per_file = {}
    for r in results:
        per_file.setdefault(r["file"], {"killed": 0, "survived": 0, "timeout": 0, "unviable": 0})[r["verdict"]] += 1
    print("\nfile                                        killed survived timeout unviable")
    for f, c in sorted(per_file.items()):
        print(f"{f:44s} {c['killed']:6d} {c['survived']:8d} {c['timeout']:7d} {c['unviable']:8d}")
    killed = sum(c["killed"] for c in per_file.values())
    survived = sum(c["survived"] for c in per_file.values())
    timeout = sum(c["timeout"] for c in per_file.values())
    unviable = sum(c["unviable"] for c in per_file.values())
    viable = killed + survived + timeout
    score = 100.0 * (killed + timeout) / viable if viable else 0.0
    print(f"\nscore {score:.1f} % ({killed} killed, {timeout} timed out, {survived} survived, "
          f"{unviable} unviable; seed {args.seed}, sample {len(sample)}, ran {len(results)}, "
          f"{elapsed / 60:.1f} min)")
    if survived:
        print("\nsurviving mutants:")
        for r in results:
            if r["verdict"] == "survived":
                print(f"  {r['file']}:{r['line']} [{r['op']}]\n      - {r['before'].strip()}\n      + {r['after'].strip()}")
    if args.json_out:
        with open(args.json_out, "w") as f:
            json.dump({"seed": args.seed, "sample": len(sample), "minutes": elapsed / 60, "score": score,
                       "killed": killed, "timeout": timeout, "survived": survived, "unviable": unviable,
                       "mutants": results}, f, indent=1)
    return 0


if __name__ == "__main__":
    sys.exit(main())
