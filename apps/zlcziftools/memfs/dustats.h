// zdu's pieces: the per-disk summary buckets (what one inode stats record
// contributes, how a child's buckets merge into its directory's) and the
// prefix of a directory's child paths.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "records.h"

namespace memfs {

enum DiskKindNumber : std::uint32_t { kTardiskKind = 0, kRamdiskKind = 1 };

// Flag bits of an inode stats record.
constexpr std::uint32_t kInodeOnTardisk = rec::system_zelorfs_inodes_stats::flags_onTardisk;
constexpr std::uint32_t kInodeSizeNotCounted = rec::system_zelorfs_inodes_stats::flags_sizeNotCounted;

// The link mark of an inode that is unlinked from the directory tree.
constexpr std::uint32_t kInodeUnlinked = rec::system_zelorfs_inodes_stats::linkMark_unlinked;

// "tardisk" or "ramdisk".
const char *DiskKindName(std::uint32_t kind);

// One disk's share of a path: inodes counted and their sizes. Names are cut
// to 31 characters, so disks that agree that far share a bucket.
struct DuStats {
   std::uint32_t count;
   std::uint32_t size;  // wraps modulo 2^32
   std::uint32_t kind;
   std::array<char, 32> name;  // always terminated
};

// Zero-filled bucket arrays; calloc leaves a large array's pages untouched
// until they are used.
struct FreeDeleter {
   void operator()(DuStats *buckets) const { std::free(buckets); }
};
using BucketArray = std::unique_ptr<DuStats[], FreeDeleter>;
inline BucketArray AllocateBuckets(std::size_t capacity) {
   return BucketArray(static_cast<DuStats *>(std::calloc(capacity == 0 ? 1 : capacity, sizeof(DuStats))));
}

// The bucket of one inode: its disk, a count of 1, and its size unless its
// flags say the size is not counted.
DuStats BucketOfInode(const rec::system_zelorfs_inodes_stats &inode);

// Adds child to the bucket of the same disk among the first n, or appends it
// when there is room. False when the child's disk is new and the n buckets
// already fill the array.
bool MergeBucket(std::span<DuStats> buckets, std::size_t &n, const DuStats &child);

// The longest path zdu builds, without its terminator.
constexpr std::size_t kMaxPathLength = 4095;

// Sets prefix to what a directory's entry names are appended to: the path
// itself when it ends with "/" (so "/" gives "/bin"), else the path and a
// "/". Returns 0, or, when the path or the prefix would pass kMaxPathLength,
// the length to report: the path's own, or 4096 when only the "/" does not fit.
std::size_t ChildPathPrefix(std::string_view path, std::string &prefix);

}  // namespace memfs
