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

#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <unordered_map>

#include "psrender.h"
#include "sysinfo.h"

namespace world {

namespace {

// A command-line read with this status means the cartel has gone: the world
// is left out.
constexpr ZLC_ReturnStatus kCartelGone = 0xbad0062;
constexpr std::uint32_t kZombieChildState = rec::userworld_cartel_child::state_zombie;
// The flat listing's rows go out in blocks of about this many bytes.
constexpr std::size_t kFlushSize = 64 * 1024;

struct Collection {
   std::vector<WorldEntry> worlds;  // the flat list: each world followed by its zombie children
   std::int32_t worldsWalked = 0;
   std::int32_t worldsCollected = 0;
   std::int32_t zombies = 0;
   std::vector<WorldEntry> newZombies;  // the zombie children of the world being collected
};

// Room for the records ps reads per world; only parts of them are kept.
struct RecordBuffers {
   rec::world_name name;
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
bool ReadSchedulerRecords(WorldEntry &entry, ZIF_ParamList *query, RecordBuffers &buffers) {
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
   entry.affinity = buffers.affinity.affinity();
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
// entries of the cartel's main world. Every world of a cartel reads the list.
bool CollectZombies(WorldEntry &entry, Collection &collection, RecordBuffers &buffers) {
   const std::uint32_t cartelId = entry.info.cartelId();
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
      collection.newZombies.reserve(static_cast<std::size_t>(count > 0 ? count : 0));
   } catch (const std::bad_alloc &) {
      return Fail("failed to allocate array for zombies\n");
   }
   const bool mainWorld = entry.info.worldId() == cartelId;
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
         WorldEntry &zombie = collection.newZombies.emplace_back();
         zombie.nThreads = 0;
         zombie.zombie = true;
         zombie.info.set_worldId(static_cast<std::uint32_t>(childId))
               .set_cartelId(static_cast<std::uint32_t>(childId))
               .set_parentId(cartelId)
               .set_userspaceId(entry.info.userspaceId())
               .set_processGroupId(entry.info.processGroupId())
               .set_sessionId(entry.info.sessionId());
         ++collection.zombies;
      }
   }
   return true;
}

enum class Outcome { Keep, Skip, Fail };

// Reads one world's records into entry; the query list holds its key.
Outcome CollectWorld(WorldEntry &entry, ZIF_ParamList *query, PsState &state, Collection &collection,
                     RecordBuffers &buffers) {
   if (sysinfo::GetRecord(buffers.name, query) != 0 || sysinfo::GetRecord(entry.info, query) != 0) {
      return Outcome::Skip;
   }
   if (!ReadSchedulerRecords(entry, query, buffers)) {
      return Outcome::Skip;
   }
   const std::uint32_t cartelId = entry.info.cartelId();
   if (state.Has(kOnlyUserworlds) && cartelId == 0) {
      return Outcome::Skip;
   }
   entry.name = buffers.name.name();
   if (static_cast<std::int32_t>(entry.name.size()) > state.widestWorldName) {
      state.widestWorldName = static_cast<std::int32_t>(entry.name.size());
   }
   if (entry.info.worldId() > state.largestWorldId) {
      state.largestWorldId = entry.info.worldId();
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
   entry.commandLine = status == 0 ? std::string(buffers.commandLine.cmdline()) : std::string("<unavailable>");
   if (state.Has(kZombies) && !CollectZombies(entry, collection, buffers)) {
      return Outcome::Fail;
   }
   return Outcome::Keep;
}

// Appends a collected world to the flat list, followed by its zombie
// children, so that the walk builds the list in place.
void AppendWithZombies(Collection &collection, WorldEntry &&world) {
   collection.worlds.push_back(std::move(world));
   for (WorldEntry &zombie : collection.newZombies) {
      collection.worlds.push_back(std::move(zombie));
   }
}

bool CollectWorlds(PsState &state, ZIF_ParamList *query, const sysinfo::InstanceList &instances,
                   Collection &collection) {
   const auto buffers = std::make_unique<RecordBuffers>();
   bool failed = false;
   const sysinfo::WalkResult walk = sysinfo::ForEachInstance(instances, query, [&](ZIF_Param *, int) {
      ++collection.worldsWalked;
      WorldEntry entry;
      collection.newZombies.clear();
      switch (CollectWorld(entry, query, state, collection, *buffers)) {
         case Outcome::Keep:
            AppendWithZombies(collection, std::move(entry));
            ++collection.worldsCollected;
            return sysinfo::Visit::Next;
         case Outcome::Skip:
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
void FindUserspaceRoots(const std::vector<WorldEntry> &flat, UserspaceRoots &roots) {
   roots.fill(kNone);
   for (std::size_t index = 0; index < flat.size(); ++index) {
      const WorldEntry &entry = flat[index];
      const std::uint32_t userspace = entry.info.userspaceId();
      if (entry.zombie || userspace == 0 || entry.info.parentId() != 0) {
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

void PrintTreeListing(PsState &state, std::vector<WorldEntry> &flat, const UserspaceRoots &roots,
                      const Collection &collection) {
   LinkTree(flat);
   const PsLayout layout(state);
   std::printf("%c)0\n", 27);
   for (std::size_t slot = 0; slot < roots.size(); ++slot) {
      if (roots[slot] == kNone || (state.requestedUserspace != 0 && state.requestedUserspace != slot + 1)) {
         continue;
      }
      PrintHeader(layout);
      PrintTree(state, layout, flat, roots[slot]);
      std::fputc('\n', stdout);
   }
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

void PrintFlatListing(const PsState &state, const std::vector<WorldEntry> &flat, const UserspaceRoots &roots,
                      const Collection &collection) {
   const PsLayout layout(state);
   PrintHeader(layout);
   std::string line;
   for (const WorldEntry &entry : flat) {
      if ((state.Has(kOnlyUserworlds) && entry.info.cartelId() == 0) ||
          (state.requestedUserspace != 0 && state.requestedUserspace != entry.info.userspaceId())) {
         continue;
      }
      layout.AppendRow(line, entry);
      if (line.size() >= kFlushSize) {
         std::fwrite(line.data(), 1, line.size(), stdout);
         line.clear();
      }
   }
   line += '\n';
   std::fwrite(line.data(), 1, line.size(), stdout);
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
      collection.worlds.reserve(count + count / 2);
   } catch (const std::bad_alloc &) {
      return Fail("WorldList: malloc failed when allocating root tree node\n");
   }
   if (!CollectWorlds(state, query.get(), instances, collection)) {
      return false;
   }

   std::vector<WorldEntry> &flat = collection.worlds;
   UserspaceRoots roots;
   FindUserspaceRoots(flat, roots);

   if (state.Has(kShowUserspace) && state.requestedUserspace != 0 && !IsRunning(roots, state.requestedUserspace)) {
      ReportNotRunning(state, roots);
      return false;
   }
   if (state.Has(kTree)) {
      PrintTreeListing(state, flat, roots, collection);
   } else {
      PrintFlatListing(state, flat, roots, collection);
   }
   return true;
}

// Union-find over entries: which tree an entry belongs to, so that a link
// closing a cycle can be seen before it is made.
class Forest {
public:
   explicit Forest(std::size_t size) : up_(size), size_(size, 1) {
      for (std::size_t i = 0; i < size; ++i) {
         up_[i] = i;
      }
   }
   std::size_t Find(std::size_t node) {
      std::size_t top = node;
      while (up_[top] != top) {
         top = up_[top];
      }
      while (up_[node] != top) {
         const std::size_t next = up_[node];
         up_[node] = top;
         node = next;
      }
      return top;
   }
   // Joins the trees of a and b; false when they are one tree already.
   bool Join(std::size_t a, std::size_t b) {
      a = Find(a);
      b = Find(b);
      if (a == b) {
         return false;
      }
      if (size_[a] < size_[b]) {
         std::swap(a, b);
      }
      up_[b] = a;
      size_[a] += size_[b];
      return true;
   }

private:
   std::vector<std::size_t> up_;
   std::vector<std::size_t> size_;
};

}  // namespace

void LinkTree(std::vector<WorldEntry> &flat) {
   std::unordered_map<std::uint32_t, EntryRef> firstWithId;
   firstWithId.reserve(flat.size());
   for (std::size_t index = 0; index < flat.size(); ++index) {
      if (flat[index].info.cartelId() != 0) {
         firstWithId.try_emplace(flat[index].info.worldId(), static_cast<EntryRef>(index));
      }
   }
   Forest forest(flat.size());
   for (std::size_t index = 0; index < flat.size(); ++index) {
      WorldEntry &child = flat[index];
      if (child.info.cartelId() == 0) {
         continue;
      }
      const auto found = firstWithId.find(child.info.parentId());
      if (found == firstWithId.end()) {
         continue;
      }
      const EntryRef parentRef = found->second;
      // The child has no parent yet, so it is the top of its tree: the link
      // closes a cycle exactly when the parent is in that tree (or is it).
      if (!forest.Join(index, static_cast<std::size_t>(parentRef))) {
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
      if ((child.info.typeFlags() & kCloneType) != 0) {
         ++parent.nThreads;
      }
   }
}

bool WorldList(PsState &state) {
   try {
      return ListWorlds(state);
   } catch (const std::bad_alloc &) {
      return Fail("WorldList: Not enough memory\n");
   }
}

}  // namespace world
