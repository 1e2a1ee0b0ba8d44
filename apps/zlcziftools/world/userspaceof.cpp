// userspaceof: the userspace ID of the world with a given world ID.
//
// There are no options; arguments after the first are ignored, and text after
// the digits of the world ID is too (12abc is world 12).
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "find the userspace ID of running programs\n"
      "userspaceof WID\n";

}  // namespace

int UserspaceofMain(int argc, char **argv) {
   if (argc < 2) {
      std::fputs(kUsage, stderr);
      return 1;
   }
   const auto worldId = static_cast<std::uint32_t>(std::strtoul(argv[1], nullptr, 10));
   if (worldId == 0) {
      std::puts("bad world ID");
      return 1;
   }
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   if (!query) {
      std::fputs("CartelList: Not enough memory\n", stderr);
      return 1;
   }
   sysinfo::InstanceList worlds;
   const ZLC_ReturnStatus status = worlds.Fetch(sysinfo::Node(ZIF_NODE_world), nullptr);
   if (status != 0) {
      std::fprintf(stderr, "CartelList: error fetching cartel list 0x%x\n", status);
      return 1;
   }
   int printed = 0;
   const sysinfo::WalkResult walk = sysinfo::ForEachInstance(worlds, query.get(), [&](ZIF_Param *, int) {
      rec::world_info info;
      if (sysinfo::GetRecord(info, query.get()) == 0 && info.worldId() == worldId) {
         std::printf("%d ", static_cast<int>(info.userspaceId()));
         ++printed;
      }
      return sysinfo::Visit::Next;
   });
   if (walk.KeyCopyFailed() || printed == 0) {
      return 1;
   }
   std::putchar('\n');
   return 0;
}
