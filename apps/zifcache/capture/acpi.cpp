// ACPI tables from /sys/firmware/acpi/tables (with dynamic/ and data/), cut
// into buffers, and the ACPI device tree from /sys/devices/LNXSYSTM:00.
#include "parts.h"
#include "procfs.h"

#include <sys/stat.h>
#include <algorithm>
#include <cstring>

namespace capture {
namespace {

using Buffer = rec::hardware_acpi_tables_buffers;
using Device = rec::system_devicetree_devices_info;

constexpr size_t kTableHeader = 36;  // a table's own header: signature, length, ...

// Table files sort by signature, then by the number the kernel appends for
// the second and later tables of a signature (SSDT1, SSDT2, ..., SSDT10).
bool TableFileLess(const std::string &a, const std::string &b) {
   auto split = [](const std::string &s) {
      size_t digits = s.find_last_not_of("0123456789") + 1;
      uint64_t n = digits < s.size() ? ParseNumber(s.substr(digits)).value_or(0) : 0;
      return std::pair{s.substr(0, digits), n};
   };
   return split(a) < split(b);
}

// A file holds a table when it is at least a header long and starts with
// four printable characters and its own length.
bool LooksLikeTable(const std::string &bytes) {
   if (bytes.size() < kTableHeader) {
      return false;
   }
   for (int i = 0; i < 4; i++) {
      if (bytes[i] < 0x20 || bytes[i] > 0x7e) {
         return false;
      }
   }
   uint32_t length = 0;
   for (int i = 0; i < 4; i++) {
      length |= static_cast<uint32_t>(static_cast<uint8_t>(bytes[4 + i])) << (8 * i);
   }
   return length == bytes.size();
}

void CaptureTables(Capture &c) {
   std::string root = c.Sys("firmware/acpi/tables");
   auto top = ListDir(root);
   if (!top) {
      throw PartError("cannot read " + root);
   }
   std::vector<std::string> files;
   for (const char *sub : {"", "dynamic/", "data/"}) {
      auto names = *sub ? ListDir(root + "/" + std::string(sub, std::strlen(sub) - 1)) : top;
      if (!names) {
         continue;
      }
      std::sort(names->begin(), names->end(), TableFileLess);
      for (const std::string &name : *names) {
         struct stat st;
         std::string path = root + "/" + sub + name;
         if (stat(path.c_str(), &st) == 0 && S_ISREG(st.st_mode)) {
            files.push_back(path);
         }
      }
   }
   zif::Keys tables;
   size_t unreadable = 0;
   for (const std::string &path : files) {
      auto bytes = ReadFile(path, 64 << 20);
      if (!bytes) {
         unreadable++;
         continue;
      }
      if (!LooksLikeTable(*bytes)) {
         continue;  // data/ also holds raw firmware data
      }
      int32_t key = static_cast<int32_t>(tables.size());
      zif::Keys buffers;
      constexpr rec::Field kData = Buffer::data_field;
      for (size_t off = 0, index = 0; off < bytes->size(); off += kData.width, index++) {
         size_t n = std::min(kData.width, bytes->size() - off);
         auto buffer = std::make_unique<Buffer>();  // 128 KiB: not on the stack
         buffer->set_signature(std::string_view(*bytes).substr(0, 4))
               .set_length(static_cast<uint32_t>(n))
               .set_data(std::span(reinterpret_cast<const uint8_t *>(bytes->data() + off), n));
         // Stored cut after the data: the library zero-fills the rest.
         std::vector<uint8_t> record(buffer->bytes.begin(),
                                     buffer->bytes.begin() + static_cast<ptrdiff_t>(kData.offset + n));
         c.Put("hardware_acpi_tables_buffers", {IntKey(key), IntKey(static_cast<int64_t>(index))}, std::move(record));
         buffers.push_back(IntKey(static_cast<int64_t>(index)));
      }
      c.List("hardware_acpi_tables_buffers", {IntKey(key)}, std::move(buffers));
      tables.push_back(IntKey(key));
   }
   if (unreadable) {
      c.Note("acpi: " + std::to_string(unreadable) + " table file(s) not readable (not root?)");
   }
   c.List("hardware_acpi_tables", {}, std::move(tables));
}

std::string Trimmed(std::optional<std::string> s) {
   if (!s) {
      return {};
   }
   while (!s->empty() && (s->back() == '\n' || s->back() == ' ')) {
      s->pop_back();
   }
   return *s;
}

// The bus ID text: fields of a code letter, a decimal length and that many
// characters: s the device's own name, h its HID, c its first compatible ID,
// x its UID. Fields that would not fit are left out.
std::string BusIdText(const std::string &path, const std::string &hid, const std::string &cid, const std::string &uid) {
   std::string text;
   auto add = [&](char code, const std::string &value) {
      if (value.empty()) {
         return;
      }
      std::string field = code + std::to_string(value.size()) + value;
      if (text.size() + field.size() < Device::busId_field.width) {
         text += field;
      }
   };
   size_t dot = path.find_last_of(".\\");
   add('s', dot == std::string::npos ? path : path.substr(dot + 1));
   add('h', hid);
   add('c', cid);
   if (!uid.empty()) {
      add('x', "UID" + uid);
   }
   return text;
}

// The first compatible ID of "acpi:HID:CID1:CID2:".
std::string FirstCid(const std::string &modalias, const std::string &hid) {
   std::string prefix = "acpi:" + hid + ":";
   if (!modalias.starts_with(prefix)) {
      return {};
   }
   std::string rest = modalias.substr(prefix.size());
   return rest.substr(0, rest.find(':'));
}

bool IsAcpiDevice(const std::string &dir) {
   auto subsystem = ReadLink(dir + "/subsystem");
   return subsystem && subsystem->ends_with("/bus/acpi");
}

uint32_t DriverModule(Capture &c, const std::string &dir) {
   auto driver = ReadLink(dir + "/driver");
   if (!driver) {
      return Device::moduleId_none;
   }
   auto module = ReadLink(dir + "/driver/module");
   const std::string &link = module ? *module : *driver;
   return c.ModuleId(link.substr(link.rfind('/') + 1));
}

void CaptureDevices(Capture &c, const std::string &dir, const zif::Keys &keys, int depth) {
   zif::Keys children;
   auto names = ListDir(dir);
   if (names && depth < 64) {
      for (const std::string &name : *names) {
         std::string child = dir + "/" + name;
         struct stat st;
         // Links (physical_node, subsystem, driver) lead out of the tree.
         if (lstat(child.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || !IsAcpiDevice(child)) {
            continue;
         }
         std::string path = Trimmed(ReadFile(child + "/path", 4096));
         std::string hid = Trimmed(ReadFile(child + "/hid", 4096));
         std::string uid = Trimmed(ReadFile(child + "/uid", 4096));
         std::string cid = FirstCid(Trimmed(ReadFile(child + "/modalias", 4096)), hid);
         zif::Keys childKeys = keys;
         childKeys.push_back(TextKey(name));
         Record rec("system_devicetree_devices_info");
         rec.Text("busType", Device::busType_acpi)
               .Text("busAddress", path)
               .Text("busId", BusIdText(path, hid, cid, uid))
               .Set("moduleId", DriverModule(c, child));
         c.Put(rec, childKeys);
         CaptureDevices(c, child, childKeys, depth + 1);
         children.push_back(TextKey(name));
      }
   }
   c.List("system_devicetree_devices", keys, std::move(children));
}

void CaptureDeviceTree(Capture &c) {
   const std::string rootName = "LNXSYSTM:00";
   std::string root = c.Sys("devices/" + rootName);
   struct stat st;
   if (stat(root.c_str(), &st) != 0) {
      throw PartError("no ACPI device tree at " + root);
   }
   zif::Keys rootKeys{TextKey(rootName)};
   Record rec("system_devicetree_devices_info");
   rec.Text("busType", Device::busType_acpi)
         .Text("busAddress", Trimmed(ReadFile(root + "/path", 4096)))
         .Text("busId", Device::busId_acpiRoot)
         .Set("moduleId", Device::moduleId_none);
   c.Put(rec, rootKeys);
   c.List("system_devicetree_devices", {}, rootKeys);
   CaptureDevices(c, root, rootKeys, 0);
}

}  // namespace

void CaptureAcpi(Capture &c) {
   c.SeedModules();
   bool tables = c.Try("acpi", [&] { CaptureTables(c); });
   bool tree = c.Try("acpi", [&] { CaptureDeviceTree(c); });
   if (!tables && !tree) {
      throw PartError("neither ACPI tables nor an ACPI device tree");
   }
}

}  // namespace capture
