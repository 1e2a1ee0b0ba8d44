// PCI functions from /sys/bus/pci/devices: the configuration spaces as the
// kernel hands them out, the configuration header record filled from them
// and from sysfs, the module of the bound driver, and the device-info reply.
#include "parts.h"
#include "procfs.h"

#include <algorithm>
#include <cstdio>
#include <map>

namespace capture {
namespace {

// Offsets into the standard configuration space (the PCI standard's own).
constexpr size_t kCfgHeaderType = 0x0e, kCfgSecondaryBus = 0x19, kCfgSubordinateBus = 0x1a, kCfgInterruptLine = 0x3c,
                 kCfgInterruptPin = 0x3d;
constexpr uint8_t kHeaderTypeBridge = 1;

using ConfigHeader = rec::hardware_pci_seg_bus_slot_func_pciConfigHeader;

struct Address {
   uint32_t segment, bus, slot, function;
   auto operator<=>(const Address &) const = default;
};

std::optional<Address> ParseAddress(const std::string &name) {
   Address a{};
   char tail = 0;
   if (std::sscanf(name.c_str(), "%x:%x:%x.%x%c", &a.segment, &a.bus, &a.slot, &a.function, &tail) != 4) {
      return std::nullopt;
   }
   return a;
}

uint64_t SysNumber(const std::string &path, uint64_t fallback) {
   auto text = ReadLine(path);
   if (!text) {
      return fallback;
   }
   return ParseNumber(*text).value_or(fallback);
}

std::string Basename(const std::string &path) {
   size_t slash = path.rfind('/');
   return slash == std::string::npos ? path : path.substr(slash + 1);
}

// Physical slot numbers by "segment:bus:slot" from /sys/bus/pci/slots/*/address.
std::map<std::string, int32_t> PhysicalSlots(Capture &c) {
   std::map<std::string, int32_t> slots;
   auto names = ListDir(c.Sys("bus/pci/slots"));
   if (!names) {
      return slots;
   }
   for (const std::string &name : *names) {
      auto address = ReadLine(c.Sys("bus/pci/slots/" + name + "/address"));
      auto number = ParseNumber(name);
      if (address && number && *number <= 0x7fffffff) {
         slots[*address] = static_cast<int32_t>(*number);
      }
   }
   return slots;
}

struct Function {
   Address address;
   std::string dir;
   std::string driver;
};

}  // namespace

void CapturePci(Capture &c) {
   auto names = ListDir(c.Sys("bus/pci/devices"));
   if (!names) {
      throw PartError("cannot read " + c.Sys("bus/pci/devices"));
   }
   c.SeedModules();
   std::vector<Function> functions;
   for (const std::string &name : *names) {
      if (auto a = ParseAddress(name)) {
         std::string dir = c.Sys("bus/pci/devices/" + name);
         auto driver = ReadLink(dir + "/driver");
         functions.push_back({*a, dir, driver ? Basename(*driver) : std::string()});
      }
   }
   std::sort(functions.begin(), functions.end(), [](auto &x, auto &y) { return x.address < y.address; });
   auto slots = PhysicalSlots(c);

   bool shortConfig = false;
   std::map<std::vector<uint32_t>, zif::Keys> children;  // keys of a level -> instances below it
   std::map<std::vector<uint32_t>, std::vector<const Function *>> slotFunctions;
   for (const Function &f : functions) {
      const Address &a = f.address;
      zif::Keys keys{IntKey(a.segment), IntKey(a.bus), IntKey(a.slot), IntKey(a.function)};
      auto config = ReadFile(f.dir + "/config", 4096);
      if (!config) {
         continue;  // removed meanwhile
      }
      std::vector<uint8_t> space(config->begin(), config->end());
      if (space.size() < 256) {
         shortConfig = true;
      }
      auto at = [&](size_t offset) -> uint8_t { return offset < space.size() ? space[offset] : 0; };

      Record header("hardware_pci_seg_bus_slot_func_pciConfigHeader");
      header.Set("vendorId", SysNumber(f.dir + "/vendor", 0xffff))
            .Set("deviceId", SysNumber(f.dir + "/device", 0xffff))
            .Set("subVendorId", SysNumber(f.dir + "/subsystem_vendor", 0))
            .Set("subDeviceId", SysNumber(f.dir + "/subsystem_device", 0))
            .Set("classCode", SysNumber(f.dir + "/class", 0) >> 8);
      uint8_t flags = 0;
      uint8_t pin = at(kCfgInterruptPin);
      if (pin != 0) {
         uint64_t irq = SysNumber(f.dir + "/irq", 0);
         header.Set("isaIrq", at(kCfgInterruptLine))
               .Set("irq", irq == 0 || irq >= ConfigHeader::irq_none ? ConfigHeader::irq_none : irq)
               .Set("intPin", pin - 1u);
         flags |= ConfigHeader::flags_interruptValid;
      }
      if ((at(kCfgHeaderType) & 0x7f) == kHeaderTypeBridge) {
         header.Set("secondaryBus", at(kCfgSecondaryBus)).Set("subordinateBus", at(kCfgSubordinateBus));
         flags |= ConfigHeader::flags_bridge;
      }
      header.Set("flags", flags);
      char slotAddress[32];
      std::snprintf(slotAddress, sizeof slotAddress, "%04x:%02x:%02x", a.segment, a.bus, a.slot);
      if (auto s = slots.find(slotAddress); s != slots.end()) {
         header.SetSigned("physSlot", s->second);
      }
      if (!f.driver.empty()) {
         // A driver built into the kernel is named by its module directory
         // when it has one, else by the driver's own name.
         auto module = ReadLink(f.dir + "/driver/module");
         header.Set("moduleId", c.ModuleId(module ? Basename(*module) : f.driver));
      }
      c.Put(header, keys);

      std::vector<uint8_t> standard(space.begin(),
                                    space.begin() + static_cast<ptrdiff_t>(std::min<size_t>(space.size(), 256)));
      standard.resize(256, 0);
      c.Put("hardware_pci_seg_bus_slot_func_pciConfigSpace", keys, std::move(standard));
      if (space.size() >= 4096) {
         c.Put("hardware_pci_seg_bus_slot_func_pciExtConfigSpace", keys, std::move(space));
      }

      auto addChild = [&](std::vector<uint32_t> parent, uint32_t child) {
         zif::Keys &list = children[parent];
         if (list.empty() || list.back().number != child) {
            list.push_back(IntKey(child));
         }
      };
      addChild({}, a.segment);
      addChild({a.segment}, a.bus);
      addChild({a.segment, a.bus}, a.slot);
      addChild({a.segment, a.bus, a.slot}, a.function);
      slotFunctions[{a.segment, a.bus, a.slot}].push_back(&f);
   }
   if (shortConfig) {
      c.Note("pci: only part of the configuration spaces was readable (not root?); the rest is zero");
   }

   static const char *const levels[] = {"hardware_pci_seg", "hardware_pci_seg_bus", "hardware_pci_seg_bus_slot",
                                        "hardware_pci_seg_bus_slot_func"};
   if (children.empty()) {
      c.List(levels[0], {}, {});
   }
   for (auto &[parent, instances] : children) {
      zif::Keys parentKeys;
      for (uint32_t k : parent) {
         parentKeys.push_back(IntKey(k));
      }
      c.List(levels[parent.size()], std::move(parentKeys), std::move(instances));
   }

   // One reply per slot, the same for each of its functions: record k
   // describes the k-th function of the slot.
   for (auto &[slot, list] : slotFunctions) {
      rec::DevInfoReply reply;
      for (size_t k = 0; k < list.size() && k < reply.functions.size(); k++) {
         reply.functions[k].set_filled(1).set_mode(
               list[k]->driver == "vfio-pci" ? rec::devinfo_function::mode_passthrough : 0);
      }
      for (const Function *f : list) {
         c.PutDevInfo({IntKey(slot[0]), IntKey(slot[1]), IntKey(slot[2]), IntKey(f->address.function)}, reply);
      }
   }
}

void CaptureModules(Capture &c) {
   c.SeedModules();
   zif::Keys keys;
   for (const std::string &name : c.modules.Names()) {
      uint32_t id = c.modules.Id(name);
      Record rec("system_modules_general");
      rec.Text("name", name).Set("moduleId", id);
      c.Put(rec, {IntKey(id)});
      keys.push_back(IntKey(id));
   }
   c.List("system_modules", {}, std::move(keys));
}

}  // namespace capture
