// Fuzz target: two snapshots cut from one input (a little-endian u32 says
// where the first ends; its top bit picks the filtered view), their checksums
// made right so that mutations reach the structure behind them, then compared
// every way zifcache diff compares and reported as text and JSON. Must never
// crash or read out of bounds; a snapshot compared with itself shows nothing,
// and A against B shows as many changes as B against A.
#include "diff.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include <xxhash.h>

#include "fix_checksums.h"

namespace {

using fuzzsupport::fixChecksums;
using fuzzsupport::get64;
using fuzzsupport::put64;

void mustShow(const std::string &text) {
   if (text.empty()) {
      std::abort();
   }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
   if (size < 4) {
      return 0;
   }
   uint32_t word;
   std::memcpy(&word, data, sizeof word);
   const auto split = static_cast<uint32_t>(word % (size - 4 + 1));
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
   // Compared both ways, with itself, and in one filtered view.
   const zifdiff::Result forward = zifdiff::compare(a, b, {});
   mustShow(zifdiff::formatText(forward, " -> "));
   mustShow(zifdiff::formatJson(forward));
   const bool worldsOnly = (word >> 31) != 0;
   const zifdiff::Result filtered =
         worldsOnly ? zifdiff::compare(b, a, {"world", true}) : zifdiff::compare(a, b, {"hardware_pci", false});
   mustShow(zifdiff::formatText(filtered, " -> "));
   if (!zifdiff::compare(a, a, {}).changes.empty() ||
       forward.changes.size() != zifdiff::compare(b, a, {}).changes.size()) {
      std::abort();
   }
   return 0;
}
