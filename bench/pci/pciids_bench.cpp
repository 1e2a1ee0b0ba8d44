// Building the PCI ID tables from the real pci.ids (kept with the tests), and
// naming the functions of a typical virtual machine once the tables stand.
#include <benchmark/benchmark.h>

#include "pci/pciids.h"

namespace {

struct Ids {
   std::uint16_t vendor, device, subvendor, subdevice, classCode;
};
constexpr Ids kFunctions[] = {
      {0x8086, 0x1237, 0x0000, 0x0000, 0x0600}, {0x8086, 0x7000, 0x0000, 0x0000, 0x0601},
      {0x8086, 0x7010, 0x0000, 0x0000, 0x0101}, {0x1af4, 0x1000, 0x1af4, 0x0001, 0x0200},
      {0x1b36, 0x0010, 0x1af4, 0x1100, 0x0108}, {0x1234, 0x1111, 0x1af4, 0x1100, 0x0300},
};

void BM_BuildTables(benchmark::State &state) {
   PciIdTable table;
   for (auto _ : state) {
      table.Build(PCI_IDS_DIR);
      benchmark::DoNotOptimize(table.DeviceCount());
   }
   state.counters["devices"] = table.DeviceCount();
   state.counters["classes"] = table.ClassCount();
}
BENCHMARK(BM_BuildTables)->Unit(benchmark::kMillisecond);

// The first lookup after a build also makes the device index.
void BM_BuildAndNameSix(benchmark::State &state) {
   PciIdTable table;
   for (auto _ : state) {
      table.Build(PCI_IDS_DIR);
      for (const Ids &f : kFunctions) {
         benchmark::DoNotOptimize(table.NameDevice(f.vendor, f.device, f.subvendor, f.subdevice));
         benchmark::DoNotOptimize(table.FindClass(f.classCode));
      }
   }
}
BENCHMARK(BM_BuildAndNameSix)->Unit(benchmark::kMillisecond);

void BM_NameSix(benchmark::State &state) {
   PciIdTable table;
   table.Build(PCI_IDS_DIR);
   for (auto _ : state) {
      for (const Ids &f : kFunctions) {
         benchmark::DoNotOptimize(table.NameDevice(f.vendor, f.device, f.subvendor, f.subdevice));
         benchmark::DoNotOptimize(table.FindClass(f.classCode));
      }
   }
}
BENCHMARK(BM_NameSix)->Unit(benchmark::kMicrosecond);

// The same lookups by a scan of the whole table, for comparison.
void BM_NameSixByScan(benchmark::State &state) {
   PciIdTable table;
   table.Build(PCI_IDS_DIR);
   for (auto _ : state) {
      for (const Ids &f : kFunctions) {
         benchmark::DoNotOptimize(table.FindDeviceIndexByScan(f.vendor, f.device, f.subvendor, f.subdevice));
      }
   }
}
BENCHMARK(BM_NameSixByScan)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
