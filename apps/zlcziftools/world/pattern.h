// The extended regular expression that pgrep and pkill match cartels by.
#pragma once

#include <regex.h>

#include <string>

namespace world {

// An extended regular expression without sub-match reporting.
class Pattern {
public:
   Pattern() = default;
   Pattern(const Pattern &) = delete;
   Pattern &operator=(const Pattern &) = delete;
   ~Pattern();

   // Compiles text; on failure error holds regerror's text.
   bool Compile(const char *text, std::string &error);
   // True when the pattern matches anywhere in text.
   bool Matches(const std::string &text) const;

private:
   regex_t regex_{};
   bool compiled_ = false;
};

}  // namespace world
