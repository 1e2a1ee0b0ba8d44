// The capture driver: chooses the parts, runs each once, and writes the
// snapshot through the format library's writer into a temporary file that
// is renamed over OUT (as pack does), or to standard output for "-", with
// the provenance in its meta.
#include "capture.h"

#include "files.h"
#include "parts.h"

#include <sys/utsname.h>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <iostream>
#include <set>

namespace capture {
namespace {

struct Part {
   std::string name;
   void (*run)(Capture &);
};

const std::vector<Part> &Parts() {
   static const std::vector<Part> parts = {
         {"worlds", CaptureWorlds}, {"cartels", CaptureCartels}, {"pci", CapturePci},
         {"acpi", CaptureAcpi},     {"host", CaptureHost},       {"interrupts", CaptureInterrupts},
         {"memfs", CaptureMemfs},   {"groups", CaptureGroups},
   };
   return parts;
}

// Part names of a comma-separated list; false with a message on an unknown one.
bool ParsePartList(const std::string &text, std::set<std::string> &out) {
   size_t start = 0;
   while (start <= text.size()) {
      size_t comma = text.find(',', start);
      std::string name = text.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
      if (!name.empty()) {
         bool known = false;
         for (const Part &p : Parts()) {
            known = known || p.name == name;
         }
         if (!known) {
            std::cerr << "zifcache capture: unknown part \"" << name << "\" (parts:";
            for (const Part &p : Parts()) {
               std::cerr << ' ' << p.name;
            }
            std::cerr << ")\n";
            return false;
         }
         out.insert(name);
      }
      if (comma == std::string::npos) {
         break;
      }
      start = comma + 1;
   }
   return true;
}

std::string UtcNow() {
   std::time_t now = std::time(nullptr);
   std::tm tm{};
   gmtime_r(&now, &tm);
   char buf[32];
   std::strftime(buf, sizeof buf, "%Y-%m-%dT%H:%M:%SZ", &tm);
   return buf;
}

}  // namespace

const std::vector<std::string> &PartNames() {
   static const std::vector<std::string> names = [] {
      std::vector<std::string> v;
      for (const Part &p : Parts()) {
         v.push_back(p.name);
      }
      return v;
   }();
   return names;
}

int RunCapture(const CaptureOptions &options) {
   std::set<std::string> only, exclude;
   if (!ParsePartList(options.only, only) || !ParsePartList(options.exclude, exclude)) {
      return 1;
   }

   HostPaths paths;
   if (!options.root.empty()) {
      // Canonical, so that the copy's links into itself are recognised.
      std::error_code error;
      paths.root = std::filesystem::canonical(options.root, error).string();
      if (error) {
         std::cerr << "zifcache capture: " << options.root << ": " << error.message() << "\n";
         return 1;
      }
      paths.proc = paths.root + "/proc";
      paths.sys = paths.root + "/sys";
   }
   Capture c(paths, std::chrono::milliseconds(options.readLimitMs));

   utsname u{};
   uname(&u);
   zif::Snapshot snapshot;
   snapshot.signature = {zif::librarySignatureDigest(), zif::libraryBuildDate()};
   // No one device holds the in-memory file system: the memfs part keys each
   // ram disk's inodes by device and inode number.
   snapshot.simulator.present = true;
   snapshot.simulator.rootDevice = ZLC_INODE_KEYS_BY_DEVICE;
   snapshot.meta.present = true;
   snapshot.meta.host = u.nodename;
   snapshot.meta.captured = UtcNow();
   snapshot.meta.by = options.commandLine;
   c.Note(std::string("kernel: ") + u.sysname + " " + u.release + " " + u.version + " " + u.machine);

   std::vector<std::string> taken;
   for (const Part &part : Parts()) {
      if ((!only.empty() && !only.count(part.name)) || exclude.count(part.name)) {
         continue;
      }
      if (c.Try(part.name, [&] { part.run(c); })) {
         taken.push_back(part.name);
      }
   }
   if (c.modulesWanted) {
      c.Try("modules", [&] { CaptureModules(c); });
   }

   std::string list;
   for (const std::string &name : taken) {
      list += (list.empty() ? "" : ", ") + name;
   }
   c.notes.insert(c.notes.begin() + 1, "parts: " + (list.empty() ? std::string("none") : list));
   snapshot.meta.notes = std::move(c.notes);
   snapshot.entries = std::move(c.entries);
   auto produce = [&](zif::Sink &sink) { zif::writeSnapshot(snapshot, sink); };
   return zifcache::writeSnapshotFile(options.out, "capture", produce) ? 0 : 1;
}

}  // namespace capture
