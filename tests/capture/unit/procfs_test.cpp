// The capture's parsers of /proc and /sys text, on the texts Linux writes and
// on the odd ones it may write.
#include "capture/procfs.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace capture;
using ::testing::ElementsAre;

TEST(ParseStat, NameWithBlanksAndParenthesesEndsAtTheLastOne) {
   auto st = ParseStat("400 (my ) (proc) S 1 400 401 0 -1 4194304 10 0 0 0 25 7 0 0 20 0 1 0 50 1000 10\n");
   ASSERT_TRUE(st);
   EXPECT_EQ(st->pid, 400);
   EXPECT_EQ(st->comm, "my ) (proc");
   EXPECT_EQ(st->state, 'S');
   EXPECT_EQ(st->ppid, 1);
   EXPECT_EQ(st->pgrp, 400);
   EXPECT_EQ(st->session, 401);
   EXPECT_EQ(st->flags, 4194304u);
   EXPECT_EQ(st->utime, 25u);
   EXPECT_EQ(st->stime, 7u);
}

TEST(ParseStat, KernelThreadFlagAndTruncatedLines) {
   auto st = ParseStat("2 (kthreadd) S 0 0 0 0 -1 2129984 0 0 0 0 0 3 0 0");
   ASSERT_TRUE(st);
   EXPECT_NE(st->flags & kLinuxKernelThreadFlag, 0u);
   EXPECT_FALSE(ParseStat("2 (kthreadd) S 0 0 0 0 -1 2129984 0 0 0 0 0"));
   EXPECT_FALSE(ParseStat("2 kthreadd S 0 0 0"));
   EXPECT_FALSE(ParseStat("x (a) S 0 0 0 0 -1 0 0 0 0 0 0 0"));
   EXPECT_FALSE(ParseStat("1 (a) SS 0 0 0 0 -1 0 0 0 0 0 0 0"));
   EXPECT_FALSE(ParseStat(")2 (("));
}

TEST(ParseStatus, NamespacePidsAndAllowedCpus) {
   auto st = ParseStatus("Name:\tapp\nTgid:\t301\nNSpid:\t301\t2\nCpus_allowed:\tf\nCpus_allowed_list:\t0-3,6\n");
   EXPECT_EQ(st.tgid, 301);
   EXPECT_THAT(st.nsPids, ElementsAre(301, 2));
   EXPECT_EQ(st.cpusAllowedList, "0-3,6");
   EXPECT_TRUE(ParseStatus("garbage without colons").nsPids.empty());
}

TEST(ParseMaps, PathsWithBlanksAnonymousMappingsAndBadLines) {
   auto maps = ParseMaps(
         "5600-5700 r-xp 00000000 fe:00 12    /usr/bin/a b\n"
         "7f00-7f10 rw-p 00000000 00:00 0 \n"
         "7ff0-8000 rw-p 00000000 00:00 0                          [stack]\n"
         "9000-8000 rw-p 00000000 00:00 0 /bad/range\n"
         "nonsense\n"
         "a000-b000 -w-s 00000000 00:05 77 /dev/shm/x (deleted)");
   ASSERT_EQ(maps.size(), 4u);
   EXPECT_EQ(maps[0].path, "/usr/bin/a b");
   EXPECT_EQ(maps[0].end - maps[0].start, 0x100u);
   EXPECT_TRUE(maps[0].readable && maps[0].executable && !maps[0].writable);
   EXPECT_EQ(maps[1].path, "");
   EXPECT_EQ(maps[2].path, "[stack]");
   EXPECT_EQ(maps[3].path, "/dev/shm/x (deleted)");
   EXPECT_TRUE(!maps[3].readable && maps[3].writable);
}

TEST(ParseInterrupts, NumberedLinesCountsAndDevices) {
   auto irqs = ParseInterrupts(
         "           CPU0       CPU1       \n"
         "  0:         45          0   IO-APIC   2-edge      timer\n"
         " 24:       1000       2000  PCI-MSI 512000-edge      ahci[0000:00:1f.2], virtio0-input\n"
         " 28:          0          0 PCI-MSIX-0000:00:01.0   0-edge      virtio0-config\n"
         " 25:          0          0  PCI-MSI 512001-edge\n"
         "  7:          5\n"
         "NMI:          0          0   Non-maskable interrupts\n"
         "ERR:          0\n");
   ASSERT_TRUE(irqs);
   EXPECT_EQ(irqs->cpus, 2u);
   ASSERT_EQ(irqs->lines.size(), 5u);
   EXPECT_EQ(irqs->lines[0].irq, 0u);
   EXPECT_THAT(irqs->lines[0].counts, ElementsAre(45u, 0u));
   EXPECT_THAT(irqs->lines[0].devices, ElementsAre("timer"));
   EXPECT_THAT(irqs->lines[1].devices, ElementsAre("ahci[0000:00:1f.2]", "virtio0-input"));
   EXPECT_THAT(irqs->lines[2].devices, ElementsAre("virtio0-config"));
   EXPECT_TRUE(irqs->lines[3].devices.empty());
   EXPECT_THAT(irqs->lines[4].counts, ElementsAre(5u, 0u));  // a short line is padded with zeros
   EXPECT_FALSE(ParseInterrupts(""));
}

TEST(SmallFiles, UptimeLoadsCpuListsAndNumbers) {
   EXPECT_DOUBLE_EQ(*ParseUptime("93784.56 300000.00\n"), 93784.56);
   EXPECT_FALSE(ParseUptime("-1 0"));
   EXPECT_FALSE(ParseUptime("nan 0"));
   auto loads = ParseLoadavg("0.52 1.75 12.08 2/150 401\n");
   ASSERT_TRUE(loads);
   EXPECT_DOUBLE_EQ((*loads)[2], 12.08);
   EXPECT_FALSE(ParseLoadavg("0.52 1.75"));

   EXPECT_EQ(CountCpuList("0-3,6,8-9\n"), 7u);
   EXPECT_EQ(CountCpuList("0"), 1u);
   EXPECT_EQ(CountCpuList(""), 0u);
   EXPECT_FALSE(CountCpuList("3-1"));
   EXPECT_FALSE(CountCpuList("0-4294967295,0-4294967295"));
   EXPECT_FALSE(CountCpuList("a"));

   EXPECT_EQ(ParseNumber("0x8086\n"), 0x8086u);
   EXPECT_EQ(ParseNumber("24"), 24u);
   EXPECT_FALSE(ParseNumber("0x"));
   EXPECT_FALSE(ParseNumber("12ab"));
   EXPECT_EQ(ParseBuildNumber("#17 SMP PREEMPT_DYNAMIC Debian"), 17);
   EXPECT_EQ(ParseBuildNumber("SMP #17"), 0);
   EXPECT_EQ(ParseBuildNumber("#99999999999"), 0);
}

TEST(ParseMountinfo, EscapesOptionalFieldsAndShortLines) {
   auto mounts = ParseMountinfo(
         "41 26 7:0 / /media/my\\040disk ro shared:5 master:1 - squashfs /dev/loop0 ro\n"
         "24 23 0:22 / /dev/shm rw - tmpfs tmpfs rw,size=1k\n"
         "25 23 0:22 / /no/separator rw tmpfs tmpfs\n"
         "short line\n"
         "26 23 0:22 / /trailing\\04 rw - tmpfs\n");
   ASSERT_EQ(mounts.size(), 3u);
   EXPECT_EQ(mounts[0].mountPoint, "/media/my disk");
   EXPECT_EQ(mounts[0].fsType, "squashfs");
   EXPECT_EQ(mounts[0].source, "/dev/loop0");
   EXPECT_EQ(mounts[1].mountPoint, "/dev/shm");
   EXPECT_EQ(mounts[2].mountPoint, "/trailing\\04");
}

TEST(ParseCgroupValue, NumbersAndMax) {
   EXPECT_TRUE(ParseCgroupValue("max\n")->unlimited);
   EXPECT_EQ(ParseCgroupValue("1048576\n")->bytes, 1048576u);
   EXPECT_FALSE(ParseCgroupValue("-1"));
   EXPECT_FALSE(ParseCgroupValue(""));
}

TEST(ParseRtc, DateAndTimeFiles) {
   auto t = ParseRtc("2026-11-23\n", "09:21:05\n");
   ASSERT_TRUE(t);
   EXPECT_EQ(t->year, 2026);
   EXPECT_EQ(t->month, 11);
   EXPECT_EQ(t->second, 5);
   EXPECT_FALSE(ParseRtc("2026/11/23", "09:21:05"));
   EXPECT_FALSE(ParseRtc("2026-11-23", "9:21:05"));
}

TEST(ComposeBootCmdLine, KernelBlankOptions) {
   const struct {
      const char *cmdline, *composed;
   } cases[] = {
         {"BOOT_IMAGE=/boot/vmlinuz-6.1.0 root=/dev/sda1 ro quiet", "/boot/vmlinuz-6.1.0 root=/dev/sda1 ro quiet"},
         // Where it stands, the first one only; the rest keeps its order.
         {"ro BOOT_IMAGE=(hd0,gpt2)/vmlinuz quiet BOOT_IMAGE=/x", "(hd0,gpt2)/vmlinuz ro quiet BOOT_IMAGE=/x"},
         {"BOOT_IMAGE=\"/vmlinuz\" ro", "/vmlinuz ro"},
         // No kernel named: the running release's image. A value that cannot
         // stand as the kernel stays among the options.
         {"console=tty0 quiet -- --init-arg", "/boot/vmlinuz-6.9.1-test console=tty0 quiet -- --init-arg"},
         {"BOOT_IMAGE= ro", "/boot/vmlinuz-6.9.1-test BOOT_IMAGE= ro"},
         {"BOOT_IMAGE=\"/a b\" ro", "/boot/vmlinuz-6.9.1-test BOOT_IMAGE=\"/a b\" ro"},
         // Blanks between words are one blank; quoted blanks stay.
         {"  a\t dyndbg=\"file x +p\"   b  ", "/boot/vmlinuz-6.9.1-test a dyndbg=\"file x +p\" b"},
         {"BOOT_IMAGE=/vmlinuz", "/vmlinuz"},
         {"", "/boot/vmlinuz-6.9.1-test"},
   };
   for (const auto &c : cases) {
      EXPECT_EQ(ComposeBootCmdLine(c.cmdline, "6.9.1-test"), c.composed) << c.cmdline;
   }
}
