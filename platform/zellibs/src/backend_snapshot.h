// The snapshot back end, shared with the simulator which extends it.
#pragma once

#include "backend.h"
#include "zifformat/mapped_file.h"

namespace zif {

class SnapshotBackend : public Backend {
public:
   ZLC_ReturnStatus load(const std::string &path);

   ZLC_ReturnStatus listInstances(std::string_view node, const Keys &parent, Keys &out) override;
   ZLC_ReturnStatus listInstancesEncoded(const NodeRef &node, std::string_view parent,
                                         std::span<const uint8_t> &out) override;
   ZLC_ReturnStatus getRecord(std::string_view node, const Keys &keys, std::span<uint8_t> buffer) override;
   ZLC_ReturnStatus getRecordEncoded(const NodeRef &node, std::string_view key, std::span<uint8_t> buffer) override;
   ZLC_ReturnStatus dataLength(std::string_view node, const Keys &keys, uint32_t &length) override;
   ZLC_ReturnStatus readData(std::string_view node, const Keys &keys, uint32_t offset, std::span<uint8_t> out,
                             uint32_t &delivered) override;
   ZLC_ReturnStatus set(std::string_view node, const Keys &keys, const Keys &input, std::span<uint8_t> output) override;
   ZLC_ReturnStatus devInfo(const PciFunction &function, std::span<uint8_t, ZLC_DEVINFO_REPLY_SIZE> reply,
                            int64_t &negErrno) override;
   bool signature(Signature &out) override;
   uint64_t rootDevice() override;

protected:
   // A stored answer for a set of node with these input values, if any.
   bool storedSetAnswer(std::string_view node, const Keys &input, std::span<uint8_t> output, ZLC_ReturnStatus &status);
   // Finds an entry; on success payload holds its verified bytes.
   ZLC_ReturnStatus lookup(EntryKind kind, std::string_view node, const Keys &keys, std::span<const uint8_t> &payload);
   ZLC_ReturnStatus lookup(EntryKind kind, std::string_view node, std::string_view key,
                           std::span<const uint8_t> &payload);
   // The reader's group of a node's records or lists, found once per load.
   Reader::Group &groupOf(EntryKind kind, const NodeRef &node);

   std::string path_;
   MappedFile file_;
   Reader reader_;
   std::vector<Reader::Group *> recordGroups_, listGroups_;  // by node number
};

}  // namespace zif
