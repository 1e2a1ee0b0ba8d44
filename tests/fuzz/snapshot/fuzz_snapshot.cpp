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

#include "fix_checksums.h"

namespace {

using fuzzsupport::fixChecksums;
using fuzzsupport::get64;
using fuzzsupport::put64;

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
