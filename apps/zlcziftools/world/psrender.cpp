// ps's header, rows and tree drawing.
#include "psrender.h"

#include <cstdarg>
#include <cstdio>

#include "zellibs.h"

namespace world {

namespace {

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

void Appendf(std::string &line, const char *format, ...) __attribute__((format(printf, 2, 3)));
void Appendf(std::string &line, const char *format, ...) {
   char buffer[128];
   va_list args;
   va_start(args, format);
   const int length = std::vsnprintf(buffer, sizeof buffer, format, args);
   va_end(args);
   if (length < 0) {
      return;
   }
   if (static_cast<std::size_t>(length) < sizeof buffer) {
      line.append(buffer, static_cast<std::size_t>(length));
      return;
   }
   const std::size_t start = line.size();
   line.resize(start + static_cast<std::size_t>(length) + 1);
   va_start(args, format);
   std::vsnprintf(line.data() + start, static_cast<std::size_t>(length) + 1, format, args);
   va_end(args);
   line.resize(start + static_cast<std::size_t>(length));
}

void AppendBlanks(std::string &line, long count) {
   if (count > 0) {
      line.append(static_cast<std::size_t>(count), ' ');
   }
}

// Pads the cell that started at cellStart with blanks to n characters.
void PadCell(std::string &line, std::size_t cellStart, long n) {
   AppendBlanks(line, n - static_cast<long>(line.size() - cellStart));
}

// "  %s" with a text that may be longer than any fixed buffer.
void AppendTextCell(std::string &line, std::string_view text) {
   line += "  ";
   line += text;
}

void AppendDrawing(std::string &line, char letter) {
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

void AppendStateCells(std::string &line, const WorldEntry &entry) {
   if (entry.zombie || !entry.schedValid) {
      line.append(18, ' ');
      return;
   }
   for (std::string_view name : {RunStateName(entry.runState), WaitStateName(entry.waitState)}) {
      const std::size_t start = line.size();
      line += "  ";
      line += name.substr(0, 6);
      PadCell(line, start, 8);
   }
   const std::size_t start = line.size();
   AppendTextCell(line, entry.affinity);
   PadCell(line, start, 6);
}

void AppendGroupCells(std::string &line, const WorldEntry &entry, int w) {
   if (!entry.zombie && entry.info.cartelId() == 0) {
      line += "  0";
      AppendBlanks(line, w - 3);
      line += "  0";
      AppendBlanks(line, w - 3);
      return;
   }
   std::size_t start = line.size();
   Appendf(line, "  %d", static_cast<int>(entry.info.processGroupId()));
   PadCell(line, start, w - 2);
   start = line.size();
   Appendf(line, "  %d", static_cast<int>(entry.info.sessionId()));
   PadCell(line, start, w - 2);
}

// The ancestors' part of a tree prefix: from the top of the tree down to the
// entry's parent, a vertical bar where siblings of that ancestor are still to
// be printed. The topmost ancestor contributes nothing.
void AppendAncestorColumns(std::string &line, const std::vector<WorldEntry> &flat, const WorldEntry &entry,
                           std::vector<EntryRef> &ancestors) {
   ancestors.clear();
   for (EntryRef ref = entry.parent; ref != kNone; ref = flat[static_cast<std::size_t>(ref)].parent) {
      ancestors.push_back(ref);
   }
   for (std::size_t i = ancestors.size(); i-- > 1;) {
      const WorldEntry &ancestor = flat[static_cast<std::size_t>(ancestors[i - 1])];
      const WorldEntry &itsParent = flat[static_cast<std::size_t>(ancestor.parent)];
      if (itsParent.nChildren > 1 && itsParent.printedChildren != itsParent.nChildren) {
         AppendDrawing(line, kVerticalBar);
         line += ' ';
      } else {
         line += "  ";
      }
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

void AppendTypeCell(std::string &line, std::uint32_t typeFlags, bool verbose) {
   line += "  ";
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

void AppendHeader(std::string &line, const PsState &state) {
   const int w = IdColumnWidth(state.largestWorldId);
   if (state.Has(kTree)) {
      line += "  ";
   }
   line += "WID";
   AppendBlanks(line, w - 3);
   line += "  CID";
   AppendBlanks(line, w - 3);
   const std::size_t start = line.size();
   line += "  WorldName";
   PadCell(line, start, static_cast<long>(state.widestWorldName) + 2);
   if (state.Has(kShowNChildren)) {
      line += "  nChildren";
   }
   if (state.Has(kShowNThreads)) {
      line += "  nThreads";
   }
   if (state.Has(kShowGid)) {
      line += "  GID";
      AppendBlanks(line, w - 4);
   }
   if (state.Has(kShowGroups)) {
      line += "  PGID";
      AppendBlanks(line, w - 5);
      line += "  SID";
      AppendBlanks(line, w - 4);
   }
   if (state.Has(kShowPcid)) {
      line += "  PCID";
      AppendBlanks(line, w - 4);
   }
   if (state.Has(kShowType)) {
      line += "  Type  ";
   }
   if (state.Has(kShowState)) {
      line += "  State   Wait    CPU ";
   }
   if (state.Has(kShowTime)) {
      line += "  Time        ";
   }
   if (state.Has(kShowSecurityDomain)) {
      line += "  SecurityDomain";
   }
   if (state.Has(kShowUserspace)) {
      line += "  UserSpace";
   }
   if (state.Has(kShowCommand)) {
      line += "  Command";
   }
   line += '\n';
}

void AppendRow(std::string &line, const PsState &state, const WorldEntry &entry) {
   const int w = IdColumnWidth(state.largestWorldId);
   const rec::world_info &info = entry.info;
   const bool full = !entry.zombie;

   std::size_t start = line.size();
   Appendf(line, "%d", static_cast<int>(info.worldId()));
   PadCell(line, start, w);

   if (info.cartelId() == 0) {
      line += "  0";
      AppendBlanks(line, w - 1);
   } else {
      start = line.size();
      Appendf(line, "  %d", static_cast<int>(info.cartelId()));
      PadCell(line, start, w);
   }

   start = line.size();
   AppendTextCell(line, full ? std::string_view(entry.name) : std::string_view("<zombie>"));
   PadCell(line, start, static_cast<long>(state.widestWorldName) + 2);

   if (full && state.Has(kTree) && state.Has(kShowNChildren)) {
      Appendf(line, "  %-9d", entry.nChildren);
   }
   if (full && state.Has(kTree) && state.Has(kShowNThreads)) {
      Appendf(line, "  %-8d", entry.nThreads);
   }
   if (full && state.Has(kShowGid)) {
      start = line.size();
      Appendf(line, "  %d", static_cast<int>(info.groupId()));
      PadCell(line, start, w);
   }
   if (state.Has(kShowGroups)) {
      AppendGroupCells(line, entry, w);
   }
   if (state.Has(kShowPcid)) {
      start = line.size();
      Appendf(line, "  %d", static_cast<int>(info.parentId()));
      PadCell(line, start, static_cast<long>(w) + 2);
   }
   if (full && state.Has(kShowType)) {
      AppendTypeCell(line, info.typeFlags(), state.Has(kVerbose));
   }
   if (state.Has(kShowState)) {
      AppendStateCells(line, entry);
   }
   if (full && state.Has(kShowTime) && entry.schedValid) {
      Appendf(line, "  %5lu.%-6lu", static_cast<unsigned long>(entry.usedTime / 1000000),
              static_cast<unsigned long>(entry.usedTime % 1000000));
   }
   if (full && state.Has(kShowSecurityDomain)) {
      Appendf(line, "  %-14d", static_cast<int>(info.securityDomain()));
   }
   if (full && state.Has(kShowUserspace)) {
      Appendf(line, "  %-9d", static_cast<int>(info.userspaceId()));
   }
   if (full && state.Has(kShowCommand) && info.cartelId() != 0) {
      AppendTextCell(line, entry.commandLine);
   }
   line += '\n';
}

void PrintHeader(const PsState &state) {
   std::string line;
   AppendHeader(line, state);
   std::fwrite(line.data(), 1, line.size(), stdout);
}

void PrintTree(PsState &state, std::vector<WorldEntry> &flat, EntryRef root) {
   std::string line;
   std::vector<EntryRef> ancestors;
   ForEachInTreeOrder(flat, root, [&](EntryRef ref, std::int32_t depth) {
      WorldEntry &entry = flat[static_cast<std::size_t>(ref)];
      if (depth > state.deepestDepth) {
         state.deepestDepth = depth;
      }
      line.clear();
      if (depth == 0) {
         Appendf(line, "%d\n", static_cast<int>(entry.info.userspaceId()));
      }
      if (entry.parent != kNone) {
         line += "  ";
         AppendAncestorColumns(line, flat, entry, ancestors);
      }
      AppendDrawing(line, entry.nextSibling != kNone ? kTee : kCorner);
      AppendDrawing(line, kHorizontalBar);
      AppendRow(line, state, entry);
      if (entry.parent != kNone) {
         ++flat[static_cast<std::size_t>(entry.parent)].printedChildren;
      }
      std::fwrite(line.data(), 1, line.size(), stdout);
   });
}

}  // namespace world
