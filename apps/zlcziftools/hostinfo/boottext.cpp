#include "boottext.h"

#include <algorithm>

namespace bootoption {

BootCommandLine SplitBootCommandLine(std::string_view line) {
   const std::size_t blank = line.find(' ');
   if (blank == std::string_view::npos) {
      return {line, {}};
   }
   return {line.substr(0, blank), line.substr(blank + 1)};
}

std::string_view PrintablePiece(std::span<char> bytes) {
   std::replace(bytes.begin(), bytes.end(), '\n', ' ');
   const auto end = std::find(bytes.begin(), bytes.end(), '\0');
   return std::string_view(bytes.data(), static_cast<std::size_t>(end - bytes.begin()));
}

StreamOutcome StreamContent(std::uint32_t total, const PieceReader &read, const PieceSink &sink) {
   const std::uint32_t piece = std::min(total, kContentPieceSize);
   std::uint64_t offset = 0;
   while (offset < total) {
      std::optional<std::span<char>> bytes = read(static_cast<std::uint32_t>(offset), piece);
      if (!bytes) {
         return {StreamOutcome::Kind::ReadFailed, offset};
      }
      const std::span<char> delivered = bytes->first(std::min<std::size_t>(bytes->size(), piece));
      if (delivered.empty()) {
         return {StreamOutcome::Kind::ShortRead, offset};
      }
      sink(PrintablePiece(delivered));
      offset += delivered.size();
   }
   return {StreamOutcome::Kind::Done, offset};
}

}  // namespace bootoption
