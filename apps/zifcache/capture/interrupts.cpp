// Interrupt cookies from /proc/interrupts: one cookie per numbered line, its
// count on each CPU column, and the device names of its last column.
#include "parts.h"
#include "procfs.h"

#include <algorithm>

namespace capture {

void CaptureInterrupts(Capture &c) {
   auto text = ReadFile(c.Proc("interrupts"), 16 << 20);
   if (!text) {
      throw PartError("cannot read " + c.Proc("interrupts"));
   }
   auto irqs = ParseInterrupts(*text);
   if (!irqs) {
      throw PartError("cannot parse " + c.Proc("interrupts"));
   }

   Record cpu("hardware_cpu_cpuInfo");
   cpu.Set("numPcpus", irqs->cpus);
   c.Put(cpu, {});

   zif::Keys cookies;
   for (const InterruptLine &line : irqs->lines) {
      zif::Key cookie = IntKey(line.irq);
      Record usage("hardware_interrupts_cookieList_UsageStatus");
      usage.Set("namedDevices", line.devices.empty() ? 0 : 1);
      c.Put(usage, {cookie});
      for (uint32_t i = 0; i < irqs->cpus; i++) {
         Record count("hardware_interrupts_cookieList_PCPU");
         count.Set("count", line.counts[i]);
         c.Put(count, {cookie, IntKey(i)});
      }
      zif::Keys devices;
      for (const std::string &name : line.devices) {
         zif::Key key = TextKey(name);
         // A list holds each name once; two handlers of one name share a line.
         if (std::find(devices.begin(), devices.end(), key) == devices.end()) {
            devices.push_back(std::move(key));
         }
      }
      c.List("hardware_interrupts_cookieList_ZLCDevices", {cookie}, std::move(devices));
      cookies.push_back(std::move(cookie));
   }
   c.List("hardware_interrupts_cookieList", {}, std::move(cookies));
}

}  // namespace capture
