// Read-only file mappings and atomic file replacement.
#pragma once

#include "snapshot_format.h"

#include <functional>
#include <span>
#include <string>

namespace zif {

class MappedFile {
public:
   MappedFile() = default;
   MappedFile(const MappedFile &) = delete;
   MappedFile &operator=(const MappedFile &) = delete;
   ~MappedFile();

   // ZLC_SNAP_CANNOT_OPEN when the file cannot be opened or mapped.
   ZLC_ReturnStatus open(const std::string &path, std::string *error = nullptr);
   void close();
   std::span<const uint8_t> bytes() const { return {static_cast<const uint8_t *>(base_), size_}; }

private:
   void *base_ = nullptr;
   size_t size_ = 0;
};

// Writes path through a temporary file in the same directory: write, fsync,
// rename. The old file is never changed in place; on failure it is left as
// it was. Throws FormatError (from produce) and std::system_error.
void writeFileAtomic(const std::string &path, const std::function<void(Sink &)> &produce);

} // namespace zif
