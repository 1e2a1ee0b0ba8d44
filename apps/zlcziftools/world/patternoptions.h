// The options that pgrep and pkill parse alike: letters that set flags, -h,
// and at least one pattern after them.
#pragma once

#include <optional>
#include <span>

namespace world {

struct FlagOption {
   char letter;
   bool *flag;
};

// Parses a pattern command's options with getopt: each letter of flags sets
// its flag; -h prints the usage line to standard output and ends the command
// with status 0; an unknown option (after getopt's own message) prints it too
// and ends the command with status 2. A pattern must follow the options, else
// "<name>: pattern not specified\n" goes to standard error and the usage line
// to standard output, status 0. Returns the status that ends the command, or
// nothing when the patterns start at optind.
std::optional<int> ParsePatternOptions(int argc, char **argv, const char *name, const char *usageLine,
                                       std::span<const FlagOption> flags);

}  // namespace world
