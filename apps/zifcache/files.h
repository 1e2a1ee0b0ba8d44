// Where zifcache reads and writes: a path, or "-" for standard input and
// standard output, so that `ssh host zifcache capture - > host.zifc` leaves
// nothing on the host.
#pragma once

#include "zifformat/mapped_file.h"
#include "zifformat/snapshot_format.h"

#include <functional>
#include <string>
#include <vector>

namespace zifcache {

inline bool isStandardStream(const std::string &path) {
   return path == "-";
}

// A whole input file as text; "-" reads standard input to its end.
bool readWholeFile(const std::string &path, std::string &out);

// A snapshot to read: a mapped file, or standard input read into memory.
class InputSource : public zif::ByteSource {
public:
   // ZLC_SNAP_CANNOT_OPEN with the reason when it cannot be had.
   ZLC_ReturnStatus open(const std::string &path, std::string *error);
   uint64_t size() const override;
   std::optional<std::span<const uint8_t>> view(uint64_t offset, uint64_t length) override;

private:
   zif::MappedFile file_;
   std::vector<uint8_t> bytes_;
   bool inMemory_ = false;
};

// Opens a snapshot to read, as dump, check and diff do; prints the problem
// ("zifcache VERB: PATH: ...") when it fails.
bool openSnapshot(const std::string &path, InputSource &source, zif::Reader &reader, const char *verb);
// "zifcache VERB: PATH: MESSAGE (offset N): STATUS TEXT"
void reportProblem(const char *verb, const std::string &path, const zif::Problem &problem);

// Writes a snapshot to OUT: "-" is standard output (never a terminal); a
// path is replaced as the simulator replaces its file (a symbolic link is
// followed, then a temporary file beside the target is written, synced and
// renamed), so readers of the old file keep it and a failed write leaves the
// old file as it was and no temporary file. What is there already must be a
// snapshot or empty: a JSON input named as the output by mistake, a device
// or a directory is never replaced. False after a message
// "zifcache VERB: OUT: why" on standard error.
bool writeSnapshotFile(const std::string &out, const char *verb, const std::function<void(zif::Sink &)> &produce);

}  // namespace zifcache
