// The short size text that zdf and zdu show under -h.
#pragma once

#include <cstddef>
#include <cstdint>

namespace memfs {

// The buffer size both commands pass to FormatSize.
constexpr std::size_t kSizeTextLength = 16;

// Writes bytes as "%dM" above 1048575, "%dK" above 1023, else "%dB", always
// rounded down (1048575 gives "1023K"). The text is cut to fit length,
// terminator included; a length of 0 writes nothing.
void FormatSize(std::uint32_t bytes, char *buffer, std::size_t length);

}  // namespace memfs
