// Snapshot writer and reader. The reader treats the file as hostile: every
// offset and length is checked against the bytes actually present before use.
#include "zifformat/snapshot_format.h"

#include <bit>

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <tuple>

#include <xxhash.h>

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

void putU32At(uint8_t *p, uint32_t v) {
   for (int i = 0; i < 4; i++) {
      p[i] = static_cast<uint8_t>(v >> (8 * i));
   }
}

void putU64At(uint8_t *p, uint64_t v) {
   for (int i = 0; i < 8; i++) {
      p[i] = static_cast<uint8_t>(v >> (8 * i));
   }
}

// Little-endian loads; the compiler turns the copy into one load on
// little-endian machines, which keeps index searches cheap.
uint32_t getU32(const uint8_t *p) {
   uint32_t v;
   std::memcpy(&v, p, sizeof v);
   if constexpr (std::endian::native == std::endian::big) {
      v = __builtin_bswap32(v);
   }
   return v;
}

uint64_t getU64(const uint8_t *p) {
   uint64_t v;
   std::memcpy(&v, p, sizeof v);
   if constexpr (std::endian::native == std::endian::big) {
      v = __builtin_bswap64(v);
   }
   return v;
}

// Integer keys are stored big-endian with the sign bit flipped, so that their
// bytes sort in numeric order: a walk over a node in instance order then
// reads the index front to back.
constexpr uint64_t kKeySignBit = uint64_t{1} << 63;

void putIntKey(std::string &out, int64_t number) {
   const uint64_t v = static_cast<uint64_t>(number) ^ kKeySignBit;
   for (int i = 7; i >= 0; i--) {
      out.push_back(static_cast<char>(v >> (8 * i)));
   }
}

int64_t getIntKey(const uint8_t *p) {
   uint64_t v = 0;
   for (int i = 0; i < 8; i++) {
      v = (v << 8) | p[i];
   }
   return static_cast<int64_t>(v ^ kKeySignBit);
}

void putString(std::string &out, std::string_view s) {
   putU32(out, static_cast<uint32_t>(s.size()));
   out.append(s);
}

std::span<const uint8_t> asBytes(std::string_view s) {
   return {reinterpret_cast<const uint8_t *>(s.data()), s.size()};
}

std::string_view asText(std::span<const uint8_t> b) {
   return {reinterpret_cast<const char *>(b.data()), b.size()};
}

uint64_t hashOf(std::span<const uint8_t> b) {
   return XXH3_64bits(b.data(), b.size());
}

// A cursor over a byte span that never reads past its end.
class Cursor {
public:
   explicit Cursor(std::span<const uint8_t> b) : bytes_(b) {}
   bool u32(uint32_t &v) {
      if (left() < 4) {
         return false;
      }
      v = getU32(bytes_.data() + pos_);
      pos_ += 4;
      return true;
   }
   bool u64(uint64_t &v) {
      if (left() < 8) {
         return false;
      }
      v = getU64(bytes_.data() + pos_);
      pos_ += 8;
      return true;
   }
   bool text(std::string_view &s) {
      uint32_t n = 0;
      if (!u32(n) || left() < n) {
         return false;
      }
      s = asText(bytes_.subspan(pos_, n));
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

int compareKeyBytes(std::span<const uint8_t> a, std::string_view b) {
   size_t n = std::min(a.size(), b.size());
   int c = n ? std::memcmp(a.data(), b.data(), n) : 0;
   if (c != 0) {
      return c;
   }
   return a.size() < b.size() ? -1 : (a.size() > b.size() ? 1 : 0);
}

std::string_view kindLabel(EntryKind k) {
   switch (k) {
      case EntryKind::List:
         return "list";
      case EntryKind::Record:
         return "record";
      case EntryKind::Data:
         return "data";
      case EntryKind::DevInfo:
         return "devinfo";
      case EntryKind::Set:
         return "set";
      case EntryKind::SetAny:
         return "set (any input)";
   }
   return "entry";
}

bool validKind(uint8_t k) {
   return k >= 1 && k <= 6;
}

}  // namespace

std::string_view sectionName(SectionId id) {
   switch (id) {
      case SectionId::Names:
         return "names";
      case SectionId::Index:
         return "index";
      case SectionId::Keys:
         return "keys";
      case SectionId::Data:
         return "data";
      case SectionId::Meta:
         return "meta";
   }
   return "?";
}

void appendKey(std::string &out, KeyType type, int64_t number, std::string_view text) {
   out.push_back(static_cast<char>(type));
   if (type == KeyType::Int) {
      putIntKey(out, number);
   } else if (type == KeyType::Text) {
      putString(out, text);
   }
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
   size_t pos = 0;
   while (pos < bytes.size()) {
      uint8_t type = bytes[pos++];
      Cursor c(bytes.subspan(pos));
      if (type == static_cast<uint8_t>(KeyType::Int)) {
         if (c.left() < 8) {
            return false;
         }
         out.push_back(Key::ofInt(getIntKey(bytes.data() + pos)));
         c.skip(8);
      } else if (type == static_cast<uint8_t>(KeyType::Text)) {
         std::string_view s;
         if (!c.text(s)) {
            return false;
         }
         out.push_back(Key::ofText(std::string(s)));
      } else if (type == static_cast<uint8_t>(KeyType::Null)) {
         out.push_back(Key::null());
      } else {
         return false;
      }
      pos += c.pos();
   }
   return true;
}

std::string formatKeys(const Keys &keys) {
   std::string s = "[";
   for (size_t i = 0; i < keys.size(); i++) {
      if (i) {
         s += ", ";
      }
      switch (keys[i].type) {
         case KeyType::Int:
            s += std::to_string(keys[i].number);
            break;
         case KeyType::Text:
            s += "\"" + keys[i].text + "\"";
            break;
         case KeyType::Null:
            s += "null";
            break;
      }
   }
   return s + "]";
}

std::string describeEntry(EntryKind kind, std::string_view node, const Keys &keys) {
   std::string s(kindLabel(kind));
   if (!node.empty()) {
      s.append(" ").append(node);
   }
   return s + " " + formatKeys(keys);
}

// ---- writer ----

void writeRaw(const Signature &signature, const SimulatorSettings &simulator, const Meta &meta,
              std::vector<RawEntry> entries, Sink &sink) {
   std::vector<std::string_view> names;
   for (const RawEntry &e : entries) {
      if (e.kind != EntryKind::DevInfo) {
         names.push_back(e.node);
      }
   }
   std::sort(names.begin(), names.end());
   names.erase(std::unique(names.begin(), names.end()), names.end());
   auto nameId = [&](const RawEntry &e) -> uint32_t {
      if (e.kind == EntryKind::DevInfo) {
         return kNoNode;
      }
      return static_cast<uint32_t>(std::lower_bound(names.begin(), names.end(), e.node) - names.begin());
   };
   auto sortKey = [&](const RawEntry &e) {
      return std::tuple(static_cast<uint8_t>(e.kind), nameId(e), std::string_view(e.key));
   };
   std::stable_sort(entries.begin(), entries.end(),
                    [&](const RawEntry &a, const RawEntry &b) { return sortKey(a) < sortKey(b); });
   for (size_t i = 1; i < entries.size(); i++) {
      if (sortKey(entries[i - 1]) == sortKey(entries[i])) {
         std::string what = entries[i].origin.empty() ? std::string("an entry") : std::string(entries[i].origin);
         std::string other =
               entries[i - 1].origin.empty() ? std::string("another") : std::string(entries[i - 1].origin);
         throw FormatError(what + ": duplicate entry (same " + std::string(kindLabel(entries[i].kind)) +
                           " and keys as " + other + ")");
      }
   }

   std::string namesSec;
   putU32(namesSec, static_cast<uint32_t>(names.size()));
   for (std::string_view n : names) {
      putString(namesSec, n);
   }

   std::string indexSec, keysSec;
   uint64_t dataSize = 0;
   XXH3_state_t *state = XXH3_createState();
   if (!state) {
      throw std::bad_alloc();
   }
   XXH3_64bits_reset(state);
   for (const RawEntry &e : entries) {
      if (e.key.size() > 0xffffffffu || e.payload.size() > 0xffffffffu) {
         XXH3_freeState(state);
         throw FormatError(std::string(e.origin) + ": entry too large");
      }
      uint8_t rec[kIndexEntrySize] = {};
      rec[0] = static_cast<uint8_t>(e.kind);
      putU32At(rec + 4, nameId(e));
      putU32At(rec + 8, static_cast<uint32_t>(keysSec.size()));
      putU32At(rec + 12, static_cast<uint32_t>(e.key.size()));
      putU64At(rec + 16, dataSize);
      putU32At(rec + 24, static_cast<uint32_t>(e.payload.size()));
      putU32At(rec + 28, e.status);
      putU64At(rec + 32, hashOf(e.payload));
      indexSec.append(reinterpret_cast<const char *>(rec), sizeof rec);
      keysSec.append(e.key);
      XXH3_64bits_update(state, e.payload.data(), e.payload.size());
      dataSize += e.payload.size();
   }
   uint64_t dataHash = XXH3_64bits_digest(state);
   XXH3_freeState(state);
   if (keysSec.size() > 0xffffffffu) {
      throw FormatError("keys section too large");
   }

   std::string metaSec;
   putU32(metaSec, (simulator.present ? 1u : 0u) | (meta.present ? 2u : 0u));
   putU32(metaSec, 0);
   putU64(metaSec, simulator.rootDevice);
   putString(metaSec, meta.host);
   putString(metaSec, meta.captured);
   putString(metaSec, meta.by);
   putU32(metaSec, static_cast<uint32_t>(meta.notes.size()));
   for (const std::string &n : meta.notes) {
      putString(metaSec, n);
   }

   uint8_t header[kHeaderSize] = {};
   std::memcpy(header, kMagic, sizeof kMagic);
   putU32At(header + 8, kFormatVersion);
   putU32At(header + 12, kHeaderSize);
   putU64At(header + 16, signature.digest);
   std::memcpy(header + 24, signature.date.data(), std::min(signature.date.size(), kDateSize - 1));
   struct {
      uint64_t size, hash;
   } secs[kSectionCount] = {
         {namesSec.size(), hashOf(asBytes(namesSec))},
         {indexSec.size(), hashOf(asBytes(indexSec))},
         {keysSec.size(), hashOf(asBytes(keysSec))},
         {metaSec.size(), hashOf(asBytes(metaSec))},
         {dataSize, dataHash},
   };
   uint64_t offset = kHeaderSize;
   for (size_t i = 0; i < kSectionCount; i++) {
      uint8_t *p = header + kSectionTableOffset + 24 * i;
      putU64At(p, offset);
      putU64At(p + 8, secs[i].size);
      putU64At(p + 16, secs[i].hash);
      offset += secs[i].size;
   }
   putU64At(header + 48, offset);
   putU64At(header + kHeaderChecksumOffset, XXH3_64bits(header, kHeaderChecksumOffset));

   sink.write(header);
   sink.write(asBytes(namesSec));
   sink.write(asBytes(indexSec));
   sink.write(asBytes(keysSec));
   sink.write(asBytes(metaSec));
   for (const RawEntry &e : entries) {
      sink.write(e.payload);
   }
}

void writeSnapshot(const Snapshot &snapshot, Sink &sink) {
   std::vector<std::string> listPayloads;
   listPayloads.reserve(snapshot.entries.size());
   std::vector<RawEntry> raw;
   raw.reserve(snapshot.entries.size());
   for (const Entry &e : snapshot.entries) {
      std::span<const uint8_t> payload = e.bytes;
      if (e.kind == EntryKind::List && e.status == 0) {
         listPayloads.push_back(encodeKeys(e.instances));
         payload = asBytes(listPayloads.back());
      }
      std::string_view node = e.kind == EntryKind::DevInfo ? std::string_view() : std::string_view(e.node);
      raw.push_back({e.kind, node, encodeKeys(e.keys), e.status, payload, e.origin});
   }
   writeRaw(snapshot.signature, snapshot.simulator, snapshot.meta, std::move(raw), sink);
}

std::vector<uint8_t> snapshotBytes(const Snapshot &snapshot) {
   VectorSink sink;
   writeSnapshot(snapshot, sink);
   return std::move(sink.data);
}

// ---- reader ----

namespace {
ZLC_ReturnStatus fail(Problem *problem, ZLC_ReturnStatus status, std::string message, uint64_t offset) {
   if (problem) {
      *problem = {status, std::move(message), offset};
   }
   return status;
}
}  // namespace

std::span<const uint8_t> Reader::section(SectionId id) const {
   const Section &s = sections_[static_cast<size_t>(id)];
   return head_.subspan(s.offset, s.size);
}

ZLC_ReturnStatus Reader::data(uint64_t offset, uint64_t length, std::span<const uint8_t> &out) const {
   auto bytes = source_->view(sectionOffset(SectionId::Data) + offset, length);
   if (!bytes) {
      return ZLC_SNAP_CANNOT_OPEN;
   }
   out = *bytes;
   return ZLC_OK;
}

ZLC_ReturnStatus Reader::open(std::span<const uint8_t> file, Problem *problem) {
   auto own = std::make_unique<MemorySource>(file);
   ZLC_ReturnStatus s = open(*own, problem);
   own_ = std::move(own);
   return s;
}

ZLC_ReturnStatus Reader::open(ByteSource &source, Problem *problem) {
   source_ = &source;
   own_.reset();
   head_ = {};
   count_ = 0;
   names_.clear();
   verified_.clear();
   groups_.clear();
   std::span<const uint8_t> file;
   {
      auto start = source.view(0, std::min<uint64_t>(source.size(), kHeaderSize));
      if (!start) {
         return fail(problem, ZLC_SNAP_CANNOT_OPEN, "cannot map the header", 0);
      }
      file = *start;
   }
   uint64_t fileSize = source.size();
   size_t magicLen = std::min(file.size(), sizeof kMagic);
   if (file.empty() || std::memcmp(file.data(), kMagic, magicLen) != 0) {
      return fail(problem, ZLC_SNAP_NOT_A_SNAPSHOT, "not a snapshot (bad magic)", 0);
   }
   if (file.size() < 12) {
      return fail(problem, ZLC_SNAP_TRUNCATED, "truncated: the header ends at offset " + std::to_string(file.size()),
                  file.size());
   }
   uint32_t version = getU32(file.data() + 8);
   if (version != kFormatVersion) {
      return fail(problem, ZLC_SNAP_BAD_VERSION, "unsupported format version " + std::to_string(version), 8);
   }
   if (file.size() < kHeaderSize) {
      return fail(problem, ZLC_SNAP_TRUNCATED, "truncated: the header ends at offset " + std::to_string(file.size()),
                  file.size());
   }
   const uint8_t *h = file.data();
   if (XXH3_64bits(h, kHeaderChecksumOffset) != getU64(h + kHeaderChecksumOffset)) {
      return fail(problem, ZLC_SNAP_CORRUPT, "header checksum mismatch", 0);
   }
   if (getU32(h + 12) != kHeaderSize || getU64(h + 56) != 0) {
      return fail(problem, ZLC_SNAP_CORRUPT, "bad header fields", 12);
   }
   uint64_t declared = getU64(h + 48);
   if (declared > fileSize) {
      return fail(problem, ZLC_SNAP_TRUNCATED,
                  "truncated: the data ends at offset " + std::to_string(fileSize) + " of " + std::to_string(declared),
                  fileSize);
   }
   if (declared < fileSize) {
      return fail(problem, ZLC_SNAP_CORRUPT, "unexpected bytes after the end of the snapshot", declared);
   }
   uint64_t expect = kHeaderSize;
   for (size_t i = 0; i < kSectionCount; i++) {
      const uint8_t *p = h + kSectionTableOffset + 24 * i;
      sections_[i] = {getU64(p), getU64(p + 8), getU64(p + 16)};
      if (sections_[i].offset != expect || sections_[i].size > declared - expect) {
         return fail(problem, ZLC_SNAP_CORRUPT, "bad section table", kSectionTableOffset + 24 * i);
      }
      expect += sections_[i].size;
   }
   if (expect != declared) {
      return fail(problem, ZLC_SNAP_CORRUPT, "bad section table", kSectionTableOffset);
   }
   {
      // Everything up to the data section is read now; the data on demand.
      auto head = source.view(0, sectionOffset(SectionId::Data));
      if (!head) {
         return fail(problem, ZLC_SNAP_CANNOT_OPEN, "cannot map the index", 0);
      }
      head_ = *head;
      h = head_.data();
   }

   const char *date = reinterpret_cast<const char *>(h + 24);
   signature_ = {getU64(h + 16), std::string(date, strnlen(date, kDateSize))};

   // The small sections are verified now; data is verified per entry on use.
   for (SectionId id : {SectionId::Names, SectionId::Index, SectionId::Keys, SectionId::Meta}) {
      const Section &s = sections_[static_cast<size_t>(id)];
      if (hashOf(section(id)) != s.checksum) {
         return fail(problem, ZLC_SNAP_CORRUPT, std::string(sectionName(id)) + " section checksum mismatch", s.offset);
      }
   }

   {
      Cursor c(section(SectionId::Names));
      uint32_t n = 0;
      if (!c.u32(n) || n > c.left() / 4) {
         return fail(problem, ZLC_SNAP_CORRUPT, "bad names section", sectionOffset(SectionId::Names));
      }
      names_.reserve(n);
      for (uint32_t i = 0; i < n; i++) {
         std::string_view s;
         if (!c.text(s) || (!names_.empty() && !(names_.back() < s))) {
            names_.clear();
            return fail(problem, ZLC_SNAP_CORRUPT, "bad names section", sectionOffset(SectionId::Names) + c.pos());
         }
         names_.push_back(s);
      }
      if (c.left() != 0) {
         return fail(problem, ZLC_SNAP_CORRUPT, "bad names section", sectionOffset(SectionId::Names) + c.pos());
      }
   }

   auto index = section(SectionId::Index);
   if (index.size() % kIndexEntrySize != 0) {
      return fail(problem, ZLC_SNAP_CORRUPT, "bad index size", sectionOffset(SectionId::Index));
   }
   size_t n = index.size() / kIndexEntrySize;
   uint64_t keyPos = 0, dataPos = 0;
   auto keys = section(SectionId::Keys);
   uint64_t dataSize = sections_[static_cast<size_t>(SectionId::Data)].size;
   count_ = n;
   Keys scratch;
   for (size_t i = 0; i < n; i++) {
      const uint8_t *p = index.data() + i * kIndexEntrySize;
      uint64_t at = sectionOffset(SectionId::Index) + i * kIndexEntrySize;
      IndexEntry e = entry(i);
      bool ok = validKind(p[0]) && p[1] == 0 && p[2] == 0 && p[3] == 0 &&
                (e.kind == EntryKind::DevInfo ? e.nameId == kNoNode : e.nameId < names_.size()) &&
                e.keyOffset == keyPos && e.keyLength <= keys.size() - keyPos && e.dataOffset == dataPos &&
                e.dataLength <= dataSize - dataPos;
      if (ok) {
         ok = decodeKeys(keys.subspan(e.keyOffset, e.keyLength), scratch);
      }
      if (ok && e.status != 0 && e.kind != EntryKind::Set && e.kind != EntryKind::SetAny) {
         ok = e.dataLength == 0;
      }
      if (ok && e.kind == EntryKind::DevInfo && e.status == 0) {
         ok = e.dataLength == ZLC_DEVINFO_REPLY_SIZE && scratch.size() == 4;
      }
      if (ok && i > 0) {
         IndexEntry prev = entry(i - 1);
         auto a = std::tuple(static_cast<uint8_t>(prev.kind), prev.nameId);
         auto b = std::tuple(static_cast<uint8_t>(e.kind), e.nameId);
         ok = a < b || (a == b && compareKeyBytes(entryKey(prev), asText(entryKey(e))) < 0);
      }
      if (!ok) {
         count_ = 0;
         return fail(problem, ZLC_SNAP_CORRUPT, "bad index entry " + std::to_string(i), at);
      }
      keyPos += e.keyLength;
      dataPos += e.dataLength;
   }
   if (keyPos != keys.size() || dataPos != dataSize) {
      count_ = 0;
      return fail(problem, ZLC_SNAP_CORRUPT, "index does not cover the keys and data sections",
                  sectionOffset(SectionId::Index));
   }

   {
      Cursor c(section(SectionId::Meta));
      uint32_t flags = 0, reserved = 0;
      std::string_view host, captured, by;
      uint32_t notes = 0;
      bool ok = c.u32(flags) && c.u32(reserved) && flags <= 3 && reserved == 0 && c.u64(simulator_.rootDevice) &&
                c.text(host) && c.text(captured) && c.text(by) && c.u32(notes) && notes <= c.left() / 4;
      meta_ = {};
      for (uint32_t i = 0; ok && i < notes; i++) {
         std::string_view note;
         ok = c.text(note);
         meta_.notes.emplace_back(note);
      }
      if (!ok || c.left() != 0) {
         count_ = 0;
         return fail(problem, ZLC_SNAP_CORRUPT, "bad meta section", sectionOffset(SectionId::Meta) + c.pos());
      }
      simulator_.present = flags & 1;
      meta_.present = flags & 2;
      meta_.host = host;
      meta_.captured = captured;
      meta_.by = by;
   }
   verified_.assign(n, 0);
   if (problem) {
      *problem = {};
   }
   return ZLC_OK;
}

IndexEntry Reader::entry(size_t i) const {
   const uint8_t *p = section(SectionId::Index).data() + i * kIndexEntrySize;
   return {static_cast<EntryKind>(p[0]),
           getU32(p + 4),
           getU32(p + 8),
           getU32(p + 12),
           getU64(p + 16),
           getU32(p + 24),
           getU32(p + 28),
           getU64(p + 32)};
}

std::string_view Reader::entryNode(const IndexEntry &e) const {
   return e.nameId < names_.size() ? names_[e.nameId] : std::string_view();
}

std::span<const uint8_t> Reader::entryKey(const IndexEntry &e) const {
   return section(SectionId::Keys).subspan(e.keyOffset, e.keyLength);
}

Reader::Group &Reader::group(EntryKind kind, uint32_t nameId) const {
   const uint64_t id = (uint64_t{static_cast<uint8_t>(kind)} << 32) | nameId;
   if (auto it = groups_.find(id); it != groups_.end()) {
      return it->second;
   }
   // The index is sorted by kind, node and key, so each (kind, node) group
   // is one run of entries; find its ends once and remember them.
   const uint8_t *index = section(SectionId::Index).data();
   auto groupAt = [index](size_t i) {
      const uint8_t *p = index + i * kIndexEntrySize;
      return (uint64_t{p[0]} << 32) | getU32(p + 4);
   };
   size_t lo = 0, hi = count_;
   while (lo < hi) {
      size_t mid = lo + (hi - lo) / 2;
      if (groupAt(mid) < id) {
         lo = mid + 1;
      } else {
         hi = mid;
      }
   }
   Group g;
   g.first = lo;
   hi = count_;
   while (lo < hi) {
      size_t mid = lo + (hi - lo) / 2;
      if (groupAt(mid) <= id) {
         lo = mid + 1;
      } else {
         hi = mid;
      }
   }
   g.last = lo;
   g.next = g.first;
   return groups_.emplace(id, std::move(g)).first->second;
}

std::string_view Reader::keyText(size_t i) const {
   const uint8_t *p = section(SectionId::Index).data() + i * kIndexEntrySize;
   return asText(section(SectionId::Keys).subspan(getU32(p + 8), getU32(p + 12)));
}

std::optional<size_t> Reader::find(EntryKind kind, std::string_view node, std::string_view key) const {
   uint32_t id = kNoNode;
   if (kind != EntryKind::DevInfo) {
      auto it = std::lower_bound(names_.begin(), names_.end(), node);
      if (it == names_.end() || *it != node) {
         return std::nullopt;
      }
      id = static_cast<uint32_t>(it - names_.begin());
   }
   Group &g = group(kind, id);
   // The entry after the last one found, or that one again (several worlds
   // of one cartel read the cartel's records in turn).
   if (g.next < g.last && keyText(g.next) == key) {
      return g.next++;
   }
   if (g.next > g.first && keyText(g.next - 1) == key) {
      return g.next - 1;
   }
   std::optional<size_t> found = findOutOfOrder(g, key);
   if (found) {
      g.next = *found + 1;
   }
   return found;
}

std::optional<size_t> Reader::findOutOfOrder(Group &g, std::string_view key) const {
   // A command that walks a node out of key order reads many of its entries:
   // after a few such lookups the group gets a hash table, so that the walk
   // costs linear time, while opening a file and reading one record never
   // builds one.
   constexpr unsigned kLookupsBeforeHashing = 16;
   if (g.byKey.empty() && g.last - g.first > kLookupsBeforeHashing && ++g.lookups > kLookupsBeforeHashing) {
      g.byKey.reserve(g.last - g.first);
      for (size_t i = g.first; i < g.last; i++) {
         g.byKey.emplace(keyText(i), i);
      }
   }
   if (!g.byKey.empty()) {
      auto it = g.byKey.find(key);
      if (it == g.byKey.end()) {
         return std::nullopt;
      }
      return it->second;
   }
   size_t lo = g.first, hi = g.last;
   while (lo < hi) {
      size_t mid = lo + (hi - lo) / 2;
      int c = keyText(mid).compare(key);
      if (c == 0) {
         return mid;
      }
      if (c < 0) {
         lo = mid + 1;
      } else {
         hi = mid;
      }
   }
   return std::nullopt;
}

ZLC_ReturnStatus Reader::payload(size_t i, std::span<const uint8_t> &out, Problem *problem) const {
   if (i >= count_) {
      return ZLC_BAD_PARAM;
   }
   IndexEntry e = entry(i);
   if (ZLC_ReturnStatus s = data(e.dataOffset, e.dataLength, out); s != ZLC_OK) {
      return fail(problem, s, "cannot map the data of entry " + std::to_string(i), sectionOffset(SectionId::Data));
   }
   if (!verified_[i]) {
      if (hashOf(out) != e.checksum) {
         out = {};
         return fail(problem, ZLC_SNAP_CORRUPT, "checksum mismatch in the data of entry " + std::to_string(i),
                     sectionOffset(SectionId::Data) + e.dataOffset);
      }
      verified_[i] = 1;
   }
   return ZLC_OK;
}

ZLC_ReturnStatus Reader::toModel(Snapshot &out, Problem *problem) const {
   out = {};
   out.signature = signature_;
   out.simulator = simulator_;
   out.meta = meta_;
   out.entries.reserve(count_);
   for (size_t i = 0; i < count_; i++) {
      IndexEntry ie = entry(i);
      Entry e;
      e.kind = ie.kind;
      e.node = std::string(entryNode(ie));
      e.status = ie.status;
      decodeKeys(entryKey(ie), e.keys);  // checked at open
      std::span<const uint8_t> bytes;
      if (ZLC_ReturnStatus s = payload(i, bytes, problem); s != ZLC_OK) {
         if (problem) {
            problem->message = describeEntry(e.kind, e.node, e.keys) + ": data checksum mismatch";
         }
         return s;
      }
      if (e.kind == EntryKind::List && e.status == 0) {
         if (!decodeKeys(bytes, e.instances)) {
            return fail(problem, ZLC_SNAP_CORRUPT, describeEntry(e.kind, e.node, e.keys) + ": bad instance list",
                        sectionOffset(SectionId::Data) + ie.dataOffset);
         }
      } else {
         e.bytes.assign(bytes.begin(), bytes.end());
      }
      out.entries.push_back(std::move(e));
   }
   return ZLC_OK;
}

ZLC_ReturnStatus Reader::verifyAll(Problem *problem) const {
   const Section &section = sections_[static_cast<size_t>(SectionId::Data)];
   // The whole section, hashed in pieces so that a mapped file is mapped in
   // windows.
   XXH3_state_t *state = XXH3_createState();
   if (!state) {
      return ZLC_NO_MEMORY;
   }
   XXH3_64bits_reset(state);
   constexpr uint64_t kPiece = 8 << 20;
   for (uint64_t at = 0; at < section.size; at += kPiece) {
      std::span<const uint8_t> piece;
      if (ZLC_ReturnStatus s = data(at, std::min(kPiece, section.size - at), piece); s != ZLC_OK) {
         XXH3_freeState(state);
         return fail(problem, s, "cannot map the data section", section.offset + at);
      }
      XXH3_64bits_update(state, piece.data(), piece.size());
   }
   uint64_t sum = XXH3_64bits_digest(state);
   XXH3_freeState(state);
   if (sum != section.checksum) {
      // Name the first damaged entry when there is one; else the section.
      for (size_t i = 0; i < count_; i++) {
         IndexEntry ie = entry(i);
         std::span<const uint8_t> bytes;
         if (data(ie.dataOffset, ie.dataLength, bytes) == ZLC_OK && hashOf(bytes) != ie.checksum) {
            Keys keys;
            decodeKeys(entryKey(ie), keys);
            return fail(problem, ZLC_SNAP_CORRUPT,
                        describeEntry(ie.kind, entryNode(ie), keys) + ": data checksum mismatch",
                        section.offset + ie.dataOffset);
         }
      }
      return fail(problem, ZLC_SNAP_CORRUPT, "data section checksum mismatch", section.offset);
   }
   Snapshot model;
   return toModel(model, problem);
}

}  // namespace zif
