// lspci: every PCI function of the kernel's sysinfo tree, one line each in
// tree order, named from the PCI ID database; or, with -p, a table of bus
// numbers, IDs, interrupt routing, the M letter from the kernel's device-info
// call and the driving module.
//
// Where it differs from the obvious: a failed segment or bus list ends the
// listing with status 0, while every later failure gives status 1; the ID
// tables are built whatever the options, so their messages appear with -n
// and -p too; -p ignores -n, -v, -d and -e for its lines but still fetches
// the configuration spaces that -d and -e ask for. A slot with more than
// eight functions has no device-info record for the ninth and later ones;
// they show V.
#include <getopt.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "pciids.h"
#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "lspci   -p --pciinfo   Print detailed info on all PCI devices\n"
      "        -n --nolookup  Don't look up PCI device names and info\n"
      "        -d --dump      Print hex dump of the standard config space\n"
      "        -e --extdump   Print hex dump of the extended config space\n"
      "        -v --verbose   Verbose information\n"
      "        -h --help      Print this help message\n";
constexpr char kShortOptions[] = "pndevh";
constexpr option kLongOptions[] = {
      {"pciinfo", no_argument, nullptr, 'p'},
      {"nolookup", no_argument, nullptr, 'n'},
      {"dump", no_argument, nullptr, 'd'},
      {"extdump", no_argument, nullptr, 'e'},
      {"verbose", no_argument, nullptr, 'v'},
      {"help", no_argument, nullptr, 'h'},
      {nullptr, 0, nullptr, 0},
};

enum Flags : unsigned {
   kNoLookup = 1,
   kVerbose = 2,
   kPciInfo = 4,
   kDump = 8,
   kExtDump = 16,
};

using ConfigHeader = rec::hardware_pci_seg_bus_slot_func_pciConfigHeader;
using ConfigSpace = rec::hardware_pci_seg_bus_slot_func_pciConfigSpace;
using ExtConfigSpace = rec::hardware_pci_seg_bus_slot_func_pciExtConfigSpace;

constexpr std::uint8_t kInterruptValid = 0x1;
constexpr std::uint8_t kBridge = 0x2;
constexpr std::uint8_t kNoIrq = 0xFF;
constexpr std::uint32_t kNoModule = 0xFFFFFFFF;

// The device-info reply: one 128-byte record per function of the slot.
constexpr std::size_t kDevInfoRecordSize = 128;
constexpr std::size_t kDevInfoRecords = ZLC_DEVINFO_REPLY_SIZE / kDevInfoRecordSize;
constexpr std::size_t kDevInfoModeOffset = 4;
constexpr std::uint32_t kDevInfoModeP = 1;

// The module name cache: one entry per kernel module, then a terminator.
struct ModNameCacheEntry {
   std::uint16_t id;
   char name[32];
};
constexpr std::uint16_t kModNameCacheEnd = 0xFFFF;
std::vector<ModNameCacheEntry> ModNameCache;  // empty: not filled

[[noreturn]] void Usage() {
   std::fputs(kUsage, stderr);
   std::exit(1);
}

unsigned ParseOptions(int argc, char **argv) {
   unsigned flags = 0;
   int option;
   while ((option = getopt_long(argc, argv, kShortOptions, kLongOptions, nullptr)) != -1) {
      switch (option) {
         case 'n':
            flags |= kNoLookup;
            break;
         case 'v':
            flags |= kVerbose;
            break;
         case 'p':
            flags |= kPciInfo;
            break;
         case 'd':
            flags |= kDump;
            break;
         case 'e':
            flags |= kExtDump;
            break;
         default:
            Usage();
      }
   }
   return flags;
}

bool ModNameCacheFill() {
   constexpr char kName[] = "ModNameCacheFill";
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   if (!query) {
      std::fprintf(stderr, "%s: not enough memory\n", kName);
      return false;
   }
   sysinfo::InstanceList modules;
   ZLC_ReturnStatus status = modules.Fetch(sysinfo::Node(ZIF_NODE_system_modules), nullptr);
   if (status != 0) {
      std::fprintf(stderr, "%s: error fetching zelcore module list - 0x%x\n", kName, status);
      return false;
   }
   const int count = modules.Count();
   if (count <= 0) {
      std::fprintf(stderr, "%s: no modules found\n", kName);
      return false;
   }
   std::vector<ModNameCacheEntry> entries;
   try {
      entries.reserve(static_cast<std::size_t>(count) + 1);
   } catch (const std::bad_alloc &) {
      std::fprintf(stderr, "%s: not enough memory\n", kName);
      return false;
   }

   rec::system_modules_general general;
   const sysinfo::WalkResult walk = sysinfo::ForEachInstance(modules, query.get(), [&](ZIF_Param *, int) {
      status = sysinfo::GetRecord(general, query.get());
      if (status != 0) {
         std::fprintf(stderr, "%s: error fetching module info - 0x%x\n", kName, status);
         return sysinfo::Visit::Stop;
      }
      ModNameCacheEntry &entry = entries.emplace_back();
      entry.id = static_cast<std::uint16_t>(general.moduleId() & 0xFFFF);
      const std::string_view name = general.name().substr(0, sizeof entry.name - 1);
      std::memcpy(entry.name, name.data(), name.size());
      entry.name[name.size()] = '\0';
      return sysinfo::Visit::Next;
   });
   if (walk.KeyCopyFailed()) {
      std::fprintf(stderr, "%s: error requesting module info - 0x%x\n", kName, 0u);
      return false;
   }
   if (!walk.Completed()) {
      return false;
   }
   entries.push_back({kModNameCacheEnd, ""});
   ModNameCache = std::move(entries);
   return true;
}

// The module column: empty without a module, "error" when the module names
// cannot be had or none matches.
const char *ModuleColumn(std::uint32_t moduleId) {
   if (moduleId == 0 || moduleId == kNoModule) {
      return "";
   }
   if (ModNameCache.empty() && !ModNameCacheFill()) {
      return "error";
   }
   // Entries hold the low 16 bits of a module ID; read as a signed number they
   // match only IDs below 0x8000 or their sign-extended forms.
   for (const ModNameCacheEntry &entry : ModNameCache) {
      if (entry.id == kModNameCacheEnd) {
         break;
      }
      if (static_cast<std::uint32_t>(static_cast<std::int32_t>(static_cast<std::int16_t>(entry.id))) == moduleId) {
         return entry.name;
      }
   }
   return "error";
}

void HexDump(std::span<const unsigned char> bytes) {
   constexpr std::size_t kRow = 16;
   for (std::size_t row = 0; row + kRow <= bytes.size(); row += kRow) {
      std::printf("%02x:", static_cast<unsigned>(row));
      for (std::size_t i = row; i < row + kRow; ++i) {
         std::printf(" %02x", bytes[i]);
      }
      std::putchar('\n');
   }
}

struct FunctionAddress {
   std::uint32_t segment;
   std::uint32_t bus;
   std::uint32_t slot;
   std::uint32_t function;
};

FunctionAddress AddressOf(ZIF_ParamList *query) {
   auto key = [query](int index) {
      return static_cast<std::uint32_t>(ZIF_ParamGetInt(ZIF_ParamListGetParam(query, index)));
   };
   return {key(0), key(1), key(2), key(3)};
}

// What one function's line is made from.
struct Function {
   FunctionAddress address;
   int indexInSlot;
   ConfigHeader header;
   ConfigSpace config;
   ExtConfigSpace extConfig;
};

void PrintNameLine(const Function &function, unsigned flags, const PciIdTable &ids) {
   const ConfigHeader &header = function.header;
   const FunctionAddress &a = function.address;
   const unsigned classCode = header.classCode();
   const unsigned vendor = header.vendorId();
   const unsigned device = header.deviceId();
   std::printf("%04x:%02x:%02x.%x ", a.segment, a.bus, a.slot, a.function);
   if (flags & kNoLookup) {
      std::printf("Class %.4x: %04x:%04x ", classCode, vendor, device);
   } else {
      const PCIClassNames classNames = ids.FindClass(header.classCode());
      const PCIDeviceNames names =
            ids.NameDevice(header.vendorId(), header.deviceId(), header.subVendorId(), header.subDeviceId());
      if (flags & kVerbose) {
         std::printf("%s %s: ", classNames.className, classNames.subclassName);
      } else {
         std::printf("%s: ", classNames.subclassName[0] != '\0' ? classNames.subclassName : classNames.className);
      }
      std::printf("%s %s ", names.vendorName, names.deviceName);
   }
   std::putchar('\n');
   if ((flags & kVerbose) && !(flags & kNoLookup)) {
      std::printf("\t Class %.4x: %04x:%04x\n\n", classCode, vendor, device);
   }
   if (flags & kDump) {
      HexDump(function.config.bytes);
   }
   if (flags & kExtDump) {
      HexDump(function.extConfig.bytes);
   }
}

// The interrupt column: ISA IRQ, IRQ, vector and pin, when the header has them.
void FormatInterrupt(const ConfigHeader &header, char (&column)[16]) {
   column[0] = '\0';
   if (!(header.flags() & kInterruptValid)) {
      return;
   }
   const int pin = 'A' + header.intPin();
   if (header.vector() == 0) {
      std::snprintf(column, sizeof column, "%3d/   /     %c", header.isaIrq(), pin);
   } else if (header.irq() == kNoIrq) {
      std::snprintf(column, sizeof column, "%3d/   /0x%02x %c", header.isaIrq(), header.vector(), pin);
   } else {
      std::snprintf(column, sizeof column, "%3d/%3d/0x%02x %c", header.isaIrq(), header.irq(), header.vector(), pin);
   }
}

const char *ModeLetter(std::span<const unsigned char, ZLC_DEVINFO_REPLY_SIZE> reply, int indexInSlot) {
   const auto index = static_cast<std::size_t>(indexInSlot);
   if (index >= kDevInfoRecords) {
      return "V";
   }
   const unsigned char *record = reply.data() + index * kDevInfoRecordSize;
   std::uint32_t mode;
   std::memcpy(&mode, record + kDevInfoModeOffset, sizeof mode);
   return record[0] != 0 && mode == kDevInfoModeP ? "P" : "V";
}

// Returns false after the device-info call failed.
bool PrintDetailLine(const Function &function) {
   const ConfigHeader &header = function.header;
   const FunctionAddress &a = function.address;
   char interrupt[16];
   FormatInterrupt(header, interrupt);

   unsigned char reply[ZLC_DEVINFO_REPLY_SIZE] = {};
   std::int64_t negErrno = 0;
   const ZLC_ReturnStatus status = ZlcSyscall_DevInfo(a.segment, a.bus, a.slot, a.function, reply, &negErrno);
   if (negErrno != 0) {
      errno = static_cast<int>(-negErrno);
   }
   if (status != 0) {
      std::fprintf(stderr, "%s: could not obtain dev info from zelcore for dev @ %04x:%02x:%02x.%x\n", "lspci",
                   a.segment, a.bus, a.slot, a.function);
      return false;
   }
   const char *mode = ModeLetter(reply, function.indexInSlot);
   const char *module = ModuleColumn(header.moduleId());

   std::printf("%04x:%02x:%02x.%x", a.segment, a.bus, a.slot, a.function);
   if (header.flags() & kBridge) {
      std::printf(" 0x%-4x 0x%-4x ", static_cast<unsigned>(header.secondaryBus()),
                  static_cast<unsigned>(header.subordinateBus()));
   } else {
      std::printf(" %-6s %-6s ", "", "");
   }
   std::printf("%04x:%04x %04x:%04x %-14s %-1s %-12s \n", static_cast<unsigned>(header.vendorId()),
               static_cast<unsigned>(header.deviceId()), static_cast<unsigned>(header.subVendorId()),
               static_cast<unsigned>(header.subDeviceId()), interrupt, mode, module);
   return true;
}

// The four nested walks. A failure sets the exit status and stops every walk.
class Listing {
public:
   Listing(unsigned flags, const PciIdTable &ids) : flags_(flags), ids_(ids) {}

   int Run() {
      sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
      if (!query) {
         std::fprintf(stderr, "%s: not enough memory\n", "lspci");
         return 1;
      }
      query_ = query.get();
      sysinfo::InstanceList segments;
      const ZLC_ReturnStatus status = segments.Fetch(sysinfo::Node(ZIF_NODE_hardware_pci_seg), nullptr);
      if (status != 0) {
         std::fprintf(stderr, "%s: error fetching PCI seg list 0x%x\n", "lspci", status);
         return 0;
      }
      ZlcSyscall_Init(1, 0, 0);
      const sysinfo::WalkResult walk =
            sysinfo::ForEachInstance(segments, query_, [this](ZIF_Param *, int) { return WalkBuses(); });
      if (walk.KeyCopyFailed()) {
         return 1;
      }
      return exitStatus_;
   }

private:
   // Walks the children of the instance whose keys the query list holds. A
   // failed list prints its message and ends lspci with listFailedStatus.
   template <typename Visitor>
   sysinfo::Visit Descend(const ZIF_NodeObject &node, const char *what, int listFailedStatus, Visitor &&visit) {
      const sysinfo::WalkResult walk =
            sysinfo::WalkInstances(sysinfo::Node(node), query_, query_, std::forward<Visitor>(visit));
      if (walk.ListFailed()) {
         std::fprintf(stderr, "%s: error fetching PCI %s list 0x%x\n", "lspci", what, walk.status);
         exitStatus_ = listFailedStatus;
         return sysinfo::Visit::Stop;
      }
      if (walk.KeyCopyFailed()) {
         exitStatus_ = 1;
         return sysinfo::Visit::Stop;
      }
      return walk.Stopped() ? sysinfo::Visit::Stop : sysinfo::Visit::Next;
   }

   sysinfo::Visit WalkBuses() {
      return Descend(ZIF_NODE_hardware_pci_seg_bus, "bus", 0, [this](ZIF_Param *, int) { return WalkSlots(); });
   }

   sysinfo::Visit WalkSlots() {
      return Descend(ZIF_NODE_hardware_pci_seg_bus_slot, "slot", 1,
                     [this](ZIF_Param *, int) { return WalkFunctions(); });
   }

   sysinfo::Visit WalkFunctions() {
      return Descend(ZIF_NODE_hardware_pci_seg_bus_slot_func, "func", 1,
                     [this](ZIF_Param *, int index) { return ShowFunction(index); });
   }

   sysinfo::Visit Fail() {
      exitStatus_ = 1;
      return sysinfo::Visit::Stop;
   }

   sysinfo::Visit ShowFunction(int indexInSlot) {
      function_.indexInSlot = indexInSlot;
      ZLC_ReturnStatus status = sysinfo::GetRecord(function_.header, query_);
      if (status != 0) {
         std::fprintf(stderr, "%s: error fetching PCI information 0x%x\n", "lspci", status);
         return Fail();
      }
      if (flags_ & kDump) {
         status = sysinfo::GetRecord(function_.config, query_);
      }
      if (status == 0 && (flags_ & kExtDump)) {
         status = sysinfo::GetRecord(function_.extConfig, query_);
      }
      if (status != 0) {
         std::fprintf(stderr, "%s: error fetching PCI configuration space 0x%x\n", "lspci", status);
         return Fail();
      }
      function_.address = AddressOf(query_);
      if (!(flags_ & kPciInfo)) {
         PrintNameLine(function_, flags_, ids_);
      } else if (!PrintDetailLine(function_)) {
         return Fail();
      }
      return sysinfo::Visit::Next;
   }

   unsigned flags_;
   const PciIdTable &ids_;
   ZIF_ParamList *query_ = nullptr;
   int exitStatus_ = 0;
   Function function_{};
};

}  // namespace

int LspciMain(int argc, char **argv) {
   const unsigned flags = ParseOptions(argc, argv);
   PciIdTable ids;
   // A fatal error of the ID file list ends lspci before anything is listed.
   if (const std::optional<PciIdFatalError> fatal = ids.Build(PciHwdataDir())) {
      std::fputs(fatal->Message().c_str(), stderr);
      return 1;
   }
   if (flags & kPciInfo) {
      std::printf("%-12s %-6s %-6s %-19s %-14s %-1s %-12s\n", "Segm:Bu:De.F", "SecBus", "SubBus", "Vend:Dvid Subv:Subd",
                  "ISA/irq/Vect P", "M", "Module");
   }
   const int status = Listing(flags, ids).Run();
   ModNameCache.clear();
   return status;
}
