// Fuzz entry for what the host information tools make of the kernel's texts:
// the boot command line's split, the reading of a boot option file's content
// when the kernel delivers pieces of any size (none, short, too long), which
// must always end, and the bounded device text of an interrupt cookie.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "hostinfo/boottext.h"
#include "hostinfo/irqtext.h"

namespace {

void Check(bool condition) {
   if (!condition) {
      std::abort();
   }
}

void FuzzCommandLine(std::string_view line) {
   const bootoption::BootCommandLine split = bootoption::SplitBootCommandLine(line);
   Check(split.kernel.find(' ') == std::string_view::npos);
   Check(line.substr(0, split.kernel.size()) == split.kernel);
   if (split.kernel.size() < line.size()) {
      Check(line.substr(split.kernel.size() + 1) == split.options);
   } else {
      Check(split.options.empty());
   }
}

// The first four bytes give the content's length (kept small), each later
// byte the size of one delivery; the content itself is the input again.
void FuzzContent(const std::uint8_t *data, std::size_t size) {
   if (size < 4) {
      return;
   }
   std::uint32_t total = 0;
   std::memcpy(&total, data, 4);
   total %= 1u << 16;
   const std::span<const std::uint8_t> deliveries(data + 4, size - 4);
   std::size_t reads = 0;
   std::size_t deliveredBytes = 0;
   std::string buffer;
   const bootoption::StreamOutcome outcome = bootoption::StreamContent(
         total,
         [&](std::uint32_t offset, std::uint32_t count) -> std::optional<std::span<char>> {
            Check(count == std::min(total, bootoption::kContentPieceSize));
            Check(offset < total);
            if (reads >= deliveries.size()) {
               return std::nullopt;
            }
            // Sizes up to a little more than asked for, so that an overlong
            // delivery happens too.
            const std::size_t n = deliveries[reads++] * (static_cast<std::size_t>(count) + 8) / 255;
            buffer.assign(n, '\n');
            for (std::size_t i = 0; i < n; ++i) {
               buffer[i] = static_cast<char>(data[(offset + i) % size]);
            }
            deliveredBytes += std::min<std::size_t>(n, count);
            return std::span<char>(buffer.data(), buffer.size());
         },
         [&](std::string_view text) { Check(text.find('\n') == std::string_view::npos); });
   Check(reads <= deliveries.size() + 1);
   Check(outcome.offset == deliveredBytes);
   if (outcome.kind == bootoption::StreamOutcome::Kind::Done) {
      Check(outcome.offset >= total);
   }
}

// Device names are the input's texts between NUL bytes; an empty one stands
// for a device key without a string.
void FuzzDeviceText(std::string_view data) {
   std::vector<std::string> storage;
   std::size_t start = 0;
   while (start <= data.size() && storage.size() < 64) {
      const std::size_t end = std::min(data.find('\0', start), data.size());
      storage.emplace_back(data.substr(start, end - start));
      start = end + 1;
   }
   std::vector<const char *> names;
   std::string whole;
   for (std::size_t i = 0; i < storage.size(); ++i) {
      names.push_back(storage[i].empty() ? nullptr : storage[i].c_str());
      whole += "ZLC " + (storage[i].empty() ? std::string("device") : storage[i]);
      if (i + 1 < storage.size()) {
         whole += ", ";
      }
   }
   const std::string text = irqinfo::DeviceText(names);
   Check(text.size() < irqinfo::kDeviceTextSize);
   Check(whole.compare(0, text.size(), text) == 0);
   Check(text.size() == std::min(whole.size(), irqinfo::kDeviceTextSize - 1));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
   const std::string_view text(reinterpret_cast<const char *>(data), size);
   FuzzCommandLine(text.substr(0, text.find('\0')));
   FuzzContent(data, size);
   FuzzDeviceText(text);
   return 0;
}
