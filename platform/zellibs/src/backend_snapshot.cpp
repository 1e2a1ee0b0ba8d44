// Snapshot back end: every answer comes from the mapped file; nothing changes.
#include "backend_snapshot.h"

#include <algorithm>
#include <cstring>

namespace zif {
namespace {

// Zeroes bytes in pieces just under 2 KiB. glibc fills 2 KiB and more with
// `rep stosb`, which the AMD hosts these tools are measured on run at half the
// speed of the vector stores it uses below that: the tail of a 4 KiB affinity
// record took 117 ns whole and 58 ns in two pieces.
void zeroFill(uint8_t *bytes, size_t count) {
   constexpr size_t kPiece = 2047;
   while (count != 0) {
      size_t piece = std::min(count, kPiece);
      // Hidden from the optimiser: a size with a known bound gets the
      // compiler's own `rep stos` in place of the call.
      asm("" : "+r"(piece));
      std::memset(bytes, 0, piece);
      bytes += piece;
      count -= piece;
   }
}

// A stored record into a caller's buffer: as much as fits, the rest zeroed (a
// record is stored without its trailing zero bytes).
void copyRecord(std::span<const uint8_t> stored, std::span<uint8_t> buffer) {
   const size_t n = std::min(buffer.size(), stored.size());
   if (n) {
      std::memcpy(buffer.data(), stored.data(), n);
   }
   zeroFill(buffer.data() + n, buffer.size() - n);
}

}  // namespace

ZLC_ReturnStatus SnapshotBackend::load(const std::string &path) {
   path_ = path;
   recordGroups_.clear();
   listGroups_.clear();
   ZLC_ReturnStatus s = file_.open(path);
   if (s == ZLC_OK) {
      s = reader_.open(file_);
   }
   if (s != ZLC_OK) {
      reader_ = Reader();
      file_.close();
   }
   return s;
}

ZLC_ReturnStatus SnapshotBackend::lookup(EntryKind kind, std::string_view node, const Keys &keys,
                                         std::span<const uint8_t> &payload) {
   return lookup(kind, node, encodeKeys(keys), payload);
}

ZLC_ReturnStatus SnapshotBackend::lookup(EntryKind kind, std::string_view node, std::string_view key,
                                         std::span<const uint8_t> &payload) {
   return reader_.read(reader_.group(kind, node), key, payload);
}

Reader::Group &SnapshotBackend::groupOf(EntryKind kind, const NodeRef &node) {
   std::vector<Reader::Group *> &groups = kind == EntryKind::List ? listGroups_ : recordGroups_;
   if (node.number >= groups.size()) {
      groups.resize(size_t{node.number} + 1, nullptr);
   }
   if (!groups[node.number]) {
      groups[node.number] = &reader_.group(kind, node.name);
   }
   return *groups[node.number];
}

ZLC_ReturnStatus SnapshotBackend::listInstances(std::string_view node, const Keys &parent, Keys &out) {
   std::span<const uint8_t> payload;
   ZLC_ReturnStatus s = lookup(EntryKind::List, node, parent, payload);
   if (s != ZLC_OK) {
      return s;
   }
   return decodeKeys(payload, out) ? ZLC_OK : ZLC_SNAP_CORRUPT;
}

ZLC_ReturnStatus SnapshotBackend::listInstancesEncoded(const NodeRef &node, std::string_view parent,
                                                       std::span<const uint8_t> &out) {
   return reader_.read(groupOf(EntryKind::List, node), parent, out);
}

ZLC_ReturnStatus SnapshotBackend::getRecord(std::string_view node, const Keys &keys, std::span<uint8_t> buffer) {
   std::span<const uint8_t> payload;
   ZLC_ReturnStatus s = lookup(EntryKind::Record, node, encodeKeys(keys), payload);
   if (s == ZLC_OK) {
      copyRecord(payload, buffer);
   }
   return s;
}

ZLC_ReturnStatus SnapshotBackend::getRecordEncoded(const NodeRef &node, std::string_view key,
                                                   std::span<uint8_t> buffer) {
   std::span<const uint8_t> payload;
   ZLC_ReturnStatus s = reader_.read(groupOf(EntryKind::Record, node), key, payload);
   if (s == ZLC_OK) {
      copyRecord(payload, buffer);
   }
   return s;
}

ZLC_ReturnStatus SnapshotBackend::dataLength(std::string_view node, const Keys &keys, uint32_t &length) {
   std::span<const uint8_t> payload;
   ZLC_ReturnStatus s = lookup(EntryKind::Data, node, keys, payload);
   if (s == ZLC_OK) {
      length = static_cast<uint32_t>(payload.size());
   }
   return s;
}

ZLC_ReturnStatus SnapshotBackend::readData(std::string_view node, const Keys &keys, uint32_t offset,
                                           std::span<uint8_t> out, uint32_t &delivered) {
   std::span<const uint8_t> payload;
   ZLC_ReturnStatus s = lookup(EntryKind::Data, node, keys, payload);
   if (s != ZLC_OK) {
      return s;
   }
   delivered = 0;
   if (offset < payload.size()) {
      size_t n = std::min(out.size(), payload.size() - offset);
      if (n) {
         std::memcpy(out.data(), payload.data() + offset, n);
      }
      delivered = static_cast<uint32_t>(n);
   }
   return ZLC_OK;
}

bool SnapshotBackend::storedSetAnswer(std::string_view node, const Keys &input, std::span<uint8_t> output,
                                      ZLC_ReturnStatus &status) {
   std::string key = encodeKeys(input);
   auto i = reader_.find(EntryKind::Set, node, key);
   if (!i) {
      i = reader_.find(EntryKind::SetAny, node, "");
   }
   if (!i) {
      return false;
   }
   std::span<const uint8_t> payload;
   status = reader_.payload(*i, payload);
   if (status != ZLC_OK) {
      return true;
   }
   copyRecord(payload, output);
   status = reader_.entry(*i).status;
   return true;
}

ZLC_ReturnStatus SnapshotBackend::set(std::string_view node, const Keys &, const Keys &input,
                                      std::span<uint8_t> output) {
   ZLC_ReturnStatus status;
   if (storedSetAnswer(node, input, output, status)) {
      return status;
   }
   return ZLC_SNAP_READ_ONLY;
}

ZLC_ReturnStatus SnapshotBackend::devInfo(const PciFunction &function, std::span<uint8_t, ZLC_DEVINFO_REPLY_SIZE> reply,
                                          int64_t &negErrno) {
   negErrno = 0;
   Keys keys;
   for (uint32_t v : function) {
      keys.push_back(Key::ofInt(v));
   }
   std::span<const uint8_t> payload;
   ZLC_ReturnStatus s = lookup(EntryKind::DevInfo, {}, keys, payload);
   if (s != ZLC_OK) {
      return s;
   }
   std::fill(reply.begin(), reply.end(), 0);
   std::memcpy(reply.data(), payload.data(), std::min(reply.size(), payload.size()));
   return ZLC_OK;
}

bool SnapshotBackend::signature(Signature &out) {
   out = reader_.signature();
   return true;
}

uint64_t SnapshotBackend::rootDevice() {
   return reader_.simulator().present ? reader_.simulator().rootDevice : 1;
}

std::unique_ptr<Backend> openSnapshotBackend(const std::string &path, ZLC_ReturnStatus &status) {
   auto b = std::make_unique<SnapshotBackend>();
   status = b->load(path);
   if (status != ZLC_OK) {
      return nullptr;
   }
   return b;
}

namespace {
class FailingBackend : public Backend {
public:
   explicit FailingBackend(ZLC_ReturnStatus s) : status_(s) {}
   ZLC_ReturnStatus listInstances(std::string_view, const Keys &, Keys &) override { return status_; }
   ZLC_ReturnStatus getRecord(std::string_view, const Keys &, std::span<uint8_t>) override { return status_; }
   ZLC_ReturnStatus dataLength(std::string_view, const Keys &, uint32_t &) override { return status_; }
   ZLC_ReturnStatus readData(std::string_view, const Keys &, uint32_t, std::span<uint8_t>, uint32_t &) override {
      return status_;
   }
   ZLC_ReturnStatus set(std::string_view, const Keys &, const Keys &, std::span<uint8_t>) override { return status_; }
   ZLC_ReturnStatus devInfo(const PciFunction &, std::span<uint8_t, ZLC_DEVINFO_REPLY_SIZE>, int64_t &e) override {
      e = 0;
      return status_;
   }
   bool signature(Signature &) override { return false; }

private:
   ZLC_ReturnStatus status_;
};
}  // namespace

std::unique_ptr<Backend> makeFailingBackend(ZLC_ReturnStatus status) {
   return std::make_unique<FailingBackend>(status);
}

}  // namespace zif
