// irqinfo: the host's interrupt cookies, one row each: the cookie number, how
// many interrupts it delivered on each physical CPU, and the kernel devices
// that use it. It takes no options.
//
// A count that cannot be read leaves its cell blank and the table goes on;
// every other failed read ends the command, keeping the rows printed so far.
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "irqtext.h"
#include "records.h"
#include "sysinfo.h"
#include "ziftools.h"

namespace {

constexpr char kUsage[] = "irqinfo:      List interrupt information\n";

// The devices of the cookie whose key the query list holds, as the row's
// device text. False (after the message) when the list cannot be fetched.
bool DeviceTextOfCookie(ZIF_ParamList *query, bool namedDevices, std::string &text) {
   sysinfo::InstanceList devices;
   ZLC_ReturnStatus status = devices.Fetch(sysinfo::Node(ZIF_NODE_hardware_interrupts_cookieList_ZLCDevices), query);
   if (status != 0) {
      std::fprintf(stderr, "InterruptInfo: error fetching interrupt device list - 0x%x\n", status);
      return false;
   }
   if (!namedDevices) {
      text = "<ZLC device>";
      return true;
   }
   std::vector<const char *> names(static_cast<std::size_t>(devices.Count()));
   for (int i = 0; i < devices.Count(); ++i) {
      const char *name = nullptr;
      names[static_cast<std::size_t>(i)] = ZIF_ParamListGetString(devices.Get(), i, &name) == 0 ? name : nullptr;
   }
   text = irqinfo::DeviceText(names);
   return true;
}

// Prints one cookie's row; the query list holds the cookie key.
bool PrintCookieRow(ZIF_Param *key, ZIF_ParamList *query, std::uint32_t pcpus) {
   const std::int64_t cookie = ZIF_ParamGetInt(key);
   rec::hardware_interrupts_cookieList_UsageStatus usage;
   if (sysinfo::GetRecord(usage, query) != 0) {
      std::fprintf(stderr, "InterruptInfo: error fetching interrupt info - 0x%lx\n",
                   static_cast<unsigned long>(cookie));
      return false;
   }
   std::printf("0x%04lx:", static_cast<unsigned long>(cookie));
   for (std::uint32_t pcpu = 0; pcpu < pcpus; ++pcpu) {
      ZLC_ReturnStatus status = ZIF_ParamListAddInt(query, pcpu);
      if (status != 0) {
         std::fprintf(stderr, "Couldn't add param to list: %#x", status);
         return false;
      }
      rec::hardware_interrupts_cookieList_PCPU count;
      status = sysinfo::GetRecord(count, query);
      ZIF_ParamListRemoveLastParam(query);
      if (status == 0) {
         std::printf("%10lu ", static_cast<unsigned long>(count.count()));
      } else {
         std::printf("%10s", "");
      }
   }
   std::string devices;
   if (!DeviceTextOfCookie(query, usage.namedDevices() != 0, devices)) {
      return false;
   }
   std::printf("%s\n", devices.c_str());
   return true;
}

}  // namespace

int IrqinfoMain(int argc, char **) {
   if (argc > 1) {
      std::fputs(kUsage, stderr);
      return 1;
   }
   sysinfo::ParamListPtr query = sysinfo::MakeQueryList();
   if (!query) {
      std::fputs("InterruptInfo: Not enough memory\n", stderr);
      return 1;
   }
   rec::hardware_cpu_cpuInfo cpuInfo;
   ZLC_ReturnStatus status = sysinfo::GetRecord(cpuInfo, nullptr);
   if (status != 0) {
      std::fprintf(stderr, "InterruptInfo: error fetching number of CPUs - 0x%x\n", status);
      return 1;
   }
   const std::uint32_t pcpus = cpuInfo.numPcpus();
   sysinfo::InstanceList cookies;
   status = cookies.Fetch(sysinfo::Node(ZIF_NODE_hardware_interrupts_cookieList), nullptr);
   if (status != 0) {
      std::fprintf(stderr, "InterruptInfo: error fetching interrupt list - 0x%x\n", status);
      return 1;
   }

   std::fputs("Cookie ", stdout);
   for (std::uint32_t pcpu = 0; pcpu < pcpus; ++pcpu) {
      std::printf("   PCPU %2u ", pcpu);
   }
   std::fputs("\n", stdout);

   const sysinfo::WalkResult walk = sysinfo::ForEachInstance(cookies, query.get(), [&](ZIF_Param *key, int) {
      return PrintCookieRow(key, query.get(), pcpus) ? sysinfo::Visit::Next : sysinfo::Visit::Stop;
   });
   if (walk.KeyCopyFailed()) {
      std::fprintf(stderr, "InterruptInfo: error requesting interrupt info - 0x%x\n", 0u);
      return 1;
   }
   return walk.Completed() ? 0 : 1;
}
