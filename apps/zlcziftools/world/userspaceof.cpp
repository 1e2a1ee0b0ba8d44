// userspaceof: the userspace ID of the world with a given world ID.
//
// There are no options; arguments after the first are ignored, and text after
// the digits of the world ID is too (12abc is world 12).
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "cartelwalks.h"
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
   int printed = 0;
   const bool walked = world::ForEachWorldInfo(ZIF_NODE_world, [&](const rec::world_info &info, ZIF_ParamList *) {
      if (info.worldId() == worldId) {
         std::printf("%d ", static_cast<int>(info.userspaceId()));
         ++printed;
      }
      return sysinfo::Visit::Next;
   });
   if (!walked || printed == 0) {
      return 1;
   }
   std::putchar('\n');
   return 0;
}
