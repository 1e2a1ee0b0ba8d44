// What the parts of a capture share: where the host's files are, the snapshot
// being filled, the notes on what could not be read, the kernel modules met
// so far, and records built field by field from the layout table.
#pragma once

#include "fileio.h"
#include "zellibs_records.h"
#include "zifformat/layouts.h"
#include "zifformat/snapshot_format.h"

#include <cstdint>
#include <map>
#include <memory>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace capture {

// A part cannot go on (a missing layout, a source that cannot be read). The
// driver notes the message and goes on with the next part.
struct PartError : std::runtime_error {
   using std::runtime_error::runtime_error;
};

// A record of a node with a layout: the layout's length of zero bytes, set
// field by field by name, so that no offset is written twice.
class Record {
public:
   explicit Record(std::string_view node);
   Record &Set(std::string_view field, uint64_t value);  // any integer field; negative values as two's complement
   Record &SetSigned(std::string_view field, int64_t value) { return Set(field, static_cast<uint64_t>(value)); }
   Record &Text(std::string_view field, std::string_view text);            // cut to fit with its NUL
   Record &Bytes(std::string_view field, std::span<const uint8_t> bytes);  // cut to the field's width
   // The bytes; with trimmed, without the trailing zeros but one (the
   // library zero-fills a short record when it is read).
   std::vector<uint8_t> Take(bool trimmed = false);
   std::string_view node() const { return layout_->node; }

private:
   const zif::FieldLayout &Field(std::string_view name) const;
   const zif::RecordLayout *layout_;
   std::vector<uint8_t> bytes_;
};

// Kernel modules get IDs in the order they are met: first /proc/modules, then
// the built-in drivers that drive a device.
class ModuleTable {
public:
   uint32_t Id(const std::string &name);
   const std::vector<std::string> &Names() const { return names_; }
   bool Empty() const { return names_.empty(); }

private:
   std::map<std::string, uint32_t> ids_;
   std::vector<std::string> names_;
};

struct ProcessInfo;

// Where the host's files are: "" for the host itself, or a directory
// holding a copy (proc/, sys/, mount points) for tests.
struct HostPaths {
   std::string root;
   std::string proc = "/proc";
   std::string sys = "/sys";
};

class Capture {
public:
   Capture(HostPaths where, std::chrono::milliseconds readLimit) : paths(std::move(where)), reader(readLimit) {}

   void List(std::string_view node, zif::Keys parent, zif::Keys instances);
   void Put(std::string_view node, zif::Keys keys, std::vector<uint8_t> bytes);
   void Put(Record &record, zif::Keys keys, bool trimmed = false) {
      Put(record.node(), std::move(keys), record.Take(trimmed));
   }
   // A record that is a NUL-terminated text (its layout's first field is a
   // TEXT field at offset 0), cut to fit that field and stored with its NUL only.
   void PutText(std::string_view node, zif::Keys keys, std::string_view text);
   void PutSet(std::string_view node, zif::Keys input, std::vector<uint8_t> output);
   void PutDevInfo(zif::Keys function, rec::DevInfoReply reply);
   void Note(std::string text) { notes.push_back(std::move(text)); }
   // Runs one piece of a part; when it throws PartError, drops what it added
   // and notes why, so that the rest of the part goes on.
   template <typename F>
   bool Try(std::string_view part, F &&piece) {
      size_t mark = entries.size();
      try {
         piece();
         return true;
      } catch (const PartError &e) {
         entries.resize(mark);
         Note(std::string(part) + ": " + e.what());
         return false;
      }
   }

   std::string Proc(std::string_view rest) const { return paths.proc + "/" + std::string(rest); }
   std::string Sys(std::string_view rest) const { return paths.sys + "/" + std::string(rest); }
   // An absolute path of the host, such as a mount point.
   std::string Host(std::string_view path) const { return paths.root + std::string(path); }
   // The host path a link names: in a copy under root, a link into the copy
   // names the host's path.
   std::string HostPathOf(std::string link) const;

   HostPaths paths;
   BoundedReader reader;
   // Module IDs follow /proc/modules; built-in drivers come after them.
   void SeedModules();
   uint32_t ModuleId(const std::string &name) {
      SeedModules();
      return modules.Id(name);
   }
   ModuleTable modules;
   bool modulesWanted = false;
   std::vector<zif::Entry> entries;
   std::vector<std::string> notes;
   // The scan of /proc, made by the first part that needs it (processes.h).
   std::shared_ptr<std::vector<ProcessInfo>> processes;

private:
   void Add(zif::EntryKind kind, std::string_view node, zif::Keys keys, std::vector<uint8_t> bytes,
            zif::Keys instances = {});
};

inline zif::Key IntKey(int64_t v) {
   return zif::Key::ofInt(v);
}
inline zif::Key TextKey(std::string v) {
   return zif::Key::ofText(std::move(v));
}

}  // namespace capture
