// The PCI ID database: vendor, device and subsystem names and class names,
// built from the PCI ID files of a hwdata directory (the drop-in directories
// first, the main pci.ids last) and looked up by lspci.
#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One line read from the ID files: at most 255 characters and a NUL.
inline constexpr int kPciIdLineSize = 256;

// A device table entry as lookups hand it out. A vendor entry has device,
// subvendor and subdevice 0xFFFF; a device entry has subvendor and subdevice
// 0; a subsystem entry has the subsystem's IDs. The table itself keeps only
// where its entries' lines stand in the ID files: an entry is read again and
// expanded when asked for (a made-up name is made from the vendor's name).
struct PCIDevEntry {
   std::uint16_t vendor;
   std::uint16_t device;
   std::uint16_t subvendor;
   std::uint16_t subdevice;
   char vendorName[64];
   char deviceName[128];
};
static_assert(sizeof(PCIDevEntry) == 200);

// progIf is 0xFF in a class or subclass entry, subclass 0xFF in a class entry.
struct PCIClassEntry {
   std::uint8_t classCode;
   std::uint8_t subclass;
   std::uint8_t progIf;
   char className[64];
   char subclassName[64];
   char progIfName[64];
};
static_assert(sizeof(PCIClassEntry) == 195);

struct PCIClassNames {
   char className[64];
   char subclassName[64];
};

struct PCIDeviceNames {
   char vendorName[64];
   char deviceName[128];
};

// A fatal error of the ID file list: a path too long, or no memory for the
// list. The build stops with an empty table; the command's top level prints
// Message() and ends the process with status 1.
struct PciIdFatalError {
   const char *routine;  // InitList, AddFileToList or AddDirectoryToList
   const char *problem;
   std::string Message() const;  // "routine: problem\n"
};

// The ID files in reading order.
class PciIdFileList {
public:
   // Makes room for the first paths.
   std::optional<PciIdFatalError> Init();
   // Appends a path; one of 256 characters or more is fatal.
   std::optional<PciIdFatalError> AddFile(std::string_view path);
   // Appends the directory's files whose names end in ".ids", in listing
   // order. A directory that cannot be opened adds nothing.
   std::optional<PciIdFatalError> AddDirectory(const std::string &directory);
   const std::vector<std::string> &Paths() const { return paths_; }

private:
   std::vector<std::string> paths_;
};

// Reads a hexadecimal ID from text and, with a name buffer of capacity > 0,
// the name after it. Modifies text: the separator after the ID becomes a NUL
// and the name's trailing newline is cut off.
bool ParseIdAndName(char *text, int nameCapacity, unsigned long *id, char *name);

// The directory of the ID files: ZLC_HWDATA_DIR, or /usr/share/hwdata.
std::string PciHwdataDir();

// Both tables. Empty until built, and again after a failed build, so that
// every lookup finds nothing; read-only once built.
class PciIdTable {
public:
   PciIdTable();
   ~PciIdTable();
   PciIdTable(PciIdTable &&) noexcept;
   PciIdTable &operator=(PciIdTable &&) noexcept;

   // Builds both tables from the ID files of hwdataDir. The build's messages
   // go to messages; a build that fails leaves the table empty and says so.
   // A fatal error of the file list is returned instead (table empty).
   std::optional<PciIdFatalError> Build(const std::string &hwdataDir, std::FILE *messages = stderr);

   int DeviceCount() const;
   int ClassCount() const;
   // Index of the last device entry made from a drop-in file, -1 when none was.
   int LastDropInEntry() const;
   // The device table's entry at index (0 to DeviceCount() - 1).
   PCIDevEntry DeviceEntry(int index) const;
   PCIClassEntry ClassEntry(int index) const;

   // The device entry naming (vendor, device, subvendor, subdevice), or none.
   std::optional<PCIDevEntry> FindDevice(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                                         std::uint16_t subdevice) const;
   // The table index of that entry (-1 for none), through an index by vendor.
   int FindDeviceIndex(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                       std::uint16_t subdevice) const;
   // The same by a scan of the whole table in table order: the reference the
   // indexed lookup is checked against.
   int FindDeviceIndexByScan(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                             std::uint16_t subdevice) const;
   // Names for a class code (base class in the high byte, subclass in the low).
   PCIClassNames FindClass(std::uint16_t classCode) const;
   PCIDeviceNames NameDevice(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                             std::uint16_t subdevice) const;

private:
   struct Tables;
   std::unique_ptr<Tables> tables_;
};
