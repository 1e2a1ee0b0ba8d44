// rpcfg: one memory resource pool group, named by its path with -g: tells
// whether it is empty (-e), waits for it to become empty (-w), prints its
// memory configuration and peaks as JSON (-i), or sizes it (-m).
//
// Scripts read the answer from the exit status: 0 done or empty, 1 usage or
// argument error or unknown group, 2 not empty, 3 time-out, 4 a sysinfo
// operation on the group failed. Every diagnostic goes to the system log and,
// at the same time, to standard error. -e outranks everything else; -w ignores
// -i; -i with -m prints the figures from before the new size. Options are
// acted on as they come, so -g is resolved before a later bad option is seen.
// A wait time too large for 64-bit microseconds waits as long as it can.
#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "groupwait.h"
#include "records.h"
#include "rpcfgargs.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "Memory resource pool operations\n"
      "rpcfg <options>\n"
      "      -e        Check if group is empty\n"
      "      -g path   Specify group path\n"
      "      -i        Print group configuration and stats\n"
      "      -m memMB  Size memory for the group\n"
      "      -w time   Time in seconds to poll and wait for group to become empty\n";

constexpr char kShortOptions[] = "eg:im:w:";

constexpr std::int64_t kNoGroup = -1;

enum RpcfgStatus { kDone = 0, kUsageError = 1, kNotEmpty = 2, kTimedOut = 3, kSysinfoFailed = 4 };

struct RpcfgOptions {
   std::int64_t groupId = kNoGroup;
   const char *groupName = "<not initialized>";
   bool check = false;
   bool info = false;
   bool memory = false;
   std::int32_t memoryMB = 0;
   bool wait = false;
   std::int64_t waitMicros = 0;
};

__attribute__((format(printf, 1, 2))) void LogMessage(const char *format, ...) {
   openlog("rpcfg", LOG_PERROR | LOG_NDELAY, LOG_DAEMON);
   va_list arguments;
   va_start(arguments, format);
   vsyslog(LOG_INFO, format, arguments);
   va_end(arguments);
   closelog();
}

// The group ID of a group path, through the path-to-ID node.
ZLC_ReturnStatus LookUpGroup(const char *path, std::int64_t &groupId) {
   sysinfo::ParamListPtr input = sysinfo::MakeParamList(0, 1);
   if (!input) {
      return ZLC_NO_MEMORY;
   }
   ZLC_ReturnStatus status = ZIF_ParamListAddString(input.get(), path);
   if (status != 0) {
      return status;
   }
   std::int64_t answer = 0;
   status = ZIF_Set(sysinfo::Node(ZIF_NODE_sched_groupPathNameToID), nullptr, input.get(), &answer, sizeof answer);
   if (status == 0) {
      groupId = answer;
   }
   return status;
}

// A query list holding the group ID.
ZLC_ReturnStatus MakeGroupQuery(std::int64_t groupId, sysinfo::ParamListPtr &query) {
   query = sysinfo::MakeQueryList();
   if (!query) {
      return ZLC_NO_MEMORY;
   }
   return ZIF_ParamListAddInt(query.get(), groupId);
}

// The number of child groups of a group; count is written only on success.
ZLC_ReturnStatus CountChildGroups(std::int64_t groupId, std::uint32_t &count) {
   sysinfo::ParamListPtr query;
   ZLC_ReturnStatus status = MakeGroupQuery(groupId, query);
   if (status != 0) {
      return status;
   }
   ZIF_ParamList *raw = nullptr;
   status = ZIF_GetInstanceListAlloc(sysinfo::Node(ZIF_NODE_sched_groups_members_groups), query.get(), &raw);
   if (status != 0) {
      return status;
   }
   const sysinfo::ParamListPtr children(raw);
   count = ZIF_ParamListNumInstances(children.get());
   return 0;
}

std::uint64_t KBToMBRoundedUp(std::uint64_t kb) {
   return (kb + 1023) / 1024;
}

ZLC_ReturnStatus PrintGroupStats(std::int64_t groupId) {
   sysinfo::ParamListPtr query;
   ZLC_ReturnStatus status = MakeGroupQuery(groupId, query);
   if (status != 0) {
      return status;
   }
   rec::sched_groups_memAllocationInMB allocation;
   status = sysinfo::GetRecord(allocation, query.get());
   if (status != 0) {
      return status;
   }
   rec::sched_groups_stats_memoryStats stats;
   status = sysinfo::GetRecord(stats, query.get());
   if (status != 0) {
      return status;
   }
   std::printf("{\n\"minMB\": %ld,\n\"maxMB\": %ld,\n\"rminpeakMB\": %ld,\n\"rminchildpeakMB\": %ld\n}\n",
               static_cast<long>(allocation.min()), static_cast<long>(allocation.max()),
               static_cast<long>(KBToMBRoundedUp(stats.rminPeakKB())),
               static_cast<long>(KBToMBRoundedUp(stats.rminChildPeakKB())));
   return 0;
}

// Sets the group's minimum and maximum both to sizeMB.
ZLC_ReturnStatus SetGroupMemory(std::int64_t groupId, std::int32_t sizeMB) {
   sysinfo::ParamListPtr query;
   ZLC_ReturnStatus status = MakeGroupQuery(groupId, query);
   if (status != 0) {
      return status;
   }
   sysinfo::ParamListPtr input = sysinfo::MakeParamList(0, 2);
   if (!input) {
      return ZLC_NO_MEMORY;
   }
   char setting[40];
   std::snprintf(setting, sizeof setting, "min=%d", sizeMB);
   status = ZIF_ParamListAddString(input.get(), setting);
   if (status != 0) {
      return status;
   }
   std::snprintf(setting, sizeof setting, "max=%d", sizeMB);
   status = ZIF_ParamListAddString(input.get(), setting);
   if (status != 0) {
      return status;
   }
   return ZIF_Set(sysinfo::Node(ZIF_NODE_sched_groups_memAllocationInMB), query.get(), input.get(), nullptr, 0);
}

// Parses and acts on the options. Returns -1 to go on, else the exit status.
int ParseOptions(int argc, char **argv, RpcfgOptions &options) {
   int option;
   long number = 0;
   while ((option = getopt(argc, argv, kShortOptions)) != -1) {
      switch (option) {
         case 'e':
            options.check = true;
            break;
         case 'g': {
            const ZLC_ReturnStatus status = LookUpGroup(optarg, options.groupId);
            if (status != 0) {
               LogMessage("Group %s was not found: %s\n", optarg, ZLC_ReturnStatusToString(status));
               return kUsageError;
            }
            options.groupName = optarg;
            break;
         }
         case 'i':
            options.info = true;
            break;
         case 'm':
            if (*optarg == '\0') {
               LogMessage("memory size (MB) is not specified\n");
               return kUsageError;
            }
            if (!memfs::ParseWholeNumber(optarg, number)) {
               LogMessage("incorrect value for memory size (MB) specified: %s\n", optarg);
               return kUsageError;
            }
            options.memory = true;
            options.memoryMB = static_cast<std::int32_t>(number);
            break;
         case 'w':
            if (*optarg == '\0') {
               LogMessage("wait time is not specified\n");
               return kUsageError;
            }
            if (!memfs::ParseWholeNumber(optarg, number)) {
               LogMessage("incorrect value for wait time specified: %s\n", optarg);
               return kUsageError;
            }
            options.wait = true;
            options.waitMicros = memfs::SecondsToMicros(number);
            break;
         default:
            std::fputs(kUsage, stderr);
            return kUsageError;
      }
   }
   return -1;
}

int SizeGroup(const RpcfgOptions &options) {
   const ZLC_ReturnStatus status = SetGroupMemory(options.groupId, options.memoryMB);
   if (status != 0) {
      LogMessage("Failed to set group %s mem: %s\n", options.groupName, ZLC_ReturnStatusToString(status));
      return kSysinfoFailed;
   }
   return kDone;
}

}  // namespace

int RpcfgMain(int argc, char **argv) {
   RpcfgOptions options;
   if (const int status = ParseOptions(argc, argv, options); status >= 0) {
      return status;
   }
   if (options.groupId == kNoGroup) {
      LogMessage("Group -g parameter was not specified\n");
      return kUsageError;
   }

   if (options.check) {
      std::uint32_t count = 0;
      const ZLC_ReturnStatus status = CountChildGroups(options.groupId, count);
      if (status != 0) {
         LogMessage("Failed to check group %s: %s\n", options.groupName, ZLC_ReturnStatusToString(status));
         return kSysinfoFailed;
      }
      std::puts(count != 0 ? "not empty" : "empty");
      return count != 0 ? kNotEmpty : kDone;
   }

   if (options.wait) {
      const bool empty = memfs::WaitForEmptyGroup(
            options.waitMicros, [&](std::uint32_t &count) { return CountChildGroups(options.groupId, count); },
            [](std::int64_t micros) { usleep(static_cast<useconds_t>(micros)); });
      if (!empty) {
         LogMessage("Timeout waiting for %s to be empty", options.groupName);
         return kTimedOut;
      }
      std::puts("empty");
      return options.memory ? SizeGroup(options) : kDone;
   }

   if (options.info) {
      const ZLC_ReturnStatus status = PrintGroupStats(options.groupId);
      if (status != 0) {
         LogMessage("Failed to get groups %s stats: %s\n", options.groupName, ZLC_ReturnStatusToString(status));
         return kSysinfoFailed;
      }
   }
   if (options.memory) {
      return SizeGroup(options);
   }
   return kDone;
}
