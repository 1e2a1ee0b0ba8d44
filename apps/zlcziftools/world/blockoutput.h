// Output of the listings of very many lines: lines are appended to one buffer,
// which is handed to stdio in large blocks, so that whatever else a command
// prints to standard output keeps its place. A message to standard error
// between lines takes a Flush first, to keep its place when both streams go
// to one file.
#pragma once

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string_view>

namespace world {

// The text of lines being built, in one growing block: the few string
// operations the listings use, each inline, so that a line of a dozen pieces
// costs its copies and no calls into the string library.
class LineBuffer {
public:
   LineBuffer() = default;
   LineBuffer(const LineBuffer &) = delete;
   LineBuffer &operator=(const LineBuffer &) = delete;
   ~LineBuffer() { std::free(begin_); }

   LineBuffer &operator+=(std::string_view text) {
      append(text.data(), text.data() + text.size());
      return *this;
   }
   LineBuffer &operator+=(char c) {
      MakeRoom(1);
      *end_++ = c;
      return *this;
   }
   void append(const char *first, const char *last) {
      const auto count = static_cast<std::size_t>(last - first);
      MakeRoom(count);
      if (count != 0) {
         std::memcpy(end_, first, count);
      }
      end_ += count;
   }
   void append(std::size_t count, char c) {
      MakeRoom(count);
      std::memset(end_, c, count);
      end_ += count;
   }
   // Drops the text from size on (a larger size changes nothing).
   void resize(std::size_t size) { end_ = begin_ + std::min(size, this->size()); }
   void clear() { end_ = begin_; }

   std::size_t size() const { return static_cast<std::size_t>(end_ - begin_); }
   bool empty() const { return end_ == begin_; }
   const char *data() const { return begin_; }
   std::string_view View() const { return {begin_, size()}; }

private:
   void MakeRoom(std::size_t count) {
      if (static_cast<std::size_t>(limit_ - end_) < count) {
         Grow(count);
      }
   }
   // Doubles the block (at least); throws std::bad_alloc when that fails.
   void Grow(std::size_t count) {
      const std::size_t used = size();
      const std::size_t capacity =
            std::max({std::size_t{256}, 2 * static_cast<std::size_t>(limit_ - begin_), used + count});
      char *grown = static_cast<char *>(std::realloc(begin_, capacity));
      if (grown == nullptr) {
         throw std::bad_alloc();
      }
      begin_ = grown;
      end_ = grown + used;
      limit_ = grown + capacity;
   }

   char *begin_ = nullptr;
   char *end_ = nullptr;
   char *limit_ = nullptr;
};

class BlockOutput {
public:
   BlockOutput() = default;
   BlockOutput(const BlockOutput &) = delete;
   BlockOutput &operator=(const BlockOutput &) = delete;
   ~BlockOutput() { Flush(); }

   LineBuffer &Buffer() { return buffer_; }
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
   LineBuffer buffer_;
};

inline void AppendBlanks(LineBuffer &line, long count) {
   if (count > 0) {
      line.append(static_cast<std::size_t>(count), ' ');
   }
}

// text padded with blanks to width characters ("%-*s").
inline void AppendLeft(LineBuffer &line, std::string_view text, long width) {
   line += text;
   AppendBlanks(line, width - static_cast<long>(text.size()));
}

// "%d", "%u" or "%lu" of value, right-aligned in width characters, or with
// left true left-aligned ("%-*d").
template <typename Integer>
void AppendNumber(LineBuffer &line, Integer value, long width = 0, bool left = false) {
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
