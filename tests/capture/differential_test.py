#!/usr/bin/env python3
"""Captures this machine with `zifcache capture` and compares what our tools
show on the capture with independent sources read at the same moment:
procps (ps, pidof, pgrep), pciutils (lspci), /sys/firmware/acpi/tables,
/proc/uptime, /proc/interrupts, /proc/cmdline, and files written under
/dev/shm before the capture (zdu in the simulator, on this machine). A comparison whose tool or source is
missing here is skipped with a message; the test is skipped (exit 77) when
none could run, and fails when any comparison fails."""

import argparse
import os
import re
import shutil
import subprocess
import sys
import tempfile
import time

TABLES = "/sys/firmware/acpi/tables"
SHM = "/dev/shm"


class Skip(Exception):
    pass


class Differential:
    def __init__(self, args, tmp):
        self.args = args
        self.tmp = tmp
        self.snapshot = os.path.join(tmp, "host.zifc")
        self.failures = []

    def ours(self, *argv, cwd=None):
        result = subprocess.run([self.args.zlcziftools, "-c", self.snapshot] + list(argv), capture_output=True,
                                cwd=cwd or self.tmp, timeout=60)
        return result.returncode, result.stdout.decode("latin-1"), result.stderr.decode("latin-1")

    @staticmethod
    def tool(name):
        path = shutil.which(name)
        if not path:
            raise Skip("%s is not installed" % name)
        return path

    def fail(self, what, detail):
        self.failures.append("%s: %s" % (what, detail))

    # procps: thread IDs, process IDs, parents and names of the threads alive in both.
    def worlds(self, theirs):
        status, text, err = self.ours("ps", "-P")
        if status != 0:
            return self.fail("ps", "exit %d: %s" % (status, err))
        ours = {}
        for line in text.splitlines()[1:]:
            m = re.match(r"^(\d+)\s+(\d+)\s+(.*?)\s+(\d+)\s*$", line)
            if m:
                ours[int(m.group(1))] = (int(m.group(2)), m.group(3), int(m.group(4)))
        both = sorted(set(ours) & set(theirs))
        if len(both) < 0.9 * len(theirs):
            return self.fail("ps", "only %d of procps' %d threads in the capture" % (len(both), len(theirs)))
        for tid in both:
            cid, name, pcid = ours[tid]
            pid, ppid, comm, kernel = theirs[tid]
            want_cid = 0 if kernel else pid
            want_pcid = ppid if (tid == pid or kernel) else pid
            # Kernel workers rename themselves as they take up work.
            if (cid, pcid) != (want_cid, want_pcid) or (name != comm and not kernel):
                self.fail("ps", "world %d: ours CID %d name %r PCID %d, procps PID %d name %r PPID %d" %
                          (tid, cid, name, pcid, pid, comm, ppid))
        return "%d threads agree" % len(both)

    # pidof and pgrep result sets for processes this test started.
    def lookups(self, name):
        results = []
        for command, argv in (("pidof", [name]), ("pgrep", [name])):
            theirs = subprocess.run([self.tool(command)] + argv, capture_output=True).stdout.decode()
            _, mine, _ = self.ours(command, *argv)
            a, b = set(map(int, re.findall(r"\d+", mine))), set(map(int, re.findall(r"\d+", theirs)))
            if a != b or len(a) != 2:
                self.fail(command, "ours %s, procps %s" % (sorted(a), sorted(b)))
            results.append("%s %s" % (command, sorted(a)))
        return ", ".join(results)

    # pciutils: addresses, classes and IDs, then vendor and device names.
    def pci(self, numeric, verbose):
        _, text, _ = self.ours("lspci", "-n")
        ours = {}
        for line in text.splitlines():
            m = re.match(r"^([0-9a-f]{4}:[0-9a-f]{2}:[0-9a-f]{2}\.[0-9a-f]) Class ([0-9a-f]{4}): ([0-9a-f]{4}):([0-9a-f]{4})",
                         line)
            if m:
                ours[m.group(1)] = (m.group(2), m.group(3), m.group(4))
        theirs = {}
        for line in numeric.splitlines():
            m = re.match(r"^(\S+) ([0-9a-f]{4}): ([0-9a-f]{4}):([0-9a-f]{4})", line)
            if m:
                theirs[m.group(1)] = (m.group(2), m.group(3), m.group(4))
        if ours != theirs:
            self.fail("lspci -n", "ours %s, pciutils %s" % (ours, theirs))
        _, named, _ = self.ours("lspci")
        lines = {l[:12]: l for l in named.splitlines()}
        for block in verbose.strip().split("\n\n"):
            fields = dict(l.split(":\t", 1) for l in block.splitlines() if ":\t" in l)
            slot = fields.get("Slot")
            want = "%s %s" % (fields.get("Vendor"), fields.get("Device"))
            if slot not in lines or want not in lines[slot]:
                self.fail("lspci names", "%s: ours %r, pciutils %r" % (slot, lines.get(slot), want))
        return "%d functions agree" % len(ours)

    # Every file amldump writes is byte for byte a table under /sys.
    def acpi(self):
        sources = []
        for sub in ("", "dynamic", "data"):
            d = os.path.join(TABLES, sub)
            for name in sorted(os.listdir(d)) if os.path.isdir(d) else []:
                path = os.path.join(d, name)
                if os.path.isfile(path):
                    try:
                        with open(path, "rb") as f:
                            data = f.read()
                    except OSError as e:
                        raise Skip("%s is not readable: %s" % (path, e))
                    if len(data) >= 36 and int.from_bytes(data[4:8], "little") == len(data):
                        sources.append(data)
        if not sources:
            raise Skip("no ACPI tables under " + TABLES)
        out = os.path.join(self.tmp, "aml")
        os.mkdir(out)
        status, _, err = self.ours("amldump", cwd=out)
        if status != 0:
            return self.fail("amldump", "exit %d: %s" % (status, err))
        written = {}
        for name in os.listdir(out):
            with open(os.path.join(out, name), "rb") as f:
                written[name] = f.read()
        for name, data in written.items():
            if data not in sources or not name.startswith(data[:4].decode("latin-1")):
                self.fail("amldump", "%s is no table of %s" % (name, TABLES))
        if sorted(written.values()) != sorted(sources):
            self.fail("amldump", "%d files written for %d tables" % (len(written), len(sources)))
        return "%d tables identical" % len(written)

    def uptime(self, seconds):
        _, text, _ = self.ours("uptime")
        m = re.search(r"up (?:(\d+) days?, )?(\d+):(\d\d):(\d\d),", text)
        if not m:
            return self.fail("uptime", "cannot read %r" % text)
        ours = int(m.group(1) or 0) * 86400 + int(m.group(2)) * 3600 + int(m.group(3)) * 60 + int(m.group(4))
        if abs(ours - seconds) > 2:
            self.fail("uptime", "ours %d s, /proc/uptime %d s" % (ours, seconds))
        return "%d s" % ours

    # Counts only grow: each count of ours is at most what /proc says right after.
    def interrupts(self, after):
        status, text, err = self.ours("irqinfo")
        if status != 0:
            return self.fail("irqinfo", "exit %d: %s" % (status, err))
        later = {}
        for line in after.splitlines()[1:]:
            m = re.match(r"^\s*(\d+):((?:\s+\d+)+)", line)
            if m:
                later[int(m.group(1))] = [int(v) for v in m.group(2).split()]
        rows = 0
        for line in text.splitlines()[1:]:
            words = line.split()
            # Rows start with the cookie in hex: "0x0018:".
            if not words or not re.fullmatch(r"0x[0-9a-f]+:", words[0]):
                continue
            cookie = int(words[0][:-1], 16)
            counts = [int(w) for w in words[1:1 + len(later.get(cookie, []))]]
            if cookie not in later or any(a > b for a, b in zip(counts, later[cookie])):
                self.fail("irqinfo", "cookie %d: ours %s, /proc/interrupts %s" % (cookie, counts, later.get(cookie)))
            rows += 1
        if rows != len(later):
            self.fail("irqinfo", "%d cookies, /proc/interrupts has %d" % (rows, len(later)))
        return "%d cookies" % rows

    # "kernel options": the BOOT_IMAGE= value or the running release's image,
    # then the other words of /proc/cmdline; the other boot items succeed empty.
    def boot(self, cmdline):
        status, text, err = self.ours("bootOption", "-a", "-k", "-m", "-o", "-b")
        if status != 0:
            return self.fail("bootOption", "exit %d: %s" % (status, err))
        words = re.findall(r'(?:[^\s"]+|"[^"]*")+', cmdline)
        images = [i for i, w in enumerate(words) if re.fullmatch(r'BOOT_IMAGE=("?)[^\s"]+\1', w)]
        kernel = words.pop(images[0])[11:].strip('"') if images else "/boot/vmlinuz-" + os.uname().release
        want = ["Kernel : " + kernel, "Options : " + " ".join(words)]
        got = [l for l in text.splitlines() if l.startswith(("Kernel : ", "Options : "))]
        if got != want:
            self.fail("bootOption", "ours %r, /proc/cmdline gives %r" % (got, want))
        return "kernel %s, %d options" % (kernel, len(words))

    # zdu in the simulator, on this machine: the files written under /dev/shm
    # before the capture, with their sizes, under the ram disk /dev/shm.
    def zdu(self, shm):
        if not shm:
            raise Skip(SHM + " is not a tmpfs mount here")
        blob = os.path.join(shm, "sub", "blob")
        env = dict(os.environ, ZLC_SIMULATOR=self.snapshot)
        result = subprocess.run([self.args.zlcziftools, "zdu", "-a", shm], capture_output=True, env=env, timeout=60)
        label = "%38s: " % ("ramdisk " + SHM)
        size = os.lstat(blob).st_size
        want = "For '%s':\n%s%12d\nFor '%s':\n%s%12d\t\t(    2 inodes)\nFor '%s':\n%s%12d\t\t(    3 inodes)\n" % (
            blob, label, size, os.path.dirname(blob), label, size, shm, label, size)
        if (result.returncode, result.stdout.decode(), result.stderr) != (0, want, b""):
            self.fail("zdu", "exit %d, ours:\n%s%s\nwanted:\n%s" % (
                result.returncode, result.stdout.decode(), result.stderr.decode(), want))
        return "%s: %d bytes in 3 inodes" % (shm, size)

    @staticmethod
    def shm_files():
        """A directory of files under /dev/shm when that is a tmpfs mount, else None."""
        with open("/proc/self/mountinfo") as f:
            tmpfs = any(l.split(" - ")[0].split()[4] == SHM and l.split(" - ")[1].split()[0] == "tmpfs"
                        for l in f if " - " in l)
        if not tmpfs:
            return None
        shm = tempfile.mkdtemp(prefix="zifdiff-", dir=SHM)
        os.mkdir(os.path.join(shm, "sub"))
        with open(os.path.join(shm, "sub", "blob"), "wb") as f:
            f.write(b"z" * 123457)
        return shm

    @staticmethod
    def procps(path):
        threads = {}
        if path:
            text = subprocess.run([path, "-eLo", "tid=,pid=,ppid=,comm="], capture_output=True).stdout
            for line in text.decode().splitlines():
                tid, pid, ppid, comm = line.split(None, 3)
                # Kernel threads are kthreadd (2) and its children.
                kernel = int(pid) == 2 or int(ppid) == 2
                threads[int(tid)] = (int(pid), int(ppid), comm, kernel)
        return threads

    def run(self):
        # Two processes of a name of our own, for pidof and pgrep.
        name = "zifdiff%d" % os.getpid()
        program = os.path.join(self.tmp, name)
        shutil.copy(shutil.which("sleep"), program)
        sleepers = [subprocess.Popen([program, "300"]) for _ in range(2)]
        shm = None
        try:
            shm = self.shm_files()
            time.sleep(0.1)
            # procps is read before and after the capture: threads that
            # changed in between (exec, exit, renaming) are not compared.
            procps = shutil.which("ps")
            before = self.procps(procps)
            result = subprocess.run([self.args.zifcache, "capture", self.snapshot], capture_output=True, timeout=60)
            if result.returncode != 0:
                print("FAIL: capture exited %d: %s" % (result.returncode, result.stderr.decode()))
                return 1
            # The independent views, right after the capture.
            interrupts, uptime, cmdline = (open("/proc/" + name).read() for name in ("interrupts", "uptime", "cmdline"))
            seconds = float(uptime.split()[0])
            after = self.procps(procps)
            threads = {tid: v for tid, v in after.items() if before.get(tid) == v}
            lspci = shutil.which("lspci")
            numeric = subprocess.run([lspci, "-n", "-D"], capture_output=True).stdout.decode() if lspci else None
            verbose = subprocess.run([lspci, "-D", "-vmm"], capture_output=True).stdout.decode() if lspci else None

            checks = [
                ("worlds against procps ps", lambda: self.worlds(threads) if procps else self.tool("ps")),
                ("pidof and pgrep against procps", lambda: self.lookups(name)),
                ("lspci against pciutils", lambda: self.pci(numeric, verbose) if lspci else self.tool("lspci")),
                ("amldump against " + TABLES, self.acpi),
                ("uptime against /proc/uptime", lambda: self.uptime(seconds)),
                ("irqinfo against /proc/interrupts", lambda: self.interrupts(interrupts)),
                ("bootOption against /proc/cmdline", lambda: self.boot(cmdline)),
                ("zdu in the simulator against files under " + SHM, lambda: self.zdu(shm)),
            ]
            ran = 0
            for title, check in checks:
                before = len(self.failures)
                try:
                    summary = check()
                except Skip as why:
                    print("SKIP: %s: %s" % (title, why))
                    continue
                ran += 1
                print("%s: %s: %s" % ("FAIL" if len(self.failures) > before else "ok", title, summary or ""))
        finally:
            for s in sleepers:
                s.kill()
                s.wait()
            if shm:
                shutil.rmtree(shm)
        for failure in self.failures:
            print("FAIL: " + failure)
        if self.failures:
            return 1
        return 0 if ran else 77


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--zlcziftools", required=True)
    parser.add_argument("--zifcache", required=True)
    args = parser.parse_args()
    args.zlcziftools = os.path.abspath(args.zlcziftools)
    args.zifcache = os.path.abspath(args.zifcache)
    with tempfile.TemporaryDirectory() as tmp:
        return Differential(args, tmp).run()


if __name__ == "__main__":
    sys.exit(main())
