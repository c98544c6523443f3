#!/usr/bin/env python3
"""Benchmarks of the Zorvik Dashboard. Prints figures; nothing passes or fails on time.

    python3 bench/run_bench.py --build-dir build [--runs 5] [--only startup]
    cmake --build build --target bench

Sections run in order:
  * the functions listed in SECTIONS below;
  * every script bench/bench_*.py or bench/bench_*.sh, in name order, called with
    "--build-dir <dir>" and the environment of this run (DISPLAY of the shared X server,
    ZORVIK_BENCH_RUNS). A script prints its own figures; a failing script is reported
    and the others still run.

To add a section either write a function `def section_name(ctx)` and list it in SECTIONS,
or drop a bench_<name>.py / bench_<name>.sh script next to this file.
"""

import argparse
import os
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))


class Context:
    """What every section gets: the build tree, the run count and an X display."""

    def __init__(self, build_dir, runs):
        self.build_dir = os.path.abspath(build_dir)
        self.runs = runs
        self.display = None

    def exe(self, name):
        return os.path.join(self.build_dir, "bin", name)


# ---------------------------------------------------------------------------------------
# X display


class Xvfb:
    """A private X server when none is given through DISPLAY."""

    def __init__(self):
        self.proc = None
        self.display = os.environ.get("DISPLAY")

    def __enter__(self):
        if self.display:
            return self
        if not shutil.which("Xvfb"):
            sys.exit("run_bench: no DISPLAY and no Xvfb (scripts/install-deps installs it)")
        read_fd, write_fd = os.pipe()
        self.proc = subprocess.Popen(
            ["Xvfb", "-displayfd", str(write_fd), "-screen", "0", "1280x1024x24", "-nolisten", "tcp"],
            pass_fds=(write_fd,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        os.close(write_fd)
        number = b""
        with os.fdopen(read_fd, "rb") as r:
            while not number.endswith(b"\n"):
                chunk = r.read(1)
                if not chunk:
                    break
                number += chunk
        if not number.strip():
            self.proc.kill()
            sys.exit("run_bench: Xvfb did not start")
        self.display = ":" + number.decode().strip()
        return self

    def __exit__(self, *exc):
        if self.proc:
            self.proc.terminate()
            try:
                self.proc.wait(10)
            except subprocess.TimeoutExpired:
                self.proc.kill()


def mapped_window(display, program):
    """The id of a viewable top-level window of `program` (by its WM_CLASS), or None."""
    env = dict(os.environ, DISPLAY=display)
    tree = subprocess.run(["xwininfo", "-root", "-children"], env=env, capture_output=True, text=True).stdout
    for line in tree.splitlines():
        m = re.match(r'\s*(0x[0-9a-f]+) .*\("%s" ' % re.escape(program), line)
        if not m:
            continue
        info = subprocess.run(["xwininfo", "-id", m.group(1)], env=env, capture_output=True, text=True).stdout
        if "Map State: IsViewable" in info:
            return m.group(1)
    return None


def peak_rss_kib(pid):
    try:
        with open("/proc/%d/status" % pid) as f:
            for line in f:
                if line.startswith("VmHWM:"):
                    return int(line.split()[1])
    except OSError:
        pass
    return None


# ---------------------------------------------------------------------------------------
# Section: start-up time and memory


def private_env(display, tmp):
    """An environment of our own: logs, config, temp and run-time dirs (and so the
    single-instance channel) under `tmp`, nothing of the user's."""
    env = dict(os.environ)
    for sub in ("logs", "syslogs", "config", "tmp", "runtime"):
        os.makedirs(os.path.join(tmp, sub), mode=0o700, exist_ok=True)
    env.update({
        "DISPLAY": display,
        "QT_QPA_PLATFORM": "xcb",
        "ZORVIK_LOG_DIR": os.path.join(tmp, "logs"),
        "ZORVIK_SYSTEM_LOG_DIR": os.path.join(tmp, "syslogs"),
        "XDG_CONFIG_HOME": os.path.join(tmp, "config"),
        "TMPDIR": os.path.join(tmp, "tmp"),
        "XDG_RUNTIME_DIR": os.path.join(tmp, "runtime"),
    })
    return env


def one_start(ctx, name, stop):
    """Starts `name`, returns (ms until its window was viewable, peak RSS in KiB)."""
    exe = ctx.exe(name)
    with tempfile.TemporaryDirectory(prefix="zd-bench-") as tmp:
        env = private_env(ctx.display, tmp)
        begin = time.monotonic()
        proc = subprocess.Popen([exe], env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        shown_ms = None
        try:
            while time.monotonic() - begin < 60:
                if proc.poll() is not None:
                    print("   %s ended before showing a window (exit code %s)" % (name, proc.returncode))
                    break
                if mapped_window(ctx.display, os.path.basename(exe)):
                    shown_ms = (time.monotonic() - begin) * 1000.0
                    break
                time.sleep(0.002)
            else:
                print("   %s showed no window within 60 s" % name)
            # Let it settle (timers, first polling rounds) before reading the peak.
            time.sleep(1.0)
            rss = peak_rss_kib(proc.pid)
        finally:
            stop(proc, exe, env)
    return shown_ms, rss


def stop_dashboard(proc, exe, env):
    subprocess.run([exe, "--exit"], env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=60)
    try:
        proc.wait(30)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.wait()


def stop_plain(proc, exe, env):
    proc.send_signal(signal.SIGTERM)
    try:
        proc.wait(10)
    except subprocess.TimeoutExpired:
        proc.kill()
        proc.wait()


def median(values):
    values = [v for v in values if v is not None]
    return statistics.median(values) if values else None


def fmt(value, scale=1.0, digits=1):
    return "-" if value is None else ("%.*f" % (digits, value / scale))


def section_startup(ctx):
    print("== Start-up: time until the window is shown, and peak memory ==")
    print("   median of %d runs under X server %s; first run not counted (warms the disk cache)" %
          (ctx.runs, ctx.display))
    programs = [("zorvik-dashboard", stop_dashboard), ("bare_tabs", stop_plain)]
    results = {}
    for name, stop in programs:
        if not os.access(ctx.exe(name), os.X_OK):
            print("   %s: not built (%s)" % (name, ctx.exe(name)))
            continue
        one_start(ctx, name, stop)
        runs = [one_start(ctx, name, stop) for _ in range(ctx.runs)]
        times = [r[0] for r in runs]
        results[name] = (median(times), median([r[1] for r in runs]),
                         min([t for t in times if t is not None], default=None),
                         max([t for t in times if t is not None], default=None),
                         sum(1 for t in times if t is None))
    print("   %-18s %12s %12s %12s %14s" % ("program", "shown ms", "min ms", "max ms", "peak RSS MiB"))
    for name, (shown, rss, lo, hi, missed) in results.items():
        note = "  (%d runs showed no window)" % missed if missed else ""
        print("   %-18s %12s %12s %12s %14s%s" % (name, fmt(shown), fmt(lo), fmt(hi), fmt(rss, 1024.0), note))
    if len(results) == 2:
        (d_shown, d_rss, *_), (b_shown, b_rss, *_) = results["zorvik-dashboard"], results["bare_tabs"]
        if d_shown and b_shown and d_rss and b_rss:
            print("   %-18s %11.1fx %12s %12s %13.1fx" % ("dashboard / bare", d_shown / b_shown, "", "",
                                                        d_rss / b_rss))
    print()


# ---------------------------------------------------------------------------------------
# Section: test code against program code


SOURCE_SUFFIXES = (".cpp", ".c", ".h", ".hpp", ".mm")


def code_lines(text):
    """Non-blank lines that are not only comment (// lines and /* ... */ blocks)."""
    count, in_block = 0, False
    for line in text.splitlines():
        rest = line.strip()
        code = ""
        while rest:
            if in_block:
                end = rest.find("*/")
                if end < 0:
                    rest = ""
                else:
                    in_block, rest = False, rest[end + 2:].strip()
            elif rest.startswith("//"):
                rest = ""
            elif rest.startswith("/*"):
                in_block, rest = True, rest[2:]
            else:
                # Code on this line; a comment opened after it may run on.
                code = rest
                start = rest.find("/*")
                if start < 0 or "*/" in rest[start + 2:] or '"' in rest[:start]:
                    rest = ""
                else:
                    in_block, rest = True, ""
        if code:
            count += 1
    return count


def tree_lines(root, folders):
    files = subprocess.run(["git", "-C", root, "ls-files", "-z", "--"] + folders, capture_output=True,
                           check=True).stdout.decode().split("\0")
    total = 0
    for name in files:
        if name.endswith(SOURCE_SUFFIXES) and os.path.isfile(os.path.join(root, name)):
            with open(os.path.join(root, name), encoding="utf-8", errors="replace") as f:
                total += code_lines(f.read())
    return total


def section_ratio(ctx):
    print("== Test code against program code (non-blank, non-comment lines of %s in git) ==" %
          "/".join(SOURCE_SUFFIXES))
    root = os.path.dirname(HERE)
    tests = tree_lines(root, ["tests"])
    program = tree_lines(root, ["security-console", "platform"])
    print("   tests/ %d lines, security-console/ + platform/ %d lines: ratio %.2f" %
          (tests, program, tests / program if program else float("nan")))
    print()


SECTIONS = [
    ("startup", section_startup),
    ("ratio", section_ratio),
]


# ---------------------------------------------------------------------------------------
# Section scripts next to this file


def section_scripts():
    found = []
    for entry in sorted(os.listdir(HERE)):
        m = re.match(r"bench_(\w+)\.(py|sh)$", entry)
        if m:
            found.append((m.group(1), os.path.join(HERE, entry)))
    return found


def run_script(ctx, name, path):
    print("== %s (%s) ==" % (name, os.path.basename(path)))
    sys.stdout.flush()
    interpreter = [sys.executable] if path.endswith(".py") else ["bash"]
    env = dict(os.environ, DISPLAY=ctx.display, ZORVIK_BENCH_RUNS=str(ctx.runs))
    rc = subprocess.run(interpreter + [path, "--build-dir", ctx.build_dir], env=env).returncode
    if rc != 0:
        print("   (%s ended with code %d)" % (os.path.basename(path), rc))
    print()


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build-dir", default=os.path.join(HERE, "..", "build"))
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--only", action="append", default=[],
                        help="run only this section (repeatable); names: %s and the bench_<name> scripts"
                        % ", ".join(n for n, _ in SECTIONS))
    parser.add_argument("--list", action="store_true", help="list the sections and stop")
    args = parser.parse_args()

    ctx = Context(args.build_dir, max(1, args.runs))
    scripts = section_scripts()
    if args.list:
        for name, _ in SECTIONS:
            print(name)
        for name, path in scripts:
            print("%s (%s)" % (name, os.path.basename(path)))
        return 0
    wanted = set(args.only)

    with Xvfb() as x:
        ctx.display = x.display
        for name, fn in SECTIONS:
            if not wanted or name in wanted:
                fn(ctx)
        for name, path in scripts:
            if not wanted or name in wanted:
                run_script(ctx, name, path)
    return 0


if __name__ == "__main__":
    sys.exit(main())
