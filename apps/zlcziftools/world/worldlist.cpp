// WorldList: the collection walk over all worlds (or all cartels), the zombie
// children of cartels, the flat list with its userspace roots, the tree links
// and the listing driver with its summary lines.
//
// Where the obvious would differ: the tree is linked in linear time through a
// map from world ID to entry, giving the order of a pairwise scan; a world ID
// that occurs twice adopts children only at its first entry, and a link that
// would make an entry its own ancestor is left out. A listing that was printed
// in full succeeds whatever the last command-line read returned.
#include "worldlist.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <string_view>

#include "psrender.h"
#include "sysinfo.h"

namespace world {

namespace {

// A command-line read with this status means the cartel has gone: the world
// is left out.
constexpr ZLC_ReturnStatus kCartelGone = 0xbad0062;
constexpr std::uint32_t kZombieChildState = rec::userworld_cartel_child::state_zombie;
// What the texts of a world usually take (a name and a command line), to
// reserve the text store by: more costs a move of its pages, never a copy.
constexpr std::size_t kTextBytesPerWorld = 64;

struct Collection {
   BulkArray<WorldEntry> worlds;  // the flat list: each world followed by its zombie children
   TextStore texts;
   // Neighbouring worlds often have the same affinity, and the worlds of a
   // cartel the same command line: a text equal to the last one of its kind
   // is stored once.
   TextRef lastAffinity;
   TextRef lastCommandLine;
   std::int32_t worldsWalked = 0;
   std::int32_t worldsCollected = 0;
   std::int32_t zombies = 0;

   TextRef AddShared(TextRef &last, std::string_view text) {
      if (texts.View(last) != text) {
         last = texts.Add(text);
      }
      return last;
   }
   // Takes the texts from size on off the store again.
   void TruncateTexts(std::size_t size) {
      texts.Truncate(size);
      for (TextRef *last : {&lastAffinity, &lastCommandLine}) {
         if (last->offset + last->size > size) {
            *last = {};
         }
      }
   }
};

// Room for the records ps reads per world; only parts of them are kept.
struct RecordBuffers {
   rec::world_name name;
   rec::world_info info;
   rec::sched_Vcpus_stats_summaryStats summary;
   rec::sched_Vcpus_stats_affinity affinity;
   rec::sched_Vcpus_stats_stateTimes stateTimes;
   rec::userworld_cartel_cmdline commandLine;
   rec::userworld_cartel_child child;
};

bool Fail(const char *message) {
   std::fputs(message, stderr);
   return false;
}

// Reads the scheduler records. Returns false when the world is to be left
// out (its state times cannot be read after the other two could).
bool ReadSchedulerRecords(WorldEntry &entry, ZIF_ParamList *query, RecordBuffers &buffers, Collection &collection) {
   entry.schedValid = false;
   if (sysinfo::GetRecord(buffers.summary, query) != 0 || sysinfo::GetRecord(buffers.affinity, query) != 0) {
      return true;
   }
   if (sysinfo::GetRecord(buffers.stateTimes, query) != 0) {
      return false;
   }
   entry.schedValid = true;
   entry.runState = buffers.summary.runState();
   entry.waitState = buffers.summary.waitState();
   entry.affinity = collection.AddShared(collection.lastAffinity, buffers.affinity.affinity());
   entry.usedTime = buffers.stateTimes.usedTime();
   return true;
}

// A query list holding the cartel ID and, when given, a child ID.
sysinfo::ParamListPtr ChildQuery(std::uint32_t cartelId, const std::int32_t *childId, const char *noListMessage,
                                 const char *cartelMessage, const char *childMessage) {
   sysinfo::ParamListPtr list = sysinfo::MakeQueryList();
   if (!list) {
      std::fputs(noListMessage, stderr);
      return nullptr;
   }
   if (ZIF_ParamListAddInt(list.get(), cartelId) != 0) {
      std::fputs(cartelMessage, stderr);
      return nullptr;
   }
   if (childId != nullptr && ZIF_ParamListAddInt(list.get(), *childId) != 0) {
      std::fputs(childMessage, stderr);
      return nullptr;
   }
   return list;
}

// Reads the children of a userworld's cartel; the zombies among them become
// entries after the cartel's main world. Every world of a cartel reads the
// list. The world's info is a copy: appending may move the flat list.
bool CollectZombies(const WorldIds info, Collection &collection, RecordBuffers &buffers) {
   const std::uint32_t cartelId = info.cartelId;
   sysinfo::InstanceList children;
   {
      sysinfo::ParamListPtr parent = ChildQuery(cartelId, nullptr, "failed to alloc paramlist for children\n",
                                                "failed to add int to child param list\n", nullptr);
      if (!parent) {
         return false;
      }
      // A failed fetch counts as an empty child list.
      children.Fetch(sysinfo::Node(ZIF_NODE_userworld_cartel_child), parent.get());
   }
   const int count = children.Count();
   try {
      collection.worlds.Reserve(collection.worlds.Size() + static_cast<std::size_t>(count > 0 ? count : 0));
   } catch (const std::bad_alloc &) {
      return Fail("failed to allocate array for zombies\n");
   }
   const bool mainWorld = info.worldId == cartelId;
   for (int index = 0; index < count; ++index) {
      std::int32_t childId = 0;
      if (ZIF_ParamListGetInt32(children.Get(), index, &childId) != 0) {
         return Fail("failed to get child ID\n");
      }
      sysinfo::ParamListPtr query = ChildQuery(cartelId, &childId, "failed to create children list\n",
                                               "failed to add cartel ID to list\n", "failed to add child ID to list\n");
      if (!query) {
         return false;
      }
      const ZLC_ReturnStatus status = sysinfo::GetRecord(buffers.child, query.get());
      if (status != 0) {
         std::fprintf(stderr, "failed to get child info for child %d, status %s\n", childId,
                      ZLC_ReturnStatusToString(status));
         return false;
      }
      if (buffers.child.state() == kZombieChildState && mainWorld) {
         WorldEntry &zombie = collection.worlds.Append();
         zombie.nThreads = 0;
         zombie.zombie = true;
         zombie.info.worldId = static_cast<std::uint32_t>(childId);
         zombie.info.cartelId = static_cast<std::uint32_t>(childId);
         zombie.info.parentId = cartelId;
         zombie.info.userspaceId = info.userspaceId;
         zombie.info.processGroupId = info.processGroupId;
         zombie.info.sessionId = info.sessionId;
         ++collection.zombies;
      }
   }
   return true;
}

enum class Outcome { Keep, Skip, Fail };

// Reads one world's records into the entry at the end of the flat list; the
// query list holds its key.
Outcome CollectWorld(ZIF_ParamList *query, PsState &state, Collection &collection, RecordBuffers &buffers) {
   WorldEntry &entry = collection.worlds[collection.worlds.Size() - 1];
   if (sysinfo::GetRecord(buffers.name, query) != 0 || sysinfo::GetRecord(buffers.info, query) != 0) {
      return Outcome::Skip;
   }
   entry.info = WorldIds::Of(buffers.info);
   if (!ReadSchedulerRecords(entry, query, buffers, collection)) {
      return Outcome::Skip;
   }
   const std::uint32_t cartelId = entry.info.cartelId;
   if (state.Has(kOnlyUserworlds) && cartelId == 0) {
      return Outcome::Skip;
   }
   entry.name = collection.texts.Add(buffers.name.name());
   if (static_cast<std::int32_t>(entry.name.size) > state.widestWorldName) {
      state.widestWorldName = static_cast<std::int32_t>(entry.name.size);
   }
   if (entry.info.worldId > state.largestWorldId) {
      state.largestWorldId = entry.info.worldId;
   }
   if (cartelId == 0) {
      return Outcome::Keep;
   }

   // The command line is addressed by the cartel ID in place of the world key;
   // the walker removes whichever key is last.
   ZIF_ParamListRemoveLastParam(query);
   ZIF_ParamListAddInt(query, cartelId);
   const ZLC_ReturnStatus status = sysinfo::GetRecord(buffers.commandLine, query);
   if (status == kCartelGone) {
      return Outcome::Skip;
   }
   entry.commandLine = collection.AddShared(
         collection.lastCommandLine, status == 0 ? buffers.commandLine.cmdline() : std::string_view("<unavailable>"));
   if (state.Has(kZombies) && !CollectZombies(entry.info, collection, buffers)) {
      return Outcome::Fail;
   }
   return Outcome::Keep;
}

// Each world is collected in place at the end of the flat list, followed by
// its zombie children; a world left out is taken off again with its texts.
bool CollectWorlds(PsState &state, ZIF_ParamList *query, const sysinfo::InstanceList &instances,
                   Collection &collection) {
   const auto buffers = std::make_unique<RecordBuffers>();
   bool failed = false;
   const sysinfo::WalkResult walk = sysinfo::ForEachInstance(instances, query, [&](ZIF_Param *, int) {
      ++collection.worldsWalked;
      const std::size_t entries = collection.worlds.Size();
      const std::size_t texts = collection.texts.Size();
      collection.worlds.Append();
      switch (CollectWorld(query, state, collection, *buffers)) {
         case Outcome::Keep:
            ++collection.worldsCollected;
            return sysinfo::Visit::Next;
         case Outcome::Skip:
            collection.worlds.Truncate(entries);
            collection.TruncateTexts(texts);
            return sysinfo::Visit::Next;
         case Outcome::Fail:
            break;
      }
      failed = true;
      return sysinfo::Visit::Stop;
   });
   return walk.Completed() && !failed;
}

// The root of a userspace is a collected world of that userspace without a
// parent; a later one replaces an earlier one.
void FindUserspaceRoots(std::span<const WorldEntry> flat, UserspaceRoots &roots) {
   roots.fill(kNone);
   for (std::size_t index = 0; index < flat.size(); ++index) {
      const WorldEntry &entry = flat[index];
      const std::uint32_t userspace = entry.info.userspaceId;
      if (entry.zombie || userspace == 0 || entry.info.parentId != 0) {
         continue;
      }
      if (userspace <= kLargestUserspace) {
         roots[userspace - 1] = static_cast<EntryRef>(index);
      } else {
         std::fputs("Warning: maximum number of userspaces reached...\n", stderr);
      }
   }
}

bool IsRunning(const UserspaceRoots &roots, std::uint32_t userspace) {
   return userspace >= 1 && userspace <= kLargestUserspace && roots[userspace - 1] != kNone;
}

// The entries go to standard error, the line breaks to standard output.
void ReportNotRunning(const PsState &state, const UserspaceRoots &roots) {
   std::fprintf(stderr, "Requested userspace (%d) is not running.\n", static_cast<int>(state.requestedUserspace));
   std::fputs("Available userspaces:\n ", stderr);
   for (std::size_t slot = 0; slot < roots.size(); ++slot) {
      if (roots[slot] == kNone) {
         continue;
      }
      std::fprintf(stderr, "%3d ", static_cast<int>(slot + 1));
      if (slot % 10 == 0 && slot != 0) {
         std::fputc('\n', stdout);
      }
   }
   std::fputc('\n', stdout);
}

int CountUserspaces(const UserspaceRoots &roots) {
   int count = 0;
   for (EntryRef root : roots) {
      count += root != kNone ? 1 : 0;
   }
   return count;
}

void PrintTreeListing(PsState &state, Collection &collection, const UserspaceRoots &roots) {
   const std::span<WorldEntry> flat = collection.worlds.Span();
   LinkTree(flat);
   const PsLayout layout(state, collection.texts);
   BlockOutput output;
   LineBuffer &text = output.Buffer();
   text += "\x1b)0\n";
   for (std::size_t slot = 0; slot < roots.size(); ++slot) {
      if (roots[slot] == kNone || (state.requestedUserspace != 0 && state.requestedUserspace != slot + 1)) {
         continue;
      }
      layout.AppendHeader(text);
      PrintTree(state, layout, flat, roots[slot], output);
      text += '\n';
   }
   output.Flush();
   if (state.Has(kSummary)) {
      std::printf("Total worlds:         %d\n", collection.worldsWalked);
      std::printf("Total printed worlds: %d\n", collection.worldsCollected);
      std::printf("Deepest child:        %d\n", state.deepestDepth + 1);
      if (state.Has(kZombies)) {
         std::printf("Zombie worlds:        %d\n", collection.zombies);
      }
      std::printf("Total userspaces:     %d\n", CountUserspaces(roots));
   }
}

void PrintFlatListing(const PsState &state, const Collection &collection, const UserspaceRoots &roots) {
   const PsLayout layout(state, collection.texts);
   BlockOutput output;
   LineBuffer &text = output.Buffer();
   layout.AppendHeader(text);
   for (const WorldEntry &entry : collection.worlds.Span()) {
      if ((state.Has(kOnlyUserworlds) && entry.info.cartelId == 0) ||
          (state.requestedUserspace != 0 && state.requestedUserspace != entry.info.userspaceId)) {
         continue;
      }
      layout.AppendRow(text, entry);
      output.LineDone();
   }
   text += '\n';
   output.Flush();
   if (state.Has(kSummary)) {
      std::printf("Total worlds:         %d\n", collection.worldsWalked);
      std::printf("Total printed worlds: %d\n", collection.worldsCollected);
      if (state.Has(kZombies)) {
         std::printf("Zombie worlds:        %d\n", collection.zombies);
      }
      std::printf("Total userspaces:     %d\n", CountUserspaces(roots));
   }
}

bool ListWorlds(PsState &state) {
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   if (!query) {
      return Fail("WorldList: Not enough memory\n");
   }
   // With only-cartels each cartel ID stands for its main world's ID.
   const ZIF_NodeObject &listNode = state.Has(kOnlyCartels) ? ZIF_NODE_userworld_cartel : ZIF_NODE_world;
   sysinfo::InstanceList instances;
   const ZLC_ReturnStatus status = instances.Fetch(sysinfo::Node(listNode), nullptr);
   if (status != 0) {
      std::fprintf(stderr, "WorldList: error fetching world list 0x%x\n", status);
      return false;
   }

   Collection collection;
   try {
      // Room for the zombie children too, so that the list is not moved as
      // it grows: pages of the reserve that are never written cost nothing.
      const auto count = static_cast<std::size_t>(instances.Count());
      collection.worlds.Reserve(count + count / 2);
      collection.texts.Reserve(count * kTextBytesPerWorld);
   } catch (const std::bad_alloc &) {
      return Fail("WorldList: malloc failed when allocating root tree node\n");
   }
   if (!CollectWorlds(state, query.get(), instances, collection)) {
      return false;
   }

   UserspaceRoots roots;
   FindUserspaceRoots(collection.worlds.Span(), roots);

   if (state.Has(kShowUserspace) && state.requestedUserspace != 0 && !IsRunning(roots, state.requestedUserspace)) {
      ReportNotRunning(state, roots);
      return false;
   }
   if (state.Has(kTree)) {
      PrintTreeListing(state, collection, roots);
   } else {
      PrintFlatListing(state, collection, roots);
   }
   return true;
}

// Union-find over entries: which tree an entry belongs to, so that a link
// closing a cycle can be seen before it is made. Path halving alone keeps the
// finds short enough and the table at one number per entry.
class Forest {
public:
   explicit Forest(std::size_t size) {
      up_.Reserve(size);
      for (std::size_t i = 0; i < size; ++i) {
         up_.Append() = static_cast<std::uint32_t>(i);
      }
   }
   std::uint32_t Find(std::uint32_t node) {
      while (up_[node] != node) {
         up_[node] = up_[up_[node]];
         node = up_[node];
      }
      return node;
   }
   // Joins the trees of a and b; false when they are one tree already.
   bool Join(std::uint32_t a, std::uint32_t b) {
      a = Find(a);
      b = Find(b);
      if (a == b) {
         return false;
      }
      up_[a] = b;
      return true;
   }

private:
   BulkArray<std::uint32_t> up_;
};

// World ID to the first entry with that ID: open addressing over a power of
// two of slots, at least twice as many as entries.
class FirstEntryById {
public:
   explicit FirstEntryById(std::size_t entries) {
      while ((std::size_t{1} << bits_) < 2 * entries) {
         ++bits_;
      }
      slots_.Fill(std::size_t{1} << bits_, Slot{0, kNone});
   }
   // Keeps the entry already there for id.
   void Add(std::uint32_t id, EntryRef ref) {
      Slot &slot = slots_[Probe(id)];
      if (slot.ref == kNone) {
         slot = {id, ref};
      }
   }
   EntryRef Find(std::uint32_t id) const { return slots_[Probe(id)].ref; }

private:
   struct Slot {
      std::uint32_t id;
      EntryRef ref;
   };
   // The slot holding id, or the empty slot where it would go.
   std::size_t Probe(std::uint32_t id) const {
      const std::size_t mask = (std::size_t{1} << bits_) - 1;
      std::size_t index = static_cast<std::size_t>((std::uint64_t{id} * 0x9e3779b97f4a7c15u) >> (64 - bits_));
      while (slots_[index].ref != kNone && slots_[index].id != id) {
         index = (index + 1) & mask;
      }
      return index;
   }
   unsigned bits_ = 4;
   BulkArray<Slot> slots_;
};

}  // namespace

void LinkTree(std::span<WorldEntry> flat) {
   FirstEntryById firstWithId(flat.size());
   for (std::size_t index = 0; index < flat.size(); ++index) {
      if (flat[index].info.cartelId != 0) {
         firstWithId.Add(flat[index].info.worldId, static_cast<EntryRef>(index));
      }
   }
   Forest forest(flat.size());
   for (std::size_t index = 0; index < flat.size(); ++index) {
      WorldEntry &child = flat[index];
      if (child.info.cartelId == 0) {
         continue;
      }
      const EntryRef parentRef = firstWithId.Find(child.info.parentId);
      if (parentRef == kNone) {
         continue;
      }
      // The child has no parent yet, so it is the top of its tree: the link
      // closes a cycle exactly when the parent is in that tree (or is it).
      if (!forest.Join(static_cast<std::uint32_t>(index), static_cast<std::uint32_t>(parentRef))) {
         continue;
      }
      WorldEntry &parent = flat[static_cast<std::size_t>(parentRef)];
      if (parent.firstChild == kNone) {
         parent.firstChild = static_cast<EntryRef>(index);
      } else {
         flat[static_cast<std::size_t>(parent.lastChild)].nextSibling = static_cast<EntryRef>(index);
      }
      parent.lastChild = static_cast<EntryRef>(index);
      ++parent.nChildren;
      child.parent = parentRef;
      if ((child.info.typeFlags & kCloneType) != 0) {
         ++parent.nThreads;
      }
   }
}

TextRef TextStore::Add(std::string_view text) {
   const std::size_t offset = bytes_.Size();
   if (offset + text.size() > UINT32_MAX) {
      throw std::bad_alloc();
   }
   bytes_.Append(text.data(), text.size());
   return {static_cast<std::uint32_t>(offset), static_cast<std::uint32_t>(text.size())};
}

bool WorldList(PsState &state) {
   try {
      return ListWorlds(state);
   } catch (const std::bad_alloc &) {
      return Fail("WorldList: Not enough memory\n");
   }
}

}  // namespace world
