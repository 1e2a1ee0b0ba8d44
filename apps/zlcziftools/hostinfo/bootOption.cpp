// bootOption: how the host was booted. Each option selects one item (boot
// flags, the kernel and options of the boot command line, the boot modules,
// the boot option files and their content); the items always come out in one
// fixed order, whatever the order of the options, each after its label unless
// -r asks for the bare values.
//
// The usage text spells the long form of -c as --bootOptionFileContent, but
// only --bootOptionContent is accepted: scripts rely on both as they are.
// Reading a boot option file's content needs the live host; everything else
// works on a snapshot. A content read that delivers nothing before the end
// of the file stops with a message instead of asking again for ever.
#include <getopt.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string_view>

#include "boottext.h"
#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "bootOption\n"
      "  -r --raw                      Print w/o annotation\n"
      "  -a --all                      Print f,i,u,w,R boot options\n"
      "  -f --fsck                     FS Check Mode\n"
      "  -i --audit                    Audit Mode\n"
      "  -R --rollback                 Booted after a rollback\n"
      "  -p --pxeboot                  Booted via (g)PXE\n"
      "  -k --kernel                   Kernel used to boot\n"
      "  -m --modules                  List of modules used to boot\n"
      "  -o --options                  List of boot options used to boot\n"
      "  -b --bootOptionFiles          List of boot option files to boot\n"
      "  -c --bootOptionFileContent    Content of a boot option file used to boot\n"
      "  -C --bootOptionFilesContent   Content of all boot option files used to boot\n";

constexpr char kShortOptions[] = "afhiruwRpkmobc:C";

constexpr option kLongOptions[] = {
      {"raw", no_argument, nullptr, 'r'},
      {"all", no_argument, nullptr, 'a'},
      {"fsck", no_argument, nullptr, 'f'},
      {"audit", no_argument, nullptr, 'i'},
      {"rollback", no_argument, nullptr, 'R'},
      {"pxeboot", no_argument, nullptr, 'p'},
      {"kernel", no_argument, nullptr, 'k'},
      {"modules", no_argument, nullptr, 'm'},
      {"options", no_argument, nullptr, 'o'},
      {"bootOptionFiles", no_argument, nullptr, 'b'},
      {"bootOptionContent", required_argument, nullptr, 'c'},
      {"bootOptionFilesContent", no_argument, nullptr, 'C'},
      {"help", no_argument, nullptr, 'h'},
      {nullptr, 0, nullptr, 0},
};

struct Selection {
   bool raw = false;
   bool fsck = false;
   bool audit = false;
   bool rollback = false;
   bool pxeBoot = false;
   bool kernel = false;
   bool modules = false;
   bool options = false;
   bool fileNames = false;
   bool allContents = false;
   const char *contentFile = nullptr;  // the last -c given
};

[[noreturn]] void Usage() {
   std::fputs(kUsage, stderr);
   std::exit(1);
}

Selection ParseOptions(int argc, char **argv) {
   Selection s;
   int option;
   while ((option = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1) {
      switch (option) {
         case 'r':
            s.raw = true;
            break;
         case 'a':
            s.fsck = s.audit = s.rollback = true;
            break;
         case 'f':
            s.fsck = true;
            break;
         case 'i':
            s.audit = true;
            break;
         case 'R':
            s.rollback = true;
            break;
         case 'p':
            s.pxeBoot = true;
            break;
         case 'k':
            s.kernel = true;
            break;
         case 'm':
            s.modules = true;
            break;
         case 'o':
            s.options = true;
            break;
         case 'b':
            s.fileNames = true;
            break;
         case 'c':
            s.contentFile = optarg;
            break;
         case 'C':
            s.allContents = true;
            break;
         default:
            Usage();  // -h, -u, -w, --help, unknown options, -c without its file
      }
   }
   return s;
}

void Label(const Selection &s, const char *label) {
   if (!s.raw) {
      std::fputs(label, stdout);
   }
}

struct DataDeleter {
   void operator()(ZIFData *data) const { ZIFData_Destroy(data); }
};
using DataPtr = std::unique_ptr<ZIFData, DataDeleter>;

// Reads pieces of one file's content with read requests {offset, count}. The
// piece it hands out lives in its output object until the next read.
class ContentPieceReader {
public:
   explicit ContentPieceReader(ZIF_ParamList *query) : query_(query) {}

   std::optional<std::span<char>> operator()(std::uint32_t offset, std::uint32_t count) {
      output_.reset();
      unsigned char request[8];
      for (int i = 0; i < 4; ++i) {
         request[i] = static_cast<unsigned char>(offset >> (8 * i));
         request[4 + i] = static_cast<unsigned char>(count >> (8 * i));
      }
      DataPtr input(ZIFData_Create(sizeof request, request, sizeof request));
      if (!input) {
         return std::nullopt;
      }
      // One byte more than asked for, so that the piece can be ended with a NUL.
      output_.reset(ZIFData_Create(count + 1, nullptr, 0));
      if (!output_) {
         return std::nullopt;
      }
      if (ZIF_SetData(sysinfo::Node(ZIF_NODE_system_bootOptionFiles_content), query_, input.get(), output_.get()) !=
          0) {
         return std::nullopt;
      }
      char *bytes = static_cast<char *>(ZIFData_GetData(output_.get()));
      const std::uint32_t delivered = std::min(output_->length, count);
      bytes[delivered] = '\0';
      return std::span<char>(bytes, delivered);
   }

private:
   ZIF_ParamList *query_;
   DataPtr output_;
};

// Prints one boot option file's content on one line (its lines joined by
// blanks). Returns 0 or 1.
int PrintFileContent(const char *name, const Selection &s) {
   if (gZifCacheMode) {
      std::fputs("Using ZIF cache is unsupported\n", stderr);
      return 1;
   }
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   if (!query || ZIF_ParamListAddString(query.get(), name) != 0) {
      return 1;
   }
   std::uint32_t total = 0;
   if (ZIF_GetDataLength(sysinfo::Node(ZIF_NODE_system_bootOptionFiles_content), query.get(), &total) != 0) {
      std::printf("Invalid boot option file name %s\n", name);
      return 1;
   }
   if (!s.raw) {
      std::printf("Boot Option File Content %s : ", name);
   }
   ContentPieceReader reader(query.get());
   const bootoption::StreamOutcome outcome = bootoption::StreamContent(
         total, std::ref(reader), [](std::string_view text) { std::fwrite(text.data(), 1, text.size(), stdout); });
   switch (outcome.kind) {
      case bootoption::StreamOutcome::Kind::Done:
         return 0;
      case bootoption::StreamOutcome::Kind::ReadFailed:
         return 1;
      case bootoption::StreamOutcome::Kind::ShortRead:
         std::fprintf(stderr, "Boot option file %s: short read at offset %u\n", name,
                      static_cast<unsigned>(outcome.offset));
         return 1;
   }
   return 1;
}

// The boot option files' names, in the kernel's order.
sysinfo::ParamListPtr FetchFileList() {
   ZIF_ParamList *raw = nullptr;
   if (ZIF_GetInstanceListAllocHint(sysinfo::Node(ZIF_NODE_system_bootOptionFiles), nullptr, 0, &raw) != 0) {
      return nullptr;
   }
   return sysinfo::ParamListPtr(raw);
}

int PrintAllFileContents(const Selection &s) {
   sysinfo::ParamListPtr files = FetchFileList();
   if (!files) {
      return 1;
   }
   const int count = ZIF_ParamListUsedCount(files.get());
   for (int i = 0; i < count; ++i) {
      const char *name = nullptr;
      if (ZIF_ParamListGetString(files.get(), i, &name) != 0 || PrintFileContent(name, s) != 0) {
         return 1;
      }
      std::fputs(s.raw ? " " : "\n", stdout);
   }
   return 0;
}

int PrintFileNames(const Selection &s) {
   sysinfo::ParamListPtr files = FetchFileList();
   if (!files) {
      return 1;
   }
   Label(s, "Boot Option Files : ");
   const int count = ZIF_ParamListUsedCount(files.get());
   for (int i = 0; i < count; ++i) {
      const char *name = nullptr;
      if (ZIF_ParamListGetString(files.get(), i, &name) != 0) {
         return 1;
      }
      std::printf("%s ", name);
   }
   std::fputs("\n", stdout);
   return 0;
}

// The tardisks loaded as boot modules, by name.
int PrintModules(const Selection &s) {
   Label(s, "Modules : ");
   sysinfo::InstanceList tardisks;
   if (tardisks.Fetch(sysinfo::Node(ZIF_NODE_system_zelorfs_tardisks), nullptr) != 0) {
      return 1;
   }
   for (int i = 0; i < tardisks.Count(); ++i) {
      const char *name = nullptr;
      if (ZIF_ParamListGetString(tardisks.Get(), i, &name) != 0) {
         return 1;
      }
      sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
      if (!query || ZIF_ParamListAddString(query.get(), name) != 0) {
         return 1;
      }
      rec::system_zelorfs_tardisks_stats stats;
      if (sysinfo::GetRecord(stats, query.get()) != 0) {
         return 1;
      }
      if (stats.bootModule() != 0) {
         std::printf("%s ", name);
      }
   }
   std::fputs("\n", stdout);
   return 0;
}

// Prints the selected items in their fixed order; stops at the first failure,
// keeping what was printed.
int PrintSelection(const Selection &s) {
   if (s.fsck || s.audit || s.rollback) {
      rec::system_bootOption flags;
      if (sysinfo::GetRecord(flags, nullptr) != 0) {
         return 1;
      }
      if (s.fsck) {
         Label(s, "FS Check : ");
         std::printf("%d\n", flags.fsckMode());
      }
      if (s.audit) {
         Label(s, "Audit Mode : ");
         std::printf("%d\n", flags.auditMode());
      }
      if (s.rollback) {
         Label(s, "Booted after rollback : ");
         std::printf("%d\n", flags.rollback());
      }
   }

   rec::system_bootCmdLine cmdLine;
   bootoption::BootCommandLine line;
   if (s.pxeBoot || s.kernel || s.options) {
      if (sysinfo::GetRecord(cmdLine, nullptr) != 0) {
         return 1;
      }
      if (s.pxeBoot) {
         rec::system_bootMAC mac;
         if (sysinfo::GetRecord(mac, nullptr) != 0) {
            return 1;
         }
         Label(s, "Booted via (g)PXE : ");
         std::printf("%d\n", mac.pxeBooted() != 0 ? 1 : 0);
      }
      line = bootoption::SplitBootCommandLine(cmdLine.cmdLine());
   }
   if (s.kernel) {
      Label(s, "Kernel : ");
      std::printf("%.*s\n", static_cast<int>(line.kernel.size()), line.kernel.data());
   }
   if (s.allContents && PrintAllFileContents(s) != 0) {
      return 1;
   }
   if (s.options) {
      Label(s, "Options : ");
      std::printf("%.*s\n", static_cast<int>(line.options.size()), line.options.data());
   }
   if (s.modules && PrintModules(s) != 0) {
      return 1;
   }
   if (s.fileNames && PrintFileNames(s) != 0) {
      return 1;
   }
   if (s.contentFile != nullptr) {
      if (int result = PrintFileContent(s.contentFile, s); result != 0) {
         return result;
      }
      std::fputs("\n", stdout);
   }
   return 0;
}

}  // namespace

int BootOptionMain(int argc, char **argv) {
   if (argc < 2) {
      std::fputs("bootOption: no option specified\n", stderr);
      Usage();
   }
   return PrintSelection(ParseOptions(argc, argv));
}
