#!/usr/bin/env python3
"""Soak: the dashboard through a day of reader polling (172,800 rounds at 500 ms) with the
clock run faster, keys inserted and removed and the key status refreshed all along; then
the whole process's idle CPU at the normal clock next to the bare PC/SC loop at 2 Hz.
Runs a bench (pcscd, one simulated key) and the services simulator of its own, and the
program under X (the DISPLAY given, else a private Xvfb).

    python3 bench/bench_soak.py --build-dir build [--rounds 172800] [--interval-ms 1]
                                [--idle-seconds 60] [--no-soak] [--no-idle]

Rounds are counted by the program itself (its log has the count every 7200 rounds and at
the end). RSS, open file descriptors and threads come from /proc/<pid>. Prints figures
only; nothing passes or fails.
"""

import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, HERE)
from bench_keystatus import bench_cmd, start_services  # noqa: E402
from run_bench import Xvfb, mapped_window, private_env, stop_dashboard  # noqa: E402

ROUNDS_RE = re.compile(r"Reader polling: (\d+) rounds|Reader polling stopped after (\d+) rounds")
ROUNDS_PER_LINE = 7200


def proc_figures(pid):
    """(RSS KiB, open fds, threads) of a running process."""
    rss = threads = None
    with open("/proc/%d/status" % pid) as f:
        for line in f:
            if line.startswith("VmRSS:"):
                rss = int(line.split()[1])
            elif line.startswith("Threads:"):
                threads = int(line.split()[1])
    return rss, len(os.listdir("/proc/%d/fd" % pid)), threads


def cpu_ms(pid):
    """utime + stime of a whole process (all its threads), in milliseconds."""
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    return (int(fields[11]) + int(fields[12])) * 1000.0 / os.sysconf("SC_CLK_TCK")


class LogRounds:
    """The polling rounds the program has logged so far, read as its log grows."""

    def __init__(self, path):
        self.path, self.offset, self.rounds, self.buffer = path, 0, 0, ""

    def poll(self):
        try:
            with open(self.path, encoding="utf-8", errors="replace") as f:
                f.seek(self.offset)
                self.buffer += f.read()
                self.offset = f.tell()
        except FileNotFoundError:
            return self.rounds
        *lines, self.buffer = self.buffer.split("\n")
        for line in lines:
            m = ROUNDS_RE.search(line)
            if m:
                self.rounds = int(m.group(1) or m.group(2))
        return self.rounds


class Dashboard:
    """The program on the bench, started with `args`, its window found on the display."""

    def __init__(self, exe, env, args=()):
        self.exe, self.env = exe, env
        self.log = LogRounds(os.path.join(env["ZORVIK_LOG_DIR"], "dashboard.log"))
        self.proc = subprocess.Popen([exe] + list(args), env=env, stdout=subprocess.DEVNULL,
                                     stderr=subprocess.DEVNULL)

    def wait_window(self, timeout=60):
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            if self.proc.poll() is not None:
                raise SystemExit("zorvik-dashboard ended (code %s)" % self.proc.returncode)
            win = mapped_window(self.env["DISPLAY"], "zorvik-dashboard")
            if win:
                return win
            time.sleep(0.1)
        raise SystemExit("zorvik-dashboard showed no window within %d s" % timeout)

    def keys(self, win, *keys):
        subprocess.run(["xdotool", "windowfocus", "--sync", win, "key"] + list(keys), env=self.env,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=30)

    def stop(self):
        if self.proc.poll() is None:
            stop_dashboard(self.proc, self.exe, self.env)
        return self.log.poll()


def print_row(label, figures):
    rss, fds, threads = figures
    print("  %-30s %10.1f %8d %8d" % (label, rss / 1024.0, fds, threads))
    sys.stdout.flush()


def soak(args, exe, env, bench_dir, sim):
    """Runs the program through `args.rounds` polling rounds; keys in and out, key status refreshed."""
    env = dict(env, ZORVIK_READER_POLL_MS=str(args.interval_ms))
    print("soak: %d polling rounds (a day at 500 ms) on a %d ms clock; the key is pulled and put back"
          % (args.rounds, args.interval_ms))
    print("and the key status refreshed (Key Status tab shown, F5) all along")
    print("  %-30s %10s %8s %8s" % ("", "RSS MiB", "fds", "threads"))
    app = Dashboard(exe, env)
    begin = time.monotonic()
    try:
        win = app.wait_window()
        app.keys(win, "ctrl+3")
        print_row("window shown", proc_figures(app.proc.pid))
        # The first logged count: start-up over, every path of a round taken at least once.
        while app.log.poll() < ROUNDS_PER_LINE:
            if app.proc.poll() is not None:
                raise SystemExit("zorvik-dashboard ended (code %s)" % app.proc.returncode)
            time.sleep(0.2)
        start = proc_figures(app.proc.pid)
        print_row("start (%d rounds)" % app.log.rounds, start)
        inserted, removed, refreshes, step = 0, 0, 0, 0
        next_row = 4 * ROUNDS_PER_LINE * ((app.log.rounds // (4 * ROUNDS_PER_LINE)) + 1)
        while app.log.poll() < args.rounds:
            if app.proc.poll() is not None:
                raise SystemExit("zorvik-dashboard ended (code %s)" % app.proc.returncode)
            # One cycle: key out, key in (the shown Key Status tab reads it), a refresh by F5.
            if step % 3 == 0:
                bench_cmd(bench_dir, sim, "remove", "--reader", "0")
                removed += 1
            elif step % 3 == 1:
                bench_cmd(bench_dir, sim, "insert", "--reader", "0")
                inserted += 1
            else:
                app.keys(win, "F5")
                refreshes += 1
            step += 1
            time.sleep(0.5)
            if app.log.rounds >= next_row and app.log.rounds < args.rounds:
                print_row("%d rounds" % app.log.rounds, proc_figures(app.proc.pid))
                next_row += 4 * ROUNDS_PER_LINE
        end = proc_figures(app.proc.pid)
        print_row("end (%d rounds)" % app.log.rounds, end)
        print("  %-30s %+10.1f %+8d %+8d" % ("end - start", (end[0] - start[0]) / 1024.0, end[1] - start[1],
                                             end[2] - start[2]))
        elapsed = time.monotonic() - begin
    finally:
        counted = app.stop()
    print("  rounds run (the program's count at quit): %d in %.0f s; keys inserted %d, removed %d; "
          "F5 refreshes %d, plus one key-status read per insertion" % (counted, elapsed, inserted, removed,
                                                                      refreshes))
    if removed > inserted:
        # The key goes back in for what follows.
        bench_cmd(bench_dir, sim, "insert", "--reader", "0")


def idle(args, exe, env, bare):
    """CPU over `args.idle_seconds`: the program at its normal clock with a key in, window
    hidden, then shown; then the bare PC/SC loop at 2 Hz."""
    seconds = args.idle_seconds
    print("idle CPU over %d s, key inserted, normal 500 ms clock (whole process, all threads)" % seconds)
    print("  %-34s %12s %10s" % ("", "CPU ms", "% of core"))

    def row(label, cpu):
        print("  %-34s %12.0f %10.2f" % (label, cpu, cpu / (10.0 * seconds)))
        sys.stdout.flush()

    env = {k: v for k, v in env.items() if k != "ZORVIK_READER_POLL_MS"}
    app = Dashboard(exe, env, ["--tray"])
    try:
        # Settled: start-up, the update check and the first rounds are over.
        time.sleep(5)
        c0 = cpu_ms(app.proc.pid)
        time.sleep(seconds)
        row("dashboard, window hidden", cpu_ms(app.proc.pid) - c0)
        # A second start shows the running instance's window.
        subprocess.run([exe], env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, timeout=60)
        app.wait_window()
        time.sleep(3)
        c0 = cpu_ms(app.proc.pid)
        time.sleep(seconds)
        row("dashboard, window shown", cpu_ms(app.proc.pid) - c0)
    finally:
        app.stop()
    out = subprocess.run([bare, str(seconds * 2), "500"], env=env, stdout=subprocess.PIPE, stderr=subprocess.PIPE,
                         text=True)
    m = re.search(r"cpu_us=(\d+)", out.stdout)
    if out.returncode != 0 or not m:
        raise SystemExit("bare_pcsc_round failed: %s %s" % (out.stdout, out.stderr))
    row("bare C PC/SC loop at 2 Hz", int(m.group(1)) / 1000.0)


def main():
    ap = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    ap.add_argument("--build-dir", required=True)
    ap.add_argument("--rounds", type=int, default=int(os.environ.get("ZORVIK_BENCH_SOAK_ROUNDS", "172800")))
    ap.add_argument("--interval-ms", type=int, default=1, help="polling clock of the soak (1..500)")
    ap.add_argument("--idle-seconds", type=int, default=60)
    ap.add_argument("--no-soak", action="store_true")
    ap.add_argument("--no-idle", action="store_true")
    args = ap.parse_args()

    bindir = os.path.join(os.path.abspath(args.build_dir), "bin")
    exe, sim, bare = (os.path.join(bindir, n) for n in ("zorvik-dashboard", "vantrel-sim", "bare_pcsc_round"))
    for path in (exe, sim, bare):
        if not os.access(path, os.X_OK):
            raise SystemExit("missing %s: build the bench target" % path)

    work = tempfile.mkdtemp(prefix="zb-soak-")
    bench_dir = os.path.join(work, "bench")
    services = None
    try:
        with Xvfb() as x:
            bench_cmd(bench_dir, sim, "start", "--owner-pid", str(os.getpid()))
            with open(os.path.join(bench_dir, "state.json")) as f:
                state = json.load(f)
            bench_cmd(bench_dir, sim, "insert", "--reader", "0")
            services_dir = os.path.join(work, "services")
            os.makedirs(services_dir)
            services, ports = start_services(services_dir)
            base = "https://127.0.0.1:%d" % ports["https"]
            env = private_env(x.display, os.path.join(work, "app"))
            env.update({"PCSCLITE_CSOCK_NAME": state["socket"], "ZORVIK_EXTRA_CA": os.path.join(services_dir, "ca.pem"),
                        "ZORVIK_KEYSERVICE_URL": base, "ZORVIK_UPDATE_URL": base,
                        "ZORVIK_CHANGELOG_URL": base, "ZORVIK_SUPPORT_URL": base})
            env.pop("ZORVIK_PROXY", None)
            if not args.no_soak:
                soak(args, exe, env, bench_dir, sim)
                print()
            if not args.no_idle:
                idle(args, exe, env, bare)
    finally:
        if services:
            services.terminate()
            services.wait()
        subprocess.run([sys.executable, os.path.join(os.path.dirname(HERE), "testbed", "bench"), "--dir",
                        bench_dir, "stop"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
