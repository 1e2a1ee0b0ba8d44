// Parsers of the text files that /proc and /sys hand out. They take the
// file's bytes and never trust them: any text, however made, gives a result
// or nullopt, never a crash.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace capture {

// /proc/PID/task/TID/stat, the fields the capture uses.
struct TaskStat {
   int pid = 0;
   std::string comm;
   char state = '?';
   int ppid = 0, pgrp = 0, session = 0;
   uint32_t flags = 0;
   uint64_t utime = 0, stime = 0;  // clock ticks
};
inline constexpr uint32_t kLinuxKernelThreadFlag = 0x00200000;  // PF_KTHREAD
std::optional<TaskStat> ParseStat(std::string_view text);

// /proc/PID/task/TID/status, the fields the capture uses.
struct TaskStatus {
   int tgid = 0;
   std::vector<int> nsPids;  // outermost namespace first
   std::string cpusAllowedList;
};
TaskStatus ParseStatus(std::string_view text);

// One line of /proc/PID/maps.
struct Mapping {
   uint64_t start = 0, end = 0;
   bool readable = false, writable = false, executable = false;
   std::string path;  // empty for anonymous mappings
};
std::vector<Mapping> ParseMaps(std::string_view text);

// /proc/interrupts: the numbered lines only.
struct InterruptLine {
   uint32_t irq = 0;
   std::vector<uint64_t> counts;  // one per CPU column
   std::vector<std::string> devices;
};
struct Interrupts {
   uint32_t cpus = 0;
   std::vector<InterruptLine> lines;
};
std::optional<Interrupts> ParseInterrupts(std::string_view text);

// Module names of /proc/modules, in file order.
std::vector<std::string> ParseModules(std::string_view text);

// First number of /proc/uptime, in seconds.
std::optional<double> ParseUptime(std::string_view text);
// The three load averages of /proc/loadavg.
std::optional<std::array<double, 3>> ParseLoadavg(std::string_view text);

// Number of CPUs in a list such as "0-3,6,8-9"; nullopt when malformed.
std::optional<uint32_t> CountCpuList(std::string_view text);

// One line of /proc/self/mountinfo.
struct Mount {
   std::string mountPoint, fsType, source;
};
std::vector<Mount> ParseMountinfo(std::string_view text);

// A cgroup v2 memory limit in bytes: a number, or "max" (nullopt).
struct CgroupValue {
   bool unlimited = false;
   uint64_t bytes = 0;
};
std::optional<CgroupValue> ParseCgroupValue(std::string_view text);

// The boot command line as the boot command line record holds it: the
// kernel, a blank, then the options. The kernel is the value of the first
// BOOT_IMAGE= word of /proc/cmdline, which is then not among the options; else
// the image a boot loader names for the running release, /boot/vmlinuz-RELEASE.
// The options are the other words in order, one blank apart; a word keeps its
// quotes and the blanks inside them, as the kernel reads it.
std::string ComposeBootCmdLine(std::string_view procCmdline, std::string_view release);

// The number after '#' that starts the kernel's version string ("#1 SMP ...").
int32_t ParseBuildNumber(std::string_view version);

// /sys/class/rtc/rtcN/date ("2026-11-23") and time ("09:21:05").
struct RtcTime {
   int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
};
std::optional<RtcTime> ParseRtc(std::string_view date, std::string_view time);

// An unsigned number in decimal or with a 0x prefix, such as the IDs of
// /sys/bus/pci/devices/*/vendor.
std::optional<uint64_t> ParseNumber(std::string_view text);

}  // namespace capture
