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

namespace {

namespace fs = std::filesystem;

fs::path FindTool(const char *name) {
   const fs::path self = fs::read_symlink("/proc/self/exe").parent_path();
   for (const fs::path &candidate : {self / name, self.parent_path() / "bin" / name}) {
      if (fs::exists(candidate)) {
         return candidate;
      }
   }
   return {};
}

std::string ReadFile(const fs::path &path) {
   std::ifstream in(path, std::ios::binary);
   return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

struct ToolRun {
   int status = -1;
   std::string out;
   std::string err;
};

ToolRun RunTool(const fs::path &tool, std::vector<std::string> args, const fs::path &dir, const char *simulator) {
   const fs::path out = dir / "out.txt";
   const fs::path err = dir / "err.txt";
   const pid_t child = fork();
   if (child == 0) {
      dup2(open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 1);
      dup2(open(err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600), 2);
      if (simulator != nullptr) {
         setenv("ZLC_SIMULATOR", simulator, 1);
      } else {
         unsetenv("ZLC_SIMULATOR");
      }
      std::vector<char *> argv{const_cast<char *>(tool.c_str())};
      for (std::string &arg : args) {
         argv.push_back(arg.data());
      }
      argv.push_back(nullptr);
      execv(tool.c_str(), argv.data());
      _exit(127);
   }
   ToolRun run;
   int status = 0;
   waitpid(child, &status, 0);
   run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
   run.out = ReadFile(out);
   run.err = ReadFile(err);
   return run;
}

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
   const ToolRun pack = RunTool(zifcache, {"pack", (dir / "host.json").string(), (dir / "host.zifc").string()}, dir,
                            nullptr);
   ASSERT_EQ(pack.status, 0) << pack.err;

   const ToolRun run = RunTool(zlcziftools, {"bootOption", "-c", "big.cfg"}, dir, (dir / "host.zifc").c_str());
   std::string expected = content;
   std::replace(expected.begin(), expected.end(), '\n', ' ');
   EXPECT_EQ(run.status, 0);
   EXPECT_EQ(run.err, "");
   EXPECT_TRUE(run.out == "Boot Option File Content big.cfg : " + expected + "\n")
      << "output of " << run.out.size() << " bytes differs from the " << expected.size() << " expected";
   fs::remove_all(dir);
}

}  // namespace
