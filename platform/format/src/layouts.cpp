// Builds the node and layout tables from the X-macro lists in the public
// headers, so that adding a record to a .def file needs no code here.
#include "zifformat/layouts.h"

#include "zellibs.h"

#include <algorithm>
#include <string>
#include <type_traits>
#include <vector>

#include <xxhash.h>

namespace zif {
namespace {

// A layout row naming a node that is not in ZIF_NODE_LIST fails to compile here.
#define ZIF_RECORD(node, length) static_assert(sizeof(ZIF_NODE_##node) > 0 && (length) > 0);
#define ZIF_REPLY(name, length)
#define ZIF_FIELD(node, name, offset, kind, width)
#define ZIF_VALUE(node, field, name, value)
#define ZIF_END(node)
#include "zellibs_layouts.def"
#undef ZIF_RECORD
#undef ZIF_REPLY
#undef ZIF_FIELD
#undef ZIF_VALUE
#undef ZIF_END

enum class RowType { Record, Reply, Field, End, Sentinel };

struct Row {
   RowType type;
   std::string_view node;
   std::string_view name;
   uint32_t offset;
   FieldKind kind;
   uint32_t width;
};

constexpr Row kRows[] = {
#define ZIF_RECORD(node, length) {RowType::Record, #node, {}, 0, FieldKind::BYTES, (length)},
#define ZIF_REPLY(name, length) {RowType::Reply, #name, {}, 0, FieldKind::BYTES, (length)},
#define ZIF_FIELD(node, name, offset, kind, width) {RowType::Field, #node, #name, (offset), FieldKind::kind, (width)},
#define ZIF_VALUE(node, field, name, value)
#define ZIF_END(node) {RowType::End, #node, {}, 0, FieldKind::BYTES, 0},
#include "zellibs_layouts.def"
#undef ZIF_RECORD
#undef ZIF_REPLY
#undef ZIF_FIELD
#undef ZIF_VALUE
#undef ZIF_END
      {RowType::Sentinel, {}, {}, 0, FieldKind::BYTES, 0},
};

// An integer value, or the text of a TEXT field's value.
template <typename T>
constexpr NamedValue namedValue(std::string_view node, std::string_view field, std::string_view name, T value) {
   if constexpr (std::is_integral_v<T>) {
      return {node, field, name, static_cast<int64_t>(value), {}};
   } else {
      return {node, field, name, 0, value};
   }
}

constexpr NamedValue kValues[] = {
#define ZIF_RECORD(node, length)
#define ZIF_REPLY(name, length)
#define ZIF_FIELD(node, name, offset, kind, width)
#define ZIF_VALUE(node, field, name, value) namedValue(#node, #field, #name, value),
#define ZIF_END(node)
#include "zellibs_layouts.def"
#undef ZIF_RECORD
#undef ZIF_REPLY
#undef ZIF_FIELD
#undef ZIF_VALUE
#undef ZIF_END
};

struct Tables {
   std::vector<FieldLayout> fields;
   std::vector<RecordLayout> records;
   std::vector<NodeInfo> nodes;
   uint64_t digest = 0;
};

const Tables &tables() {
   static const Tables built = [] {
      Tables t;
      for (size_t i = 0; i < std::size(kNodeNames); i++) {
         t.nodes.push_back({static_cast<uint16_t>(i + 1), kNodeNames[i]});
      }
      t.fields.reserve(std::size(kRows));
      std::vector<std::pair<size_t, size_t>> spans;  // first field, count
      bool inRecord = false;                         // replies are no node's records
      for (const Row &row : kRows) {
         if (row.type == RowType::Record) {
            t.records.push_back({row.node, row.width, {}});
            spans.push_back({t.fields.size(), 0});
            inRecord = true;
         } else if (row.type == RowType::Field && inRecord) {
            t.fields.push_back({row.name, row.offset, row.kind, row.width});
            spans.back().second++;
         } else if (row.type != RowType::Field) {
            inRecord = false;
         }
      }
      for (size_t i = 0; i < t.records.size(); i++) {
         t.records[i].fields = std::span<const FieldLayout>(t.fields).subspan(spans[i].first, spans[i].second);
      }

      std::string text;
      for (const NodeInfo &n : t.nodes) {
         text.append("node ").append(n.name).append("\n");
      }
      for (const RecordLayout &r : t.records) {
         text.append("record ").append(r.node).append(" ").append(std::to_string(r.length)).append("\n");
         for (const FieldLayout &f : r.fields) {
            text.append(" ").append(f.name).append(" ").append(std::to_string(f.offset)).append(" ");
            text.append(kindName(f.kind)).append(" ").append(std::to_string(f.width)).append("\n");
         }
      }
      t.digest = XXH64(text.data(), text.size(), 0);
      return t;
   }();
   return built;
}

}  // namespace

std::span<const NodeInfo> allNodes() {
   return tables().nodes;
}

bool isKnownNode(std::string_view name) {
   const auto &nodes = tables().nodes;
   return std::any_of(nodes.begin(), nodes.end(), [&](const NodeInfo &n) { return n.name == name; });
}

std::span<const RecordLayout> allLayouts() {
   return tables().records;
}

const RecordLayout *findLayout(std::string_view node) {
   for (const RecordLayout &r : tables().records) {
      if (r.node == node) {
         return &r;
      }
   }
   return nullptr;
}

const FieldLayout *findField(const RecordLayout &layout, std::string_view name) {
   for (const FieldLayout &f : layout.fields) {
      if (f.name == name) {
         return &f;
      }
   }
   return nullptr;
}

std::span<const NamedValue> allValues() {
   return kValues;
}

std::string_view kindName(FieldKind kind) {
   switch (kind) {
      case FieldKind::U8:
         return "U8";
      case FieldKind::U16:
         return "U16";
      case FieldKind::U32:
         return "U32";
      case FieldKind::U64:
         return "U64";
      case FieldKind::S8:
         return "S8";
      case FieldKind::S16:
         return "S16";
      case FieldKind::S32:
         return "S32";
      case FieldKind::S64:
         return "S64";
      case FieldKind::TEXT:
         return "TEXT";
      case FieldKind::BYTES:
         return "BYTES";
   }
   return "?";
}

bool isSigned(FieldKind kind) {
   return kind == FieldKind::S8 || kind == FieldKind::S16 || kind == FieldKind::S32 || kind == FieldKind::S64;
}

bool isInteger(FieldKind kind) {
   return kind != FieldKind::TEXT && kind != FieldKind::BYTES;
}

uint64_t librarySignatureDigest() {
   return tables().digest;
}

const char *libraryBuildDate() {
   return "2026-11-23 12:00:00";
}

}  // namespace zif

// The exported node objects: numbers follow the order of ZIF_NODE_LIST.
namespace {
enum NodeNumber : uint16_t {
   kNodeNone = 0,
#define ZIF_NODE_ENUM(n) kNode_##n,
   ZIF_NODE_LIST(ZIF_NODE_ENUM)
#undef ZIF_NODE_ENUM
};
}  // namespace

extern "C" {
#define ZIF_DEFINE_NODE_OBJECT(n) const ZIF_NodeObject ZIF_NODE_##n = {kNode_##n, 0, 0, #n};
ZIF_NODE_LIST(ZIF_DEFINE_NODE_OBJECT)
#undef ZIF_DEFINE_NODE_OBJECT
}
