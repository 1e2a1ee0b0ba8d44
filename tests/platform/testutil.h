// Helpers for the library tests: snapshots packed from JSON into a private
// temporary directory, and a source reset between cases.
#pragma once

#include "zellibs.h"
#include "zellibs_testing.h"
#include "zifformat/snapshot_json.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

namespace ziftest {

class TempDir {
public:
   TempDir() {
      std::string pattern = (std::filesystem::temp_directory_path() / "ziftest.XXXXXX").string();
      path_ = mkdtemp(pattern.data()) ? pattern : std::string();
   }
   ~TempDir() {
      std::error_code ec;
      std::filesystem::remove_all(path_, ec);
   }
   std::string file(const std::string &name) const { return path_ + "/" + name; }

private:
   std::string path_;
};

inline void writeBytes(const std::string &path, const std::vector<uint8_t> &bytes) {
   std::ofstream out(path, std::ios::binary | std::ios::trunc);
   out.write(reinterpret_cast<const char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline std::vector<uint8_t> readBytes(const std::string &path) {
   std::ifstream in(path, std::ios::binary);
   return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// Every case starts without a source, as a fresh process does.
class SourceTest : public ::testing::Test {
protected:
   void SetUp() override {
      unsetenv("ZLC_SIMULATOR");
      zif::resetSource();
   }
   void TearDown() override {
      unsetenv("ZLC_SIMULATOR");
      zif::resetSource();
   }
   // Packs json into a file and makes it the snapshot in use.
   std::string use(const std::string &json, const std::string &name = "snap.zifc") {
      std::string path = dir.file(name);
      writeBytes(path, zif::packJson(json));
      EXPECT_EQ(ZIF_UseCache(path.c_str(), 0), ZLC_OK);
      return path;
   }
   TempDir dir;
};

// RAII for lists handed out by the library.
struct ListOwner {
   ZIF_ParamList *list = nullptr;
   ~ListOwner() { ZIF_ParamListDestroy(list); }
};

}  // namespace ziftest
