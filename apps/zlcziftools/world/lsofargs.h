// lsof's one argument: the usage request or the file filter.
#pragma once

#include <optional>
#include <string_view>

namespace world {

struct LsofArgument {
   bool usage = false;                      // the argument asks for the usage text
   std::optional<std::string_view> filter;  // the text lines must contain
};

// Reads the first argument (null when there is none). An argument that is a
// part of "--help" (also "-", "h" or an empty one) asks for the usage text;
// otherwise the text after the first "--file=" in it, when there is any, is
// the filter. Anything else lists everything.
LsofArgument ParseLsofArgument(const char *argument);

}  // namespace world
