// The signal names pkill understands and how its first argument names one.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

namespace world {

struct SignalName {
   const char *name;  // without the SIG prefix
   std::int32_t number;
};

// How many names signals.def holds.
inline constexpr std::size_t kSignalCount = 0
#define ZIF_SIGNAL(name, number) +1
#include "signals.def"
#undef ZIF_SIGNAL
      ;

// The names of signals.def, searched in order; several share a number.
extern const std::array<SignalName, kSignalCount> kSignalNames;

// The signal that an argument such as -9 or -KILL names: a name of the table
// (case-sensitive), else a decimal number (trailing text ignored). 0 when the
// argument names no signal; then it is an option, or a pattern.
std::int32_t SignalFromArgument(const char *argument);

}  // namespace world
