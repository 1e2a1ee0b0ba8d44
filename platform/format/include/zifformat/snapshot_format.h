// The snapshot file: its in-memory model, the deterministic writer and the
// bounds-checked reader. docs/snapshot-format.md describes the bytes.
#pragma once

#include "zellibs.h"

#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

namespace zif {

inline constexpr char kMagic[8] = {'Z', 'I', 'F', 'S', 'N', 'A', 'P', '\0'};
inline constexpr uint32_t kFormatVersion = 2;
inline constexpr size_t kHeaderSize = 192;
inline constexpr size_t kSectionCount = 5;
inline constexpr size_t kSectionTableOffset = 64;
inline constexpr size_t kHeaderChecksumOffset = 184;
inline constexpr size_t kIndexEntrySize = 40;
inline constexpr size_t kDateSize = 24;
inline constexpr uint32_t kNoNode = 0xffffffffu;

// In file order. The small sections come first so that opening a file and
// reading a small record touch only its first pages, however large it is.
enum class SectionId : uint8_t { Names = 0, Index = 1, Keys = 2, Meta = 3, Data = 4 };
std::string_view sectionName(SectionId id);

enum class EntryKind : uint8_t { List = 1, Record = 2, Data = 3, DevInfo = 4, Set = 5, SetAny = 6 };

// Key types use the parameter type numbers of the C API.
enum class KeyType : uint32_t { Int = ZIF_PARAM_TYPE_INT, Text = ZIF_PARAM_TYPE_STRING, Null = 3 };

struct Key {
   KeyType type = KeyType::Null;
   int64_t number = 0;
   std::string text;

   static Key ofInt(int64_t v) { return {KeyType::Int, v, {}}; }
   static Key ofText(std::string v) { return {KeyType::Text, 0, std::move(v)}; }
   static Key null() { return {}; }
   bool operator==(const Key &) const = default;
};
using Keys = std::vector<Key>;

// Canonical key encoding: per key a type byte, then 8 bytes (int), a u32
// length and the bytes (text), or nothing (null).
void appendKey(std::string &out, KeyType type, int64_t number, std::string_view text);
std::string encodeKeys(const Keys &keys);
bool decodeKeys(std::span<const uint8_t> bytes, Keys &out);

// Encoded keys read one at a time, building nothing. The one reader of the
// encoding: the index check at open runs it over every key of a file.
class KeyReader {
public:
   explicit KeyReader(std::span<const uint8_t> bytes) : bytes_(bytes) {}
   // The next key (a text as a view of the bytes); false at the end, or at a
   // malformed key, after which malformed() is true.
   bool next(KeyType &type, int64_t &number, std::string_view &text) {
      if (pos_ >= bytes_.size() || malformed_) {
         return false;
      }
      const uint8_t *p = bytes_.data() + pos_;
      const size_t left = bytes_.size() - pos_ - 1;
      number = 0;
      text = {};
      if (p[0] == static_cast<uint8_t>(KeyType::Int) && left >= kIntSize) {
         uint64_t v = 0;
         for (size_t i = 1; i <= kIntSize; i++) {
            v = (v << 8) | p[i];
         }
         number = static_cast<int64_t>(v ^ kSignBit);
         pos_ += 1 + kIntSize;
      } else if (p[0] == static_cast<uint8_t>(KeyType::Text) && left >= 4) {
         const uint32_t n = uint32_t{p[1]} | uint32_t{p[2]} << 8 | uint32_t{p[3]} << 16 | uint32_t{p[4]} << 24;
         if (n > left - 4) {
            malformed_ = true;
            return false;
         }
         text = {reinterpret_cast<const char *>(p + 5), n};
         pos_ += 5 + size_t{n};
      } else if (p[0] == static_cast<uint8_t>(KeyType::Null)) {
         pos_ += 1;
      } else {
         malformed_ = true;
         return false;
      }
      type = static_cast<KeyType>(p[0]);
      return true;
   }
   bool malformed() const { return malformed_; }

   // Integer keys are stored big-endian with the sign bit flipped, so that
   // their bytes sort in numeric order: a walk over a node in instance order
   // then reads the index front to back.
   static constexpr size_t kIntSize = 8;
   static constexpr uint64_t kSignBit = uint64_t{1} << 63;

private:
   std::span<const uint8_t> bytes_;
   size_t pos_ = 0;
   bool malformed_ = false;
};

// One key's encoding: its size, and the key written at out (which must hold
// that many bytes), returning the size. Inline: the library encodes the keys
// of every read.
inline size_t encodedKeySize(KeyType type, std::string_view text) {
   return 1 + (type == KeyType::Int ? KeyReader::kIntSize : type == KeyType::Text ? 4 + text.size() : 0);
}

inline size_t encodeKey(uint8_t *out, KeyType type, int64_t number, std::string_view text) {
   out[0] = static_cast<uint8_t>(type);
   if (type == KeyType::Int) {
      uint64_t v = static_cast<uint64_t>(number) ^ KeyReader::kSignBit;
      for (size_t i = KeyReader::kIntSize; i >= 1; i--) {
         out[i] = static_cast<uint8_t>(v);
         v >>= 8;
      }
      return 1 + KeyReader::kIntSize;
   }
   if (type == KeyType::Text) {
      const auto n = static_cast<uint32_t>(text.size());
      for (size_t i = 0; i < 4; i++) {
         out[1 + i] = static_cast<uint8_t>(n >> (8 * i));
      }
      if (!text.empty()) {
         std::memcpy(out + 5, text.data(), text.size());
      }
      return 5 + text.size();
   }
   return 1;
}

struct Signature {
   uint64_t digest = 0;
   std::string date;
};

struct SimulatorSettings {
   bool present = false;
   uint64_t rootDevice = 1;
};

struct Meta {
   bool present = false;
   std::string host, captured, by;
   std::vector<std::string> notes;
};

struct Entry {
   EntryKind kind = EntryKind::Record;
   std::string node;            // empty for devinfo
   Keys keys;                   // parent keys (lists), input values (sets), PCI function (devinfo)
   uint32_t status = 0;         // injected status; for sets, the answer's status
   std::vector<uint8_t> bytes;  // record, data, devinfo reply or set output
   Keys instances;              // lists
   std::string origin;          // where the entry came from, for messages; not stored
};

struct Snapshot {
   Signature signature;
   SimulatorSettings simulator;
   Meta meta;
   std::vector<Entry> entries;
};

struct FormatError : std::runtime_error {
   using std::runtime_error::runtime_error;
};

class Sink {
public:
   virtual ~Sink() = default;
   virtual void write(std::span<const uint8_t> bytes) = 0;
};

class VectorSink : public Sink {
public:
   void write(std::span<const uint8_t> bytes) override { data.insert(data.end(), bytes.begin(), bytes.end()); }
   std::vector<uint8_t> data;
};

// An entry as the writer takes it: the payload is only referenced, so that
// large files can be written without copies.
struct RawEntry {
   EntryKind kind;
   std::string_view node;
   std::string key;
   uint32_t status;
   std::span<const uint8_t> payload;
   std::string_view origin;
};

// Same input, same bytes. Throws FormatError on duplicate entries.
void writeRaw(const Signature &signature, const SimulatorSettings &simulator, const Meta &meta,
              std::vector<RawEntry> entries, Sink &sink);
void writeSnapshot(const Snapshot &snapshot, Sink &sink);
std::vector<uint8_t> snapshotBytes(const Snapshot &snapshot);

// What is wrong with a file, and where.
struct Problem {
   ZLC_ReturnStatus status = ZLC_OK;
   std::string message;
   uint64_t offset = 0;
};

struct IndexEntry {
   EntryKind kind;
   uint32_t nameId;
   uint32_t keyOffset, keyLength;
   uint64_t dataOffset;
   uint32_t dataLength;
   uint32_t status;
   uint64_t checksum;
};

// Where a reader gets its bytes: memory, or a mapped file.
class ByteSource {
public:
   virtual ~ByteSource() = default;
   virtual uint64_t size() const = 0;
   // Bytes [offset, offset + length), which the caller has checked lie in
   // the source; valid while the source lives. Nullopt when they cannot be
   // had (a mapping failed).
   virtual std::optional<std::span<const uint8_t>> view(uint64_t offset, uint64_t length) = 0;
   // Says that bytes the caller has viewed will all be read now, so that a
   // mapping can bring them in at once rather than page by page.
   virtual void willReadAll(uint64_t /*offset*/, uint64_t /*length*/) {}
   // Bytes [offset, size()) when they are in view already, so that a reader
   // can keep them rather than ask for each piece; else empty.
   virtual std::span<const uint8_t> viewInPlace(uint64_t /*offset*/) { return {}; }
};

class MemorySource : public ByteSource {
public:
   explicit MemorySource(std::span<const uint8_t> bytes) : bytes_(bytes) {}
   uint64_t size() const override { return bytes_.size(); }
   std::optional<std::span<const uint8_t>> view(uint64_t offset, uint64_t length) override {
      return bytes_.subspan(offset, length);
   }
   std::span<const uint8_t> viewInPlace(uint64_t offset) override { return bytes_.subspan(offset); }

private:
   std::span<const uint8_t> bytes_;
};

// Reads a snapshot held in memory (usually a read-only mapping). Opening
// checks the header, the section table and the small sections; record data
// is checked entry by entry on first read.
class Reader {
public:
   ZLC_ReturnStatus open(std::span<const uint8_t> file, Problem *problem = nullptr);
   // The source must outlive the reader.
   ZLC_ReturnStatus open(ByteSource &source, Problem *problem = nullptr);

   const Signature &signature() const { return signature_; }
   const SimulatorSettings &simulator() const { return simulator_; }
   const Meta &meta() const { return meta_; }

   size_t size() const { return count_; }
   IndexEntry entry(size_t i) const;
   std::string_view entryNode(const IndexEntry &e) const;
   std::span<const uint8_t> entryKey(const IndexEntry &e) const;
   std::optional<size_t> find(EntryKind kind, std::string_view node, std::string_view key) const;

   // The run of index entries of one kind and node, [first, last), the entry
   // after the last one found (a walk in key order finds each next there), and
   // once it is looked up often out of order, a hash table of its keys. Its
   // fields are the reader's own.
   struct Group {
      size_t first = 0, last = 0;
      size_t next = 0;
      unsigned lookups = 0;
      // Open addressing: entry index + 1 per slot, 0 for an empty one; a
      // power of two in size.
      std::vector<uint32_t> byKey;
   };
   // The group of a kind and node, an empty one when the file has no such
   // node; valid until the next open. A caller that reads a node many times
   // keeps it and looks its keys up with find(group, key).
   Group &group(EntryKind kind, std::string_view node) const;
   // The entry's index, or kNotFound. A plain number: an optional returned
   // through memory stalls every call on its way back.
   static constexpr size_t kNotFound = SIZE_MAX;
   size_t find(Group &group, std::string_view key) const;
   // The entry of key in group: ZLC_NO_SUCH_NODE without one, the status an
   // entry holds in place of its payload, else ZLC_OK and its payload.
   ZLC_ReturnStatus read(Group &group, std::string_view key, std::span<const uint8_t> &out) const;
   // The entry's payload, after its checksum has been verified once.
   ZLC_ReturnStatus payload(size_t i, std::span<const uint8_t> &out, Problem *problem = nullptr) const;

   // Every entry decoded into the model (verifies every payload).
   ZLC_ReturnStatus toModel(Snapshot &out, Problem *problem = nullptr) const;
   // Verifies everything, including the checksum of the whole data section.
   ZLC_ReturnStatus verifyAll(Problem *problem = nullptr) const;

   uint64_t sectionOffset(SectionId id) const { return sections_[static_cast<size_t>(id)].offset; }

private:
   struct Section {
      uint64_t offset, size, checksum;
   };
   std::span<const uint8_t> section(SectionId id) const;  // not for Data
   ZLC_ReturnStatus data(uint64_t offset, uint64_t length, std::span<const uint8_t> &out) const;
   Group &groupById(EntryKind kind, uint32_t nameId) const;
   size_t findOutOfOrder(Group &g, std::string_view key) const;
   std::string_view keyText(size_t i) const;

   std::unique_ptr<MemorySource> own_;
   ByteSource *source_ = nullptr;
   std::span<const uint8_t> head_;  // the header and every section before the data
   std::span<const uint8_t> data_;  // the data section, when the source holds it all in view
   Section sections_[kSectionCount] = {};
   Signature signature_;
   SimulatorSettings simulator_;
   Meta meta_;
   std::vector<std::string_view> names_;
   size_t count_ = 0;
   mutable std::vector<uint64_t> verified_;  // a bit per entry
   mutable std::unordered_map<uint64_t, Group> groups_;
   mutable Group empty_;  // of every node the file does not hold
   // The groups of the last few lookups, tried before the names and the
   // table: a command reads a handful of nodes in turn.
   struct RecentGroup {
      EntryKind kind = EntryKind::List;
      std::string_view node;
      Group *group = nullptr;
   };
   static constexpr size_t kRecentGroups = 8;
   mutable RecentGroup recent_[kRecentGroups];
   mutable size_t recentNext_ = 0;
};

std::string describeEntry(EntryKind kind, std::string_view node, const Keys &keys);
std::string formatKeys(const Keys &keys);

}  // namespace zif
