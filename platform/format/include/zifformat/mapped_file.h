// Read-only file mappings and atomic file replacement.
#pragma once

#include "zifformat/snapshot_format.h"

#include <functional>
#include <span>
#include <string>
#include <vector>

namespace zif {

// A read-only file mapping. Files up to kWholeLimit are mapped whole, so that
// a reader can keep their data in view (a host of 100,000 cartels takes about
// 115 MB); larger ones piece by piece on demand, so that reading a few entries
// of a huge file maps (and later unmaps) only the pages that hold them.
class MappedFile : public ByteSource {
public:
   MappedFile() = default;
   MappedFile(const MappedFile &) = delete;
   MappedFile &operator=(const MappedFile &) = delete;
   ~MappedFile() override;

   // ZLC_SNAP_CANNOT_OPEN when the file cannot be opened or mapped.
   ZLC_ReturnStatus open(const std::string &path, std::string *error = nullptr);
   void close();

   uint64_t size() const override { return size_; }
   std::optional<std::span<const uint8_t>> view(uint64_t offset, uint64_t length) override;
   void willReadAll(uint64_t offset, uint64_t length) override;
   // Only a file mapped whole has its bytes in view.
   std::span<const uint8_t> viewInPlace(uint64_t offset) override;

   static constexpr uint64_t kWholeLimit = 256 << 20;
   static constexpr uint64_t kWindow = 16 << 20;
   static constexpr size_t kMaxSmallMappings = 256;

private:
   struct Mapping {
      uint64_t offset, length;
      void *base;
   };
   std::optional<std::span<const uint8_t>> mapRange(uint64_t offset, uint64_t length);

   int fd_ = -1;
   uint64_t size_ = 0;
   std::vector<Mapping> mappings_;  // the whole file, or windows
   size_t lastHit_ = 0;             // the mapping that served the last view: reads come in runs
};

// Writes path through a temporary file in the same directory: write, fsync,
// rename. The old file is never changed in place; on failure it is left as
// it was. Throws FormatError (from produce) and std::system_error.
void writeFileAtomic(const std::string &path, const std::function<void(Sink &)> &produce);

}  // namespace zif
