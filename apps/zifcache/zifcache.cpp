// zifcache: packs JSON documents into a snapshot file, dumps a snapshot as
// JSON, and checks a snapshot's checksums and structure.
//
//   zifcache pack IN.json [IN2.json ...] OUT
//   zifcache dump IN
//   zifcache check IN
//   zifcache capture OUT [--only PARTS] [--exclude PARTS]
//   zifcache diff BEFORE AFTER [--json] [--node NAME] [--all]
//
// "-" stands for standard input where a snapshot or document is read, and
// for standard output where one is written.
#include "capture/capture.h"
#include "diff_command.h"
#include "files.h"
#include "zifformat/snapshot_format.h"
#include "zifformat/snapshot_json.h"

#include <CLI/CLI.hpp>

#include <cstdio>
#include <iostream>

namespace {

constexpr int kUsageStatus = 2;

int pack(const std::vector<std::string> &args) {
   if (args.size() < 2) {
      std::cerr << "zifcache pack: need at least one JSON file and the output file\n";
      return 1;
   }
   const std::string &outPath = args.back();
   zif::JsonPacker packer;
   try {
      for (size_t i = 0; i + 1 < args.size(); i++) {
         std::string text;
         if (!zifcache::readWholeFile(args[i], text)) {
            std::cerr << "zifcache pack: cannot read " << args[i] << "\n";
            return 1;
         }
         packer.add(text, args[i]);
      }
      zif::Snapshot snapshot = packer.finish();
      // Refuse duplicates before the output file is created.
      zif::VectorSink check;
      zif::writeSnapshot(snapshot, check);
      return zifcache::writeSnapshotFile(outPath, "pack", [&](zif::Sink &sink) { sink.write(check.data); }) ? 0 : 1;
   } catch (const std::exception &ex) {
      std::cerr << "zifcache pack: " << ex.what() << "\n";
      return 1;
   }
}

int dump(const std::string &path) {
   zifcache::InputSource file;
   zif::Reader reader;
   if (!zifcache::openSnapshot(path, file, reader, "dump")) {
      return 1;
   }
   zif::Snapshot model;
   zif::Problem problem;
   if (reader.toModel(model, &problem) != ZLC_OK) {
      zifcache::reportProblem("dump", path, problem);
      return 1;
   }
   std::cout << zif::dumpJson(model);
   return std::cout.good() ? 0 : 1;
}

int check(const std::string &path) {
   zifcache::InputSource file;
   zif::Reader reader;
   if (!zifcache::openSnapshot(path, file, reader, "check")) {
      return 1;
   }
   zif::Problem problem;
   if (reader.verifyAll(&problem) != ZLC_OK) {
      zifcache::reportProblem("check", path, problem);
      return 1;
   }
   size_t counts[7] = {};
   for (size_t i = 0; i < reader.size(); i++) {
      counts[static_cast<size_t>(reader.entry(i).kind)]++;
   }
   std::printf("%s: ok, %zu bytes: %zu lists, %zu records, %zu data, %zu devinfo, %zu sets; signed %s", path.c_str(),
               static_cast<size_t>(file.size()), counts[1], counts[2], counts[3], counts[4], counts[5] + counts[6],
               reader.signature().date.c_str());
   const zif::Meta &meta = reader.meta();
   if (meta.present) {
      std::printf("; captured %s on %s by %s", meta.captured.c_str(), meta.host.c_str(), meta.by.c_str());
   }
   std::printf("\n");
   return 0;
}

}  // namespace

int main(int argc, char **argv) {
   CLI::App app{"zifcache: pack, dump, check and compare sysinfo snapshot files", "zifcache"};
   app.require_subcommand(1);

   std::vector<std::string> packArgs;
   auto *packCmd = app.add_subcommand("pack", "Build a snapshot from JSON documents: pack IN.json [IN2.json ...] OUT");
   packCmd->add_option("files", packArgs, "JSON inputs followed by the output file")->required()->expected(2, -1);

   std::string dumpPath;
   auto *dumpCmd = app.add_subcommand("dump", "Print a snapshot in its JSON form");
   dumpCmd->add_option("snapshot", dumpPath, "Snapshot file (- for standard input)")->required();

   std::string checkPath;
   auto *checkCmd = app.add_subcommand("check", "Verify every checksum and the structure of a snapshot");
   checkCmd->add_option("snapshot", checkPath, "Snapshot file (- for standard input)")->required();

   capture::CaptureOptions captureOptions;
   auto *captureCmd = app.add_subcommand("capture", "Capture the Linux host this runs on into a snapshot");
   captureCmd->add_option("out", captureOptions.out, "Snapshot file to write (- for standard output)")->required();
   std::string partList;
   for (const std::string &name : capture::PartNames()) {
      partList += (partList.empty() ? "" : ",") + name;
   }
   captureCmd->add_option("--only", captureOptions.only,
                          "Capture only these parts (comma-separated: " + partList + ")");
   captureCmd->add_option("--exclude", captureOptions.exclude, "Leave out these parts (comma-separated)");
   // For tests: read proc/, sys/ and mount points below this directory.
   captureCmd->add_option("--root", captureOptions.root)->group("");
   captureCmd->add_option("--read-limit-ms", captureOptions.readLimitMs)->group("")->check(CLI::Range(1, 60000));

   zifcache::DiffCommand diffCommand;
   zifcache::addDiffCommand(app, diffCommand);

   // No arguments, or arguments that do not parse: the usage (or CLI11's
   // message) and status 2; --help: the usage and status 0.
   if (argc < 2) {
      std::cerr << app.help();
      return kUsageStatus;
   }
   try {
      app.parse(argc, argv);
   } catch (const CLI::ParseError &error) {
      const int status = app.exit(error);
      return status == 0 ? 0 : kUsageStatus;
   }

   if (*captureCmd) {
      captureOptions.commandLine = "zifcache";
      for (int i = 1; i < argc; i++) {
         captureOptions.commandLine += std::string(" ") + argv[i];
      }
      return capture::RunCapture(captureOptions);
   }
   if (*packCmd) {
      return pack(packArgs);
   }
   if (*dumpCmd) {
      return dump(dumpPath);
   }
   if (*diffCommand.app) {
      return zifcache::runDiff(diffCommand);
   }
   return check(checkPath);
}
