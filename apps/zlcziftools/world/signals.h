// The signal names pkill understands and how its first argument names one.
#pragma once

#include <array>
#include <cstdint>

namespace world {

struct SignalName {
   const char *name;  // without the SIG prefix
   std::int32_t number;
};

// Searched in order; several names share a number.
extern const std::array<SignalName, 36> kSignalNames;

// The signal that an argument such as -9 or -KILL names: a name of the table
// (case-sensitive), else a decimal number (trailing text ignored). 0 when the
// argument names no signal; then it is an option, or a pattern.
std::int32_t SignalFromArgument(const char *argument);

}  // namespace world
