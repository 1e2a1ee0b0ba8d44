// In-memory file systems from the mount table: each tmpfs or ramfs mount is a
// ramdisk, each read-only image mount (squashfs, erofs, iso9660) a tardisk,
// named by its mount point. Nothing is made up where there are none.
//
// A ramdisk's files are the inodes zdu reads. Each ram disk is a file system
// of its own, so an inode is keyed by its device and inode number
// (ZLC_DEVICE_INODE_KEY); the capture driver marks the snapshot as keyed so.
#include "parts.h"
#include "procfs.h"

#include <sys/stat.h>
#include <sys/statfs.h>
#include <deque>
#include <map>
#include <set>

namespace capture {
namespace {

constexpr uint64_t kPageSize = 4096;

bool IsRamdisk(const std::string &type) {
   return type == "tmpfs" || type == "ramfs";
}
bool IsTardisk(const std::string &type) {
   return type == "squashfs" || type == "erofs" || type == "iso9660";
}

uint32_t Clamp32(uint64_t v) {
   return v > 0xffffffffu ? 0xffffffffu : static_cast<uint32_t>(v);
}

}  // namespace

void PutRamdiskInodes(Capture &c, const std::string &name, const std::string &dir,
                      const std::set<std::string> &otherMounts, size_t bound, zif::Keys &keys) {
   struct stat root {};
   if (lstat(dir.c_str(), &root) != 0) {
      return;
   }
   const uint64_t device = root.st_dev;
   if (device > UINT32_MAX) {
      c.Note("memfs: " + name + ": device number too large for an inode key; its files are left out");
      return;
   }
   std::set<int64_t> seen;  // hard links name one inode several times
   std::deque<std::pair<std::string, std::string>> pending = {{dir, name}};
   size_t taken = 0;
   while (!pending.empty()) {
      auto [path, entry] = std::move(pending.front());
      pending.pop_front();
      struct stat st {};
      if (lstat(path.c_str(), &st) != 0 || static_cast<uint64_t>(st.st_dev) != device || st.st_ino > UINT32_MAX) {
         continue;  // gone meanwhile, a file system mounted below, or a number the key cannot hold
      }
      const int64_t key = ZLC_DEVICE_INODE_KEY(device, st.st_ino);
      if (!seen.insert(key).second) {
         continue;
      }
      if (taken == bound) {
         c.Note("memfs: " + name + " holds more than " + std::to_string(bound) + " inodes; the first " +
                std::to_string(bound) + ", breadth first, are captured");
         return;
      }
      taken++;
      // A directory's size on tmpfs is a count of its entries, not memory it holds.
      Record rec("system_zelorfs_inodes_stats");
      rec.Set("size", S_ISDIR(st.st_mode) ? 0 : Clamp32(static_cast<uint64_t>(st.st_size)))
            .Text("ramdisk", name)
            .Text("fileName", entry);
      c.Put(rec, {IntKey(key)}, true);
      keys.push_back(IntKey(key));
      if (S_ISDIR(st.st_mode)) {
         for (const std::string &child : ListDir(path).value_or(std::vector<std::string>{})) {
            std::string childPath = path.ends_with('/') ? path + child : path + "/" + child;
            if (!otherMounts.count(childPath)) {
               pending.emplace_back(std::move(childPath), child);
            }
         }
      }
   }
}

void CaptureMemfs(Capture &c) {
   auto text = ReadFile(c.Proc("self/mountinfo"), 16 << 20);
   if (!text) {
      throw PartError("cannot read " + c.Proc("self/mountinfo"));
   }
   // A mount point mounted over keeps only its last (visible) mount.
   std::map<std::string, std::string> ramdisks, tardisks;
   for (const Mount &m : ParseMountinfo(*text)) {
      ramdisks.erase(m.mountPoint);
      tardisks.erase(m.mountPoint);
      if (IsRamdisk(m.fsType)) {
         ramdisks[m.mountPoint] = m.fsType;
      }
      if (IsTardisk(m.fsType)) {
         tardisks[m.mountPoint] = m.fsType;
      }
   }

   zif::Keys ramKeys, tarKeys, inodeKeys;
   std::set<std::string> mountDirs;
   for (const auto &[point, type] : ramdisks) {
      mountDirs.insert(c.Host(point));
   }
   for (const auto &[point, type] : ramdisks) {
      struct statfs st {};
      if (statfs(c.Host(point).c_str(), &st) != 0) {
         continue;
      }
      uint64_t block = static_cast<uint64_t>(st.f_bsize);
      uint64_t used = (st.f_blocks - st.f_bfree) * block / kPageSize;
      Record rec("system_zelorfs_ramdisks_stats");
      // ramfs has no size limit (its block count is 0); Linux keeps no peak.
      rec.Set("minMB", 0)
            .Set("maxMB", Clamp32(type == "ramfs" ? 0 : st.f_blocks * block >> 20))
            .Set("usedPages", Clamp32(used))
            .Set("peakPages", Clamp32(used));
      c.Put(rec, {TextKey(point)});
      ramKeys.push_back(TextKey(point));
      PutRamdiskInodes(c, point, c.Host(point), mountDirs, kMaxInodesPerRamdisk, inodeKeys);
   }
   for (const auto &[point, type] : tardisks) {
      struct statfs st {};
      if (statfs(c.Host(point).c_str(), &st) != 0) {
         continue;
      }
      Record rec("system_zelorfs_tardisks_stats");
      rec.Set("size", Clamp32(st.f_blocks * static_cast<uint64_t>(st.f_bsize)));
      c.Put(rec, {TextKey(point)});
      tarKeys.push_back(TextKey(point));
   }
   c.List("system_zelorfs_ramdisks", {}, std::move(ramKeys));
   c.List("system_zelorfs_tardisks", {}, std::move(tarKeys));
   c.List("system_zelorfs_inodes", {}, std::move(inodeKeys));
}

}  // namespace capture
