// The snapshot writer: deterministic, so the same entries give the same bytes
// whatever their order.
#include "file_layout.h"

#include <algorithm>
#include <memory>
#include <tuple>

namespace zif {
namespace {

using namespace file;

// A record is read into the caller's buffer and the rest zero-filled, so its
// trailing zero bytes need not be stored.
std::span<const uint8_t> withoutTrailingZeros(std::span<const uint8_t> bytes) {
   size_t n = bytes.size();
   while (n > 0 && bytes[n - 1] == 0) {
      n--;
   }
   return bytes.first(n);
}

// The node names the entries use, in the names section's order.
std::vector<std::string_view> nodeNames(const std::vector<RawEntry> &entries) {
   std::vector<std::string_view> names;
   for (const RawEntry &e : entries) {
      if (e.kind != EntryKind::DevInfo) {
         names.push_back(e.node);
      }
   }
   std::sort(names.begin(), names.end());
   names.erase(std::unique(names.begin(), names.end()), names.end());
   return names;
}

uint32_t nameIdOf(const RawEntry &e, const std::vector<std::string_view> &names) {
   if (e.kind == EntryKind::DevInfo) {
      return kNoNode;
   }
   return static_cast<uint32_t>(std::lower_bound(names.begin(), names.end(), e.node) - names.begin());
}

// Sorts the entries into index order: kind, name id, key bytes. Two entries
// in the same place are refused, naming both.
void sortEntries(std::vector<RawEntry> &entries, const std::vector<std::string_view> &names) {
   auto sortKey = [&](const RawEntry &e) {
      return std::tuple(static_cast<uint8_t>(e.kind), nameIdOf(e, names), std::string_view(e.key));
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
}

// The index and keys sections of sorted entries, and the size and checksum
// of the data section their payloads make.
struct EntrySections {
   std::string index, keys;
   uint64_t dataSize = 0, dataChecksum = 0;
};

EntrySections encodeEntries(const std::vector<RawEntry> &entries, const std::vector<std::string_view> &names) {
   std::unique_ptr<XXH3_state_t, decltype(&XXH3_freeState)> state(XXH3_createState(), &XXH3_freeState);
   if (!state) {
      throw std::bad_alloc();
   }
   XXH3_64bits_reset(state.get());
   EntrySections out;
   for (const RawEntry &e : entries) {
      if (e.key.size() > 0xffffffffu || e.payload.size() > 0xffffffffu) {
         throw FormatError(std::string(e.origin) + ": entry too large");
      }
      const IndexEntry entry{e.kind,
                             nameIdOf(e, names),
                             static_cast<uint32_t>(out.keys.size()),
                             static_cast<uint32_t>(e.key.size()),
                             out.dataSize,
                             static_cast<uint32_t>(e.payload.size()),
                             e.status,
                             hashOf(e.payload)};
      const auto bytes = encodeIndexEntry(entry);
      out.index.append(reinterpret_cast<const char *>(bytes.data()), bytes.size());
      out.keys.append(e.key);
      XXH3_64bits_update(state.get(), e.payload.data(), e.payload.size());
      out.dataSize += e.payload.size();
   }
   out.dataChecksum = XXH3_64bits_digest(state.get());
   if (out.keys.size() > 0xffffffffu) {
      throw FormatError("keys section too large");
   }
   return out;
}

// The header of sections laid end to end after it, in SectionId order, from
// each section's size and checksum.
FileHeader headerFor(const Signature &signature, const std::array<SectionEntry, kSectionCount> &sizes) {
   FileHeader h;
   h.signature = signature;
   uint64_t offset = kHeaderSize;
   for (size_t i = 0; i < kSectionCount; i++) {
      h.sections[i] = {offset, sizes[i].size, sizes[i].checksum};
      offset += sizes[i].size;
   }
   h.fileSize = offset;
   return h;
}

SectionEntry sized(std::string_view bytes) {
   return {0, bytes.size(), hashOf(asBytes(bytes))};
}

}  // namespace

void writeRaw(const Signature &signature, const SimulatorSettings &simulator, const Meta &meta,
              std::vector<RawEntry> entries, Sink &sink) {
   for (RawEntry &e : entries) {
      if (e.kind == EntryKind::Record) {
         e.payload = withoutTrailingZeros(e.payload);
      }
   }
   const std::vector<std::string_view> names = nodeNames(entries);
   sortEntries(entries, names);
   const EntrySections sections = encodeEntries(entries, names);
   const std::string namesSection = encodeNames(names);
   const std::string metaSection = encodeMeta(simulator, meta);

   std::array<SectionEntry, kSectionCount> sizes;
   sizes[static_cast<size_t>(SectionId::Names)] = sized(namesSection);
   sizes[static_cast<size_t>(SectionId::Index)] = sized(sections.index);
   sizes[static_cast<size_t>(SectionId::Keys)] = sized(sections.keys);
   sizes[static_cast<size_t>(SectionId::Meta)] = sized(metaSection);
   sizes[static_cast<size_t>(SectionId::Data)] = {0, sections.dataSize, sections.dataChecksum};

   sink.write(encodeHeader(headerFor(signature, sizes)));
   sink.write(asBytes(namesSection));
   sink.write(asBytes(sections.index));
   sink.write(asBytes(sections.keys));
   sink.write(asBytes(metaSection));
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

}  // namespace zif
