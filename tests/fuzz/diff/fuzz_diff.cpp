// Fuzz target: two snapshots cut from one input (a little-endian u32 says
// where the first ends), their checksums made right so that mutations reach
// the structure behind them, then compared every way zifcache diff compares
// and reported as text and JSON. Must never crash or read out of bounds; a
// snapshot compared with itself shows nothing, and A against B shows as many
// changes as B against A.
#include "diff.h"

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

// Rewrites every checksum the file claims: payloads, sections, header.
void fixChecksums(std::vector<uint8_t> &b) {
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

void report(const zif::Reader &a, const zif::Reader &b, const zifdiff::Options &options) {
   zifdiff::Result r = zifdiff::compare(a, b, options);
   std::string text = zifdiff::formatText(r, " -> ");
   std::string json = zifdiff::formatJson(r);
   if (text.empty() || json.empty()) {
      std::abort();
   }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
   if (size < 4) {
      return 0;
   }
   uint32_t split;
   std::memcpy(&split, data, sizeof split);
   split = static_cast<uint32_t>(split % (size - 4 + 1));
   std::vector<uint8_t> first(data + 4, data + 4 + split), second(data + 4 + split, data + size);
   fixChecksums(first);
   fixChecksums(second);
   zif::Reader a, b;
   if (a.open(first) != ZLC_OK || b.open(second) != ZLC_OK) {
      return 0;
   }
   // The diff refuses damaged files, but compares whatever it is given.
   zifdiff::verifyPayloads(a);
   zifdiff::verifyPayloads(b);
   report(a, b, {});
   report(b, a, {"world", true});
   report(a, b, {"hardware_pci", false});
   if (!zifdiff::compare(a, a, {}).changes.empty() ||
       zifdiff::compare(a, b, {}).changes.size() != zifdiff::compare(b, a, {}).changes.size()) {
      std::abort();
   }
   return 0;
}
