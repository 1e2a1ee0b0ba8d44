// pkill on a simulated host whose cartels are real child processes of this
// test. With ZLC_SIMULATOR_SIGNALS=real the matching ones receive the signal,
// the others live on, and IDs that are not processes of ours are never
// signalled; without it no local process is signalled at all.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include <nlohmann/json.hpp>

#include "tool_run.h"
#include "zellibs.h"

namespace {

namespace fs = std::filesystem;
using nlohmann::json;
using testtools::FindTool;
using testtools::InSimulator;
using testtools::RunTool;
using testtools::ToolRun;

class PkillLive : public testing::Test {
protected:
   void SetUp() override {
      zlcziftools_ = FindTool("zlcziftools", "ZIF_ZLCZIFTOOLS");
      zifcache_ = FindTool("zifcache", "ZIF_ZIFCACHE");
      ASSERT_FALSE(zlcziftools_.empty()) << "zlcziftools not found beside the test";
      ASSERT_FALSE(zifcache_.empty()) << "zifcache not found beside the test";
      char pattern[] = "/tmp/pkill-live-XXXXXX";
      ASSERT_NE(mkdtemp(pattern), nullptr);
      dir_ = pattern;
      setenv("ZLC_SIMULATOR_SIGNALS", "real", 1);
   }

   void TearDown() override {
      unsetenv("ZLC_SIMULATOR_SIGNALS");
      for (pid_t child : children_) {
         kill(child, SIGKILL);
         waitpid(child, nullptr, 0);
      }
      fs::remove_all(dir_);
   }

   pid_t StartSleeper() {
      const pid_t child = fork();
      if (child == 0) {
         execlp("sleep", "sleep", "300", static_cast<char *>(nullptr));
         _exit(127);
      }
      children_.push_back(child);
      return child;
   }

   // A simulated host whose cartels carry the given IDs, world names and
   // command lines.
   std::string Host(const std::vector<std::tuple<long, std::string, std::string>> &cartels) {
      json doc = {{"lists", json::array({{{"node", "userworld_cartel"}, {"instances", json::array()}}})},
                  {"records", json::array()}};
      for (const auto &[id, name, commandLine] : cartels) {
         const auto unsignedId = static_cast<std::uint32_t>(id);
         doc["lists"][0]["instances"].push_back(id);
         doc["records"].push_back({{"node", "world_name"}, {"keys", {id}}, {"text", name}});
         doc["records"].push_back({{"node", "world_info"},
                                   {"keys", {id}},
                                   {"fields", {{"worldId", unsignedId}, {"cartelId", unsignedId}}}});
         doc["records"].push_back({{"node", "userworld_cartel_cmdline"}, {"keys", {id}}, {"text", commandLine}});
      }
      const fs::path source = dir_ / "host.json";
      std::ofstream(source) << doc;
      const fs::path packed = dir_ / "host.zifc";
      const ToolRun pack = RunTool(zifcache_, {"pack", source.string(), packed.string()}, dir_);
      EXPECT_EQ(pack.status, 0) << pack.err;
      return packed.string();
   }

   ToolRun Pkill(const std::string &host, std::vector<std::string> args) {
      args.insert(args.begin(), "pkill");
      return RunTool(zlcziftools_, args, dir_, InSimulator(host));
   }

   // The signal that ended the child, 0 while it lives on (after a grace
   // period for the signal to arrive).
   int EndingSignal(pid_t child) {
      for (int attempt = 0; attempt < 50; ++attempt) {
         int status = 0;
         if (waitpid(child, &status, WNOHANG) == child) {
            std::erase(children_, child);
            return WIFSIGNALED(status) ? WTERMSIG(status) : -1;
         }
         std::this_thread::sleep_for(std::chrono::milliseconds(10));
      }
      return 0;
   }

   fs::path zlcziftools_;
   fs::path zifcache_;
   fs::path dir_;
   std::vector<pid_t> children_;
};

TEST_F(PkillLive, SignalsTheMatchingCartelsOnly) {
   const pid_t doomed1 = StartSleeper();
   const pid_t spared = StartSleeper();
   const pid_t doomed2 = StartSleeper();
   const std::string host =
         Host({{doomed1, "doomed", "/bin/sleep 300"}, {spared, "spared", "/bin/sleep 300"}, {doomed2, "doomed", "x"}});
   EXPECT_EQ(Pkill(host, {"^doomed$"}), (ToolRun{0, "", ""}));
   EXPECT_EQ(EndingSignal(doomed1), SIGTERM);
   EXPECT_EQ(EndingSignal(doomed2), SIGTERM);
   EXPECT_EQ(EndingSignal(spared), 0);
}

TEST_F(PkillLive, SignalByNameOrNumberAndMatchOnCommandLines) {
   const pid_t first = StartSleeper();
   const pid_t second = StartSleeper();
   const pid_t third = StartSleeper();
   const std::string host = Host({{first, "a", "/usr/bin/job --mode=batch"},
                                  {second, "b", "/usr/bin/job --mode=live"},
                                  {third, "batch", "/usr/bin/other"}});
   EXPECT_EQ(Pkill(host, {"-KILL", "-f", "mode=batch"}), (ToolRun{0, "", ""}));
   EXPECT_EQ(EndingSignal(first), SIGKILL);
   EXPECT_EQ(EndingSignal(third), 0);

   EXPECT_EQ(Pkill(host, {"-1", "live", "^b$"}), (ToolRun{0, "", ""}));
   EXPECT_EQ(EndingSignal(second), SIGHUP);
   EXPECT_EQ(EndingSignal(third), 0);
}

// Root may signal any process, so as root the command runs as nobody.
TEST_F(PkillLive, RefusedKillEndsAtOnceWithBothMessages) {
   const pid_t later = StartSleeper();
   const std::string host = Host({{1, "init", "/sbin/init"}, {later, "init", "x"}});
   ToolRun run;
   if (geteuid() == 0) {
      for (fs::path p = zlcziftools_.parent_path(); p != p.root_path(); p = p.parent_path()) {
         if ((fs::status(p).permissions() & fs::perms::others_exec) == fs::perms::none) {
            GTEST_SKIP() << "nobody cannot reach " << zlcziftools_ << " through " << p;
         }
      }
      fs::permissions(dir_, fs::perms::others_read | fs::perms::others_exec, fs::perm_options::add);
      fs::permissions(host, fs::perms::others_read, fs::perm_options::add);
      run = RunTool("/usr/bin/setpriv",
                    {"--reuid=65534", "--regid=65534", "--clear-groups", zlcziftools_.string(), "pkill", "init"}, dir_,
                    InSimulator(host));
   } else {
      run = Pkill(host, {"init"});
   }
   EXPECT_EQ(run, (ToolRun{1, "",
                           "pkill: failed to kill init (1): Operation not permitted\npkill: " +
                                 std::string(ZLC_ReturnStatusToString(ZLC_FAILURE)) + "\n"}));
   EXPECT_EQ(EndingSignal(later), 0);
}

// By default the snapshot's IDs are not this machine's: pkill answers as if
// every signal were delivered and touches no local process.
TEST_F(PkillLive, SignalsAreSimulatedUnlessAskedForReal) {
   const pid_t local = StartSleeper();
   const std::string host = Host({{local, "sshd", "/usr/sbin/sshd"}, {2147483646, "sshd", "y"}});
   for (const char *mode : {static_cast<const char *>(nullptr), "", "REAL", "simulated"}) {
      if (mode != nullptr) {
         setenv("ZLC_SIMULATOR_SIGNALS", mode, 1);
      } else {
         unsetenv("ZLC_SIMULATOR_SIGNALS");
      }
      EXPECT_EQ(Pkill(host, {"-KILL", "sshd"}), (ToolRun{0, "", ""})) << (mode ? mode : "unset");
      EXPECT_EQ(EndingSignal(local), 0) << (mode ? mode : "unset");
   }
   setenv("ZLC_SIMULATOR_SIGNALS", "real", 1);
   EXPECT_EQ(Pkill(host, {"-f", "sbin/sshd"}), (ToolRun{0, "", ""}));
   EXPECT_EQ(EndingSignal(local), SIGTERM);
}

// The test itself is the parent of the command it starts.
TEST_F(PkillLive, PidofOmitsItsParentProcess) {
   const std::string host = Host({{getpid(), "runner", "/usr/bin/runner"}, {2147483646, "runner", "/opt/runner"}});
   EXPECT_EQ(RunTool(zlcziftools_, {"pidof", "-o", "%PPID", "runner"}, dir_, InSimulator(host)),
             (ToolRun{0, "2147483646 \n", ""}));
   EXPECT_EQ(RunTool(zlcziftools_, {"pidof", "runner"}, dir_, InSimulator(host)),
             (ToolRun{0, std::to_string(getpid()) + " 2147483646 \n", ""}));
}

}  // namespace
