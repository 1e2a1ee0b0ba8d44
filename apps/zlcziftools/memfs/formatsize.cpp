#include "formatsize.h"

#include <cstdio>

namespace memfs {

void FormatSize(std::uint32_t bytes, char *buffer, std::size_t length) {
   // Division by shifting rounds down on purpose: 3 MiB less one byte is "2M".
   if (bytes > 0xFFFFFu) {
      std::snprintf(buffer, length, "%dM", static_cast<int>(bytes >> 20));
   } else if (bytes > 1023u) {
      std::snprintf(buffer, length, "%dK", static_cast<int>(bytes >> 10));
   } else {
      std::snprintf(buffer, length, "%dB", static_cast<int>(bytes));
   }
}

}  // namespace memfs
