// Fuzz entry for the process tools' parsers of outside input: pidof's
// command-line matching, pkill's signal argument, lsof's argument, and the
// tree linking and walking of world records in any shape (duplicate IDs,
// self-parents, cycles) which must always end.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "world/lsofargs.h"
#include "world/programname.h"
#include "world/signals.h"
#include "world/worldlist.h"

namespace {

void FuzzTexts(std::string_view data) {
   const std::size_t split = data.find('\n');
   const std::string_view commandLine = data.substr(0, split);
   const std::string_view program = split == std::string_view::npos ? std::string_view() : data.substr(split + 1);
   world::CommandLineNames(commandLine, program, true);
   world::CommandLineNames(commandLine, program, false);
   const std::string argument(data.substr(0, data.find('\0')));
   world::SignalFromArgument(argument.c_str());
   const world::LsofArgument lsof = world::ParseLsofArgument(argument.c_str());
   if (lsof.filter && lsof.filter->size() > argument.size()) {
      std::abort();
   }
}

// Each 12 bytes make a world: its ID, cartel ID and parent ID, drawn from a
// small range so that duplicates and cycles are common.
void FuzzTree(const std::uint8_t *data, std::size_t size) {
   std::vector<world::WorldEntry> flat;
   for (std::size_t offset = 0; offset + 12 <= size && flat.size() < 4096; offset += 12) {
      world::WorldEntry entry;
      std::uint32_t fields[3];
      std::memcpy(fields, data + offset, sizeof fields);
      const std::uint32_t values[] = {fields[0] % 64, fields[1] % 4, fields[2] % 64};
      entry.info.worldId = values[0];
      entry.info.cartelId = values[1];
      entry.info.parentId = values[2];
      flat.push_back(std::move(entry));
   }
   world::LinkTree(flat);
   std::vector<unsigned> seen(flat.size(), 0);
   for (std::size_t root = 0; root < flat.size(); ++root) {
      if (flat[root].parent != world::kNone) {
         continue;
      }
      world::ForEachInTreeOrder(flat, static_cast<world::EntryRef>(root), [&](world::EntryRef ref, int) {
         if (++seen[static_cast<std::size_t>(ref)] > 1) {
            std::abort();
         }
      });
   }
   // Every entry hangs below exactly one top: no cycle was linked.
   for (unsigned count : seen) {
      if (count != 1) {
         std::abort();
      }
   }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
   FuzzTexts(std::string_view(reinterpret_cast<const char *>(data), size));
   FuzzTree(data, size);
   return 0;
}
