// pkill: sends a signal (15 unless the first argument names one, as -9, -KILL
// or -IOT) to the cartels whose world name (or with -f command line) matches
// each of the given extended regular expressions.
//
// Refuses to run on a snapshot file. Never signals its own process, nor an ID
// of 0 or below (kernel data saying so is passed over like a cartel that has
// gone). Signal names are case-sensitive and without the SIG prefix, so -kill
// and -SIGKILL are options (and rejected), as is -0.
#include <unistd.h>

#include <signal.h>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include "cartelwalks.h"
#include "pattern.h"
#include "patternoptions.h"
#include "signals.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsageLine[] = "Usage: pkill [-SIGNAL] [PATTERN]\n";
constexpr std::int32_t kDefaultSignal = 15;
constexpr std::uint32_t kLargestSignal = 63;

enum Status { kSignalled = 0, kNoneSignalled = 1, kUsageError = 2, kCacheMode = 3 };

struct PatternResult {
   bool ok = true;
   int status = kNoneSignalled;  // the exit status when not ok
   bool signalled = false;
};

// In the simulator the cartel IDs are the snapshot's, not this machine's
// (even a capture of this machine may name IDs reused since): the signal is
// reported as sent and goes nowhere, unless ZLC_SIMULATOR_SIGNALS=real.
// Answers 0 when the signal was sent or the cartel has gone (ESRCH), else the
// error number of the refusal.
int DeliverSignal(std::int32_t id, int signal) {
   const char *mode = std::getenv("ZLC_SIMULATOR_SIGNALS");
   const bool real = mode != nullptr && std::strcmp(mode, "real") == 0;
   if (!HostType_OSIsZLC() && HostType_OSIsSimulator() && !real) {
      return 0;
   }
   if (kill(id, signal) == 0 || errno == ESRCH) {
      return 0;
   }
   return errno;
}

int SysinfoFailure(ZLC_ReturnStatus status) {
   std::fprintf(stderr, "pkill: %s\n", ZLC_ReturnStatusToString(status));
   return kNoneSignalled;
}

// Signals the cartels matching one pattern.
PatternResult SignalMatches(const char *patternText, bool commandLine, int signal) {
   PatternResult result;
   world::Pattern pattern;
   std::string error;
   if (!pattern.Compile(patternText, error)) {
      std::fprintf(stderr, "pkill: %s\n", error.c_str());
      return {false, kUsageError, false};
   }
   world::CartelTexts cartels;
   ZLC_ReturnStatus status = cartels.Open();
   if (status != 0) {
      return {false, SysinfoFailure(status), false};
   }
   const std::int32_t self = static_cast<std::int32_t>(getpid());
   status = cartels.ForEach(commandLine, [&](const std::string &text, int index) -> ZLC_ReturnStatus {
      if (!pattern.Matches(text)) {
         return 0;
      }
      std::int32_t id = 0;
      const ZLC_ReturnStatus idStatus = cartels.CartelId(index, id);
      if (idStatus != 0 || id <= 0 || id == self) {
         return idStatus;
      }
      result.signalled = true;
      const int refusal = DeliverSignal(id, signal);
      if (refusal != 0) {
         std::fprintf(stderr, "pkill: failed to kill %s (%d): %s\n", text.c_str(), id, std::strerror(refusal));
         return ZLC_FAILURE;
      }
      return 0;
   });
   if (status != 0) {
      return {false, SysinfoFailure(status), result.signalled};
   }
   return result;
}

// Removes argv[index], moving the later arguments down.
void RemoveArgument(int &argc, char **argv, int index) {
   for (int i = index; i < argc; ++i) {
      argv[i] = argv[i + 1];
   }
   --argc;
}

}  // namespace

int PkillMain(int argc, char **argv) {
   if (gZifCacheMode) {
      std::fputs("Using ZIF cache is unsupported\n", stderr);
      return kCacheMode;
   }
   if (argc < 2) {
      std::fputs("pkill: No matching criteria specified\n", stderr);
      std::fputs(kUsageLine, stdout);
      return 0;
   }
   std::int32_t signal = world::SignalFromArgument(argv[1]);
   if (signal != 0) {
      RemoveArgument(argc, argv, 1);
      if (static_cast<std::uint32_t>(signal) > kLargestSignal) {
         std::fprintf(stderr, "pkill: invalid signal %d\n", signal);
         std::fputs(kUsageLine, stdout);
         return kUsageError;
      }
   } else {
      signal = kDefaultSignal;
   }
   bool commandLine = false;
   const world::FlagOption flags[] = {{'f', &commandLine}};
   if (const std::optional<int> status = world::ParsePatternOptions(argc, argv, "pkill", kUsageLine, flags)) {
      return *status;
   }
   bool signalled = false;
   for (int index = optind; index < argc; ++index) {
      const PatternResult result = SignalMatches(argv[index], commandLine, signal);
      if (!result.ok) {
         return result.status;
      }
      signalled = signalled || result.signalled;
   }
   return signalled ? kSignalled : kNoneSignalled;
}
