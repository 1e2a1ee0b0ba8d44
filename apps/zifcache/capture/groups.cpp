// Resource pool groups from the cgroup v2 tree: group IDs are cgroup IDs (the
// inode numbers of the cgroup directories), path names are the paths Linux
// shows in /proc/PID/cgroup ("/" for the root), and the memory settings come
// from memory.min, memory.max and memory.peak.
#include "parts.h"
#include "procfs.h"

#include <sys/stat.h>

namespace capture {
namespace {

constexpr int64_t kUnlimited = -1;

struct Walk {
   Capture &c;
   std::string mount;
   size_t groups = 0;
};

std::optional<CgroupValue> ReadValue(const std::string &path) {
   auto text = ReadFile(path, 256);
   return text ? ParseCgroupValue(*text) : std::nullopt;
}

// Adds the group at dir (path name name) and its subtree; returns its ID, or
// nullopt when it vanished.
std::optional<uint64_t> AddGroup(Walk &w, const std::string &dir, const std::string &name, int depth) {
   struct stat st;
   if (stat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode)) {
      return std::nullopt;
   }
   uint64_t id = st.st_ino;
   w.groups++;
   zif::Keys children;
   if (auto names = ListDir(dir); names && depth < 64) {
      for (const std::string &entry : *names) {
         std::string sub = dir + "/" + entry;
         struct stat sst;
         if (lstat(sub.c_str(), &sst) != 0 || !S_ISDIR(sst.st_mode)) {
            continue;
         }
         std::string subName = name == "/" ? "/" + entry : name + "/" + entry;
         if (auto child = AddGroup(w, sub, subName, depth + 1)) {
            children.push_back(IntKey(static_cast<int64_t>(*child)));
         }
      }
   }
   zif::Key key = IntKey(static_cast<int64_t>(id));
   w.c.List("sched_groups_members_groups", {key}, std::move(children));

   // The root group has no limits of its own.
   auto min = ReadValue(dir + "/memory.min");
   auto max = ReadValue(dir + "/memory.max");
   auto peak = ReadValue(dir + "/memory.peak");
   Record alloc("sched_groups_memAllocationInMB");
   alloc.SetSigned("min", min && !min->unlimited ? static_cast<int64_t>(min->bytes >> 20) : 0)
         .SetSigned("max", max && !max->unlimited ? static_cast<int64_t>(max->bytes >> 20) : kUnlimited);
   w.c.Put(alloc, {key});
   Record stats("sched_groups_stats_memoryStats");
   stats.Set("rminPeakKB", peak && !peak->unlimited ? peak->bytes >> 10 : 0);
   w.c.Put(stats, {key});

   std::vector<uint8_t> out(8);
   for (int i = 0; i < 8; i++) {
      out[i] = static_cast<uint8_t>(id >> (8 * i));
   }
   w.c.PutSet("sched_groupPathNameToID", {TextKey(name)}, std::move(out));
   return id;
}

}  // namespace

void CaptureGroups(Capture &c) {
   auto text = ReadFile(c.Proc("self/mountinfo"), 16 << 20);
   if (!text) {
      throw PartError("cannot read " + c.Proc("self/mountinfo"));
   }
   std::string mount;
   for (const Mount &m : ParseMountinfo(*text)) {
      if (m.fsType == "cgroup2") {
         mount = m.mountPoint;
      }
   }
   if (mount.empty()) {
      throw PartError("no cgroup v2 hierarchy is mounted");
   }
   Walk w{c, mount};
   if (!AddGroup(w, c.Host(mount), "/", 0)) {
      throw PartError("cannot read " + mount);
   }
}

}  // namespace capture
