// The prefix of zdu's child paths: no doubled "/" (the root gives "/bin"),
// and the limits of 4095 characters.
#include <gtest/gtest.h>

#include <string>

#include "memfs/dustats.h"

namespace {

struct Prefix {
   std::size_t tooLong;
   std::string prefix;
};

Prefix Of(const std::string &path) {
   Prefix result{0, "untouched"};
   result.tooLong = memfs::ChildPathPrefix(path, result.prefix);
   return result;
}

TEST(ChildPathPrefix, AddsASlashOnlyWhereThereIsNone) {
   EXPECT_EQ(Of("/").prefix, "/");
   EXPECT_EQ(Of("top/").prefix, "top/");
   EXPECT_EQ(Of("top").prefix, "top/");
   EXPECT_EQ(Of(".").prefix, "./");
   EXPECT_EQ(Of("top").tooLong, 0u);
}

TEST(ChildPathPrefix, RefusesPathsWhosePrefixWouldPass4095Characters) {
   EXPECT_EQ(Of(std::string(4094, 'a')).tooLong, 0u);
   EXPECT_EQ(Of(std::string(4094, 'a')).prefix.size(), 4095u);
   EXPECT_EQ(Of(std::string(4094, 'a') + "/").tooLong, 0u);
   EXPECT_EQ(Of(std::string(4095, 'a')).tooLong, 4096u);
   EXPECT_EQ(Of(std::string(4096, 'a')).tooLong, 4096u);
   EXPECT_EQ(Of(std::string(4097, 'a') + "/").tooLong, 4098u);
}

}  // namespace
