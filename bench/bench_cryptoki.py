#!/usr/bin/env python3
"""Listing the key's certificates: the dashboard's C_GetPublicTokenData through
libzorvik-cryptoki next to `pkcs11-tool --list-objects` (through our module and straight on
SoftHSM2), on one private SoftHSM2 token holding 40 certificates with their key pairs.

    python3 bench/bench_cryptoki.py --build-dir build [--certs 40] [--runs 5]

Prints figures only; nothing passes or fails.
"""

import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SETUP = os.path.join(os.path.dirname(HERE), "testbed", "softhsm-setup")
SOFTHSM = "/usr/lib/softhsm/libsofthsm2.so"


def token_env(token_dir, log_dir):
    env = dict(os.environ)
    out = subprocess.run(["bash", SETUP, "env", token_dir], stdout=subprocess.PIPE, text=True, check=True)
    for line in out.stdout.splitlines():
        key, _, value = line.replace("export ", "", 1).partition("=")
        env[key] = value
    # No card on this bench: the token is available without a Vantrel.
    env["ZORVIK_CRYPTOKI_NO_CARDS"] = "1"
    env["ZORVIK_LOG_DIR"] = log_dir
    env["ZORVIK_SYSTEM_LOG_DIR"] = log_dir
    return env


def timed(cmd, env, runs):
    times = []
    output = ""
    for _ in range(runs):
        start = time.perf_counter()
        out = subprocess.run(cmd, env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
        times.append((time.perf_counter() - start) * 1000.0)
        if out.returncode != 0:
            raise SystemExit("%s failed: %s" % (cmd[0], out.stdout.strip()))
        output = out.stdout
    return times, output


def describe(name, times, extra=""):
    print("  %-44s median %7.1f ms  min %7.1f ms  max %7.1f ms%s"
          % (name, statistics.median(times), min(times), max(times), extra))


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("--build-dir", required=True)
    parser.add_argument("--certs", type=int, default=40)
    parser.add_argument("--runs", type=int, default=int(os.environ.get("ZORVIK_BENCH_RUNS", "5")))
    args = parser.parse_args()
    build = os.path.abspath(args.build_dir)
    module = os.path.join(build, "lib", "libzorvik-cryptoki.so")
    listing = os.path.join(build, "bin", "cryptoki_listing")
    for path in (module, listing, SOFTHSM):
        if not os.path.exists(path):
            sys.exit("bench_cryptoki: %s is missing" % path)

    print("== Certificate listing: %d certificates with key pairs on SoftHSM2 (%d runs)" % (args.certs, args.runs))
    with tempfile.TemporaryDirectory(prefix="zorvik-bench-cryptoki-") as tmp:
        token_dir = os.path.join(tmp, "token")
        subprocess.run(["bash", SETUP, "init", token_dir], stdout=subprocess.DEVNULL, check=True)
        start = time.perf_counter()
        subprocess.run(["bash", SETUP, "generate", token_dir, str(args.certs)], stdout=subprocess.DEVNULL, check=True)
        print("  (token filled in %.1f s)" % (time.perf_counter() - start))
        env = token_env(token_dir, os.path.join(tmp, "logs"))

        # In-process figures from the listing program: one module initialisation, then the
        # listing call repeated.
        out = subprocess.run([listing, str(args.runs)], env=env, stdout=subprocess.PIPE, stderr=subprocess.STDOUT,
                             text=True)
        if out.returncode != 0:
            sys.exit("cryptoki_listing failed: " + out.stdout.strip())
        for line in out.stdout.splitlines():
            print("  " + line)

        # Whole processes: the listing program (one call), and pkcs11-tool both ways.
        times, _ = timed([listing, "1"], env, args.runs)
        describe("cryptoki_listing process (one listing)", times)
        times, text = timed(["pkcs11-tool", "--module", module, "--list-objects"], env, args.runs)
        describe("pkcs11-tool --list-objects via our module", times,
                 "  (%d certificates)" % text.count("Certificate Object"))
        times, text = timed(["pkcs11-tool", "--module", SOFTHSM, "--list-objects"], env, args.runs)
        describe("pkcs11-tool --list-objects on SoftHSM2", times,
                 "  (%d certificates)" % text.count("Certificate Object"))


if __name__ == "__main__":
    main()
