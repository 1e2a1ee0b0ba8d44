#!/usr/bin/env python3
"""Times `zifcache capture` of the machine it runs on: a whole capture and
each part alone. Target: a capture of an ordinary VM in under half a second.

Usage: bench_capture.py [--build DIR] [--json FILE] [--quick]
"""

import argparse
import os
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import benchlib  # noqa: E402

PARTS = ["worlds", "cartels", "pci", "acpi", "host", "interrupts", "memfs", "groups"]
TARGET = 0.5


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    benchlib.common_arguments(parser, runs=(5, 21, 2.0))
    args = parser.parse_args()
    zifcache = os.path.join(args.build, "bin", "zifcache")
    timing = benchlib.timing_from(args)
    load = benchlib.load_average()
    figures = []
    with tempfile.TemporaryDirectory() as tmp:
        out = os.path.join(tmp, "host.zifc")
        result = benchlib.measure([zifcache, "capture", out], timing)
        figures.append(benchlib.figure("capture", "capture, all parts (%d KiB)" % (os.path.getsize(out) // 1024),
                                       result, max_value=TARGET))
        benchlib.print_figure(figures[-1])
        for part in [] if args.quick else PARTS:
            result = benchlib.measure([zifcache, "capture", "--only", part, out], timing)
            figures.append(benchlib.figure("capture", "capture --only %s" % part, result))
            benchlib.print_figure(figures[-1])
    benchlib.write_figures(args.json, "bench_capture", figures, load)
    return 0


if __name__ == "__main__":
    sys.exit(main())
