// bootOption's work on the kernel's texts: the boot command line's split into
// kernel and options, and the reading of a boot option file's content in
// pieces, each made printable on one line.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string_view>

namespace bootoption {

struct BootCommandLine {
   std::string_view kernel;   // up to the first blank, or the whole line
   std::string_view options;  // after the first blank; empty without one
};

BootCommandLine SplitBootCommandLine(std::string_view line);

// The most a single read request asks for.
constexpr std::uint32_t kContentPieceSize = 3145728;

// Makes the bytes of a piece printable in place: each newline becomes a
// blank, and the text ends at the first NUL byte, as a "%s" print would.
std::string_view PrintablePiece(std::span<char> bytes);

// Asks for count bytes at offset; gives the bytes delivered (valid until the
// next call), or nothing when the read failed.
using PieceReader = std::function<std::optional<std::span<char>>(std::uint32_t offset, std::uint32_t count)>;
using PieceSink = std::function<void(std::string_view text)>;

struct StreamOutcome {
   enum class Kind { Done, ReadFailed, ShortRead };
   Kind kind = Kind::Done;
   std::uint64_t offset = 0;  // where the content stopped
};

// Reads a content of total bytes piece by piece from offset 0, every request
// asking for min(total, kContentPieceSize) bytes, and hands each piece's
// printable text to sink. A piece that delivers nothing before the end stops
// the reading (ShortRead) rather than asking again for ever.
StreamOutcome StreamContent(std::uint32_t total, const PieceReader &read, const PieceSink &sink);

}  // namespace bootoption
