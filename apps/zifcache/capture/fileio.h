// Reading the host's pseudo files: whole small files, links, directories, and
// reads that may block behind a stuck process, bounded by a time limit.
#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace capture {

// The whole file, at most max bytes; nullopt when it cannot be opened or read.
std::optional<std::string> ReadFile(const std::string &path, size_t max = 1 << 20);
// The first line of a file without its line end ("" for an empty file).
std::optional<std::string> ReadLine(const std::string &path);
std::optional<std::string> ReadLink(const std::string &path);
// Entry names of a directory in byte order, without "." and ".."; nullopt
// when the directory cannot be opened.
std::optional<std::vector<std::string>> ListDir(const std::string &path);
// Entry names that are decimal numbers, in numeric order.
std::vector<int> ListNumericDir(const std::string &path);

// Reads files on a helper thread and gives up on a read that takes longer
// than the limit. A read of /proc/PID/cmdline or maps waits for the process's
// memory map lock, which a process in uninterruptible sleep may hold for ever;
// the helper that is stuck is abandoned and a fresh one takes the next read.
class BoundedReader {
public:
   explicit BoundedReader(std::chrono::milliseconds limit);
   ~BoundedReader();
   BoundedReader(const BoundedReader &) = delete;
   BoundedReader &operator=(const BoundedReader &) = delete;

   struct Result {
      std::optional<std::string> text;
      bool timedOut = false;
   };
   Result Read(const std::string &path, size_t max);
   unsigned Abandoned() const { return abandoned_; }

private:
   struct Channel;
   void Start();
   std::chrono::milliseconds limit_;
   std::shared_ptr<Channel> channel_;
   std::thread worker_;
   unsigned abandoned_ = 0;
};

}  // namespace capture
