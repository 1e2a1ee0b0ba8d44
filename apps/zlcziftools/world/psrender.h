// How ps prints: one table of columns, from which the header, every row and
// the options that show columns are made, and the tree of one userspace drawn
// with the terminal's line-drawing characters.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "blockoutput.h"
#include "worldlist.h"

namespace world {

// The number of characters of the largest world ID written as "%d": the
// width unit of the ID columns.
int IdColumnWidth(std::uint32_t largestWorldId);

// The type cell: letters (or words when verbose) of the type flag bits.
void AppendTypeCell(LineBuffer &line, std::uint32_t typeFlags, bool verbose);

// The name of a scheduler run or wait state; a fixed placeholder for numbers
// beyond the library's tables.
std::string_view RunStateName(std::uint32_t state);
std::string_view WaitStateName(std::uint32_t state);
inline constexpr std::string_view kUnknownStateName = "?";

// The display flag that a ps option showing a column sets; 0 for any other.
std::uint32_t ColumnFlagOfOption(int option);
// The letters of the options that show columns, each once.
std::string ColumnOptionLetters();
// The header of the first column that flags show and that is drawn only in
// the tree layout; empty when there is none.
std::string_view ColumnNeedingTree(std::uint32_t flags);

// The columns that one listing shows and the widths they are padded to, fixed
// once the worlds are collected. Rows append to the caller's buffer without
// allocating anything of their own.
class PsLayout {
public:
   // The entries' texts are read from texts.
   PsLayout(const PsState &state, const TextStore &texts);

   // The header line and one row, each ending with a newline.
   void AppendHeader(LineBuffer &line) const;
   void AppendRow(LineBuffer &line, const WorldEntry &entry) const;

private:
   struct Shown {
      std::size_t column;  // its index in the column table
      long headerWidth;    // negative: not padded
      long cellWidth;
   };

   std::vector<Shown> shown_;
   const TextStore &texts_;
   int idWidth_;
   bool verbose_;
   bool tree_;
};

// Appends root's row and the rows of everything below it with their tree
// prefixes; root's userspace ID on a line of its own comes first.
void PrintTree(PsState &state, const PsLayout &layout, std::span<WorldEntry> flat, EntryRef root, BlockOutput &output);

}  // namespace world
