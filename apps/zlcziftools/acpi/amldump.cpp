// amldump: writes every ACPI table the kernel holds into a file of its own in
// the current directory, "SIG.aml" for the first table of a signature and
// "SIG-N.aml" for the later ones, one line "Writing file NAME" per file. It
// takes no options and ignores its arguments.
//
// A file is never overwritten: an existing name ends the command with the
// perror line and status 1. A table whose buffer list cannot be fetched is
// skipped, and the status is then 1 although the other tables are written.
// The signature is kernel data: before it names a file, '/', NUL and other
// bytes that are not printable ASCII become '_', and tables are numbered by
// that safe name.
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <span>
#include <string>

#include "amlfiles.h"
#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kPerrorPrefix[] = "amldump: ";
constexpr int kTableListCapacity = 2;

using BufferRecord = rec::hardware_acpi_tables_buffers;

// One record area that every buffer read overwrites; at 128 KiB it is too
// large for the stack.
BufferRecord gBuffer;

// The kernel fills the signature field but for its last byte, the terminator.
std::string SignatureOf(BufferRecord &buffer) {
   constexpr rec::Field kField = BufferRecord::signature_field;
   buffer.bytes[kField.offset + kField.width - 1] = 0;
   return SafeSignature(
         std::span<const unsigned char, kField.width - 1>(buffer.bytes.data() + kField.offset, kField.width - 1));
}

struct FileDescriptor {
   int fd = -1;
   FileDescriptor() = default;
   FileDescriptor(const FileDescriptor &) = delete;
   FileDescriptor &operator=(const FileDescriptor &) = delete;
   ~FileDescriptor() { Close(); }
   void Close() {
      if (fd >= 0) {
         close(fd);
         fd = -1;
      }
   }
};

class TableDumper {
public:
   explicit TableDumper(ZIF_ParamList *params) : params_(params) {}

   // Writes the table whose key the parameter list holds last, from its
   // bufferCount buffers. False when the command must stop.
   bool Dump(int bufferCount) {
      FileDescriptor file;
      std::string signature;
      for (int index = 0; index < bufferCount; ++index) {
         if (ZIF_ParamListAddInt(params_, index) != 0) {
            return false;
         }
         if (sysinfo::GetRecord(gBuffer, params_) != 0) {
            return false;
         }
         if (index == 0) {
            signature = SignatureOf(gBuffer);
         }
         const std::uint32_t length = gBuffer.length();
         if (length > gBuffer.data().size()) {
            std::fprintf(stderr, "amldump: table %s buffer %d claims %u bytes\n", signature.c_str(), index, length);
            return false;
         }
         if (index == 0 && !Create(signature, file)) {
            return false;
         }
         if (!WriteAll(file.fd, gBuffer.data().first(length))) {
            std::perror(kPerrorPrefix);
            return false;
         }
         ZIF_ParamListRemoveLastParam(params_);
      }
      return true;
   }

private:
   bool Create(const std::string &signature, FileDescriptor &file) {
      const int index = counter_.NextSignatureIndex(signature);
      if (index < 0) {
         std::perror(kPerrorPrefix);
         return false;
      }
      const std::string name = TableFileName(signature, index);
      std::printf("Writing file %s\n", name.c_str());
      std::fflush(stdout);
      file.fd = CreateTableFile(name.c_str());
      if (file.fd < 0) {
         std::perror(kPerrorPrefix);
         return false;
      }
      return true;
   }

   ZIF_ParamList *params_;
   SignatureCounter counter_;
};

}  // namespace

int AmldumpMain(int, char **) {
   sysinfo::InstanceList tables;
   if (tables.Fetch(sysinfo::Node(ZIF_NODE_hardware_acpi_tables), nullptr) != 0) {
      return 1;
   }
   const int tableCount = tables.Count();
   if (tableCount == 0) {
      return 0;
   }
   sysinfo::ParamListPtr params = sysinfo::MakeQueryList(kTableListCapacity);
   if (!params) {
      return 1;
   }

   TableDumper dumper(params.get());
   int result = 0;
   for (int table = 0; table < tableCount; ++table) {
      std::int32_t key = 0;
      if (ZIF_ParamListGetInt32(tables.Get(), table, &key) != 0 || ZIF_ParamListAddInt(params.get(), key) != 0) {
         return 1;
      }
      sysinfo::InstanceList buffers;
      if (buffers.Fetch(sysinfo::Node(ZIF_NODE_hardware_acpi_tables_buffers), params.get()) != 0) {
         result = 1;
      } else if (!dumper.Dump(buffers.Count())) {
         return 1;
      }
      ZIF_ParamListRemoveLastParam(params.get());
   }
   return result;
}
