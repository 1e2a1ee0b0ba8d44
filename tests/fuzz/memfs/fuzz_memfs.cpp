// Fuzz entry for what the in-memory file system tools take from outside:
// inode stats records of any content turned into per-disk buckets and merged
// into arrays of any capacity (names must stay terminated, counts must add
// up, the array must never overflow), their sizes as short texts, and rpcfg's
// numeric option arguments.
//
// Input: one byte of capacity (0 to 7), then records of 548 bytes each (the
// last one zero-filled); the same bytes, cut at the first NUL, are also the
// option argument.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "memfs/dustats.h"
#include "memfs/formatsize.h"
#include "memfs/rpcfgargs.h"
#include "records.h"

namespace {

void CheckBucket(const memfs::DuStats &bucket) {
   if (std::memchr(bucket.name.data(), '\0', bucket.name.size()) == nullptr || bucket.kind > 1) {
      std::abort();
   }
}

void FuzzBuckets(const std::uint8_t *data, std::size_t size) {
   if (size == 0) {
      return;
   }
   const std::size_t capacity = data[0] % 8;
   std::vector<memfs::DuStats> buckets(capacity);
   std::size_t used = 0;
   std::uint32_t merged = 0;
   for (std::size_t offset = 1; offset < size; offset += rec::system_zelorfs_inodes_stats::kSize) {
      rec::system_zelorfs_inodes_stats inode;
      std::memcpy(inode.bytes.data(), data + offset, std::min(inode.bytes.size(), size - offset));
      const memfs::DuStats bucket = memfs::BucketOfInode(inode);
      CheckBucket(bucket);
      if (memfs::MergeBucket(buckets, used, bucket)) {
         ++merged;
      }
      char text[memfs::kSizeTextLength];
      memfs::FormatSize(bucket.size, text, sizeof text);
      if (std::strlen(text) >= sizeof text) {
         std::abort();
      }
   }
   std::uint32_t counted = 0;
   for (std::size_t i = 0; i < used; ++i) {
      CheckBucket(buckets[i]);
      counted += buckets[i].count;
   }
   if (used > capacity || counted != merged) {
      std::abort();
   }
}

void FuzzArgument(const std::uint8_t *data, std::size_t size) {
   const std::string argument(reinterpret_cast<const char *>(data), size);
   long number = 0;
   if (memfs::ParseWholeNumber(argument.c_str(), number)) {
      const std::int64_t micros = memfs::SecondsToMicros(number);
      if ((number > 0 && micros <= 0) || (number < 0 && micros >= 0)) {
         std::abort();
      }
   }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
   FuzzBuckets(data, size);
   FuzzArgument(data, size);
   return 0;
}
