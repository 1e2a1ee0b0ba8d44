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

#include "fix_checksums.h"

namespace {

using fuzzsupport::fixChecksums;
using fuzzsupport::get64;
using fuzzsupport::put64;

void report(const zifdiff::Result &r) {
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
   const zifdiff::Result forward = zifdiff::compare(a, b, {});
   report(forward);
   report(zifdiff::compare(b, a, {"world", true}));
   report(zifdiff::compare(a, b, {"hardware_pci", false}));
   if (!zifdiff::compare(a, a, {}).changes.empty() ||
       forward.changes.size() != zifdiff::compare(b, a, {}).changes.size()) {
      std::abort();
   }
   return 0;
}
