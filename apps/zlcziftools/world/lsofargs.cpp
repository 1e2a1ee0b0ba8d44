// lsof's argument.
#include "lsofargs.h"

#include <cstring>

namespace world {

namespace {

constexpr char kHelp[] = "--help";
constexpr char kFile[] = "--file=";

}  // namespace

LsofArgument ParseLsofArgument(const char *argument) {
   LsofArgument result;
   if (argument == nullptr) {
      return result;
   }
   if (std::strstr(kHelp, argument) != nullptr) {
      result.usage = true;
      return result;
   }
   const char *file = std::strstr(argument, kFile);
   if (file != nullptr && file[sizeof kFile - 1] != '\0') {
      result.filter = std::string_view(file + sizeof kFile - 1);
   }
   return result;
}

}  // namespace world
