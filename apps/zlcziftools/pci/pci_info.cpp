// pci-info: one PCI function, named by segment, bus, slot and function, for
// scripts: its IRQ or physical slot number as a bare three-column number, or
// the raw bytes of its standard or extended configuration space.
//
// Where it differs from the obvious: the actions run in a fixed order (-i,
// -c, -e, -S) whatever their order on the command line, each walking down to
// the function again; the numbers go through buffered standard output while
// the dumps are written at once to file descriptor 1, so the numbers follow
// the dumps. A failed action is reported on standard error only: the status
// is 0 whenever an action was asked for.
#include <getopt.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] =
      "pci-info\n"
      "  -n <segment>      device segment (default: 0)\n"
      "  -b <bus>          device bus\n"
      "  -s <slot>         device slot\n"
      "  -f <function>     device function\n"
      "  -h                help\n"
      "  -i                print IRQ vector\n"
      "  -c                print PCI config space\n"
      "  -e                print PCI extended config space\n"
      "  -S                print physical slot\n";
constexpr char kOptions[] = "n:b:s:f:hiceS";

enum Actions : unsigned {
   kPrintIrq = 1,
   kPrintConfig = 2,
   kPrintExtConfig = 4,
   kPrintSlot = 8,
};

using ConfigHeader = rec::hardware_pci_seg_bus_slot_func_pciConfigHeader;
using ConfigSpace = rec::hardware_pci_seg_bus_slot_func_pciConfigSpace;
using ExtConfigSpace = rec::hardware_pci_seg_bus_slot_func_pciExtConfigSpace;

struct Request {
   int segment = 0;
   int bus = -1;  // -1 never matches an instance key
   int slot = -1;
   int function = -1;
   unsigned actions = 0;
};

void PrintUsage() {
   std::fputs(kUsage, stderr);
}

// A whole unsigned number in decimal, 0x hexadecimal or 0 octal, with its top
// bit cleared; anything else ends the process.
int ValidateInput(const char *text, const char *what) {
   if (text != nullptr && text[0] != '\0' && text[0] != '-') {
      char *end = nullptr;
      const unsigned long value = std::strtoul(text, &end, 0);
      if (*end == '\0') {
         return static_cast<int>(value & 0x7FFFFFFF);
      }
   }
   std::fprintf(stderr, "%s: invalid %s\n", "ValidateInput", what);
   PrintUsage();
   std::exit(1);
}

// One level of the walk down to the function.
struct Level {
   const ZIF_NodeObject &node;
   int wanted;
   const char *message;
};

// Appends the key of the instance of the level's node (under the keys the
// query list holds) that matches the wanted number.
ZLC_ReturnStatus ChooseInstance(const Level &level, ZIF_ParamList *query, bool topLevel) {
   sysinfo::InstanceList instances;
   const ZLC_ReturnStatus status = instances.Fetch(sysinfo::Node(level.node), topLevel ? nullptr : query);
   if (status != 0) {
      return status;
   }
   for (int i = 0; i < instances.Count(); ++i) {
      ZIF_Param *key = instances.At(i);
      if (static_cast<std::int32_t>(ZIF_ParamGetInt(key)) == level.wanted) {
         return sysinfo::CopyKey(key, query) ? ZLC_OK : ZLC_FAILURE;
      }
   }
   std::fprintf(stderr, level.message, "GetDevice", level.wanted);
   return ZLC_BAD_PARAM;
}

// On success the query list holds the function's four keys.
ZLC_ReturnStatus GetDevice(int segment, int bus, int slot, int function, sysinfo::ParamListPtr &out) {
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   if (!query) {
      std::fputs("Failed to allocate param list (size = 1)\n", stderr);
      return ZLC_LIMIT_EXCEEDED;
   }
   const Level levels[] = {
         {ZIF_NODE_hardware_pci_seg, segment, "%s: invalid seg %d\n"},
         {ZIF_NODE_hardware_pci_seg_bus, bus, "%s: invalid bus %d\n"},
         {ZIF_NODE_hardware_pci_seg_bus_slot, slot, "%s: invalid slot %d\n"},
         {ZIF_NODE_hardware_pci_seg_bus_slot_func, function, "%s: invalid func %d\n"},
   };
   bool topLevel = true;
   for (const Level &level : levels) {
      const ZLC_ReturnStatus status = ChooseInstance(level, query.get(), topLevel);
      if (status != 0) {
         return status;
      }
      topLevel = false;
   }
   out = std::move(query);
   return ZLC_OK;
}

// Walks to the requested function and reads one of its records; false after
// the operation's message.
template <typename Record>
bool ReadFunctionRecord(const char *operation, const Request &request, Record &record) {
   sysinfo::ParamListPtr query;
   if (GetDevice(request.segment, request.bus, request.slot, request.function, query) != 0) {
      std::fprintf(stderr, "%s: invalid device: %d:%d.%d\n", operation, request.bus, request.slot, request.function);
      return false;
   }
   const ZLC_ReturnStatus status = sysinfo::GetRecord(record, query.get());
   if (status != 0) {
      std::fprintf(stderr, "%s: error fetching PCI information 0x%x\n", operation, status);
      return false;
   }
   return true;
}

bool GetPCIInfo(const Request &request, ConfigHeader &header) {
   return ReadFunctionRecord("GetPCIInfo", request, header);
}

// The raw bytes go out unbuffered, ahead of anything printed through stdout.
template <typename Record>
bool WriteRaw(const Record &record) {
   const ssize_t written = write(STDOUT_FILENO, record.bytes.data(), record.bytes.size());
   static_cast<void>(written);
   return true;
}

bool PrintConfigSpace(const Request &request) {
   ConfigSpace config;
   return ReadFunctionRecord("PrintConfigSpace", request, config) && WriteRaw(config);
}

bool PrintExtConfigSpace(const Request &request) {
   ExtConfigSpace extConfig;
   return ReadFunctionRecord("PrintExtConfigSpace", request, extConfig) && WriteRaw(extConfig);
}

// Returns the exit status when the handler must end at once, -1 otherwise.
int ParseOptions(int argc, char **argv, Request &request) {
   int option;
   while ((option = getopt(argc, argv, kOptions)) != -1) {
      switch (option) {
         case 'n':
            request.segment = ValidateInput(optarg, "segment");
            break;
         case 'b':
            request.bus = ValidateInput(optarg, "bus");
            break;
         case 's':
            request.slot = ValidateInput(optarg, "slot");
            break;
         case 'f':
            request.function = ValidateInput(optarg, "function");
            break;
         case 'i':
            request.actions |= kPrintIrq;
            break;
         case 'c':
            request.actions |= kPrintConfig;
            break;
         case 'e':
            request.actions |= kPrintExtConfig;
            break;
         case 'S':
            request.actions |= kPrintSlot;
            break;
         case 'h':
            PrintUsage();
            return 0;
         default:
            PrintUsage();
            return 1;
      }
   }
   return -1;
}

}  // namespace

int PciInfoMain(int argc, char **argv) {
   Request request;
   const int early = ParseOptions(argc, argv, request);
   if (early >= 0) {
      return early;
   }
   if (request.actions == 0) {
      PrintUsage();
      return 1;
   }
   ConfigHeader header;
   if ((request.actions & kPrintIrq) && GetPCIInfo(request, header)) {
      std::printf("%3d", header.irq());
   }
   if (request.actions & kPrintConfig) {
      PrintConfigSpace(request);
   }
   if (request.actions & kPrintExtConfig) {
      PrintExtConfigSpace(request);
   }
   if ((request.actions & kPrintSlot) && GetPCIInfo(request, header)) {
      std::printf("%3d", header.physSlot());
   }
   return 0;
}
