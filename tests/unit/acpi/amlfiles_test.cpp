// Naming and creating the table files of amldump.
#include "acpi/amlfiles.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

std::string Safe(const std::array<unsigned char, 4> &bytes) {
   return SafeSignature(bytes);
}

TEST(AmlFilesTest, SignaturesAreMadeSafeAsFileNames) {
   EXPECT_EQ(Safe({'D', 'S', 'D', 'T'}), "DSDT");
   EXPECT_EQ(Safe({'.', '.', '/', 'x'}), ".._x");
   EXPECT_EQ(Safe({'A', 0, '\n', 0x80}), "A___");
   EXPECT_EQ(Safe({0x7F, 0xFF, ' ', '~'}), "__ ~");
}

TEST(AmlFilesTest, TablesOfOneSignatureAreNumberedFromZero) {
   SignatureCounter counter;
   EXPECT_EQ(counter.NextSignatureIndex("SSDT"), 0);
   EXPECT_EQ(counter.NextSignatureIndex("DSDT"), 0);
   EXPECT_EQ(counter.NextSignatureIndex("SSDT"), 1);
   EXPECT_EQ(counter.NextSignatureIndex("SSDT"), 2);
   EXPECT_EQ(TableFileName("SSDT", 0), "SSDT.aml");
   EXPECT_EQ(TableFileName("SSDT", 2), "SSDT-2.aml");
}

class TableFileTest : public testing::Test {
protected:
   void SetUp() override {
      char dir[] = "/tmp/amlfiles-XXXXXX";
      ASSERT_NE(mkdtemp(dir), nullptr);
      dir_ = dir;
      oldMask_ = umask(0);
   }
   void TearDown() override {
      umask(oldMask_);
      std::filesystem::remove_all(dir_);
   }
   std::string dir_;
   mode_t oldMask_ = 0;
};

TEST_F(TableFileTest, FilesAreCreatedWithMode0600AndNeverReopened) {
   const std::string name = dir_ + "/DSDT.aml";
   const int fd = CreateTableFile(name.c_str());
   ASSERT_GE(fd, 0);
   const std::array<unsigned char, 3> data{1, 2, 3};
   EXPECT_TRUE(WriteAll(fd, data));
   close(fd);

   struct stat status {};
   ASSERT_EQ(stat(name.c_str(), &status), 0);
   EXPECT_EQ(status.st_mode & 07777, 0600u);
   EXPECT_EQ(status.st_size, 3);

   errno = 0;
   EXPECT_EQ(CreateTableFile(name.c_str()), -1);
   EXPECT_EQ(errno, EEXIST);
   ASSERT_EQ(stat(name.c_str(), &status), 0);
   EXPECT_EQ(status.st_size, 3);
}

TEST_F(TableFileTest, AFailingWriteReportsFalse) {
   const int fd = open(dir_.c_str(), O_RDONLY | O_DIRECTORY);
   ASSERT_GE(fd, 0);
   const std::array<unsigned char, 1> data{0};
   EXPECT_FALSE(WriteAll(fd, data));
   close(fd);
}

}  // namespace
