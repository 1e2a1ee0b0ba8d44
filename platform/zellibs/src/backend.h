// The one interface behind the C API: each source of sysinfo state (snapshot
// file, simulator, host kernel) implements it in its own file.
#pragma once

#include "zifformat/snapshot_format.h"

#include <array>
#include <memory>
#include <span>
#include <string>
#include <string_view>

namespace zif {

using PciFunction = std::array<uint32_t, 4>;

// A node as the C API names it: its number and its name in the node table.
// The number lets a back end remember what it found for the node.
struct NodeRef {
   uint16_t number;
   std::string_view name;
};

class Backend {
public:
   virtual ~Backend() = default;
   virtual ZLC_ReturnStatus listInstances(std::string_view node, const Keys &parent, Keys &out) = 0;
   // Copies min(buffer size, record size) bytes and zero-fills the rest.
   virtual ZLC_ReturnStatus getRecord(std::string_view node, const Keys &keys, std::span<uint8_t> buffer) = 0;
   // The same with the keys encoded as encodeKeys does: the C API's reads
   // come this way, so that a read builds no key vector.
   virtual ZLC_ReturnStatus getRecordEncoded(const NodeRef &node, std::string_view key, std::span<uint8_t> buffer) {
      Keys keys;
      if (!decodeKeys({reinterpret_cast<const uint8_t *>(key.data()), key.size()}, keys)) {
         return ZLC_BAD_PARAM;
      }
      return getRecord(node.name, keys, buffer);
   }
   // The instances with the parent keys and the answer both encoded: the
   // bytes stay valid until the next call on the back end.
   virtual ZLC_ReturnStatus listInstancesEncoded(const NodeRef &node, std::string_view parent,
                                                 std::span<const uint8_t> &out) {
      Keys parentKeys, keys;
      if (!decodeKeys({reinterpret_cast<const uint8_t *>(parent.data()), parent.size()}, parentKeys)) {
         return ZLC_BAD_PARAM;
      }
      ZLC_ReturnStatus s = listInstances(node.name, parentKeys, keys);
      if (s == ZLC_OK) {
         encoded_ = encodeKeys(keys);
         out = {reinterpret_cast<const uint8_t *>(encoded_.data()), encoded_.size()};
      }
      return s;
   }
   virtual ZLC_ReturnStatus dataLength(std::string_view node, const Keys &keys, uint32_t &length) = 0;
   virtual ZLC_ReturnStatus readData(std::string_view node, const Keys &keys, uint32_t offset, std::span<uint8_t> out,
                                     uint32_t &delivered) = 0;
   virtual ZLC_ReturnStatus set(std::string_view node, const Keys &keys, const Keys &input,
                                std::span<uint8_t> output) = 0;
   virtual ZLC_ReturnStatus devInfo(const PciFunction &function, std::span<uint8_t, ZLC_DEVINFO_REPLY_SIZE> reply,
                                    int64_t &negErrno) = 0;
   // False when the source carries no signature.
   virtual bool signature(Signature &out) = 0;
   virtual uint64_t rootDevice() { return 1; }
   // The key of system_zelorfs_inodes for a file that lstat reports as
   // (device, inode); false when the device holds no part of the in-memory
   // root file system (zellibs.h, ZlcSim_InodeKey).
   virtual bool inodeKey(uint64_t device, uint64_t inode, uint64_t &key) {
      key = inode;
      return device == rootDevice();
   }

private:
   std::string encoded_;
};

// A snapshot file opened read-only.
std::unique_ptr<Backend> openSnapshotBackend(const std::string &path, ZLC_ReturnStatus &status);
// A snapshot file that acts as the live kernel and keeps the writes made to it.
std::unique_ptr<Backend> openSimulatorBackend(const std::string &path, ZLC_ReturnStatus &status);
// Answers every operation with one status (a simulator that failed to open).
std::unique_ptr<Backend> makeFailingBackend(ZLC_ReturnStatus status);
// The seam to a real host kernel; see docs/snapshot-format.md.
bool hostKernelPresent();
std::unique_ptr<Backend> openHostBackend(ZLC_ReturnStatus &status);

}  // namespace zif
