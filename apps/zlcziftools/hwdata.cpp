// The search order of the ID files; see hwdata.h.
#include "hwdata.h"

#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace hwdata {

namespace {

// The installed data directory relative to the installed bin/ directory,
// derived by the build from the install directories (usually ../share/hwdata).
constexpr char kDataFromBinDir[] = ZIF_HWDATA_FROM_BINDIR;

std::string RunningExecutable() {
   std::error_code error;
   const std::filesystem::path path = std::filesystem::read_symlink("/proc/self/exe", error);
   return error ? std::string() : path.string();
}

}  // namespace

std::string ChooseDirectory(std::string_view name, const char *override, std::span<const std::string> candidates) {
   if (override != nullptr && *override != '\0') {
      return override;
   }
   for (const std::string &dir : candidates) {
      std::error_code error;
      if (!dir.empty() && std::filesystem::exists(std::filesystem::path(dir) / name, error)) {
         return dir;
      }
   }
   return candidates.empty() ? std::string(kSystemDir) : candidates.front();
}

std::string OwnDataDir(std::string_view executable) {
   if (executable.empty()) {
      return {};
   }
   const std::filesystem::path bin = std::filesystem::path(executable).parent_path();
   return (bin / kDataFromBinDir).lexically_normal().string();
}

std::string DirectoryOf(std::string_view name) {
   const std::string candidates[] = {kSystemDir, OwnDataDir(RunningExecutable())};
   return ChooseDirectory(name, std::getenv("ZLC_HWDATA_DIR"), candidates);
}

std::string PathOf(std::string_view name) {
   return DirectoryOf(name) + "/" + std::string(name);
}

}  // namespace hwdata
