// The C API against snapshots: lists, records, data, sets, devinfo, injected
// failures, signatures, and the small helpers.
#include "testutil.h"
#include "zifformat/layouts.h"

#include <cstring>
#include <string>
#include <vector>

using namespace ziftest;

namespace {

constexpr const char *kSnapshot = R"({
  "zifcache": 1,
  "lists": [
    {"node": "world", "instances": [1, 2, 1001]},
    {"node": "system_zelorfs_tardisks", "instances": ["s.v00", "b.b00"]},
    {"node": "hardware_pci_seg_bus", "parent": [0], "instances": [0, 3]},
    {"node": "system_modules", "instances": [null]},
    {"node": "userworld_cartel", "status": "0xbad0014"},
    {"node": "system_bootOptionFiles", "instances": []}
  ],
  "records": [
    {"node": "world_name", "keys": [1001], "text": "init"},
    {"node": "system_zelorfs_tardisks_stats", "keys": ["s.v00"], "hex": "01020304 05"},
    {"node": "hardware_chipset_rtc", "fields": {"hour": 23, "minute": 59, "second": 58, "day": 31, "month": 12, "year": 2026}},
    {"node": "userworld_cartel_cmdline", "keys": [9], "status": 195887202},
    {"node": "hardware_pci_seg_bus_slot_func_pciConfigHeader", "keys": [0, 3, 0, 1], "hex": "8680"}
  ],
  "data": [
    {"node": "system_bootOptionFiles_content", "keys": ["boot.cfg"], "text": "0123456789"},
    {"node": "system_bootOptionFiles_content", "keys": ["bad.cfg"], "status": "0xbad0017"}
  ],
  "devinfo": [
    {"function": [0, 0, 3, 0], "hex": "aabb"},
    {"function": [0, 0, 4, 0], "status": "0xbad0001"}
  ],
  "sets": [
    {"node": "sched_groupPathNameToID", "input": ["host/user"], "hex": "2a00000000000000"},
    {"node": "sched_groupPathNameToID", "input": ["host/missing"], "status": "0xbad0062"},
    {"node": "hardware_chipset_rtc", "status": "0xbad0094"}
  ]
})";

ZIF_NodeNumber num(const ZIF_NodeObject &n) {
   return n.number;
}

uint32_t paramType(ZIF_Param *p) {
   uint32_t t;
   std::memcpy(&t, reinterpret_cast<const char *>(p) + ZIF_PARAM_TYPE_OFFSET, sizeof t);
   return t;
}

}  // namespace

TEST(ParamList, GrowsPastCapacityAndKeepsOrderAndTypes) {
   ZIF_ParamList *l = ZIF_ParamListCreate(1, 1);
   ASSERT_NE(l, nullptr);
   EXPECT_EQ(ZIF_ParamListAddInt(l, 0), ZLC_OK);
   EXPECT_EQ(ZIF_ParamListAddInt(l, -5), ZLC_OK);
   EXPECT_EQ(ZIF_ParamListAddString(l, "abc"), ZLC_OK);
   EXPECT_EQ(ZIF_ParamListAddInt(l, INT64_MAX), ZLC_OK);
   ZIF_Param *first = ZIF_ParamListGetParam(l, 0);
   for (int i = 0; i < 100; i++) {
      ZIF_ParamListAddInt(l, i);
   }
   EXPECT_EQ(ZIF_ParamListGetParam(l, 0), first) << "parameters must not move as the list grows";
   for (int i = 0; i < 100; i++) {
      ZIF_ParamListRemoveLastParam(l);
   }
   EXPECT_EQ(ZIF_ParamListUsedCount(l), 4);
   EXPECT_EQ(ZIF_ParamListNumInstances(l), 4u);

   EXPECT_EQ(paramType(ZIF_ParamListGetParam(l, 1)), ZIF_PARAM_TYPE_INT);
   EXPECT_EQ(paramType(ZIF_ParamListGetParam(l, 2)), ZIF_PARAM_TYPE_STRING);
   EXPECT_EQ(ZIF_ParamGetInt(ZIF_ParamListGetParam(l, 1)), -5);
   EXPECT_STREQ(ZIF_ParamGetString(ZIF_ParamListGetParam(l, 2)), "abc");

   int32_t i32;
   uint64_t u64;
   const char *text;
   EXPECT_EQ(ZIF_ParamListGetInt32(l, 1, &i32), ZLC_OK);
   EXPECT_EQ(i32, -5);
   EXPECT_EQ(ZIF_ParamListGetUInt64(l, 3, &u64), ZLC_OK);
   EXPECT_EQ(u64, uint64_t{INT64_MAX});
   EXPECT_EQ(ZIF_ParamListGetString(l, 2, &text), ZLC_OK);
   EXPECT_STREQ(text, "abc");

   // Bad index and wrong type.
   EXPECT_EQ(ZIF_ParamListGetParam(l, 4), nullptr);
   EXPECT_EQ(ZIF_ParamListGetParam(l, -1), nullptr);
   EXPECT_NE(ZIF_ParamListGetInt32(l, 2, &i32), ZLC_OK);
   EXPECT_NE(ZIF_ParamListGetUInt64(l, 9, &u64), ZLC_OK);
   EXPECT_NE(ZIF_ParamListGetString(l, 0, &text), ZLC_OK);

   ZIF_ParamListRemoveLastParam(l);
   ZIF_ParamListRemoveLastParam(l);
   ZIF_ParamListRemoveLastParam(l);
   ZIF_ParamListRemoveLastParam(l);
   ZIF_ParamListRemoveLastParam(l);  // on an empty list: nothing happens
   EXPECT_EQ(ZIF_ParamListUsedCount(l), 0);
   ZIF_ParamListDestroy(l);
   ZIF_ParamListDestroy(nullptr);
}

TEST(Helpers, TrimStatusTextsAndStateTables) {
   for (auto [in, out] : {std::pair{"  a b \t\n", "a b"}, {"", ""}, {" \t ", ""}, {"x", "x"}}) {
      char *t = StrUtil_TrimWhitespace(in);
      EXPECT_STREQ(t, out);
      free(t);
   }
   EXPECT_STREQ(ZLC_ReturnStatusToString(ZLC_NOT_FOUND), "Not found");
   EXPECT_STREQ(ZLC_ReturnStatusToString(0x12345), "Unknown status");
   for (ZLC_ReturnStatus s = ZLC_SNAP_NOT_A_SNAPSHOT; s <= ZLC_WRITE_FAILED; s++) {
      EXPECT_STRNE(ZLC_ReturnStatusToString(s), "Unknown status") << std::hex << s;
   }
   // The state tables keep the library's element layout: the name at 16 of 24 bytes.
   for (uint32_t i = 0; i < CpuSched_NumWaitStates; i++) {
      EXPECT_NE(*reinterpret_cast<const char *const *>(reinterpret_cast<const char *>(CpuSched_WaitStateElements) +
                                                       24 * i + 16),
                nullptr);
   }
}

TEST_F(SourceTest, NoSourceAnswersNoSource) {
   char buf[8];
   ListOwner list;
   EXPECT_EQ(ZIF_Get(num(ZIF_NODE_world_info), nullptr, buf, sizeof buf), ZLC_NO_SOURCE);
   EXPECT_EQ(ZIF_GetInstanceListAlloc(num(ZIF_NODE_world), nullptr, &list.list), ZLC_NO_SOURCE);
   ZlcSyscall_Init(1, 0, 0);  // off the host and without a simulator there is still none
   EXPECT_EQ(ZIF_Get(num(ZIF_NODE_world_info), nullptr, buf, sizeof buf), ZLC_NO_SOURCE);
   EXPECT_EQ(HostType_OSIsZLC(), 0);
   EXPECT_EQ(HostType_OSIsSimulator(), 0);
   const char *date = nullptr;
   EXPECT_EQ(ZIF_CheckSig(buf, sizeof buf, &date), 0);
   EXPECT_EQ(ZlcSim_InodeKey(1, 42, nullptr), 0);
}

TEST_F(SourceTest, InstanceListsKeepOrderAndKeyTypes) {
   use(kSnapshot);
   ListOwner worlds, disks, buses, mods, empty, cartels;
   ASSERT_EQ(ZIF_GetInstanceListAlloc(num(ZIF_NODE_world), nullptr, &worlds.list), ZLC_OK);
   ASSERT_EQ(ZIF_ParamListUsedCount(worlds.list), 3);
   EXPECT_EQ(ZIF_ParamGetInt(ZIF_ParamListGetParam(worlds.list, 2)), 1001);

   ASSERT_EQ(ZIF_GetInstanceListAllocHint(num(ZIF_NODE_system_zelorfs_tardisks), nullptr, 0, &disks.list), ZLC_OK);
   const char *name;
   ASSERT_EQ(ZIF_ParamListGetString(disks.list, 1, &name), ZLC_OK);
   EXPECT_STREQ(name, "b.b00");
   // An instance list changes like any other list: its last keys go, new ones come.
   const int disksHeld = ZIF_ParamListUsedCount(disks.list);
   ZIF_ParamListRemoveLastParam(disks.list);
   ZIF_ParamListRemoveLastParam(disks.list);
   ASSERT_EQ(ZIF_ParamListAddString(disks.list, "c.c00"), ZLC_OK);
   ASSERT_EQ(ZIF_ParamListGetString(disks.list, disksHeld - 2, &name), ZLC_OK);
   EXPECT_STREQ(name, "c.c00");

   // A nested level is addressed by the parent's keys; an empty parent list
   // equals none.
   ZIF_ParamList *parent = ZIF_ParamListCreate(1, 1);
   ZIF_ParamListAddInt(parent, 0);
   EXPECT_EQ(ZIF_GetInstanceListAlloc(num(ZIF_NODE_hardware_pci_seg_bus), parent, &buses.list), ZLC_OK);
   EXPECT_EQ(ZIF_ParamListUsedCount(buses.list), 2);
   ZIF_ParamListRemoveLastParam(parent);
   EXPECT_EQ(ZIF_GetInstanceListAlloc(num(ZIF_NODE_system_bootOptionFiles), parent, &empty.list), ZLC_OK);
   EXPECT_EQ(ZIF_ParamListUsedCount(empty.list), 0);
   ZIF_ParamListDestroy(parent);

   ASSERT_EQ(ZIF_GetInstanceListAlloc(num(ZIF_NODE_system_modules), nullptr, &mods.list), ZLC_OK);
   EXPECT_EQ(paramType(ZIF_ParamListGetParam(mods.list, 0)), 3u);

   EXPECT_EQ(ZIF_GetInstanceListAlloc(num(ZIF_NODE_userworld_cartel), nullptr, &cartels.list), ZLC_NO_MEMORY);
   EXPECT_EQ(cartels.list, nullptr);
   ListOwner absent;
   EXPECT_EQ(ZIF_GetInstanceListAlloc(num(ZIF_NODE_hardware_pci_seg), nullptr, &absent.list), ZLC_NO_SUCH_NODE);
}

// Destroyed lists are kept for reuse: whatever a list held before, a new one
// starts empty and an instance list holds exactly its own keys.
TEST_F(SourceTest, ListsMadeAfterOthersWereDestroyedStartAfresh) {
   use(kSnapshot);
   for (int round = 0; round < 3; ++round) {
      std::vector<ZIF_ParamList *> made;
      for (int i = 0; i < 12; ++i) {  // more than are kept
         ZIF_ParamList *l = ZIF_ParamListCreate(1, 1);
         ASSERT_NE(l, nullptr);
         EXPECT_EQ(ZIF_ParamListUsedCount(l), 0);
         ASSERT_EQ(ZIF_ParamListAddString(l, "left-over"), ZLC_OK);
         ASSERT_EQ(ZIF_ParamListAddInt(l, i), ZLC_OK);
         made.push_back(l);
      }
      for (ZIF_ParamList *l : made) {
         ZIF_ParamListDestroy(l);
      }
      ZIF_ParamList *disks = nullptr, *worlds = nullptr;
      const char *name = nullptr;
      ASSERT_EQ(ZIF_GetInstanceListAlloc(num(ZIF_NODE_system_zelorfs_tardisks), nullptr, &disks), ZLC_OK);
      ASSERT_EQ(ZIF_ParamListGetString(disks, 1, &name), ZLC_OK);
      EXPECT_STREQ(name, "b.b00");
      ZIF_ParamListDestroy(disks);
      ASSERT_EQ(ZIF_GetInstanceListAlloc(num(ZIF_NODE_world), nullptr, &worlds), ZLC_OK);
      ASSERT_EQ(ZIF_ParamListUsedCount(worlds), 3);
      EXPECT_EQ(paramType(ZIF_ParamListGetParam(worlds, 0)), ZIF_PARAM_TYPE_INT);
      EXPECT_EQ(ZIF_ParamGetInt(ZIF_ParamListGetParam(worlds, 2)), 1001);
      ASSERT_EQ(ZIF_ParamListAddString(worlds, "added"), ZLC_OK);
      ASSERT_EQ(ZIF_ParamListGetString(worlds, 3, &name), ZLC_OK);
      EXPECT_STREQ(name, "added");
      ZIF_ParamListDestroy(worlds);
   }
}

TEST_F(SourceTest, RecordsAreCutOrZeroFilledToTheReadLength) {
   use(kSnapshot);
   ZIF_ParamList *q = ZIF_ParamListCreate(1, 1);
   ZIF_ParamListAddInt(q, 1001);
   char name[16];
   std::memset(name, 'x', sizeof name);
   ASSERT_EQ(ZIF_Get(num(ZIF_NODE_world_name), q, name, sizeof name), ZLC_OK);
   EXPECT_EQ(std::string(name, sizeof name), std::string("init") + std::string(12, '\0'));
   char two[2];
   ASSERT_EQ(ZIF_Get(num(ZIF_NODE_world_name), q, two, sizeof two), ZLC_OK);
   EXPECT_EQ(std::string(two, 2), "in");
   // A buffer far longer than the record is zeroed to its end, in whatever
   // pieces the library fills it.
   std::vector<char> wide(10000, 'x');
   ASSERT_EQ(ZIF_Get(num(ZIF_NODE_world_name), q, wide.data(), static_cast<uint32_t>(wide.size())), ZLC_OK);
   EXPECT_EQ(std::string(wide.data(), wide.size()), std::string("init") + std::string(wide.size() - 4, '\0'));

   // Same key, other node; same node, other key.
   EXPECT_EQ(ZIF_Get(num(ZIF_NODE_world_info), q, name, sizeof name), ZLC_NO_SUCH_NODE);
   ZIF_ParamListRemoveLastParam(q);
   ZIF_ParamListAddInt(q, 1002);
   EXPECT_EQ(ZIF_Get(num(ZIF_NODE_world_name), q, name, sizeof name), ZLC_NO_SUCH_NODE);
   ZIF_ParamListRemoveLastParam(q);

   // A text key and an integer key that look alike do not match.
   ZIF_ParamListAddString(q, "s.v00");
   unsigned char stats[8];
   ASSERT_EQ(ZIF_Get(num(ZIF_NODE_system_zelorfs_tardisks_stats), q, stats, sizeof stats), ZLC_OK);
   EXPECT_EQ(stats[4], 5);
   EXPECT_EQ(stats[5], 0);
   ZIF_ParamListRemoveLastParam(q);

   // Four keys, as a PCI function is addressed.
   for (int k : {0, 3, 0, 1}) {
      ZIF_ParamListAddInt(q, k);
   }
   uint16_t vendor = 0;
   ASSERT_EQ(ZIF_Get(num(ZIF_NODE_hardware_pci_seg_bus_slot_func_pciConfigHeader), q, &vendor, 2), ZLC_OK);
   EXPECT_EQ(vendor, 0x8086);
   ZIF_ParamListDestroy(q);

   int32_t rtc[8];
   ASSERT_EQ(ZIF_Get(num(ZIF_NODE_hardware_chipset_rtc), nullptr, rtc, sizeof rtc), ZLC_OK);
   EXPECT_EQ(rtc[0], 23);
   EXPECT_EQ(rtc[5], 2026);

   ZIF_ParamList *cartel = ZIF_ParamListCreate(1, 1);
   ZIF_ParamListAddInt(cartel, 9);
   EXPECT_EQ(ZIF_Get(num(ZIF_NODE_userworld_cartel_cmdline), cartel, name, sizeof name), ZLC_NOT_FOUND);
   ZIF_ParamListDestroy(cartel);
}

TEST_F(SourceTest, DataIsDeliveredInPieces) {
   use(kSnapshot);
   ZIF_ParamList *q = ZIF_ParamListCreate(1, 1);
   ZIF_ParamListAddString(q, "boot.cfg");
   uint32_t length = 0;
   ASSERT_EQ(ZIF_GetDataLength(num(ZIF_NODE_system_bootOptionFiles_content), q, &length), ZLC_OK);
   EXPECT_EQ(length, 10u);

   std::string got;
   for (uint32_t offset = 0; offset < length;) {
      uint32_t request[2] = {offset, 4};
      ZIFData *in = ZIFData_Create(8, request, 8);
      ZIFData *out = ZIFData_Create(3, nullptr, 0);  // smaller than the request: the size limits
      ASSERT_EQ(ZIF_SetData(num(ZIF_NODE_system_bootOptionFiles_content), q, in, out), ZLC_OK);
      ASSERT_GT(out->length, 0u);
      got.append(static_cast<char *>(ZIFData_GetData(out)), out->length);
      offset += out->length;
      ZIFData_Destroy(in);
      ZIFData_Destroy(out);
   }
   EXPECT_EQ(got, "0123456789");

   uint32_t past[2] = {20, 4};
   ZIFData *in = ZIFData_Create(8, past, 8);
   ZIFData *out = ZIFData_Create(16, nullptr, 0);
   EXPECT_EQ(ZIF_SetData(num(ZIF_NODE_system_bootOptionFiles_content), q, in, out), ZLC_OK);
   EXPECT_EQ(out->length, 0u);
   ZIF_ParamListRemoveLastParam(q);
   ZIF_ParamListAddString(q, "bad.cfg");
   EXPECT_EQ(ZIF_GetDataLength(num(ZIF_NODE_system_bootOptionFiles_content), q, &length), ZLC_LIMIT_EXCEEDED);
   EXPECT_EQ(ZIF_SetData(num(ZIF_NODE_system_bootOptionFiles_content), q, in, out), ZLC_LIMIT_EXCEEDED);
   ZIFData_Destroy(in);
   ZIFData_Destroy(out);
   ZIF_ParamListDestroy(q);
}

TEST_F(SourceTest, SetsAnswerFromStoredLookupsElseReadOnly) {
   use(kSnapshot);
   ZIF_ParamList *in = ZIF_ParamListCreate(0, 1);
   ZIF_ParamListAddString(in, "host/user");
   int64_t id = -1;
   ASSERT_EQ(ZIF_Set(num(ZIF_NODE_sched_groupPathNameToID), nullptr, in, &id, sizeof id), ZLC_OK);
   EXPECT_EQ(id, 42);
   ZIF_ParamListRemoveLastParam(in);
   ZIF_ParamListAddString(in, "host/missing");
   EXPECT_EQ(ZIF_Set(num(ZIF_NODE_sched_groupPathNameToID), nullptr, in, &id, sizeof id), ZLC_NOT_FOUND);
   ZIF_ParamListRemoveLastParam(in);
   ZIF_ParamListAddString(in, "host/other");
   EXPECT_EQ(ZIF_Set(num(ZIF_NODE_sched_groupPathNameToID), nullptr, in, &id, sizeof id), ZLC_SNAP_READ_ONLY);
   ZIF_ParamListDestroy(in);

   // An entry without input matches every set of its node.
   ZIF_ParamList *clock = ZIF_ParamListCreate(0, 6);
   for (int v : {1, 2, 2027, 3, 4, 5}) {
      ZIF_ParamListAddInt(clock, v);
   }
   EXPECT_EQ(ZIF_Set(num(ZIF_NODE_hardware_chipset_rtc), nullptr, clock, nullptr, 0), ZLC_NOT_SUPPORTED);
   ZIF_ParamListDestroy(clock);
   EXPECT_EQ(ZIF_Set(num(ZIF_NODE_sched_groups_memAllocationInMB), nullptr, nullptr, nullptr, 0), ZLC_SNAP_READ_ONLY);
}

TEST_F(SourceTest, DevInfoRepliesFromTheSnapshot) {
   use(kSnapshot);
   unsigned char reply[ZLC_DEVINFO_REPLY_SIZE];
   std::memset(reply, 0xff, sizeof reply);
   int64_t err = 7;
   ASSERT_EQ(ZlcSyscall_DevInfo(0, 0, 3, 0, reply, &err), ZLC_OK);
   EXPECT_EQ(err, 0);
   EXPECT_EQ(reply[0], 0xaa);
   EXPECT_EQ(reply[2], 0);
   EXPECT_EQ(reply[1023], 0);
   EXPECT_EQ(ZlcSyscall_DevInfo(0, 0, 4, 0, reply, &err), ZLC_FAILURE);
   EXPECT_EQ(ZlcSyscall_DevInfo(0, 0, 5, 0, reply, &err), ZLC_NO_SUCH_NODE);
}

TEST_F(SourceTest, SignatureMatchAndMismatch) {
   use(kSnapshot);
   char buf[21];
   const char *date = nullptr;
   EXPECT_EQ(ZIF_CheckSig(buf, sizeof buf, &date), 0);

   use(R"({"signature": {"digest": "0123456789abcdef", "date": "2025-01-02 03:04:05"}})", "old.zifc");
   std::memset(buf, 'x', sizeof buf);
   EXPECT_NE(ZIF_CheckSig(buf, sizeof buf, &date), 0);
   EXPECT_EQ(std::string(buf, 19), "2025-01-02 03:04:05");
   EXPECT_STREQ(date, zif::libraryBuildDate());
   EXPECT_LE(std::strlen(date), 20u);
}

TEST_F(SourceTest, UseCacheNamesWhyAFileIsRefused) {
   EXPECT_EQ(ZIF_UseCache(dir.file("missing").c_str(), 0), ZLC_SNAP_CANNOT_OPEN);
   writeBytes(dir.file("text"), {'h', 'e', 'l', 'l', 'o'});
   EXPECT_EQ(ZIF_UseCache(dir.file("text").c_str(), 0), ZLC_SNAP_NOT_A_SNAPSHOT);
   writeBytes(dir.file("empty"), {});
   EXPECT_EQ(ZIF_UseCache(dir.file("empty").c_str(), 0), ZLC_SNAP_NOT_A_SNAPSHOT);
   std::vector<uint8_t> bytes = zif::packJson("{}");
   bytes[8] = 1;  // the first format, whose integer keys sorted differently
   writeBytes(dir.file("v1"), bytes);
   EXPECT_EQ(ZIF_UseCache(dir.file("v1").c_str(), 0), ZLC_SNAP_BAD_VERSION);
   EXPECT_EQ(ZIF_UseCache(dir.file("").c_str(), 0), ZLC_SNAP_CANNOT_OPEN);  // a directory
   char buf[4];
   EXPECT_EQ(ZIF_Get(num(ZIF_NODE_world_info), nullptr, buf, sizeof buf), ZLC_NO_SOURCE);
}
