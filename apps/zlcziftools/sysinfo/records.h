// Typed views of the kernel's fixed-size records, generated from the library's
// record layout table. Each record type holds its bytes, knows its node and
// length, and reads each field little-endian at its offset:
//
//    rec::system_version version;
//    if (sysinfo::GetRecord(version, nullptr) == 0) puts(version.product().data());
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string_view>

#include "zellibs.h"

namespace rec {

static_assert(std::endian::native == std::endian::little, "records are little-endian");

template <typename T, std::size_t N>
T LoadLE(const std::array<unsigned char, N> &bytes, std::size_t offset) {
   static_assert(sizeof(T) <= N);
   T value;
   std::memcpy(&value, bytes.data() + offset, sizeof value);
   return value;
}

// A NUL-terminated text within its field; a field without NUL ends at its width.
template <std::size_t N>
std::string_view LoadText(const std::array<unsigned char, N> &bytes, std::size_t offset, std::size_t width) {
   const char *begin = reinterpret_cast<const char *>(bytes.data() + offset);
   return std::string_view(begin, strnlen(begin, width));
}

#define ZIF_ACCESSOR_U8(name, offset, width)      \
   std::uint8_t name() const {                    \
      return LoadLE<std::uint8_t>(bytes, offset); \
   }
#define ZIF_ACCESSOR_U16(name, offset, width)      \
   std::uint16_t name() const {                    \
      return LoadLE<std::uint16_t>(bytes, offset); \
   }
#define ZIF_ACCESSOR_U32(name, offset, width)      \
   std::uint32_t name() const {                    \
      return LoadLE<std::uint32_t>(bytes, offset); \
   }
#define ZIF_ACCESSOR_U64(name, offset, width)      \
   std::uint64_t name() const {                    \
      return LoadLE<std::uint64_t>(bytes, offset); \
   }
#define ZIF_ACCESSOR_S8(name, offset, width)     \
   std::int8_t name() const {                    \
      return LoadLE<std::int8_t>(bytes, offset); \
   }
#define ZIF_ACCESSOR_S16(name, offset, width)     \
   std::int16_t name() const {                    \
      return LoadLE<std::int16_t>(bytes, offset); \
   }
#define ZIF_ACCESSOR_S32(name, offset, width)     \
   std::int32_t name() const {                    \
      return LoadLE<std::int32_t>(bytes, offset); \
   }
#define ZIF_ACCESSOR_S64(name, offset, width)     \
   std::int64_t name() const {                    \
      return LoadLE<std::int64_t>(bytes, offset); \
   }
#define ZIF_ACCESSOR_TEXT(name, offset, width) \
   std::string_view name() const {             \
      return LoadText(bytes, offset, width);   \
   }
#define ZIF_ACCESSOR_BYTES(name, offset, width)                                     \
   std::span<const unsigned char, width> name() const {                             \
      return std::span<const unsigned char, width>(bytes.data() + (offset), width); \
   }

#define ZIF_RECORD(node, length)                                      \
   struct node {                                                      \
      static constexpr std::size_t kSize = length;                    \
      static ZIF_NodeNumber Node() { return ZIF_NODE_##node.number; } \
      std::array<unsigned char, length> bytes{};
#define ZIF_FIELD(node, name, offset, kind, width) ZIF_ACCESSOR_##kind(name, offset, width)
#define ZIF_END(node) \
   }                  \
   ;

#include "zellibs_layouts.def"

#undef ZIF_RECORD
#undef ZIF_FIELD
#undef ZIF_END

}  // namespace rec

namespace sysinfo {

// ZIF_Get of a whole record of the record's own length.
template <typename Record>
ZLC_ReturnStatus GetRecord(Record &record, ZIF_ParamList *params) {
   return ZIF_Get(Record::Node(), params, record.bytes.data(), static_cast<std::uint32_t>(Record::kSize));
}

}  // namespace sysinfo
