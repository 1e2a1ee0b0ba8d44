// The simulator: a snapshot acting as the live kernel that keeps the clock
// and group allocation writes for the next process.
#include "testutil.h"

#include <cstring>
#include <filesystem>

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
   size_t files = 0;
   for (auto &e : std::filesystem::directory_iterator(std::filesystem::path(path).parent_path())) {
      (void)e;
      files++;
   }
   EXPECT_EQ(files, 1u);

   EXPECT_EQ(setClock({1, 2, 3}), ZLC_BAD_PARAM);
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
