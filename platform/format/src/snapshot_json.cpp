// JSON <-> snapshot model. Every refusal names the document and the entry's
// position, e.g. "in.json: records[3]: unknown node "wrld_info"".
#include "zifformat/snapshot_json.h"

#include "zifformat/layouts.h"

#include <cinttypes>
#include <cstring>
#include <limits>

#include <nlohmann/json.hpp>

namespace zif {
namespace {

using nlohmann::json;
using ojson = nlohmann::ordered_json;

[[noreturn]] void refuse(const std::string &where, const std::string &what) {
   throw FormatError(where + ": " + what);
}

void allowMembers(const json &j, const std::string &where, std::initializer_list<std::string_view> allowed) {
   if (!j.is_object()) {
      refuse(where, "must be an object");
   }
   for (const auto &[name, value] : j.items()) {
      bool ok = false;
      for (std::string_view a : allowed) {
         ok = ok || name == a;
      }
      if (!ok) {
         refuse(where, "unknown member \"" + name + "\"");
      }
   }
}

int hexDigit(char c) {
   if (c >= '0' && c <= '9') {
      return c - '0';
   }
   if (c >= 'a' && c <= 'f') {
      return c - 'a' + 10;
   }
   if (c >= 'A' && c <= 'F') {
      return c - 'A' + 10;
   }
   return -1;
}

// A hexadecimal number text, with or without 0x.
bool parseHexNumber(std::string_view s, uint64_t &v) {
   if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
      s.remove_prefix(2);
   }
   if (s.empty() || s.size() > 16) {
      return false;
   }
   v = 0;
   for (char c : s) {
      int d = hexDigit(c);
      if (d < 0) {
         return false;
      }
      v = (v << 4) | static_cast<uint64_t>(d);
   }
   return true;
}

uint32_t parseStatus(const json &j, const std::string &where) {
   uint64_t v = 0;
   if (j.is_string()) {
      if (!parseHexNumber(j.get_ref<const std::string &>(), v)) {
         refuse(where, "bad status");
      }
   } else if (j.is_number_unsigned() || (j.is_number_integer() && j.get<int64_t>() >= 0)) {
      v = j.get<uint64_t>();
   } else {
      refuse(where, "status must be a hex string or an integer");
   }
   if (v > 0xffffffffu) {
      refuse(where, "status out of range");
   }
   return static_cast<uint32_t>(v);
}

Key parseKey(const json &j, const std::string &where) {
   if (j.is_null()) {
      return Key::null();
   }
   if (j.is_number_integer() && !j.is_number_unsigned()) {
      return Key::ofInt(j.get<int64_t>());
   }
   if (j.is_number_unsigned()) {
      uint64_t v = j.get<uint64_t>();
      if (v > static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
         refuse(where, "key out of range");
      }
      return Key::ofInt(static_cast<int64_t>(v));
   }
   if (j.is_string()) {
      const std::string &s = j.get_ref<const std::string &>();
      if (s.find('\0') != std::string::npos) {
         refuse(where, "text key holds a NUL");
      }
      return Key::ofText(s);
   }
   refuse(where, "a key must be an integer, a string or null");
}

Keys parseKeys(const json &j, const std::string &where) {
   if (!j.is_array()) {
      refuse(where, "must be an array");
   }
   Keys keys;
   for (size_t i = 0; i < j.size(); i++) {
      keys.push_back(parseKey(j[i], where + "[" + std::to_string(i) + "]"));
   }
   return keys;
}

std::string nodeOf(const json &e, const std::string &where) {
   if (!e.contains("node")) {
      refuse(where, "missing \"node\"");
   }
   const json &n = e["node"];
   if (!n.is_string()) {
      refuse(where, "\"node\" must be a string");
   }
   const std::string &name = n.get_ref<const std::string &>();
   if (!isKnownNode(name)) {
      refuse(where, "unknown node \"" + name + "\"");
   }
   return name;
}

std::vector<uint8_t> hexOf(const json &j, const std::string &where) {
   std::vector<uint8_t> out;
   if (!j.is_string() || !parseHex(j.get_ref<const std::string &>(), out)) {
      refuse(where, "bad hex");
   }
   return out;
}

void putLittle(std::vector<uint8_t> &rec, uint32_t offset, uint32_t width, uint64_t v) {
   for (uint32_t i = 0; i < width; i++) {
      rec[offset + i] = static_cast<uint8_t>(v >> (8 * i));
   }
}

uint64_t getLittle(std::span<const uint8_t> rec, uint32_t offset, uint32_t width) {
   uint64_t v = 0;
   for (uint32_t i = width; i-- > 0;) {
      v = (v << 8) | rec[offset + i];
   }
   return v;
}

bool fieldFits(const RecordLayout &layout, const FieldLayout &f) {
   return f.offset <= layout.length && f.width <= layout.length - f.offset &&
          (!isInteger(f.kind) || (f.width >= 1 && f.width <= 8));
}

void encodeField(const RecordLayout &layout, const FieldLayout &f, const json &v, std::vector<uint8_t> &rec,
                 const std::string &where) {
   if (!fieldFits(layout, f)) {
      refuse(where, "field lies outside the record");
   }
   if (f.kind == FieldKind::TEXT) {
      if (!v.is_string()) {
         refuse(where, "must be a string");
      }
      const std::string &s = v.get_ref<const std::string &>();
      if (s.size() + 1 > f.width || s.find('\0') != std::string::npos) {
         refuse(where, "text does not fit in " + std::to_string(f.width) + " bytes with its NUL");
      }
      std::memcpy(rec.data() + f.offset, s.data(), s.size());
      return;
   }
   if (f.kind == FieldKind::BYTES) {
      std::vector<uint8_t> b = hexOf(v, where);
      if (b.size() > f.width) {
         refuse(where, "more than " + std::to_string(f.width) + " bytes");
      }
      std::memcpy(rec.data() + f.offset, b.data(), b.size());
      return;
   }
   unsigned bits = 8 * f.width;
   uint64_t raw;
   if (isSigned(f.kind)) {
      if (!v.is_number_integer() || (v.is_number_unsigned() && v.get<uint64_t>() > INT64_MAX)) {
         refuse(where, "must be an integer");
      }
      int64_t x = v.get<int64_t>();
      int64_t lo = bits == 64 ? INT64_MIN : -(int64_t{1} << (bits - 1));
      int64_t hi = bits == 64 ? INT64_MAX : (int64_t{1} << (bits - 1)) - 1;
      if (x < lo || x > hi) {
         refuse(where, "value out of range for " + std::string(kindName(f.kind)));
      }
      raw = static_cast<uint64_t>(x);
   } else {
      if (v.is_string()) {
         const std::string &s = v.get_ref<const std::string &>();
         if (s.size() < 3 || s[0] != '0' || (s[1] != 'x' && s[1] != 'X') || !parseHexNumber(s, raw)) {
            refuse(where, "bad hex number");
         }
      } else if (v.is_number_unsigned() || (v.is_number_integer() && v.get<int64_t>() >= 0)) {
         raw = v.get<uint64_t>();
      } else {
         refuse(where, "must be a non-negative integer");
      }
      if (bits < 64 && raw >> bits) {
         refuse(where, "value out of range for " + std::string(kindName(f.kind)));
      }
   }
   putLittle(rec, f.offset, f.width, raw);
}

std::vector<uint8_t> encodeFields(const std::string &node, const json &fields, const std::string &where) {
   const RecordLayout *layout = findLayout(node);
   if (!layout) {
      refuse(where, "no record layout for node \"" + node + "\"; use \"hex\"");
   }
   if (!fields.is_object()) {
      refuse(where, "\"fields\" must be an object");
   }
   std::vector<uint8_t> rec(layout->length, 0);
   for (const auto &[name, value] : fields.items()) {
      const FieldLayout *f = findField(*layout, name);
      if (!f) {
         refuse(where, "unknown field \"" + name + "\" of " + node);
      }
      encodeField(*layout, *f, value, rec, where + ": field " + name);
   }
   return rec;
}

// Sets e.bytes or e.status from exactly one of the content members given.
void parseContent(const json &j, Entry &e, const std::string &where, bool allowText, bool allowFields,
                  bool textHasNul) {
   int forms = 0;
   for (const char *m : {"text", "hex", "fields", "status"}) {
      forms += j.contains(m) ? 1 : 0;
   }
   if (forms != 1) {
      refuse(where, "needs exactly one of \"text\", \"hex\"" + std::string(allowFields ? ", \"fields\"" : "") +
                          " or \"status\"");
   }
   if (j.contains("status")) {
      e.status = parseStatus(j["status"], where);
      if (e.status == 0) {
         refuse(where, "an injected status must be non-zero");
      }
   } else if (j.contains("hex")) {
      e.bytes = hexOf(j["hex"], where);
   } else if (j.contains("text")) {
      if (!allowText || !j["text"].is_string()) {
         refuse(where, "bad \"text\"");
      }
      const std::string &s = j["text"].get_ref<const std::string &>();
      e.bytes.assign(s.begin(), s.end());
      if (textHasNul) {
         e.bytes.push_back(0);
      }
   } else {
      if (!allowFields) {
         refuse(where, "\"fields\" is not allowed here");
      }
      e.bytes = encodeFields(e.node, j["fields"], where);
   }
}

const json &arrayMember(const json &doc, const char *name, const std::string &label) {
   const json &a = doc[name];
   if (!a.is_array()) {
      refuse(label + name, "must be an array");
   }
   return a;
}

// ---- documents: each member of a document read by a function of its own ----

json parseDocument(std::string_view text, const std::string &prefix) {
   try {
      return json::parse(text.begin(), text.end());
   } catch (const json::exception &ex) {
      throw FormatError(prefix + "not valid JSON: " + ex.what());
   }
}

void checkDocument(const json &doc, const std::string &prefix) {
   allowMembers(doc, prefix + "document",
                {"zifcache", "signature", "simulator", "meta", "lists", "records", "data", "devinfo", "sets"});
   if (doc.contains("zifcache") && doc.at("zifcache") != 1) {
      refuse(prefix + "zifcache", "unsupported form (want 1)");
   }
}

// Digest and date default to the library's own.
Signature parseSignature(const json &s, const std::string &prefix) {
   allowMembers(s, prefix + "signature", {"digest", "date"});
   uint64_t digest = librarySignatureDigest();
   if (s.contains("digest") &&
       (!s["digest"].is_string() || !parseHexNumber(s["digest"].get_ref<const std::string &>(), digest))) {
      refuse(prefix + "signature", "bad digest");
   }
   std::string date = libraryBuildDate();
   if (s.contains("date")) {
      if (!s["date"].is_string() || s["date"].get_ref<const std::string &>().size() >= kDateSize ||
          s["date"].get_ref<const std::string &>().find('\0') != std::string::npos) {
         refuse(prefix + "signature",
                "date must be a string of at most " + std::to_string(kDateSize - 1) + " characters");
      }
      date = s["date"].get<std::string>();
   }
   return {digest, date};
}

SimulatorSettings parseSimulator(const json &s, const std::string &prefix) {
   allowMembers(s, prefix + "simulator", {"rootDevice"});
   SimulatorSettings simulator;
   simulator.present = true;
   if (s.contains("rootDevice")) {
      if (!s["rootDevice"].is_number_integer() || s["rootDevice"].get<int64_t>() < 0) {
         refuse(prefix + "simulator", "rootDevice must be a non-negative integer");
      }
      simulator.rootDevice = s["rootDevice"].get<uint64_t>();
   }
   return simulator;
}

Meta parseMeta(const json &m, const std::string &prefix) {
   allowMembers(m, prefix + "meta", {"host", "captured", "by", "notes"});
   Meta meta;
   meta.present = true;
   for (auto [name, field] : {std::pair{"host", &meta.host}, {"captured", &meta.captured}, {"by", &meta.by}}) {
      if (m.contains(name)) {
         if (!m[name].is_string()) {
            refuse(prefix + "meta", std::string(name) + " must be a string");
         }
         *field = m[name].get<std::string>();
      }
   }
   if (m.contains("notes")) {
      if (!m["notes"].is_array()) {
         refuse(prefix + "meta", "notes must be an array of strings");
      }
      for (const json &n : m["notes"]) {
         if (!n.is_string()) {
            refuse(prefix + "meta", "notes must be an array of strings");
         }
         meta.notes.push_back(n.get<std::string>());
      }
   }
   return meta;
}

// ---- entries: one parser per entry array ----

void parseList(const json &j, Entry &e, const std::string &where) {
   allowMembers(j, where, {"node", "parent", "instances", "status"});
   e.kind = EntryKind::List;
   e.node = nodeOf(j, where);
   if (j.contains("parent")) {
      e.keys = parseKeys(j["parent"], where + ": parent");
   }
   if (j.contains("instances") == j.contains("status")) {
      refuse(where, "needs \"instances\" or \"status\"");
   }
   if (j.contains("status")) {
      e.status = parseStatus(j["status"], where);
      if (e.status == 0) {
         refuse(where, "an injected status must be non-zero");
      }
   } else {
      e.instances = parseKeys(j["instances"], where + ": instances");
   }
}

void parseRecord(const json &j, Entry &e, const std::string &where) {
   allowMembers(j, where, {"node", "keys", "text", "hex", "fields", "status"});
   e.kind = EntryKind::Record;
   e.node = nodeOf(j, where);
   if (j.contains("keys")) {
      e.keys = parseKeys(j["keys"], where + ": keys");
   }
   parseContent(j, e, where, true, true, true);
}

void parseData(const json &j, Entry &e, const std::string &where) {
   allowMembers(j, where, {"node", "keys", "text", "hex", "status"});
   e.kind = EntryKind::Data;
   e.node = nodeOf(j, where);
   if (j.contains("keys")) {
      e.keys = parseKeys(j["keys"], where + ": keys");
   }
   parseContent(j, e, where, true, false, false);
}

// A reply is padded with zeros to its full size.
void parseDevInfo(const json &j, Entry &e, const std::string &where) {
   allowMembers(j, where, {"function", "hex", "status"});
   e.kind = EntryKind::DevInfo;
   if (!j.contains("function") || !j["function"].is_array() || j["function"].size() != 4) {
      refuse(where, "\"function\" must be [segment, bus, slot, function]");
   }
   for (const json &n : j["function"]) {
      if (!n.is_number_integer() || n.get<int64_t>() < 0 || n.get<int64_t>() > 0xffffffff) {
         refuse(where, "\"function\" values must be integers from 0 to 0xffffffff");
      }
      e.keys.push_back(Key::ofInt(n.get<int64_t>()));
   }
   parseContent(j, e, where, false, false, false);
   if (e.status == 0) {
      if (e.bytes.size() > ZLC_DEVINFO_REPLY_SIZE) {
         refuse(where, "reply longer than 1024 bytes");
      }
      e.bytes.resize(ZLC_DEVINFO_REPLY_SIZE, 0);
   }
}

// Without input the answer matches every set of the node.
void parseSet(const json &j, Entry &e, const std::string &where) {
   allowMembers(j, where, {"node", "input", "hex", "status"});
   e.node = nodeOf(j, where);
   e.kind = j.contains("input") ? EntryKind::Set : EntryKind::SetAny;
   if (j.contains("input")) {
      e.keys = parseKeys(j["input"], where + ": input");
   }
   if (j.contains("hex")) {
      e.bytes = hexOf(j["hex"], where);
   }
   if (j.contains("status")) {
      e.status = parseStatus(j["status"], where);
   }
}

struct EntryArray {
   const char *name;
   void (*parse)(const json &, Entry &, const std::string &);
};

constexpr EntryArray kEntryArrays[] = {
      {"lists", parseList},      {"records", parseRecord}, {"data", parseData},
      {"devinfo", parseDevInfo}, {"sets", parseSet},
};

// The entries of one array of the document, each named by its position.
void appendEntries(const json &doc, const EntryArray &array, const std::string &prefix, std::vector<Entry> &entries) {
   if (!doc.contains(array.name)) {
      return;
   }
   const json &a = arrayMember(doc, array.name, prefix);
   for (size_t i = 0; i < a.size(); i++) {
      std::string where = prefix + array.name + "[" + std::to_string(i) + "]";
      Entry e;
      e.origin = where;
      array.parse(a[i], e, where);
      entries.push_back(std::move(e));
   }
}

}  // namespace

bool parseHex(std::string_view text, std::vector<uint8_t> &out) {
   out.clear();
   int high = -1;
   for (char c : text) {
      if (c == ' ' || c == '\t' || c == '\n' || c == '\r') {
         continue;
      }
      int d = hexDigit(c);
      if (d < 0) {
         return false;
      }
      if (high < 0) {
         high = d;
      } else {
         out.push_back(static_cast<uint8_t>(high << 4 | d));
         high = -1;
      }
   }
   return high < 0;
}

std::string toHex(std::span<const uint8_t> bytes, bool grouped) {
   static const char digits[] = "0123456789abcdef";
   std::string s;
   s.reserve(bytes.size() * 2 + bytes.size() / 4);
   for (size_t i = 0; i < bytes.size(); i++) {
      if (grouped && i && i % 4 == 0) {
         s.push_back(' ');
      }
      s.push_back(digits[bytes[i] >> 4]);
      s.push_back(digits[bytes[i] & 15]);
   }
   return s;
}

void JsonPacker::add(std::string_view text, std::string_view label) {
   const std::string prefix = label.empty() ? std::string() : std::string(label) + ": ";
   const json doc = parseDocument(text, prefix);
   try {
      checkDocument(doc, prefix);
      if (doc.contains("signature") && !haveSignature_) {
         snapshot_.signature = parseSignature(doc.at("signature"), prefix);
         haveSignature_ = true;
      }
      if (doc.contains("simulator") && !snapshot_.simulator.present) {
         snapshot_.simulator = parseSimulator(doc.at("simulator"), prefix);
      }
      if (doc.contains("meta") && !snapshot_.meta.present) {
         snapshot_.meta = parseMeta(doc.at("meta"), prefix);
      }
      for (const EntryArray &array : kEntryArrays) {
         appendEntries(doc, array, prefix, snapshot_.entries);
      }
   } catch (const json::exception &ex) {
      throw FormatError(prefix + ex.what());
   }
}

Snapshot JsonPacker::finish() {
   if (!haveSignature_) {
      snapshot_.signature = {librarySignatureDigest(), libraryBuildDate()};
   }
   return std::move(snapshot_);
}

std::vector<uint8_t> packJson(std::string_view text) {
   JsonPacker packer;
   packer.add(text, "");
   return snapshotBytes(packer.finish());
}

namespace {

ojson keysJson(const Keys &keys) {
   ojson a = ojson::array();
   for (const Key &k : keys) {
      switch (k.type) {
         case KeyType::Int:
            a.push_back(k.number);
            break;
         case KeyType::Text:
            a.push_back(k.text);
            break;
         case KeyType::Null:
            a.push_back(nullptr);
            break;
      }
   }
   return a;
}

std::string statusText(uint32_t s) {
   char buf[16];
   std::snprintf(buf, sizeof buf, "0x%x", s);
   return buf;
}

bool isPlainText(std::span<const uint8_t> bytes) {
   for (uint8_t b : bytes) {
      if (b == 0 || b > 0x7f) {
         return false;
      }
   }
   return true;
}

// A record that packs from "text": the text and its NUL, or the text alone
// as the writer stores it (without the trailing zero).
std::optional<std::string_view> recordText(std::span<const uint8_t> bytes) {
   if (!bytes.empty() && bytes.back() == 0) {
      bytes = bytes.first(bytes.size() - 1);
   } else if (bytes.empty()) {
      return std::nullopt;
   }
   if (!isPlainText(bytes)) {
      return std::nullopt;
   }
   return std::string_view(reinterpret_cast<const char *>(bytes.data()), bytes.size());
}

// The fields form of a record when it reproduces the bytes exactly. A record
// shorter than its layout (stored without its trailing zeros) is read as the
// layout's length, zero-extended.
std::optional<ojson> fieldsOf(const std::string &node, std::span<const uint8_t> stored) {
   const RecordLayout *layout = findLayout(node);
   if (!layout || stored.size() > layout->length) {
      return std::nullopt;
   }
   std::vector<uint8_t> record(stored.begin(), stored.end());
   record.resize(layout->length, 0);
   const std::span<const uint8_t> bytes = record;
   ojson fields = ojson::object();
   for (const FieldLayout &f : layout->fields) {
      if (!fieldFits(*layout, f) || fields.contains(std::string(f.name))) {
         return std::nullopt;
      }
      auto part = bytes.subspan(f.offset, f.width);
      std::string name(f.name);
      if (f.kind == FieldKind::TEXT) {
         size_t len = 0;
         while (len < part.size() && part[len] != 0) {
            len++;
         }
         if (len == part.size() || !isPlainText(part.first(len))) {
            return std::nullopt;
         }
         fields[name] = std::string(reinterpret_cast<const char *>(part.data()), len);
      } else if (f.kind == FieldKind::BYTES) {
         fields[name] = toHex(part, true);
      } else {
         uint64_t raw = getLittle(bytes, f.offset, f.width);
         if (isSigned(f.kind)) {
            unsigned shift = 64 - 8 * f.width;
            fields[name] = static_cast<int64_t>(raw << shift) >> shift;
         } else {
            fields[name] = raw;
         }
      }
   }
   // Accept only when encoding the fields gives back the very same bytes.
   try {
      json plain = json::parse(fields.dump());
      if (encodeFields(node, plain, "") != record) {
         return std::nullopt;
      }
   } catch (const FormatError &) {
      return std::nullopt;
   }
   return fields;
}

}  // namespace

std::string dumpJson(const Snapshot &snapshot) {
   auto line = [](const ojson &j) { return j.dump(-1, ' ', false, ojson::error_handler_t::replace); };
   std::string out = "{\n  \"zifcache\": 1,\n";
   char digest[32];
   std::snprintf(digest, sizeof digest, "%016" PRIx64, snapshot.signature.digest);
   out += "  \"signature\": " + line(ojson{{"digest", digest}, {"date", snapshot.signature.date}});
   if (snapshot.simulator.present) {
      out += ",\n  \"simulator\": " + line(ojson{{"rootDevice", snapshot.simulator.rootDevice}});
   }
   if (snapshot.meta.present) {
      const Meta &m = snapshot.meta;
      out += ",\n  \"meta\": " +
             line(ojson{{"host", m.host}, {"captured", m.captured}, {"by", m.by}, {"notes", m.notes}});
   }
   struct Group {
      EntryKind kinds[2];
      const char *name;
   };
   for (const Group &g :
        {Group{{EntryKind::List, EntryKind::List}, "lists"}, Group{{EntryKind::Record, EntryKind::Record}, "records"},
         Group{{EntryKind::Data, EntryKind::Data}, "data"}, Group{{EntryKind::DevInfo, EntryKind::DevInfo}, "devinfo"},
         Group{{EntryKind::Set, EntryKind::SetAny}, "sets"}}) {
      std::vector<std::string> lines;
      for (const Entry &e : snapshot.entries) {
         if (e.kind != g.kinds[0] && e.kind != g.kinds[1]) {
            continue;
         }
         ojson j;
         if (e.kind == EntryKind::DevInfo) {
            j["function"] = keysJson(e.keys);
         } else {
            j["node"] = e.node;
         }
         if (e.kind == EntryKind::List) {
            if (!e.keys.empty()) {
               j["parent"] = keysJson(e.keys);
            }
         } else if (e.kind == EntryKind::Set) {
            j["input"] = keysJson(e.keys);
         } else if (e.kind == EntryKind::Record || e.kind == EntryKind::Data) {
            if (!e.keys.empty()) {
               j["keys"] = keysJson(e.keys);
            }
         }
         bool isSet = e.kind == EntryKind::Set || e.kind == EntryKind::SetAny;
         if (e.status != 0 && !isSet) {
            j["status"] = statusText(e.status);
         } else if (e.kind == EntryKind::List) {
            j["instances"] = keysJson(e.instances);
         } else if (e.kind == EntryKind::Record) {
            if (auto fields = fieldsOf(e.node, e.bytes)) {
               j["fields"] = *fields;
            } else if (auto text = recordText(e.bytes)) {
               j["text"] = std::string(*text);
            } else {
               j["hex"] = toHex(e.bytes, true);
            }
         } else if (e.kind == EntryKind::Data && isPlainText(e.bytes)) {
            j["text"] = std::string(e.bytes.begin(), e.bytes.end());
         } else if (e.kind == EntryKind::DevInfo) {
            // The reply is padded with zeros to its full size when packed.
            size_t used = e.bytes.size();
            while (used > 0 && e.bytes[used - 1] == 0) {
               used--;
            }
            j["hex"] = toHex(std::span<const uint8_t>(e.bytes).first(used), true);
         } else if (!isSet || !e.bytes.empty()) {
            j["hex"] = toHex(e.bytes, true);
         }
         if (isSet && e.status != 0) {
            j["status"] = statusText(e.status);
         }
         lines.push_back(line(j));
      }
      if (lines.empty()) {
         continue;
      }
      out += ",\n  \"" + std::string(g.name) + "\": [\n";
      for (size_t i = 0; i < lines.size(); i++) {
         out += "    " + lines[i] + (i + 1 < lines.size() ? ",\n" : "\n");
      }
      out += "  ]";
   }
   out += "\n}\n";
   return out;
}

}  // namespace zif
