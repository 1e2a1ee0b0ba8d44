// The ID fields of an ACPI device's bus ID text: a sequence of fields, each a
// code letter ('c', 'h', 'r', 's' or 'x'), a length in decimal digits and
// exactly that many characters. The 'h' field holds the hardware ID (HID).
#pragma once

#include <cstddef>
#include <string_view>

inline constexpr std::size_t kIdFieldSize = 64;

// One field's characters, terminated; empty when the text has no such field.
struct IdField {
   char text[kIdFieldSize] = {};
};

// The five fields of one bus ID text, all empty at first.
struct IdFields {
   IdField c, h, r, s, x;
};

// Reads one field from rest, the text right after its code letter up to the
// end of the bus ID text. Reads the decimal length; when it is at least 1 and
// that many characters follow within rest, copies them into destination.
// Returns how many bytes of rest were taken: the digits, plus the characters
// when they were copied.
std::size_t ParseIdField(std::string_view rest, IdField &destination);

// Scans a bus ID text (at most 64 bytes, ending at its terminator) for its
// fields. Bytes that are not code letters are stepped over.
IdFields ParseIdFields(std::string_view busId);
