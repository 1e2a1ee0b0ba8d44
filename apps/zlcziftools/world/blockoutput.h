// Output of the listings of very many lines: lines are appended to one buffer,
// which is handed to stdio in large blocks, so that whatever else a command
// prints to standard output keeps its place. A message to standard error
// between lines takes a Flush first, to keep its place when both streams go
// to one file.
#pragma once

#include <charconv>
#include <cstdint>
#include <cstdio>
#include <string>
#include <string_view>

namespace world {

class BlockOutput {
public:
   BlockOutput() = default;
   BlockOutput(const BlockOutput &) = delete;
   BlockOutput &operator=(const BlockOutput &) = delete;
   ~BlockOutput() { Flush(); }

   std::string &Buffer() { return buffer_; }
   // Writes the buffer out once it holds a block's worth.
   void LineDone() {
      if (buffer_.size() >= kBlock) {
         Flush();
      }
   }
   void Flush() {
      std::fwrite(buffer_.data(), 1, buffer_.size(), stdout);
      buffer_.clear();
   }

private:
   static constexpr std::size_t kBlock = 64 * 1024;
   std::string buffer_;
};

inline void AppendBlanks(std::string &line, long count) {
   if (count > 0) {
      line.append(static_cast<std::size_t>(count), ' ');
   }
}

// text padded with blanks to width characters ("%-*s").
inline void AppendLeft(std::string &line, std::string_view text, long width) {
   line += text;
   AppendBlanks(line, width - static_cast<long>(text.size()));
}

// "%d", "%u" or "%lu" of value, right-aligned in width characters, or with
// left true left-aligned ("%-*d").
template <typename Integer>
void AppendNumber(std::string &line, Integer value, long width = 0, bool left = false) {
   char digits[24];
   const auto end = std::to_chars(digits, digits + sizeof digits, value).ptr;
   const long length = end - digits;
   if (!left) {
      AppendBlanks(line, width - length);
   }
   line.append(digits, end);
   if (left) {
      AppendBlanks(line, width - length);
   }
}

}  // namespace world
