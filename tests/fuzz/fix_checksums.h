// For fuzz targets that feed snapshots: rewrites every checksum the bytes
// claim (payloads, sections, header), so that mutations get past the
// checksums and reach the structure checks behind them.
#pragma once

#include "zifformat/snapshot_format.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include <xxhash.h>

namespace fuzzsupport {

inline uint64_t get64(const uint8_t *p) {
   uint64_t v;
   std::memcpy(&v, p, sizeof v);
   return v;
}

inline void put64(uint8_t *p, uint64_t v) {
   std::memcpy(p, &v, sizeof v);
}

inline void fixChecksums(std::vector<uint8_t> &b) {
   if (b.size() < zif::kHeaderSize) {
      return;
   }
   auto inside = [&](uint64_t off, uint64_t len) { return off <= b.size() && len <= b.size() - off; };
   uint8_t *table = b.data() + zif::kSectionTableOffset;
   const size_t index = static_cast<size_t>(zif::SectionId::Index), data = static_cast<size_t>(zif::SectionId::Data);
   uint64_t dataOff = get64(table + 24 * data), dataLen = get64(table + 24 * data + 8);
   uint64_t indexOff = get64(table + 24 * index), indexLen = get64(table + 24 * index + 8);
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

}  // namespace fuzzsupport
