#!/usr/bin/env python3
"""How zifcache writes snapshots, beyond what the case tables can show: a write
that fails half way (a file size limit) leaves the old file and no temporary
file, a reader of the old file keeps it whole, a symbolic link stays a link,
and `capture -` writes the same snapshot to standard output as to a file."""
import argparse
import json
import os
import resource
import subprocess
import sys
import tempfile
import unittest

ZIFCACHE = None
FIXTURE = os.environ.get("ZIF_CAPTURE_FIXTURE", "")


def zifcache(*args, **kwargs):
    return subprocess.run([ZIFCACHE] + list(args), capture_output=True, **kwargs)


class Output(unittest.TestCase):
    def setUp(self):
        self.dir = tempfile.TemporaryDirectory(prefix="zifcache-output-")
        self.addCleanup(self.dir.cleanup)

    def path(self, name):
        return os.path.join(self.dir.name, name)

    def pack(self, names, out):
        """Packs a snapshot of NAMES worlds into OUT; its bytes."""
        doc = {"zifcache": 1, "lists": [{"node": "world", "instances": list(range(names))}],
               "records": [{"node": "world_name", "keys": [i], "text": "w%d" % i} for i in range(names)]}
        with open(self.path("in.json"), "w") as f:
            json.dump(doc, f)
        result = zifcache("pack", self.path("in.json"), out)
        self.assertEqual(result.returncode, 0, result.stderr)
        with open(out, "rb") as f:
            return f.read()

    def test_a_failed_write_leaves_the_old_file_and_no_temporary_file(self):
        old = self.pack(2, self.path("out.zifc"))
        big = {"zifcache": 1, "records": [{"node": "world_name", "keys": [i], "text": "x" * 100} for i in range(2000)]}
        with open(self.path("big.json"), "w") as f:
            json.dump(big, f)

        def limit():
            resource.setrlimit(resource.RLIMIT_FSIZE, (64 * 1024, 64 * 1024))
        result = zifcache("pack", self.path("big.json"), self.path("out.zifc"), preexec_fn=limit)
        self.assertEqual(result.returncode, 1)
        self.assertRegex(result.stderr.decode(), r"^zifcache pack: .*out\.zifc: write: File too large\n$")
        with open(self.path("out.zifc"), "rb") as f:
            self.assertEqual(f.read(), old)
        self.assertEqual(sorted(os.listdir(self.dir.name)), ["big.json", "in.json", "out.zifc"])

    def test_a_reader_of_the_old_file_keeps_it(self):
        old = self.pack(2, self.path("out.zifc"))
        with open(self.path("out.zifc"), "rb") as reader:
            new = self.pack(3, self.path("out.zifc"))
            self.assertNotEqual(old, new)
            self.assertEqual(reader.read(), old)

    def test_a_symbolic_link_is_followed_and_kept(self):
        os.mkdir(self.path("real"))
        self.pack(2, self.path("real/host.zifc"))
        os.symlink("real/host.zifc", self.path("link.zifc"))
        new = self.pack(3, self.path("link.zifc"))
        self.assertTrue(os.path.islink(self.path("link.zifc")))
        with open(self.path("real/host.zifc"), "rb") as f:
            self.assertEqual(f.read(), new)

    def test_capture_to_standard_output_is_the_snapshot_capture_writes(self):
        args = ["capture", "--root", FIXTURE, "--only", "worlds,cartels,pci"]
        piped = zifcache(*args, "-")
        self.assertEqual((piped.returncode, piped.stderr), (0, b""))
        written = zifcache(*args, self.path("cap.zifc"))
        self.assertEqual(written.returncode, 0, written.stderr)
        check = zifcache("check", "-", input=piped.stdout)
        self.assertEqual(check.returncode, 0, check.stderr)
        # Same state: only the capture time and the command line may differ.
        diff = zifcache("diff", self.path("cap.zifc"), "-", input=piped.stdout)
        self.assertEqual(diff.returncode, 0, diff.stdout)
        self.assertEqual(diff.stdout.decode().splitlines()[0], "no differences")


def main():
    global ZIFCACHE
    parser = argparse.ArgumentParser()
    parser.add_argument("--zifcache", required=True)
    args, rest = parser.parse_known_args()
    ZIFCACHE = os.path.abspath(args.zifcache)
    unittest.main(argv=[sys.argv[0]] + rest)


if __name__ == "__main__":
    main()
