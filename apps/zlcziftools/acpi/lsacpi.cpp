// lsacpi: the host's ACPI devices as an indented five-column table (bus
// address, bus ID, driving module, description, class), the last two looked
// up by hardware ID in the ACPI ID files of the hwdata directory.
//
// Everything is collected before anything is printed, so that every column is
// as wide as its widest text or its heading. Every failure ends the command
// with status 1 before the table starts. Without an ACPI root device, or with
// one that has no ACPI descendants, the heading and the separator are printed
// at their minimum widths and the status is 0.
//
// The device tree is walked depth first without recursion, so that however
// deep a snapshot's tree is, it cannot exhaust the stack.
#include <getopt.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "hwdata.h"
#include "idfields.h"
#include "keyvalue.h"
#include "pci/modules.h"
#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] = "lsacpi   -h --help      Print this help message\n";
constexpr char kShortOptions[] = "h";
constexpr option kLongOptions[] = {
      {"help", no_argument, nullptr, 'h'},
      {nullptr, 0, nullptr, 0},
};

constexpr char kHidFile[] = "acpiHIDs.ids";
constexpr char kClassFile[] = "acpiClasses.ids";

constexpr std::string_view kAcpiBusType = rec::system_devicetree_devices_info::busType_acpi;
constexpr std::string_view kAcpiRootBusId = rec::system_devicetree_devices_info::busId_acpiRoot;
constexpr std::uint16_t kNoModule = rec::system_devicetree_devices_info::moduleId_none;
constexpr char kUnknown[] = "<Unknown>";
constexpr char kModuleNotKnown[] = "<Not known yet>";
constexpr std::size_t kSeparatorLength = 512;

struct DeviceRow {
   char busAddress[512];
   char busId[64];
   char module[32];
   char description[256];
   char deviceClass[64];
   std::uint32_t depth;
};

// Each column's widest text so far.
struct ColumnWidths {
   std::uint32_t busAddress = 0;
   std::uint32_t busId = 0;
   std::uint32_t module = 0;
   std::uint32_t description = 0;
   std::uint32_t deviceClass = 0;
};

// Everything the listing needs, gathered before printing.
struct Listing {
   std::vector<ModuleName> modules;
   KeyValueTable hids;
   KeyValueTable classes;
   std::vector<DeviceRow> rows;
   ColumnWidths widths;
   std::uint32_t maxDepth = 0;
};

[[noreturn]] void Usage() {
   std::fputs(kUsage, stderr);
   std::exit(1);
}

const char *StatusText(ZLC_ReturnStatus status) {
   return ZLC_ReturnStatusToString(status);
}

std::string HwdataPath(const char *file) {
   return hwdata::PathOf(file);
}

// Copies text into a field, cut to the field's size less one and terminated;
// returns the stored length.
template <std::size_t N>
std::uint32_t StoreText(char (&field)[N], std::string_view text) {
   const std::size_t length = std::min(text.size(), N - 1);
   std::memcpy(field, text.data(), length);
   field[length] = '\0';
   return static_cast<std::uint32_t>(length);
}

// Prints a message to standard error; returns status.
ZLC_ReturnStatus Report(const char *message, ZLC_ReturnStatus status) {
   std::fputs(message, stderr);
   return status;
}

// Prints "what: <status text>\n" to standard error; returns status.
ZLC_ReturnStatus ReportStatus(const char *what, ZLC_ReturnStatus status) {
   std::fprintf(stderr, "%s: %s\n", what, StatusText(status));
   return status;
}

// Fills the module info list; returns the failing status after its message.
ZLC_ReturnStatus ReadModules(std::vector<ModuleName> &modules) {
   using Failure = ModuleList::Failure;
   ModuleList list = ReadModuleList();
   switch (list.failure) {
      case Failure::kNone:
         modules = std::move(list.modules);
         return 0;
      case Failure::kNoQueryList:
         return Report("lsacpi: not enough memory\n", ZLC_NO_MEMORY);
      case Failure::kListFailed:
         return ReportStatus("lsacpi: error fetching module list", list.status);
      case Failure::kNoMemory:
         return Report("lsacpi: unable to allocate module info list\n", ZLC_NO_MEMORY);
      case Failure::kKeyCopyFailed:
         return Report("lsacpi: unable to make param list\n", ZLC_FAILURE);
      case Failure::kRecordFailed:
         return ReportStatus("lsacpi: error fetching module info", list.status);
   }
   return ZLC_FAILURE;
}

const char *ModuleNameOf(const std::vector<ModuleName> &modules, std::uint16_t id) {
   if (id == kNoModule) {
      return "";
   }
   for (const ModuleName &module : modules) {
      if (module.id == id) {
         return module.name;
      }
   }
   return kModuleNotKnown;
}

const char *LookupOrUnknown(const KeyValueTable &table, std::string_view hid) {
   const char *value = LookupKeyValue(table, hid);
   return value != nullptr ? value : kUnknown;
}

void AddDevice(const rec::system_devicetree_devices_info &info, std::uint32_t depth, Listing &listing) {
   listing.maxDepth = std::max(listing.maxDepth, depth);
   const IdFields ids = ParseIdFields(info.busId());

   DeviceRow row;
   ColumnWidths lengths;
   lengths.busAddress = StoreText(row.busAddress, info.busAddress());
   lengths.busId = StoreText(row.busId, info.busId());
   lengths.module = StoreText(row.module, ModuleNameOf(listing.modules, info.moduleId()));
   lengths.description = StoreText(row.description, LookupOrUnknown(listing.hids, ids.h.text));
   lengths.deviceClass = StoreText(row.deviceClass, LookupOrUnknown(listing.classes, ids.h.text));
   row.depth = depth;
   try {
      listing.rows.push_back(row);
   } catch (const std::bad_alloc &) {
      Panic("lsacpi: unable to add ACPI device to table: %s", StatusText(ZLC_NO_MEMORY));
   }

   ColumnWidths &widths = listing.widths;
   widths.busAddress = std::max(widths.busAddress, lengths.busAddress);
   widths.busId = std::max(widths.busId, lengths.busId);
   widths.module = std::max(widths.module, lengths.module);
   widths.description = std::max(widths.description, lengths.description);
   widths.deviceClass = std::max(widths.deviceClass, lengths.deviceClass);
}

// Appends a row for every ACPI device below the device whose keys the query
// list holds, each before its descendants, siblings in list order. Devices of
// other bus types make no row but are walked through. Leaves the query list
// as it found it.
void CollectAcpiDevices(ZIF_ParamList *query, Listing &listing) {
   struct Level {
      sysinfo::InstanceList children;
      int next = 0;
   };
   std::vector<Level> levels;
   auto descend = [&] {
      Level level;
      ZLC_ReturnStatus status = level.children.Fetch(sysinfo::Node(ZIF_NODE_system_devicetree_devices), query);
      if (status != 0) {
         Panic("lsacpi: error fetching device list: %s\n", StatusText(status));
      }
      levels.push_back(std::move(level));
   };

   rec::system_devicetree_devices_info info;
   descend();
   while (!levels.empty()) {
      Level &level = levels.back();
      if (level.next == level.children.Count()) {
         levels.pop_back();
         if (!levels.empty()) {
            ZIF_ParamListRemoveLastParam(query);
         }
         continue;
      }
      const auto depth = static_cast<std::uint32_t>(levels.size() - 1);
      if (!sysinfo::CopyKey(level.children.At(level.next++), query)) {
         Panic("lsacpi: error making param list\n");
      }
      ZLC_ReturnStatus status = sysinfo::GetRecord(info, query);
      if (status != 0) {
         Panic("lsacpi: error fetching device info: %s\n", StatusText(status));
      }
      if (info.busType() == kAcpiBusType) {
         AddDevice(info, depth, listing);
      }
      descend();
   }
}

// Walks the buses of the device tree and collects the devices below the one
// ACPI root device.
void CollectFromBuses(Listing &listing) {
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   if (!query) {
      Panic("lsacpi: not enough memory\n");
   }
   bool rootFound = false;
   rec::system_devicetree_devices_info bus;
   sysinfo::WalkResult walk = sysinfo::WalkInstances(
         sysinfo::Node(ZIF_NODE_system_devicetree_devices), nullptr, query.get(), [&](ZIF_Param *, int) {
            ZLC_ReturnStatus status = sysinfo::GetRecord(bus, query.get());
            if (status != 0) {
               Panic("lsacpi: error fetching bus info: %s\n", StatusText(status));
            }
            if (bus.busId() == kAcpiRootBusId) {
               if (rootFound) {
                  Panic("lsacpi: more than one ACPI root device found!\n");
               }
               rootFound = true;
               CollectAcpiDevices(query.get(), listing);
            }
            return sysinfo::Visit::Next;
         });
   if (walk.ListFailed()) {
      Panic("lsacpi: error fetching bus list: %s\n", StatusText(walk.status));
   }
   if (walk.KeyCopyFailed()) {
      Panic("lsacpi: error making bus param list\n");
   }
}

int Width(std::uint32_t width) {
   return static_cast<int>(width);
}

void PrintTable(const Listing &listing) {
   const std::uint32_t depth = listing.maxDepth;
   const int w1 = Width(std::max<std::uint32_t>(listing.widths.busAddress, 11) + depth);
   const int w2 = Width(std::max<std::uint32_t>(listing.widths.busId, 6));
   const int w3 = Width(std::max<std::uint32_t>(listing.widths.module, 15));
   const int w4 = Width(std::max<std::uint32_t>(listing.widths.description, 18));
   const int w5 = Width(std::max<std::uint32_t>(listing.widths.deviceClass, 12));
   constexpr char kLine[] = "%-*.*s %-*.*s %-*.*s %-*.*s %-*.*s\n";

   std::printf(kLine, w1, w1, "Bus address", w2, w2, "Bus ID", w3, w3, "Driver's module", w4, w4, "Device description",
               w5, w5, "Device class");
   const std::string separator(kSeparatorLength, '-');
   const char *dashes = separator.c_str();
   std::printf(kLine, w1, w1, dashes, w2, w2, dashes, w3, w3, dashes, w4, w4, dashes, w5, w5, dashes);

   std::string prefix;
   for (const DeviceRow &row : listing.rows) {
      prefix.assign(row.depth, '+');
      const int first = w1 - Width(row.depth);
      std::printf("%s%-*.*s %-*.*s %-*.*s %-*.*s %-*.*s\n", prefix.c_str(), first, first, row.busAddress, w2, w2,
                  row.busId, w3, w3, row.module, w4, w4, row.description, w5, w5, row.deviceClass);
   }
}

}  // namespace

int LsacpiMain(int argc, char **argv) {
   if (getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr) != -1) {
      Usage();
   }

   Listing listing;
   ZLC_ReturnStatus status = ReadModules(listing.modules);
   if (status != 0) {
      Panic("lsacpi: failed to load module list: %s\n", StatusText(status));
   }
   if (LoadKeyValueTableFromFile(HwdataPath(kHidFile).c_str(), listing.hids) != 0) {
      Panic("%s: failed to load device HIDs\n", "lsacpi");
   }
   if (LoadKeyValueTableFromFile(HwdataPath(kClassFile).c_str(), listing.classes) != 0) {
      Panic("%s: failed to load device classes\n", "lsacpi");
   }

   CollectFromBuses(listing);
   PrintTable(listing);
   return 0;
}
