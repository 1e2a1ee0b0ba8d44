// The snapshot reader. It treats the file as hostile: every offset and length
// is checked against the bytes actually present before use. Opening checks
// the header, the section table and the small sections, in that order, and
// stops at the first fault; payloads are checked entry by entry on first read.
#include "file_layout.h"

#include <algorithm>
#include <bit>
#include <memory>
#include <new>
#include <optional>

namespace zif {
namespace {

using namespace file;

ZLC_ReturnStatus fail(Problem *problem, ZLC_ReturnStatus status, std::string message, uint64_t offset) {
   if (problem) {
      *problem = {status, std::move(message), offset};
   }
   return status;
}

ZLC_ReturnStatus headerTruncated(Problem *problem, size_t size) {
   return fail(problem, ZLC_SNAP_TRUNCATED, "truncated: the header ends at offset " + std::to_string(size), size);
}

// The magic, the version and a whole header at the start of the file, before
// anything in the header is trusted.
ZLC_ReturnStatus checkFileStart(std::span<const uint8_t> start, Problem *problem) {
   if (!startsWithMagic(start)) {
      return fail(problem, ZLC_SNAP_NOT_A_SNAPSHOT, "not a snapshot (bad magic)", 0);
   }
   if (start.size() < headerField::kVersion + sizeof(uint32_t)) {
      return headerTruncated(problem, start.size());
   }
   if (uint32_t version = decodeVersion(start); version != kFormatVersion) {
      return fail(problem, ZLC_SNAP_BAD_VERSION, "unsupported format version " + std::to_string(version),
                  headerField::kVersion);
   }
   if (start.size() < kHeaderSize) {
      return headerTruncated(problem, start.size());
   }
   return ZLC_OK;
}

// The header's checksum, its fixed fields, and the file size it states.
ZLC_ReturnStatus checkHeader(std::span<const uint8_t, kHeaderSize> bytes, const FileHeader &header, uint64_t fileSize,
                             Problem *problem) {
   if (headerChecksum(bytes) != header.checksum) {
      return fail(problem, ZLC_SNAP_CORRUPT, "header checksum mismatch", 0);
   }
   if (header.headerSize != kHeaderSize || header.reserved != 0) {
      return fail(problem, ZLC_SNAP_CORRUPT, "bad header fields", headerField::kHeaderSize);
   }
   if (header.fileSize > fileSize) {
      return fail(
            problem, ZLC_SNAP_TRUNCATED,
            "truncated: the data ends at offset " + std::to_string(fileSize) + " of " + std::to_string(header.fileSize),
            fileSize);
   }
   if (header.fileSize < fileSize) {
      return fail(problem, ZLC_SNAP_CORRUPT, "unexpected bytes after the end of the snapshot", header.fileSize);
   }
   return ZLC_OK;
}

// The sections lie end to end from the header to the end of the file.
ZLC_ReturnStatus checkSectionTable(const FileHeader &header, Problem *problem) {
   uint64_t expect = kHeaderSize;
   for (size_t i = 0; i < kSectionCount; i++) {
      const SectionEntry &s = header.sections[i];
      if (s.offset != expect || s.size > header.fileSize - expect) {
         return fail(problem, ZLC_SNAP_CORRUPT, "bad section table", headerField::kSections + kSectionEntrySize * i);
      }
      expect += s.size;
   }
   if (expect != header.fileSize) {
      return fail(problem, ZLC_SNAP_CORRUPT, "bad section table", headerField::kSections);
   }
   return ZLC_OK;
}

// The header, once the file's start, the header itself and its section
// table have passed their checks.
ZLC_ReturnStatus readHeader(ByteSource &source, FileHeader &header, Problem *problem) {
   auto start = source.view(0, std::min<uint64_t>(source.size(), kHeaderSize));
   if (!start) {
      return fail(problem, ZLC_SNAP_CANNOT_OPEN, "cannot map the header", 0);
   }
   if (ZLC_ReturnStatus s = checkFileStart(*start, problem); s != ZLC_OK) {
      return s;
   }
   const std::span<const uint8_t, kHeaderSize> bytes = start->first<kHeaderSize>();
   header = decodeHeader(bytes);
   if (ZLC_ReturnStatus s = checkHeader(bytes, header, source.size(), problem); s != ZLC_OK) {
      return s;
   }
   return checkSectionTable(header, problem);
}

// The checksum of a section before the data, all of which head holds; the
// digest when it is already known.
ZLC_ReturnStatus verifySection(std::span<const uint8_t> head, const FileHeader &header, SectionId id,
                               std::optional<uint64_t> digest, Problem *problem) {
   const SectionEntry &s = header.sections[static_cast<size_t>(id)];
   if ((digest ? *digest : hashOf(head.subspan(s.offset, s.size))) != s.checksum) {
      return fail(problem, ZLC_SNAP_CORRUPT, std::string(sectionName(id)) + " section checksum mismatch", s.offset);
   }
   return ZLC_OK;
}

ZLC_ReturnStatus readNames(std::span<const uint8_t> section, uint64_t offset, std::vector<std::string_view> &names,
                           Problem *problem) {
   size_t at = 0;
   if (!decodeNames(section, names, at)) {
      return fail(problem, ZLC_SNAP_CORRUPT, "bad names section", offset + at);
   }
   return ZLC_OK;
}

ZLC_ReturnStatus readMeta(std::span<const uint8_t> section, uint64_t offset, SimulatorSettings &simulator, Meta &meta,
                          Problem *problem) {
   size_t at = 0;
   if (!decodeMeta(section, simulator, meta, at)) {
      return fail(problem, ZLC_SNAP_CORRUPT, "bad meta section", offset + at);
   }
   return ZLC_OK;
}

// What the index walk knows of the sections an entry refers to.
struct IndexBounds {
   std::span<const uint8_t> keys;
   uint64_t dataSize;
   size_t nameCount;
};

// A known kind with zero reserved bytes, its node, and its key and payload
// where the previous entry's end (entries tile the keys and data sections).
bool entryFramed(const uint8_t *p, const IndexEntry &e, const IndexBounds &bounds, uint64_t keyPos, uint64_t dataPos) {
   const bool node = e.kind == EntryKind::DevInfo ? e.nameId == kNoNode : e.nameId < bounds.nameCount;
   return indexEntryFramed(p) && node && e.keyOffset == keyPos && e.keyLength <= bounds.keys.size() - keyPos &&
          e.dataOffset == dataPos && e.dataLength <= bounds.dataSize - dataPos;
}

// Keys that decode, no payload beside an injected status (but for sets), and
// a devinfo reply of its full size for a PCI function.
bool entryContentValid(const IndexEntry &e, std::span<const uint8_t> key) {
   size_t keyCount = 0;
   if (!countKeys(key, keyCount)) {
      return false;
   }
   if (e.status != 0 && e.kind != EntryKind::Set && e.kind != EntryKind::SetAny && e.dataLength != 0) {
      return false;
   }
   return e.kind != EntryKind::DevInfo || e.status != 0 || (e.dataLength == ZLC_DEVINFO_REPLY_SIZE && keyCount == 4);
}

// Strictly ascending by kind, node and key bytes.
bool entryFollows(const IndexEntry &prev, std::span<const uint8_t> prevKey, const IndexEntry &e,
                  std::span<const uint8_t> key) {
   const uint64_t a = indexGroup(prev.kind, prev.nameId), b = indexGroup(e.kind, e.nameId);
   return a < b || (a == b && keyBytesLess(prevKey, key));
}

// Equal key bytes. Keys are short (an integer key takes nine bytes), so they
// are compared a word at a time in place, not by a library call.
bool sameKey(std::string_view a, std::string_view b) {
   const size_t n = a.size();
   if (n != b.size()) {
      return false;
   }
   if (n < 8) {
      return n == 0 || std::memcmp(a.data(), b.data(), n) == 0;
   }
   auto word = [](const char *p) {
      uint64_t w;
      std::memcpy(&w, p, 8);
      return w;
   };
   for (size_t i = 0; i + 8 < n; i += 8) {
      if (word(a.data() + i) != word(b.data() + i)) {
         return false;
      }
   }
   return word(a.data() + n - 8) == word(b.data() + n - 8);
}

using HashState = std::unique_ptr<XXH3_state_t, decltype(&XXH3_freeState)>;

// The checksums of the index and keys sections, computed as the index walk
// goes so that each piece is read from memory once.
struct IndexDigests {
   uint64_t index = 0, keys = 0;
};

// Walks the index; the first fault goes to problem, and the digests of both
// sections are computed all the same.
ZLC_ReturnStatus checkIndex(std::span<const uint8_t> index, uint64_t offset, const IndexBounds &bounds,
                            Problem *problem, IndexDigests &digests) {
   HashState indexHash(XXH3_createState(), &XXH3_freeState), keysHash(XXH3_createState(), &XXH3_freeState);
   if (!indexHash || !keysHash) {
      throw std::bad_alloc();
   }
   XXH3_64bits_reset(indexHash.get());
   XXH3_64bits_reset(keysHash.get());
   ZLC_ReturnStatus status = ZLC_OK;
   if (index.size() % kIndexEntrySize != 0) {
      status = fail(problem, ZLC_SNAP_CORRUPT, "bad index size", offset);
   }
   constexpr size_t kPiece = 4096;  // entries hashed, then walked, at a time
   const size_t count = index.size() / kIndexEntrySize;
   uint64_t keyPos = 0, dataPos = 0, keysHashed = 0;
   IndexEntry prev{};
   for (size_t first = 0; first < count || first == 0; first += kPiece) {
      const size_t last = std::min(count, first + kPiece);
      const size_t bytes = last == count ? index.size() - first * kIndexEntrySize : (last - first) * kIndexEntrySize;
      XXH3_64bits_update(indexHash.get(), index.data() + first * kIndexEntrySize, bytes);
      for (size_t i = first; i < last && status == ZLC_OK; i++) {
         const uint8_t *p = index.data() + i * kIndexEntrySize;
         const IndexEntry e = decodeIndexEntry(p);
         bool ok = entryFramed(p, e, bounds, keyPos, dataPos) &&
                   entryContentValid(e, bounds.keys.subspan(e.keyOffset, e.keyLength));
         if (ok && i > 0) {
            ok = entryFollows(prev, bounds.keys.subspan(prev.keyOffset, prev.keyLength), e,
                              bounds.keys.subspan(e.keyOffset, e.keyLength));
         }
         if (!ok) {
            status =
                  fail(problem, ZLC_SNAP_CORRUPT, "bad index entry " + std::to_string(i), offset + i * kIndexEntrySize);
            break;
         }
         keyPos += e.keyLength;
         dataPos += e.dataLength;
         prev = e;
      }
      if (status == ZLC_OK) {
         XXH3_64bits_update(keysHash.get(), bounds.keys.data() + keysHashed, keyPos - keysHashed);
         keysHashed = keyPos;
      }
      if (count == 0) {
         break;
      }
   }
   XXH3_64bits_update(keysHash.get(), bounds.keys.data() + keysHashed, bounds.keys.size() - keysHashed);
   digests = {XXH3_64bits_digest(indexHash.get()), XXH3_64bits_digest(keysHash.get())};
   if (status == ZLC_OK && (keyPos != bounds.keys.size() || dataPos != bounds.dataSize)) {
      status = fail(problem, ZLC_SNAP_CORRUPT, "index does not cover the keys and data sections", offset);
   }
   return status;
}

}  // namespace

std::span<const uint8_t> Reader::section(SectionId id) const {
   const Section &s = sections_[static_cast<size_t>(id)];
   return head_.subspan(s.offset, s.size);
}

ZLC_ReturnStatus Reader::data(uint64_t offset, uint64_t length, std::span<const uint8_t> &out) const {
   if (!data_.empty()) {
      out = data_.subspan(offset, length);
      return ZLC_OK;
   }
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
   data_ = {};
   count_ = 0;
   names_.clear();
   verified_.clear();
   groups_.clear();
   empty_ = Group();
   std::fill(std::begin(recent_), std::end(recent_), RecentGroup());
   recentNext_ = 0;

   FileHeader header;
   if (ZLC_ReturnStatus s = readHeader(source, header, problem); s != ZLC_OK) {
      return s;
   }
   for (size_t i = 0; i < kSectionCount; i++) {
      sections_[i] = {header.sections[i].offset, header.sections[i].size, header.sections[i].checksum};
   }
   // Everything up to the data section is read now; the data on demand.
   auto head = source.view(0, sectionOffset(SectionId::Data));
   if (!head) {
      return fail(problem, ZLC_SNAP_CANNOT_OPEN, "cannot map the index", 0);
   }
   head_ = *head;
   source.willReadAll(0, head_.size());
   signature_ = header.signature;

   // The checksums of names, index, keys and meta, then the names, the index
   // walk and the meta, in that order; the walk computes the index's and the
   // keys' digests as it reads them.
   if (ZLC_ReturnStatus s = verifySection(head_, header, SectionId::Names, std::nullopt, problem); s != ZLC_OK) {
      return s;
   }
   Problem namesProblem, walkProblem;
   const ZLC_ReturnStatus namesRead =
         readNames(section(SectionId::Names), sectionOffset(SectionId::Names), names_, &namesProblem);
   IndexDigests digests;
   ZLC_ReturnStatus walked = ZLC_OK;
   if (namesRead == ZLC_OK) {
      const IndexBounds bounds{section(SectionId::Keys), sections_[static_cast<size_t>(SectionId::Data)].size,
                               names_.size()};
      walked = checkIndex(section(SectionId::Index), sectionOffset(SectionId::Index), bounds, &walkProblem, digests);
   } else {
      digests = {hashOf(section(SectionId::Index)), hashOf(section(SectionId::Keys))};
   }
   for (auto [id, digest] : {std::pair{SectionId::Index, std::optional<uint64_t>(digests.index)},
                             std::pair{SectionId::Keys, std::optional<uint64_t>(digests.keys)},
                             std::pair{SectionId::Meta, std::optional<uint64_t>()}}) {
      if (ZLC_ReturnStatus s = verifySection(head_, header, id, digest, problem); s != ZLC_OK) {
         return s;
      }
   }
   for (auto [s, found] : {std::pair{namesRead, &namesProblem}, std::pair{walked, &walkProblem}}) {
      if (s != ZLC_OK) {
         if (problem) {
            *problem = *found;
         }
         return s;
      }
   }
   if (ZLC_ReturnStatus s =
             readMeta(section(SectionId::Meta), sectionOffset(SectionId::Meta), simulator_, meta_, problem);
       s != ZLC_OK) {
      return s;
   }
   count_ = section(SectionId::Index).size() / kIndexEntrySize;
   verified_.assign((count_ + 63) / 64, 0);
   if (auto whole = source.viewInPlace(sectionOffset(SectionId::Data));
       whole.size() == sections_[static_cast<size_t>(SectionId::Data)].size) {
      data_ = whole;
   }
   if (problem) {
      *problem = {};
   }
   return ZLC_OK;
}

IndexEntry Reader::entry(size_t i) const {
   return decodeIndexEntry(section(SectionId::Index).data() + i * kIndexEntrySize);
}

std::string_view Reader::entryNode(const IndexEntry &e) const {
   return e.nameId < names_.size() ? names_[e.nameId] : std::string_view();
}

std::span<const uint8_t> Reader::entryKey(const IndexEntry &e) const {
   return section(SectionId::Keys).subspan(e.keyOffset, e.keyLength);
}

Reader::Group &Reader::groupById(EntryKind kind, uint32_t nameId) const {
   const uint64_t id = indexGroup(kind, nameId);
   if (auto it = groups_.find(id); it != groups_.end()) {
      return it->second;
   }
   // The index is sorted by kind, node and key, so each (kind, node) group
   // is one run of entries; find its ends once and remember them.
   const uint8_t *index = section(SectionId::Index).data();
   auto groupAt = [index](size_t i) { return indexGroup(index + i * kIndexEntrySize); };
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
   auto [offset, length] = indexKeyRange(section(SectionId::Index).data() + i * kIndexEntrySize);
   return asText(section(SectionId::Keys).subspan(offset, length));
}

Reader::Group &Reader::group(EntryKind kind, std::string_view node) const {
   if (kind == EntryKind::DevInfo) {
      node = {};
   }
   for (const RecentGroup &r : recent_) {
      if (r.group && r.kind == kind && r.node == node) {
         return *r.group;
      }
   }
   uint32_t id = kNoNode;
   if (kind != EntryKind::DevInfo) {
      auto it = std::lower_bound(names_.begin(), names_.end(), node);
      if (it == names_.end() || *it != node) {
         return empty_;
      }
      id = static_cast<uint32_t>(it - names_.begin());
      node = *it;  // the file's copy, which outlives the caller's
   }
   Group &g = groupById(kind, id);
   recent_[recentNext_] = {kind, node, &g};
   recentNext_ = (recentNext_ + 1) % kRecentGroups;
   return g;
}

std::optional<size_t> Reader::find(EntryKind kind, std::string_view node, std::string_view key) const {
   const size_t i = find(group(kind, node), key);
   return i == kNotFound ? std::nullopt : std::optional<size_t>(i);
}

size_t Reader::find(Group &g, std::string_view key) const {
   // The entry after the last one found, or that one again (several worlds
   // of one cartel read the cartel's records in turn).
   if (g.next < g.last && sameKey(keyText(g.next), key)) {
      return g.next++;
   }
   if (g.next > g.first && sameKey(keyText(g.next - 1), key)) {
      return g.next - 1;
   }
   // A walk in key order that asks for keys the node does not hold: the key
   // sorts between the last entry found and the next one.
   if ((g.next == g.first || keyText(g.next - 1) < key) && (g.next == g.last || key < keyText(g.next))) {
      return kNotFound;
   }
   const size_t found = findOutOfOrder(g, key);
   if (found != kNotFound) {
      g.next = found + 1;
   }
   return found;
}

size_t Reader::findOutOfOrder(Group &g, std::string_view key) const {
   // A command that walks a node out of key order reads many of its entries:
   // after a few such lookups the group gets a hash table, so that the walk
   // costs linear time, while opening a file and reading one record never
   // builds one.
   constexpr unsigned kLookupsBeforeHashing = 16;
   if (g.byKey.empty() && g.last - g.first > kLookupsBeforeHashing && ++g.lookups > kLookupsBeforeHashing) {
      // At most half full. Entry indexes fit in 32 bits: each takes 40 bytes
      // of an index that a 32-bit key offset addresses.
      const size_t slots = std::bit_ceil(2 * (g.last - g.first));
      g.byKey.assign(slots, 0);
      for (size_t i = g.first; i < g.last; i++) {
         size_t slot = hashOf(asBytes(keyText(i))) & (slots - 1);
         while (g.byKey[slot] != 0) {
            slot = (slot + 1) & (slots - 1);
         }
         g.byKey[slot] = static_cast<uint32_t>(i + 1);
      }
   }
   if (!g.byKey.empty()) {
      const size_t mask = g.byKey.size() - 1;
      for (size_t slot = hashOf(asBytes(key)) & mask; g.byKey[slot] != 0; slot = (slot + 1) & mask) {
         if (sameKey(keyText(g.byKey[slot] - 1), key)) {
            return g.byKey[slot] - 1;
         }
      }
      return kNotFound;
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
   return kNotFound;
}

ZLC_ReturnStatus Reader::payload(size_t i, std::span<const uint8_t> &out, Problem *problem) const {
   if (i >= count_) {
      return ZLC_BAD_PARAM;
   }
   // Only the fields a read needs: this runs for every record read.
   const uint8_t *p = section(SectionId::Index).data() + i * kIndexEntrySize;
   const uint64_t offset = getU64(p + indexField::kDataOffset);
   if (ZLC_ReturnStatus s = data(offset, getU32(p + indexField::kDataLength), out); s != ZLC_OK) {
      return fail(problem, s, "cannot map the data of entry " + std::to_string(i), sectionOffset(SectionId::Data));
   }
   const uint64_t bit = uint64_t{1} << (i % 64);
   if (!(verified_[i / 64] & bit)) {
      if (hashOf(out) != getU64(p + indexField::kChecksum)) {
         out = {};
         return fail(problem, ZLC_SNAP_CORRUPT, "checksum mismatch in the data of entry " + std::to_string(i),
                     sectionOffset(SectionId::Data) + offset);
      }
      verified_[i / 64] |= bit;
   }
   return ZLC_OK;
}

ZLC_ReturnStatus Reader::read(Group &group, std::string_view key, std::span<const uint8_t> &out) const {
   const size_t i = find(group, key);
   if (i == kNotFound) {
      return ZLC_NO_SUCH_NODE;
   }
   const uint8_t *p = section(SectionId::Index).data() + i * kIndexEntrySize;
   if (uint32_t status = getU32(p + indexField::kStatus); status != 0) {
      return status;
   }
   return payload(i, out);
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
   HashState state(XXH3_createState(), &XXH3_freeState);
   if (!state) {
      return ZLC_NO_MEMORY;
   }
   XXH3_64bits_reset(state.get());
   constexpr uint64_t kPiece = 8 << 20;
   for (uint64_t at = 0; at < section.size; at += kPiece) {
      std::span<const uint8_t> piece;
      if (ZLC_ReturnStatus s = data(at, std::min(kPiece, section.size - at), piece); s != ZLC_OK) {
         return fail(problem, s, "cannot map the data section", section.offset + at);
      }
      XXH3_64bits_update(state.get(), piece.data(), piece.size());
   }
   if (XXH3_64bits_digest(state.get()) != section.checksum) {
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
