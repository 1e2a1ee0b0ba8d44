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
#include <string>

#include "cartels.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsageLine[] = "Usage: pgrep [-flv] [PATTERN]\n";
constexpr char kShortOptions[] = "fhlv";
constexpr char kBackspace[] = "\b";

enum Status { kFound = 0, kNotFound = 1, kUsageError = 2, kSysinfoError = 3 };

struct PgrepOptions {
   bool commandLine = false;  // -f
   bool showName = false;     // -l
   bool invert = false;       // -v
};

int ListMatches(const world::Pattern &pattern, const PgrepOptions &options) {
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   if (!query) {
      return kSysinfoError;
   }
   sysinfo::InstanceList cartels;
   if (cartels.Fetch(sysinfo::Node(ZIF_NODE_userworld_cartel), nullptr) != 0) {
      return kSysinfoError;
   }
   if (cartels.Count() == 0) {
      return kNotFound;
   }
   bool found = false;
   bool failed = false;
   std::string text;
   const sysinfo::WalkResult walk = sysinfo::ForEachInstance(cartels, query.get(), [&](ZIF_Param *, int index) {
      const ZLC_ReturnStatus status = world::ReadCartelText(query.get(), options.commandLine, text);
      if (world::IsSkipStatus(status)) {
         return sysinfo::Visit::Next;
      }
      if (status != 0) {
         failed = true;
         return sysinfo::Visit::Stop;
      }
      const bool matched = pattern.Matches(text);
      if (matched != options.invert) {
         std::int32_t id = 0;
         if (ZIF_ParamListGetInt32(cartels.Get(), index, &id) != 0) {
            failed = true;
            return sysinfo::Visit::Stop;
         }
         if (gZifCacheMode || id != static_cast<std::int32_t>(getpid())) {
            std::printf("%d %s\n", id, options.showName ? text.c_str() : kBackspace);
            if (options.invert) {
               found = true;
            }
         }
      }
      if (matched) {
         found = true;
      }
      return sysinfo::Visit::Next;
   });
   if (failed || walk.KeyCopyFailed()) {
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
   int option;
   while ((option = getopt(argc, argv, kShortOptions)) != -1) {
      switch (option) {
         case 'f':
            options.commandLine = true;
            break;
         case 'l':
            options.showName = true;
            break;
         case 'v':
            options.invert = true;
            break;
         case 'h':
            std::fputs(kUsageLine, stdout);
            return 0;
         default:
            std::fputs(kUsageLine, stdout);
            return kUsageError;
      }
   }
   if (optind == argc) {
      std::fputs("pgrep: pattern not specified\n", stderr);
      std::fputs(kUsageLine, stdout);
      return 0;
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
