// The node table and the record layout table, as the library and zifcache see
// them, plus the library's own signature derived from both.
#pragma once

#include <cstdint>
#include <iterator>
#include <span>
#include <string_view>

#include "zellibs.h"

namespace zif {

enum class FieldKind : uint8_t { U8, U16, U32, U64, S8, S16, S32, S64, TEXT, BYTES };

struct FieldLayout {
   std::string_view name;
   uint32_t offset;
   FieldKind kind;
   uint32_t width;
};

struct RecordLayout {
   std::string_view node;
   uint32_t length;
   std::span<const FieldLayout> fields;
};

// A named value or flag bit of a field (ZIF_VALUE rows): an integer, or a
// text for a TEXT field.
struct NamedValue {
   std::string_view node;
   std::string_view field;
   std::string_view name;
   int64_t number;
   std::string_view text;
};

struct NodeInfo {
   uint16_t number;
   std::string_view name;
};

// Every node of the interface, in declaration order (numbers start at 1).
std::span<const NodeInfo> allNodes();
// Every node's name, in declaration order (node number - 1).
inline constexpr std::string_view kNodeNames[] = {
#define ZIF_NODE_NAME(n) #n,
      ZIF_NODE_LIST(ZIF_NODE_NAME)
#undef ZIF_NODE_NAME
};

// The name of a node number; empty for a number that names no node. Inline:
// every library call asks.
inline std::string_view nodeName(uint16_t number) {
   return number >= 1 && number <= std::size(kNodeNames) ? kNodeNames[number - 1] : std::string_view();
}
bool isKnownNode(std::string_view name);

// Every record layout of a node, in table order (not the replies).
std::span<const RecordLayout> allLayouts();
const RecordLayout *findLayout(std::string_view node);
const FieldLayout *findField(const RecordLayout &layout, std::string_view name);

// Every named value, in table order.
std::span<const NamedValue> allValues();

std::string_view kindName(FieldKind kind);
bool isSigned(FieldKind kind);
bool isInteger(FieldKind kind);

// xxHash64 over the node names and the layout table: changes only when the
// interface between library and program changes.
uint64_t librarySignatureDigest();
// The build date text the library reports (at most 20 characters).
const char *libraryBuildDate();

}  // namespace zif
