// Key-value ID tables: the ACPI ID files (HID to description, HID to class)
// loaded into arrays of fixed-size entries.
//
// A file is a sequence of lines "KEY<tab>VALUE". Lines are read in pieces of
// at most 127 characters, each piece trimmed of white space and judged by
// itself; pieces starting with '#', empty pieces and pieces without a tab make
// no entry. Entries keep file order; a lookup returns the first match.
//
// A key is kept as at most 31 characters and a terminator, and a lookup
// compares at most 31 characters, so a longer key matches on its first 31.
// A line with several tabs makes one entry: the key is the text before the
// first tab and the value the rest of the line, later tabs included.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string_view>

#include "zellibs.h"

inline constexpr std::size_t kKeyValueKeySize = 32;
inline constexpr std::size_t kKeyValueValueSize = 128;
// The line buffer: a longer line is read as several pieces of this size less one.
inline constexpr int kKeyValueLineSize = 128;
inline constexpr std::uint32_t kKeyValueInitialRoom = 32;

struct KeyValueEntry {
   char key[kKeyValueKeySize];
   char value[kKeyValueValueSize];
};

struct FreeDeleter {
   void operator()(void *memory) const { std::free(memory); }
};

// The entries of one ID file. The array grows by doubling (32, 64, ...).
struct KeyValueTable {
   std::unique_ptr<KeyValueEntry[], FreeDeleter> entries;
   std::uint32_t count = 0;
   std::uint32_t room = 0;
};

// Loads the file at path. Returns 0, 0x0BAD0001 when the file cannot be
// opened, 0x0BAD0014 when memory runs out; on failure the table is left empty
// and a message naming LoadKeyValueTableFromFile is on standard error.
ZLC_ReturnStatus LoadKeyValueTableFromFile(const char *path, KeyValueTable &table);

// The value of the first entry whose key equals key (case-sensitive, at most
// 31 characters compared), or null.
const char *LookupKeyValue(const KeyValueTable &table, std::string_view key);
