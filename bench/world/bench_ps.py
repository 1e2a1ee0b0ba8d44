#!/usr/bin/env python3
"""Times ps on hosts of 1,000, 10,000 and 100,000 worlds.

Builds one snapshot per size in the JSON form (a realistic mix: kernel worlds,
several userspaces, cartel trees whose cartels have clone threads, zombie
children), packs it with zifcache, and runs `ps -J`, `ps -i` and `ps -c` on it,
each a few times, reporting the best wall time and the peak resident memory
(from /usr/bin/time when present, else from the resource module).

Usage: bench_ps.py [--build DIR] [--sizes 1000,10000,100000] [--runs 3] [--keep DIR]
Not part of the test run: it writes snapshots of several hundred megabytes of
JSON for the largest size and takes a minute or more.
"""
import argparse
import json
import os
import random
import resource
import shutil
import subprocess
import sys
import tempfile
import time

COMMANDS = [["ps", "-J"], ["ps", "-i"], ["ps", "-c"]]


def info(wid, userspace, cartel, parent, typ):
    return {"node": "world_info", "keys": [wid], "fields": {
        "worldId": wid, "groupId": userspace * 10, "userspaceId": userspace, "cartelId": cartel,
        "parentId": parent, "processGroupId": cartel, "sessionId": cartel, "typeFlags": typ, "securityDomain": 0}}


def world_records(wid, name, userspace, cartel, parent, typ, rng):
    return [
        {"node": "world_name", "keys": [wid], "text": name},
        info(wid, userspace, cartel, parent, typ),
        {"node": "sched_Vcpus_stats_summaryStats", "keys": [wid],
         "fields": {"runState": rng.randrange(3), "waitState": rng.randrange(3)}},
        {"node": "sched_Vcpus_stats_affinity", "keys": [wid], "text": "0-7"},
        {"node": "sched_Vcpus_stats_stateTimes", "keys": [wid], "fields": {"usedTime": rng.randrange(10**10)}},
    ]


def build_host(size, seed=1):
    """A host of about size worlds: 5% kernel worlds, the rest userworlds."""
    rng = random.Random(seed)
    userspaces = max(2, min(100, size // 1000))
    records, worlds, cartels = [], [], []
    children = {}
    next_id = 1
    for _ in range(max(1, size // 20)):
        records += world_records(next_id, "kernel-%d" % next_id, 0, 0, 0, 1, rng)
        worlds.append(next_id)
        next_id += 1
    next_id = 100000
    per_space = {u: [] for u in range(1, userspaces + 1)}
    while len(worlds) < size:
        userspace = rng.randrange(1, userspaces + 1)
        family = per_space[userspace]
        cartel = next_id
        parent = 0 if not family else rng.choice(family[-50:] if rng.random() < 0.7 else family)
        family.append(cartel)
        cartels.append(cartel)
        threads = rng.choice([1, 1, 1, 2, 3, 4])
        for thread in range(threads):
            wid = cartel + thread
            typ = 4 if thread == 0 else 36
            records += world_records(wid, "proc-%d%s" % (cartel, "" if thread == 0 else "-t%d" % thread),
                                     userspace, cartel, parent if thread == 0 else cartel, typ, rng)
            worlds.append(wid)
        records.append({"node": "userworld_cartel_cmdline", "keys": [cartel],
                        "text": "/usr/bin/proc-%d --serve --port %d" % (cartel, cartel % 65536)})
        if parent:
            children.setdefault(parent, []).append((cartel, 0))
        if rng.random() < 0.05:
            zombie = 900000000 + cartel
            children.setdefault(cartel, []).append((zombie, 1))
        next_id += 8
    lists = [{"node": "world", "instances": worlds}, {"node": "userworld_cartel", "instances": cartels}]
    for parent, kids in children.items():
        lists.append({"node": "userworld_cartel_child", "parent": [parent], "instances": [k for k, _ in kids]})
        for kid, state in kids:
            records.append({"node": "userworld_cartel_child", "keys": [parent, kid], "fields": {"state": state}})
    return {"zifcache": 1, "meta": {"notes": ["benchmark host of %d worlds" % len(worlds)]},
            "lists": lists, "records": records}


def measure(argv):
    """Wall seconds and peak resident kilobytes of one run."""
    if os.path.exists("/usr/bin/time"):
        start = time.perf_counter()
        result = subprocess.run(["/usr/bin/time", "-f", "%M"] + argv, stdout=subprocess.DEVNULL,
                                stderr=subprocess.PIPE, check=False)
        elapsed = time.perf_counter() - start
        peak = int(result.stderr.decode().strip().splitlines()[-1])
        return elapsed, peak, result.returncode
    before = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    start = time.perf_counter()
    result = subprocess.run(argv, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE, check=False)
    elapsed = time.perf_counter() - start
    peak = resource.getrusage(resource.RUSAGE_CHILDREN).ru_maxrss
    # The children's maximum only grows; report it as an upper bound.
    return elapsed, max(peak, before), result.returncode


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=os.path.join(os.path.dirname(__file__), "..", "..", "build"))
    parser.add_argument("--sizes", default="1000,10000,100000")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--keep", help="keep the snapshots in this directory")
    args = parser.parse_args()
    zlcziftools = os.path.join(args.build, "bin", "zlcziftools")
    zifcache = os.path.join(args.build, "bin", "zifcache")
    workdir = args.keep or tempfile.mkdtemp(prefix="bench-ps-")
    os.makedirs(workdir, exist_ok=True)
    print("%-8s %-8s %10s %12s" % ("worlds", "command", "best s", "peak KiB"))
    try:
        for size in (int(s) for s in args.sizes.split(",")):
            source = os.path.join(workdir, "host-%d.json" % size)
            packed = os.path.join(workdir, "host-%d.zifc" % size)
            if not os.path.exists(packed):
                with open(source, "w") as f:
                    json.dump(build_host(size), f)
                subprocess.run([zifcache, "pack", source, packed], check=True)
                os.unlink(source)
            for command in COMMANDS:
                argv = [zlcziftools, "-c", packed] + command
                runs = [measure(argv) for _ in range(args.runs)]
                if any(status != 0 for _, _, status in runs):
                    print("%s failed" % " ".join(command), file=sys.stderr)
                    return 1
                print("%-8d %-8s %10.3f %12d" % (size, " ".join(command), min(r[0] for r in runs),
                                                  max(r[1] for r in runs)), flush=True)
    finally:
        if not args.keep:
            shutil.rmtree(workdir, ignore_errors=True)
    return 0


if __name__ == "__main__":
    sys.exit(main())
