// The walk of zifcache diff: both sorted indexes side by side, then each pair
// of entries whose content differs decoded by meaning.
#include "diff.h"

#include "diff_internal.h"
#include "zifformat/layouts.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

namespace zifdiff {
namespace {

constexpr size_t kExcerptBytes = 8;

int compareBytes(std::span<const uint8_t> a, std::span<const uint8_t> b) {
   size_t n = std::min(a.size(), b.size());
   int c = n ? std::memcmp(a.data(), b.data(), n) : 0;
   if (c != 0) {
      return c < 0 ? -1 : 1;
   }
   return a.size() < b.size() ? -1 : (a.size() > b.size() ? 1 : 0);
}

// The order of both indexes: kind, node name, key bytes.
int compareEntries(const zif::Reader &a, const zif::IndexEntry &ea, const zif::Reader &b, const zif::IndexEntry &eb) {
   if (ea.kind != eb.kind) {
      return ea.kind < eb.kind ? -1 : 1;
   }
   if (int c = a.entryNode(ea).compare(b.entryNode(eb)); c != 0) {
      return c < 0 ? -1 : 1;
   }
   return compareBytes(a.entryKey(ea), b.entryKey(eb));
}

uint8_t byteAt(std::span<const uint8_t> s, size_t i) {
   return i < s.size() ? s[i] : 0;
}

// Records and set answers are read into the caller's buffer and the rest is
// zero-filled, so trailing zeros carry no meaning.
bool sameZeroExtended(std::span<const uint8_t> a, std::span<const uint8_t> b) {
   size_t n = std::min(a.size(), b.size());
   if (n && std::memcmp(a.data(), b.data(), n) != 0) {
      return false;
   }
   std::span<const uint8_t> rest = a.size() > n ? a.subspan(n) : b.subspan(n);
   return std::all_of(rest.begin(), rest.end(), [](uint8_t c) { return c == 0; });
}

bool sameRange(std::span<const uint8_t> a, std::span<const uint8_t> b, size_t from, size_t to) {
   for (size_t i = from; i < to; i++) {
      if (byteAt(a, i) != byteAt(b, i)) {
         return false;
      }
   }
   return true;
}

bool isPlainText(std::span<const uint8_t> bytes) {
   return std::all_of(bytes.begin(), bytes.end(),
                      [](uint8_t c) { return (c >= 0x20 && c < 0x7f) || c == '\t' || c == '\n'; });
}

// A record that is text followed by zeros (a text and its NUL, or as the
// writer stores it, the text alone): the text.
std::optional<std::string> recordText(std::span<const uint8_t> bytes) {
   size_t n = bytes.size();
   while (n > 0 && bytes[n - 1] == 0) {
      n--;
   }
   if (!isPlainText(bytes.first(n))) {
      return std::nullopt;
   }
   return std::string(bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(n));
}

Value textValue(std::string text) {
   Value v;
   v.type = Value::Type::Text;
   v.text = std::move(text);
   return v;
}

// [from, to) of both sides as an excerpt at the first differing byte.
FieldChange bytesChange(std::string field, std::span<const uint8_t> a, std::span<const uint8_t> b, size_t from,
                        size_t to) {
   FieldChange c;
   c.field = std::move(field);
   size_t first = to;
   for (size_t i = from; i < to; i++) {
      if (byteAt(a, i) != byteAt(b, i)) {
         first = std::min(first, i);
         c.differing++;
      }
   }
   c.offset = static_cast<uint32_t>(first);
   size_t end = std::min(to, first + kExcerptBytes);
   for (size_t i = first; i < end; i++) {
      c.before.bytes.push_back(byteAt(a, i));
      c.after.bytes.push_back(byteAt(b, i));
   }
   return c;
}

uint64_t littleEndian(std::span<const uint8_t> s, size_t offset, size_t width) {
   uint64_t v = 0;
   for (size_t i = 0; i < width && i < 8; i++) {
      v |= uint64_t{byteAt(s, offset + i)} << (8 * i);
   }
   return v;
}

std::string fieldText(std::span<const uint8_t> s, size_t offset, size_t width) {
   std::string text;
   for (size_t i = 0; i < width; i++) {
      uint8_t c = byteAt(s, offset + i);
      if (c == 0) {
         break;
      }
      text.push_back(static_cast<char>(c));
   }
   return text;
}

Value integerValue(zif::FieldKind kind, uint64_t raw, size_t width) {
   Value v;
   if (zif::isSigned(kind)) {
      unsigned shift = 64 - 8 * static_cast<unsigned>(std::min<size_t>(width, 8));
      v.type = Value::Type::Signed;
      v.number = static_cast<int64_t>(raw << shift) >> shift;
   } else {
      v.type = Value::Type::Unsigned;
      v.unsignedNumber = raw;
   }
   return v;
}

void diffLaidOut(const zif::RecordLayout &layout, std::span<const uint8_t> a, std::span<const uint8_t> b,
                 std::vector<FieldChange> &out) {
   // Both zero-extended to the layout's length at least, so that a record
   // stored without its trailing zeros reads as the same record.
   const size_t length = std::max({a.size(), b.size(), size_t{layout.length}});
   std::vector<bool> named(length, false);
   for (const zif::FieldLayout &f : layout.fields) {
      const size_t from = std::min<size_t>(f.offset, length), to = std::min<size_t>(size_t{f.offset} + f.width, length);
      std::fill(named.begin() + from, named.begin() + to, true);
      if (sameRange(a, b, from, to)) {
         continue;
      }
      if (zif::isInteger(f.kind)) {
         FieldChange c;
         c.field = std::string(f.name);
         c.offset = f.offset;
         c.before = integerValue(f.kind, littleEndian(a, f.offset, f.width), f.width);
         c.after = integerValue(f.kind, littleEndian(b, f.offset, f.width), f.width);
         out.push_back(std::move(c));
         continue;
      }
      if (f.kind == zif::FieldKind::TEXT) {
         std::string before = fieldText(a, f.offset, f.width), after = fieldText(b, f.offset, f.width);
         if (before != after) {
            FieldChange c;
            c.field = std::string(f.name);
            c.offset = f.offset;
            c.before = textValue(std::move(before));
            c.after = textValue(std::move(after));
            out.push_back(std::move(c));
            continue;
         }
      }
      // Raw bytes, or bytes after a text's terminator.
      out.push_back(bytesChange(std::string(f.name), a, b, from, to));
   }
   // Bytes that no field names: one excerpt where the first of them differs.
   size_t first = length;
   for (size_t i = 0; i < length && first == length; i++) {
      if (!named[i] && byteAt(a, i) != byteAt(b, i)) {
         first = i;
      }
   }
   if (first < length) {
      FieldChange c = bytesChange("", a, b, first, length);
      c.differing = 0;
      for (size_t i = first; i < length; i++) {
         c.differing += !named[i] && byteAt(a, i) != byteAt(b, i);
      }
      out.push_back(std::move(c));
   }
}

size_t firstDifference(std::string_view a, std::string_view b) {
   size_t i = 0;
   while (i < a.size() && i < b.size() && a[i] == b[i]) {
      i++;
   }
   return i;
}

// Content of a record, data or answer that differs: fields when the node has
// a layout, else the text or an excerpt of the bytes.
void diffContent(zif::EntryKind kind, std::string_view node, std::span<const uint8_t> a, std::span<const uint8_t> b,
                 Change &change) {
   const bool data = kind == zif::EntryKind::Data;
   if (data && a.size() != b.size()) {
      change.lengthChanged = true;
      change.lengthBefore = a.size();
      change.lengthAfter = b.size();
   }
   if (kind == zif::EntryKind::Record) {
      if (const zif::RecordLayout *layout = zif::findLayout(node)) {
         diffLaidOut(*layout, a, b, change.fields);
         return;
      }
   }
   std::optional<std::string> ta, tb;
   if (data && isPlainText(a) && isPlainText(b)) {
      ta = std::string(a.begin(), a.end());
      tb = std::string(b.begin(), b.end());
   } else if (kind == zif::EntryKind::Record) {
      ta = recordText(a);
      tb = recordText(b);
   }
   if (ta && tb) {
      FieldChange c;
      c.field = "text";
      c.offset = static_cast<uint32_t>(firstDifference(*ta, *tb));
      c.before = textValue(std::move(*ta));
      c.after = textValue(std::move(*tb));
      change.fields.push_back(std::move(c));
      return;
   }
   if (!data || !change.lengthChanged ||
       compareBytes(a.first(std::min(a.size(), b.size())), b.first(std::min(a.size(), b.size()))) != 0) {
      change.fields.push_back(bytesChange("bytes", a, b, 0, std::max(a.size(), b.size())));
   }
}

bool keyLess(const zif::Key &a, const zif::Key &b) {
   if (a.type != b.type) {
      return a.type < b.type;
   }
   return a.type == zif::KeyType::Int ? a.number < b.number : a.text < b.text;
}

struct KeyHash {
   size_t operator()(const zif::Key *k) const {
      return std::hash<int64_t>()(k->number) ^ std::hash<std::string>()(k->text) ^ static_cast<size_t>(k->type);
   }
};

struct KeyEqual {
   bool operator()(const zif::Key *a, const zif::Key *b) const { return *a == *b; }
};

void decodeInstances(std::span<const uint8_t> bytes, zif::Keys &out) {
   out.reserve(bytes.size() / 9 + 1);  // an integer key takes 9 bytes
   zif::decodeKeys(bytes, out);
}

// Instances listed in one list and not the other. Lists are usually in key
// order: then one merge; else a hash set of each side.
void diffInstances(std::span<const uint8_t> a, std::span<const uint8_t> b, Change &change) {
   zif::Keys before, after;
   decodeInstances(a, before);
   decodeInstances(b, after);
   auto ascending = [](const zif::Keys &keys) {
      return std::adjacent_find(keys.begin(), keys.end(),
                                [](const zif::Key &x, const zif::Key &y) { return !keyLess(x, y); }) == keys.end();
   };
   if (ascending(before) && ascending(after)) {
      size_t i = 0, j = 0;
      while (i < before.size() || j < after.size()) {
         if (j == after.size() || (i < before.size() && keyLess(before[i], after[j]))) {
            change.instancesRemoved.push_back(before[i++]);
         } else if (i == before.size() || keyLess(after[j], before[i])) {
            change.instancesAdded.push_back(after[j++]);
         } else {
            i++;
            j++;
         }
      }
   } else {
      auto setOf = [](const zif::Keys &keys) {
         std::unordered_set<const zif::Key *, KeyHash, KeyEqual> set;
         set.reserve(keys.size());
         for (const zif::Key &k : keys) {
            set.insert(&k);
         }
         return set;
      };
      const auto inBefore = setOf(before), inAfter = setOf(after);
      for (const zif::Key &k : after) {
         if (!inBefore.count(&k)) {
            change.instancesAdded.push_back(k);
         }
      }
      for (const zif::Key &k : before) {
         if (!inAfter.count(&k)) {
            change.instancesRemoved.push_back(k);
         }
      }
   }
   change.reordered = change.instancesAdded.empty() && change.instancesRemoved.empty();
}

bool hasPayload(const zif::IndexEntry &e) {
   return e.status == 0 || e.kind == zif::EntryKind::Set || e.kind == zif::EntryKind::SetAny;
}

std::span<const uint8_t> payloadOf(const zif::Reader &r, size_t i) {
   std::span<const uint8_t> bytes;
   if (r.payload(i, bytes) != ZLC_OK) {
      return {};
   }
   return bytes;
}

Change oneSided(const zif::Reader &r, size_t i, const zif::IndexEntry &e, What what) {
   Change c;
   c.what = what;
   c.kind = e.kind;
   c.node = std::string(r.entryNode(e));
   zif::decodeKeys(r.entryKey(e), c.keys);
   (what == What::Added ? c.statusAfter : c.statusBefore) = e.status;
   if (e.kind == zif::EntryKind::List && e.status == 0) {
      zif::decodeKeys(payloadOf(r, i), what == What::Added ? c.instancesAdded : c.instancesRemoved);
   }
   return c;
}

// The pair of entries with the same kind, node and keys, when they differ.
std::optional<Change> paired(const zif::Reader &a, size_t ia, const zif::IndexEntry &ea, const zif::Reader &b,
                             size_t ib, const zif::IndexEntry &eb) {
   std::span<const uint8_t> pa = hasPayload(ea) ? payloadOf(a, ia) : std::span<const uint8_t>();
   std::span<const uint8_t> pb = hasPayload(eb) ? payloadOf(b, ib) : std::span<const uint8_t>();
   const bool zeroFilled = ea.kind != zif::EntryKind::Data && ea.kind != zif::EntryKind::List;
   const bool sameBytes = zeroFilled ? sameZeroExtended(pa, pb) : compareBytes(pa, pb) == 0;
   if (ea.status == eb.status && sameBytes) {
      return std::nullopt;
   }
   Change c;
   c.kind = ea.kind;
   c.node = std::string(a.entryNode(ea));
   zif::decodeKeys(a.entryKey(ea), c.keys);
   c.statusBefore = ea.status;
   c.statusAfter = eb.status;
   if (ea.status != eb.status) {
      return c;
   }
   if (ea.kind == zif::EntryKind::List) {
      diffInstances(pa, pb, c);
   } else {
      diffContent(ea.kind, c.node, pa, pb, c);
   }
   return c;
}

// Devinfo entries describe PCI functions: they go with the function's node.
constexpr std::string_view kDevInfoNode = "hardware_pci_seg_bus_slot_func";

bool selected(const Options &options, const zif::Reader &r, const zif::IndexEntry &e) {
   if (options.node.empty()) {
      return true;
   }
   std::string_view node = e.kind == zif::EntryKind::DevInfo ? kDevInfoNode : r.entryNode(e);
   return node == options.node ||
          (node.size() > options.node.size() && node.starts_with(options.node) && node[options.node.size()] == '_');
}

// Node table order; devinfo right after the PCI function nodes; names the
// table does not know last, by name.
void sortByNode(std::vector<Change> &changes) {
   auto rank = [](const Change &c) {
      const auto nodes = zif::allNodes();
      std::string_view node = c.kind == zif::EntryKind::DevInfo ? kDevInfoNode : std::string_view(c.node);
      auto it = std::find_if(nodes.begin(), nodes.end(), [&](const zif::NodeInfo &n) { return n.name == node; });
      size_t r = static_cast<size_t>(it - nodes.begin()) * 2;
      if (c.kind == zif::EntryKind::DevInfo) {
         // After every node whose name starts with the function node's.
         while (it != nodes.end() && it->name.starts_with(kDevInfoNode)) {
            ++it;
         }
         r = static_cast<size_t>(it - nodes.begin()) * 2 - 1;
      }
      return r;
   };
   std::vector<std::pair<size_t, size_t>> order;  // rank, position
   order.reserve(changes.size());
   for (size_t i = 0; i < changes.size(); i++) {
      order.push_back({rank(changes[i]), i});
   }
   std::stable_sort(order.begin(), order.end(), [&](const auto &x, const auto &y) {
      if (x.first != y.first) {
         return x.first < y.first;
      }
      return changes[x.second].node < changes[y.second].node;
   });
   std::vector<Change> sorted;
   sorted.reserve(changes.size());
   for (const auto &o : order) {
      sorted.push_back(std::move(changes[o.second]));
   }
   changes = std::move(sorted);
}

std::string hexDigest(uint64_t v) {
   static const char digits[] = "0123456789abcdef";
   std::string s(16, '0');
   for (int i = 15; i >= 0; i--, v >>= 4) {
      s[static_cast<size_t>(i)] = digits[v & 15];
   }
   return s;
}

void compareMeta(const zif::Reader &a, const zif::Reader &b, Result &result) {
   auto field = [&](const char *what, const std::string &x, const std::string &y) {
      if (x != y) {
         result.meta.push_back({what, x, y});
      }
   };
   const zif::Meta &ma = a.meta(), &mb = b.meta();
   field("host", ma.host, mb.host);
   field("captured", ma.captured, mb.captured);
   field("by", ma.by, mb.by);
   for (const std::string &note : ma.notes) {
      if (std::find(mb.notes.begin(), mb.notes.end(), note) == mb.notes.end()) {
         result.meta.push_back({"note", note, ""});
      }
   }
   for (const std::string &note : mb.notes) {
      if (std::find(ma.notes.begin(), ma.notes.end(), note) == ma.notes.end()) {
         result.meta.push_back({"note", "", note});
      }
   }
   field("signature digest", hexDigest(a.signature().digest), hexDigest(b.signature().digest));
   field("signature date", a.signature().date, b.signature().date);
}

}  // namespace

std::optional<zif::Problem> verifyPayloads(const zif::Reader &reader) {
   zif::Keys keys, instances;
   for (size_t i = 0; i < reader.size(); i++) {
      const zif::IndexEntry e = reader.entry(i);
      std::span<const uint8_t> bytes;
      zif::Problem problem;
      if (reader.payload(i, bytes, &problem) != ZLC_OK) {
         zif::decodeKeys(reader.entryKey(e), keys);
         problem.message = zif::describeEntry(e.kind, reader.entryNode(e), keys) + ": data checksum mismatch";
         return problem;
      }
      if (e.kind == zif::EntryKind::List && e.status == 0 && !zif::decodeKeys(bytes, instances)) {
         zif::decodeKeys(reader.entryKey(e), keys);
         return zif::Problem{ZLC_SNAP_CORRUPT,
                             zif::describeEntry(e.kind, reader.entryNode(e), keys) + ": bad instance list",
                             reader.sectionOffset(zif::SectionId::Data) + e.dataOffset};
      }
   }
   return std::nullopt;
}

bool isNodeOrPrefix(const std::string &name) {
   for (const zif::NodeInfo &n : zif::allNodes()) {
      if (n.name == name || (n.name.size() > name.size() && n.name.starts_with(name) && n.name[name.size()] == '_')) {
         return true;
      }
   }
   return false;
}

Result compare(const zif::Reader &before, const zif::Reader &after, const Options &options) {
   Result result;
   size_t i = 0, j = 0;
   const size_t n = before.size(), m = after.size();
   while (i < n || j < m) {
      const zif::IndexEntry ea = i < n ? before.entry(i) : zif::IndexEntry{};
      const zif::IndexEntry eb = j < m ? after.entry(j) : zif::IndexEntry{};
      const int order = i == n ? 1 : (j == m ? -1 : compareEntries(before, ea, after, eb));
      if (order < 0) {
         if (selected(options, before, ea)) {
            result.changes.push_back(oneSided(before, i, ea, What::Removed));
         }
         i++;
      } else if (order > 0) {
         if (selected(options, after, eb)) {
            result.changes.push_back(oneSided(after, j, eb, What::Added));
         }
         j++;
      } else {
         if (selected(options, before, ea)) {
            if (std::optional<Change> c = paired(before, i, ea, after, j, eb)) {
               result.changes.push_back(std::move(*c));
            }
         }
         i++;
         j++;
      }
   }
   sortByNode(result.changes);
   compareMeta(before, after, result);
   if (before.simulator().rootDevice != after.simulator().rootDevice) {
      result.rootDevice = {before.simulator().rootDevice, after.simulator().rootDevice};
   }
   result.countsMeta = options.all;
   result.differ = !result.changes.empty() || result.rootDevice || (options.all && !result.meta.empty());
   result.summary = summarize(before, after, result);
   return result;
}

}  // namespace zifdiff
