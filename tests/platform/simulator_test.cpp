// The simulator: a snapshot acting as the live kernel that keeps the clock
// and group allocation writes for the next process, one writer at a time.
#include "testutil.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <functional>
#include <set>
#include <thread>

using namespace ziftest;

namespace {

constexpr const char *kKernel = R"({
  "simulator": {"rootDevice": 5},
  "meta": {"host": "sim", "notes": ["kept across writes"]},
  "lists": [{"node": "world", "instances": [1]}],
  "records": [
    {"node": "hardware_chipset_rtc", "fields": {"hour": 1, "minute": 2, "second": 3, "day": 4, "month": 5, "year": 2020}},
    {"node": "sched_groups_memAllocationInMB", "keys": [7], "hex": "01000000 00000000 02000000 00000000 ffffffff"}
  ],
  "sets": [{"node": "sched_groups_memAllocationInMB", "input": ["min=666", "max=666"], "status": "0xbad0017"}]
})";

class SimulatorTest : public SourceTest {
protected:
   std::string start(const std::string &json = kKernel) {
      std::string path = dir.file("kernel.zifc");
      writeBytes(path, zif::packJson(json));
      restart(path);
      return path;
   }
   // What a new process does: pick the simulator from the environment.
   void restart(const std::string &path) {
      zif::resetSource();
      setenv("ZLC_SIMULATOR", path.c_str(), 1);
      EXPECT_EQ(HostType_OSIsSimulator(), 1);
      ZlcSyscall_Init(1, 0, 0);
   }
   static ZLC_ReturnStatus setClock(std::initializer_list<int32_t> values) {
      ZIF_ParamList *in = ZIF_ParamListCreate(0, 6);
      for (int32_t v : values) {
         ZIF_ParamListAddInt(in, static_cast<int64_t>(static_cast<uint32_t>(v)));
      }
      ZLC_ReturnStatus s = ZIF_Set(ZIF_NODE_hardware_chipset_rtc.number, nullptr, in, nullptr, 0);
      ZIF_ParamListDestroy(in);
      return s;
   }
   static ZLC_ReturnStatus setGroup(int64_t group, std::initializer_list<const char *> settings) {
      ZIF_ParamList *q = ZIF_ParamListCreate(1, 1);
      ZIF_ParamListAddInt(q, group);
      ZIF_ParamList *in = ZIF_ParamListCreate(0, 2);
      for (const char *s : settings) {
         ZIF_ParamListAddString(in, s);
      }
      ZLC_ReturnStatus s = ZIF_Set(ZIF_NODE_sched_groups_memAllocationInMB.number, q, in, nullptr, 0);
      ZIF_ParamListDestroy(in);
      ZIF_ParamListDestroy(q);
      return s;
   }
   static std::vector<int64_t> group(int64_t id, size_t words) {
      ZIF_ParamList *q = ZIF_ParamListCreate(1, 1);
      ZIF_ParamListAddInt(q, id);
      std::vector<int64_t> rec(words, -99);
      ZLC_ReturnStatus s =
            ZIF_Get(ZIF_NODE_sched_groups_memAllocationInMB.number, q, rec.data(), static_cast<uint32_t>(words * 8));
      ZIF_ParamListDestroy(q);
      return s == ZLC_OK ? rec : std::vector<int64_t>();
   }
   static std::vector<int32_t> clock() {
      std::vector<int32_t> rtc(6, -99);
      ZLC_ReturnStatus s = ZIF_Get(ZIF_NODE_hardware_chipset_rtc.number, nullptr, rtc.data(), 24);
      return s == ZLC_OK ? rtc : std::vector<int32_t>();
   }
   static std::set<std::string> filesBeside(const std::string &path) {
      std::set<std::string> names;
      for (auto &e : std::filesystem::directory_iterator(std::filesystem::path(path).parent_path())) {
         names.insert(e.path().filename().string());
      }
      return names;
   }
   // Runs body in a child process; its exit status.
   static int inChild(const std::function<int()> &body) {
      pid_t child = fork();
      if (child == 0) {
         _exit(body());
      }
      int status = -1;
      waitpid(child, &status, 0);
      return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
   }
};

}  // namespace

TEST_F(SimulatorTest, ClockWriteIsSeenNowAndByTheNextProcess) {
   std::string path = start();
   ASSERT_EQ(setClock({12, 31, 2027, 23, 59, 58}), ZLC_OK);
   int32_t rtc[8];
   ASSERT_EQ(ZIF_Get(ZIF_NODE_hardware_chipset_rtc.number, nullptr, rtc, sizeof rtc), ZLC_OK);
   EXPECT_EQ(rtc[0], 23);
   restart(path);
   std::memset(rtc, 0, sizeof rtc);
   ASSERT_EQ(ZIF_Get(ZIF_NODE_hardware_chipset_rtc.number, nullptr, rtc, sizeof rtc), ZLC_OK);
   EXPECT_EQ((std::vector<int32_t>(rtc, rtc + 6)), (std::vector<int32_t>{23, 59, 58, 31, 12, 2027}));

   // The rest of the file survives the rewrite, and no temporary is left.
   ZIF_ParamList *list = nullptr;
   EXPECT_EQ(ZIF_GetInstanceListAlloc(ZIF_NODE_world.number, nullptr, &list), ZLC_OK);
   ZIF_ParamListDestroy(list);
   uint64_t inode = 0;
   EXPECT_EQ(ZlcSim_InodeKey(5, 42, &inode), 1);
   EXPECT_EQ(inode, 42u);
   EXPECT_EQ(ZlcSim_InodeKey(1, 42, &inode), 0);
   EXPECT_EQ(filesBeside(path), (std::set<std::string>{"kernel.zifc", "kernel.zifc.lock"}));

   EXPECT_EQ(setClock({1, 2, 3}), ZLC_BAD_PARAM);
}

TEST_F(SimulatorTest, ReadsAfterAWriteSeeTheRewrittenFile) {
   // No clock record at first: the write creates it, and the process that
   // wrote reads it at once, as it does the records it read before.
   start(R"({"records": [{"node": "sched_groups_memAllocationInMB", "keys": [7], "hex": "05000000"}]})");
   EXPECT_EQ(clock(), std::vector<int32_t>());
   EXPECT_EQ(group(7, 1), std::vector<int64_t>{5});
   ASSERT_EQ(setClock({12, 31, 2027, 23, 59, 58}), ZLC_OK);
   EXPECT_EQ(clock(), (std::vector<int32_t>{23, 59, 58, 31, 12, 2027}));
   ASSERT_EQ(setGroup(7, {"min=100"}), ZLC_OK);
   EXPECT_EQ(group(7, 1), std::vector<int64_t>{100});
}

TEST_F(SimulatorTest, GroupAllocationWriteKeepsOtherBytesAndCreatesMissingGroups) {
   std::string path = start();
   ASSERT_EQ(setGroup(7, {"min=100", "max=200"}), ZLC_OK);
   ASSERT_EQ(setGroup(9, {"max=-1"}), ZLC_OK);
   restart(path);
   auto g7 = group(7, 3);
   ASSERT_EQ(g7.size(), 3u);
   EXPECT_EQ(g7[0], 100);
   EXPECT_EQ(g7[1], 200);
   EXPECT_EQ(g7[2] & 0xffffffff, 0xffffffff);
   auto g9 = group(9, 2);
   ASSERT_EQ(g9.size(), 2u);
   EXPECT_EQ(g9[0], 0);
   EXPECT_EQ(g9[1], -1);

   // Stored answers come first: an injected failure changes nothing.
   EXPECT_EQ(setGroup(7, {"min=666", "max=666"}), ZLC_LIMIT_EXCEEDED);
   EXPECT_EQ(group(7, 1)[0], 100);
   EXPECT_EQ(setGroup(7, {"size=1"}), ZLC_BAD_PARAM);
   EXPECT_EQ(ZIF_Set(ZIF_NODE_system_bootOption.number, nullptr, nullptr, nullptr, 0), ZLC_NOT_SUPPORTED);
}

TEST_F(SimulatorTest, UnusableSimulatorFileFailsEveryOperationWithOneMessage) {
   testing::internal::CaptureStderr();
   restart(dir.file("nothing-here.zifc"));
   ZlcSyscall_Init(1, 0, 0);  // a second call does not try again
   std::string err = testing::internal::GetCapturedStderr();
   EXPECT_EQ(err, "zellibs: simulator snapshot " + dir.file("nothing-here.zifc") + ": Cannot open snapshot file\n");
   char buf[4];
   EXPECT_EQ(ZIF_Get(ZIF_NODE_world_info.number, nullptr, buf, sizeof buf), ZLC_SNAP_CANNOT_OPEN);
   EXPECT_EQ(setClock({1, 2, 3, 4, 5, 6}), ZLC_SNAP_CANNOT_OPEN);
   const char *date;
   EXPECT_EQ(ZIF_CheckSig(buf, sizeof buf, &date), 0);
}

TEST_F(SimulatorTest, CacheChosenFirstIsKeptByALaterInit) {
   std::string kernel = start();
   zif::resetSource();
   std::string snap = use(R"({"records": [{"node": "hardware_chipset_rtc", "hex": "09"}]})");
   setenv("ZLC_SIMULATOR", kernel.c_str(), 1);
   ZlcSyscall_Init(1, 0, 0);
   int32_t hour = 0;
   ASSERT_EQ(ZIF_Get(ZIF_NODE_hardware_chipset_rtc.number, nullptr, &hour, sizeof hour), ZLC_OK);
   EXPECT_EQ(hour, 9);
   EXPECT_EQ(setClock({1, 2, 3, 4, 5, 6}), ZLC_SNAP_READ_ONLY);
}

// Writers without a process start between their writes: the read, build and
// rename of one overlap another's all the time unless they take turns.
TEST_F(SimulatorTest, WritersInTightLoopsLoseNothing) {
   constexpr int kWrites = 300;
   std::string path = start();
   const std::vector<std::function<ZLC_ReturnStatus(int)>> writers = {
         [](int i) { return setGroup(7, {("min=" + std::to_string(i)).c_str()}); },
         [](int i) { return setGroup(7, {("max=" + std::to_string(i)).c_str()}); },
         [](int i) {
            return setClock({i, i, i, i, i, i});
         }};
   std::vector<pid_t> children;
   for (const auto &write : writers) {
      pid_t child = fork();
      if (child == 0) {
         restart(path);
         int failed = 0;
         for (int i = 1; i <= kWrites; i++) {
            failed += write(i) != ZLC_OK;
         }
         _exit(failed);
      }
      children.push_back(child);
   }
   for (pid_t child : children) {
      int status = -1;
      waitpid(child, &status, 0);
      EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "failed writes: " << WEXITSTATUS(status);
   }
   restart(path);
   EXPECT_EQ(group(7, 2), (std::vector<int64_t>{kWrites, kWrites}));
   EXPECT_EQ(clock(), std::vector<int32_t>(6, kWrites));
}

TEST_F(SimulatorTest, WriterWaitsOnlyBoundedForTheLockAndReadersNotAtAll) {
   std::string path = start();
   std::vector<uint8_t> before = readBytes(path);
   int holder = open((path + ".lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
   ASSERT_EQ(flock(holder, LOCK_EX), 0);
   zif::setWriterLockWait(std::chrono::milliseconds(50));
   testing::internal::CaptureStderr();
   EXPECT_EQ(setClock({1, 2, 3, 4, 5, 6}), ZLC_WRITE_FAILED);
   EXPECT_EQ(testing::internal::GetCapturedStderr(), "zellibs: simulator snapshot " + path +
                                                           ": another writer has held " + path +
                                                           ".lock for 50 ms; nothing changed\n");
   EXPECT_EQ(readBytes(path), before);
   EXPECT_EQ(clock(), (std::vector<int32_t>{1, 2, 3, 4, 5, 2020}));
   close(holder);
   zif::setWriterLockWait(zif::kWriterLockWait);
   EXPECT_EQ(setClock({1, 2, 3, 4, 5, 6}), ZLC_OK);
}

// A writer killed at any moment leaves a whole file, old or new, and its lock
// goes with it.
TEST_F(SimulatorTest, KilledWriterLeavesAWholeFileAndNoLock) {
   std::string path = start();
   ASSERT_EQ(setClock({9, 9, 9, 9, 9, 9}), ZLC_OK);
   for (int delay : {1, 3, 7, 15, 30}) {
      pid_t child = fork();
      if (child == 0) {
         for (int32_t i = 1;; i++) {
            setClock({i, i, i, i, i, i});
         }
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(delay));
      kill(child, SIGKILL);
      waitpid(child, nullptr, 0);
      restart(path);
      auto rtc = clock();
      ASSERT_EQ(rtc.size(), 6u);
      EXPECT_EQ(std::set<int32_t>(rtc.begin() + 1, rtc.end()), std::set<int32_t>{rtc[0]}) << "torn after " << delay;
      zif::setWriterLockWait(std::chrono::milliseconds(0));
      EXPECT_EQ(setGroup(7, {"min=1"}), ZLC_OK);
      zif::setWriterLockWait(zif::kWriterLockWait);
   }
}

// A write that fails part way (a file size limit stands in for a full disk)
// leaves the old file and no temporary.
TEST_F(SimulatorTest, FailedSaveLeavesTheOldFile) {
   std::string path = start();
   std::vector<uint8_t> before = readBytes(path);
   ASSERT_GT(before.size(), 256u);
   EXPECT_EQ(inChild([] {
                rlimit limit{256, 256};
                signal(SIGXFSZ, SIG_IGN);
                setrlimit(RLIMIT_FSIZE, &limit);
                return setClock({1, 2, 3, 4, 5, 6}) == ZLC_WRITE_FAILED ? 0 : 1;
             }),
             0);
   EXPECT_EQ(readBytes(path), before);
   EXPECT_EQ(filesBeside(path), (std::set<std::string>{"kernel.zifc", "kernel.zifc.lock"}));
}
