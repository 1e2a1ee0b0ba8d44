// Fuzz entry for the parsers of outside input in the ACPI tools: the bytes
// are loaded as a key-value ID file, their first 64 bytes are scanned as a
// bus ID text, and the HID found is looked up in the table.
#include <sys/mman.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <string_view>

#include "acpi/idfields.h"
#include "acpi/keyvalue.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
   const std::string_view bytes(reinterpret_cast<const char *>(data), size);
   const IdFields ids = ParseIdFields(bytes.substr(0, kIdFieldSize));
   for (const IdField *field : {&ids.c, &ids.h, &ids.r, &ids.s, &ids.x}) {
      if (std::memchr(field->text, '\0', sizeof field->text) == nullptr) {
         __builtin_trap();
      }
   }

   const int fd = memfd_create("acpi-ids", 0);
   if (fd < 0) {
      return 0;
   }
   if (write(fd, data, size) == static_cast<ssize_t>(size)) {
      char path[64];
      std::snprintf(path, sizeof path, "/proc/self/fd/%d", fd);
      KeyValueTable table;
      if (LoadKeyValueTableFromFile(path, table) == 0) {
         if (table.count > table.room) {
            __builtin_trap();
         }
         const char *value = LookupKeyValue(table, ids.h.text);
         if (value != nullptr && std::strlen(value) >= kKeyValueValueSize) {
            __builtin_trap();
         }
         if (table.count > 0) {
            LookupKeyValue(table, table.entries[table.count - 1].key);
         }
      }
   }
   close(fd);
   return 0;
}
