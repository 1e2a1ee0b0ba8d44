// zlcziftools: one executable, eighteen commands.
//
// The command is chosen by the name the program was started under (a link
// named ps, lspci, ...) or, under the program's own name, by the first
// argument. Off the host a snapshot file is required ("-c FILE" or
// "--cache FILE" right after the program's own name); on the host the live
// kernel is read. The kernel's build signature must match the library's.
#include "ziftools.h"

#include <libgen.h>
#include <unistd.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "zellibs.h"

unsigned char gZifCacheMode = 0;

namespace {

struct Command {
   const char *name;
   CommandHandler handler;
};

// Stored order; both usage texts list the commands in this order.
constexpr Command kCommands[] = {
#define ZIF_COMMAND(name, handler) {name, handler},
#include "commands.def"
#undef ZIF_COMMAND
};

constexpr char kOwnName[] = "zlcziftools";

// POSIX basename of a copy, so the argument itself is left as typed.
std::string LastPathComponent(const char *path) {
   std::string copy = path ? path : "";
   return basename(copy.data());
}

bool IsCacheOption(const char *arg) {
   return std::strcmp(arg, "-c") == 0 || std::strcmp(arg, "--cache") == 0;
}

void PrintCommandList() {
   for (const Command &command : kCommands) {
      std::fprintf(stderr, "   %s\n", command.name);
   }
}

[[noreturn]] void ShortUsage() {
   std::fputs("usage: zlcziftools -c cache function\n", stderr);
   std::fputs("  available functions:\n", stderr);
   PrintCommandList();
   std::exit(1);
}

int LongUsage(const char *firstEntry) {
   std::fprintf(stderr,
                "usage: %s [options] [function] [arguments]\n"
                "       or [function] [arguments]\n"
                "\n"
                "Options:\n"
                "   --cache, -c    Perform the operation on a given ZIF cache file\n"
                "\n"
                "Functions:\n",
                firstEntry);
   PrintCommandList();
   return 1;
}

void CheckSignature() {
   char kernelDate[21];
   const char *ownDate = "";
   if (ZIF_CheckSig(kernelDate, sizeof kernelDate, &ownDate) != 0) {
      kernelDate[sizeof kernelDate - 1] = '\0';
      std::fprintf(stderr, "error: md5 signature mismatch with running zelcore built on %s (my build date: %s)\n",
                   kernelDate, ownDate ? ownDate : "");
      std::exit(1);
   }
}

void VWriteMessage(const char *format, va_list args) {
   char buffer[1024];
   int length = std::vsnprintf(buffer, sizeof buffer, format, args);
   if (length < 0) {
      return;
   }
   size_t toWrite = std::strlen(buffer);
   const char *p = buffer;
   while (toWrite > 0) {
      ssize_t written = write(STDERR_FILENO, p, toWrite);
      if (written <= 0) {
         return;
      }
      p += written;
      toWrite -= static_cast<size_t>(written);
   }
}

}  // namespace

void Panic(const char *format, ...) {
   va_list args;
   va_start(args, format);
   VWriteMessage(format, args);
   va_end(args);
   std::exit(1);
}

void Warning(const char *format, ...) {
   va_list args;
   va_start(args, format);
   VWriteMessage(format, args);
   va_end(args);
}

int ZifToolsMain(int argc, char **argv) {
   static char emptyName[] = "";
   static char *emptyVector[] = {emptyName, nullptr};
   if (argc < 1 || argv == nullptr || argv[0] == nullptr) {
      argc = 1;
      argv = emptyVector;
   }

   const bool ownName = LastPathComponent(argv[0]).compare(0, sizeof kOwnName - 1, kOwnName) == 0;
   const bool onHost = HostType_OSIsZLC() || HostType_OSIsSimulator();

   if (!onHost) {
      if (argc <= 3) {
         ShortUsage();
      }
      if (!IsCacheOption(argv[1])) {
         std::fputs("error: must be invoked with cache when not on ZLX\n", stderr);
         std::exit(1);
      }
   }

   if (ownName && argc >= 4 && IsCacheOption(argv[1])) {
      ZLC_ReturnStatus status = ZIF_UseCache(argv[2], 0);
      if (status != 0) {
         std::fprintf(stderr, "Couldn't use specifed cache file %s: %s\n", argv[2], ZLC_ReturnStatusToString(status));
         if (std::strcmp(argv[2], "-") == 0) {
            std::fputs("zlcziftools: the cache file is mapped, not read from standard input: save it to a file first\n",
                       stderr);
         }
         return 1;
      }
      argc -= 3;
      argv += 3;
      gZifCacheMode = 1;
   } else {
      ZlcSyscall_Init(1, 0, 0);
      if (ownName && argc >= 2) {
         argc -= 1;
         argv += 1;
      }
      gZifCacheMode = 0;
   }

   CheckSignature();

   const std::string commandName = LastPathComponent(argv[0]);
   for (const Command &command : kCommands) {
      if (commandName == command.name) {
         return command.handler(argc, argv);
      }
   }
   return LongUsage(argv[0]);
}
