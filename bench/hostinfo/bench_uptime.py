#!/usr/bin/env python3
"""Times uptime, the smallest command, against the least any command costs:
starting a process (/bin/true) plus opening the snapshot.

uptime reads the bundled sample snapshot; the open is timed in-process by the
snapshot benchmark (opening a small snapshot and reading one record) and added
to each of /bin/true's times. Target: uptime at most 1.5 times that.

Usage: bench_uptime.py [--build DIR] [--json FILE] [--quick]
The build directory must hold the sample snapshot and, for the open, the
benchmarks (the bench preset); without them the open counts as nothing.
"""
import argparse
import json
import os
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import benchlib  # noqa: E402

OPEN_BENCHMARK = "BM_OpenAndReadRecord_10KB"


def snapshot_open_seconds(build):
    """Processor time of one open and record read, from the snapshot benchmark."""
    program = os.path.join(build, "bin", "snapshot_bench")
    if not os.path.exists(program):
        return 0.0
    result = subprocess.run([program, "--benchmark_filter=^%s$" % OPEN_BENCHMARK, "--benchmark_format=json"],
                            check=True, capture_output=True, text=True)
    (run,) = json.loads(result.stdout)["benchmarks"]
    scale = {"ns": 1e-9, "us": 1e-6, "ms": 1e-3, "s": 1.0}[run["time_unit"]]
    return run["cpu_time"] * scale


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    benchlib.common_arguments(parser, runs=(20, 201, 3.0))
    args = parser.parse_args()
    tool = os.path.join(args.build, "bin", "zlcziftools")
    sample = os.path.join(args.build, "samples", "sample-host.zifc")
    timing = benchlib.timing_from(args)
    load = benchlib.load_average()
    opening = snapshot_open_seconds(args.build)
    result = benchlib.compare([tool, "-c", sample, "uptime"], ["/bin/true"], timing, peer_offset=opening)
    fig = benchlib.figure("hostinfo", "uptime", result, "/bin/true + snapshot open (%.0f us)" % (opening * 1e6),
                          max_ratio=1.5)
    benchlib.print_figure(fig)
    benchlib.write_figures(args.json, "bench_uptime", [fig], load)
    return 0


if __name__ == "__main__":
    sys.exit(main())
