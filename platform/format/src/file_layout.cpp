// Encoding and decoding of the snapshot file's structures. Decoders never read
// past the bytes they are given.
#include "file_layout.h"

#include <algorithm>

namespace zif {
namespace {

void putU32(std::string &out, uint32_t v) {
   for (int i = 0; i < 4; i++) {
      out.push_back(static_cast<char>(v >> (8 * i)));
   }
}

void putU64(std::string &out, uint64_t v) {
   for (int i = 0; i < 8; i++) {
      out.push_back(static_cast<char>(v >> (8 * i)));
   }
}

void putString(std::string &out, std::string_view s) {
   putU32(out, static_cast<uint32_t>(s.size()));
   out.append(s);
}

// A cursor over a byte span that never reads past its end.
class Cursor {
public:
   explicit Cursor(std::span<const uint8_t> b) : bytes_(b) {}
   bool u32(uint32_t &v) {
      if (left() < 4) {
         return false;
      }
      v = file::getU32(bytes_.data() + pos_);
      pos_ += 4;
      return true;
   }
   bool u64(uint64_t &v) {
      if (left() < 8) {
         return false;
      }
      v = file::getU64(bytes_.data() + pos_);
      pos_ += 8;
      return true;
   }
   // A u32 length and that many bytes.
   bool text(std::string_view &s) {
      uint32_t n = 0;
      if (!u32(n) || left() < n) {
         return false;
      }
      s = file::asText(bytes_.subspan(pos_, n));
      pos_ += n;
      return true;
   }
   size_t left() const { return bytes_.size() - pos_; }
   void skip(size_t n) { pos_ += n; }
   size_t pos() const { return pos_; }

private:
   std::span<const uint8_t> bytes_;
   size_t pos_ = 0;
};

// Walks encoded keys, handing each to add(type, number, text); false at the
// first malformed key.
template <typename Add>
bool walkKeys(std::span<const uint8_t> bytes, Add &&add) {
   KeyReader reader(bytes);
   KeyType type;
   int64_t number;
   std::string_view text;
   while (reader.next(type, number, text)) {
      add(type, number, text);
   }
   return !reader.malformed();
}

}  // namespace

// ---- keys ----

void appendKey(std::string &out, KeyType type, int64_t number, std::string_view text) {
   const size_t at = out.size();
   out.resize(at + encodedKeySize(type, text));
   encodeKey(reinterpret_cast<uint8_t *>(out.data() + at), type, number, text);
}

std::string encodeKeys(const Keys &keys) {
   std::string out;
   for (const Key &k : keys) {
      appendKey(out, k.type, k.number, k.text);
   }
   return out;
}

bool decodeKeys(std::span<const uint8_t> bytes, Keys &out) {
   out.clear();
   return walkKeys(bytes, [&out](KeyType type, int64_t number, std::string_view text) {
      out.push_back(type == KeyType::Int    ? Key::ofInt(number)
                    : type == KeyType::Text ? Key::ofText(std::string(text))
                                            : Key::null());
   });
}

namespace file {}  // namespace file

namespace file {

// ---- header ----

uint64_t headerChecksum(std::span<const uint8_t, kHeaderSize> bytes) {
   return XXH3_64bits(bytes.data(), headerField::kChecksum);
}

std::array<uint8_t, kHeaderSize> encodeHeader(const FileHeader &h) {
   std::array<uint8_t, kHeaderSize> b{};
   std::memcpy(b.data() + headerField::kMagic, kMagic, sizeof kMagic);
   putU32At(b.data() + headerField::kVersion, h.version);
   putU32At(b.data() + headerField::kHeaderSize, h.headerSize);
   putU64At(b.data() + headerField::kDigest, h.signature.digest);
   std::memcpy(b.data() + headerField::kDate, h.signature.date.data(),
               std::min(h.signature.date.size(), kDateSize - 1));
   putU64At(b.data() + headerField::kFileSize, h.fileSize);
   putU64At(b.data() + headerField::kReserved, h.reserved);
   for (size_t i = 0; i < kSectionCount; i++) {
      uint8_t *p = b.data() + headerField::kSections + kSectionEntrySize * i;
      putU64At(p + sectionField::kOffset, h.sections[i].offset);
      putU64At(p + sectionField::kSize, h.sections[i].size);
      putU64At(p + sectionField::kChecksum, h.sections[i].checksum);
   }
   putU64At(b.data() + headerField::kChecksum, headerChecksum(b));
   return b;
}

FileHeader decodeHeader(std::span<const uint8_t, kHeaderSize> bytes) {
   const uint8_t *b = bytes.data();
   FileHeader h;
   h.version = getU32(b + headerField::kVersion);
   h.headerSize = getU32(b + headerField::kHeaderSize);
   const char *date = reinterpret_cast<const char *>(b + headerField::kDate);
   h.signature = {getU64(b + headerField::kDigest), std::string(date, strnlen(date, kDateSize))};
   h.fileSize = getU64(b + headerField::kFileSize);
   h.reserved = getU64(b + headerField::kReserved);
   for (size_t i = 0; i < kSectionCount; i++) {
      const uint8_t *p = b + headerField::kSections + kSectionEntrySize * i;
      h.sections[i] = {getU64(p + sectionField::kOffset), getU64(p + sectionField::kSize),
                       getU64(p + sectionField::kChecksum)};
   }
   h.checksum = getU64(b + headerField::kChecksum);
   return h;
}

bool startsWithMagic(std::span<const uint8_t> start) {
   size_t n = std::min(start.size(), sizeof kMagic);
   return !start.empty() && std::memcmp(start.data() + headerField::kMagic, kMagic, n) == 0;
}

uint32_t decodeVersion(std::span<const uint8_t> start) {
   return getU32(start.data() + headerField::kVersion);
}

// ---- index ----

std::array<uint8_t, kIndexEntrySize> encodeIndexEntry(const IndexEntry &e) {
   std::array<uint8_t, kIndexEntrySize> b{};
   b[indexField::kKind] = static_cast<uint8_t>(e.kind);
   putU32At(b.data() + indexField::kNameId, e.nameId);
   putU32At(b.data() + indexField::kKeyOffset, e.keyOffset);
   putU32At(b.data() + indexField::kKeyLength, e.keyLength);
   putU64At(b.data() + indexField::kDataOffset, e.dataOffset);
   putU32At(b.data() + indexField::kDataLength, e.dataLength);
   putU32At(b.data() + indexField::kStatus, e.status);
   putU64At(b.data() + indexField::kChecksum, e.checksum);
   return b;
}

// ---- names ----

std::string encodeNames(std::span<const std::string_view> names) {
   std::string out;
   putU32(out, static_cast<uint32_t>(names.size()));
   for (std::string_view n : names) {
      putString(out, n);
   }
   return out;
}

bool decodeNames(std::span<const uint8_t> section, std::vector<std::string_view> &names, size_t &at) {
   names.clear();
   Cursor c(section);
   uint32_t n = 0;
   if (!c.u32(n) || n > c.left() / 4) {
      at = 0;
      return false;
   }
   names.reserve(n);
   for (uint32_t i = 0; i < n; i++) {
      std::string_view s;
      if (!c.text(s) || (!names.empty() && !(names.back() < s))) {
         names.clear();
         at = c.pos();
         return false;
      }
      names.push_back(s);
   }
   at = c.pos();
   return c.left() == 0;
}

// ---- meta ----

std::string encodeMeta(const SimulatorSettings &simulator, const Meta &meta) {
   std::string out;
   putU32(out, (simulator.present ? kMetaSimulatorPresent : 0u) | (meta.present ? kMetaPresent : 0u));
   putU32(out, 0);
   putU64(out, simulator.rootDevice);
   putString(out, meta.host);
   putString(out, meta.captured);
   putString(out, meta.by);
   putU32(out, static_cast<uint32_t>(meta.notes.size()));
   for (const std::string &n : meta.notes) {
      putString(out, n);
   }
   return out;
}

bool decodeMeta(std::span<const uint8_t> section, SimulatorSettings &simulator, Meta &meta, size_t &at) {
   Cursor c(section);
   uint32_t flags = 0, reserved = 0, notes = 0;
   std::string_view host, captured, by;
   bool ok = c.u32(flags) && c.u32(reserved) && (flags & ~(kMetaSimulatorPresent | kMetaPresent)) == 0 &&
             reserved == 0 && c.u64(simulator.rootDevice) && c.text(host) && c.text(captured) && c.text(by) &&
             c.u32(notes) && notes <= c.left() / 4;
   meta = {};
   for (uint32_t i = 0; ok && i < notes; i++) {
      std::string_view note;
      ok = c.text(note);
      meta.notes.emplace_back(note);
   }
   at = c.pos();
   if (!ok || c.left() != 0) {
      return false;
   }
   simulator.present = (flags & kMetaSimulatorPresent) != 0;
   meta.present = (flags & kMetaPresent) != 0;
   meta.host = host;
   meta.captured = captured;
   meta.by = by;
   return true;
}

}  // namespace file
}  // namespace zif
