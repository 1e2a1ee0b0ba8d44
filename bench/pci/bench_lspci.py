#!/usr/bin/env python3
"""Times whole lspci runs: ours on a snapshot of six functions (the host
bridge and five paravirtual functions of a small virtual machine) with the
real pci.ids kept with the tests, side by side with a reference command (by
default the system's /usr/bin/lspci listing this machine's own functions).

The two commands run alternately, so that both see the same load; reported
are the median and best wall times and the mean processor time (user +
system) per run, and the ratio of ours to the reference.

Usage: bench_lspci.py [--build DIR] [--runs 40] [--reference "/usr/bin/lspci"]
Not part of the test run.
"""
import argparse
import json
import os
import resource
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

HERE = os.path.dirname(os.path.abspath(__file__))
SOURCE = os.path.dirname(os.path.dirname(HERE))

# (slot, vendor, device, class code)
FUNCTIONS = [
    (0, 0x8086, 0x0d57, 0x0600),
    (1, 0x1af4, 0x1045, 0xffff),
    (2, 0x1af4, 0x1042, 0x0180),
    (3, 0x1af4, 0x1041, 0x0200),
    (4, 0x1af4, 0x1053, 0xffff),
    (5, 0x1af4, 0x1044, 0xffff),
]


def snapshot():
    lists = [
        {"node": "hardware_pci_seg", "instances": [0]},
        {"node": "hardware_pci_seg_bus", "parent": [0], "instances": [0]},
        {"node": "hardware_pci_seg_bus_slot", "parent": [0, 0], "instances": [f[0] for f in FUNCTIONS]},
    ]
    records = []
    for slot, vendor, device, class_code in FUNCTIONS:
        lists.append({"node": "hardware_pci_seg_bus_slot_func", "parent": [0, 0, slot], "instances": [0]})
        records.append({"node": "hardware_pci_seg_bus_slot_func_pciConfigHeader", "keys": [0, 0, slot, 0],
                        "fields": {"vendorId": vendor, "deviceId": device, "classCode": class_code}})
    return {"zifcache": 1, "lists": lists, "records": records}


def run(argv, env):
    before = resource.getrusage(resource.RUSAGE_CHILDREN)
    start = time.perf_counter()
    subprocess.run(argv, env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    wall = time.perf_counter() - start
    after = resource.getrusage(resource.RUSAGE_CHILDREN)
    cpu = (after.ru_utime - before.ru_utime) + (after.ru_stime - before.ru_stime)
    return wall, cpu


def summary(name, samples):
    walls = [s[0] for s in samples]
    cpus = [s[1] for s in samples]
    print("%-10s wall median %6.1f ms  best %6.1f ms   cpu mean %6.1f ms" %
          (name, statistics.median(walls) * 1e3, min(walls) * 1e3, statistics.mean(cpus) * 1e3))
    return statistics.median(walls), statistics.mean(cpus)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=os.path.join(SOURCE, "build"))
    parser.add_argument("--runs", type=int, default=40)
    parser.add_argument("--reference", default="/usr/bin/lspci")
    args = parser.parse_args()

    tool = os.path.join(args.build, "bin", "zlcziftools")
    packer = os.path.join(args.build, "bin", "zifcache")
    reference = args.reference.split()
    have_reference = shutil.which(reference[0]) is not None
    with tempfile.TemporaryDirectory() as tmp:
        source = os.path.join(tmp, "vm.json")
        packed = os.path.join(tmp, "vm.zifc")
        with open(source, "w", encoding="utf-8") as f:
            json.dump(snapshot(), f)
        subprocess.run([packer, "pack", source, packed], check=True)
        env = dict(os.environ, ZLC_HWDATA_DIR=os.path.join(SOURCE, "tests", "pci", "data"))
        ours_argv = [tool, "-c", packed, "lspci"]
        ours, theirs = [], []
        run(ours_argv, env)
        for _ in range(args.runs):
            ours.append(run(ours_argv, env))
            if have_reference:
                theirs.append(run(reference, os.environ))
    ours_wall, ours_cpu = summary("ours", ours)
    if not have_reference:
        print("reference %s not found" % reference[0])
        return 0
    ref_wall, ref_cpu = summary("reference", theirs)
    print("ratio      wall %.2f   cpu %.2f" % (ours_wall / ref_wall, ours_cpu / ref_cpu))
    return 0


if __name__ == "__main__":
    sys.exit(main())
