// Naming, creating and writing the table files of amldump.
#include "amlfiles.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <new>

std::string SafeSignature(std::span<const unsigned char, 4> signature) {
   std::string safe;
   for (unsigned char byte : signature) {
      const bool printable = byte >= 0x20 && byte < 0x7F;
      safe.push_back(printable && byte != '/' ? static_cast<char>(byte) : '_');
   }
   return safe;
}

int SignatureCounter::NextSignatureIndex(std::string_view signature) {
   for (Occurrence &occurrence : occurrences_) {
      if (occurrence.signature == signature) {
         return static_cast<int>(occurrence.count++);
      }
   }
   try {
      occurrences_.push_back(Occurrence{std::string(signature), 1});
   } catch (const std::bad_alloc &) {
      errno = ENOMEM;
      return -1;
   }
   return 0;
}

std::string TableFileName(const std::string &signature, int index) {
   char name[32];
   if (index == 0) {
      std::snprintf(name, sizeof name, "%s.aml", signature.c_str());
   } else {
      std::snprintf(name, sizeof name, "%s-%d.aml", signature.c_str(), index);
   }
   return name;
}

int CreateTableFile(const char *name) {
   return open(name, O_WRONLY | O_CREAT | O_EXCL | O_TRUNC | O_CLOEXEC, 0600);
}

bool WriteAll(int fd, std::span<const unsigned char> bytes) {
   while (!bytes.empty()) {
      const ssize_t written = write(fd, bytes.data(), bytes.size());
      if (written < 0) {
         if (errno == EINTR) {
            continue;
         }
         return false;
      }
      bytes = bytes.subspan(static_cast<std::size_t>(written));
   }
   return true;
}
