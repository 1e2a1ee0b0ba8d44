// zdu: how much of a path of the in-memory root file system lies on which
// tardisk and ramdisk. Walks the live tree below the path with lstat, reads
// each inode's stats record, sums inode counts and sizes per disk, and prints
// one block per path within the depth limit; with -u it lists the inodes that
// are unlinked but still hold space instead.
//
// The walk always goes to the bottom; the depth limit only decides which
// blocks are printed, after everything below them, so the operand's block
// comes last. Paths on devices that hold no part of the in-memory file
// system (file systems mounted below the path) and symbolic links are never
// entered; the library says which devices those are and how their inodes are
// keyed (one root device on a host, every ram disk's own device in a capture
// of a Linux host). Empty files count nothing unless -i is given. The
// command needs the live file system and refuses a snapshot.
// Only one bucket array per level of the tree is alive at a time, and each
// level's path lives on the heap, so a deep tree cannot exhaust the stack.
#include <dirent.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <span>
#include <string>

#include "dustats.h"
#include "formatsize.h"
#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "Gather stats about zelorfs\n"
      "zelorfsdu [filepath]\n"
      "   -h       multiple instead of bytes\n"
      "   -d depth reports for each element up to that depth (default 1)\n"
      "   -a       equivalent to unlimited depth\n"
      "   -s       equivalent to zero depth\n"
      "   -u       display stats for unlinked files\n";

constexpr char kShortOptions[] = "ad:hsiu";

constexpr std::uint32_t kUnlimitedDepth = 0x100000;

struct ZduOptions {
   std::uint32_t depthLimit = 1;
   bool human = false;
   bool includeEmpty = false;
   bool unlinked = false;
};

// What every step of one walk shares.
struct DuWalk {
   ZduOptions options;
   std::size_t capacity = 0;  // buckets per array: one per disk listed
};

struct DirCloser {
   void operator()(DIR *dir) const { closedir(dir); }
};
using DirPtr = std::unique_ptr<DIR, DirCloser>;

void PrintSize(std::uint32_t bytes, bool human) {
   if (human) {
      char text[memfs::kSizeTextLength];
      memfs::FormatSize(bytes, text, sizeof text);
      std::printf("%5s", text);
   } else {
      std::printf("%12d", static_cast<int>(bytes));
   }
}

// One block: the heading, then a line per disk; a directory's lines carry
// their inode counts.
void PrintDuStats(const char *path, std::span<const memfs::DuStats> buckets, bool withInodes, bool human) {
   std::printf("For '%s':\n", path);
   for (const memfs::DuStats &bucket : buckets) {
      char label[48];
      std::snprintf(label, sizeof label, "%s %s", memfs::DiskKindName(bucket.kind), bucket.name.data());
      std::printf("%38s: ", label);
      PrintSize(bucket.size, human);
      if (withInodes) {
         std::printf("\t\t(%5d inodes)", static_cast<int>(bucket.count));
      }
      std::putchar('\n');
   }
}

ZLC_ReturnStatus ReadInodeStats(std::uint64_t inodeKey, rec::system_zelorfs_inodes_stats &inode) {
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   if (!query) {
      return ZLC_NO_MEMORY;
   }
   ZIF_ParamListAddInt(query.get(), static_cast<std::int64_t>(inodeKey));
   return sysinfo::GetRecord(inode, query.get());
}

std::size_t GatherDuStats(const DuWalk &walk, const char *path, std::uint32_t depth, memfs::DuStats *buckets);

// The entries of a directory whose own bucket is buckets[0]: gathers each
// entry into a fresh array, merges it, and prints the directory's block.
std::size_t GatherDirectory(const DuWalk &walk, const char *path, std::uint32_t depth, memfs::DuStats *buckets) {
   DirPtr dir(opendir(path));
   if (!dir) {
      return 0;
   }
   std::string childPath;
   if (const std::size_t tooLong = memfs::ChildPathPrefix(path, childPath); tooLong != 0) {
      std::fprintf(stderr, "path too long for '%s' (%d)\n", path, static_cast<int>(tooLong));
      return 0;
   }
   const std::size_t prefixLength = childPath.size();

   const std::span<memfs::DuStats> mine(buckets, walk.capacity);
   std::size_t used = 1;
   while (const dirent *entry = readdir(dir.get())) {
      const std::size_t total = prefixLength + std::strlen(entry->d_name);
      if (total + 1 > memfs::kMaxPathLength) {
         std::fprintf(stderr, "path too long for '%s' '%s' (%d)\n", path, entry->d_name, static_cast<int>(total));
         continue;
      }
      if (std::strcmp(entry->d_name, ".") == 0 || std::strcmp(entry->d_name, "..") == 0) {
         continue;
      }
      childPath.resize(prefixLength);
      childPath += entry->d_name;
      memfs::BucketArray child = memfs::AllocateBuckets(walk.capacity);
      if (!child) {
         std::fputs("unable to allocate memory for stats", stderr);
         continue;
      }
      const std::size_t childUsed = GatherDuStats(walk, childPath.c_str(), depth + 1, child.get());
      for (std::size_t i = 0; i < childUsed; ++i) {
         if (!memfs::MergeBucket(mine, used, child[i])) {
            std::fputs("Not enough dustats buckets\n", stderr);
         }
      }
   }
   dir.reset();
   if (depth <= walk.options.depthLimit) {
      PrintDuStats(path, mine.first(used), true, walk.options.human);
   }
   return used;
}

// Fills buckets with the summary of path and everything below it, printing
// the blocks within the depth limit on the way; returns the buckets in use,
// 0 when the path counts nothing.
std::size_t GatherDuStats(const DuWalk &walk, const char *path, std::uint32_t depth, memfs::DuStats *buckets) {
   struct stat status;
   std::uint64_t inodeKey = 0;
   if (lstat(path, &status) != 0 || !ZlcSim_InodeKey(status.st_dev, status.st_ino, &inodeKey)) {
      return 0;
   }
   rec::system_zelorfs_inodes_stats inode;
   const ZLC_ReturnStatus readStatus = ReadInodeStats(inodeKey, inode);
   if (readStatus != 0) {
      std::fprintf(stderr, "ZIF_Get error for '%s' (%s)\n", path, ZLC_ReturnStatusToString(readStatus));
      return 0;
   }
   if (walk.capacity == 0) {
      std::fprintf(stderr, "No bucket space for '%s'\n", path);
      return 0;
   }
   buckets[0] = memfs::BucketOfInode(inode);
   if (S_ISDIR(status.st_mode)) {
      return GatherDirectory(walk, path, depth, buckets);
   }
   // Emptiness is the record's own size, before a not-counted flag zeroes it.
   if (inode.size() == 0 && !walk.options.includeEmpty) {
      return 0;
   }
   if (depth <= walk.options.depthLimit) {
      PrintDuStats(path, std::span<const memfs::DuStats>(buckets, 1), false, walk.options.human);
   }
   return 1;
}

int CountInstances(const ZIF_NodeObject &node) {
   sysinfo::InstanceList instances;
   return instances.Fetch(sysinfo::Node(node), nullptr) == 0 ? instances.Count() : 0;
}

// The unlinked-files report. Returns the status of the last operation of the
// loop: a failed read of the last inode, or a failure that stopped the loop,
// makes it nonzero; earlier failed reads only leave their inodes out.
ZLC_ReturnStatus PrintUnlinkedFiles(bool human) {
   sysinfo::InstanceList inodes;
   ZLC_ReturnStatus status = inodes.Fetch(sysinfo::Node(ZIF_NODE_system_zelorfs_inodes), nullptr);
   if (status != 0) {
      return status;
   }
   const int count = inodes.Count();
   if (count <= 0) {
      std::puts("No unlinked files.");
      return 0;
   }
   std::uint64_t unlinkedCount = 0;
   std::uint64_t unlinkedTotal = 0;
   for (int i = 0; i < count; ++i) {
      std::uint64_t inodeNumber = 0;
      status = ZIF_ParamListGetUInt64(inodes.Get(), i, &inodeNumber);
      if (status != 0) {
         break;
      }
      sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
      if (!query) {
         status = ZLC_NO_MEMORY;
         break;
      }
      status = ZIF_ParamListAddInt(query.get(), static_cast<std::int64_t>(inodeNumber));
      if (status != 0) {
         break;
      }
      rec::system_zelorfs_inodes_stats inode;
      status = sysinfo::GetRecord(inode, query.get());
      if (status != 0 || inode.linkMark() != memfs::kInodeUnlinked) {
         continue;
      }
      if (unlinkedCount++ == 0) {
         std::puts("Unlinked files:");
      }
      unlinkedTotal += inode.size();
      const std::string_view name = inode.fileName();
      std::printf("%38.*s: ", static_cast<int>(name.size()), name.data());
      PrintSize(inode.size(), human);
      std::putchar('\n');
   }
   if (unlinkedCount != 0) {
      std::printf("Total unlinked files: %zd\n", static_cast<ssize_t>(unlinkedCount));
      std::fputs("Size of unlinked files: ", stdout);
      if (human) {
         char text[memfs::kSizeTextLength];
         memfs::FormatSize(static_cast<std::uint32_t>(unlinkedTotal), text, sizeof text);
         std::printf(" %s\n", text);
      } else {
         std::printf(" %zd\n", static_cast<ssize_t>(unlinkedTotal));
      }
   } else {
      std::puts("No unlinked files.");
   }
   return status;
}

}  // namespace

int ZduMain(int argc, char **argv) {
   if (gZifCacheMode) {
      std::fputs("Using ZIF cache is unsupported\n", stderr);
      return 1;
   }
   DuWalk walk;
   int option;
   while ((option = getopt(argc, argv, kShortOptions)) != -1) {
      switch (option) {
         case 'a':
            walk.options.depthLimit = kUnlimitedDepth;
            break;
         case 's':
            walk.options.depthLimit = 0;
            break;
         case 'd':
            // Text that is no number gives 0; a negative depth is no limit.
            walk.options.depthLimit = static_cast<std::uint32_t>(std::strtol(optarg, nullptr, 10));
            break;
         case 'h':
            walk.options.human = true;
            break;
         case 'i':
            walk.options.includeEmpty = true;
            break;
         case 'u':
            walk.options.unlinked = true;
            break;
         default:
            std::fputs(kUsage, stderr);
            return 1;
      }
   }
   if (argc - optind >= 2) {
      std::fputs(kUsage, stderr);
      return 1;
   }
   const char *path = optind < argc ? argv[optind] : ".";

   if (walk.options.unlinked) {
      return PrintUnlinkedFiles(walk.options.human) != 0 ? 1 : 0;
   }

   walk.capacity = static_cast<std::size_t>(CountInstances(ZIF_NODE_system_zelorfs_tardisks)) +
                   static_cast<std::size_t>(CountInstances(ZIF_NODE_system_zelorfs_ramdisks));
   memfs::BucketArray buckets = memfs::AllocateBuckets(walk.capacity);
   if (!buckets) {
      return -ENOMEM;
   }
   GatherDuStats(walk, path, 0, buckets.get());
   return 0;
}
