// The summary line of zifcache diff: what changed in words a host's keeper
// uses ("worlds: 2 started", "PCI: 1 function added at 0000:3b:00.1",
// "ramdisk /tmp: used 410 → 2180 pages"), one item per family of nodes, and
// the node name with counts for any node no family claims.
#include "diff_internal.h"
#include "zifformat/layouts.h"

#include <algorithm>
#include <array>
#include <cinttypes>
#include <cstdio>
#include <map>

namespace zifdiff {
namespace {

constexpr size_t kMaxNamed = 3;

struct Context {
   const zif::Reader &before, &after;
   const zif::Reader &side(bool isAfter) const { return isAfter ? after : before; }
};

// The index entries of one kind and node: [first, last).
std::pair<size_t, size_t> entriesOf(const zif::Reader &r, zif::EntryKind kind, std::string_view node) {
   auto below = [&](size_t i, bool orEqual) {
      const zif::IndexEntry e = r.entry(i);
      if (e.kind != kind) {
         return e.kind < kind;
      }
      int c = r.entryNode(e).compare(node);
      return orEqual ? c <= 0 : c < 0;
   };
   auto bound = [&](bool orEqual) {
      size_t lo = 0, hi = r.size();
      while (lo < hi) {
         size_t mid = lo + (hi - lo) / 2;
         if (below(mid, orEqual)) {
            lo = mid + 1;
         } else {
            hi = mid;
         }
      }
      return lo;
   };
   return {bound(false), bound(true)};
}

std::span<const uint8_t> recordOf(const zif::Reader &r, std::string_view node, const zif::Keys &keys) {
   std::optional<size_t> i = r.find(zif::EntryKind::Record, node, zif::encodeKeys(keys));
   std::span<const uint8_t> bytes;
   if (!i || r.entry(*i).status != 0 || r.payload(*i, bytes) != ZLC_OK) {
      return {};
   }
   return bytes;
}

const zif::FieldLayout *fieldOf(std::string_view node, std::string_view field) {
   const zif::RecordLayout *layout = zif::findLayout(node);
   return layout ? zif::findField(*layout, field) : nullptr;
}

std::string textField(std::span<const uint8_t> record, std::string_view node, std::string_view field) {
   std::string text;
   if (const zif::FieldLayout *f = fieldOf(node, field)) {
      for (size_t i = f->offset; i < record.size() && i < size_t{f->offset} + f->width && record[i]; i++) {
         text.push_back(static_cast<char>(record[i]));
      }
   }
   return text;
}

int64_t intField(std::span<const uint8_t> record, std::string_view node, std::string_view field) {
   uint64_t v = 0;
   if (const zif::FieldLayout *f = fieldOf(node, field)) {
      for (size_t i = 0; i < f->width && i < 8 && f->offset + i < record.size(); i++) {
         v |= uint64_t{record[f->offset + i]} << (8 * i);
      }
   }
   return static_cast<int64_t>(v);
}

std::string keyText(const zif::Key &k) {
   switch (k.type) {
      case zif::KeyType::Int:
         return std::to_string(k.number);
      case zif::KeyType::Text:
         return k.text;
      case zif::KeyType::Null:
         break;
   }
   return "null";
}

// How an instance is named: the keys, or a name read from a record.
using Namer = std::string (*)(const Context &, const zif::Keys &, bool after);

std::string keysName(const Context &, const zif::Keys &id, bool) {
   std::string s;
   for (const zif::Key &k : id) {
      if (!s.empty()) {
         s += '/';
      }
      s += keyText(k);
   }
   return s;
}

std::string withRecordText(const Context &c, const zif::Keys &id, bool after, std::string_view node,
                           std::string_view field) {
   std::string name = keysName(c, id, after);
   std::string text = textField(recordOf(c.side(after), node, id), node, field);
   text = text.substr(0, text.find(' '));
   return text.empty() ? name : name + " " + text;
}

std::string worldName(const Context &c, const zif::Keys &id, bool after) {
   return withRecordText(c, id, after, "world_name", "name");
}

std::string cartelName(const Context &c, const zif::Keys &id, bool after) {
   return withRecordText(c, id, after, "userworld_cartel_cmdline", "cmdline");
}

std::string moduleName(const Context &c, const zif::Keys &id, bool after) {
   std::string name =
         textField(recordOf(c.side(after), "system_modules_general", id), "system_modules_general", "name");
   return name.empty() ? keysName(c, id, after) : name;
}

std::string pciAddress(const Context &c, const zif::Keys &id, bool after) {
   if (id.size() != 4 ||
       std::any_of(id.begin(), id.end(), [](const zif::Key &k) { return k.type != zif::KeyType::Int; })) {
      return keysName(c, id, after);
   }
   char text[64];
   std::snprintf(text, sizeof text, "%04" PRIx64 ":%02" PRIx64 ":%02" PRIx64 ".%" PRIx64,
                 static_cast<uint64_t>(id[0].number), static_cast<uint64_t>(id[1].number),
                 static_cast<uint64_t>(id[2].number), static_cast<uint64_t>(id[3].number));
   return text;
}

// A resource pool by its path, from the answers of the path-to-ID lookup.
std::string poolName(const Context &c, const zif::Keys &id, bool after) {
   const zif::Reader &r = c.side(after);
   if (id.size() == 1 && id[0].type == zif::KeyType::Int) {
      auto [first, last] = entriesOf(r, zif::EntryKind::Set, "sched_groupPathNameToID");
      for (size_t i = first; i < last; i++) {
         const zif::IndexEntry e = r.entry(i);
         std::span<const uint8_t> answer;
         zif::Keys input;
         if (e.status == 0 && r.payload(i, answer) == ZLC_OK && answer.size() >= 8 &&
             zif::decodeKeys(r.entryKey(e), input) && input.size() == 1 && input[0].type == zif::KeyType::Text) {
            int64_t group = 0;
            for (size_t b = 0; b < 8; b++) {
               group |= static_cast<int64_t>(uint64_t{answer[b]} << (8 * b));
            }
            if (group == id[0].number) {
               return input[0].text;
            }
         }
      }
   }
   return "group " + keysName(c, id, after);
}

// A family of nodes counted as instances of one list: instances that appear
// and disappear, and instances whose records changed.
struct Family {
   std::string_view label;
   std::string_view list;  // empty: a family of single records, counted as entries
   std::string_view appeared = "added", disappeared = "removed";
   std::string_view noun = {}, nouns = {};        // "1 function added at ..." rather than "1 added (...)"
   bool pathIsIdentity = false;                   // parent keys and instance key, or the instance key alone
   size_t keyDepth = 1;                           // leading record keys that name the instance; 0: all
   std::array<std::string_view, 2> members = {};  // node name prefixes whose changes count
   std::string_view folded = {};                  // node name prefix only the details show (lists above the instances)
   Namer name = nullptr;
};

const Family kFamilies[] = {
      {"worlds", "world", "started", "ended", {}, {}, false, 1, {"world_", "sched_Vcpus_"}, {}, worldName},
      {"cartels", "userworld_cartel", "started", "ended", {}, {}, false, 1, {"userworld_cartel_"}, {}, cartelName},
      {"PCI",
       "hardware_pci_seg_bus_slot_func",
       "added",
       "removed",
       "function",
       "functions",
       true,
       4,
       {"hardware_pci_seg_bus_slot_func_"},
       "hardware_pci_seg",
       pciAddress},
      {"modules", "system_modules", "loaded", "unloaded", {}, {}, false, 1, {"system_modules_"}, {}, moduleName},
      {"ACPI devices",
       "system_devicetree_devices",
       "added",
       "removed",
       {},
       {},
       true,
       0,
       {"system_devicetree_devices_"},
       {},
       keysName},
      {"ACPI tables",
       "hardware_acpi_tables",
       "added",
       "removed",
       {},
       {},
       false,
       1,
       {"hardware_acpi_tables_"},
       {},
       keysName},
      {"interrupts",
       "hardware_interrupts_cookieList",
       "added",
       "removed",
       {},
       {},
       false,
       1,
       {"hardware_interrupts_cookieList_"},
       {},
       keysName},
      {"ramdisks",
       "system_zelorfs_ramdisks",
       "added",
       "removed",
       {},
       {},
       false,
       1,
       {"system_zelorfs_ramdisks_"},
       {},
       keysName},
      {"tardisks",
       "system_zelorfs_tardisks",
       "added",
       "removed",
       {},
       {},
       false,
       1,
       {"system_zelorfs_tardisks_"},
       {},
       keysName},
      {"inodes",
       "system_zelorfs_inodes",
       "added",
       "removed",
       {},
       {},
       false,
       1,
       {"system_zelorfs_inodes_"},
       {},
       keysName},
      {"pools",
       "sched_groups_members_groups",
       "added",
       "removed",
       {},
       {},
       false,
       1,
       {"sched_groups_memAllocationInMB", "sched_groups_stats_memoryStats"},
       {},
       poolName},
      {"boot option files",
       "system_bootOptionFiles",
       "added",
       "removed",
       {},
       {},
       false,
       1,
       {"system_bootOptionFiles_"},
       {},
       keysName},
      {"clock", {}, "added", "removed", {}, {}, false, 1, {"hardware_chipset_rtc"}},
      {"uptime", {}, "added", "removed", {}, {}, false, 1, {"system_ntpclock_upTime"}},
      {"load average", {}, "added", "removed", {}, {}, false, 1, {"sched_groups_stats_cpuStatsDir_cpuLoadHistory_"}},
      {"version", {}, "added", "removed", {}, {}, false, 1, {"system_version"}},
};

// Records whose changed fields the summary spells out, in words of their
// own: "ramdisk /tmp: used 410 → 2180 pages".
struct Measure {
   std::string_view field, label, unit;
   bool hundredths = false;
};

struct Spelled {
   std::string_view node;
   std::string_view prefix;
   Namer name;
   std::array<Measure, 4> measures;
};

const Spelled kSpelled[] = {
      {"system_zelorfs_ramdisks_stats",
       "ramdisk",
       keysName,
       {{{"minMB", "min", "MB"},
         {"maxMB", "max", "MB"},
         {"usedPages", "used", "pages"},
         {"peakPages", "peak", "pages"}}}},
      {"system_zelorfs_tardisks_stats", "tardisk", keysName, {{{"size", "size", "bytes"}}}},
      {"sched_groups_memAllocationInMB", "pool", poolName, {{{"min", "min", "MB"}, {"max", "max", "MB"}}}},
      {"system_ntpclock_upTime", "uptime", nullptr, {{{"seconds", "", "seconds"}}}},
      {"sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory1MinInPct",
       "load average (1 min)",
       nullptr,
       {{{"loadPct", "", "", true}}}},
      {"sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory5MinInPct",
       "load average (5 min)",
       nullptr,
       {{{"loadPct", "", "", true}}}},
      {"sched_groups_stats_cpuStatsDir_cpuLoadHistory_cpuLoadHistory15MinInPct",
       "load average (15 min)",
       nullptr,
       {{{"loadPct", "", "", true}}}},
      {"system_version", "version", nullptr, {{{"version", "", ""}}}},
};

std::string plainValue(const Value &v, bool hundredths) {
   switch (v.type) {
      case Value::Type::Signed:
      case Value::Type::Unsigned: {
         if (hundredths) {
            int64_t n = v.type == Value::Type::Signed ? v.number : static_cast<int64_t>(v.unsignedNumber);
            char text[40];
            std::snprintf(text, sizeof text, "%s%" PRId64 ".%02" PRId64, n < 0 ? "-" : "", (n < 0 ? -n : n) / 100,
                          (n < 0 ? -n : n) % 100);
            return text;
         }
         return v.type == Value::Type::Signed ? std::to_string(v.number) : std::to_string(v.unsignedNumber);
      }
      case Value::Type::Text:
         return v.text;
      case Value::Type::Bytes:
         break;
   }
   return {};
}

std::string spelledItem(const Context &c, const Spelled &s, const Change &change) {
   std::string item(s.prefix);
   if (s.name) {
      item.append(" ").append(s.name(c, change.keys, true));
   }
   std::string parts;
   for (const FieldChange &f : change.fields) {
      const Measure *m = nullptr;
      for (const Measure &candidate : s.measures) {
         m = candidate.field == f.field ? &candidate : m;
      }
      std::string part = m ? std::string(m->label) : (f.field.empty() ? std::string("bytes") : f.field);
      if (f.before.type == Value::Type::Bytes) {
         part += " changed";
      } else {
         const bool hundredths = m && m->hundredths;
         if (!part.empty()) {
            part += ' ';
         }
         part.append(plainValue(f.before, hundredths)).append(kArrow).append(plainValue(f.after, hundredths));
         if (m && !m->unit.empty()) {
            part.append(" ").append(m->unit);
         }
      }
      parts += (parts.empty() ? "" : ", ") + part;
   }
   return item + ": " + parts;
}

std::string clockText(std::span<const uint8_t> rtc) {
   constexpr std::string_view node = "hardware_chipset_rtc";
   char text[80];
   std::snprintf(text, sizeof text, "%04" PRId64 "-%02" PRId64 "-%02" PRId64 " %02" PRId64 ":%02" PRId64 ":%02" PRId64,
                 intField(rtc, node, "year"), intField(rtc, node, "month"), intField(rtc, node, "day"),
                 intField(rtc, node, "hour"), intField(rtc, node, "minute"), intField(rtc, node, "second"));
   return text;
}

// Instances by their encoded keys, so that they come out in key order.
using Instances = std::map<std::string, zif::Keys>;

struct Tally {
   Instances appeared, disappeared, changed;
   size_t added = 0, removed = 0, changedEntries = 0;
   std::vector<std::string> listStatus;  // the family's list started or stopped failing
   std::vector<std::string> spelled;
};

std::string countPart(size_t n, std::string_view verb, const Family &f, const Context &c, const Instances &which,
                      bool after) {
   std::string part = std::to_string(n);
   if (!f.noun.empty()) {
      part.append(" ").append(n == 1 ? f.noun : f.nouns);
   }
   part.append(" ").append(verb);
   if (f.name && !which.empty() && which.size() <= kMaxNamed) {
      std::string names;
      for (const auto &[encoded, id] : which) {
         names += (names.empty() ? "" : ", ") + f.name(c, id, after);
      }
      part += f.noun.empty() ? " (" + names + ")" : " at " + names;
   }
   return part;
}

std::string familyItem(const Family &f, const Tally &t, const Context &c) {
   std::vector<std::string> parts;
   if (f.list.empty()) {
      for (auto [n, verb] : {std::pair{t.changedEntries, "changed"}, {t.added, "added"}, {t.removed, "removed"}}) {
         if (n) {
            parts.push_back(std::to_string(n) + " " + verb);
         }
      }
   } else {
      if (!t.appeared.empty()) {
         parts.push_back(countPart(t.appeared.size(), f.appeared, f, c, t.appeared, true));
      }
      if (!t.disappeared.empty()) {
         parts.push_back(countPart(t.disappeared.size(), f.disappeared, f, c, t.disappeared, false));
      }
      if (!t.changed.empty()) {
         parts.push_back(countPart(t.changed.size(), "changed", f, c, t.changed, true));
      }
   }
   parts.insert(parts.end(), t.listStatus.begin(), t.listStatus.end());
   if (parts.empty()) {
      return {};
   }
   std::string item = std::string(f.label) + ": ";
   for (size_t i = 0; i < parts.size(); i++) {
      item += (i ? ", " : "") + parts[i];
   }
   return item;
}

bool memberOf(const Family &f, std::string_view node) {
   return std::any_of(f.members.begin(), f.members.end(),
                      [&](std::string_view p) { return !p.empty() && node.starts_with(p); });
}

zif::Keys identityOf(const Family &f, const zif::Keys &keys) {
   if (f.keyDepth == 0 || keys.size() <= f.keyDepth) {
      return keys;
   }
   return zif::Keys(keys.begin(), keys.begin() + static_cast<std::ptrdiff_t>(f.keyDepth));
}

void tallyList(const Family &f, const Change &change, Tally &t) {
   if (change.statusBefore != change.statusAfter) {
      if (change.what == What::Removed || change.statusAfter == 0) {
         if (change.what == What::Changed) {
            t.listStatus.push_back("list no longer fails");
         }
      } else if (change.statusBefore == 0 || change.what == What::Added) {
         t.listStatus.push_back("list fails: " + statusText(change.statusAfter));
      } else {
         t.listStatus.push_back("list fails: " + statusText(change.statusAfter) + " instead of " +
                                statusText(change.statusBefore));
      }
   }
   auto identity = [&](const zif::Key &k) {
      zif::Keys id = f.pathIsIdentity ? change.keys : zif::Keys();
      id.push_back(k);
      return id;
   };
   for (const zif::Key &k : change.instancesAdded) {
      zif::Keys id = identity(k);
      t.appeared.emplace(zif::encodeKeys(id), id);
   }
   for (const zif::Key &k : change.instancesRemoved) {
      zif::Keys id = identity(k);
      t.disappeared.emplace(zif::encodeKeys(id), id);
   }
}

void tallyMember(const Family &f, const Context &c, const Change &change, Tally &t) {
   const bool contentOnly = change.what == What::Changed && change.statusBefore == change.statusAfter;
   if (contentOnly && change.node == "hardware_chipset_rtc") {
      std::string clock = "clock: ";
      clock.append(clockText(recordOf(c.before, change.node, change.keys))).append(kArrow);
      t.spelled.push_back(clock.append(clockText(recordOf(c.after, change.node, change.keys))));
      return;
   }
   for (const Spelled &s : kSpelled) {
      if (contentOnly && s.node == change.node && !change.fields.empty()) {
         t.spelled.push_back(spelledItem(c, s, change));
         return;
      }
   }
   if (f.list.empty()) {
      (change.what == What::Added ? t.added : change.what == What::Removed ? t.removed : t.changedEntries)++;
      return;
   }
   zif::Keys id = identityOf(f, change.keys);
   t.changed.emplace(zif::encodeKeys(id), id);
}

// Instances that moved (gone from one parent, listed under another) count as
// changed; records of instances that came or went are part of that.
void settle(Tally &t) {
   for (auto it = t.appeared.begin(); it != t.appeared.end();) {
      if (t.disappeared.erase(it->first)) {
         t.changed.insert(*it);
         it = t.appeared.erase(it);
      } else {
         ++it;
      }
   }
   for (auto it = t.changed.begin(); it != t.changed.end();) {
      if (t.appeared.count(it->first) || t.disappeared.count(it->first)) {
         it = t.changed.erase(it);
      } else {
         ++it;
      }
   }
}

}  // namespace

std::string statusText(uint32_t status) {
   if (status == 0) {
      return "ok";
   }
   char text[16];
   std::snprintf(text, sizeof text, "0x%x", status);
   return std::string(text) + " (" + ZLC_ReturnStatusToString(status) + ")";
}

std::vector<std::string> summarize(const zif::Reader &before, const zif::Reader &after, const Result &result) {
   const Context c{before, after};
   constexpr size_t kFamilyCount = std::size(kFamilies);
   std::vector<Tally> tallies(kFamilyCount);
   std::vector<std::pair<std::string, Tally>> others;  // nodes of no family, in node order
   for (const Change &change : result.changes) {
      std::string_view node = change.kind == zif::EntryKind::DevInfo
                                    ? std::string_view("hardware_pci_seg_bus_slot_func_")
                                    : std::string_view(change.node);
      size_t fi = 0;
      while (fi < kFamilyCount && !(change.kind == zif::EntryKind::List && kFamilies[fi].list == node) &&
             !memberOf(kFamilies[fi], node) &&
             !(!kFamilies[fi].folded.empty() && node.starts_with(kFamilies[fi].folded))) {
         fi++;
      }
      if (fi == kFamilyCount) {
         if (others.empty() || others.back().first != node) {
            others.push_back({std::string(node), {}});
         }
         Tally &t = others.back().second;
         (change.what == What::Added ? t.added : change.what == What::Removed ? t.removed : t.changedEntries)++;
      } else if (change.kind == zif::EntryKind::List && kFamilies[fi].list == node) {
         tallyList(kFamilies[fi], change, tallies[fi]);
      } else if (memberOf(kFamilies[fi], node)) {
         tallyMember(kFamilies[fi], c, change, tallies[fi]);
      }
   }
   std::vector<std::string> items;
   for (size_t fi = 0; fi < kFamilyCount; fi++) {
      settle(tallies[fi]);
      if (std::string item = familyItem(kFamilies[fi], tallies[fi], c); !item.empty()) {
         items.push_back(item);
      }
      items.insert(items.end(), tallies[fi].spelled.begin(), tallies[fi].spelled.end());
   }
   for (const auto &[node, t] : others) {
      Family generic{};
      generic.label = node;
      items.push_back(familyItem(generic, t, c));
   }
   if (result.rootDevice) {
      items.push_back("simulator root device: " + std::to_string(result.rootDevice->first) + std::string(kArrow) +
                      std::to_string(result.rootDevice->second));
   }
   if (result.countsMeta) {
      std::string what;
      for (const MetaChange &m : result.meta) {
         if (what.find(m.what) == std::string::npos) {
            what += (what.empty() ? "" : ", ") + m.what;
         }
      }
      if (!what.empty()) {
         items.push_back("metadata: " + what);
      }
   }
   if (items.empty()) {
      items.push_back("no differences");
   }
   return items;
}

}  // namespace zifdiff
