// zifcache diff BEFORE AFTER [--json] [--node NAME] [--all]: what changed
// between two snapshots of a host, by meaning. Either may be "-" for
// standard input. Exit status as diff(1): 0 same state, 1 different,
// 2 trouble, with the messages of `zifcache check`.
#include "diff_command.h"

#include "diff.h"
#include "files.h"

#include <clocale>
#include <cstdio>
#include <cstring>
#include <iostream>

#include <langinfo.h>

namespace zifcache {
namespace {

constexpr int kSame = 0, kDiffer = 1, kTrouble = 2;

// The arrow between old and new values: the terminal's character set may
// not have "→".
std::string_view arrow() {
   std::setlocale(LC_CTYPE, "");
   return std::strcmp(nl_langinfo(CODESET), "UTF-8") == 0 ? " → " : " -> ";
}

bool openVerified(const std::string &path, InputSource &source, zif::Reader &reader) {
   if (!openSnapshot(path, source, reader, "diff")) {
      return false;
   }
   if (std::optional<zif::Problem> problem = zifdiff::verifyPayloads(reader)) {
      reportProblem("diff", path, *problem);
      return false;
   }
   return true;
}

}  // namespace

void addDiffCommand(CLI::App &zifcache, DiffCommand &command) {
   command.app = zifcache.add_subcommand("diff", "Show what differs between two snapshots, by node and field");
   command.app->add_option("before", command.before, "The earlier snapshot (- for standard input)")->required();
   command.app->add_option("after", command.after, "The later snapshot (- for standard input)")->required();
   command.app->add_flag("--json", command.json, "Print the differences as a JSON document");
   command.app->add_option("--node", command.node, "Compare only this node and the nodes below it");
   command.app->add_flag("--all", command.all, "Count differences of provenance and signature too");
}

int runDiff(const DiffCommand &command) {
   if (isStandardStream(command.before) && isStandardStream(command.after)) {
      std::cerr << "zifcache diff: only one of the two snapshots can be standard input\n";
      return kTrouble;
   }
   if (!command.node.empty() && !zifdiff::isNodeOrPrefix(command.node)) {
      std::cerr << "zifcache diff: no node \"" << command.node << "\"\n";
      return kTrouble;
   }
   InputSource beforeSource, afterSource;
   zif::Reader before, after;
   if (!openVerified(command.before, beforeSource, before) || !openVerified(command.after, afterSource, after)) {
      return kTrouble;
   }
   const zifdiff::Result result = zifdiff::compare(before, after, {command.node, command.all});
   const std::string report = command.json ? zifdiff::formatJson(result) : zifdiff::formatText(result, arrow());
   if (std::fwrite(report.data(), 1, report.size(), stdout) != report.size() || std::fflush(stdout) != 0) {
      std::cerr << "zifcache diff: cannot write to standard output: " << std::strerror(errno) << "\n";
      return kTrouble;
   }
   return result.differ ? kDiffer : kSame;
}

}  // namespace zifcache
