// In-memory file systems from the mount table: each tmpfs or ramfs mount is a
// ramdisk, each read-only image mount (squashfs, erofs, iso9660) a tardisk,
// named by its mount point. Nothing is made up where there are none.
#include "parts.h"
#include "procfs.h"

#include <sys/statfs.h>
#include <map>

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

   zif::Keys ramKeys, tarKeys;
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
}

}  // namespace capture
