#include "builder.h"

#include "procfs.h"

#include <algorithm>
#include <cstring>

namespace capture {

Record::Record(std::string_view node) : layout_(zif::findLayout(node)) {
   if (!layout_) {
      throw PartError("no record layout for " + std::string(node));
   }
   bytes_.assign(layout_->length, 0);
}

const zif::FieldLayout &Record::Field(std::string_view name) const {
   const zif::FieldLayout *f = zif::findField(*layout_, name);
   if (!f) {
      throw PartError("record " + std::string(layout_->node) + " has no field " + std::string(name));
   }
   return *f;
}

Record &Record::Set(std::string_view field, uint64_t value) {
   const zif::FieldLayout &f = Field(field);
   if (!zif::isInteger(f.kind)) {
      throw PartError("field " + std::string(field) + " is not a number");
   }
   for (uint32_t i = 0; i < f.width && f.offset + i < bytes_.size(); i++) {
      bytes_[f.offset + i] = static_cast<uint8_t>(value >> (8 * i));
   }
   return *this;
}

Record &Record::Text(std::string_view field, std::string_view text) {
   const zif::FieldLayout &f = Field(field);
   size_t n = std::min<size_t>(text.size(), f.width - 1);
   if (auto nul = text.find('\0'); nul < n) {
      n = nul;
   }
   std::memcpy(bytes_.data() + f.offset, text.data(), n);
   return *this;
}

Record &Record::Bytes(std::string_view field, std::span<const uint8_t> bytes) {
   const zif::FieldLayout &f = Field(field);
   size_t n = std::min<size_t>(bytes.size(), f.width);
   std::memcpy(bytes_.data() + f.offset, bytes.data(), n);
   return *this;
}

std::vector<uint8_t> Record::Take(bool trimmed) {
   std::vector<uint8_t> out = std::move(bytes_);
   if (trimmed) {
      // Keep one NUL, so that a record holding a text stays a terminated text.
      size_t end = out.size();
      while (end > 0 && out[end - 1] == 0) {
         end--;
      }
      out.resize(std::min(out.size(), end + 1));
   }
   bytes_.assign(layout_->length, 0);
   return out;
}

uint32_t ModuleTable::Id(const std::string &name) {
   auto [it, added] = ids_.try_emplace(name, static_cast<uint32_t>(names_.size() + 1));
   if (added) {
      names_.push_back(name);
   }
   return it->second;
}

std::string Capture::HostPathOf(std::string link) const {
   if (paths.root.empty() || !link.starts_with(paths.root)) {
      return link;
   }
   if (link.size() == paths.root.size()) {
      return "/";
   }
   return link[paths.root.size()] == '/' ? link.substr(paths.root.size()) : link;
}

void Capture::SeedModules() {
   if (modulesWanted) {
      return;
   }
   modulesWanted = true;
   if (auto text = ReadFile(Proc("modules"))) {
      for (const std::string &name : ParseModules(*text)) {
         modules.Id(name);
      }
   } else {
      Note("modules: no " + Proc("modules") + " (a kernel without loadable modules); only built-in drivers are listed");
   }
}

void Capture::Add(zif::EntryKind kind, std::string_view node, zif::Keys keys, std::vector<uint8_t> bytes,
                  zif::Keys instances) {
   zif::Entry e;
   e.kind = kind;
   e.node = node;
   e.keys = std::move(keys);
   e.bytes = std::move(bytes);
   e.instances = std::move(instances);
   entries.push_back(std::move(e));
}

void Capture::List(std::string_view node, zif::Keys parent, zif::Keys instances) {
   Add(zif::EntryKind::List, node, std::move(parent), {}, std::move(instances));
}

void Capture::Put(std::string_view node, zif::Keys keys, std::vector<uint8_t> bytes) {
   Add(zif::EntryKind::Record, node, std::move(keys), std::move(bytes));
}

void Capture::PutText(std::string_view node, zif::Keys keys, std::string_view text) {
   const zif::RecordLayout *layout = zif::findLayout(node);
   if (!layout || layout->fields.empty() || layout->fields[0].offset != 0 ||
       layout->fields[0].kind != zif::FieldKind::TEXT) {
      throw PartError("record " + std::string(node) + " is not a text");
   }
   size_t n = std::min<size_t>(text.size(), layout->fields[0].width - 1);
   if (auto nul = text.find('\0'); nul < n) {
      n = nul;
   }
   std::vector<uint8_t> bytes(text.begin(), text.begin() + static_cast<ptrdiff_t>(n));
   bytes.push_back(0);
   Put(node, std::move(keys), std::move(bytes));
}

void Capture::PutSet(std::string_view node, zif::Keys input, std::vector<uint8_t> output) {
   Add(zif::EntryKind::Set, node, std::move(input), std::move(output));
}

void Capture::PutDevInfo(zif::Keys function, rec::DevInfoReply reply) {
   std::span<const uint8_t> bytes = reply.bytes();
   Add(zif::EntryKind::DevInfo, {}, std::move(function), std::vector<uint8_t>(bytes.begin(), bytes.end()));
}

}  // namespace capture
