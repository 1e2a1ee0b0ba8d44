#include "files.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <sstream>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zifcache {
namespace {

bool readAll(int fd, std::vector<uint8_t> &out, std::string *error) {
   uint8_t buf[1 << 16];
   for (;;) {
      ssize_t n = ::read(fd, buf, sizeof buf);
      if (n == 0) {
         return true;
      }
      if (n < 0) {
         if (errno == EINTR) {
            continue;
         }
         if (error) {
            *error = std::strerror(errno);
         }
         return false;
      }
      out.insert(out.end(), buf, buf + n);
   }
}

bool writeAll(int fd, std::span<const uint8_t> bytes) {
   while (!bytes.empty()) {
      ssize_t n = ::write(fd, bytes.data(), bytes.size());
      if (n < 0) {
         if (errno == EINTR) {
            continue;
         }
         return false;
      }
      bytes = bytes.subspan(static_cast<size_t>(n));
   }
   return true;
}

bool refuse(const char *verb, const std::string &out, const std::string &why) {
   std::cerr << "zifcache " << verb << ": " << out << ": " << why << "\n";
   return false;
}

bool startsWithMagic(const std::string &path) {
   char head[sizeof zif::kMagic] = {};
   std::ifstream in(path, std::ios::binary);
   return in.read(head, sizeof head) && std::memcmp(head, zif::kMagic, sizeof head) == 0;
}

// The file a write to PATH replaces: the target of a symbolic link, so that
// the link stays (a dangling link is replaced itself).
std::string replacedFile(const std::string &path) {
   std::string target = path;
   if (char *resolved = realpath(path.c_str(), nullptr)) {
      target = resolved;
      std::free(resolved);
   }
   return target;
}

}  // namespace

bool readWholeFile(const std::string &path, std::string &out) {
   if (isStandardStream(path)) {
      std::vector<uint8_t> bytes;
      if (!readAll(STDIN_FILENO, bytes, nullptr)) {
         return false;
      }
      out.assign(bytes.begin(), bytes.end());
      return true;
   }
   std::ifstream in(path, std::ios::binary);
   if (!in) {
      return false;
   }
   std::ostringstream ss;
   ss << in.rdbuf();
   out = ss.str();
   return !in.bad();
}

ZLC_ReturnStatus InputSource::open(const std::string &path, std::string *error) {
   inMemory_ = isStandardStream(path);
   if (!inMemory_) {
      return file_.open(path, error);
   }
   bytes_.clear();
   return readAll(STDIN_FILENO, bytes_, error) ? ZLC_OK : ZLC_SNAP_CANNOT_OPEN;
}

uint64_t InputSource::size() const {
   return inMemory_ ? bytes_.size() : file_.size();
}

std::optional<std::span<const uint8_t>> InputSource::view(uint64_t offset, uint64_t length) {
   if (inMemory_) {
      return std::span<const uint8_t>(bytes_).subspan(offset, length);
   }
   return file_.view(offset, length);
}

bool openSnapshot(const std::string &path, InputSource &source, zif::Reader &reader, const char *verb) {
   std::string error;
   if (source.open(path, &error) != ZLC_OK) {
      std::cerr << "zifcache " << verb << ": " << path << ": " << error << "\n";
      return false;
   }
   zif::Problem problem;
   if (reader.open(source, &problem) != ZLC_OK) {
      reportProblem(verb, path, problem);
      return false;
   }
   return true;
}

// A problem the reader found, as one sentence: its own text, and where it is
// unless that text says so already.
void reportProblem(const char *verb, const std::string &path, const zif::Problem &problem) {
   std::cerr << "zifcache " << verb << ": " << path << ": " << problem.message;
   if (problem.message.find("offset") == std::string::npos) {
      std::cerr << " at offset " << problem.offset;
   }
   std::cerr << "\n";
}

bool writeSnapshotFile(const std::string &out, const char *verb, const std::function<void(zif::Sink &)> &produce) {
   if (isStandardStream(out)) {
      if (isatty(STDOUT_FILENO)) {
         return refuse(verb, out, "standard output is a terminal; redirect it to a file or a pipe");
      }
      zif::VectorSink bytes;
      try {
         produce(bytes);
      } catch (const std::exception &e) {
         return refuse(verb, out, e.what());
      }
      if (!writeAll(STDOUT_FILENO, bytes.data)) {
         return refuse(verb, out, std::string("cannot write to standard output: ") + std::strerror(errno));
      }
      return true;
   }
   const std::string target = replacedFile(out);
   struct stat st;
   if (stat(target.c_str(), &st) == 0) {
      if (!S_ISREG(st.st_mode)) {
         return refuse(verb, out, "not a regular file; not replaced");
      }
      if (st.st_size > 0 && !startsWithMagic(target)) {
         return refuse(verb, out, "exists and is not a snapshot file; not replaced");
      }
   }
   // Past a file size limit, fail the write (and remove the temporary file)
   // instead of being killed half way.
   std::signal(SIGXFSZ, SIG_IGN);
   try {
      zif::writeFileAtomic(target, produce);
   } catch (const std::exception &e) {
      return refuse(verb, out, e.what());
   }
   return true;
}

}  // namespace zifcache
