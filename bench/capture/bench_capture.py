#!/usr/bin/env python3
"""Times `zifcache capture` of the machine it runs on: whole captures, all
parts and each part alone, best and median of several runs. The target is a
capture of an ordinary VM in under half a second.

    python3 bench/capture/bench_capture.py build/bin/zifcache [--runs 10]
"""

import argparse
import os
import statistics
import subprocess
import sys
import tempfile
import time

PARTS = ["worlds", "cartels", "pci", "acpi", "host", "interrupts", "memfs", "groups"]
TARGET = 0.5


def timed(argv, runs):
    times = []
    for _ in range(runs):
        start = time.monotonic()
        subprocess.run(argv, check=True, capture_output=True)
        times.append(time.monotonic() - start)
    return min(times), statistics.median(times)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("zifcache")
    parser.add_argument("--runs", type=int, default=10)
    args = parser.parse_args()
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "host.zifc")
        best, median = timed([args.zifcache, "capture", out], args.runs)
        size = os.path.getsize(out)
        print("%-12s best %6.1f ms  median %6.1f ms  (%d bytes)" % ("all parts", best * 1e3, median * 1e3, size))
        for part in PARTS:
            b, m = timed([args.zifcache, "capture", "--only", part, out], args.runs)
            print("%-12s best %6.1f ms  median %6.1f ms" % (part, b * 1e3, m * 1e3))
    verdict = "within" if median < TARGET else "OVER"
    print("median of a whole capture %.3f s: %s the %.1f s target" % (median, verdict, TARGET))
    return 0 if median < TARGET else 1


if __name__ == "__main__":
    sys.exit(main())
