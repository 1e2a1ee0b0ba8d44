// What pgrep and pkill share: the text a cartel is matched by, the statuses
// that skip a cartel, and a compiled extended regular expression.
#pragma once

#include <regex.h>

#include <string>

#include "zellibs.h"

namespace world {

// A record read with one of these statuses skips the cartel silently: it has
// gone, or it has no such record.
bool IsSkipStatus(ZLC_ReturnStatus status);

// Reads the cartel's command line (commandLine true) or its world name; the
// query list holds the cartel key.
ZLC_ReturnStatus ReadCartelText(ZIF_ParamList *query, bool commandLine, std::string &text);

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
