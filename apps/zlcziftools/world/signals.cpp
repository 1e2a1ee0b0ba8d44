// pkill's signal names.
#include "signals.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace world {

const std::array<SignalName, kSignalCount> kSignalNames = {{
#define ZIF_SIGNAL(name, number) {name, number},
#include "signals.def"
#undef ZIF_SIGNAL
}};

std::int32_t SignalFromArgument(const char *argument) {
   if (argument[0] != '-') {
      return 0;
   }
   const char *rest = argument + 1;
   for (const SignalName &signal : kSignalNames) {
      if (std::strcmp(rest, signal.name) == 0) {
         return signal.number;
      }
   }
   if (std::isdigit(static_cast<unsigned char>(rest[0])) != 0) {
      return static_cast<std::int32_t>(std::strtol(rest, nullptr, 10));
   }
   return 0;
}

}  // namespace world
