#!/usr/bin/env python3
"""Cost of one presence polling round: DashboardTokenInfo::search() next to the same
PC/SC calls in plain C, on a bench of its own (pcscd with four vpcd reader slots).

    python3 bench/bench_presence.py --build-dir build [--rounds 400] [--no-callgrind]

Figures per round: wall time, CPU time of the client, CPU time of pcscd, and (with
valgrind) the client's instruction count. Prints figures only; nothing passes or fails.
"""

import argparse
import json
import os
import re
import shutil
import subprocess
import sys
import tempfile

HERE = os.path.dirname(os.path.abspath(__file__))
BENCH = os.path.join(os.path.dirname(HERE), "testbed", "bench")


def pcscd_cpu_us(pid):
    """utime + stime of a process, in microseconds."""
    with open("/proc/%d/stat" % pid) as f:
        fields = f.read().rsplit(")", 1)[1].split()
    ticks = int(fields[11]) + int(fields[12])
    return ticks * 1e6 / os.sysconf("SC_CLK_TCK")


def bench_cmd(bench_dir, sim, *args):
    out = subprocess.run([sys.executable, BENCH, "--dir", bench_dir, "--sim", sim] + list(args),
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if out.returncode != 0:
        raise SystemExit("bench %s failed: %s" % (args[0], out.stderr.strip()))
    return out.stdout


def run_rounds(exe, rounds, env, pcscd_pid):
    before = pcscd_cpu_us(pcscd_pid)
    out = subprocess.run([exe, str(rounds)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=env)
    after = pcscd_cpu_us(pcscd_pid)
    m = re.search(r"rounds=(\d+) wall_us=(\d+) cpu_us=(\d+) present=(-?\d+)", out.stdout)
    if out.returncode != 0 or not m:
        raise SystemExit("%s failed: %s %s" % (os.path.basename(exe), out.stdout, out.stderr))
    n = int(m.group(1))
    return {"wall": int(m.group(2)) / n, "cpu": int(m.group(3)) / n, "pcscd": (after - before) / n,
            "present": int(m.group(4))}


def callgrind_instructions(exe, rounds, env):
    """Instructions per round: the difference of a run with `rounds` and one with none."""
    counts = []
    for n in (0, rounds):
        with tempfile.TemporaryDirectory() as tmp:
            out = subprocess.run(["valgrind", "--tool=callgrind", "--callgrind-out-file=%s/cg.out" % tmp,
                                  exe, str(n)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                                 env=env)
        m = re.search(r"Collected : (\d+)", out.stderr)
        if not m:
            return None
        counts.append(int(m.group(1)))
    return (counts[1] - counts[0]) / rounds


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--build-dir", required=True)
    ap.add_argument("--rounds", type=int, default=int(os.environ.get("ZORVIK_BENCH_PRESENCE_ROUNDS", "400")))
    ap.add_argument("--no-callgrind", action="store_true")
    args = ap.parse_args()

    bindir = os.path.join(os.path.abspath(args.build_dir), "bin")
    programs = [("bare C (PC/SC calls only)", os.path.join(bindir, "bare_pcsc_round")),
                ("DashboardTokenInfo::search", os.path.join(bindir, "presence_round"))]
    sim = os.path.join(bindir, "vantrel-sim")
    for _, exe in programs + [("sim", sim)]:
        if not os.access(exe, os.X_OK):
            raise SystemExit("missing %s: build the bench target" % exe)
    callgrind = not args.no_callgrind and shutil.which("valgrind")

    bench_dir = tempfile.mkdtemp(prefix="zb-presence-")
    try:
        bench_cmd(bench_dir, sim, "start", "--owner-pid", str(os.getpid()))
        with open(os.path.join(bench_dir, "state.json")) as f:
            state = json.load(f)
        env = dict(os.environ, PCSCLITE_CSOCK_NAME=state["socket"],
                   ZORVIK_LOG_DIR=os.path.join(bench_dir, "logs"),
                   ZORVIK_SYSTEM_LOG_DIR=os.path.join(bench_dir, "logs"), QT_QPA_PLATFORM="offscreen")
        print("presence polling round, %d rounds per figure, %s pcscd" % (args.rounds, state["mode"]))
        header = "  %-28s %10s %14s %14s" % ("", "wall us", "client CPU us", "pcscd CPU us")
        if callgrind:
            header += " %14s" % "client instr"
        scenarios = [("3 readers, no key (3 status queries)", None),
                     ("key in the first reader (1 query)", "0")]
        for title, reader in scenarios:
            if reader is not None:
                bench_cmd(bench_dir, sim, "insert", "--reader", reader)
            print("%s:" % title)
            print(header)
            for name, exe in programs:
                r = run_rounds(exe, args.rounds, env, state["pcscd_pid"])
                line = "  %-28s %10.1f %14.1f %14.1f" % (name, r["wall"], r["cpu"], r["pcscd"])
                if callgrind:
                    ins = callgrind_instructions(exe, max(args.rounds // 4, 20), env)
                    line += " %14s" % ("-" if ins is None else "%.0f" % ins)
                print(line)
    finally:
        subprocess.run([sys.executable, BENCH, "--dir", bench_dir, "stop"], stdout=subprocess.DEVNULL,
                       stderr=subprocess.DEVNULL)
        shutil.rmtree(bench_dir, ignore_errors=True)


if __name__ == "__main__":
    main()
