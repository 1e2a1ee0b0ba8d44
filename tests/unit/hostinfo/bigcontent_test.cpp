// A boot option file of more than one read piece, end to end: a generated
// simulator snapshot, the command run as a separate process, and its output
// compared whole, so that a lost, repeated or separated piece shows.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "hostinfo/boottext.h"
#include "tool_run.h"

namespace {

namespace fs = std::filesystem;
using testtools::FindTool;
using testtools::InSimulator;
using testtools::RunTool;
using testtools::ToolRun;

TEST(BootOptionContent, MoreThanOnePieceIsPrintedWholeOnOneLine) {
   const fs::path zlcziftools = FindTool("zlcziftools");
   const fs::path zifcache = FindTool("zifcache");
   ASSERT_FALSE(zlcziftools.empty());
   ASSERT_FALSE(zifcache.empty());
   char pattern[] = "/tmp/bootcontent-XXXXXX";
   ASSERT_NE(mkdtemp(pattern), nullptr);
   const fs::path dir = pattern;

   // Numbered lines, so that every byte's place is known; one line ends
   // exactly where the first piece does.
   std::string content;
   for (int line = 0; content.size() < bootoption::kContentPieceSize + 4000; ++line) {
      char text[32];
      std::snprintf(text, sizeof text, "entry%07d=%d\n", line, line % 97);
      content += text;
      if (content.size() < bootoption::kContentPieceSize && content.size() + 32 > bootoption::kContentPieceSize) {
         content.append(bootoption::kContentPieceSize - 1 - content.size(), 'p');
         content += '\n';
      }
   }
   ASSERT_EQ(content[bootoption::kContentPieceSize - 1], '\n');
   std::string escaped;
   for (char c : content) {
      escaped += c == '\n' ? std::string("\\n") : std::string(1, c);
   }
   std::ofstream(dir / "host.json") << R"({"zifcache": 1, "data": [{"node": "system_bootOptionFiles_content",)"
                                    << R"( "keys": ["big.cfg"], "text": ")" << escaped << "\"}]}\n";
   const ToolRun pack = RunTool(zifcache, {"pack", (dir / "host.json").string(), (dir / "host.zifc").string()}, dir);
   ASSERT_EQ(pack.status, 0) << pack.err;

   const ToolRun run = RunTool(zlcziftools, {"bootOption", "-c", "big.cfg"}, dir, InSimulator(dir / "host.zifc"));
   std::string expected = content;
   std::replace(expected.begin(), expected.end(), '\n', ' ');
   EXPECT_EQ(run.status, 0);
   EXPECT_EQ(run.err, "");
   EXPECT_TRUE(run.out == "Boot Option File Content big.cfg : " + expected + "\n")
         << "output of " << run.out.size() << " bytes differs from the " << expected.size() << " expected";
   fs::remove_all(dir);
}

}  // namespace
