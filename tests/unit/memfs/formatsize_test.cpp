// FormatSize at the unit boundaries, and the bound on its buffer.
#include "memfs/formatsize.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

namespace {

std::string Format(std::uint32_t bytes, std::size_t length = memfs::kSizeTextLength) {
   char buffer[memfs::kSizeTextLength] = "untouched";
   memfs::FormatSize(bytes, buffer, length);
   return buffer;
}

TEST(FormatSize, RoundsDownAtEachUnitBoundary) {
   EXPECT_EQ(Format(0), "0B");
   EXPECT_EQ(Format(1023), "1023B");
   EXPECT_EQ(Format(1024), "1K");
   EXPECT_EQ(Format(2047), "1K");
   EXPECT_EQ(Format(1048575), "1023K");
   EXPECT_EQ(Format(1048576), "1M");
   EXPECT_EQ(Format(3 * 1048576 - 1), "2M");
   EXPECT_EQ(Format(0xFFFFFFFFu), "4095M");
}

TEST(FormatSize, CutsTheTextToTheBuffer) {
   EXPECT_EQ(Format(1048575, 4), "102");
   EXPECT_EQ(Format(1048575, 1), "");
   EXPECT_EQ(Format(5, 0), "untouched");
}

}  // namespace
