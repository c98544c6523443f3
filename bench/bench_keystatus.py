#!/usr/bin/env python3
"""Key status on the bench: time from "Refresh" (TokenStatus started) to infoSCReady and to
infoKSReady, next to the same key exchange through libqvtoken and the HTTPS round trips
done directly, and those round trips made by curl on one kept-alive connection (a client
none of us wrote). Runs a bench (pcscd, one simulated key) and the services simulator of
its own.

    python3 bench/bench_keystatus.py --build-dir build [--runs 20]

Prints figures only; nothing passes or fails on time.
"""

import argparse
import hashlib
import hmac
import json
import os
import re
import subprocess
import sys
import tempfile
import time
import urllib.parse
import urllib.request

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
BENCH = os.path.join(ROOT, "testbed", "bench")
SERVICES = os.path.join(ROOT, "testbed", "zorvik-services")


def bench_cmd(bench_dir, sim, *args):
    out = subprocess.run([sys.executable, BENCH, "--dir", bench_dir, "--sim", sim] + list(args),
                         stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True)
    if out.returncode != 0:
        raise SystemExit("bench %s failed: %s" % (args[0], out.stderr.strip()))
    return out.stdout


def start_services(work):
    port_file = os.path.join(work, "ports.json")
    proc = subprocess.Popen([sys.executable, SERVICES, "--dir", work, "--port-file", port_file],
                            stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    deadline = time.monotonic() + 60
    while not os.path.exists(port_file):
        if proc.poll() is not None or time.monotonic() > deadline:
            proc.kill()
            raise SystemExit("services simulator did not start: %s" % proc.stderr.read().decode())
        time.sleep(0.05)
    with open(port_file) as f:
        return proc, json.load(f)


# The default simulated key's serial; the bench key service derives its secret from it.
BENCH_SERIAL = "5A52564B00000001"


def authenticated_ticket(ports):
    """A ticket the key service takes as answered by the bench key (see docs/vantrel-protocol.md)."""
    base = "http://127.0.0.1:%d" % ports["http"]
    ticket = urllib.request.urlopen(base + "/a/get-ticket/", timeout=10).read().decode("ascii")
    secret = hashlib.sha256(("zorvik-bench-key:" + BENCH_SERIAL).encode("ascii")).digest()
    answer = hmac.new(secret, ticket.encode("ascii"), hashlib.sha256).hexdigest().upper()
    form = urllib.parse.urlencode({"ticket": ticket, "serial": BENCH_SERIAL, "answer": answer}).encode("ascii")
    urllib.request.urlopen(base + "/a/auth-ticket/", data=form, timeout=10).read()
    return ticket


def curl_round_trips(ports, ca, runs):
    """get-ticket and view.json by curl, on one connection kept alive after a first request."""
    base = "https://127.0.0.1:%d" % ports["https"]
    figures = {"curl_get_ticket_kept_alive": [], "curl_view_json_kept_alive": []}
    each = ["-s", "--cacert", ca, "-o", "/dev/null", "-w", "%{time_total} %{num_connects} %{http_code}\\n"]
    for _ in range(runs):
        ticket = authenticated_ticket(ports)
        out = subprocess.run(["curl"] + each + [base + "/a/get-ticket/",
                                                "--next"] + each + [base + "/a/get-ticket/",
                                                "--next"] + each + ["--data", "ticket=" + ticket,
                                                                    base + "/a/view.json"],
                             stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, timeout=60)
        lines = [line.split() for line in out.stdout.splitlines()]
        if out.returncode != 0 or len(lines) != 3 or any(l[2] != "200" for l in lines) or lines[2][1] != "0":
            raise SystemExit("curl failed or opened a second connection: %s %s" % (out.stdout, out.stderr))
        figures["curl_get_ticket_kept_alive"].append(float(lines[1][0]) * 1e6)
        figures["curl_view_json_kept_alive"].append(float(lines[2][0]) * 1e6)
    return figures


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--build-dir", required=True)
    ap.add_argument("--runs", type=int, default=int(os.environ.get("ZORVIK_BENCH_RUNS", "20")))
    args = ap.parse_args()
    runs = max(args.runs, 5)

    bindir = os.path.join(os.path.abspath(args.build_dir), "bin")
    exe = os.path.join(bindir, "key_status_round")
    sim = os.path.join(bindir, "vantrel-sim")
    for path in (exe, sim):
        if not os.access(path, os.X_OK):
            raise SystemExit("missing %s: build the bench target" % path)

    work = tempfile.mkdtemp(prefix="zb-keystatus-")
    bench_dir = os.path.join(work, "bench")
    services_dir = os.path.join(work, "services")
    os.makedirs(services_dir)
    services = None
    try:
        services, ports = start_services(services_dir)
        bench_cmd(bench_dir, sim, "start", "--owner-pid", str(os.getpid()))
        with open(os.path.join(bench_dir, "state.json")) as f:
            state = json.load(f)
        bench_cmd(bench_dir, sim, "insert", "--reader", "0")
        env = dict(os.environ, PCSCLITE_CSOCK_NAME=state["socket"],
                   ZORVIK_LOG_DIR=os.path.join(work, "logs"), ZORVIK_SYSTEM_LOG_DIR=os.path.join(work, "logs"),
                   XDG_CONFIG_HOME=os.path.join(work, "config"), QT_QPA_PLATFORM="offscreen",
                   ZORVIK_KEYSERVICE_URL="https://127.0.0.1:%d" % ports["https"],
                   ZORVIK_EXTRA_CA=os.path.join(services_dir, "ca.pem"))
        env.pop("ZORVIK_PROXY", None)
        out = subprocess.run([exe, str(runs)], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True, env=env)
        rows = re.findall(r"^(\S+) runs=(\d+) median_us=(\d+) min_us=(\d+) max_us=(\d+)$", out.stdout, re.M)
        if out.returncode != 0 or not rows:
            raise SystemExit("key_status_round failed: %s %s" % (out.stdout, out.stderr))
        figures = {name: (int(median), int(low), int(high)) for name, _, median, low, high in rows}
        for name, values in curl_round_trips(ports, os.path.join(services_dir, "ca.pem"), runs).items():
            values.sort()
            figures[name] = (values[len(values) // 2], values[0], values[-1])
        print("key status, active key on a %s pcscd, services on 127.0.0.1, %d runs per figure" % (state["mode"], runs))
        print("  %-36s %10s %10s %10s" % ("", "median ms", "min ms", "max ms"))
        # Each of the program's round trips with curl's figure for the same request below it.
        for name in sorted(n for n in figures if not n.startswith("curl_")):
            names = [name]
            if name.startswith("https_") and name.endswith("_kept_alive"):
                names.append("curl_" + name[len("https_"):])
            for n in names:
                if n in figures:
                    median, low, high = figures[n]
                    print("  %-36s %10.2f %10.2f %10.2f" % (n, median / 1000, low / 1000, high / 1000))
        failed = re.search(r"failed_queries=(\d+)", out.stdout)
        if failed and failed.group(1) != "0":
            print("  (%s queries did not reach infoKSReady)" % failed.group(1))
    finally:
        try:
            bench_cmd(bench_dir, sim, "stop")
        except SystemExit as e:
            print(e, file=sys.stderr)
        if services:
            services.terminate()
            services.wait(10)


if __name__ == "__main__":
    main()
