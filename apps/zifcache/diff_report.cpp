// The report of zifcache diff, as text (the summary line, then a line per
// change: "+" added, "-" removed, "~" changed) and as a JSON document.
#include "diff_internal.h"
#include "zifformat/snapshot_json.h"

#include <nlohmann/json.hpp>

namespace zifdiff {
namespace {

using json = nlohmann::ordered_json;

constexpr size_t kMaxKeysShown = 20;
constexpr size_t kMaxTextShown = 60;
constexpr size_t kTextContext = 12;

std::string quoted(const std::string &text) {
   return json(text).dump(-1, ' ', false, json::error_handler_t::replace);
}

// A long text is shown from a little before where the two sides differ.
std::string excerpt(const std::string &text, size_t differsAt) {
   if (text.size() <= kMaxTextShown) {
      return quoted(text);
   }
   size_t from = differsAt > kTextContext ? differsAt - kTextContext : 0;
   std::string shown = quoted(text.substr(from, kMaxTextShown - 2 * kTextContext));
   return (from ? "..." : "") + shown + (from + kMaxTextShown - 2 * kTextContext < text.size() ? "..." : "");
}

std::string keyList(const zif::Keys &keys) {
   if (keys.size() <= kMaxKeysShown) {
      return zif::formatKeys(keys);
   }
   std::string shown = zif::formatKeys(zif::Keys(keys.begin(), keys.begin() + kMaxKeysShown));
   shown.pop_back();
   return shown + ", ... " + std::to_string(keys.size() - kMaxKeysShown) + " more]";
}

std::string numberText(const Value &v) {
   return v.type == Value::Type::Signed ? std::to_string(v.number) : std::to_string(v.unsignedNumber);
}

std::string fieldText(const FieldChange &f, std::string_view arrow) {
   const std::string name = f.field.empty() ? "bytes" : f.field;
   switch (f.before.type) {
      case Value::Type::Signed:
      case Value::Type::Unsigned:
         return name + " " + numberText(f.before) + std::string(arrow) + numberText(f.after);
      case Value::Type::Text: {
         size_t at = 0;
         while (at < f.before.text.size() && at < f.after.text.size() && f.before.text[at] == f.after.text[at]) {
            at++;
         }
         return name + " " + excerpt(f.before.text, at) + std::string(arrow) + excerpt(f.after.text, at);
      }
      case Value::Type::Bytes:
         break;
   }
   std::string text = name + " at " + std::to_string(f.offset) + ": " + zif::toHex(f.before.bytes, true) +
                      std::string(arrow) + zif::toHex(f.after.bytes, true);
   if (f.differing > 1) {
      text += " (" + std::to_string(f.differing) + " bytes differ)";
   }
   return text;
}

std::string changeLine(const Change &c, std::string_view arrow) {
   const std::string entry = zif::describeEntry(c.kind, c.node, c.keys);
   if (c.what != What::Changed) {
      const bool added = c.what == What::Added;
      std::string line = (added ? "+ " : "- ") + entry;
      if (uint32_t status = added ? c.statusAfter : c.statusBefore) {
         line += ": fails: " + statusText(status);
      } else if (c.kind == zif::EntryKind::List) {
         line += ": " + keyList(added ? c.instancesAdded : c.instancesRemoved);
      }
      return line;
   }
   std::vector<std::string> parts;
   if (c.statusBefore != c.statusAfter) {
      parts.push_back("status " + statusText(c.statusBefore) + std::string(arrow) + statusText(c.statusAfter));
   } else if (c.kind == zif::EntryKind::List) {
      if (!c.instancesAdded.empty()) {
         parts.push_back("added " + keyList(c.instancesAdded));
      }
      if (!c.instancesRemoved.empty()) {
         parts.push_back("removed " + keyList(c.instancesRemoved));
      }
      if (c.reordered) {
         parts.push_back("the same instances in another order");
      }
   }
   if (c.lengthChanged) {
      parts.push_back("length " + std::to_string(c.lengthBefore) + std::string(arrow) + std::to_string(c.lengthAfter));
   }
   for (const FieldChange &f : c.fields) {
      parts.push_back(fieldText(f, arrow));
   }
   std::string line = "~ " + entry + ":";
   for (size_t i = 0; i < parts.size(); i++) {
      line += (i ? ", " : " ") + parts[i];
   }
   return line;
}

std::string metaLine(const MetaChange &m, bool counted, std::string_view arrow) {
   std::string line;
   if (m.what == "note") {
      line = (m.before.empty() ? "+ meta note " : "- meta note ") + quoted(m.before.empty() ? m.after : m.before);
   } else {
      line = "~ meta " + m.what + ": " + quoted(m.before) + std::string(arrow) + quoted(m.after);
   }
   return counted ? line : line + " (not counted)";
}

std::string replaceArrows(std::string text, std::string_view arrow) {
   if (arrow == kArrow) {
      return text;
   }
   for (size_t at = text.find(kArrow); at != std::string::npos; at = text.find(kArrow, at + arrow.size())) {
      text.replace(at, kArrow.size(), arrow);
   }
   return text;
}

json keysJson(const zif::Keys &keys) {
   json out = json::array();
   for (const zif::Key &k : keys) {
      if (k.type == zif::KeyType::Int) {
         out.push_back(k.number);
      } else if (k.type == zif::KeyType::Text) {
         out.push_back(k.text);
      } else {
         out.push_back(nullptr);
      }
   }
   return out;
}

std::string statusHex(uint32_t status) {
   char text[16];
   std::snprintf(text, sizeof text, "0x%x", status);
   return text;
}

json valueJson(const Value &v) {
   switch (v.type) {
      case Value::Type::Signed:
         return v.number;
      case Value::Type::Unsigned:
         return v.unsignedNumber;
      case Value::Type::Text:
         return v.text;
      case Value::Type::Bytes:
         break;
   }
   return zif::toHex(v.bytes, false);
}

std::string_view kindJson(zif::EntryKind kind) {
   switch (kind) {
      case zif::EntryKind::List:
         return "list";
      case zif::EntryKind::Record:
         return "record";
      case zif::EntryKind::Data:
         return "data";
      case zif::EntryKind::DevInfo:
         return "devinfo";
      case zif::EntryKind::Set:
         return "set";
      case zif::EntryKind::SetAny:
         return "set-any";
   }
   return "entry";
}

json changeJson(const Change &c) {
   json j;
   j["change"] = c.what == What::Added ? "added" : c.what == What::Removed ? "removed" : "changed";
   j["kind"] = kindJson(c.kind);
   if (c.kind != zif::EntryKind::DevInfo) {
      j["node"] = c.node;
   }
   j[c.kind == zif::EntryKind::List      ? "parent"
     : c.kind == zif::EntryKind::DevInfo ? "function"
                                         : "keys"] = keysJson(c.keys);
   if (c.what != What::Changed) {
      const bool added = c.what == What::Added;
      if (uint32_t status = added ? c.statusAfter : c.statusBefore) {
         j["status"] = statusHex(status);
      } else if (c.kind == zif::EntryKind::List) {
         j["instances"] = keysJson(added ? c.instancesAdded : c.instancesRemoved);
      }
      return j;
   }
   if (c.statusBefore != c.statusAfter) {
      j["status"] = {{"before", statusHex(c.statusBefore)}, {"after", statusHex(c.statusAfter)}};
   }
   if (c.kind == zif::EntryKind::List && c.statusBefore == c.statusAfter) {
      j["added"] = keysJson(c.instancesAdded);
      j["removed"] = keysJson(c.instancesRemoved);
      j["reordered"] = c.reordered;
   }
   if (c.lengthChanged) {
      j["length"] = {{"before", c.lengthBefore}, {"after", c.lengthAfter}};
   }
   if (!c.fields.empty()) {
      json fields = json::array();
      for (const FieldChange &f : c.fields) {
         json fj;
         fj["field"] = f.field.empty() ? json(nullptr) : json(f.field);
         if (f.before.type == Value::Type::Bytes) {
            fj["offset"] = f.offset;
            fj["differing"] = f.differing;
         }
         fj["before"] = valueJson(f.before);
         fj["after"] = valueJson(f.after);
         fields.push_back(std::move(fj));
      }
      j["fields"] = std::move(fields);
   }
   return j;
}

}  // namespace

std::string formatText(const Result &result, std::string_view arrow) {
   std::string out;
   for (size_t i = 0; i < result.summary.size(); i++) {
      out += (i ? "; " : "") + result.summary[i];
   }
   out = replaceArrows(std::move(out), arrow) + "\n";
   for (const MetaChange &m : result.meta) {
      out += metaLine(m, result.countsMeta, arrow) + "\n";
   }
   if (result.rootDevice) {
      out += "~ simulator rootDevice: " + std::to_string(result.rootDevice->first) + std::string(arrow) +
             std::to_string(result.rootDevice->second) + "\n";
   }
   for (const Change &c : result.changes) {
      out += changeLine(c, arrow) + "\n";
   }
   return out;
}

// One member per line and one change per line: a large report stays easy
// to page through and to grep, and is still one JSON document.
std::string formatJson(const Result &result) {
   auto compact = [](const json &j) { return j.dump(-1, ' ', false, json::error_handler_t::replace); };
   json meta = json::array();
   for (const MetaChange &m : result.meta) {
      meta.push_back({{"what", m.what}, {"before", m.before}, {"after", m.after}, {"counted", result.countsMeta}});
   }
   std::string out = "{\n  \"differ\": " + compact(result.differ) + ",\n  \"summary\": " + compact(result.summary) +
                     ",\n  \"meta\": " + compact(meta) + ",\n";
   if (result.rootDevice) {
      json simulator = {{"rootDevice", {{"before", result.rootDevice->first}, {"after", result.rootDevice->second}}}};
      out += "  \"simulator\": " + compact(simulator) + ",\n";
   }
   out += "  \"changes\": [";
   for (size_t i = 0; i < result.changes.size(); i++) {
      out += (i ? ",\n    " : "\n    ") + compact(changeJson(result.changes[i]));
   }
   return out + (result.changes.empty() ? "]\n}\n" : "\n  ]\n}\n");
}

}  // namespace zifdiff
