// pidof's name matching.
#include "programname.h"

#include <array>

namespace world {

namespace {

constexpr std::array<std::string_view, 3> kShells = {"/bin/sh", "/bin/ash", "/bin/bash"};

// The text up to its first blank, or all of it.
std::string_view FirstWord(std::string_view text) {
   return text.substr(0, text.find(' '));
}

}  // namespace

std::string_view LastPathComponent(std::string_view path) {
   const std::size_t slash = path.rfind('/');
   return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

bool NameMatches(std::string_view word, std::string_view program) {
   return word == program || word == LastPathComponent(program) || LastPathComponent(word) == program;
}

bool CommandLineNames(std::string_view commandLine, std::string_view program, bool scripts) {
   const std::size_t blank = commandLine.find(' ');
   const std::string_view programWord = commandLine.substr(0, blank);
   if (NameMatches(programWord, program)) {
      return true;
   }
   if (blank == std::string_view::npos || !scripts) {
      return false;
   }
   for (std::string_view shell : kShells) {
      if (programWord == shell) {
         return NameMatches(FirstWord(commandLine.substr(blank + 1)), program);
      }
   }
   return false;
}

}  // namespace world
