#!/usr/bin/env python3
"""Times `zifcache diff` on two snapshots of a host of 100,000 worlds.

Builds the earlier snapshot in the JSON form (per world its name, info and
three scheduler records; a command line per cartel), then the later one with
1% of the records changed in one field and a few worlds started and ended,
packs both with zifcache, and runs `zifcache diff` (text and --json) on the
pair a few times, reporting the best wall time and the report's size.

Usage: bench_diff.py [--build DIR] [--worlds 100000] [--changed 0.01] [--runs 3] [--keep DIR]
Not part of the test run: it writes about 100 MB of JSON and takes a minute.
"""
import argparse
import json
import os
import random
import shutil
import subprocess
import sys
import tempfile
import time


def world_records(wid, rng):
    return [
        {"node": "world_name", "keys": [wid], "text": "proc-%d" % wid},
        {"node": "world_info", "keys": [wid], "fields": {
            "worldId": wid, "groupId": 10, "userspaceId": 1, "cartelId": wid - wid % 4, "parentId": 1,
            "processGroupId": wid - wid % 4, "sessionId": 1, "typeFlags": 4, "securityDomain": 0}},
        {"node": "sched_Vcpus_stats_summaryStats", "keys": [wid],
         "fields": {"runState": rng.randrange(3), "waitState": rng.randrange(3)}},
        {"node": "sched_Vcpus_stats_affinity", "keys": [wid], "text": "0-7"},
        {"node": "sched_Vcpus_stats_stateTimes", "keys": [wid], "fields": {"usedTime": rng.randrange(10**10)}},
    ]


def build_pair(worlds, changed, seed=1):
    """The earlier and the later host, as JSON documents."""
    rng = random.Random(seed)
    ids = list(range(1000, 1000 + worlds))
    records = []
    for wid in ids:
        records += world_records(wid, rng)
    cartels = ids[::4]
    records += [{"node": "userworld_cartel_cmdline", "keys": [c], "text": "/usr/bin/proc-%d --serve" % c}
                for c in cartels]
    before = {"zifcache": 1, "meta": {"host": "bench", "captured": "2026-11-22T10:00:00Z", "by": "bench_diff.py"},
              "lists": [{"node": "world", "instances": ids}, {"node": "userworld_cartel", "instances": cartels}],
              "records": records}

    after = json.loads(json.dumps(before))
    after["meta"]["captured"] = "2026-11-22T11:00:00Z"
    for record in rng.sample(after["records"], int(len(after["records"]) * changed)):
        if record["node"] == "sched_Vcpus_stats_stateTimes":
            record["fields"]["usedTime"] += 1000
        elif "fields" in record:
            key = "groupId" if record["node"] == "world_info" else "runState"
            record["fields"][key] = record["fields"][key] + 1
        else:
            record["text"] += "-x"
    ended = set(rng.sample(ids, 30))
    started = list(range(1000 + worlds, 1000 + worlds + 30))
    after["lists"][0]["instances"] = [w for w in ids if w not in ended] + started
    after["records"] = [r for r in after["records"] if not (r["node"] != "userworld_cartel_cmdline"
                                                             and r["keys"][0] in ended)]
    for wid in started:
        after["records"] += world_records(wid, rng)
    return before, after


def best_time(argv, runs):
    best, size = None, 0
    for _ in range(runs):
        start = time.perf_counter()
        result = subprocess.run(argv, stdout=subprocess.PIPE, stderr=subprocess.PIPE)
        elapsed = time.perf_counter() - start
        if result.returncode not in (0, 1):
            sys.exit("%s failed: %s" % (" ".join(argv), result.stderr.decode()))
        size = len(result.stdout)
        best = elapsed if best is None else min(best, elapsed)
    return best, size


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default="build", help="build directory holding bin/zifcache")
    parser.add_argument("--worlds", type=int, default=100000)
    parser.add_argument("--changed", type=float, default=0.01, help="share of records changed")
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--keep", help="write the snapshots here and keep them")
    args = parser.parse_args()
    zifcache = os.path.join(args.build, "bin", "zifcache")
    work = args.keep or tempfile.mkdtemp(prefix="bench-diff-")
    os.makedirs(work, exist_ok=True)
    try:
        paths = []
        for name, doc in zip(("before", "after"), build_pair(args.worlds, args.changed)):
            source, snapshot = os.path.join(work, name + ".json"), os.path.join(work, name + ".zifc")
            with open(source, "w", encoding="utf-8") as f:
                json.dump(doc, f)
            subprocess.run([zifcache, "pack", source, snapshot], check=True)
            os.unlink(source)
            paths.append(snapshot)
        sizes = [os.path.getsize(p) for p in paths]
        print("%d worlds, %.0f%% of records changed; snapshots of %.1f and %.1f MB" %
              (args.worlds, args.changed * 100, sizes[0] / 1e6, sizes[1] / 1e6))
        for label, extra in (("diff", []), ("diff --json", ["--json"])):
            seconds, size = best_time([zifcache, "diff"] + extra + paths, args.runs)
            print("%-12s %7.3f s  (report of %.1f kB, best of %d)" % (label, seconds, size / 1e3, args.runs))
    finally:
        if not args.keep:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    main()
