// rpcfg's numeric option arguments.
#pragma once

#include <cstdint>

namespace memfs {

// A whole decimal number with nothing after it; strtol's leading blanks and
// sign are accepted, and a number out of range is clamped as strtol does.
// False when the text is no number or something follows it.
bool ParseWholeNumber(const char *text, long &value);

// Seconds as microseconds, clamped to the 64-bit range so that a huge wait
// waits as long as it can instead of wrapping around.
std::int64_t SecondsToMicros(long seconds);

}  // namespace memfs
