// rpcfg's wait for a resource pool group to become empty, apart from the
// sysinfo reads and the clock so that its counting can be tested.
#pragma once

#include <cstdint>

#include "zellibs.h"

namespace memfs {

constexpr std::int64_t kGroupPollMicros = 100000;

// Counts the group's child groups every tenth of a second until there are
// none (true) or waitMicros have passed (false). A failed count counts as not
// empty. A wait of 0 or less gives up at once without counting; otherwise
// there are at most ceil(waitMicros / 100000) counts.
//   countChildren(std::uint32_t &count) -> ZLC_ReturnStatus
//   sleepMicros(std::int64_t micros)
template <typename CountChildren, typename SleepMicros>
bool WaitForEmptyGroup(std::int64_t waitMicros, CountChildren &&countChildren, SleepMicros &&sleepMicros) {
   for (std::int64_t elapsed = 0; elapsed < waitMicros; elapsed += kGroupPollMicros) {
      std::uint32_t count = 0;
      if (countChildren(count) == 0 && count == 0) {
         return true;
      }
      sleepMicros(kGroupPollMicros);
   }
   return false;
}

}  // namespace memfs
