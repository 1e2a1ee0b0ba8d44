#include "zifformat/mapped_file.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <vector>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace zif {

MappedFile::~MappedFile() {
   close();
}

void MappedFile::close() {
   for (const Mapping &m : mappings_) {
      munmap(m.base, m.length);
   }
   mappings_.clear();
   if (fd_ >= 0) {
      ::close(fd_);
   }
   fd_ = -1;
   size_ = 0;
}

ZLC_ReturnStatus MappedFile::open(const std::string &path, std::string *error) {
   close();
   int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
   if (fd < 0) {
      if (error) {
         *error = std::strerror(errno);
      }
      return ZLC_SNAP_CANNOT_OPEN;
   }
   struct stat st;
   if (fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
      if (error) {
         *error = S_ISDIR(st.st_mode) ? "is a directory" : "not a regular file";
      }
      ::close(fd);
      return ZLC_SNAP_CANNOT_OPEN;
   }
   fd_ = fd;
   size_ = static_cast<uint64_t>(st.st_size);
   if (size_ > 0 && size_ <= kWholeLimit && !mapRange(0, size_)) {
      if (error) {
         *error = std::strerror(errno);
      }
      close();
      return ZLC_SNAP_CANNOT_OPEN;
   }
   return ZLC_OK;
}

std::optional<std::span<const uint8_t>> MappedFile::mapRange(uint64_t offset, uint64_t length) {
   void *p = mmap(nullptr, length, PROT_READ, MAP_PRIVATE, fd_, static_cast<off_t>(offset));
   if (p == MAP_FAILED) {
      return std::nullopt;
   }
   mappings_.push_back({offset, length, p});
   return std::span<const uint8_t>(static_cast<const uint8_t *>(p), length);
}

std::optional<std::span<const uint8_t>> MappedFile::view(uint64_t offset, uint64_t length) {
   if (offset > size_ || length > size_ - offset) {
      return std::nullopt;
   }
   if (length == 0) {
      return std::span<const uint8_t>();
   }
   auto inside = [offset, length](const Mapping &m) {
      return offset >= m.offset && offset + length <= m.offset + m.length;
   };
   auto viewOf = [offset, length](const Mapping &m) {
      return std::span<const uint8_t>(static_cast<const uint8_t *>(m.base) + (offset - m.offset), length);
   };
   if (lastHit_ < mappings_.size() && inside(mappings_[lastHit_])) {
      return viewOf(mappings_[lastHit_]);
   }
   // Newest first: once the small mappings run out, the wide windows that
   // serve most reads are the last ones made.
   for (size_t i = mappings_.size(); i-- > 0;) {
      if (inside(mappings_[i])) {
         lastHit_ = i;
         return viewOf(mappings_[i]);
      }
   }
   // Map just the pages asked for: on some hosts the cost of a mapping grows
   // with the pages it spans. After many mappings, map wide windows instead
   // so that a walk over a whole file stays within the process's map limit.
   uint64_t start = offset / 4096 * 4096;
   uint64_t end = (offset + length + 4095) / 4096 * 4096;
   if (mappings_.size() >= kMaxSmallMappings) {
      start = offset / kWindow * kWindow;
      end = std::max(start + 2 * kWindow, end);
   }
   end = std::min(end, size_);
   auto window = mapRange(start, end - start);
   if (!window) {
      return std::nullopt;
   }
   return window->subspan(offset - start, length);
}

std::span<const uint8_t> MappedFile::viewInPlace(uint64_t offset) {
   if (mappings_.empty() || mappings_[0].offset != 0 || mappings_[0].length != size_ || offset > size_) {
      return {};
   }
   return std::span<const uint8_t>(static_cast<const uint8_t *>(mappings_[0].base), size_).subspan(offset);
}

void MappedFile::willReadAll(uint64_t offset, uint64_t length) {
#ifdef MADV_POPULATE_READ
   auto bytes = view(offset, length);
   if (!bytes || bytes->empty()) {
      return;
   }
   // One call maps every page of the range, which costs a fraction of a
   // fault per page; a kernel without it just leaves the faults to come.
   static const auto page = static_cast<uintptr_t>(sysconf(_SC_PAGESIZE));
   const uintptr_t start = reinterpret_cast<uintptr_t>(bytes->data()) / page * page;
   const uintptr_t end = reinterpret_cast<uintptr_t>(bytes->data()) + bytes->size();
   madvise(reinterpret_cast<void *>(start), end - start, MADV_POPULATE_READ);
#else
   (void)offset;
   (void)length;
#endif
}

namespace {

class FdSink : public Sink {
public:
   explicit FdSink(int fd) : fd_(fd) { buffer_.reserve(kBufferSize); }
   void write(std::span<const uint8_t> bytes) override {
      if (buffer_.size() + bytes.size() > kBufferSize) {
         flush();
      }
      if (bytes.size() >= kBufferSize) {
         writeAll(bytes);
      } else {
         buffer_.insert(buffer_.end(), bytes.begin(), bytes.end());
      }
   }
   void flush() {
      writeAll(buffer_);
      buffer_.clear();
   }

private:
   static constexpr size_t kBufferSize = 1 << 20;
   void writeAll(std::span<const uint8_t> bytes) {
      while (!bytes.empty()) {
         ssize_t n = ::write(fd_, bytes.data(), bytes.size());
         if (n < 0) {
            if (errno == EINTR) {
               continue;
            }
            throw std::system_error(errno, std::generic_category(), "write");
         }
         bytes = bytes.subspan(static_cast<size_t>(n));
      }
   }
   int fd_;
   std::vector<uint8_t> buffer_;
};

}  // namespace

void writeFileAtomic(const std::string &path, const std::function<void(Sink &)> &produce) {
   std::string dir = ".";
   if (auto slash = path.rfind('/'); slash != std::string::npos) {
      dir = slash == 0 ? "/" : path.substr(0, slash);
   }
   std::string temp = path + ".tmpXXXXXX";
   std::vector<char> name(temp.begin(), temp.end());
   name.push_back('\0');
   int fd = mkstemp(name.data());
   if (fd < 0) {
      throw std::system_error(errno, std::generic_category(), "cannot create a temporary file in " + dir);
   }
   try {
      // Keep the mode of the file being replaced; new files get 0644.
      struct stat st;
      mode_t mode = stat(path.c_str(), &st) == 0 ? (st.st_mode & 07777) : 0644;
      fchmod(fd, mode);
      FdSink sink(fd);
      produce(sink);
      sink.flush();
      if (fsync(fd) != 0) {
         throw std::system_error(errno, std::generic_category(), "fsync");
      }
      if (::close(fd) != 0) {
         fd = -1;
         throw std::system_error(errno, std::generic_category(), "close");
      }
      fd = -1;
      if (rename(name.data(), path.c_str()) != 0) {
         throw std::system_error(errno, std::generic_category(), "rename to " + path);
      }
   } catch (...) {
      if (fd >= 0) {
         ::close(fd);
      }
      unlink(name.data());
      throw;
   }
   int dfd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
   if (dfd >= 0) {
      fsync(dfd);
      ::close(dfd);
   }
}

}  // namespace zif
