// pkill's signal names.
#include "signals.h"

#include <cctype>
#include <cstdlib>
#include <cstring>

namespace world {

const std::array<SignalName, 36> kSignalNames = {{
      {"HUP", 1},    {"INT", 2},   {"QUIT", 3},  {"ILL", 4},   {"TRAP", 5},    {"ABRT", 6},
      {"IOT", 6},    {"BUS", 7},   {"EMT", 7},   {"FPE", 8},   {"KILL", 9},    {"USR1", 10},
      {"SEGV", 11},  {"USR2", 12}, {"PIPE", 13}, {"ALRM", 14}, {"TERM", 15},   {"STKFLT", 16},
      {"CLD", 17},   {"CHLD", 17}, {"CONT", 18}, {"STOP", 19}, {"TSTP", 20},   {"TTIN", 21},
      {"TTOU", 22},  {"URG", 23},  {"XCPU", 24}, {"XFSZ", 25}, {"VTALRM", 26}, {"PROF", 27},
      {"WINCH", 28}, {"POLL", 29}, {"IO", 29},   {"PWR", 30},  {"INFO", 30},   {"SYS", 31},
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
