// zifcache end to end: pack, dump and check as the other tests' scripts use them.
#include "testutil.h"

#include <sys/wait.h>
#include <cstdio>

using namespace ziftest;

namespace {

struct Outcome {
   int status;
   std::string output;  // standard output and standard error
};

Outcome zifcache(const std::string &args) {
   std::string command = std::string(ZIFCACHE_PATH) + " " + args + " 2>&1";
   Outcome run{-1, {}};
   FILE *p = popen(command.c_str(), "r");
   if (!p) {
      return run;
   }
   char buf[4096];
   size_t n;
   while ((n = fread(buf, 1, sizeof buf, p)) > 0) {
      run.output.append(buf, n);
   }
   int st = pclose(p);
   run.status = WIFEXITED(st) ? WEXITSTATUS(st) : -1;
   return run;
}

void writeText(const std::string &path, const std::string &text) {
   writeBytes(path, std::vector<uint8_t>(text.begin(), text.end()));
}

constexpr const char *kHost = R"({"zifcache": 1,
  "meta": {"host": "esx1", "captured": "2026-11-22T10:00:00Z", "by": "test"},
  "lists": [{"node": "world", "instances": [1, 2]}],
  "records": [{"node": "world_name", "keys": [1], "text": "idle"},
              {"node": "hardware_chipset_rtc", "fields": {"hour": 3}}]})";
constexpr const char *kMore = R"({"meta": {"host": "ignored"},
  "data": [{"node": "system_bootOptionFiles_content", "keys": ["boot.cfg"], "text": "kernel=k\n"}],
  "sets": [{"node": "sched_groupPathNameToID", "input": ["host"], "hex": "0100000000000000"}]})";

}  // namespace

TEST(Zifcache, PackDumpPackCheck) {
   TempDir dir;
   writeText(dir.file("a.json"), kHost);
   writeText(dir.file("b.json"), kMore);
   Outcome pack = zifcache("pack " + dir.file("a.json") + " " + dir.file("b.json") + " " + dir.file("one.zifc"));
   ASSERT_EQ(pack.status, 0) << pack.output;

   Outcome dump = zifcache("dump " + dir.file("one.zifc"));
   ASSERT_EQ(dump.status, 0) << dump.output;
   EXPECT_NE(dump.output.find("\"host\":\"esx1\""), std::string::npos) << dump.output;
   EXPECT_NE(dump.output.find("{\"node\":\"world_name\",\"keys\":[1],\"fields\":{\"name\":\"idle\"}}"),
             std::string::npos);
   writeText(dir.file("dump.json"), dump.output);
   ASSERT_EQ(zifcache("pack " + dir.file("dump.json") + " " + dir.file("two.zifc")).status, 0);
   EXPECT_EQ(readBytes(dir.file("one.zifc")), readBytes(dir.file("two.zifc")));

   Outcome check = zifcache("check " + dir.file("one.zifc"));
   EXPECT_EQ(check.status, 0);
   EXPECT_NE(check.output.find("1 lists, 2 records, 1 data, 0 devinfo, 1 sets"), std::string::npos) << check.output;
   EXPECT_NE(check.output.find("on esx1 by test"), std::string::npos) << check.output;
}

TEST(Zifcache, RefusedPackLeavesTheOutputAlone) {
   TempDir dir;
   writeText(dir.file("bad.json"),
             R"({"records": [{"node": "world_name", "text": "a"}, {"node": "wrld_info", "hex": ""}]})");
   writeText(dir.file("out.zifc"), "previous");
   Outcome pack = zifcache("pack " + dir.file("bad.json") + " " + dir.file("out.zifc"));
   EXPECT_EQ(pack.status, 1);
   EXPECT_NE(pack.output.find("records[1]: unknown node \"wrld_info\""), std::string::npos) << pack.output;
   EXPECT_EQ(readBytes(dir.file("out.zifc")), (std::vector<uint8_t>{'p', 'r', 'e', 'v', 'i', 'o', 'u', 's'}));

   Outcome missing = zifcache("pack " + dir.file("none.json") + " " + dir.file("new.zifc"));
   EXPECT_EQ(missing.status, 1);
   EXPECT_FALSE(std::filesystem::exists(dir.file("new.zifc")));
}

TEST(Zifcache, CheckNamesTheDamageAndWhereItIs) {
   TempDir dir;
   std::vector<uint8_t> good = zif::packJson(kHost);

   std::vector<uint8_t> cut(good.begin(), good.end() - 5);
   writeBytes(dir.file("cut.zifc"), cut);
   Outcome truncated = zifcache("check " + dir.file("cut.zifc"));
   EXPECT_EQ(truncated.status, 1);
   EXPECT_NE(truncated.output.find("truncated"), std::string::npos) << truncated.output;
   EXPECT_NE(truncated.output.find("offset " + std::to_string(cut.size())), std::string::npos) << truncated.output;

   // The data section comes last; its last bytes belong to the last record.
   std::vector<uint8_t> bad = good;
   bad[bad.size() - 1] ^= 0x40;
   writeBytes(dir.file("bad.zifc"), bad);
   Outcome damaged = zifcache("check " + dir.file("bad.zifc"));
   EXPECT_EQ(damaged.status, 1);
   EXPECT_NE(damaged.output.find("checksum mismatch"), std::string::npos) << damaged.output;
   EXPECT_NE(damaged.output.find("world_name [1]"), std::string::npos) << damaged.output;
   EXPECT_EQ(zifcache("dump " + dir.file("bad.zifc")).status, 1);

   Outcome notSnapshot = zifcache("check " + dir.file("cut.zifc") + "x");
   EXPECT_EQ(notSnapshot.status, 1);
}
