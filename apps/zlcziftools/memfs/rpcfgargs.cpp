#include "rpcfgargs.h"

#include <cstdlib>
#include <limits>

namespace memfs {

bool ParseWholeNumber(const char *text, long &value) {
   char *end = nullptr;
   value = std::strtol(text, &end, 10);
   return *end == '\0';
}

std::int64_t SecondsToMicros(long seconds) {
   constexpr std::int64_t kMicrosPerSecond = 1000000;
   constexpr std::int64_t kMax = std::numeric_limits<std::int64_t>::max();
   constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
   if (seconds > kMax / kMicrosPerSecond) {
      return kMax;
   }
   if (seconds < kMin / kMicrosPerSecond) {
      return kMin;
   }
   return static_cast<std::int64_t>(seconds) * kMicrosPerSecond;
}

}  // namespace memfs
