// zdu on a simulated host whose in-memory root file system is a real
// directory tree made by the test: the snapshot's root device is the tree's
// device, and its inode stats records are keyed by the tree's real inode
// numbers. Each test runs zdu in the tree's folder and checks standard
// output, standard error and exit status exactly.
//
// readdir's order depends on the file system, so where a directory has more
// than one printed entry the expected blocks are put in the order the
// directory lists them.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

#include "tool_run.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testtools::FindTool;
using testtools::InSimulator;
using testtools::RunTool;
using testtools::ToolRun;

// Where an inode lies and what its stats record says.
struct Inode {
   bool onTardisk = false;
   std::string disk;
   std::uint32_t size = 0;
   std::uint32_t extraFlags = 0;
};
Inode Ramdisk(std::string disk, std::uint32_t size, std::uint32_t extraFlags = 0) {
   return {false, std::move(disk), size, extraFlags};
}
Inode Tardisk(std::string disk, std::uint32_t size, std::uint32_t extraFlags = 0) {
   return {true, std::move(disk), size, extraFlags};
}

constexpr std::uint32_t kSizeNotCounted = 0x40;

// "%38s: %12d" and the inode count of a directory's line.
std::string Line(const std::string &label, int size) {
   char text[128];
   std::snprintf(text, sizeof text, "%38s: %12d\n", label.c_str(), size);
   return text;
}
std::string Line(const std::string &label, int size, int inodes) {
   char text[128];
   std::snprintf(text, sizeof text, "%38s: %12d\t\t(%5d inodes)\n", label.c_str(), size, inodes);
   return text;
}
std::string Heading(const std::string &path) {
   return "For '" + path + "':\n";
}

class ZduTree : public testing::Test {
protected:
   void SetUp() override {
      zlcziftools_ = FindTool("zlcziftools");
      zifcache_ = FindTool("zifcache");
      ASSERT_FALSE(zlcziftools_.empty()) << "zlcziftools not found beside the test";
      ASSERT_FALSE(zifcache_.empty()) << "zifcache not found beside the test";
      char pattern[] = "/tmp/zdu-tree-XXXXXX";
      ASSERT_NE(mkdtemp(pattern), nullptr);
      dir_ = pattern;
      fs::create_directory(dir_ / "tree");
      tree_ = open((dir_ / "tree").c_str(), O_RDONLY | O_DIRECTORY);
      ASSERT_GE(tree_, 0);
      struct stat status;
      ASSERT_EQ(lstat(dir_.c_str(), &status), 0);
      rootDevice_ = status.st_dev;
   }

   void TearDown() override {
      if (tree_ >= 0) {
         close(tree_);
      }
      // rm copes with paths longer than an absolute path may be.
      EXPECT_EQ(std::system(("rm -rf '" + dir_.string() + "'").c_str()), 0);
   }

   fs::path Path(const std::string &relative) const { return dir_ / "tree" / relative; }

   // Paths are made relative to the tree's folder, so that they may be longer
   // than an absolute path can be.
   void Dir(const std::string &path, Inode inode) {
      ASSERT_EQ(mkdirat(tree_, path.c_str(), 0700), 0) << path;
      Record(path, std::move(inode));
   }
   void File(const std::string &path, Inode inode) {
      const int fd = openat(tree_, path.c_str(), O_WRONLY | O_CREAT | O_EXCL, 0600);
      ASSERT_GE(fd, 0) << path;
      close(fd);
      Record(path, std::move(inode));
   }
   void Symlink(const std::string &path, const std::string &target, Inode inode) {
      ASSERT_EQ(symlinkat(target.c_str(), tree_, path.c_str()), 0) << path;
      Record(path, std::move(inode));
   }
   // The inode stats record of an existing path.
   void Record(const std::string &path, Inode inode) {
      struct stat status;
      ASSERT_EQ(fstatat(tree_, path.c_str(), &status, AT_SYMLINK_NOFOLLOW), 0) << path;
      json fields = {{"flags", (inode.onTardisk ? 1u : 0u) | inode.extraFlags}, {"size", inode.size}};
      fields[inode.onTardisk ? "tardisk" : "ramdisk"] = inode.disk;
      records_.push_back({{"node", "system_zelorfs_inodes_stats"},
                          {"keys", {static_cast<std::int64_t>(status.st_ino)}},
                          {"fields", fields}});
   }

   // The names of a directory's entries in readdir's order.
   std::vector<std::string> ListingOrder(const std::string &path) const {
      std::vector<std::string> names;
      for (const fs::directory_entry &entry : fs::directory_iterator(Path(path))) {
         names.push_back(entry.path().filename().string());
      }
      return names;
   }
   // The blocks of a directory's entries, in the order zdu visits them.
   std::string InListingOrder(const std::string &path, const std::map<std::string, std::string> &blocks) const {
      std::string text;
      for (const std::string &name : ListingOrder(path)) {
         if (auto block = blocks.find(name); block != blocks.end()) {
            text += block->second;
         }
      }
      return text;
   }

   // Packs the snapshot and runs zdu with args in the tree's folder.
   ToolRun Zdu(std::vector<std::string> args, std::uint64_t rootDevice = 0) {
      const json snapshot = {
            {"zifcache", 1},
            {"simulator", {{"rootDevice", rootDevice != 0 ? rootDevice : rootDevice_}}},
            {"lists",
             {{{"node", "system_zelorfs_tardisks"}, {"instances", tardisks_}},
              {{"node", "system_zelorfs_ramdisks"}, {"instances", ramdisks_}}}},
            {"records", records_},
      };
      std::ofstream(dir_ / "host.json") << snapshot.dump(1);
      const ToolRun pack =
            RunTool(zifcache_, {"pack", (dir_ / "host.json").string(), (dir_ / "host.zifc").string()}, dir_);
      EXPECT_EQ(pack.status, 0) << pack.err;
      args.insert(args.begin(), "zdu");
      return RunTool(zlcziftools_, args, dir_, InSimulator(dir_ / "host.zifc", dir_ / "tree"));
   }

   fs::path zlcziftools_;
   fs::path zifcache_;
   fs::path dir_;
   int tree_ = -1;
   std::uint64_t rootDevice_ = 0;
   json tardisks_ = {"s.v00"};
   json ramdisks_ = {"root", "tmp"};
   json records_ = json::array();
};

// top (ramdisk root) holds a file a, an empty file, and a directory sub on
// the tardisk s.v00 holding a file deep.
class ZduDepth : public ZduTree {
protected:
   void SetUp() override {
      ZduTree::SetUp();
      Dir("top", Ramdisk("root", 512));
      File("top/a", Ramdisk("root", 100));
      File("top/empty", Ramdisk("root", 0));
      Dir("top/sub", Tardisk("s.v00", 0));
      File("top/sub/deep", Tardisk("s.v00", 300));
   }

   const std::string blockA_ = Heading("top/a") + Line("ramdisk root", 100);
   const std::string blockDeep_ = Heading("top/sub/deep") + Line("tardisk s.v00", 300);
   const std::string blockSub_ = Heading("top/sub") + Line("tardisk s.v00", 300, 2);
   const std::string blockTop_ = Heading("top") + Line("ramdisk root", 612, 2) + Line("tardisk s.v00", 300, 2);
};

TEST_F(ZduDepth, DefaultDepthPrintsTheOperandsEntriesThenTheOperand) {
   EXPECT_EQ(Zdu({"top"}), (ToolRun{0, InListingOrder("top", {{"a", blockA_}, {"sub", blockSub_}}) + blockTop_, ""}));
}

TEST_F(ZduDepth, SummaryAndNonNumericDepthPrintOnlyTheOperand) {
   for (const std::vector<std::string> &args :
        {std::vector<std::string>{"-s", "top"}, {"-d", "abc", "top"}, {"-a", "-s", "top"}}) {
      EXPECT_EQ(Zdu(args), (ToolRun{0, blockTop_, ""})) << args[0];
   }
}

TEST_F(ZduDepth, AllAndNegativeDepthPrintEveryCountedPath) {
   const std::string expected = InListingOrder("top", {{"a", blockA_}, {"sub", blockDeep_ + blockSub_}}) + blockTop_;
   for (const std::vector<std::string> &args :
        {std::vector<std::string>{"-a", "top"}, {"-d", "-1", "top"}, {"-s", "-d", "2", "top"}}) {
      EXPECT_EQ(Zdu(args), (ToolRun{0, expected, ""})) << args[0];
   }
}

TEST_F(ZduDepth, IncludeEmptyPrintsAndCountsEmptyFiles) {
   const std::string blockEmpty = Heading("top/empty") + Line("ramdisk root", 0);
   EXPECT_EQ(Zdu({"-i", "top"}),
             (ToolRun{0,
                      InListingOrder("top", {{"a", blockA_}, {"empty", blockEmpty}, {"sub", blockSub_}}) +
                            Heading("top") + Line("ramdisk root", 612, 3) + Line("tardisk s.v00", 300, 2),
                      ""}));
}

TEST_F(ZduDepth, TrailingSlashGivesSingleSlashChildPaths) {
   EXPECT_EQ(Zdu({"-h", "top/sub/"}),
             (ToolRun{0,
                      "For 'top/sub/deep':\n                         tardisk s.v00:  300B\n"
                      "For 'top/sub/':\n                         tardisk s.v00:  300B\t\t(    2 inodes)\n",
                      ""}));
}

TEST_F(ZduDepth, PathsOffTheRootDeviceOrMissingCountNothing) {
   for (const char *path : {"top", "nosuch"}) {
      EXPECT_EQ(Zdu({path}, path[0] == 't' ? rootDevice_ + 1 : 0), (ToolRun{0, "", ""}));
   }
}

TEST_F(ZduTree, NotCountedSizesAndEmptinessComeFromTheRecordsOwnSize) {
   Dir("d", Ramdisk("tmp", 0));
   File("d/flagged", Ramdisk("tmp", 5000, kSizeNotCounted));
   EXPECT_EQ(
         Zdu({"d"}),
         (ToolRun{0, Heading("d/flagged") + Line("ramdisk tmp", 0) + Heading("d") + Line("ramdisk tmp", 0, 2), ""}));
}

TEST_F(ZduTree, SymbolicLinksCountAsThemselvesAndAreNotEntered) {
   Dir("d", Ramdisk("root", 0));
   Dir("d/target", Ramdisk("tmp", 0));
   File("d/target/f", Ramdisk("tmp", 7));
   Symlink("d/link", "target", Ramdisk("root", 6));
   EXPECT_EQ(Zdu({"-a", "d/link"}), (ToolRun{0, Heading("d/link") + Line("ramdisk root", 6), ""}));
}

TEST_F(ZduTree, DisksAgreeingInTheirFirst31CharactersShareABucket) {
   ramdisks_ = {"root", "ramdisk-whose-name-runs-past-31-one", "ramdisk-whose-name-runs-past-31-two"};
   Dir("d", Ramdisk("root", 0));
   Dir("d/e", Ramdisk("ramdisk-whose-name-runs-past-31-one", 10));
   File("d/e/f", Ramdisk("ramdisk-whose-name-runs-past-31-two", 20));
   EXPECT_EQ(
         Zdu({"-s", "d"}),
         (ToolRun{0, Heading("d") + Line("ramdisk root", 0, 1) + Line("ramdisk ramdisk-whose-name-runs-past-31", 30, 2),
                  ""}));
}

TEST_F(ZduTree, DisksBeyondTheCapacityAreDroppedWithAMessage) {
   // Two disks listed, three below d: the third is dropped at d only.
   tardisks_ = {"t1"};
   ramdisks_ = {"r1"};
   Dir("d", Ramdisk("r1", 1));
   Dir("d/x", Tardisk("t1", 2));
   File("d/x/y", Ramdisk("r2", 4));
   EXPECT_EQ(Zdu({"d"}), (ToolRun{0,
                                  Heading("d/x") + Line("tardisk t1", 2, 1) + Line("ramdisk r2", 4, 1) + Heading("d") +
                                        Line("ramdisk r1", 1, 1) + Line("tardisk t1", 2, 1),
                                  "Not enough dustats buckets\n"}));
}

TEST_F(ZduTree, WithoutDisksThereIsNoBucketSpace) {
   tardisks_ = json::array();
   ramdisks_ = json::array();
   Dir("d", Ramdisk("root", 1));
   EXPECT_EQ(Zdu({"d"}), (ToolRun{0, "", "No bucket space for 'd'\n"}));
}

TEST_F(ZduTree, AnUnreadableInodeCountsNothingBelowIt) {
   Dir("d", Ramdisk("root", 0));
   Dir("d/lost", Ramdisk("tmp", 0));
   ASSERT_TRUE(fs::create_directory(Path("d/lost/inner")));  // no record needed: never reached
   records_.erase(records_.end() - 1);                       // d/lost has no record either
   EXPECT_EQ(Zdu({"d"}), (ToolRun{0, Heading("d") + Line("ramdisk root", 0, 1),
                                  "ZIF_Get error for 'd/lost' (No such node in snapshot)\n"}));
}

TEST_F(ZduTree, EntriesWhosePathsPass4095CharactersAreReportedAndSkipped) {
   // Sixteen levels below d make a path of 3839 characters; below it a
   // 254-character name gives a path of 4094 characters, which fits, and a
   // 255-character name one of 4095, which does not.
   std::string path = "d";
   Dir(path, Ramdisk("root", 0));
   for (int level = 0; level < 16; ++level) {
      path += '/';
      path.append(level < 15 ? 250 : 72, static_cast<char>('a' + level));
      Dir(path, Ramdisk("root", 0));
   }
   ASSERT_EQ(path.size(), 3839u);
   const std::string fits(254, 'f');
   const std::string tooLong(255, 't');
   File(path + "/" + fits, Ramdisk("root", 9));
   File(path + "/" + tooLong, Ramdisk("root", 9));
   EXPECT_EQ(Zdu({"-s", "d"}), (ToolRun{0, Heading("d") + Line("ramdisk root", 9, 18),
                                        "path too long for '" + path + "' '" + tooLong + "' (4095)\n"}));
}

}  // namespace
