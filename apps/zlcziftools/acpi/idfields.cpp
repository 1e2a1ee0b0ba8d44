// Scanning of the ID fields in an ACPI device's bus ID text.
#include "idfields.h"

#include <algorithm>
#include <cstdint>
#include <cstring>

namespace {

bool IsDigit(char c) {
   return c >= '0' && c <= '9';
}

// The destination for a code letter, or null for any other byte.
IdField *FieldFor(char code, IdFields &fields) {
   switch (code) {
      case 'c':
         return &fields.c;
      case 'h':
         return &fields.h;
      case 'r':
         return &fields.r;
      case 's':
         return &fields.s;
      case 'x':
         return &fields.x;
      default:
         return nullptr;
   }
}

}  // namespace

std::size_t ParseIdField(std::string_view rest, IdField &destination) {
   // The length saturates well above any length that could fit, so that a
   // long run of digits cannot overflow it.
   constexpr std::uint32_t kLengthCap = 1u << 20;
   std::size_t digits = 0;
   std::uint32_t length = 0;
   while (digits < rest.size() && IsDigit(rest[digits])) {
      length = length * 10 + static_cast<std::uint32_t>(rest[digits] - '0');
      if (length > kLengthCap) {
         length = kLengthCap;
      }
      ++digits;
   }
   const std::size_t available = rest.size() - digits;
   if (length < 1 || length > available || length >= kIdFieldSize) {
      return digits;
   }
   std::memcpy(destination.text, rest.data() + digits, length);
   destination.text[length] = '\0';
   return digits + length;
}

IdFields ParseIdFields(std::string_view busId) {
   busId = busId.substr(0, std::min(busId.size(), kIdFieldSize));
   busId = busId.substr(0, busId.find('\0'));
   IdFields fields;
   std::size_t position = 0;
   while (position < busId.size()) {
      IdField *field = FieldFor(busId[position], fields);
      ++position;
      if (field != nullptr) {
         position += ParseIdField(busId.substr(position), *field);
      }
   }
   return fields;
}
