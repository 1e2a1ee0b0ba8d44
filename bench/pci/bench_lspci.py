#!/usr/bin/env python3
"""Times whole lspci runs against pciutils' lspci.

Ours lists a snapshot of six functions (the host bridge and five paravirtual
functions of a small virtual machine, as on the machine these figures were
first taken on) with the real pci.ids kept with the tests; the peer is the
system's /usr/bin/lspci listing this machine's own functions. Targets: lspci
with names at most 0.35 times the peer's, lspci -n at most 0.8 times the
peer's lspci -n (ours builds the ID table in both).

Usage: bench_lspci.py [--build DIR] [--reference /usr/bin/lspci] [--json FILE] [--quick]
Not part of the test run.
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import benchlib  # noqa: E402

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


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    benchlib.common_arguments(parser, runs=(20, 201, 3.0))
    parser.add_argument("--reference", default="/usr/bin/lspci")
    args = parser.parse_args()

    tool = os.path.join(args.build, "bin", "zlcziftools")
    packer = os.path.join(args.build, "bin", "zifcache")
    if shutil.which(args.reference) is None:
        print("reference %s not found" % args.reference)
        return 0
    timing = benchlib.timing_from(args)
    load = benchlib.load_average()
    figures = []
    with tempfile.TemporaryDirectory() as tmp:
        source = os.path.join(tmp, "vm.json")
        packed = os.path.join(tmp, "vm.zifc")
        with open(source, "w", encoding="utf-8") as f:
            json.dump(snapshot(), f)
        subprocess.run([packer, "pack", source, packed], check=True)
        env = dict(os.environ, ZLC_HWDATA_DIR=os.path.join(benchlib.SOURCE, "tests", "pci", "data"))
        for options, name, limit in (([], "lspci (names)", 0.35), (["-n"], "lspci -n", 0.8)):
            result = benchlib.compare([tool, "-c", packed, "lspci"] + options, [args.reference] + options, timing,
                                      env=env)
            peer = "pciutils' " + " ".join(["lspci"] + options)
            figures.append(benchlib.figure("pci", "%s, %d functions" % (name, len(FUNCTIONS)), result, peer,
                                           max_ratio=limit))
            benchlib.print_figure(figures[-1])
    benchlib.write_figures(args.json, "bench_lspci", figures, load)
    return 0


if __name__ == "__main__":
    sys.exit(main())
