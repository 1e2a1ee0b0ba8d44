// ps's column table, header, rows and tree drawing.
//
// Widths follow the listing's own quirks: a header is padded to one width and
// the cells below it often to another, and kernel worlds (cartel ID 0) show a
// bare 0 padded differently in the CID, PGID and SID columns.
#include "psrender.h"

#include <cstdio>
#include <iterator>

#include "zellibs.h"

namespace world {

namespace {

// What a cell is padded to: nothing, a fixed number of characters, or the ID
// width unit or the widest world name plus add.
struct Width {
   enum Unit : std::uint8_t { kNone, kFixed, kId, kName };
   Unit unit = kNone;
   std::int8_t add = 0;
};

struct CellContext {
   const TextStore &texts;
   int idWidth;
   bool verbose;
};

// Appends an entry's cell after its separator; false when the entry has no
// such cell (nothing of it is printed then, not even the separator).
using CellFunction = bool (*)(LineBuffer &line, const WorldEntry &entry, const CellContext &context);

// Which entries have the column's cell, and in which layouts it is shown.
enum Entries : std::uint8_t { kZombiesToo, kLiveOnly };
enum Layouts : std::uint8_t { kAnyLayout, kTreeLayout };

// One column of the listing. Every column but the first starts, in the
// header and in each row, with a separator of two blanks, counted in its
// widths.
struct PsColumn {
   char option;         // the ps option that shows it; 0: always shown
   std::uint32_t flag;  // the display flag that option sets
   std::string_view header;
   Width headerWidth;
   Width cellWidth;
   Entries entries;
   Layouts layouts;
   CellFunction cell;
};

constexpr std::string_view kSeparator = "  ";

// The terminal's alternate character set, selected by WorldList, is entered
// with shift-out and left with shift-in around each drawing letter.
constexpr char kShiftOut = 14;
constexpr char kShiftIn = 15;
constexpr char kVerticalBar = 'x';
constexpr char kHorizontalBar = 'q';
constexpr char kTee = 't';
constexpr char kCorner = 'm';

struct TypeName {
   std::uint32_t bit;
   char letter;
   const char *word;
};

using Info = rec::world_info;
constexpr TypeName kTypeNames[] = {
      {Info::typeFlags_system, 'S', "System"}, {Info::typeFlags_idle, 'I', "Idle"},
      {Info::typeFlags_user, 'U', "User"},     {Info::typeFlags_vmm, 'V', "VMM"},
      {Info::typeFlags_helper, 'H', "Helper"}, {Info::typeFlags_clone, 'X', "Clone"},
      {Info::typeFlags_test, 'T', "Test"},     {Info::typeFlags_assistant, 'A', "Assistant"},
};

const TypeName *FindTypeName(std::uint32_t bit) {
   for (const TypeName &name : kTypeNames) {
      if (name.bit == bit) {
         return &name;
      }
   }
   return nullptr;
}

// Pads what was appended since start with blanks to width characters.
void PadFrom(LineBuffer &line, std::size_t start, long width) {
   AppendBlanks(line, width - static_cast<long>(line.size() - start));
}

void AppendDrawing(LineBuffer &line, char letter) {
   line += kShiftOut;
   line += letter;
   line += kShiftIn;
}

std::string_view StateName(const CpuSched_StateElement *table, std::uint32_t count, std::uint32_t state) {
   if (state >= count || table[state].name == nullptr) {
      return kUnknownStateName;
   }
   return table[state].name;
}

bool IsKernelWorld(const WorldEntry &entry) {
   return !entry.zombie && entry.info.cartelId == 0;
}

// The cells, in column order.

bool WidCell(LineBuffer &line, const WorldEntry &entry, const CellContext &) {
   AppendNumber(line, static_cast<std::int32_t>(entry.info.worldId));
   return true;
}

bool CidCell(LineBuffer &line, const WorldEntry &entry, const CellContext &context) {
   AppendNumber(line, static_cast<std::int32_t>(entry.info.cartelId));
   if (entry.info.cartelId == 0) {
      AppendBlanks(line, context.idWidth - 1);
   }
   return true;
}

bool NameCell(LineBuffer &line, const WorldEntry &entry, const CellContext &context) {
   line += entry.zombie ? std::string_view("<zombie>") : context.texts.View(entry.name);
   return true;
}

bool NChildrenCell(LineBuffer &line, const WorldEntry &entry, const CellContext &) {
   AppendNumber(line, entry.nChildren);
   return true;
}

bool NThreadsCell(LineBuffer &line, const WorldEntry &entry, const CellContext &) {
   AppendNumber(line, entry.nThreads);
   return true;
}

bool GidCell(LineBuffer &line, const WorldEntry &entry, const CellContext &) {
   AppendNumber(line, static_cast<std::int32_t>(entry.info.groupId));
   return true;
}

// A kernel world shows 0, padded to the ID width with its separator.
bool KernelZero(LineBuffer &line, const CellContext &context) {
   line += '0';
   AppendBlanks(line, context.idWidth - 3);
   return true;
}

bool PgidCell(LineBuffer &line, const WorldEntry &entry, const CellContext &context) {
   if (IsKernelWorld(entry)) {
      return KernelZero(line, context);
   }
   AppendNumber(line, static_cast<std::int32_t>(entry.info.processGroupId));
   return true;
}

bool SidCell(LineBuffer &line, const WorldEntry &entry, const CellContext &context) {
   if (IsKernelWorld(entry)) {
      return KernelZero(line, context);
   }
   AppendNumber(line, static_cast<std::int32_t>(entry.info.sessionId));
   return true;
}

bool PcidCell(LineBuffer &line, const WorldEntry &entry, const CellContext &) {
   AppendNumber(line, static_cast<std::int32_t>(entry.info.parentId));
   return true;
}

bool TypeCell(LineBuffer &line, const WorldEntry &entry, const CellContext &context) {
   AppendTypeCell(line, entry.info.typeFlags, context.verbose);
   return true;
}

// Run and wait state cut and padded to 6, the affinity padded to 4; blanks
// for a zombie or a world whose scheduler records could not be read.
bool StateCell(LineBuffer &line, const WorldEntry &entry, const CellContext &context) {
   if (entry.zombie || !entry.schedValid) {
      line.append(16, ' ');
      return true;
   }
   for (std::string_view name : {RunStateName(entry.runState), WaitStateName(entry.waitState)}) {
      const std::size_t start = line.size();
      line += name.substr(0, 6);
      PadFrom(line, start, 6);
      line += kSeparator;
   }
   const std::size_t start = line.size();
   line += context.texts.View(entry.affinity);
   PadFrom(line, start, 4);
   return true;
}

// Seconds and microseconds of the used time, as "%5lu.%-6lu".
bool TimeCell(LineBuffer &line, const WorldEntry &entry, const CellContext &) {
   if (!entry.schedValid) {
      return false;
   }
   AppendNumber(line, static_cast<unsigned long>(entry.usedTime / 1000000), 5);
   line += '.';
   const std::size_t start = line.size();
   AppendNumber(line, static_cast<unsigned long>(entry.usedTime % 1000000));
   PadFrom(line, start, 6);
   return true;
}

bool SecurityDomainCell(LineBuffer &line, const WorldEntry &entry, const CellContext &) {
   AppendNumber(line, static_cast<std::int32_t>(entry.info.securityDomain));
   return true;
}

bool UserspaceCell(LineBuffer &line, const WorldEntry &entry, const CellContext &) {
   AppendNumber(line, static_cast<std::int32_t>(entry.info.userspaceId));
   return true;
}

bool CommandCell(LineBuffer &line, const WorldEntry &entry, const CellContext &context) {
   if (entry.info.cartelId == 0) {
      return false;
   }
   line += context.texts.View(entry.commandLine);
   return true;
}

using W = Width;

// The columns in printing order. Widths count the separator.
constexpr PsColumn kColumns[] = {
      // option, flag, header, header width, cell width, entries, layouts, cell
      {0, 0, "WID", {W::kId, 0}, {W::kId, 0}, kZombiesToo, kAnyLayout, WidCell},
      {0, 0, "CID", {W::kId, 2}, {W::kId, 0}, kZombiesToo, kAnyLayout, CidCell},
      {0, 0, "WorldName", {W::kName, 2}, {W::kName, 2}, kZombiesToo, kAnyLayout, NameCell},
      {'n', kShowNChildren, "nChildren", {}, {W::kFixed, 11}, kLiveOnly, kTreeLayout, NChildrenCell},
      {'N', kShowNThreads, "nThreads", {}, {W::kFixed, 10}, kLiveOnly, kTreeLayout, NThreadsCell},
      {'j', kShowGid, "GID", {W::kId, 1}, {W::kId, 0}, kLiveOnly, kAnyLayout, GidCell},
      {'g', kShowGroups, "PGID", {W::kId, 1}, {W::kId, -2}, kZombiesToo, kAnyLayout, PgidCell},
      {'g', kShowGroups, "SID", {W::kId, 1}, {W::kId, -2}, kZombiesToo, kAnyLayout, SidCell},
      {'P', kShowPcid, "PCID", {W::kId, 2}, {W::kId, 2}, kZombiesToo, kAnyLayout, PcidCell},
      {'t', kShowType, "Type  ", {}, {}, kLiveOnly, kAnyLayout, TypeCell},
      {'s', kShowState, "State   Wait    CPU ", {}, {}, kZombiesToo, kAnyLayout, StateCell},
      {'T', kShowTime, "Time        ", {}, {}, kLiveOnly, kAnyLayout, TimeCell},
      {'Z', kShowSecurityDomain, "SecurityDomain", {}, {W::kFixed, 16}, kLiveOnly, kAnyLayout, SecurityDomainCell},
      {'U', kShowUserspace, "UserSpace", {}, {W::kFixed, 11}, kLiveOnly, kAnyLayout, UserspaceCell},
      {'c', kShowCommand, "Command", {}, {}, kLiveOnly, kAnyLayout, CommandCell},
};

// An ancestor's column of a tree prefix: a vertical bar while siblings of it
// are still to be printed.
void AppendColumn(LineBuffer &line, const WorldEntry &itsParent) {
   if (itsParent.nChildren > 1 && itsParent.printedChildren != itsParent.nChildren) {
      AppendDrawing(line, kVerticalBar);
      line += ' ';
   } else {
      line += "  ";
   }
}

// The columns of a chain of ancestors, from the top of the tree down to from:
// the topmost ancestor contributes nothing.
void AppendChainColumns(LineBuffer &line, std::span<const WorldEntry> flat, EntryRef from,
                        std::vector<EntryRef> &ancestors) {
   ancestors.clear();
   for (EntryRef ref = from; ref != kNone; ref = flat[static_cast<std::size_t>(ref)].parent) {
      ancestors.push_back(ref);
   }
   for (std::size_t i = ancestors.size(); i-- > 1;) {
      const WorldEntry &ancestor = flat[static_cast<std::size_t>(ancestors[i - 1])];
      AppendColumn(line, flat[static_cast<std::size_t>(ancestor.parent)]);
   }
}

}  // namespace

int IdColumnWidth(std::uint32_t largestWorldId) {
   return std::snprintf(nullptr, 0, "%d", static_cast<int>(largestWorldId));
}

std::string_view RunStateName(std::uint32_t state) {
   return StateName(CpuSched_RunStateElements, CpuSched_NumRunStates, state);
}

std::string_view WaitStateName(std::uint32_t state) {
   return StateName(CpuSched_WaitStateElements, CpuSched_NumWaitStates, state);
}

void AppendTypeCell(LineBuffer &line, std::uint32_t typeFlags, bool verbose) {
   int letters = 0;
   if (typeFlags == 0) {
      line += "Invalid";
   }
   for (unsigned shift = 0; shift < 32; ++shift) {
      const std::uint32_t bit = std::uint32_t{1} << shift;
      if ((typeFlags & bit) == 0) {
         continue;
      }
      const TypeName *name = FindTypeName(bit);
      if (name == nullptr) {
         line += "Invalid";
         break;
      }
      if (verbose) {
         line += name->word;
         if (shift < 31 && (typeFlags >> (shift + 1)) != 0) {
            line += ',';
         }
      } else {
         line += name->letter;
         ++letters;
      }
   }
   if (verbose) {
      line += "  ";
   } else {
      AppendBlanks(line, 6 - letters);
   }
}

std::uint32_t ColumnFlagOfOption(int option) {
   for (const PsColumn &column : kColumns) {
      if (column.option != 0 && column.option == option) {
         return column.flag;
      }
   }
   return 0;
}

std::string ColumnOptionLetters() {
   std::string letters;
   for (const PsColumn &column : kColumns) {
      if (column.option != 0 && letters.find(column.option) == std::string::npos) {
         letters += column.option;
      }
   }
   return letters;
}

std::string_view ColumnNeedingTree(std::uint32_t flags) {
   for (const PsColumn &column : kColumns) {
      if (column.layouts == kTreeLayout && (flags & column.flag) != 0) {
         return column.header;
      }
   }
   return {};
}

PsLayout::PsLayout(const PsState &state, const TextStore &texts)
    : texts_(texts),
      idWidth_(IdColumnWidth(state.largestWorldId)),
      verbose_(state.Has(kVerbose)),
      tree_(state.Has(kTree)) {
   const auto resolve = [&](Width width) -> long {
      switch (width.unit) {
         case Width::kNone:
            return -1;
         case Width::kFixed:
            return width.add;
         case Width::kId:
            return idWidth_ + width.add;
         case Width::kName:
            return static_cast<long>(state.widestWorldName) + width.add;
      }
      return -1;
   };
   for (std::size_t index = 0; index < std::size(kColumns); ++index) {
      const PsColumn &column = kColumns[index];
      if (column.option == 0 || (state.Has(column.flag) && (column.layouts == kAnyLayout || tree_))) {
         shown_.push_back({index, resolve(column.headerWidth), resolve(column.cellWidth)});
      }
   }
}

void PsLayout::AppendHeader(LineBuffer &line) const {
   // Rows of the tree layout start after a two-character branch.
   if (tree_) {
      line += "  ";
   }
   for (const Shown &shown : shown_) {
      const PsColumn &column = kColumns[shown.column];
      const std::size_t start = line.size();
      if (shown.column != 0) {
         line += kSeparator;
      }
      line += column.header;
      PadFrom(line, start, shown.headerWidth);
   }
   line += '\n';
}

void PsLayout::AppendRow(LineBuffer &line, const WorldEntry &entry) const {
   const CellContext context{texts_, idWidth_, verbose_};
   for (const Shown &shown : shown_) {
      const PsColumn &column = kColumns[shown.column];
      if (entry.zombie && column.entries == kLiveOnly) {
         continue;
      }
      const std::size_t start = line.size();
      if (shown.column != 0) {
         line += kSeparator;
      }
      if (!column.cell(line, entry, context)) {
         line.resize(start);
         continue;
      }
      PadFrom(line, start, shown.cellWidth);
   }
   line += '\n';
}

// An entry's prefix is the columns of its ancestors (an ancestor's column is
// fixed once it has been printed: the siblings after it are printed only after
// its whole tree), so the walk keeps the columns of the path it is on, and
// those of root's own ancestors, rather than climbing the tree for every row.
void PrintTree(PsState &state, const PsLayout &layout, std::span<WorldEntry> flat, EntryRef root, BlockOutput &output) {
   LineBuffer &line = output.Buffer();
   LineBuffer columns;               // the prefix of the entries one below the path's end
   std::vector<std::size_t> ends;    // ends[depth]: where the columns end below an entry at depth
   std::vector<EntryRef> ancestors;  // scratch for root's own ancestors
   ForEachInTreeOrder(flat, root, [&](EntryRef ref, std::int32_t depth) {
      WorldEntry &entry = flat[static_cast<std::size_t>(ref)];
      const auto level = static_cast<std::size_t>(depth);
      if (depth > state.deepestDepth) {
         state.deepestDepth = depth;
      }
      if (depth == 0) {
         AppendNumber(line, static_cast<std::int32_t>(entry.info.userspaceId));
         line += '\n';
         if (entry.parent != kNone) {
            line += "  ";
            AppendChainColumns(line, flat, entry.parent, ancestors);
         }
      } else {
         columns.resize(ends[level - 1]);
         line += "  ";
         line += columns.View();
      }
      AppendDrawing(line, entry.nextSibling != kNone ? kTee : kCorner);
      AppendDrawing(line, kHorizontalBar);
      layout.AppendRow(line, entry);
      if (entry.parent != kNone) {
         ++flat[static_cast<std::size_t>(entry.parent)].printedChildren;
      }
      if (depth == 0) {
         AppendChainColumns(columns, flat, ref, ancestors);
      } else {
         AppendColumn(columns, flat[static_cast<std::size_t>(entry.parent)]);
      }
      ends.resize(level + 1);
      ends[level] = columns.size();
      output.LineDone();
   });
}

}  // namespace world
