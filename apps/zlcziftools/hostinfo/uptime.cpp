// uptime: the local time of day, how long the host has been up, and the load
// averages over 1, 5 and 15 minutes as fractions of the host's whole CPU
// capacity (100% per physical CPU), not run-queue lengths.
//
// Arguments are accepted and ignored. The exit status is the status of the
// sysinfo read that failed, so a script can tell what went wrong.
#include <cstdint>
#include <cstdio>
#include <ctime>

#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

void PrintTimeOfDay() {
   std::time_t now = std::time(nullptr);
   const std::tm *local = std::localtime(&now);
   if (local == nullptr) {
      std::printf(" %2d:%02d:%02d ", 0, 0, 0);
      return;
   }
   std::printf(" %2d:%02d:%02d ", local->tm_hour, local->tm_min, local->tm_sec);
}

void PrintUptime(std::uint32_t uptime) {
   const unsigned seconds = uptime % 60;
   const unsigned minutes = (uptime / 60) % 60;
   const unsigned hours = (uptime / 3600) % 24;
   const unsigned days = uptime / 86400;
   std::printf("up ");
   if (uptime < 86400) {
      std::printf("%02d:%02d:%02d, ", hours, minutes, seconds);
   } else {
      std::printf("%d days, %02d:%02d:%02d, ", days, hours, minutes, seconds);
   }
}

// Load over the node's period as a fraction of all physical CPUs, computed in
// single precision.
float ScaleLoad(std::uint32_t loadPct, std::uint32_t numPcpus) {
   const std::uint32_t capacity = numPcpus * 100u;
   return static_cast<float>(loadPct) / static_cast<float>(capacity);
}

template <typename LoadRecord>
ZLC_ReturnStatus ReadLoad(ZIF_ParamList *group, const char *failure, std::uint32_t &loadPct) {
   LoadRecord record;
   ZLC_ReturnStatus status = sysinfo::GetRecord(record, group);
   if (status != 0) {
      std::fputs(failure, stderr);
      return status;
   }
   loadPct = record.loadPct();
   return 0;
}

ZLC_ReturnStatus PrintLoadAverage() {
   rec::sched_globalStats_numPcpus pcpus;
   ZLC_ReturnStatus status = sysinfo::GetRecord(pcpus, nullptr);
   if (status != 0) {
      std::fputs("Failed to get number of pcups.\n", stderr);
      return status;
   }
   const std::uint32_t numPcpus = pcpus.numPcpus();

   sysinfo::ParamListPtr group = sysinfo::MakeQueryList();
   if (!group) {
      std::fputs("Failed to allocate inputparam.\n", stderr);
      return ZLC_NO_MEMORY;
   }
   status = ZIF_ParamListAddInt(group.get(), 0);
   if (status != 0) {
      std::fputs("Failed to add inputparams.\n", stderr);
      return status;
   }

   std::uint32_t load1 = 0;
   std::uint32_t load5 = 0;
   std::uint32_t load15 = 0;
   using namespace rec;
   if ((status = ReadLoad<sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory1MinInPct>(
              group.get(), "Failed to get 1 minute cpu load history.\n", load1)) != 0 ||
       (status = ReadLoad<sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory5MinInPct>(
              group.get(), "Failed to get 5 minute cpu load history.\n", load5)) != 0 ||
       (status = ReadLoad<sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory15MinInPct>(
              group.get(), "Failed to get 15 minute cpu load history.\n", load15)) != 0) {
      return status;
   }

   std::printf("load average: %.2f, %.2f, %.2f\n", static_cast<double>(ScaleLoad(load1, numPcpus)),
               static_cast<double>(ScaleLoad(load5, numPcpus)), static_cast<double>(ScaleLoad(load15, numPcpus)));
   return 0;
}

}  // namespace

int UptimeMain(int, char **) {
   PrintTimeOfDay();

   rec::system_ntpclock_upTime uptime;
   ZLC_ReturnStatus status = sysinfo::GetRecord(uptime, nullptr);
   if (status != 0) {
      std::fflush(stdout);
      std::fputs("Failed to get ntpclock_uptime.\n", stderr);
      return static_cast<int>(status);
   }
   PrintUptime(uptime.seconds());
   return static_cast<int>(PrintLoadAverage());
}
