#!/usr/bin/env python3
"""Times ps on hosts of 10,000 and 100,000 worlds.

Builds one snapshot per size in the JSON form (a realistic mix: kernel worlds,
several userspaces, cartel trees whose cartels have clone threads, zombie
children), packs it with zifcache, and times `ps -J`, `ps -i` and `ps -c` on
the larger host against the same command on the smaller one (so the ratio is
how the time grows for ten times the worlds), and the peak memory of each on
the larger host against the snapshot's size. Targets: each at most 0.1 s,
growing at most 11 times, peak memory at most the snapshot plus 32 MiB.

Usage: bench_ps.py [--build DIR] [--sizes 10000,100000] [--cache DIR] [--json FILE] [--quick]
Not part of the test run: making the largest host takes a minute or more
(keep it with --cache).
"""
import argparse
import os
import random
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import benchlib  # noqa: E402

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




def host_snapshot(zifcache, directory, size):
    return benchlib.cached_file(directory, "ps-host-%d.zifc" % size, [info, world_records, build_host, zifcache],
                                lambda path: benchlib.pack(zifcache, build_host(size), path))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    benchlib.common_arguments(parser)
    parser.add_argument("--sizes", default="10000,100000", help="the smaller and the larger host")
    args = parser.parse_args()
    zlcziftools = os.path.join(args.build, "bin", "zlcziftools")
    zifcache = os.path.join(args.build, "bin", "zifcache")
    small, large = (int(s) for s in args.sizes.split(","))
    timing = benchlib.timing_from(args)
    load = benchlib.load_average()
    figures = []
    with benchlib.work_directory(args, "bench-ps-") as directory:
        small_host, large_host = (host_snapshot(zifcache, directory, size) for size in (small, large))
        for command in COMMANDS:
            name = " ".join(command)
            argv = [zlcziftools, "-c", large_host] + command
            result = benchlib.compare(argv, [zlcziftools, "-c", small_host] + command, timing)
            figures.append(benchlib.figure("world", "%s, %s worlds" % (name, benchlib.count_text(large)), result,
                                           "%s, %s worlds" % (name, benchlib.count_text(small)), max_value=0.1, max_ratio=11))
            figures.append(benchlib.memory_figure("world", "%s, %s worlds: peak memory" % (name, benchlib.count_text(large)),
                                                  benchlib.peak_memory_kib(argv), "snapshot size",
                                                  os.path.getsize(large_host), 32))
            benchlib.print_figure(figures[-2])
            benchlib.print_figure(figures[-1])
    benchlib.write_figures(args.json, "bench_ps", figures, load)
    return 0


if __name__ == "__main__":
    sys.exit(main())
