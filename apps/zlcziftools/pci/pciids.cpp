// The PCI ID database. The ID files are read as one stream of lines in a fixed
// file order; PCIBuildTable counts the device entries, counts the class
// entries, allocates both tables at exactly those sizes and fills them in a
// third pass. A failed build drops the tables, so lspci goes on with numeric
// names.
//
// Where this differs from the obvious: each file is read whole in large
// blocks and cut into lines here, with the same 255-character line limit,
// messages and line numbers as reading through a 256-byte line buffer; and
// device lookups go through an index by (vendor, device) that visits exactly
// the entries a scan of the whole table would consider, in table order, so
// the precedence rules are those of the scan. The device table keeps each
// entry's IDs and where its names stand in the mapped ID files rather than
// the 200-byte entries themselves; an entry is expanded when it is asked for.
#include "pciids.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include "hwdata.h"

int nDevID = 0;
PCIClassEntry *pciClassCodeTable = nullptr;
int nClass = 0;
int lastDropInEntry = -1;

namespace {

constexpr const char *kDropInDirectories[] = {"oem.pciids.d", "ihv.pciids.d", "default.pciids.d", "driver.pciids.d",
                                              "fallback.pciids.d"};
constexpr char kMainFile[] = "pci.ids";
constexpr std::size_t kMaxPath = 256;
constexpr std::size_t kMaxJoinedPath = 4096;
constexpr std::size_t kReadBlock = 1 << 20;
constexpr char kNameNotAvailable[] = "Name not available for ";
constexpr std::size_t kNameNotAvailableLength = sizeof kNameNotAvailable - 1;
constexpr std::uint8_t kAnyClassPart = 0xFF;
constexpr std::uint16_t kAnyDevicePart = 0xFFFF;

// A name as it stands in an ID file: the file stays mapped while the table
// lives. Made-up device names are made from the vendor's name when asked for.
struct NameRef {
   const char *text = nullptr;
   std::uint16_t length = 0;
};

struct DevRecord {
   std::uint16_t vendor;
   std::uint16_t device;
   std::uint16_t subvendor;
   std::uint16_t subdevice;
   bool madeUpName;
   NameRef vendorName;
   NameRef deviceName;
};

// The device table and the ID files its names stand in.
DevRecord *gDevTable = nullptr;
std::vector<std::shared_ptr<const char>> gNameSources;
// Device entries by (vendor, device, table index), for the indexed lookup.
std::vector<std::uint64_t> gDeviceIndex;

[[noreturn]] void FatalFileName(const char *routine) {
   std::fprintf(stderr, "%s: found corrupted file name\n", routine);
   std::exit(1);
}

[[noreturn]] void FatalNoMemory(const char *routine) {
   std::fprintf(stderr, "%s: not enough memory for file list\n", routine);
   std::exit(1);
}

bool IsHexDigit(char c) {
   return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

int HexValue(char c) {
   if (c >= '0' && c <= '9') {
      return c - '0';
   }
   if (c >= 'a' && c <= 'f') {
      return c - 'a' + 10;
   }
   return c - 'A' + 10;
}

// Converts hexadecimal digits; a value too large for unsigned long saturates,
// as the C library's conversion does.
unsigned long ConvertHex(const char *digits) {
   constexpr unsigned long kMax = static_cast<unsigned long>(-1);
   unsigned long value = 0;
   for (const char *p = digits; *p != '\0'; ++p) {
      if (value > (kMax >> 4)) {
         return kMax;
      }
      value = (value << 4) | static_cast<unsigned long>(HexValue(*p));
   }
   return value;
}

bool IsBlank(char c) {
   return c == ' ' || c == '\t';
}

// ParseIdAndName with the name left where it stands: on success with a name
// wanted, *name points at the name's first character in text and the name
// runs to the text's NUL (its newline has been cut off).
bool ParseIdAndNameInPlace(char *text, bool wantName, unsigned long *id, char **name) {
   char *token = text;
   while (IsBlank(*token)) {
      ++token;
   }
   if (!IsHexDigit(*token)) {
      return false;
   }
   char *end = token;
   while (*end != '\0' && !IsBlank(*end)) {
      if (!IsHexDigit(*end)) {
         return false;
      }
      ++end;
   }
   if (*end == '\0') {
      return false;
   }
   *end = '\0';
   *id = ConvertHex(token);
   if (!wantName) {
      return true;
   }
   char *rest = end + 1;
   while (IsBlank(*rest)) {
      ++rest;
   }
   if (*rest == '\0' || *rest == '\n') {
      return false;
   }
   if (char *newline = std::strrchr(rest, '\n')) {
      *newline = '\0';
   }
   *name = rest;
   return true;
}

// Copies text into a field of size bytes, cut and terminated like a bounded copy.
void CopyName(char *field, std::size_t size, const char *text) {
   const std::size_t length = strnlen(text, size - 1);
   std::memcpy(field, text, length);
   field[length] = '\0';
}

// Maps the whole file, or reads it when it cannot be mapped (a pipe, a
// file of the proc file system); false when it cannot be opened. A read
// error, such as reading a directory, ends the file where it happened.
bool ReadWholeFile(FileList::File &file) {
   const int fd = open(file.path.c_str(), O_RDONLY | O_CLOEXEC);
   if (fd < 0) {
      return false;
   }
   struct stat info {};
   if (fstat(fd, &info) == 0 && S_ISREG(info.st_mode) && info.st_size > 0) {
      const auto size = static_cast<std::size_t>(info.st_size);
      void *mapped = mmap(nullptr, size, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
      if (mapped != MAP_FAILED) {
         close(fd);
         file.data = std::shared_ptr<const char>(static_cast<const char *>(mapped),
                                                 [size](const char *p) { munmap(const_cast<char *>(p), size); });
         file.size = size;
         return true;
      }
   }
   std::string bytes;
   std::size_t used = 0;
   for (;;) {
      bytes.resize(used + kReadBlock);
      const ssize_t got = read(fd, bytes.data() + used, kReadBlock);
      if (got <= 0) {
         break;
      }
      used += static_cast<std::size_t>(got);
   }
   close(fd);
   auto copy = std::make_shared<std::string>(bytes.substr(0, used));
   file.size = copy->size();
   file.data = std::shared_ptr<const char>(copy, copy->data());
   return true;
}

void LoadFile(FileList::File &file) {
   if (!file.loaded) {
      file.loaded = true;
      try {
         file.readable = ReadWholeFile(file);
      } catch (const std::bad_alloc &) {
         file.data.reset();
         file.size = 0;
         file.readable = false;
      }
   }
}

// The tables are mapped zero-filled and populated at once: filling them page
// by page costs far more in page faults than the filling itself.
void *AllocateTable(std::size_t bytes) {
   void *table = mmap(nullptr, std::max<std::size_t>(bytes, 1), PROT_READ | PROT_WRITE,
                      MAP_PRIVATE | MAP_ANONYMOUS | MAP_POPULATE, -1, 0);
   return table == MAP_FAILED ? nullptr : table;
}

void FreeTable(void *table, std::size_t bytes) {
   if (table != nullptr) {
      munmap(table, std::max<std::size_t>(bytes, 1));
   }
}

void NextFile(FileList &list) {
   list.open = false;
   list.offset = 0;
   list.current++;
   list.line = 0;
}

// Stores a line of n bytes into the line buffer. The bytes after it read as
// NUL up to the eighth column, where a subsystem line's second ID is parsed,
// so a short line never shows what an earlier line left there.
char *StoreLine(char *buffer, const char *bytes, std::size_t n) {
   std::memcpy(buffer, bytes, n);
   const std::size_t pad = std::min<std::size_t>(kPciIdLineSize - n, 9);
   std::memset(buffer + n, 0, pad);
   return buffer;
}

bool IsIgnoredLine(const char *line) {
   return line[0] == ' ' || line[0] == '#' || line[0] == '\n';
}

// The first four characters are ffff; a NUL among them ends the comparison.
bool IsEndOfVendors(const char *line) {
   return line[0] == 'f' && line[1] == 'f' && line[2] == 'f' && line[3] == 'f';
}

enum class DeviceLine { Ignored, EndOfVendors, Vendor, Device, Subsystem, ThreeTabs };

DeviceLine ClassifyDeviceLine(const char *line) {
   if (IsIgnoredLine(line)) {
      return DeviceLine::Ignored;
   }
   if (IsEndOfVendors(line)) {
      return DeviceLine::EndOfVendors;
   }
   if (line[0] != '\t') {
      return DeviceLine::Vendor;
   }
   if (line[1] != '\t') {
      return DeviceLine::Device;
   }
   if (line[2] != '\t') {
      return DeviceLine::Subsystem;
   }
   return DeviceLine::ThreeTabs;
}

enum class ClassLine { Ignored, Class, Subclass, ProgIf, Other };

ClassLine ClassifyClassLine(const char *line) {
   if (IsIgnoredLine(line)) {
      return ClassLine::Ignored;
   }
   if (line[0] == 'C') {
      return ClassLine::Class;
   }
   if (line[0] != '\t') {
      return ClassLine::Other;
   }
   if (line[1] != '\t') {
      return ClassLine::Subclass;
   }
   return ClassLine::ProgIf;
}

// True when the device name begins with the made-up names' prefix, whether
// made up here or listed so in a file.
bool HasMadeUpName(const DevRecord &entry) {
   return entry.madeUpName || (entry.deviceName.length >= kNameNotAvailableLength &&
                               std::memcmp(entry.deviceName.text, kNameNotAvailable, kNameNotAvailableLength) == 0);
}

void StoreName(char *field, std::size_t size, NameRef name) {
   const std::size_t length = std::min<std::size_t>(name.length, size - 1);
   if (length > 0) {
      std::memcpy(field, name.text, length);
   }
   field[length] = '\0';
}

PCIDevEntry ExpandEntry(const DevRecord &record) {
   PCIDevEntry entry{};
   entry.vendor = record.vendor;
   entry.device = record.device;
   entry.subvendor = record.subvendor;
   entry.subdevice = record.subdevice;
   StoreName(entry.vendorName, sizeof entry.vendorName, record.vendorName);
   if (record.madeUpName) {
      std::snprintf(entry.deviceName, sizeof entry.deviceName, "%s%.*s device", kNameNotAvailable,
                    static_cast<int>(record.vendorName.length), record.vendorName.text);
   } else {
      StoreName(entry.deviceName, sizeof entry.deviceName, record.deviceName);
   }
   return entry;
}

// Where a name parsed out of the line buffer stands in the file the line came from.
struct Line {
   char *text;          // the line buffer
   const char *source;  // the line in its file
   NameRef NameAt(const char *name, std::size_t capacity) const {
      return {source + (name - text), static_cast<std::uint16_t>(strnlen(name, capacity - 1))};
   }
};

// The three passes over the stream of ID lines.
class TableBuilder {
public:
   explicit TableBuilder(const std::string &hwdataDir) : list_(InitList()), mainFile_(hwdataDir + "/" + kMainFile) {
      for (const char *dropIn : kDropInDirectories) {
         AddDirectoryToList(list_, (hwdataDir + "/" + dropIn).c_str());
      }
      AddFileToList(list_, mainFile_.c_str());
   }

   void Build() {
      CountDeviceEntries();
      CountClassEntries();
      if (!Allocate()) {
         Fail();
         return;
      }
      RewindList(list_);
      if (!FillDeviceTable() || !FillClassTable()) {
         Fail();
         return;
      }
      for (const FileList::File &file : list_.files) {
         if (file.data) {
            gNameSources.push_back(file.data);
         }
      }
   }

private:
   bool NextLine(Line &line) {
      const std::string_view bytes = ListNextLine(list_);
      if (bytes.empty()) {
         return false;
      }
      line = {StoreLine(line_, bytes.data(), bytes.size()), bytes.data()};
      return true;
   }

   // The next line's first four characters, enough to tell its kind; null at
   // the end of the stream. The characters after a NUL are never looked at.
   const char *NextLineHead() {
      const std::string_view line = ListNextLine(list_);
      if (line.empty()) {
         return nullptr;
      }
      for (std::size_t i = 0; i < sizeof head_ - 1; ++i) {
         head_[i] = i < line.size() ? line[i] : '\0';
      }
      return head_;
   }

   void CountDeviceEntries() {
      while (const char *line = NextLineHead()) {
         const DeviceLine kind = ClassifyDeviceLine(line);
         if (kind == DeviceLine::EndOfVendors) {
            break;
         }
         if ((kind == DeviceLine::Vendor && list_.InMainFile() && IsHexDigit(line[0])) || kind == DeviceLine::Device ||
             kind == DeviceLine::Subsystem) {
            nDevID++;
         }
      }
      if (nDevID == 0) {
         std::fprintf(stderr, "%s: no device entries in the PCI IDs files\npossible file corruption\n",
                      "PCIBuildTable");
      }
   }

   // Goes on from the line after the end-of-vendors marker.
   void CountClassEntries() {
      while (const char *line = NextLineHead()) {
         if (!IsIgnoredLine(line) && (line[0] == 'C' || line[0] == '\t')) {
            nClass++;
         }
      }
      if (nClass == 0) {
         std::fprintf(stderr, "%s: no class entries in %s\npossible file corruption\n", "PCIBuildTable",
                      mainFile_.c_str());
      }
   }

   bool Allocate() {
      const auto devices = static_cast<std::size_t>(nDevID);
      const auto classes = static_cast<std::size_t>(nClass);
      gDevTable = static_cast<DevRecord *>(AllocateTable(devices * sizeof(DevRecord)));
      if (gDevTable == nullptr) {
         std::fprintf(stderr, "%s: couldn't allocate pciDevTable (%zu bytes)\n", "PCIBuildTable",
                      devices * sizeof(PCIDevEntry));
      }
      pciClassCodeTable = static_cast<PCIClassEntry *>(AllocateTable(classes * sizeof(PCIClassEntry)));
      if (pciClassCodeTable == nullptr) {
         std::fprintf(stderr, "%s: couldn't allocate pciClassCodeTable (%zu bytes)\n", "PCIBuildTable",
                      classes * sizeof(PCIClassEntry));
      }
      return gDevTable != nullptr && pciClassCodeTable != nullptr;
   }

   void Fail() {
      PCIFreeTables();
      std::fputs("failed to build PCI tables\n", stderr);
   }

   void LineMessage(const char *format) {
      std::fprintf(stderr, format, "PCIBuildTable", list_.CurrentPath(), list_.line);
   }

   DevRecord *NewDeviceEntry() {
      DevRecord *entry = devicesMade_ < nDevID ? &gDevTable[devicesMade_] : nullptr;
      if (entry != nullptr && !list_.InMainFile()) {
         lastDropInEntry = devicesMade_;
      }
      devicesMade_++;
      return entry;
   }

   void MakeDeviceEntry(std::uint16_t subvendor, std::uint16_t subdevice, NameRef name, bool madeUp) {
      if (DevRecord *entry = NewDeviceEntry()) {
         *entry = {static_cast<std::uint16_t>(vendorId_),
                   static_cast<std::uint16_t>(deviceId_),
                   subvendor,
                   subdevice,
                   madeUp,
                   vendorName_,
                   name};
      }
   }

   // Each returns false when the line ends the device section.
   bool VendorLine(const Line &line) {
      vendorName_ = {};
      char *name = nullptr;
      if (!ParseIdAndNameInPlace(line.text, true, &vendorId_, &name)) {
         LineMessage("%s: %s: line %d improperly formatted(1)\n");
         return false;
      }
      vendorName_ = line.NameAt(name, sizeof PCIDevEntry::vendorName);
      if (list_.InMainFile()) {
         if (DevRecord *entry = NewDeviceEntry()) {
            *entry = {static_cast<std::uint16_t>(vendorId_),
                      kAnyDevicePart,
                      kAnyDevicePart,
                      kAnyDevicePart,
                      false,
                      vendorName_,
                      {}};
         }
      }
      return true;
   }

   bool DeviceLineEntry(const Line &line) {
      char *name = nullptr;
      if (ParseIdAndNameInPlace(line.text + 1, true, &deviceId_, &name)) {
         MakeDeviceEntry(0, 0, line.NameAt(name, sizeof PCIDevEntry::deviceName), false);
         return true;
      }
      if (vendorName_.length == 0) {
         LineMessage("%s: %s: can't synthesize device name for line %d\n");
         return false;
      }
      MakeDeviceEntry(0, 0, {}, true);
      return true;
   }

   bool SubsystemLine(const Line &line) {
      unsigned long subvendor = 0;
      unsigned long subdevice = 0;
      char *name = nullptr;
      if (!ParseIdAndNameInPlace(line.text + 2, false, &subvendor, nullptr)) {
         LineMessage("%s: %s: line %d improperly formatted(3)\n");
         return false;
      }
      if (!ParseIdAndNameInPlace(line.text + 7, true, &subdevice, &name)) {
         LineMessage("%s: %s: line %d improperly formatted(4)\n");
         return false;
      }
      const auto sv = static_cast<std::uint16_t>(subvendor);
      const auto sd = static_cast<std::uint16_t>(subdevice);
      if (vendorName_.length == 0) {
         std::fprintf(stderr, "%s: no vendor information for subvendor 0%04x: subsystem 0%04x", "PCIBuildTable", sv,
                      sd);
         return false;
      }
      MakeDeviceEntry(sv, sd, line.NameAt(name, sizeof PCIDevEntry::deviceName), false);
      return true;
   }

   bool FillDeviceTable() {
      Line line{};
      while (NextLine(line)) {
         bool more = true;
         switch (ClassifyDeviceLine(line.text)) {
            case DeviceLine::Ignored:
            case DeviceLine::ThreeTabs:
               break;
            case DeviceLine::EndOfVendors:
               more = false;
               break;
            case DeviceLine::Vendor:
               more = VendorLine(line);
               break;
            case DeviceLine::Device:
               more = DeviceLineEntry(line);
               break;
            case DeviceLine::Subsystem:
               more = SubsystemLine(line);
               break;
         }
         if (!more) {
            break;
         }
      }
      if (devicesMade_ != nDevID) {
         std::fprintf(stderr, "%s: parsing problem: devices %u nDevID %u\n", "PCIBuildTable",
                      static_cast<unsigned>(devicesMade_), static_cast<unsigned>(nDevID));
         return false;
      }
      return true;
   }

   void MakeClassEntry(std::uint8_t subclass, std::uint8_t progIf, const char *subclassName, const char *progIfName) {
      if (classesMade_ < nClass) {
         AddClassEntry(static_cast<std::uint8_t>(classId_), subclass, progIf, className_, subclassName, progIfName,
                       &pciClassCodeTable[classesMade_]);
      }
      classesMade_++;
   }

   void CloseSubclass() { MakeClassEntry(static_cast<std::uint8_t>(subclassId_), kAnyClassPart, subclassName_, ""); }
   void CloseClass() { MakeClassEntry(kAnyClassPart, kAnyClassPart, "", ""); }

   // State of the class section: which items are open.
   enum class Open { Nothing, Class, Subclass, ProgIf };

   void CloseOpenItems(Open open) {
      if (open == Open::Subclass || open == Open::ProgIf) {
         CloseSubclass();
      }
      if (open != Open::Nothing) {
         CloseClass();
      }
   }

   bool FillClassTable() {
      Open open = Open::Nothing;
      bool ended = false;
      Line next{};
      while (!ended) {
         if (!NextLine(next)) {
            CloseOpenItems(open);
            break;
         }
         char *line = next.text;
         switch (ClassifyClassLine(line)) {
            case ClassLine::Ignored:
               break;
            case ClassLine::Class:
               CloseOpenItems(open);
               open = Open::Nothing;
               if (!ParseIdAndName(line + 1, sizeof className_, &classId_, className_)) {
                  LineMessage("%s: %s: line %d improperly formatted(5)\n");
                  ended = true;
               } else {
                  open = Open::Class;
               }
               break;
            case ClassLine::Subclass:
               if (open == Open::Subclass || open == Open::ProgIf) {
                  CloseSubclass();
               }
               if (ParseIdAndName(line + 1, sizeof subclassName_, &subclassId_, subclassName_)) {
                  open = Open::Subclass;
               } else {
                  LineMessage("%s: %s: line %d improperly formatted(6)\n");
                  CloseSubclass();
                  CloseClass();
                  ended = true;
               }
               break;
            case ClassLine::ProgIf:
               if (ParseIdAndName(line + 2, sizeof progIfName_, &progIfId_, progIfName_)) {
                  MakeClassEntry(static_cast<std::uint8_t>(subclassId_), static_cast<std::uint8_t>(progIfId_),
                                 subclassName_, progIfName_);
                  open = Open::ProgIf;
               } else {
                  LineMessage("%s: %s: line %d improperly formatted(7)\n");
                  CloseSubclass();
                  CloseClass();
                  ended = true;
               }
               break;
            case ClassLine::Other:
               LineMessage("%s: %s: line %d improperly formatted(8)\n");
               break;
         }
      }
      if (classesMade_ != nClass) {
         std::fprintf(stderr, "%s: internal error: classes %u nClass %u\n", "PCIBuildTable",
                      static_cast<unsigned>(classesMade_), static_cast<unsigned>(nClass));
         return false;
      }
      return true;
   }

   FileList list_;
   std::string mainFile_;
   char line_[kPciIdLineSize] = {};
   char head_[5] = {};

   // Filling state. The current vendor carries over from one file to the next.
   int devicesMade_ = 0;
   unsigned long vendorId_ = 0;
   NameRef vendorName_;
   unsigned long deviceId_ = 0;

   int classesMade_ = 0;
   unsigned long classId_ = 0;
   char className_[64] = {};
   unsigned long subclassId_ = 0;
   char subclassName_[64] = {};
   unsigned long progIfId_ = 0;
   char progIfName_[64] = {};
};

void BuildDeviceIndex() {
   gDeviceIndex.clear();
   gDeviceIndex.reserve(static_cast<std::size_t>(nDevID));
   for (int i = 0; i < nDevID; ++i) {
      const DevRecord &entry = gDevTable[i];
      gDeviceIndex.push_back(std::uint64_t{entry.vendor} << 48 | std::uint64_t{entry.device} << 32 |
                             static_cast<std::uint32_t>(i));
   }
   std::sort(gDeviceIndex.begin(), gDeviceIndex.end());
}

// The lookup's precedence over the entries of one vendor and device, given in
// table order.
class DeviceMatcher {
public:
   DeviceMatcher(std::uint16_t subvendor, std::uint16_t subdevice) : subvendor_(subvendor), subdevice_(subdevice) {}

   // Considers one entry; true when the lookup is decided.
   bool Consider(int index) {
      const DevRecord &entry = gDevTable[index];
      const bool fromDropIn = index <= lastDropInEntry;
      if (entry.subvendor != 0) {
         if (entry.subvendor != subvendor_ || entry.subdevice != subdevice_) {
            return false;
         }
         // A listed name from a drop-in file outranks the main file's exact entry.
         const bool keepCandidate = !fromDropIn && best_ != nullptr && bestFromDropIn_ && !HasMadeUpName(*best_);
         if (!keepCandidate) {
            best_ = &entry;
            bestIndex_ = index;
         }
         return true;
      }
      if (best_ == nullptr || (HasMadeUpName(*best_) && !HasMadeUpName(entry))) {
         best_ = &entry;
         bestIndex_ = index;
         bestFromDropIn_ = fromDropIn;
      }
      return false;
   }

   int Result() const { return bestIndex_; }

private:
   std::uint16_t subvendor_;
   std::uint16_t subdevice_;
   const DevRecord *best_ = nullptr;
   int bestIndex_ = -1;
   bool bestFromDropIn_ = false;
};

}  // namespace

FileList InitList() {
   FileList list;
   try {
      list.files.reserve(8);
   } catch (const std::bad_alloc &) {
      FatalNoMemory("InitList");
   }
   return list;
}

void AddFileToList(FileList &list, const char *path) {
   if (std::strlen(path) >= kMaxPath) {
      FatalFileName("AddFileToList");
   }
   try {
      list.files.emplace_back().path = path;
   } catch (const std::bad_alloc &) {
      FatalNoMemory("AddFileToList");
   }
}

void AddDirectoryToList(FileList &list, const char *directory) {
   DIR *dir = opendir(directory);
   if (dir == nullptr) {
      return;
   }
   while (const dirent *entry = readdir(dir)) {
      const std::size_t length = std::strlen(entry->d_name);
      if (length >= kMaxPath) {
         FatalFileName("AddDirectoryToList");
      }
      if (length < 5 || std::strcmp(entry->d_name + length - 4, ".ids") != 0) {
         continue;
      }
      char path[kMaxJoinedPath + 1];
      const int joined = std::snprintf(path, sizeof path, "%s/%s", directory, entry->d_name);
      if (joined < 0 || static_cast<std::size_t>(joined) > kMaxJoinedPath) {
         FatalFileName("AddDirectoryToList");
      }
      AddFileToList(list, path);
   }
   closedir(dir);
}

std::string_view ListNextLine(FileList &list) {
   constexpr std::size_t kMaxLine = kPciIdLineSize - 1;
   while (list.current < list.count()) {
      FileList::File &file = list.files[static_cast<std::size_t>(list.current)];
      if (!list.open) {
         LoadFile(file);
         if (!file.readable) {
            NextFile(list);
            continue;
         }
         list.open = true;
         list.offset = 0;
      }
      const std::string_view bytes = file.bytes();
      if (list.offset >= bytes.size()) {
         NextFile(list);
         continue;
      }
      list.line++;
      const std::string_view left = bytes.substr(list.offset);
      const std::string_view room = left.substr(0, kMaxLine);
      const std::size_t newline = room.find('\n');
      if (newline != std::string_view::npos) {
         list.offset += newline + 1;
         return room.substr(0, newline + 1);
      }
      if (room.size() < kMaxLine) {
         list.offset += room.size();
         return room;
      }
      if (room[0] != ' ' && room[0] != '#') {
         std::fprintf(stderr, "%s: %s: line %d is more than %d bytes long; ignoring the rest\n", "ListGets",
                      file.path.c_str(), list.line, kPciIdLineSize);
      }
      const std::size_t rest = left.find('\n', room.size());
      list.offset = rest != std::string_view::npos ? list.offset + rest + 1 : bytes.size();
      return room;
   }
   return {};
}

char *ListGets(char *buffer, FileList &list) {
   const std::string_view line = ListNextLine(list);
   return line.empty() ? nullptr : StoreLine(buffer, line.data(), line.size());
}

void RewindList(FileList &list) {
   list.open = false;
   list.offset = 0;
   list.current = 0;
   list.line = 0;
}

bool ParseIdAndName(char *text, int nameCapacity, unsigned long *id, char *name) {
   const bool wantName = nameCapacity > 0 && name != nullptr;
   char *found = nullptr;
   if (!ParseIdAndNameInPlace(text, wantName, id, &found)) {
      return false;
   }
   if (wantName) {
      const std::size_t length = strnlen(found, static_cast<std::size_t>(nameCapacity - 1));
      std::memcpy(name, found, length);
      name[length] = '\0';
   }
   return true;
}

void AddClassEntry(std::uint8_t classCode, std::uint8_t subclass, std::uint8_t progIf, const char *className,
                   const char *subclassName, const char *progIfName, PCIClassEntry *entry) {
   entry->classCode = classCode;
   entry->subclass = subclass;
   entry->progIf = progIf;
   CopyName(entry->className, sizeof entry->className, className);
   CopyName(entry->subclassName, sizeof entry->subclassName, subclassName);
   CopyName(entry->progIfName, sizeof entry->progIfName, progIfName);
}

std::string PciHwdataDir() {
   return hwdata::DirectoryOf(kMainFile);
}

void PCIBuildTable() {
   PCIBuildTableFrom(PciHwdataDir());
}

void PCIBuildTableFrom(const std::string &hwdataDir) {
   PCIFreeTables();
   lastDropInEntry = -1;
   TableBuilder builder(hwdataDir);
   builder.Build();
}

void PCIFreeTables() {
   FreeTable(gDevTable, static_cast<std::size_t>(nDevID) * sizeof(DevRecord));
   FreeTable(pciClassCodeTable, static_cast<std::size_t>(nClass) * sizeof(PCIClassEntry));
   gDevTable = nullptr;
   gNameSources.clear();
   pciClassCodeTable = nullptr;
   nDevID = 0;
   nClass = 0;
   gDeviceIndex.clear();
   gDeviceIndex.shrink_to_fit();
}

PCIDevEntry PCIDevTableEntry(int index) {
   return ExpandEntry(gDevTable[index]);
}

int PCIFindDeviceIndex(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor, std::uint16_t subdevice) {
   if (nDevID == 0) {
      return -1;
   }
   if (gDeviceIndex.empty()) {
      BuildDeviceIndex();
   }
   const std::uint64_t key = std::uint64_t{vendor} << 48 | std::uint64_t{device} << 32;
   DeviceMatcher matcher(subvendor, subdevice);
   for (auto it = std::lower_bound(gDeviceIndex.begin(), gDeviceIndex.end(), key);
        it != gDeviceIndex.end() && (*it >> 32) == (key >> 32); ++it) {
      if (matcher.Consider(static_cast<int>(*it & 0xFFFFFFFFu))) {
         break;
      }
   }
   return matcher.Result();
}

int PCIFindDeviceIndexByScan(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                             std::uint16_t subdevice) {
   DeviceMatcher matcher(subvendor, subdevice);
   for (int i = 0; i < nDevID; ++i) {
      if (gDevTable[i].vendor == vendor && gDevTable[i].device == device && matcher.Consider(i)) {
         break;
      }
   }
   return matcher.Result();
}

std::optional<PCIDevEntry> PCIFindDevice(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                                         std::uint16_t subdevice) {
   const int index = PCIFindDeviceIndex(vendor, device, subvendor, subdevice);
   if (index < 0) {
      return std::nullopt;
   }
   return ExpandEntry(gDevTable[index]);
}

PCIClassNames PCIFindClass(std::uint16_t classCode) {
   PCIClassNames names{};
   const auto base = static_cast<std::uint8_t>(classCode >> 8);
   const auto subclass = static_cast<std::uint8_t>(classCode & 0xFF);
   for (int i = 0; i < nClass; ++i) {
      const PCIClassEntry &entry = pciClassCodeTable[i];
      if (entry.classCode == base && (entry.subclass == subclass || entry.subclass == kAnyClassPart) &&
          entry.progIf == kAnyClassPart) {
         CopyName(names.className, sizeof names.className, entry.className);
         CopyName(names.subclassName, sizeof names.subclassName, entry.subclassName);
         return names;
      }
   }
   std::snprintf(names.className, sizeof names.className, "Unknown class %.4x", classCode);
   return names;
}

PCIDeviceNames PCINameDevice(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                             std::uint16_t subdevice) {
   PCIDeviceNames names{};
   if (const std::optional<PCIDevEntry> entry = PCIFindDevice(vendor, device, subvendor, subdevice)) {
      CopyName(names.vendorName, sizeof names.vendorName, entry->vendorName);
      CopyName(names.deviceName, sizeof names.deviceName, entry->deviceName);
      return names;
   }
   if (const std::optional<PCIDevEntry> entry = PCIFindDevice(vendor, kAnyDevicePart, kAnyDevicePart, kAnyDevicePart)) {
      CopyName(names.vendorName, sizeof names.vendorName, entry->vendorName);
   } else {
      std::snprintf(names.vendorName, sizeof names.vendorName, "Vendor %.4x", vendor);
   }
   std::snprintf(names.deviceName, sizeof names.deviceName, "Device %.4x", device);
   return names;
}
