#!/usr/bin/env python3
"""Times `zifcache diff` on two snapshots of a host of 100,000 worlds.

The earlier host has per world its name, info and three scheduler records and
a command line per cartel; the later one has 1% of the records changed in one
field and a few worlds started and ended. Both are packed with zifcache and
`zifcache diff` (text, and --json) is timed against the way the pair was
compared before it existed: diff(1) of the two `zifcache dump` texts (the
dumps are made once, outside the timing). Target: under 1 s.

Usage: bench_diff.py [--build DIR] [--worlds 100000] [--changed 0.01] [--cache DIR] [--json FILE] [--quick]
Not part of the test run: making the hosts takes a minute (keep them with --cache).
"""
import argparse
import json
import os
import random
import subprocess
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import benchlib  # noqa: E402


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


def host_pair(zifcache, directory, worlds, changed):
    """The two snapshots and their dumps, made once per content."""
    inputs = [world_records, build_pair, zifcache]
    tag = "%s-%g" % (benchlib.count_text(worlds), changed)
    pair = benchlib.cached_file(directory, "diff-pair-%s.d" % tag, inputs,
                                lambda path: make_pair(zifcache, path, worlds, changed))
    return [os.path.join(pair, name) for name in ("before.zifc", "after.zifc", "before.json", "after.json")]


def make_pair(zifcache, path, worlds, changed):
    os.makedirs(path)
    for name, document in zip(("before", "after"), build_pair(worlds, changed)):
        snapshot = os.path.join(path, name + ".zifc")
        benchlib.pack(zifcache, document, snapshot)
        with open(os.path.join(path, name + ".json"), "w") as dump:
            subprocess.run([zifcache, "dump", snapshot], stdout=dump, check=True)


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    benchlib.common_arguments(parser, runs=(3, 11, 10.0))
    parser.add_argument("--worlds", type=int, default=100000)
    parser.add_argument("--changed", type=float, default=0.01, help="share of records changed")
    args = parser.parse_args()
    zifcache = os.path.join(args.build, "bin", "zifcache")
    timing = benchlib.timing_from(args)
    load = benchlib.load_average()
    figures = []
    size = benchlib.count_text(args.worlds)
    with benchlib.work_directory(args, "bench-diff-") as directory:
        before, after, before_dump, after_dump = host_pair(zifcache, directory, args.worlds, args.changed)
        peer = ["/usr/bin/diff", before_dump, after_dump]
        for label, extra in (("zifcache diff", []), ("zifcache diff --json", ["--json"])):
            result = benchlib.compare([zifcache, "diff"] + extra + [before, after], peer, timing,
                                      status=1, peer_status=1)
            figures.append(benchlib.figure("zifcache", "%s, %s worlds, %g%% changed" % (label, size, args.changed * 100),
                                           result, "diff(1) of the two dumps", max_value=1.0))
            benchlib.print_figure(figures[-1])
    benchlib.write_figures(args.json, "bench_diff", figures, load)
    return 0


if __name__ == "__main__":
    sys.exit(main())
