// The key-value ID table loader and its lookup.
#include "keyvalue.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace {

constexpr char kLoader[] = "LoadKeyValueTableFromFile";
constexpr std::size_t kKeyLength = kKeyValueKeySize - 1;

struct FileCloser {
   void operator()(std::FILE *file) const { std::fclose(file); }
};
using FilePtr = std::unique_ptr<std::FILE, FileCloser>;
using TrimmedText = std::unique_ptr<char, FreeDeleter>;

// Copies text into a field of size bytes, cut to size - 1 and terminated.
template <std::size_t N>
void CopyField(char (&field)[N], std::string_view text) {
   const std::size_t length = std::min(text.size(), N - 1);
   std::memcpy(field, text.data(), length);
   std::memset(field + length, 0, N - length);
}

bool Grow(KeyValueTable &table) {
   const std::uint32_t room = table.room * 2;
   void *grown = std::realloc(table.entries.get(), sizeof(KeyValueEntry) * room);
   if (grown == nullptr) {
      return false;
   }
   (void)table.entries.release();
   table.entries.reset(static_cast<KeyValueEntry *>(grown));
   table.room = room;
   return true;
}

}  // namespace

ZLC_ReturnStatus LoadKeyValueTableFromFile(const char *path, KeyValueTable &table) {
   table = KeyValueTable{};
   FilePtr file(std::fopen(path, "r"));
   if (!file) {
      std::fprintf(stderr, "%s: error opening file: %s\n", kLoader, path);
      return ZLC_FAILURE;
   }

   KeyValueTable loading;
   loading.entries.reset(static_cast<KeyValueEntry *>(std::malloc(sizeof(KeyValueEntry) * kKeyValueInitialRoom)));
   if (!loading.entries) {
      std::fprintf(stderr, "%s: unable to allocate key-value table\n", kLoader);
      return ZLC_NO_MEMORY;
   }
   loading.room = kKeyValueInitialRoom;

   char piece[kKeyValueLineSize];
   while (std::fgets(piece, sizeof piece, file.get()) != nullptr) {
      TrimmedText trimmed(StrUtil_TrimWhitespace(piece));
      if (!trimmed) {
         std::fprintf(stderr, "%s: unable to allocate key-value table\n", kLoader);
         return ZLC_NO_MEMORY;
      }
      const std::string_view line(trimmed.get());
      if (line.empty() || line.front() == '#') {
         continue;
      }
      const std::size_t tab = line.find('\t');
      if (tab == std::string_view::npos) {
         continue;
      }
      if (loading.count == loading.room && !Grow(loading)) {
         std::fprintf(stderr, "%s: unable to reallocate key-value table\n", kLoader);
         return ZLC_NO_MEMORY;
      }
      KeyValueEntry &entry = loading.entries[loading.count++];
      CopyField(entry.key, line.substr(0, tab));
      CopyField(entry.value, line.substr(tab + 1));
   }

   table = std::move(loading);
   return 0;
}

const char *LookupKeyValue(const KeyValueTable &table, std::string_view key) {
   const std::string_view wanted = key.substr(0, std::min(key.size(), kKeyLength));
   for (std::uint32_t i = 0; i < table.count; ++i) {
      const KeyValueEntry &entry = table.entries[i];
      if (std::string_view(entry.key) == wanted) {
         return entry.value;
      }
   }
   return nullptr;
}
