// Fuzz target: arbitrary text given to zifcache's JSON parser. Whatever it
// accepts must open cleanly, and dump then pack must give the same bytes.
#include "zifformat/snapshot_format.h"
#include "zifformat/snapshot_json.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string_view>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
   std::string_view text(reinterpret_cast<const char *>(data), size);
   std::vector<uint8_t> bytes;
   try {
      bytes = zif::packJson(text);
   } catch (const zif::FormatError &) {
      return 0;
   }
   zif::Reader reader;
   zif::Snapshot model;
   if (reader.open(bytes) != ZLC_OK || reader.verifyAll() != ZLC_OK || reader.toModel(model) != ZLC_OK) {
      std::abort();
   }
   if (zif::packJson(zif::dumpJson(model)) != bytes) {
      std::abort();
   }
   return 0;
}
