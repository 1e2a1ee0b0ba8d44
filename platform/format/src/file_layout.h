// The snapshot file's own structures: the header with its section table, the
// index entry, and the names and meta sections (the key encoding is public,
// in snapshot_format.h). Each has one encode and one decode function, so the
// writer and the reader share every offset. docs/snapshot-format.md describes
// the bytes; a new field is one offset below and one line in each function.
#pragma once

#include "zifformat/snapshot_format.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include <xxhash.h>

namespace zif::file {

// ---- bytes ----

// Little-endian loads; the compiler turns the copy into one load on
// little-endian machines, which keeps index searches cheap.
inline uint32_t getU32(const uint8_t *p) {
   uint32_t v;
   std::memcpy(&v, p, sizeof v);
   if constexpr (std::endian::native == std::endian::big) {
      v = __builtin_bswap32(v);
   }
   return v;
}

inline uint64_t getU64(const uint8_t *p) {
   uint64_t v;
   std::memcpy(&v, p, sizeof v);
   if constexpr (std::endian::native == std::endian::big) {
      v = __builtin_bswap64(v);
   }
   return v;
}

inline void putU32At(uint8_t *p, uint32_t v) {
   for (int i = 0; i < 4; i++) {
      p[i] = static_cast<uint8_t>(v >> (8 * i));
   }
}

inline void putU64At(uint8_t *p, uint64_t v) {
   for (int i = 0; i < 8; i++) {
      p[i] = static_cast<uint8_t>(v >> (8 * i));
   }
}

inline std::span<const uint8_t> asBytes(std::string_view s) {
   return {reinterpret_cast<const uint8_t *>(s.data()), s.size()};
}

inline std::string_view asText(std::span<const uint8_t> b) {
   return {reinterpret_cast<const char *>(b.data()), b.size()};
}

inline uint64_t hashOf(std::span<const uint8_t> b) {
   return XXH3_64bits(b.data(), b.size());
}

// What messages call an entry of a kind: "record", "set (any input)", ...
std::string_view kindLabel(EntryKind kind);

// ---- header: kHeaderSize bytes at the start of the file ----

// Offsets of the header's fields.
namespace headerField {
inline constexpr size_t kMagic = 0;
inline constexpr size_t kVersion = 8;
inline constexpr size_t kHeaderSize = 12;
inline constexpr size_t kDigest = 16;
inline constexpr size_t kDate = 24;  // kDateSize bytes, NUL-padded
inline constexpr size_t kFileSize = 48;
inline constexpr size_t kReserved = 56;
inline constexpr size_t kSections = kSectionTableOffset;  // kSectionCount section entries
inline constexpr size_t kChecksum = kHeaderChecksumOffset;
}  // namespace headerField

// A section table entry: where the section lies and the XXH3-64 of its bytes.
struct SectionEntry {
   uint64_t offset = 0, size = 0, checksum = 0;
};
inline constexpr size_t kSectionEntrySize = 24;
namespace sectionField {
inline constexpr size_t kOffset = 0;
inline constexpr size_t kSize = 8;
inline constexpr size_t kChecksum = 16;
}  // namespace sectionField

static_assert(headerField::kDate + kDateSize == headerField::kFileSize);
static_assert(headerField::kSections + kSectionCount * kSectionEntrySize == headerField::kChecksum);
static_assert(headerField::kChecksum + 8 == kHeaderSize);

struct FileHeader {
   uint32_t version = kFormatVersion;
   uint32_t headerSize = kHeaderSize;
   Signature signature;
   uint64_t fileSize = 0;
   uint64_t reserved = 0;
   std::array<SectionEntry, kSectionCount> sections{};
   uint64_t checksum = 0;  // as stored; encodeHeader computes it
};

// The header's bytes, ending with the checksum of those before it.
std::array<uint8_t, kHeaderSize> encodeHeader(const FileHeader &h);
FileHeader decodeHeader(std::span<const uint8_t, kHeaderSize> bytes);
// The checksum the header's bytes call for.
uint64_t headerChecksum(std::span<const uint8_t, kHeaderSize> bytes);

// What a file's first bytes tell before there is a whole header: whether
// they start like the magic (as far as there are bytes), and the version
// (given at least headerField::kVersion + 4 bytes).
bool startsWithMagic(std::span<const uint8_t> start);
uint32_t decodeVersion(std::span<const uint8_t> start);

// ---- index: kIndexEntrySize bytes per entry ----

// Offsets of an index entry's fields.
namespace indexField {
inline constexpr size_t kKind = 0;
inline constexpr size_t kReserved = 1;  // 3 bytes, 0
inline constexpr size_t kNameId = 4;
inline constexpr size_t kKeyOffset = 8;
inline constexpr size_t kKeyLength = 12;
inline constexpr size_t kDataOffset = 16;
inline constexpr size_t kDataLength = 24;
inline constexpr size_t kStatus = 28;
inline constexpr size_t kChecksum = 32;
static_assert(kChecksum + 8 == kIndexEntrySize);
}  // namespace indexField

std::array<uint8_t, kIndexEntrySize> encodeIndexEntry(const IndexEntry &e);

inline IndexEntry decodeIndexEntry(const uint8_t *p) {
   return {static_cast<EntryKind>(p[indexField::kKind]),
           getU32(p + indexField::kNameId),
           getU32(p + indexField::kKeyOffset),
           getU32(p + indexField::kKeyLength),
           getU64(p + indexField::kDataOffset),
           getU32(p + indexField::kDataLength),
           getU32(p + indexField::kStatus),
           getU64(p + indexField::kChecksum)};
}

// A known kind and zero reserved bytes.
inline bool indexEntryFramed(const uint8_t *p) {
   const uint8_t kind = p[indexField::kKind];
   const bool known = kind >= static_cast<uint8_t>(EntryKind::List) && kind <= static_cast<uint8_t>(EntryKind::SetAny);
   const uint8_t *reserved = p + indexField::kReserved;
   return known && reserved[0] == 0 && reserved[1] == 0 && reserved[2] == 0;
}

// The (kind, node) group of an entry as one number that sorts as the index does.
inline uint64_t indexGroup(const uint8_t *p) {
   return (uint64_t{p[indexField::kKind]} << 32) | getU32(p + indexField::kNameId);
}

inline uint64_t indexGroup(EntryKind kind, uint32_t nameId) {
   return (uint64_t{static_cast<uint8_t>(kind)} << 32) | nameId;
}

// Where an entry's key lies in the keys section: offset, length.
inline std::pair<uint32_t, uint32_t> indexKeyRange(const uint8_t *p) {
   return {getU32(p + indexField::kKeyOffset), getU32(p + indexField::kKeyLength)};
}

// The number of keys in an encoded key string, without building them; false
// when it is malformed (as decodeKeys is).
inline bool countKeys(std::span<const uint8_t> bytes, size_t &count) {
   count = 0;
   KeyReader reader(bytes);
   KeyType type;
   int64_t number;
   std::string_view text;
   while (reader.next(type, number, text)) {
      count++;
   }
   return !reader.malformed();
}

// Whether key bytes a sort before b (bytes compared as unsigned, a prefix
// first), eight bytes at a time: the index check compares every pair of
// neighbours.
inline bool keyBytesLess(std::span<const uint8_t> a, std::span<const uint8_t> b) {
   const size_t n = std::min(a.size(), b.size());
   size_t i = 0;
   for (; i + 8 <= n; i += 8) {
      uint64_t x, y;
      std::memcpy(&x, a.data() + i, 8);
      std::memcpy(&y, b.data() + i, 8);
      if (x != y) {
         if constexpr (std::endian::native == std::endian::little) {
            x = __builtin_bswap64(x);
            y = __builtin_bswap64(y);
         }
         return x < y;
      }
   }
   for (; i < n; i++) {
      if (a[i] != b[i]) {
         return a[i] < b[i];
      }
   }
   return a.size() < b.size();
}

// ---- names section: u32 count, then per name u32 length and bytes ----

std::string encodeNames(std::span<const std::string_view> names);
// Fills names (in strictly ascending order, as they must be). False when the
// section is malformed; then at is the offset within it where reading stopped.
bool decodeNames(std::span<const uint8_t> section, std::vector<std::string_view> &names, size_t &at);

// ---- meta section: flags, reserved, rootDevice, host, captured, by, notes ----

inline constexpr uint32_t kMetaSimulatorPresent = 1;
inline constexpr uint32_t kMetaPresent = 2;

std::string encodeMeta(const SimulatorSettings &simulator, const Meta &meta);
// False when the section is malformed; then at is the offset within it where
// reading stopped.
bool decodeMeta(std::span<const uint8_t> section, SimulatorSettings &simulator, Meta &meta, size_t &at);

}  // namespace zif::file
