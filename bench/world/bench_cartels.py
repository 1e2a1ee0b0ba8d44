#!/usr/bin/env python3
"""Times pidof, pgrep, userspaceof and lsof on hosts of 10,000 and 100,000 cartels.

Each cartel is one world (some 5% more are kernel worlds) with a name, a
command line out of a hundred programs, a working directory, three open
descriptors and two memory mappings (one of them of the kind lsof lists). Each
command on the larger host is timed against the same command on the smaller
one, so the ratio is how the time grows for ten times the cartels. Targets:
each at most 0.1 s, growing at most 11 times.

Usage: bench_cartels.py [--build DIR] [--sizes 10000,100000] [--cache DIR] [--json FILE] [--quick]
Not part of the test run: making the largest host takes a minute or more
(keep it with --cache).
"""
import argparse
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import benchlib  # noqa: E402

PROGRAMS = 100
FIRST_CARTEL = 100000


def cartel_records(cartel, number):
    """The records of the number-th cartel; its world has the cartel's ID."""
    program = "daemon-%d" % (number % PROGRAMS)
    userspace = 1 + number % 10
    return [
        {"node": "world_name", "keys": [cartel], "text": program},
        {"node": "world_info", "keys": [cartel], "fields": {
            "worldId": cartel, "groupId": userspace * 10, "userspaceId": userspace, "cartelId": cartel,
            "parentId": 0, "processGroupId": cartel, "sessionId": cartel, "typeFlags": 4, "securityDomain": 0}},
        {"node": "userworld_cartel_cmdline", "keys": [cartel], "text": "/usr/bin/%s --id %d" % (program, cartel)},
        {"node": "userworld_cartel_fd_cwd", "keys": [cartel], "text": "/var/run/%s" % program},
        {"node": "userworld_cartel_fd_fds", "keys": [cartel, 0], "fields": {"type": "CHAR", "description": "/dev/null"}},
        {"node": "userworld_cartel_fd_fds", "keys": [cartel, 1],
         "fields": {"type": "REG", "description": "/var/log/%s.log" % program}},
        {"node": "userworld_cartel_fd_fds", "keys": [cartel, 2], "fields": {"type": "SOCKET", "description": "unix"}},
        {"node": "userworld_cartel_mem_mmaps", "keys": [cartel, 1],
         "fields": {"length": 4096 * 30, "kind": 2, "prot": 5, "fd": 3, "name": "/lib/libc.so.6"}},
        {"node": "userworld_cartel_mem_mmaps", "keys": [cartel, 2],
         "fields": {"length": 4096, "kind": 1, "prot": 3, "fd": -1, "name": "[heap]"}},
    ]


def build_host(size):
    """A host of size cartels in ten userspaces, plus kernel worlds."""
    records, worlds, lists = [], [], []
    for wid in range(1, size // 20 + 1):
        worlds.append(wid)
        records.append({"node": "world_name", "keys": [wid], "text": "kernel-%d" % wid})
        records.append({"node": "world_info", "keys": [wid], "fields": {"worldId": wid, "typeFlags": 1}})
    cartels = [FIRST_CARTEL + 4 * n for n in range(size)]
    for n, cartel in enumerate(cartels):
        records += cartel_records(cartel, n)
        lists.append({"node": "userworld_cartel_fd_fds", "parent": [cartel], "instances": [0, 1, 2]})
        lists.append({"node": "userworld_cartel_mem_mmaps", "parent": [cartel], "instances": [1, 2]})
    lists += [{"node": "world", "instances": worlds + cartels}, {"node": "userworld_cartel", "instances": cartels}]
    return {"zifcache": 1, "meta": {"notes": ["benchmark host of %d cartels" % size]}, "lists": lists,
            "records": records}


def commands(size):
    """The command lines timed, for a host of size cartels."""
    last_cartel = str(FIRST_CARTEL + 4 * (size - 1))
    return [["pidof", "daemon-7"], ["pgrep", "^daemon-7$"], ["userspaceof", last_cartel], ["lsof"]]


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
    with benchlib.work_directory(args, "bench-cartels-") as directory:
        hosts = [benchlib.cached_file(directory, "cartel-host-%d.zifc" % size,
                                      [cartel_records, build_host, zifcache],
                                      lambda path, size=size: benchlib.pack(zifcache, build_host(size), path))
                 for size in (small, large)]
        for small_command, large_command in zip(commands(small), commands(large)):
            result = benchlib.compare([zlcziftools, "-c", hosts[1]] + large_command,
                                      [zlcziftools, "-c", hosts[0]] + small_command, timing)
            name = large_command[0] if large_command[0] in ("userspaceof", "lsof") else " ".join(large_command)
            figures.append(benchlib.figure("world", "%s, %s cartels" % (name, benchlib.count_text(large)), result,
                                           "%s cartels" % benchlib.count_text(small), max_value=0.1, max_ratio=11))
            benchlib.print_figure(figures[-1])
    benchlib.write_figures(args.json, "bench_cartels", figures, load)
    return 0


if __name__ == "__main__":
    sys.exit(main())
