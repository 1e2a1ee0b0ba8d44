// The diff subcommand of zifcache: its options and its run.
#pragma once

#include <CLI/CLI.hpp>

#include <string>

namespace zifcache {

struct DiffCommand {
   CLI::App *app = nullptr;
   std::string before, after;
   std::string node;
   bool json = false;
   bool all = false;
};

void addDiffCommand(CLI::App &zifcache, DiffCommand &command);

// 0 same state, 1 different, 2 trouble (as diff(1)).
int runDiff(const DiffCommand &command);

}  // namespace zifcache
