// How ps prints: the header, one row per world entry and the tree of one
// userspace drawn with the terminal's line-drawing characters.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "worldlist.h"

namespace world {

// The number of characters of the largest world ID written as "%d": the
// width unit of the ID columns.
int IdColumnWidth(std::uint32_t largestWorldId);

// The type cell: letters (or words when verbose) of the type flag bits.
void AppendTypeCell(std::string &line, std::uint32_t typeFlags, bool verbose);

// The name of a scheduler run or wait state; a fixed placeholder for numbers
// beyond the library's tables.
std::string_view RunStateName(std::uint32_t state);
std::string_view WaitStateName(std::uint32_t state);
inline constexpr std::string_view kUnknownStateName = "?";

// The header line and one row, each ending with a newline.
void AppendHeader(std::string &line, const PsState &state);
void AppendRow(std::string &line, const PsState &state, const WorldEntry &entry);

void PrintHeader(const PsState &state);

// Prints root's row and the rows of everything below it with their tree
// prefixes; root's userspace ID on a line of its own comes first.
void PrintTree(PsState &state, std::vector<WorldEntry> &flat, EntryRef root);

}  // namespace world
