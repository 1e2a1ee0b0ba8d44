// The boot command line's split and the piecewise reading of a boot option
// file's content, driven by a scripted reader.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "hostinfo/boottext.h"

namespace {

using bootoption::kContentPieceSize;
using bootoption::StreamContent;
using bootoption::StreamOutcome;

TEST(SplitBootCommandLine, KernelUpToTheFirstBlankOptionsAfterIt) {
   auto line = bootoption::SplitBootCommandLine("zelcore.z00  quiet x=1");
   EXPECT_EQ(line.kernel, "zelcore.z00");
   EXPECT_EQ(line.options, " quiet x=1");

   line = bootoption::SplitBootCommandLine("zelcore.z00");
   EXPECT_EQ(line.kernel, "zelcore.z00");
   EXPECT_EQ(line.options, "");

   line = bootoption::SplitBootCommandLine("zelcore.z00 ");
   EXPECT_EQ(line.kernel, "zelcore.z00");
   EXPECT_EQ(line.options, "");
}

TEST(PrintablePiece, NewlinesBecomeBlanksAndTheTextEndsAtTheFirstNul) {
   std::string bytes("a\nb\n\n", 5);
   EXPECT_EQ(bootoption::PrintablePiece(bytes), "a b  ");
   std::string withNul("x\ny\0z\n", 6);
   EXPECT_EQ(bootoption::PrintablePiece(withNul), "x y");
}

// A content held in memory, read the way the kernel answers: at most the
// bytes asked for, none past the end. Records every request.
struct ScriptedContent {
   std::string content;
   std::vector<std::pair<std::uint32_t, std::uint32_t>> requests;
   std::string buffer;
   // Deliveries to make instead of the natural ones, in request order.
   std::vector<std::size_t> forcedSizes;

   std::optional<std::span<char>> operator()(std::uint32_t offset, std::uint32_t count) {
      requests.emplace_back(offset, count);
      std::size_t n = offset < content.size() ? std::min<std::size_t>(count, content.size() - offset) : 0;
      buffer = content.substr(std::min<std::size_t>(offset, content.size()), n);
      if (requests.size() <= forcedSizes.size()) {
         buffer.resize(forcedSizes[requests.size() - 1], 'x');
      }
      return std::span<char>(buffer.data(), buffer.size());
   }
};

StreamOutcome Stream(std::uint32_t total, ScriptedContent &source, std::string &printed) {
   return StreamContent(total, std::ref(source), [&](std::string_view text) { printed += text; });
}

TEST(StreamContent, LargeContentIsReadInFullPiecesAndJoinedWithoutASeam) {
   ScriptedContent source;
   source.content = std::string(kContentPieceSize + 100, 'a');
   source.content[kContentPieceSize - 1] = '\n';
   source.content[kContentPieceSize] = 'b';
   std::string printed;
   const StreamOutcome outcome = Stream(static_cast<std::uint32_t>(source.content.size()), source, printed);

   EXPECT_EQ(outcome.kind, StreamOutcome::Kind::Done);
   // Every request asks for a whole piece, the last one too.
   const std::vector<std::pair<std::uint32_t, std::uint32_t>> wanted = {{0, kContentPieceSize},
                                                                        {kContentPieceSize, kContentPieceSize}};
   EXPECT_EQ(source.requests, wanted);
   std::string expected = source.content;
   expected[kContentPieceSize - 1] = ' ';
   EXPECT_EQ(printed, expected);
}

TEST(StreamContent, SmallContentAsksForItsOwnLengthAndEmptyContentReadsNothing) {
   ScriptedContent source;
   source.content = "one\ntwo\n";
   std::string printed;
   EXPECT_EQ(Stream(8, source, printed).kind, StreamOutcome::Kind::Done);
   EXPECT_EQ(printed, "one two ");
   ASSERT_EQ(source.requests.size(), 1u);
   EXPECT_EQ(source.requests[0], std::make_pair(0u, 8u));

   ScriptedContent empty;
   printed.clear();
   EXPECT_EQ(Stream(0, empty, printed).kind, StreamOutcome::Kind::Done);
   EXPECT_TRUE(empty.requests.empty());
   EXPECT_EQ(printed, "");
}

TEST(StreamContent, ShortPiecesAreFollowedFromWhereTheyEnded) {
   ScriptedContent source;
   source.content = "abcdefgh";
   source.forcedSizes = {3, 2};
   std::string printed;
   EXPECT_EQ(Stream(8, source, printed).kind, StreamOutcome::Kind::Done);
   EXPECT_EQ(printed, "abcdefgh");
   const std::vector<std::pair<std::uint32_t, std::uint32_t>> wanted = {{0, 8}, {3, 8}, {5, 8}};
   EXPECT_EQ(source.requests, wanted);
}

TEST(StreamContent, AnEmptyPieceBeforeTheEndStopsAtItsOffset) {
   ScriptedContent source;
   source.content = "abcdefgh";
   source.forcedSizes = {5, 0};
   std::string printed;
   const StreamOutcome outcome = Stream(8, source, printed);
   EXPECT_EQ(outcome.kind, StreamOutcome::Kind::ShortRead);
   EXPECT_EQ(outcome.offset, 5u);
   EXPECT_EQ(printed, "abcde");
   EXPECT_EQ(source.requests.size(), 2u);
}

TEST(StreamContent, APieceLongerThanAskedForIsCutToThePiece) {
   ScriptedContent source;
   source.content = "abcd";
   source.forcedSizes = {9};
   std::string printed;
   const StreamOutcome outcome = Stream(4, source, printed);
   EXPECT_EQ(outcome.kind, StreamOutcome::Kind::Done);
   EXPECT_EQ(printed, "abcd");
}

TEST(StreamContent, AFailedReadStopsWithWhatWasPrinted) {
   int calls = 0;
   std::string first = "abc";
   std::string printed;
   const StreamOutcome outcome = StreamContent(
         6,
         [&](std::uint32_t, std::uint32_t) -> std::optional<std::span<char>> {
            if (calls++ == 0) {
               return std::span<char>(first.data(), first.size());
            }
            return std::nullopt;
         },
         [&](std::string_view text) { printed += text; });
   EXPECT_EQ(outcome.kind, StreamOutcome::Kind::ReadFailed);
   EXPECT_EQ(outcome.offset, 3u);
   EXPECT_EQ(printed, "abc");
}

}  // namespace
