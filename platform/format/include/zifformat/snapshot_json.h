// The JSON form of a snapshot: parsing (zifcache pack) and printing (dump).
#pragma once

#include "zifformat/snapshot_format.h"

#include <string>
#include <string_view>

namespace zif {

// Merges JSON documents into one snapshot. Entry arrays are concatenated;
// signature, simulator and meta come from the first document that has them.
class JsonPacker {
public:
   // Throws FormatError with a message naming the label and the entry.
   void add(std::string_view text, std::string_view label);
   // The merged snapshot; the library's own signature unless one was given.
   Snapshot finish();

private:
   Snapshot snapshot_;
   bool haveSignature_ = false;
};

// Convenience for tests and the fuzz target: one document to file bytes.
std::vector<uint8_t> packJson(std::string_view text);

std::string dumpJson(const Snapshot &snapshot);

// Hex helpers shared with zifcache: blanks are ignored when parsing.
bool parseHex(std::string_view text, std::vector<uint8_t> &out);
std::string toHex(std::span<const uint8_t> bytes, bool grouped);

}  // namespace zif
