#!/usr/bin/env python3
"""Captures this host while a fixture process runs 10,000 threads, then lists
the capture: every thread of the fixture must be a world of its cartel."""

import argparse
import os
import subprocess
import sys
import tempfile
import time


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--zlcziftools", required=True)
    parser.add_argument("--zifcache", required=True)
    parser.add_argument("--fixture", required=True)
    parser.add_argument("--threads", type=int, default=10000)
    args = parser.parse_args()

    fixture = subprocess.Popen([args.fixture, str(args.threads)], stdin=subprocess.PIPE, stdout=subprocess.PIPE)
    line = fixture.stdout.readline().decode()
    if not line.startswith("ready "):
        print("SKIP: the fixture could not start %d threads" % args.threads)
        fixture.kill()
        return 77
    pid = int(line.split()[1])
    try:
        with tempfile.TemporaryDirectory() as tmp:
            out = os.path.join(tmp, "many.zifc")
            start = time.monotonic()
            result = subprocess.run([args.zifcache, "capture", "--only", "worlds", out], capture_output=True, timeout=240)
            took = time.monotonic() - start
            if result.returncode != 0:
                print("FAIL: capture exited %d: %s" % (result.returncode, result.stderr.decode()))
                return 1
            print("capture of %d threads took %.2f s" % (args.threads + 1, took))
            listing = subprocess.run([args.zlcziftools, "-c", out, "ps"], capture_output=True, timeout=240)
            if listing.returncode != 0:
                print("FAIL: ps exited %d: %s" % (listing.returncode, listing.stderr.decode()[:500]))
                return 1
            worlds = [l.split() for l in listing.stdout.decode().splitlines()[1:] if l.strip()]
            mine = [w for w in worlds if len(w) >= 2 and w[1] == str(pid)]
            if len(mine) != args.threads + 1:
                print("FAIL: %d worlds of cartel %d listed, expected %d" % (len(mine), pid, args.threads + 1))
                return 1
            print("ok: %d worlds listed, %d of the fixture" % (len(worlds), len(mine)))
            return 0
    finally:
        fixture.stdin.close()
        fixture.wait(timeout=60)


if __name__ == "__main__":
    sys.exit(main())
