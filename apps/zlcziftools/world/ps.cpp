// ps: the host's worlds as a flat table, or with -J as one process tree per
// userspace drawn with the terminal's line-drawing characters.
//
// -J (or --tree) means userworlds only, with zombie children. -U takes its
// userspace number attached (-U3), never as a separate argument; a number
// above 127 lies outside the userspace table and is reported as not running.
#include <getopt.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "psrender.h"
#include "worldlist.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "ps\n"
      "    -C           Display only cartels\n"
      "    -P           Display PCID\n"
      "    -T           Display used time\n"
      "    -c           Display verbose command line\n"
      "    -g           Display session ID and process group\n"
      "    -i           Display summary information\n"
      "    -j           Display GID\n"
      "    -n           Display nChildren (only with --tree)\n"
      "    -N           Display nThreads  (only with --tree)\n"
      "    -s           Display state\n"
      "    -t           Display type\n"
      "    -u           Display only userworlds\n"
      "    -U [N]       Display [only] userspace ID\n"
      "    -v           Display non truncated values\n"
      "    -Z           Display the security domain\n"
      "    -z           Display zombie cartels\n"
      "    -J or --tree Display userworlds in a tree layout\n";

constexpr struct option kLongOptions[] = {
      {"help", no_argument, nullptr, 'h'},
      {"tree", no_argument, nullptr, 'J'},
      {nullptr, 0, nullptr, 0},
};

// The options that choose what is listed and how, besides those that show a
// column (in the column table).
struct ModeOption {
   char letter;
   std::uint32_t flags;
};
constexpr ModeOption kModeOptions[] = {
      {'C', world::kOnlyCartels},
      {'i', world::kSummary},
      {'J', world::kTree | world::kOnlyUserworlds | world::kZombies},
      {'u', world::kOnlyUserworlds},
      {'v', world::kVerbose},
      {'z', world::kZombies},
};

std::uint32_t ModeFlagsOfOption(int option) {
   for (const ModeOption &mode : kModeOptions) {
      if (mode.letter == option) {
         return mode.flags;
      }
   }
   return 0;
}

// -h, the mode options and the column options; the option that shows the
// userspace column takes an attached userspace number (-U3).
std::string ShortOptions() {
   std::string letters = "h";
   for (const ModeOption &mode : kModeOptions) {
      letters += mode.letter;
   }
   for (char letter : world::ColumnOptionLetters()) {
      letters += letter;
      if (world::ColumnFlagOfOption(letter) == world::kShowUserspace) {
         letters += "::";
      }
   }
   return letters;
}

}  // namespace

int PsMain(int argc, char **argv) {
   using namespace world;
   PsState state;
   const std::string shortOptions = ShortOptions();
   int option;
   while ((option = getopt_long(argc, argv, shortOptions.c_str(), kLongOptions, nullptr)) != -1) {
      if (option == 'h') {
         std::fputs(kUsage, stderr);
         return 0;
      }
      if (option == '?') {
         std::fputs(kUsage, stderr);
         return 1;
      }
      const std::uint32_t column = ColumnFlagOfOption(option);
      const std::uint32_t flags = column | ModeFlagsOfOption(option);
      if (flags == 0) {
         std::fprintf(stderr, "ps: getopt failed? (%c)\n", option);
         return 1;
      }
      state.flags |= flags;
      if (column == kShowUserspace && optarg != nullptr) {
         state.requestedUserspace = static_cast<std::uint32_t>(std::strtoul(optarg, nullptr, 10));
      }
   }
   if (optind < argc) {
      std::fputs("ps: no non-option arguments\n", stderr);
      std::fputs(kUsage, stderr);
      return 1;
   }
   if (!state.Has(kTree)) {
      const std::string_view column = ColumnNeedingTree(state.flags);
      if (!column.empty()) {
         std::fprintf(stderr, "%.*s needs --tree\n", static_cast<int>(column.size()), column.data());
         return 1;
      }
   }
   return WorldList(state) ? 0 : 1;
}
