// Linking the world tree and walking it: the order of a pairwise scan in
// linear time, one parent per child, no cycles, and no recursion.
#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "world/psrender.h"
#include "world/worldlist.h"

namespace {

using world::EntryRef;
using world::kNone;
using world::WorldEntry;

WorldEntry Entry(std::uint32_t worldId, std::uint32_t cartelId, std::uint32_t parentId, std::uint32_t type = 4) {
   WorldEntry entry;
   entry.info.worldId = worldId;
   entry.info.cartelId = cartelId;
   entry.info.parentId = parentId;
   entry.info.typeFlags = type;
   return entry;
}

std::vector<EntryRef> Children(const std::vector<WorldEntry> &flat, EntryRef parent) {
   std::vector<EntryRef> children;
   for (EntryRef ref = flat[parent].firstChild; ref != kNone; ref = flat[ref].nextSibling) {
      children.push_back(ref);
   }
   return children;
}

std::vector<std::pair<EntryRef, int>> TreeOrder(const std::vector<WorldEntry> &flat, EntryRef root) {
   std::vector<std::pair<EntryRef, int>> order;
   world::ForEachInTreeOrder(flat, root, [&](EntryRef ref, int depth) { order.emplace_back(ref, depth); });
   return order;
}

TEST(LinkTree, ChildrenInFlatListOrderWithCountsAndClones) {
   std::vector<WorldEntry> flat = {
         Entry(10, 10, 0),       // 0: root
         Entry(12, 12, 10),      // 1
         Entry(11, 10, 10, 36),  // 2: a clone of the root's cartel
         Entry(13, 13, 12),      // 3
         Entry(14, 14, 10),      // 4
         Entry(5, 0, 10),        // 5: a kernel world is never linked
   };
   world::LinkTree(flat);
   EXPECT_EQ(Children(flat, 0), (std::vector<EntryRef>{1, 2, 4}));
   EXPECT_EQ(Children(flat, 1), (std::vector<EntryRef>{3}));
   EXPECT_EQ(flat[0].nChildren, 3);
   EXPECT_EQ(flat[0].nThreads, 2);
   EXPECT_EQ(flat[1].nThreads, 1);
   EXPECT_EQ(flat[3].parent, 1);
   EXPECT_EQ(flat[5].parent, kNone);
   EXPECT_EQ(TreeOrder(flat, 0), (std::vector<std::pair<EntryRef, int>>{{0, 0}, {1, 1}, {3, 2}, {2, 1}, {4, 1}}));
}

TEST(LinkTree, KernelWorldsAreNoParents) {
   std::vector<WorldEntry> flat = {Entry(7, 0, 0), Entry(8, 8, 7)};
   world::LinkTree(flat);
   EXPECT_EQ(flat[1].parent, kNone);
   EXPECT_EQ(flat[0].firstChild, kNone);
}

TEST(LinkTree, DuplicateWorldIdAdoptsOnlyAtItsFirstEntry) {
   std::vector<WorldEntry> flat = {Entry(10, 10, 0), Entry(20, 20, 0), Entry(10, 10, 0), Entry(30, 30, 10)};
   world::LinkTree(flat);
   EXPECT_EQ(flat[3].parent, 0);
   EXPECT_EQ(flat[0].nChildren, 1);
   EXPECT_EQ(flat[2].nChildren, 0);
}

TEST(LinkTree, NeverItsOwnParentNorAParentCycle) {
   std::vector<WorldEntry> flat = {
         Entry(10, 10, 10),  // its own parent
         Entry(20, 20, 30),  // 20 -> 30 -> 40 -> 20: the last link would close the cycle
         Entry(30, 30, 40),
         Entry(40, 40, 20),
   };
   world::LinkTree(flat);
   EXPECT_EQ(flat[0].parent, kNone);
   EXPECT_EQ(flat[0].nChildren, 0);
   EXPECT_EQ(flat[1].parent, 2);
   EXPECT_EQ(flat[2].parent, 3);
   EXPECT_EQ(flat[3].parent, kNone);
   EXPECT_EQ(TreeOrder(flat, 3).size(), 3u);
}

TEST(LinkTree, ChainOf100000WorldsLinksAndWalksWithoutRecursion) {
   constexpr std::uint32_t kDepth = 100000;
   std::vector<WorldEntry> flat;
   flat.reserve(kDepth);
   // Listed deepest first, so that every child comes before its parent.
   for (std::uint32_t id = kDepth; id >= 1; --id) {
      flat.push_back(Entry(id, id, id - 1));
   }
   world::LinkTree(flat);
   const EntryRef root = kDepth - 1;
   ASSERT_EQ(flat[root].parent, kNone);
   int deepest = 0;
   std::size_t visited = 0;
   world::ForEachInTreeOrder(flat, root, [&](EntryRef, int depth) {
      ++visited;
      deepest = std::max(deepest, depth);
   });
   EXPECT_EQ(visited, kDepth);
   EXPECT_EQ(deepest, static_cast<int>(kDepth) - 1);
}

TEST(LinkTree, StarOf100000ChildrenKeepsTheirOrder) {
   constexpr std::uint32_t kChildren = 100000;
   std::vector<WorldEntry> flat;
   flat.push_back(Entry(1, 1, 0));
   for (std::uint32_t i = 0; i < kChildren; ++i) {
      flat.push_back(Entry(1000000 - i, 1000000 - i, 1));
   }
   world::LinkTree(flat);
   EXPECT_EQ(flat[0].nChildren, static_cast<std::int32_t>(kChildren));
   EntryRef expected = 1;
   for (EntryRef ref = flat[0].firstChild; ref != kNone; ref = flat[ref].nextSibling) {
      ASSERT_EQ(ref, expected++);
   }
   EXPECT_EQ(expected, static_cast<EntryRef>(kChildren) + 1);
}

TEST(TextStore, TextsSurviveTheStoreGrowingByRemapping) {
   world::TextStore texts;
   std::vector<world::TextRef> refs;
   for (int i = 0; i < 200000; ++i) {
      refs.push_back(texts.Add("text-" + std::to_string(i)));
   }
   for (int i = 0; i < 200000; ++i) {
      ASSERT_EQ(texts.View(refs[i]), "text-" + std::to_string(i));
   }
   texts.Truncate(refs[10].offset);
   EXPECT_EQ(texts.View(texts.Add("x")), "x");
   EXPECT_EQ(texts.Size(), refs[10].offset + 1);
}

std::string TypeCell(std::uint32_t type, bool verbose) {
   world::LineBuffer cell;
   world::AppendTypeCell(cell, type, verbose);
   return std::string(cell.View());
}

TEST(TypeCell, LettersPaddedToSixAndWordsWithCommas) {
   EXPECT_EQ(TypeCell(4, false), "U     ");
   EXPECT_EQ(TypeCell(36, true), "User,Clone  ");
   EXPECT_EQ(TypeCell(36, false), "UX    ");
   EXPECT_EQ(TypeCell(256 + 64 + 32 + 16 + 8 + 4 + 2 + 1, false), "SIUVHXTA");
   EXPECT_EQ(TypeCell(256, true), "Assistant  ");
}

TEST(TypeCell, UnnamedBitsAndZeroAreInvalid) {
   EXPECT_EQ(TypeCell(0, false), "Invalid      ");
   EXPECT_EQ(TypeCell(0, true), "Invalid  ");
   EXPECT_EQ(TypeCell(128, false), "Invalid      ");
   EXPECT_EQ(TypeCell(4 | 128 | 256, false), "UInvalid     ");
   EXPECT_EQ(TypeCell(4 | 512, true), "User,Invalid  ");
   EXPECT_EQ(TypeCell(0x80000000u, true), "Invalid  ");
}

TEST(IdColumnWidth, SignedDecimalWidthOfTheLargestId) {
   EXPECT_EQ(world::IdColumnWidth(0), 1);
   EXPECT_EQ(world::IdColumnWidth(1000000), 7);
   EXPECT_EQ(world::IdColumnWidth(0x80000000u), 11);
}

TEST(StateNames, NumbersBeyondTheTablesGiveThePlaceholder) {
   EXPECT_EQ(world::RunStateName(0xffffffffu), world::kUnknownStateName);
   EXPECT_EQ(world::WaitStateName(0xffffffffu), world::kUnknownStateName);
   EXPECT_NE(world::RunStateName(0), world::kUnknownStateName);
}

}  // namespace
