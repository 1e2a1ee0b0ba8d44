// The pieces of amldump that name and write the table files.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// A table signature made safe as a file name: the four bytes of the kernel's
// signature with every '/', NUL and byte that is not printable ASCII replaced
// by '_', so that no signature can name a file outside the current directory.
std::string SafeSignature(std::span<const unsigned char, 4> signature);

// Counts the tables met per signature.
class SignatureCounter {
public:
   // How many tables of this signature were met before, counting this one in;
   // -1 (with errno ENOMEM) when memory runs out.
   int NextSignatureIndex(std::string_view signature);

private:
   struct Occurrence {
      std::string signature;
      std::uint32_t count;
   };
   std::vector<Occurrence> occurrences_;
};

// "SIG.aml" for the first table of a signature, "SIG-N.aml" for later ones.
std::string TableFileName(const std::string &signature, int index);

// Creates a new file for writing with mode 0600; never opens an existing
// file. Returns the descriptor or -1 with errno set.
int CreateTableFile(const char *name);

// Writes all of bytes, continuing after short writes. False with errno set
// when a write fails.
bool WriteAll(int fd, std::span<const unsigned char> bytes);
