// Reads bounded by a time limit: one that hangs is given up, and the next
// read works on a fresh helper.
#include "capture/fileio.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <cstdio>
#include <string>

using namespace capture;

TEST(BoundedReader, GivesUpOnAReadThatHangsAndGoesOn) {
   char dir[] = "/tmp/capture-fifo-XXXXXX";
   ASSERT_NE(mkdtemp(dir), nullptr);
   std::string fifo = std::string(dir) + "/fifo", file = std::string(dir) + "/file";
   ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
   FILE *f = std::fopen(file.c_str(), "w");
   ASSERT_NE(f, nullptr);
   std::fputs("abc", f);
   std::fclose(f);

   BoundedReader reader(std::chrono::milliseconds(50));
   // Opening a FIFO without a writer blocks, as a read of a stuck process's
   // command line does.
   auto hung = reader.Read(fifo, 100);
   EXPECT_TRUE(hung.timedOut);
   EXPECT_FALSE(hung.text);
   EXPECT_EQ(reader.Abandoned(), 1u);
   auto next = reader.Read(file, 100);
   EXPECT_FALSE(next.timedOut);
   EXPECT_EQ(next.text, "abc");
   auto missing = reader.Read(std::string(dir) + "/none", 100);
   EXPECT_FALSE(missing.timedOut);
   EXPECT_FALSE(missing.text);

   // Let the abandoned helper finish.
   int w = open(fifo.c_str(), O_WRONLY | O_NONBLOCK);
   if (w >= 0) {
      close(w);
   }
   unlink(fifo.c_str());
   unlink(file.c_str());
   rmdir(dir);
}

TEST(ListNumericDir, NumbersInNumericOrderOnly) {
   char dir[] = "/tmp/capture-dir-XXXXXX";
   ASSERT_NE(mkdtemp(dir), nullptr);
   for (const char *name : {"10", "9", "0", "self", "12a", "2147483648"}) {
      ASSERT_EQ(mkdir((std::string(dir) + "/" + name).c_str(), 0700), 0);
   }
   EXPECT_EQ(ListNumericDir(dir), (std::vector<int>{0, 9, 10}));
   EXPECT_TRUE(ListNumericDir(std::string(dir) + "/none").empty());
   for (const char *name : {"10", "9", "0", "self", "12a", "2147483648"}) {
      rmdir((std::string(dir) + "/" + name).c_str());
   }
   rmdir(dir);
}
