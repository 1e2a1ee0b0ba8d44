// pidof: the cartel IDs of the running programs whose command line names one
// of the given programs, each followed by a blank, then one newline.
//
// A name is compared whole and by its last path component; a relative path
// (holding '/' but not starting with it) never matches. With -x a script run
// by /bin/sh, /bin/ash or /bin/bash is found by the script's name. A cartel
// that matches two names is printed twice.
#include <unistd.h>

#include <array>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "cartelwalks.h"
#include "programname.h"
#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "find the process ID of running programs\n"
      "pidof program program ...\n"
      "      -s   Single shot, only return one pid\n"
      "      -x   Scripts too, would also return ids of shells\n"
      "      -o   Pid to omit\n";

constexpr char kShortOptions[] = "sxo:";
constexpr std::size_t kMaxOmits = 256;

struct PidofOptions {
   std::array<std::int32_t, kMaxOmits> omits{};
   std::size_t omitCount = 0;
   bool singleShot = false;
   bool scripts = false;

   bool Omitted(std::int32_t id) const {
      for (std::size_t i = 0; i < omitCount; ++i) {
         if (omits[i] == id) {
            return true;
         }
      }
      return false;
   }
};

std::int32_t OmitFromArgument(const char *argument) {
   if (std::strcmp(argument, "%PPID") == 0) {
      return static_cast<std::int32_t>(getppid());
   }
   return static_cast<std::int32_t>(std::strtol(argument, nullptr, 10));
}

// Prints the cartel ID when its command line names the program. The query
// list's last key is replaced by the cartel ID; the walker removes it.
bool CartelMatches(std::uint32_t cartelId, ZIF_ParamList *query, std::string_view program,
                   const PidofOptions &options) {
   if (cartelId == 0) {
      return false;
   }
   ZIF_ParamListRemoveLastParam(query);
   ZIF_ParamListAddInt(query, cartelId);
   rec::userworld_cartel_cmdline commandLine;
   if (sysinfo::GetRecord(commandLine, query) != 0) {
      return false;
   }
   if (!world::CommandLineNames(commandLine.cmdline(), program, options.scripts)) {
      return false;
   }
   const auto id = static_cast<std::int32_t>(cartelId);
   if (options.Omitted(id)) {
      return false;
   }
   std::printf("%d ", id);
   return true;
}

// The number of cartels found for one program name; 0 when the walk failed.
// After a failed key copy this name's matches are not counted, although they
// stay printed.
int FindProgram(std::string_view program, const PidofOptions &options) {
   int matches = 0;
   const bool walked =
         world::ForEachWorldInfo(ZIF_NODE_userworld_cartel, [&](const rec::world_info &info, ZIF_ParamList *query) {
            if (!CartelMatches(info.cartelId(), query, program, options)) {
               return sysinfo::Visit::Next;
            }
            ++matches;
            return options.singleShot ? sysinfo::Visit::Stop : sysinfo::Visit::Next;
         });
   return walked ? matches : 0;
}

bool IsRelativePath(const char *name) {
   return std::strchr(name, '/') != nullptr && name[0] != '/';
}

}  // namespace

int PidofMain(int argc, char **argv) {
   if (argc < 2) {
      std::fputs(kUsage, stderr);
      return 1;
   }
   PidofOptions options;
   int option;
   while ((option = getopt(argc, argv, kShortOptions)) != -1) {
      switch (option) {
         case 's':
            options.singleShot = true;
            break;
         case 'x':
            options.scripts = true;
            break;
         case 'o':
            if (options.omitCount == kMaxOmits) {
               std::fputs("Too many omits\n", stderr);
               return 1;
            }
            options.omits[options.omitCount++] = OmitFromArgument(optarg);
            break;
         default:
            std::fputs(kUsage, stderr);
            return 1;
      }
   }
   if (optind >= argc) {
      return 1;
   }
   int found = 0;
   for (int index = optind; index < argc; ++index) {
      if (!IsRelativePath(argv[index])) {
         found += FindProgram(argv[index], options);
      }
      if (found > 0 && options.singleShot) {
         std::putchar('\n');
         return 0;
      }
   }
   if (found > 0) {
      std::putchar('\n');
      return 0;
   }
   return 1;
}
