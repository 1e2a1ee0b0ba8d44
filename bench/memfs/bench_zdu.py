#!/usr/bin/env python3
"""Times `zdu -a` in the simulator against coreutils `du -a` on the same tree.

Builds a real directory tree of --files files (10 top directories of 10
subdirectories each, the files spread evenly, a few symbolic links and empty
files among them), a simulator snapshot whose root device is the tree's device
and whose inode stats records are keyed by the tree's inode numbers (files
spread over two tardisks and three ramdisks), packs it with zifcache, and runs
both commands alternately with their output sent to /dev/null. The goal:
zdu takes at most 1.5 times as long as du.

Usage: bench_zdu.py [--build DIR] [--files 100000] [--cache DIR] [--json FILE] [--quick]
Not part of the test run: it creates the tree and a snapshot of some tens of
megabytes, which takes a minute or so (keep them with --cache).
"""
import argparse
import os
import sys

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
import benchlib  # noqa: E402

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


def make_tree_and_snapshot(zifcache, files, directory):
    """directory/tree with files files, directory/host.zifc describing it."""
    os.mkdir(directory)
    root = os.path.join(directory, "tree")
    os.mkdir(root)
    records = build(root, files)
    snapshot = {"zifcache": 1, "simulator": {"rootDevice": os.lstat(root).st_dev},
                "lists": [{"node": "system_zelorfs_tardisks", "instances": TARDISKS},
                          {"node": "system_zelorfs_ramdisks", "instances": RAMDISKS}],
                "records": records}
    benchlib.pack(zifcache, snapshot, os.path.join(directory, "host.zifc"))


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    benchlib.common_arguments(parser)
    parser.add_argument("--files", type=int, help="files in the tree (100,000; 20,000 with --quick)")
    args = parser.parse_args()
    files = args.files or (20000 if args.quick else 100000)
    tools = os.path.join(args.build, "bin")
    zifcache = os.path.join(tools, "zifcache")
    timing = benchlib.timing_from(args)
    load = benchlib.load_average()
    with benchlib.work_directory(args, "bench-zdu-") as work:
        made = benchlib.cached_file(work, "zdu-tree-%d" % files, [inode_record, build, make_tree_and_snapshot,
                                                                  zifcache],
                                    lambda path: make_tree_and_snapshot(zifcache, files, path))
        root = os.path.join(made, "tree")
        env = dict(os.environ, ZLC_SIMULATOR=os.path.join(made, "host.zifc"), LC_ALL="C")
        result = benchlib.compare([os.path.join(tools, "zlcziftools"), "zdu", "-a", root], ["/usr/bin/du", "-a", root],
                                  timing, env=env, peer_env=env)
    fig = benchlib.figure("memfs", "zdu -a, %s files" % benchlib.count_text(files), result, "du -a", max_ratio=1.5)
    benchlib.print_figure(fig)
    benchlib.write_figures(args.json, "bench_zdu", [fig], load)
    return 0


if __name__ == "__main__":
    sys.exit(main())
