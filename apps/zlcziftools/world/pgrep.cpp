// pgrep: the IDs of the cartels whose world name (or with -f command line)
// matches an extended regular expression.
//
// Without -l each line is the ID, a blank and a backspace, so that a terminal
// shows the bare ID. The own process is left out only on the live host. The
// exit status says whether anything matched: with -v a cartel that matched and
// was therefore not printed also counts as found.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>

#include "cartelwalks.h"
#include "pattern.h"
#include "patternoptions.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsageLine[] = "Usage: pgrep [-flv] [PATTERN]\n";
constexpr char kBackspace[] = "\b";

enum Status { kFound = 0, kNotFound = 1, kUsageError = 2, kSysinfoError = 3 };

struct PgrepOptions {
   bool commandLine = false;  // -f
   bool showName = false;     // -l
   bool invert = false;       // -v
};

int ListMatches(const world::Pattern &pattern, const PgrepOptions &options) {
   world::CartelTexts cartels;
   if (cartels.Open() != 0) {
      return kSysinfoError;
   }
   if (cartels.Empty()) {
      return kNotFound;
   }
   bool found = false;
   const ZLC_ReturnStatus status =
         cartels.ForEach(options.commandLine, [&](const std::string &text, int index) -> ZLC_ReturnStatus {
            const bool matched = pattern.Matches(text);
            if (matched) {
               found = true;
            }
            if (matched == options.invert) {
               return 0;
            }
            std::int32_t id = 0;
            const ZLC_ReturnStatus idStatus = cartels.CartelId(index, id);
            if (idStatus != 0) {
               return idStatus;
            }
            if (gZifCacheMode || id != static_cast<std::int32_t>(getpid())) {
               std::printf("%d %s\n", id, options.showName ? text.c_str() : kBackspace);
               found = true;
            }
            return 0;
         });
   if (status != 0) {
      return kSysinfoError;
   }
   return found ? kFound : kNotFound;
}

}  // namespace

int PgrepMain(int argc, char **argv) {
   if (argc < 2) {
      std::fputs("pgrep: no matching criteria specified\n", stderr);
      return kUsageError;
   }
   PgrepOptions options;
   const world::FlagOption flags[] = {{'f', &options.commandLine}, {'l', &options.showName}, {'v', &options.invert}};
   if (const std::optional<int> status = world::ParsePatternOptions(argc, argv, "pgrep", kUsageLine, flags)) {
      return *status;
   }
   if (argc - optind > 1) {
      std::fputs("pgrep: extra arguments specified\n", stderr);
      std::fputs(kUsageLine, stdout);
      return 0;
   }
   world::Pattern pattern;
   std::string error;
   if (!pattern.Compile(argv[optind], error)) {
      std::fprintf(stderr, "pgrep: %s\n", error.c_str());
      return kUsageError;
   }
   return ListMatches(pattern, options);
}
