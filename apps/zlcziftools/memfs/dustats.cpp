#include "dustats.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace memfs {

const char *DiskKindName(std::uint32_t kind) {
   return kind == kTardiskKind ? "tardisk" : "ramdisk";
}

DuStats BucketOfInode(const rec::system_zelorfs_inodes_stats &inode) {
   DuStats bucket{};
   const bool onTardisk = (inode.flags() & kInodeOnTardisk) != 0;
   bucket.kind = onTardisk ? kTardiskKind : kRamdiskKind;
   const std::string_view name = onTardisk ? inode.tardisk() : inode.ramdisk();
   name.copy(bucket.name.data(), std::min(name.size(), bucket.name.size() - 1));
   bucket.size = (inode.flags() & kInodeSizeNotCounted) != 0 ? 0 : inode.size();
   bucket.count = 1;
   return bucket;
}

namespace {

bool SameDisk(const DuStats &a, const DuStats &b) {
   return a.kind == b.kind && std::strncmp(a.name.data(), b.name.data(), a.name.size()) == 0;
}

}  // namespace

bool MergeBucket(std::span<DuStats> buckets, std::size_t &n, const DuStats &child) {
   for (std::size_t i = 0; i < n; ++i) {
      if (SameDisk(buckets[i], child)) {
         buckets[i].size += child.size;
         buckets[i].count += child.count;
         return true;
      }
   }
   if (n >= buckets.size()) {
      return false;
   }
   buckets[n++] = child;
   return true;
}

std::size_t ChildPathPrefix(std::string_view path, std::string &prefix) {
   if (path.size() > kMaxPathLength) {
      return path.size();
   }
   prefix.assign(path);
   if (!path.ends_with('/')) {
      if (path.size() == kMaxPathLength) {
         return kMaxPathLength + 1;
      }
      prefix += '/';
   }
   return 0;
}

}  // namespace memfs
