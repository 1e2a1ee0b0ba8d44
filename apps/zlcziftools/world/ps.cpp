// ps: the host's worlds as a flat table, or with -J as one process tree per
// userspace drawn with the terminal's line-drawing characters.
//
// -J (or --tree) means userworlds only, with zombie children. -U takes its
// userspace number attached (-U3), never as a separate argument; a number
// above 127 lies outside the userspace table and is reported as not running.
#include <getopt.h>

#include <cstdio>
#include <cstdlib>

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

constexpr char kShortOptions[] = "CNPTcghijJnstuU::vZz";

constexpr struct option kLongOptions[] = {
      {"help", no_argument, nullptr, 'h'},
      {"tree", no_argument, nullptr, 'J'},
      {nullptr, 0, nullptr, 0},
};

}  // namespace

int PsMain(int argc, char **argv) {
   using namespace world;
   PsState state;
   int option;
   while ((option = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1) {
      switch (option) {
         case 'C':
            state.flags |= kOnlyCartels;
            break;
         case 'n':
            state.flags |= kShowNChildren;
            break;
         case 'N':
            state.flags |= kShowNThreads;
            break;
         case 'P':
            state.flags |= kShowPcid;
            break;
         case 'T':
            state.flags |= kShowTime;
            break;
         case 'c':
            state.flags |= kShowCommand;
            break;
         case 'g':
            state.flags |= kShowGroups;
            break;
         case 'i':
            state.flags |= kSummary;
            break;
         case 'j':
            state.flags |= kShowGid;
            break;
         case 'J':
            state.flags |= kTree | kOnlyUserworlds | kZombies;
            break;
         case 's':
            state.flags |= kShowState;
            break;
         case 't':
            state.flags |= kShowType;
            break;
         case 'u':
            state.flags |= kOnlyUserworlds;
            break;
         case 'v':
            state.flags |= kVerbose;
            break;
         case 'Z':
            state.flags |= kShowSecurityDomain;
            break;
         case 'z':
            state.flags |= kZombies;
            break;
         case 'U':
            state.flags |= kShowUserspace;
            if (optarg != nullptr) {
               state.requestedUserspace = static_cast<std::uint32_t>(std::strtoul(optarg, nullptr, 10));
            }
            break;
         case 'h':
            std::fputs(kUsage, stderr);
            return 0;
         case '?':
            std::fputs(kUsage, stderr);
            return 1;
         default:
            std::fprintf(stderr, "ps: getopt failed? (%c)\n", option);
            return 1;
      }
   }
   if (optind < argc) {
      std::fputs("ps: no non-option arguments\n", stderr);
      std::fputs(kUsage, stderr);
      return 1;
   }
   if (state.Has(kShowNChildren) && !state.Has(kTree)) {
      std::fputs("nChildren needs --tree\n", stderr);
      return 1;
   }
   if (state.Has(kShowNThreads) && !state.Has(kTree)) {
      std::fputs("nThreads needs --tree\n", stderr);
      return 1;
   }
   return WorldList(state) ? 0 : 1;
}
