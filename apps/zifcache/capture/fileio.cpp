#include "fileio.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdlib>
#include <mutex>

namespace capture {

std::optional<std::string> ReadFile(const std::string &path, size_t max) {
   int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
   if (fd < 0) {
      return std::nullopt;
   }
   std::string out;
   char buf[8192];
   while (out.size() < max) {
      ssize_t n = read(fd, buf, std::min(sizeof buf, max - out.size()));
      if (n < 0) {
         if (errno == EINTR) {
            continue;
         }
         close(fd);
         return std::nullopt;
      }
      if (n == 0) {
         break;
      }
      out.append(buf, static_cast<size_t>(n));
   }
   close(fd);
   return out;
}

std::optional<std::string> ReadLine(const std::string &path) {
   auto text = ReadFile(path, 64 * 1024);
   if (!text) {
      return std::nullopt;
   }
   if (auto nl = text->find('\n'); nl != std::string::npos) {
      text->resize(nl);
   }
   return text;
}

std::optional<std::string> ReadLink(const std::string &path) {
   std::string buf(4096, '\0');
   ssize_t n = readlink(path.c_str(), buf.data(), buf.size());
   if (n < 0) {
      return std::nullopt;
   }
   buf.resize(static_cast<size_t>(n));
   return buf;
}

std::optional<std::vector<std::string>> ListDir(const std::string &path) {
   DIR *dir = opendir(path.c_str());
   if (!dir) {
      return std::nullopt;
   }
   std::vector<std::string> names;
   while (dirent *e = readdir(dir)) {
      std::string_view name = e->d_name;
      if (name == "." || name == "..") {
         continue;
      }
      names.emplace_back(name);
   }
   closedir(dir);
   std::sort(names.begin(), names.end());
   return names;
}

std::vector<int> ListNumericDir(const std::string &path) {
   std::vector<int> ids;
   DIR *dir = opendir(path.c_str());
   if (!dir) {
      return ids;
   }
   while (dirent *e = readdir(dir)) {
      const char *name = e->d_name;
      if (*name < '0' || *name > '9') {
         continue;
      }
      char *end = nullptr;
      long v = std::strtol(name, &end, 10);
      if (*end == '\0' && v >= 0 && v <= 0x7fffffff) {
         ids.push_back(static_cast<int>(v));
      }
   }
   closedir(dir);
   std::sort(ids.begin(), ids.end());
   return ids;
}

// One request at a time passes between the capture and its helper thread.
struct BoundedReader::Channel {
   std::mutex mutex;
   std::condition_variable cv;
   bool hasJob = false, done = false, quit = false;
   std::string path;
   size_t max = 0;
   std::optional<std::string> result;
};

BoundedReader::BoundedReader(std::chrono::milliseconds limit) : limit_(limit) {
   Start();
}

BoundedReader::~BoundedReader() {
   {
      std::lock_guard lock(channel_->mutex);
      channel_->quit = true;
   }
   channel_->cv.notify_all();
   worker_.join();
}

void BoundedReader::Start() {
   channel_ = std::make_shared<Channel>();
   worker_ = std::thread([ch = channel_] {
      std::unique_lock lock(ch->mutex);
      for (;;) {
         ch->cv.wait(lock, [&] { return ch->hasJob || ch->quit; });
         if (ch->quit) {
            return;
         }
         std::string path = ch->path;
         size_t max = ch->max;
         lock.unlock();
         auto text = ReadFile(path, max);
         lock.lock();
         ch->result = std::move(text);
         ch->hasJob = false;
         ch->done = true;
         ch->cv.notify_all();
      }
   });
}

BoundedReader::Result BoundedReader::Read(const std::string &path, size_t max) {
   std::unique_lock lock(channel_->mutex);
   channel_->path = path;
   channel_->max = max;
   channel_->done = false;
   channel_->hasJob = true;
   channel_->cv.notify_all();
   if (channel_->cv.wait_for(lock, limit_, [&] { return channel_->done; })) {
      return {std::move(channel_->result), false};
   }
   // The helper is stuck in the kernel: tell it to stop once it returns and
   // leave it behind.
   channel_->quit = true;
   lock.unlock();
   worker_.detach();
   abandoned_++;
   Start();
   return {std::nullopt, true};
}

}  // namespace capture
