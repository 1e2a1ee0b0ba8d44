// A ram disk's inodes: breadth first up to the bound, each inode once, on the
// ram disk's own device and never into another ram disk's mount point.
#include "capture/parts.h"

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

using namespace capture;

namespace {

class RamdiskInodes : public ::testing::Test {
protected:
   void SetUp() override {
      char dir[] = "/tmp/capture-ramdisk-XXXXXX";
      ASSERT_NE(mkdtemp(dir), nullptr);
      root_ = dir;
      Write("a", "12345");
      ASSERT_EQ(link((root_ + "/a").c_str(), (root_ + "/b").c_str()), 0);
      Write("d/e", "1234567");
      Write("d/f/g", "");
      Write("m/x", "not mine");
   }
   void TearDown() override { std::filesystem::remove_all(root_); }

   void Write(const std::string &path, const std::string &text) {
      std::filesystem::create_directories(std::filesystem::path(root_ + "/" + path).parent_path());
      FILE *f = std::fopen((root_ + "/" + path).c_str(), "w");
      ASSERT_NE(f, nullptr);
      std::fputs(text.c_str(), f);
      std::fclose(f);
   }

   // (file name, size) of each inode record, in capture order.
   std::vector<std::pair<std::string, uint32_t>> Capture(size_t bound, std::vector<std::string> *notes = nullptr) {
      capture::Capture c(HostPaths{}, std::chrono::milliseconds(250));
      zif::Keys keys;
      PutRamdiskInodes(c, "/rd", root_, {root_ + "/m"}, bound, keys);
      const zif::RecordLayout &layout = *zif::findLayout("system_zelorfs_inodes_stats");
      const zif::FieldLayout &name = *zif::findField(layout, "fileName");
      const zif::FieldLayout &size = *zif::findField(layout, "size");
      std::vector<std::pair<std::string, uint32_t>> out;
      for (const zif::Entry &e : c.entries) {
         EXPECT_EQ(e.node, "system_zelorfs_inodes_stats");
         std::vector<uint8_t> bytes = e.bytes;
         bytes.resize(layout.length, 0);
         uint32_t n = 0;
         std::memcpy(&n, bytes.data() + size.offset, sizeof n);
         out.emplace_back(reinterpret_cast<const char *>(bytes.data() + name.offset), n);
      }
      EXPECT_EQ(keys.size(), out.size());
      if (notes) {
         *notes = c.notes;
      }
      return out;
   }

   std::string root_;
};

using Inodes = std::vector<std::pair<std::string, uint32_t>>;

TEST_F(RamdiskInodes, EachInodeOnceBreadthFirstWithoutTheOtherMount) {
   std::vector<std::string> notes;
   // b is a second name of a; directories count no size.
   EXPECT_EQ(Capture(100, &notes), (Inodes{{"/rd", 0}, {"a", 5}, {"d", 0}, {"e", 7}, {"f", 0}, {"g", 0}}));
   EXPECT_TRUE(notes.empty());
   EXPECT_EQ(Capture(6, &notes).size(), 6u);
   EXPECT_TRUE(notes.empty()) << "exactly the bound is no cut";
}

TEST_F(RamdiskInodes, TheBoundLeavesOutTheDeepestAndSaysSo) {
   std::vector<std::string> notes;
   EXPECT_EQ(Capture(4, &notes), (Inodes{{"/rd", 0}, {"a", 5}, {"d", 0}, {"e", 7}}));
   ASSERT_EQ(notes.size(), 1u);
   EXPECT_EQ(notes[0], "memfs: /rd holds more than 4 inodes; the first 4, breadth first, are captured");
}

}  // namespace
