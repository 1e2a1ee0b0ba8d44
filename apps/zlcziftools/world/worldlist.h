// The world tree collection behind ps: every world with its name, info,
// scheduler and command-line records and the zombie children of cartels,
// gathered into one flat list, with the userspace roots and the tree links.
#pragma once

#include <array>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "bulkarray.h"
#include "records.h"

namespace world {

// The ps display flags, set by ps's options.
enum PsFlag : std::uint32_t {
   kShowGid = 0x1,
   kShowPcid = 0x2,
   kShowType = 0x4,
   kShowState = 0x8,
   kShowTime = 0x10,
   kVerbose = 0x20,
   kShowCommand = 0x40,
   kOnlyUserworlds = 0x80,
   kShowGroups = 0x100,
   kOnlyCartels = 0x200,
   kShowSecurityDomain = 0x400,
   kShowUserspace = 0x800,
   kTree = 0x1000,
   kSummary = 0x2000,
   kShowNChildren = 0x4000,
   kShowNThreads = 0x8000,
   kZombies = 0x10000,
};

// The type flag bit that marks a clone (a thread of a cartel).
constexpr std::uint32_t kCloneType = rec::world_info::typeFlags_clone;

// A reference to another entry of the flat list: its index, or kNone.
using EntryRef = std::int32_t;
constexpr EntryRef kNone = -1;

// Where a text of an entry stands in the listing's TextStore.
struct TextRef {
   std::uint32_t offset = 0;
   std::uint32_t size = 0;
};

// The texts of all entries, one after another in one array.
class TextStore {
public:
   // Copies text in; throws std::bad_alloc when the store is full.
   TextRef Add(std::string_view text);
   std::string_view View(TextRef ref) const { return {bytes_.Data() + ref.offset, ref.size}; }
   std::size_t Size() const { return bytes_.Size(); }
   void Truncate(std::size_t size) { bytes_.Truncate(size); }
   void Reserve(std::size_t size) { bytes_.Reserve(size); }

private:
   BulkArray<char> bytes_;
};

// The fields of a world's info record that ps shows or links by.
struct WorldIds {
   std::uint32_t worldId = 0;
   std::uint32_t groupId = 0;
   std::uint32_t userspaceId = 0;
   std::uint32_t cartelId = 0;
   std::uint32_t parentId = 0;
   std::uint32_t processGroupId = 0;
   std::uint32_t sessionId = 0;
   std::uint32_t typeFlags = 0;
   std::uint32_t securityDomain = 0;

   static WorldIds Of(const rec::world_info &info) {
      return {info.worldId(),        info.groupId(),   info.userspaceId(), info.cartelId(),      info.parentId(),
              info.processGroupId(), info.sessionId(), info.typeFlags(),   info.securityDomain()};
   }
};

// One collected world, or one zombie child of a cartel. Only the parts of its
// records that are printed are kept, and the texts stand in a TextStore, so
// that very many worlds fit.
struct WorldEntry {
   std::uint64_t usedTime = 0;
   WorldIds info;
   TextRef name;
   TextRef affinity;
   TextRef commandLine;  // empty for worlds without a cartel
   std::uint32_t runState = 0;
   std::uint32_t waitState = 0;
   std::int32_t nChildren = 0;
   std::int32_t nThreads = 1;
   std::int32_t printedChildren = 0;
   EntryRef nextSibling = kNone;
   EntryRef firstChild = kNone;
   EntryRef lastChild = kNone;  // the end of the child chain, so linking appends in constant time
   EntryRef parent = kNone;
   bool schedValid = false;
   bool zombie = false;
};

// Userspace IDs 1 to 127 have a slot; slot n - 1 holds userspace n's root.
constexpr std::size_t kUserspaceSlots = 128;
constexpr std::uint32_t kLargestUserspace = 127;
using UserspaceRoots = std::array<EntryRef, kUserspaceSlots>;

// What one ps run collects and the printing routines read.
struct PsState {
   std::uint32_t flags = 0;
   std::uint32_t requestedUserspace = 0;  // 0: all userspaces
   std::uint32_t largestWorldId = 0;
   std::int32_t widestWorldName = 0;
   std::int32_t deepestDepth = 0;

   bool Has(std::uint32_t flag) const { return (flags & flag) != 0; }
};

// Collects the worlds and prints the flat table or the userspace trees.
// Returns false when the collection failed (nothing was printed then) and
// after the report that the requested userspace is not running.
bool WorldList(PsState &state);

// Links every cartel entry under the first entry (in flat-list order) whose
// world ID is its parent ID, appending it to that parent's child chain. A link
// to the entry itself, or one that would close a cycle of parents, is not
// made, so every chain of parents ends. Linear in the number of entries.
void LinkTree(std::span<WorldEntry> flat);

// Visits the tree below root in printing order (an entry, then the trees of
// its children along the sibling chain) with each entry's depth below root,
// without recursion, so that trees of any depth can be walked.
template <typename Visitor>
void ForEachInTreeOrder(std::span<const WorldEntry> flat, EntryRef root, Visitor &&visit) {
   visit(root, 0);
   std::vector<EntryRef> path;  // the entry being visited at each depth below root
   path.push_back(flat[static_cast<std::size_t>(root)].firstChild);
   while (!path.empty()) {
      const EntryRef current = path.back();
      if (current == kNone) {
         path.pop_back();
         if (!path.empty()) {
            path.back() = flat[static_cast<std::size_t>(path.back())].nextSibling;
         }
         continue;
      }
      visit(current, static_cast<std::int32_t>(path.size()));
      path.push_back(flat[static_cast<std::size_t>(current)].firstChild);
   }
}

}  // namespace world
