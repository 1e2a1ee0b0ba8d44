// The line buffer of the long listings: the same text as a string built the
// same way, across many growths, and the printf-style padding helpers.
#include <gtest/gtest.h>

#include <string>

#include "world/blockoutput.h"

namespace {

TEST(LineBuffer, HoldsWhatAStringWouldAcrossGrowths) {
   world::LineBuffer line;
   std::string expected;
   EXPECT_TRUE(line.empty());
   for (int i = 0; i < 5000; ++i) {
      const std::string piece = "piece-" + std::to_string(i);
      line += piece;
      line += ';';
      line.append(static_cast<std::size_t>(i % 7), ' ');
      line.append(piece.data(), piece.data() + 2);
      expected += piece + ';' + std::string(static_cast<std::size_t>(i % 7), ' ') + piece.substr(0, 2);
   }
   ASSERT_EQ(line.View(), expected);
   line.resize(10);
   line.resize(1000);
   line += "|end";
   EXPECT_EQ(line.View(), expected.substr(0, 10) + "|end");
   line.clear();
   line.append(0, 'x');
   line += std::string_view();
   EXPECT_TRUE(line.empty());
}

TEST(LineBuffer, PaddingHelpersFollowPrintf) {
   world::LineBuffer line;
   world::AppendNumber(line, -42, 6);
   world::AppendNumber(line, 7, 4, true);
   world::AppendNumber(line, 123456, 3);
   world::AppendLeft(line, "name", 6);
   world::AppendLeft(line, "toolong", 3);
   world::AppendBlanks(line, -1);
   EXPECT_EQ(line.View(), "   -427   123456name  toolong");
}

}  // namespace
