// zdf: space taken by the pieces of the in-memory root file system, a table
// of tardisks, a line of five hyphens, and a table of ramdisks.
//
// Every size is first made a 32-bit byte count (MiB and page fields shifted
// within 32 bits, so 4 GiB or more keeps only its low bits) and shown either
// in whole KiB or, with -h, as a B/K/M text. -p switches to the resource pool
// view of seven columns. One operand is accepted but not used: its message
// has no line end, so the tardisk header follows on the same line. A disk
// whose stats cannot be read is reported and left out; a disk list that
// cannot be fetched ends the command with status 1. A disk key that is not
// a text shows as an empty name.
#include <unistd.h>

#include <cstdint>
#include <cstdio>

#include "formatsize.h"
#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "Gather stats about zelorfs\n"
      "zelorfsdf [filepath]\n"
      "   -h       multiple instead of blocks\n"
      "   -p       resource pool view\n";

constexpr char kShortOptions[] = "hp";

struct ZdfOptions {
   bool human = false;  // -h: B/K/M texts instead of whole KiB
   bool pool = false;   // -p: the resource pool view
};

enum class DiskKind { Tardisk, Ramdisk };

struct SizeText {
   char text[memfs::kSizeTextLength];
   explicit SizeText(std::uint32_t bytes) { memfs::FormatSize(bytes, text, sizeof text); }
};

int KiB(std::uint32_t bytes) {
   return static_cast<int>(bytes >> 10);
}

void PrintTardiskHeader(const ZdfOptions &options) {
   if (options.pool) {
      std::printf("%-20s%10s%10s%10s%10s%10s%10s\n", "Tardisk", "", "", "Used", "", "", "Space");
   } else if (options.human) {
      std::printf("%-20s%10s%10s\n", "Tardisk", "Space", "Used");
   } else {
      std::printf("%-20s%10s%10s\n", "Tardisk", "1k-blocks", "Used");
   }
}

void PrintRamdiskHeader(const ZdfOptions &options) {
   if (options.pool) {
      std::printf("%-20s%10s%10s%10s%10s%10s%10s\n", "Ramdisk", "Min", "Max", "Used", "Sure avl", "Maybe avl",
                  "Peak used");
   } else {
      std::printf("%-20s%10s%10s%10s%4s%% %s\n", "Ramdisk", options.human ? "Size" : "1k-blocks", "Used", "Available",
                  "Use", "Mounted on");
   }
}

void PrintTardiskRow(const char *name, const rec::system_zelorfs_tardisks_stats &stats, const ZdfOptions &options) {
   const std::uint32_t used = stats.size();
   const std::uint32_t space = (used + 4095u) & ~4095u;
   if (options.pool && options.human) {
      std::printf("%-20s%10s%10s%10s%10s%10s%10s\n", name, "", "", SizeText(used).text, "", "", SizeText(space).text);
   } else if (options.pool) {
      std::printf("%-20s%10s%10s%10d%10s%10s%10d\n", name, "", "", KiB(used), "", "", KiB(space));
   } else if (options.human) {
      std::printf("%-20s%10s%10s\n", name, SizeText(space).text, SizeText(used).text);
   } else {
      std::printf("%-20s%10d%10d\n", name, KiB(space), KiB(used));
   }
}

void PrintRamdiskRow(const char *name, const rec::system_zelorfs_ramdisks_stats &stats, const ZdfOptions &options) {
   const std::uint32_t min = stats.minMB() << 20;
   const std::uint32_t max = stats.maxMB() << 20;
   const std::uint32_t used = stats.usedPages() << 12;
   const std::uint32_t peak = stats.peakPages() << 12;
   const std::uint32_t sure = min >= used ? min - used : 0;
   // Unlike Sure, Maybe has no floor: a ramdisk over its maximum wraps.
   const std::uint32_t maybe = max - used;
   const int usePercent = max == 0 ? 100 : static_cast<int>(std::uint64_t{used} * 100 / max);
   if (options.pool && options.human) {
      std::printf("%-20s%10s%10s%10s%10s%10s%10s\n", name, SizeText(min).text, SizeText(max).text, SizeText(used).text,
                  SizeText(sure).text, SizeText(maybe).text, SizeText(peak).text);
   } else if (options.pool) {
      std::printf("%-20s%10d%10d%10d%10d%10d%10d\n", name, KiB(min), KiB(max), KiB(used), KiB(sure), KiB(maybe),
                  KiB(peak));
   } else if (options.human) {
      std::printf("%-20s%10s%10s%10s%4d%% %s\n", name, SizeText(max).text, SizeText(used).text, SizeText(maybe).text,
                  usePercent, "--");
   } else {
      std::printf("%-20s%10d%10d%10d%4d%% %s\n", name, KiB(max), KiB(used), KiB(maybe), usePercent, "--");
   }
}

// Reads one disk's stats record and prints its row; a failed read is reported
// and the row left out.
template <typename Stats>
void PrintDiskRow(const char *name, const ZdfOptions &options,
                  void (*printRow)(const char *, const Stats &, const ZdfOptions &)) {
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   ZLC_ReturnStatus status = ZLC_NO_MEMORY;
   Stats stats;
   if (query) {
      ZIF_ParamListAddString(query.get(), name);
      status = sysinfo::GetRecord(stats, query.get());
   }
   if (status != 0) {
      std::fprintf(stderr, "ZIF_Get error for '%s' (%s)\n", name, ZLC_ReturnStatusToString(status));
      return;
   }
   printRow(name, stats, options);
}

// One row per disk of the kind, in the list's order. False when the disk
// list cannot be fetched.
bool PrintDiskStats(DiskKind kind, const ZdfOptions &options) {
   const bool tardisks = kind == DiskKind::Tardisk;
   sysinfo::InstanceList disks;
   const ZLC_ReturnStatus status = disks.Fetch(
         sysinfo::Node(tardisks ? ZIF_NODE_system_zelorfs_tardisks : ZIF_NODE_system_zelorfs_ramdisks), nullptr);
   if (status != 0) {
      std::fprintf(stderr, "Error fetching %sdisk list (%s)\n", tardisks ? "tar" : "ram",
                   ZLC_ReturnStatusToString(status));
      return false;
   }
   const int count = disks.Count();
   for (int i = 0; i < count; ++i) {
      const char *key = ZIF_ParamGetString(disks.At(i));
      const char *name = key != nullptr ? key : "";
      if (tardisks) {
         PrintDiskRow<rec::system_zelorfs_tardisks_stats>(name, options, PrintTardiskRow);
      } else {
         PrintDiskRow<rec::system_zelorfs_ramdisks_stats>(name, options, PrintRamdiskRow);
      }
   }
   return true;
}

}  // namespace

int ZdfMain(int argc, char **argv) {
   ZdfOptions options;
   int option;
   while ((option = getopt(argc, argv, kShortOptions)) != -1) {
      switch (option) {
         case 'h':
            options.human = true;
            break;
         case 'p':
            options.pool = true;
            break;
         default:
            std::fputs(kUsage, stderr);
            return 1;
      }
   }
   const int lastArgument = argc - 1;
   if (lastArgument > optind) {
      std::fputs(kUsage, stderr);
      return 1;
   }
   if (lastArgument == optind) {
      std::fputs("Argument not supported yet. Ignoring.", stdout);
   }

   PrintTardiskHeader(options);
   if (!PrintDiskStats(DiskKind::Tardisk, options)) {
      return 1;
   }
   std::puts("-----");
   PrintRamdiskHeader(options);
   return PrintDiskStats(DiskKind::Ramdisk, options) ? 0 : 1;
}
