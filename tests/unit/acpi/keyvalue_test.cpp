// The key-value ID table loader: line pieces, trimming, comments, the
// doubling array, duplicates and long keys.
#include "acpi/keyvalue.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace {

using Entries = std::vector<std::pair<std::string, std::string>>;

// "K7" from ('K', 7), built by appending: GCC 12 at -O3 takes the insert
// inlined from "K" + std::to_string(7) for an overlapping copy (-Wrestrict).
std::string Numbered(char letter, int number) {
   std::string text(1, letter);
   text += std::to_string(number);
   return text;
}

class KeyValueTest : public testing::Test {
protected:
   void SetUp() override {
      char name[] = "/tmp/keyvalue-XXXXXX";
      const int fd = mkstemp(name);
      ASSERT_GE(fd, 0);
      close(fd);
      path_ = name;
   }
   void TearDown() override { unlink(path_.c_str()); }

   // Writes content to the file and loads it.
   ZLC_ReturnStatus Load(const std::string &content) {
      std::FILE *file = std::fopen(path_.c_str(), "w");
      std::fwrite(content.data(), 1, content.size(), file);
      std::fclose(file);
      return LoadKeyValueTableFromFile(path_.c_str(), table_);
   }

   Entries Loaded() const {
      Entries entries;
      for (std::uint32_t i = 0; i < table_.count; ++i) {
         entries.emplace_back(table_.entries[i].key, table_.entries[i].value);
      }
      return entries;
   }

   std::string path_;
   KeyValueTable table_;
};

TEST_F(KeyValueTest, CommentsBlanksAndLinesWithoutATabMakeNoEntry) {
   ASSERT_EQ(Load("# comment\n\n   \n\t\n# key\tvalue in a comment\n  # indented\tcomment\nno tab here\n"), 0u);
   EXPECT_EQ(table_.count, 0u);
   EXPECT_EQ(LookupKeyValue(table_, "key"), nullptr);
}

TEST_F(KeyValueTest, LinesAreTrimmedBeforeTheyAreSplit) {
   ASSERT_EQ(Load("  PNP0A03\tPCI bus  \r\n\tPNP0C0C\tPower button\nPNP0C0D\t\nPNP0C0E \t sleep\n"), 0u);
   // A trailing tab is trimmed away, a leading one too; blanks around the
   // tab itself stay.
   EXPECT_EQ(Loaded(), (Entries{{"PNP0A03", "PCI bus"}, {"PNP0C0C", "Power button"}, {"PNP0C0E ", " sleep"}}));
}

TEST_F(KeyValueTest, TheTableDoublesWhenFullAndKeepsFileOrder) {
   std::string content;
   for (int i = 0; i < 32; ++i) {
      content += Numbered('K', i) + "\t" + Numbered('v', i) + "\n";
   }
   ASSERT_EQ(Load(content + "K32\tv32\n"), 0u);
   EXPECT_EQ(table_.count, 33u);
   for (std::uint32_t i = 0; i < table_.count; ++i) {
      EXPECT_EQ(table_.entries[i].key, Numbered('K', static_cast<int>(i)));
   }
   EXPECT_STREQ(LookupKeyValue(table_, "K32"), "v32");
}

TEST_F(KeyValueTest, DuplicateKeysLoadTwiceAndTheFirstWins) {
   ASSERT_EQ(Load("PNP0A03\tfirst\nPNP0A03\tsecond\n"), 0u);
   EXPECT_EQ(table_.count, 2u);
   EXPECT_STREQ(LookupKeyValue(table_, "PNP0A03"), "first");
   EXPECT_EQ(LookupKeyValue(table_, "pnp0a03"), nullptr);
   EXPECT_EQ(LookupKeyValue(table_, "PNP0A0"), nullptr);
}

TEST_F(KeyValueTest, ALongLineIsReadInPiecesOf127) {
   // 200 characters: the first piece is a key and 124 x's, the second piece
   // (73 characters) carries a tab of its own and makes a second entry.
   const std::string first = "K1\t" + std::string(124, 'x');
   const std::string second = "K2\tsecond" + std::string(64, 'y');
   ASSERT_EQ(first.size() + second.size(), 200u);
   ASSERT_EQ(Load(first + second + "\n"), 0u);
   EXPECT_EQ(Loaded(), (Entries{{"K1", std::string(124, 'x')}, {"K2", "second" + std::string(64, 'y')}}));
}

TEST_F(KeyValueTest, SeveralTabsMakeOneEntry) {
   ASSERT_EQ(Load("A\tB\tC\n"), 0u);
   EXPECT_EQ(Loaded(), (Entries{{"A", "B\tC"}}));
}

TEST_F(KeyValueTest, LongKeysKeepTheirFirst31Characters) {
   const std::string key(40, 'k');
   ASSERT_EQ(Load(key + "\tlong\n"), 0u);
   EXPECT_EQ(std::string(table_.entries[0].key), key.substr(0, 31));
   EXPECT_STREQ(LookupKeyValue(table_, key), "long");
   EXPECT_STREQ(LookupKeyValue(table_, key.substr(0, 31)), "long");
   EXPECT_EQ(LookupKeyValue(table_, key.substr(0, 30)), nullptr);
}

TEST_F(KeyValueTest, AMissingFileFailsWithItsMessage) {
   KeyValueTable table;
   testing::internal::CaptureStderr();
   EXPECT_EQ(LoadKeyValueTableFromFile("/nonexistent/acpiHIDs.ids", table), 0x0BAD0001u);
   EXPECT_EQ(testing::internal::GetCapturedStderr(),
             "LoadKeyValueTableFromFile: error opening file: /nonexistent/acpiHIDs.ids\n");
   EXPECT_EQ(table.count, 0u);
   EXPECT_EQ(table.entries, nullptr);
}

}  // namespace
