// What the writer, the reader and their messages share: the names of
// sections and entry kinds, and keys and entries as messages show them.
#include "file_layout.h"

namespace zif {

std::string_view file::kindLabel(EntryKind k) {
   switch (k) {
      case EntryKind::List:
         return "list";
      case EntryKind::Record:
         return "record";
      case EntryKind::Data:
         return "data";
      case EntryKind::DevInfo:
         return "devinfo";
      case EntryKind::Set:
         return "set";
      case EntryKind::SetAny:
         return "set (any input)";
   }
   return "entry";
}

std::string_view sectionName(SectionId id) {
   switch (id) {
      case SectionId::Names:
         return "names";
      case SectionId::Index:
         return "index";
      case SectionId::Keys:
         return "keys";
      case SectionId::Data:
         return "data";
      case SectionId::Meta:
         return "meta";
   }
   return "?";
}

std::string formatKeys(const Keys &keys) {
   std::string s = "[";
   for (size_t i = 0; i < keys.size(); i++) {
      if (i) {
         s += ", ";
      }
      switch (keys[i].type) {
         case KeyType::Int:
            s += std::to_string(keys[i].number);
            break;
         case KeyType::Text:
            s += "\"" + keys[i].text + "\"";
            break;
         case KeyType::Null:
            s += "null";
            break;
      }
   }
   return s + "]";
}

std::string describeEntry(EntryKind kind, std::string_view node, const Keys &keys) {
   std::string s(file::kindLabel(kind));
   if (!node.empty()) {
      s.append(" ").append(node);
   }
   return s + " " + formatKeys(keys);
}

}  // namespace zif
