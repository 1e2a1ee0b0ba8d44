#!/usr/bin/env python3
"""Times `zdu -a` in the simulator against coreutils `du -a` on the same tree.

Builds a real directory tree of --files files (10 top directories of 10
subdirectories each, the files spread evenly, a few symbolic links and empty
files among them), a simulator snapshot whose root device is the tree's device
and whose inode stats records are keyed by the tree's inode numbers (files
spread over two tardisks and three ramdisks), packs it with zifcache, and runs
both commands a few times with their output sent to /dev/null, reporting the
best wall time of each and their ratio. The goal: zdu takes at most 1.5 times
as long as du.

Usage: bench_zdu.py [--build DIR] [--files 100000] [--runs 3] [--keep DIR]
Not part of the test run: it creates the tree and a snapshot of some tens of
megabytes and takes a minute or so.
"""
import argparse
import json
import os
import shutil
import subprocess
import sys
import tempfile
import time

TARDISKS = ["s.v00", "zeltools.t00"]
RAMDISKS = ["root", "tmp", "var"]


def inode_record(path, index, is_dir):
    ino = os.lstat(path).st_ino
    on_tardisk = index % 3 == 0
    fields = {"flags": 1 if on_tardisk else 0, "size": 512 if is_dir else (index * 37) % 100000}
    if on_tardisk:
        fields["tardisk"] = TARDISKS[index % len(TARDISKS)]
    else:
        fields["ramdisk"] = RAMDISKS[index % len(RAMDISKS)]
    return {"node": "system_zelorfs_inodes_stats", "keys": [ino], "fields": fields}


def build(root, files):
    records = [inode_record(root, 0, True)]
    directories = []
    for top in range(10):
        top_path = os.path.join(root, "d%d" % top)
        os.mkdir(top_path)
        records.append(inode_record(top_path, len(records), True))
        for sub in range(10):
            sub_path = os.path.join(top_path, "s%d" % sub)
            os.mkdir(sub_path)
            records.append(inode_record(sub_path, len(records), True))
            directories.append(sub_path)
    for number in range(files):
        directory = directories[number % len(directories)]
        path = os.path.join(directory, "file-%06d" % number)
        if number % 1000 == 999:
            os.symlink("file-%06d" % (number - 1), path)
        else:
            with open(path, "wb"):
                pass
        records.append(inode_record(path, len(records), False))
    return records


def best_time(argv, env, runs):
    best = None
    for _ in range(runs):
        start = time.perf_counter()
        with open(os.devnull, "wb") as sink:
            result = subprocess.run(argv, env=env, stdout=sink, stderr=subprocess.PIPE)
        elapsed = time.perf_counter() - start
        if result.returncode != 0 or result.stderr:
            sys.exit("%s failed (%d): %s" % (" ".join(argv), result.returncode, result.stderr.decode()[:500]))
        best = elapsed if best is None else min(best, elapsed)
    return best


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--build", default=os.path.join(os.path.dirname(__file__), "..", "..", "build"))
    parser.add_argument("--files", type=int, default=100000)
    parser.add_argument("--runs", type=int, default=3)
    parser.add_argument("--keep", help="build the tree and snapshot here and leave them")
    args = parser.parse_args()
    tools = os.path.join(args.build, "bin")
    work = args.keep or tempfile.mkdtemp(prefix="bench-zdu-")
    os.makedirs(work, exist_ok=True)
    try:
        root = os.path.join(work, "tree")
        os.mkdir(root)
        print("building %d files ..." % args.files, flush=True)
        records = build(root, args.files)
        snapshot = {"zifcache": 1, "simulator": {"rootDevice": os.lstat(root).st_dev},
                    "lists": [{"node": "system_zelorfs_tardisks", "instances": TARDISKS},
                              {"node": "system_zelorfs_ramdisks", "instances": RAMDISKS}],
                    "records": records}
        source = os.path.join(work, "host.json")
        packed = os.path.join(work, "host.zifc")
        with open(source, "w") as f:
            json.dump(snapshot, f)
        subprocess.run([os.path.join(tools, "zifcache"), "pack", source, packed], check=True)

        env = dict(os.environ, ZLC_SIMULATOR=packed, LC_ALL="C")
        du = best_time(["du", "-a", root], env, args.runs)
        zdu = best_time([os.path.join(tools, "zlcziftools"), "zdu", "-a", root], env, args.runs)
        print("du -a:  %.3f s" % du)
        print("zdu -a: %.3f s (%.2f x du; goal at most 1.50 x)" % (zdu, zdu / du))
        return 0 if zdu <= 1.5 * du else 1
    finally:
        if not args.keep:
            shutil.rmtree(work, ignore_errors=True)


if __name__ == "__main__":
    sys.exit(main())
