// Fuzz target: arbitrary bytes opened as a snapshot, then every entry walked
// the way the library and zifcache walk them. Must never crash, read out of
// bounds or loop.
#include "zifformat/snapshot_format.h"
#include "zifformat/snapshot_json.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <xxhash.h>

namespace {

uint64_t get64(const uint8_t *p) {
   uint64_t v;
   std::memcpy(&v, p, sizeof v);
   return v;
}

void put64(uint8_t *p, uint64_t v) {
   std::memcpy(p, &v, sizeof v);
}

// Rewrites every checksum the input claims so that mutations get past them
// and reach the structure checks behind.
void fixChecksums(std::vector<uint8_t> &b) {
   if (b.size() < zif::kHeaderSize) {
      return;
   }
   auto inside = [&](uint64_t off, uint64_t len) { return off <= b.size() && len <= b.size() - off; };
   uint8_t *table = b.data() + zif::kSectionTableOffset;
   uint64_t dataOff = get64(table + 24 * 4), dataLen = get64(table + 24 * 4 + 8);
   uint64_t indexOff = get64(table + 24), indexLen = get64(table + 24 + 8);
   if (inside(indexOff, indexLen) && inside(dataOff, dataLen)) {
      for (uint64_t e = 0; e + zif::kIndexEntrySize <= indexLen; e += zif::kIndexEntrySize) {
         uint8_t *entry = b.data() + indexOff + e;
         uint64_t off = get64(entry + 16);
         uint32_t len;
         std::memcpy(&len, entry + 24, sizeof len);
         if (off <= dataLen && len <= dataLen - off) {
            put64(entry + 32, XXH3_64bits(b.data() + dataOff + off, len));
         }
      }
   }
   for (size_t i = 0; i < zif::kSectionCount; i++) {
      uint64_t off = get64(table + 24 * i), len = get64(table + 24 * i + 8);
      if (inside(off, len)) {
         put64(table + 24 * i + 16, XXH3_64bits(b.data() + off, len));
      }
   }
   put64(b.data() + zif::kHeaderChecksumOffset, XXH3_64bits(b.data(), zif::kHeaderChecksumOffset));
}

void walk(std::span<const uint8_t> bytes) {
   zif::Reader reader;
   zif::Problem problem;
   if (reader.open(bytes, &problem) != ZLC_OK) {
      return;
   }
   for (size_t i = 0; i < reader.size(); i++) {
      zif::IndexEntry e = reader.entry(i);
      std::span<const uint8_t> key = reader.entryKey(e);
      std::string_view keyText(reinterpret_cast<const char *>(key.data()), key.size());
      // Every entry the index holds is found again by its own key.
      auto found = reader.find(e.kind, reader.entryNode(e), keyText);
      if (!found || *found != i) {
         std::abort();
      }
      std::span<const uint8_t> payload;
      if (reader.payload(i, payload) == ZLC_OK && e.kind == zif::EntryKind::List) {
         zif::Keys keys;
         zif::decodeKeys(payload, keys);
      }
   }
   zif::Snapshot model;
   if (reader.toModel(model) == ZLC_OK) {
      reader.verifyAll();
      std::string json = zif::dumpJson(model);
      (void)json;
   }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
   walk({data, size});
   std::vector<uint8_t> fixed(data, data + size);
   fixChecksums(fixed);
   walk(fixed);
   return 0;
}
