// Fuzz entry for the PCI ID file parser: the bytes are read once as the main
// pci.ids and once as a drop-in file beside a small main file. Whatever the
// build makes of them, every name stays terminated within its field, the
// drop-in mark stays within the table, and the indexed device lookup gives
// the same entry as a scan of the whole table.
#include <fcntl.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "pci/pciids.h"

namespace {

constexpr char kSmallMain[] =
      "8086  Intel Corporation\n\t1237  440FX - 82441FX PMC [Natoma]\n\t\t1af4 1100  Qemu virtual machine\n"
      "ffff  Illegal Vendor ID\nC 06  Bridge\n\t00  Host bridge\n";
// Lookups are checked for about this many entries spread over the table: both
// lookups read the ID text again, the scan all of it, so the check dominates an
// input's cost; a few entries per input keep the fuzzer fast, and the inputs'
// variety covers the rest.
constexpr int kCheckedEntries = 8;

void WriteFile(const std::string &path, const void *data, std::size_t size) {
   const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
   if (fd < 0) {
      __builtin_trap();
   }
   if (size > 0 && write(fd, data, size) != static_cast<ssize_t>(size)) {
      __builtin_trap();
   }
   close(fd);
}

// The directory of the ID files, made once per process and removed at exit.
char gHwdataDir[] = "/tmp/fuzz-pciids-XXXXXX";

void RemoveHwdataDir() {
   const std::string dir = gHwdataDir;
   unlink((dir + "/pci.ids").c_str());
   unlink((dir + "/driver.pciids.d/fuzz.ids").c_str());
   rmdir((dir + "/driver.pciids.d").c_str());
   rmdir(dir.c_str());
}

std::string HwdataDir() {
   static const bool made = [] {
      if (mkdtemp(gHwdataDir) == nullptr) {
         __builtin_trap();
      }
      mkdir((std::string(gHwdataDir) + "/driver.pciids.d").c_str(), 0700);
      std::atexit(RemoveHwdataDir);
      return true;
   }();
   static_cast<void>(made);
   return gHwdataDir;
}

// The build's messages are not looked at.
std::FILE *Discard() {
   static std::FILE *sink = std::fopen("/dev/null", "w");
   return sink;
}

void Check(const PciIdTable &table) {
   // A failed build leaves an empty table.
   const int devices = table.DeviceCount();
   if (table.LastDropInEntry() >= devices || (devices == 0 && table.LastDropInEntry() != -1)) {
      __builtin_trap();
   }
   const int step = devices > kCheckedEntries ? devices / kCheckedEntries : 1;
   for (int i = 0; i < devices; i += step) {
      const PCIDevEntry e = table.DeviceEntry(i);
      if (strnlen(e.vendorName, sizeof e.vendorName) == sizeof e.vendorName ||
          strnlen(e.deviceName, sizeof e.deviceName) == sizeof e.deviceName) {
         __builtin_trap();
      }
      for (std::uint16_t sub : {e.subvendor, std::uint16_t{0}}) {
         if (table.FindDeviceIndex(e.vendor, e.device, sub, e.subdevice) !=
             table.FindDeviceIndexByScan(e.vendor, e.device, sub, e.subdevice)) {
            __builtin_trap();
         }
      }
      table.NameDevice(e.vendor, e.device, e.subvendor, e.subdevice);
   }
   for (int i = 0; i < table.ClassCount(); ++i) {
      const PCIClassEntry c = table.ClassEntry(i);
      if (strnlen(c.className, sizeof c.className) == sizeof c.className ||
          strnlen(c.subclassName, sizeof c.subclassName) == sizeof c.subclassName ||
          strnlen(c.progIfName, sizeof c.progIfName) == sizeof c.progIfName) {
         __builtin_trap();
      }
      table.FindClass(static_cast<std::uint16_t>(c.classCode << 8 | c.subclass));
   }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t *data, std::size_t size) {
   const std::string dir = HwdataDir();
   const std::string main = dir + "/pci.ids";
   const std::string dropIn = dir + "/driver.pciids.d/fuzz.ids";

   PciIdTable table;
   unlink(dropIn.c_str());
   WriteFile(main, data, size);
   if (table.Build(dir, Discard())) {
      __builtin_trap();  // the file list here is always well-formed
   }
   Check(table);

   WriteFile(main, kSmallMain, sizeof kSmallMain - 1);
   WriteFile(dropIn, data, size);
   if (table.Build(dir, Discard())) {
      __builtin_trap();
   }
   Check(table);
   return 0;
}
