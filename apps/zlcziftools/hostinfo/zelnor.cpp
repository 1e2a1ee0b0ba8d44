// zelnor: the running kernel's version. -v prints the product, the full
// version and the build number; -l prints the product, the major and minor
// version and the release level (GA, another level word, or the update).
//
// A version text without a '.' serves whole as the short version, and a short
// version longer than 31 characters is cut to 31.
#include <getopt.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "zelnor      -v, --version         Get version information for zelcore\n"
      "            -l, --level           Get release level information\n"
      "            -h, --help            Print this menu\n";
constexpr char kShortOptions[] = "vhl";
constexpr option kLongOptions[] = {
      {"version", no_argument, nullptr, 'v'},
      {"level", no_argument, nullptr, 'l'},
      {"help", no_argument, nullptr, 'h'},
      {nullptr, 0, nullptr, 0},
};

[[noreturn]] void Usage() {
   std::fputs(kUsage, stderr);
   std::exit(1);
}

// The version up to its last '.', at most 31 characters.
std::string ShortVersion(std::string_view version) {
   const std::size_t lastDot = version.rfind('.');
   std::string_view shortVersion = lastDot == std::string_view::npos ? version : version.substr(0, lastDot);
   return std::string(shortVersion.substr(0, std::min<std::size_t>(shortVersion.size(), 31)));
}

std::string Text(std::string_view field) {
   return std::string(field);
}

void PrintVersionLine(const rec::system_version &version) {
   std::printf("%s %s build-%.5d\n", Text(version.product()).c_str(), Text(version.version()).c_str(), version.build());
}

void PrintLevelLine(const rec::system_version &version) {
   const std::string level = version.releaseLevel() == "Release" ? "GA" : Text(version.releaseLevel());
   const std::string shortVersion = ShortVersion(version.version());
   const std::string_view update = version.update();
   if (!update.empty() && update.front() == '0') {
      std::printf("%s %s %s%s\n", Text(version.product()).c_str(), shortVersion.c_str(), level.c_str(), "");
   } else {
      std::printf("%s %s %s%s\n", Text(version.product()).c_str(), shortVersion.c_str(), "Update ",
                  Text(update).c_str());
   }
}

}  // namespace

int ZelnorMain(int argc, char **argv) {
   if (argc < 2) {
      std::fputs("zelnor: no option specified\n", stderr);
      Usage();
   }

   bool wantVersion = false;
   bool wantLevel = false;
   int option;
   while ((option = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1) {
      switch (option) {
         case 'v':
            wantVersion = true;
            break;
         case 'l':
            wantLevel = true;
            break;
         default:
            Usage();
      }
   }
   if (!wantVersion && !wantLevel) {
      std::fputs("zelnor: Invalid arguments\n", stderr);
      Usage();
   }

   rec::system_version version;
   if (sysinfo::GetRecord(version, nullptr) != 0) {
      return 1;
   }
   if (wantVersion) {
      PrintVersionLine(version);
   }
   if (wantLevel) {
      PrintLevelLine(version);
   }
   return 0;
}
