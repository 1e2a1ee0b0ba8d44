// zifcache diff: what differs between two snapshots by meaning. Both indexes
// are sorted the same way (kind, node name, key bytes), so one walk over both
// pairs every entry with its counterpart; only entries whose bytes differ are
// decoded, field by field from the record layout table.
#pragma once

#include "zifformat/snapshot_format.h"

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace zifdiff {

// One value of a changed field: an integer (signed or not), a text, or a
// short excerpt of raw bytes.
struct Value {
   enum class Type : uint8_t { Signed, Unsigned, Text, Bytes };
   Type type = Type::Bytes;
   int64_t number = 0;
   uint64_t unsignedNumber = 0;
   std::string text;            // Text
   std::vector<uint8_t> bytes;  // Bytes: the excerpt
};

struct FieldChange {
   std::string field;       // the layout's field name; "text" or "bytes" without one; empty for unnamed bytes
   uint32_t offset = 0;     // Bytes: where the excerpt starts in the record; Text of data: where it differs
   uint32_t differing = 0;  // Bytes: how many bytes differ in the field
   Value before, after;
};

enum class What : uint8_t { Added, Removed, Changed };

struct Change {
   What what = What::Changed;
   zif::EntryKind kind = zif::EntryKind::Record;
   std::string node;  // empty for devinfo
   zif::Keys keys;
   uint32_t statusBefore = 0, statusAfter = 0;  // Added: after only, Removed: before only
   std::vector<FieldChange> fields;             // content that differs (both sides succeed)
   zif::Keys instancesAdded, instancesRemoved;  // lists; for an added or removed list, all of its instances
   bool reordered = false;                      // a list with the same instances in another order
   bool lengthChanged = false;                  // data of a different length with equal leading bytes
   uint64_t lengthBefore = 0, lengthAfter = 0;
};

// Provenance and signature: shown, counted only when asked.
struct MetaChange {
   std::string what;  // "host", "captured", "by", "notes", "signature digest", "signature date"
   std::string before, after;
};

struct Options {
   std::string node;  // only this node and those below it (name + "_..."); empty: every node
   bool all = false;  // metadata and signature count as differences
};

struct Result {
   std::vector<Change> changes;  // in node table order, then index order
   std::vector<MetaChange> meta;
   bool countsMeta = false;                                  // --all
   std::optional<std::pair<uint64_t, uint64_t>> rootDevice;  // the simulator's, when it differs
   std::vector<std::string> summary;                         // one item per family or node that changed
   bool differ = false;                                      // the exit status: state differs (or metadata with --all)
};

// Reads every payload of a snapshot once, as `zifcache check` does after
// opening it: the first damaged entry, in index order, as a Problem.
std::optional<zif::Problem> verifyPayloads(const zif::Reader &reader);

// Whether NAME is a node or a path prefix of nodes ("hardware_pci").
bool isNodeOrPrefix(const std::string &name);

// Compares two snapshots that opened (and passed verifyPayloads).
Result compare(const zif::Reader &before, const zif::Reader &after, const Options &options);

// The report: the summary line, then one line per change. ARROW is " → " or
// " -> ", as the terminal's character set allows.
std::string formatText(const Result &result, std::string_view arrow);
std::string formatJson(const Result &result);

}  // namespace zifdiff
