// The shared option parsing of pgrep and pkill.
#include "patternoptions.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string>

namespace world {

namespace {

constexpr int kUsageError = 2;

}  // namespace

std::optional<int> ParsePatternOptions(int argc, char **argv, const char *name, const char *usageLine,
                                       std::span<const FlagOption> flags) {
   std::string letters = "h";
   for (const FlagOption &flag : flags) {
      letters += flag.letter;
   }
   int option;
   while ((option = getopt(argc, argv, letters.c_str())) != -1) {
      const auto flag =
            std::find_if(flags.begin(), flags.end(), [option](const FlagOption &f) { return f.letter == option; });
      if (flag == flags.end()) {
         std::fputs(usageLine, stdout);
         return option == 'h' ? 0 : kUsageError;
      }
      *flag->flag = true;
   }
   if (optind == argc) {
      std::fprintf(stderr, "%s: pattern not specified\n", name);
      std::fputs(usageLine, stdout);
      return 0;
   }
   return std::nullopt;
}

}  // namespace world
