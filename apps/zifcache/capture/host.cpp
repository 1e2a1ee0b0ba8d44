// Host-wide values: uptime, load averages, PCPU count, kernel version, the
// hardware clock, the boot command line and the boot flags.
#include "parts.h"
#include "procfs.h"

#include <sys/utsname.h>
#include <cmath>
#include <ctime>

namespace capture {
namespace {

constexpr int64_t kRootGroup = 0;  // the load history nodes are read for scheduler group 0

uint32_t OnlineCpus(Capture &c) {
   if (auto list = ReadLine(c.Sys("devices/system/cpu/online"))) {
      if (auto n = CountCpuList(*list); n && *n > 0) {
         return *n;
      }
   }
   throw PartError("cannot read the online CPUs from " + c.Sys("devices/system/cpu/online"));
}

void PutClock(Capture &c) {
   // The first RTC keeps UTC on Linux hosts; without one, the system clock in UTC.
   std::optional<RtcTime> rtc;
   if (auto names = ListDir(c.Sys("class/rtc")); names && !names->empty()) {
      std::string dir = c.Sys("class/rtc/" + names->front());
      auto date = ReadLine(dir + "/date");
      auto time = ReadLine(dir + "/time");
      if (date && time) {
         rtc = ParseRtc(*date, *time);
      }
   }
   if (!rtc) {
      std::time_t now = std::time(nullptr);
      std::tm tm{};
      gmtime_r(&now, &tm);
      rtc = RtcTime{tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
      c.Note("host: no readable RTC; the clock is the system clock in UTC");
   }
   Record rec("hardware_chipset_rtc");
   rec.SetSigned("hour", rtc->hour)
         .SetSigned("minute", rtc->minute)
         .SetSigned("second", rtc->second)
         .SetSigned("day", rtc->day)
         .SetSigned("month", rtc->month)
         .SetSigned("year", rtc->year);
   c.Put(rec, {});
}

void PutVersion(Capture &c) {
   utsname u{};
   if (uname(&u) != 0) {
      throw PartError("uname failed");
   }
   Record rec("system_version");
   rec.Text("product", u.sysname)
         .Text("version", u.release)
         .Text("releaseLevel", "Release")
         .Text("update", "0")
         .SetSigned("build", ParseBuildNumber(u.version));
   c.Put(rec, {});
}

// "kernel options": /proc/cmdline names the kernel only when the boot loader
// passed BOOT_IMAGE=.
void PutBootCmdLine(Capture &c) {
   auto cmdline = ReadLine(c.Proc("cmdline"));
   if (!cmdline) {
      throw PartError("cannot read " + c.Proc("cmdline"));
   }
   utsname u{};
   uname(&u);
   Record boot("system_bootCmdLine");
   boot.Text("cmdLine", ComposeBootCmdLine(*cmdline, u.release));
   c.Put(boot, {}, true);
}

}  // namespace

void CaptureHost(Capture &c) {
   auto uptimeText = ReadFile(c.Proc("uptime"), 4096);
   auto uptime = uptimeText ? ParseUptime(*uptimeText) : std::nullopt;
   if (!uptime) {
      throw PartError("cannot read " + c.Proc("uptime"));
   }
   auto loadText = ReadFile(c.Proc("loadavg"), 4096);
   auto loads = loadText ? ParseLoadavg(*loadText) : std::nullopt;
   if (!loads) {
      throw PartError("cannot read " + c.Proc("loadavg"));
   }

   uint64_t seconds = static_cast<uint64_t>(*uptime);
   Record up("system_ntpclock_upTime");
   up.Set("seconds", seconds & 0xffffffffu).Set("secondsHigh", seconds >> 32);
   c.Put(up, {});

   Record cpus("sched_globalStats_numPcpus");
   cpus.Set("numPcpus", OnlineCpus(c));
   c.Put(cpus, {});

   // Linux's load average counts runnable tasks; one fully busy CPU is 1.0,
   // which is 100 in the load history records.
   const char *nodes[3] = {"sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory1MinInPct",
                           "sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory5MinInPct",
                           "sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory15MinInPct"};
   for (int i = 0; i < 3; i++) {
      Record load(nodes[i]);
      load.Set("loadPct", static_cast<uint32_t>(std::llround(std::min((*loads)[i] * 100.0, 4294967295.0))));
      c.Put(load, {IntKey(kRootGroup)});
   }

   c.Try("host", [&] { PutVersion(c); });
   c.Try("host", [&] { PutClock(c); });
   c.Try("host", [&] { PutBootCmdLine(c); });
   // Linux has no audit, file-system check or rollback boot modes, and does
   // not say whether it booted over the network: the flags stay clear. Nor
   // has it boot option files: their list is empty, not missing.
   c.Try("host", [&] {
      Record flags("system_bootOption");
      c.Put(flags, {});
      Record mac("system_bootMAC");
      c.Put(mac, {});
      c.List("system_bootOptionFiles", {}, {});
   });
}

}  // namespace capture
