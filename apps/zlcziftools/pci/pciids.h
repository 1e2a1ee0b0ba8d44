// The PCI ID database: vendor, device and subsystem names and class names,
// built once per process from the PCI ID files of the hwdata directory (the
// drop-in directories first, the main pci.ids last) and looked up by lspci.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

// One line read from the ID files: at most 255 characters and a NUL.
inline constexpr int kPciIdLineSize = 256;

// A device table entry as lookups hand it out. A vendor entry has device,
// subvendor and subdevice 0xFFFF; a device entry has subvendor and subdevice
// 0; a subsystem entry has the subsystem's IDs. Inside, the table keeps the
// IDs and where each name stands in the ID files (a made-up name is made from
// the vendor's name), not the 200-byte entries themselves: filling 7 MB of
// entries for the real pci.ids would cost more than everything else lspci does.
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

// The tables, built by PCIBuildTable and read-only afterwards. After a failed
// build both counts are 0, so every lookup finds nothing.
extern int nDevID;
extern PCIClassEntry *pciClassCodeTable;
extern int nClass;
// Index of the last device entry made from a drop-in file, -1 when none was.
extern int lastDropInEntry;

// The ID files in reading order, read as one stream of lines. Each file is
// read whole on first use and kept, so that the rewind before the filling
// pass does not read it again.
struct FileList {
   struct File {
      std::string path;
      bool loaded = false;
      bool readable = false;
      std::shared_ptr<const char> data;  // the contents, mapped or read
      std::size_t size = 0;
      std::string_view bytes() const { return {data.get(), size}; }
   };
   std::vector<File> files;
   int current = 0;         // index of the file being read
   int line = 0;            // last line read from the current file, 1-based
   bool open = false;       // the current file is being read
   std::size_t offset = 0;  // reading position in the current file

   int count() const { return static_cast<int>(files.size()); }
   bool InMainFile() const { return current + 1 == count(); }
   const char *CurrentPath() const { return files[static_cast<std::size_t>(current)].path.c_str(); }
};

FileList InitList();
// Appends a path; a path of 256 characters or more ends the process.
void AddFileToList(FileList &list, const char *path);
// Appends the directory's files whose names end in ".ids", in listing order.
// A directory that cannot be opened adds nothing.
void AddDirectoryToList(FileList &list, const char *directory);
// The next line of the stream as it stands in its file: at most 255
// characters, the newline included when it fits; an over-long line's rest is
// skipped. Empty at the end of the last file.
std::string_view ListNextLine(FileList &list);
// The next line of the stream into buffer (kPciIdLineSize bytes), or null at
// the end of the last file. Over-long lines are cut to 255 characters.
char *ListGets(char *buffer, FileList &list);
// Closes the file being read and starts again at the first line of the first file.
void RewindList(FileList &list);

// Reads a hexadecimal ID from text and, with a name buffer of capacity > 0,
// the name after it. Modifies text: the separator after the ID becomes a NUL
// and the name's trailing newline is cut off.
bool ParseIdAndName(char *text, int nameCapacity, unsigned long *id, char *name);

void AddClassEntry(std::uint8_t classCode, std::uint8_t subclass, std::uint8_t progIf, const char *className,
                   const char *subclassName, const char *progIfName, PCIClassEntry *entry);

// The device table's entry at index (0 to nDevID - 1).
PCIDevEntry PCIDevTableEntry(int index);

// The directory that holds pci.ids (searched as hwdata.h says); its drop-in
// directories are read from the same directory.
std::string PciHwdataDir();
// Builds both tables from the ID files of PciHwdataDir().
void PCIBuildTable();
// Builds both tables from the ID files of the given directory.
void PCIBuildTableFrom(const std::string &hwdataDir);
// Frees both tables; counts 0.
void PCIFreeTables();

// The device entry naming (vendor, device, subvendor, subdevice), or none.
std::optional<PCIDevEntry> PCIFindDevice(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                                         std::uint16_t subdevice);
// The table index of the same entry by a scan of the whole table (-1 for
// none); the reference the indexed lookup is checked against.
int PCIFindDeviceIndex(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor, std::uint16_t subdevice);
int PCIFindDeviceIndexByScan(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                             std::uint16_t subdevice);

struct PCIClassNames {
   char className[64];
   char subclassName[64];
};
// Names for a class code (base class in the high byte, subclass in the low).
PCIClassNames PCIFindClass(std::uint16_t classCode);

struct PCIDeviceNames {
   char vendorName[64];
   char deviceName[128];
};
PCIDeviceNames PCINameDevice(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                             std::uint16_t subdevice);
