#!/usr/bin/env python3
"""Writes the host tree that capture.cases.json captures: a small Linux host
as /proc and /sys show it (processes and threads, a zombie, a second PID
namespace, PCI functions behind a bridge, ACPI tables and devices,
interrupts) and the files of its ram disks. CTest makes it in a scratch
directory before the capture cases run:

    python3 tests/capture/make_fixture.py DIR

Links that name a directory of the host (working directories, an open
directory) point into DIR, never out of it, so a tool that follows links
stays inside; `zifcache capture --root DIR` reads them as the host paths.
"""

import os
import shutil
import struct
import sys

KTHREAD = 0x00200000
HZ = 100  # clock ticks per second of the stat files


def write(path, data):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    with open(path, "wb") as f:
        f.write(data if isinstance(data, bytes) else data.encode())


def link(path, target):
    os.makedirs(os.path.dirname(path), exist_ok=True)
    os.symlink(target, path)


def stat_line(pid, comm, state, ppid, pgrp, session, flags, utime, stime):
    return "%d (%s) %s %d %d %d 0 -1 %d 100 0 0 0 %d %d 0 0 20 0 1 0 50 1000 10\n" % (
        pid, comm, state, ppid, pgrp, session, flags, utime, stime)


def status_text(name, tgid, pid, nspids, cpus):
    return "Name:\t%s\nState:\tS (sleeping)\nTgid:\t%d\nPid:\t%d\nNSpid:\t%s\nCpus_allowed:\tf\nCpus_allowed_list:\t%s\n" % (
        name, tgid, pid, "\t".join(str(p) for p in nspids), cpus)


def inside(root, path):
    """The directory of the host path inside the tree, made if missing."""
    full = os.path.join(root, path.lstrip("/"))
    os.makedirs(full, exist_ok=True)
    return full


def process(root, pid, comm, ppid, threads=(), state="S", kernel=False, cmdline=b"", nspids=None, ns="4026531836",
            pgrp=None, session=None, cwd="/srv", fds=(), maps="", utime=0, stime=0):
    base = os.path.join(root, "proc", str(pid))
    flags = KTHREAD if kernel else 0x400000
    pgrp = pid if pgrp is None else pgrp
    session = pid if session is None else session
    nspids = nspids or [pid]
    for tid, tcomm, tstate, tut, tst in [(pid, comm, state, utime, stime)] + list(threads):
        line = stat_line(tid, tcomm, tstate, ppid, pgrp, session, flags, tut, tst)
        status = status_text(tcomm, pid, tid, [tid] + nspids[1:] if tid != pid else nspids, "0-3")
        if tid == pid:
            write(os.path.join(base, "stat"), line)
            write(os.path.join(base, "status"), status)
        write(os.path.join(base, "task", str(tid), "stat"), line)
        write(os.path.join(base, "task", str(tid), "status"), status)
    write(os.path.join(base, "cmdline"), cmdline)
    if not kernel:
        link(os.path.join(base, "ns", "pid"), "pid:[%s]" % ns)
        link(os.path.join(base, "cwd"), inside(root, cwd))
        os.makedirs(os.path.join(base, "fd"), exist_ok=True)
        for number, target in fds:
            link(os.path.join(base, "fd", str(number)), target)
        write(os.path.join(base, "maps"), maps)


def config_space(vendor, device, cls, header_type=0, pin=0, line=0, secondary=0, subordinate=0, size=256):
    space = bytearray(size)
    struct.pack_into("<HH", space, 0, vendor, device)
    space[0x09:0x0c] = bytes([cls & 0xff, (cls >> 8) & 0xff, (cls >> 16) & 0xff])
    space[0x0e] = header_type
    if header_type == 1:
        space[0x19] = secondary
        space[0x1a] = subordinate
    space[0x3c] = line
    space[0x3d] = pin
    if size > 256:
        space[0x100:0x104] = b"\x01\x00\x01\x00"
    return bytes(space)


def pci_function(root, address, vendor, device, cls, subv=0, subd=0, irq=0, driver=None, module=None, **config):
    base = os.path.join(root, "sys", "bus", "pci", "devices", address)
    write(os.path.join(base, "config"), config_space(vendor, device, cls, **config))
    write(os.path.join(base, "vendor"), "0x%04x\n" % vendor)
    write(os.path.join(base, "device"), "0x%04x\n" % device)
    write(os.path.join(base, "subsystem_vendor"), "0x%04x\n" % subv)
    write(os.path.join(base, "subsystem_device"), "0x%04x\n" % subd)
    write(os.path.join(base, "class"), "0x%06x\n" % cls)
    write(os.path.join(base, "irq"), "%d\n" % irq)
    if driver:
        drivers = os.path.join(root, "sys", "bus", "pci", "drivers", driver)
        os.makedirs(drivers, exist_ok=True)
        if module and not os.path.lexists(os.path.join(drivers, "module")):
            link(os.path.join(drivers, "module"), "../../../../module/" + module)
        link(os.path.join(base, "driver"), "../../drivers/" + driver)


def acpi_table(signature, body, revision=2):
    length = 36 + len(body)
    header = struct.pack("<4sIBB6s8sI4sI", signature.encode(), length, revision, 0, b"FIXTUR", b"FIXTURE1", 1,
                         b"TEST", 1)
    data = bytearray(header + body)
    data[9] = (-sum(data)) & 0xff
    return bytes(data)


def acpi_device(root, path, name, acpi_path, hid=None, uid=None, cids=(), driver=None):
    base = os.path.join(root, "sys", "devices", *path, name)
    write(os.path.join(base, "path"), acpi_path + "\n")
    link(os.path.join(base, "subsystem"), "../../../bus/acpi")
    if hid:
        write(os.path.join(base, "hid"), hid + "\n")
        write(os.path.join(base, "modalias"), "acpi:" + ":".join([hid] + list(cids)) + ":\n")
    if uid is not None:
        write(os.path.join(base, "uid"), uid + "\n")
    if driver:
        link(os.path.join(base, "driver"), "../../../../bus/acpi/drivers/" + driver)
    return list(path) + [name]


def main(root):
    root = os.path.realpath(root)
    shutil.rmtree(root, ignore_errors=True)
    # Processes: init with a clone, a shell with a zombie child, kernel
    # threads, a container whose init starts a second PID namespace, and a
    # program whose name holds a blank and a parenthesis.
    process(root, 1, "init", 0, threads=[(7, "init-log", "S", 3, 1)], cmdline=b"/sbin/init\0splash\0",
            fds=[(0, "/dev/null"), (1, "socket:[1234]"), (2, "pipe:[99]"), (5, "anon_inode:[eventfd]"),
                 (6, inside(root, "/srv"))],
            maps="5600-5700 r-xp 00000000 fe:00 12 /sbin/init\n"
                 "5700-5800 rw-p 00001000 fe:00 12 /sbin/init\n"
                 "7f00-7f10 rw-p 00000000 00:00 0 \n"
                 "7ff0-8000 rw-p 00000000 00:00 0 [stack]\n"
                 "9000-9800 r--s 00000000 00:05 77 /dev/shm/a file (deleted)\n",
            utime=250, stime=50)
    process(root, 2, "kthreadd", 0, kernel=True, pgrp=0, session=0)
    process(root, 3, "kworker/0:0", 2, kernel=True, state="I", pgrp=0, session=0)
    process(root, 100, "bash", 1, cmdline=b"-bash\0", cwd="/root", state="R", utime=12, stime=3)
    process(root, 120, "sleep", 100, state="Z", pgrp=120, session=100)
    process(root, 130, "worker", 100, threads=[(131, "worker", "D", 0, 0), (132, "worker", "T", 0, 0)],
            cmdline=b"/usr/bin/worker\0--jobs\0002\0", pgrp=130, session=100)
    process(root, 300, "cinit", 100, cmdline=b"/cinit\0", nspids=[300, 1], ns="4026532000", session=300)
    process(root, 301, "app", 300, cmdline=b"/app\0", nspids=[301, 2], ns="4026532000", pgrp=300, session=300)
    process(root, 302, "old", 300, state="Z", nspids=[302, 3], ns="4026532000", pgrp=300, session=300)
    process(root, 400, "my )proc", 1, cmdline=b"./my )proc\0", pgrp=400, session=400)

    write(os.path.join(root, "proc", "uptime"), "93784.56 300000.00\n")
    write(os.path.join(root, "proc", "loadavg"), "0.52 1.75 12.08 2/150 401\n")
    write(os.path.join(root, "proc", "cmdline"), "BOOT_IMAGE=/vmlinuz root=/dev/vda ro quiet\n")
    write(os.path.join(root, "proc", "modules"),
          "virtio_net 61440 0 - Live 0x0000000000000000\nahci 49152 1 - Live 0x0000000000000000\n")
    write(os.path.join(root, "proc", "interrupts"),
          "           CPU0       CPU1       CPU2       CPU3       \n"
          "  0:         45          0          0          0   IO-APIC   2-edge      timer\n"
          "  9:          0          3          0          0   IO-APIC   9-fasteoi   acpi\n"
          " 24:       1000       2000       3000       4000  PCI-MSI 512000-edge      ahci[0000:00:1f.2], virtio0-input\n"
          " 25:          0          0          0          0  PCI-MSI 512001-edge\n"
          "NMI:          0          0          0          0   Non-maskable interrupts\n"
          "LOC:     513643     504754     1000       2000   Local timer interrupts\n"
          "ERR:          0\n")
    write(os.path.join(root, "proc", "self", "mountinfo"),
          "21 26 0:20 / /proc rw,relatime - proc proc rw\n"
          "26 1 254:0 / / rw,relatime - ext4 /dev/vda rw\n"
          "30 26 0:25 / /dev/shm rw,nosuid,nodev - tmpfs tmpfs rw,size=65536k\n"
          "31 26 0:26 / /run rw,nosuid - tmpfs tmpfs rw,size=32768k\n"
          "32 31 0:27 / /run/lock rw,nosuid - tmpfs tmpfs rw,size=5120k\n")
    # Ram disk files: one entry per directory, so that zdu's blocks come in
    # one order; /run holds only the mount point of /run/lock.
    write(os.path.join(root, "dev", "shm", "pool", "blob"), b"z" * 1234)
    write(os.path.join(root, "dev", "shm", "empty"), b"")
    write(os.path.join(root, "run", "lock", "x.pid"), "4242\n")
    write(os.path.join(root, "sys", "devices", "system", "cpu", "online"), "0-3\n")

    pci_function(root, "0000:00:00.0", 0x8086, 0x1237, 0x060000)
    pci_function(root, "0000:00:01.0", 0x8086, 0x244e, 0x060400, header_type=1, secondary=1, subordinate=2,
                 pin=1, line=11, irq=11, driver="pcieport")
    pci_function(root, "0000:00:1f.0", 0x8086, 0x2918, 0x060100, driver="lpc_ich", module="lpc_ich")
    pci_function(root, "0000:00:1f.2", 0x8086, 0x2922, 0x010601, subv=0x1af4, subd=0x1100, pin=1, line=10, irq=24,
                 driver="ahci", module="ahci", size=4096)
    pci_function(root, "0000:01:00.0", 0x1af4, 0x1041, 0x020000, subv=0x1af4, subd=0x0001, pin=1, line=5, irq=0,
                 driver="vfio-pci", size=4096)
    pci_function(root, "0000:01:00.1", 0x1af4, 0x1041, 0x020000, subv=0x1af4, subd=0x0001, driver="virtio-pci",
                 module="virtio_pci")
    write(os.path.join(root, "sys", "bus", "pci", "slots", "7", "address"), "0000:01:00\n")

    tables = os.path.join(root, "sys", "firmware", "acpi", "tables")
    write(os.path.join(tables, "DSDT"), acpi_table("DSDT", bytes(range(256)) * 3))
    write(os.path.join(tables, "FACP"), acpi_table("FACP", b"\x00" * 80))
    write(os.path.join(tables, "SSDT1"), acpi_table("SSDT", b"first"))
    write(os.path.join(tables, "SSDT2"), acpi_table("SSDT", b"second"))
    write(os.path.join(tables, "dynamic", "SSDT10"), acpi_table("SSDT", b"loaded later"))
    write(os.path.join(tables, "data", "BERT"), b"raw error records, not a table")
    write(os.path.join(tables, "data", "MSDM"), acpi_table("MSDM", b"x" * 20))

    acpi_root = ["LNXSYSTM:00"]
    write(os.path.join(root, "sys", "devices", "LNXSYSTM:00", "path"), "\\\n")
    write(os.path.join(root, "sys", "devices", "LNXSYSTM:00", "hid"), "LNXSYSTM\n")
    bus = acpi_device(root, acpi_root, "LNXSYBUS:00", "\\_SB_", hid="LNXSYBUS")
    pci0 = acpi_device(root, bus, "PNP0A08:00", "\\_SB_.PCI0", hid="PNP0A08", uid="0", cids=["PNP0A03"])
    acpi_device(root, pci0, "device:01", "\\_SB_.PCI0.S08_")
    lpc = acpi_device(root, pci0, "device:02", "\\_SB_.PCI0.LPC_")
    acpi_device(root, lpc, "PNP0501:00", "\\_SB_.PCI0.LPC_.UAR1", hid="PNP0501", uid="1", driver="serial")
    acpi_device(root, acpi_root, "LNXPWRBN:00", "\\_PWRB", hid="LNXPWRBN", driver="button")
    # Not ACPI devices: a plain directory and the power attributes.
    os.makedirs(os.path.join(root, "sys", "devices", "LNXSYSTM:00", "power"))
    link(os.path.join(root, "sys", "devices", "LNXSYSTM:00", "LNXSYBUS:00", "physical_node"), "../../pci0000:00")


if __name__ == "__main__":
    if len(sys.argv) != 2:
        sys.exit("usage: make_fixture.py DIR")
    main(sys.argv[1])
