// Typed views of the kernel's fixed-size records and replies, generated from
// the record layout table (zellibs_layouts.def). Each type holds its bytes and
// knows its length (and its node, for records); each field has a reader, a
// setter and its place, each named value a constant:
//
//    rec::world_info info;                        // zero bytes
//    info.set_typeFlags(rec::world_info::typeFlags_user | rec::world_info::typeFlags_clone);
//    info.typeFlags();                            // the field, read little-endian at its offset
//    rec::world_info::typeFlags_field.offset;     // 28
//
// Readers of a TEXT field stop at its NUL or its width; setters cut a text to
// fit with its NUL and clear the rest of the field.
#pragma once

#include <algorithm>
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

// Where a field lies in its record.
struct Field {
   std::size_t offset;
   std::size_t width;
};

template <typename T, std::size_t N>
T LoadLE(const std::array<unsigned char, N> &bytes, std::size_t offset) {
   static_assert(sizeof(T) <= N);
   T value;
   std::memcpy(&value, bytes.data() + offset, sizeof value);
   return value;
}

template <typename T, std::size_t N>
void StoreLE(std::array<unsigned char, N> &bytes, std::size_t offset, T value) {
   static_assert(sizeof(T) <= N);
   std::memcpy(bytes.data() + offset, &value, sizeof value);
}

// A NUL-terminated text within its field; a field without NUL ends at its width.
template <std::size_t N>
std::string_view LoadText(const std::array<unsigned char, N> &bytes, std::size_t offset, std::size_t width) {
   const char *begin = reinterpret_cast<const char *>(bytes.data() + offset);
   return std::string_view(begin, strnlen(begin, width));
}

// Up to the text's first NUL, cut to leave room for the terminator.
template <std::size_t N>
void StoreText(std::array<unsigned char, N> &bytes, std::size_t offset, std::size_t width, std::string_view text) {
   text = text.substr(0, std::min({text.find('\0'), text.size(), width - 1}));
   std::memset(bytes.data() + offset, 0, width);
   std::memcpy(bytes.data() + offset, text.data(), text.size());
}

template <std::size_t N>
void StoreBytes(std::array<unsigned char, N> &bytes, std::size_t offset, std::size_t width,
                std::span<const unsigned char> from) {
   std::memset(bytes.data() + offset, 0, width);
   std::memcpy(bytes.data() + offset, from.data(), std::min(from.size(), width));
}

#define ZIF_ACCESSORS_INTEGER(type, name, offset, width)                           \
   static_assert(sizeof(type) == (width), "the width of " #name " is its kind's"); \
   using name##_type = type;                                                       \
   type name() const {                                                             \
      return LoadLE<type>(bytes, offset);                                          \
   }                                                                               \
   auto &set_##name(type value) {                                                  \
      StoreLE<type>(bytes, offset, value);                                         \
      return *this;                                                                \
   }
#define ZIF_ACCESSORS_U8(name, offset, width) ZIF_ACCESSORS_INTEGER(std::uint8_t, name, offset, width)
#define ZIF_ACCESSORS_U16(name, offset, width) ZIF_ACCESSORS_INTEGER(std::uint16_t, name, offset, width)
#define ZIF_ACCESSORS_U32(name, offset, width) ZIF_ACCESSORS_INTEGER(std::uint32_t, name, offset, width)
#define ZIF_ACCESSORS_U64(name, offset, width) ZIF_ACCESSORS_INTEGER(std::uint64_t, name, offset, width)
#define ZIF_ACCESSORS_S8(name, offset, width) ZIF_ACCESSORS_INTEGER(std::int8_t, name, offset, width)
#define ZIF_ACCESSORS_S16(name, offset, width) ZIF_ACCESSORS_INTEGER(std::int16_t, name, offset, width)
#define ZIF_ACCESSORS_S32(name, offset, width) ZIF_ACCESSORS_INTEGER(std::int32_t, name, offset, width)
#define ZIF_ACCESSORS_S64(name, offset, width) ZIF_ACCESSORS_INTEGER(std::int64_t, name, offset, width)
#define ZIF_ACCESSORS_TEXT(name, offset, width) \
   using name##_type = std::string_view;        \
   std::string_view name() const {              \
      return LoadText(bytes, offset, width);    \
   }                                            \
   auto &set_##name(std::string_view text) {    \
      StoreText(bytes, offset, width, text);    \
      return *this;                             \
   }
#define ZIF_ACCESSORS_BYTES(name, offset, width)                                    \
   std::span<const unsigned char, width> name() const {                             \
      return std::span<const unsigned char, width>(bytes.data() + (offset), width); \
   }                                                                                \
   auto &set_##name(std::span<const unsigned char> from) {                          \
      StoreBytes(bytes, offset, width, from);                                       \
      return *this;                                                                 \
   }

#define ZIF_RECORD(node, length)                                      \
   struct node {                                                      \
      static constexpr std::size_t kSize = length;                    \
      static ZIF_NodeNumber Node() { return ZIF_NODE_##node.number; } \
      std::array<unsigned char, length> bytes{};
#define ZIF_REPLY(name, length)                    \
   struct name {                                   \
      static constexpr std::size_t kSize = length; \
      std::array<unsigned char, length> bytes{};
#define ZIF_FIELD(node, name, offset, kind, width)                                          \
   static_assert((offset) + (width) <= kSize && (width) > 0, #name " lies outside " #node); \
   ZIF_ACCESSORS_##kind(name, offset, width) static constexpr Field name##_field{offset, width};
// Braces: a value that does not fit its field's type does not compile.
#define ZIF_VALUE(node, field, name, value) static constexpr field##_type field##_##name{value};
#define ZIF_END(node) \
   }                  \
   ;

#include "zellibs_layouts.def"

#undef ZIF_RECORD
#undef ZIF_REPLY
#undef ZIF_FIELD
#undef ZIF_VALUE
#undef ZIF_END

// The device-info reply: one devinfo_function per function position of a slot.
struct DevInfoReply {
   std::array<devinfo_function, ZLC_DEVINFO_REPLY_SIZE / devinfo_function::kSize> functions{};

   // The whole reply, as the library hands it out.
   std::span<unsigned char, ZLC_DEVINFO_REPLY_SIZE> bytes() {
      return std::span<unsigned char, ZLC_DEVINFO_REPLY_SIZE>(reinterpret_cast<unsigned char *>(this),
                                                              ZLC_DEVINFO_REPLY_SIZE);
   }
};
static_assert(sizeof(DevInfoReply) == ZLC_DEVINFO_REPLY_SIZE, "the reply is its function records end to end");

}  // namespace rec
