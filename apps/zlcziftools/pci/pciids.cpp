// The PCI ID database. The ID files are read as one stream of lines in a fixed
// file order; a build counts the device entries up to the end-of-vendors
// marker and the class entries after it, and fills the tables, whose counts
// must come out as counted. A failed build drops the tables, so lspci goes on
// with numeric names.
//
// Where this differs from the obvious: it reads the stream once and touches as
// little memory as it can, because fresh memory (a page fault each 4 KiB)
// costs more than reading the files. The one pass counts each line and hands
// it to the filling, which runs ahead of the counts; the filling's messages
// are held back and printed after the counting's, so the messages are those
// of counting first and filling after. Each file is mapped whole and its
// lines are parsed where they stand, never copied: a line is what a 256-byte
// line buffer would hold (at most 255 characters; bytes past its end read as
// NUL), with the same messages and line numbers. The device table is not
// stored entry by entry: the filling keeps, for each block of up to
// kBlockEntries consecutive entries of one file, where its first line stands,
// the reading state there (current vendor, device ID) and the range of
// (vendor, device) keys in it. A lookup reads again the lines of the blocks
// whose range holds its key, in table order, so it considers exactly the
// entries a scan of the whole table would, in the same order, and the
// precedence rules are those of the scan.
#include "pciids.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <array>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

namespace {

constexpr char kDefaultHwdataDir[] = "/usr/share/hwdata";
constexpr const char *kDropInDirectories[] = {"oem.pciids.d", "ihv.pciids.d", "default.pciids.d", "driver.pciids.d",
                                              "fallback.pciids.d"};
constexpr char kMainFile[] = "pci.ids";
constexpr std::size_t kMaxPath = 256;
constexpr std::size_t kMaxJoinedPath = 4096;
constexpr std::size_t kMaxLine = kPciIdLineSize - 1;
constexpr std::size_t kReadBlock = 1 << 20;
constexpr char kNameNotAvailable[] = "Name not available for ";
constexpr std::size_t kNameNotAvailableLength = sizeof kNameNotAvailable - 1;
constexpr std::uint8_t kAnyClassPart = 0xFF;
constexpr std::uint16_t kAnyDevicePart = 0xFFFF;
constexpr std::size_t kVendorNameSize = sizeof PCIDevEntry::vendorName;
constexpr std::size_t kDeviceNameSize = sizeof PCIDevEntry::deviceName;
constexpr std::size_t kClassNameSize = sizeof PCIClassEntry::className;
// A subsystem line's IDs are parsed from these columns on.
constexpr std::size_t kSubvendorColumn = 2;
constexpr std::size_t kSubdeviceColumn = 7;
// Device entries per block: a lookup reads again about this many lines for
// each block its key may be in.
constexpr std::uint32_t kBlockEntries = 64;
// Class entries room is made for at first (the real pci.ids has some 200).
constexpr std::size_t kUsualClassEntries = 256;
constexpr std::size_t kNone = std::string_view::npos;

// The value of each hexadecimal digit, -1 for every other character.
constexpr std::array<std::int8_t, 256> kHexValues = [] {
   std::array<std::int8_t, 256> values{};
   for (int c = 0; c < 256; ++c) {
      values[static_cast<std::size_t>(c)] = static_cast<std::int8_t>(c >= '0' && c <= '9'   ? c - '0'
                                                                     : c >= 'a' && c <= 'f' ? c - 'a' + 10
                                                                     : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                                                                            : -1);
   }
   return values;
}();

int HexValue(char c) {
   return kHexValues[static_cast<unsigned char>(c)];
}

bool IsHexDigit(char c) {
   return HexValue(c) >= 0;
}

bool IsBlank(char c) {
   return c == ' ' || c == '\t';
}

// ParseIdAndName over a text that ends where its C string would. *id is
// stored as soon as the ID's separator is found, even when the name then
// fails; *separator is the separator's index, where the in-place parser writes
// its NUL. On success with a name wanted, *name is the name, cut at its last
// newline. An ID too large for unsigned long saturates, as the C library's
// conversion does.
bool ParseIdAndNameIn(std::string_view text, bool wantName, unsigned long *id, std::string_view *name,
                      std::size_t *separator) {
   constexpr unsigned long kMax = static_cast<unsigned long>(-1);
   const char *p = text.data();
   const char *const end = p + text.size();
   while (p != end && IsBlank(*p)) {
      ++p;
   }
   if (p == end || !IsHexDigit(*p)) {
      return false;
   }
   unsigned long value = 0;
   for (; p != end && !IsBlank(*p); ++p) {
      const int digit = HexValue(*p);
      if (digit < 0) {
         return false;
      }
      value = value > (kMax >> 4) ? kMax : (value << 4) | static_cast<unsigned long>(digit);
   }
   if (p == end) {
      return false;
   }
   *separator = static_cast<std::size_t>(p - text.data());
   *id = value;
   if (!wantName) {
      return true;
   }
   ++p;
   while (p != end && IsBlank(*p)) {
      ++p;
   }
   if (p == end || *p == '\n') {
      return false;
   }
   const std::string_view rest(p, static_cast<std::size_t>(end - p));
   *name = rest.substr(0, rest.rfind('\n'));
   return true;
}

// Copies text into a field of size bytes, cut and terminated like a bounded copy.
void CopyName(char *field, std::size_t size, std::string_view text) {
   const std::size_t length = std::min(text.size(), size - 1);
   if (length > 0) {
      std::memcpy(field, text.data(), length);
   }
   field[length] = '\0';
}

// A name where it stands in a mapped ID file, cut to its field's size less one.
struct NameRef {
   const char *text = nullptr;
   std::uint8_t length = 0;

   static NameRef Of(std::string_view name, std::size_t fieldSize) {
      return {name.data(), static_cast<std::uint8_t>(std::min(name.size(), fieldSize - 1))};
   }
   std::string_view View() const { return {text, length}; }
   bool Empty() const { return length == 0; }
};

// One ID file, mapped or read whole.
struct IdFile {
   std::string path;
   std::shared_ptr<const char> data;
   std::size_t size = 0;
   bool mainFile = false;
};

// Maps the whole file, or reads it when it cannot be mapped (a pipe, a file of
// the proc file system); false when it cannot be opened. A read error, such as
// reading a directory, ends the file where it happened.
bool ReadWholeFile(IdFile &file) {
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
   bytes.resize(used);
   auto kept = std::make_shared<std::string>(std::move(bytes));
   file.size = kept->size();
   file.data = std::shared_ptr<const char>(kept, kept->data());
   return true;
}

// A file that cannot be opened or read reads as empty.
IdFile LoadFile(const std::string &path, bool mainFile) {
   IdFile file;
   file.path = path;
   file.mainFile = mainFile;
   try {
      if (!ReadWholeFile(file)) {
         file.data.reset();
         file.size = 0;
      }
   } catch (const std::bad_alloc &) {
      file.data.reset();
      file.size = 0;
   }
   return file;
}

// The positions of the newlines of a file in order, from a starting offset,
// sixteen bytes at a time where the processor has the instructions for it;
// notes on the way whether the bytes it looked at hold a NUL (a line that
// might hold one must be cut there).
class NewlineFinder {
public:
   NewlineFinder(const char *data, std::size_t size, std::size_t from) : data_(data), size_(size), block_(from) {
#if defined(__SSE2__)
      const std::size_t skip = from % 16;
      block_ = from - skip;
      mask_ = Load() & (~0u << skip);
#else
      mask_ = 0;
#endif
   }

   // The next newline's offset, or the size at the end of the data.
   std::size_t Next() {
#if defined(__SSE2__)
      while (mask_ == 0) {
         block_ += 16;
         if (block_ >= size_) {
            return size_;
         }
         mask_ = Load();
      }
      const std::size_t at = block_ + static_cast<std::size_t>(__builtin_ctz(mask_));
      mask_ &= mask_ - 1;
      return at;
#else
      const void *newline = block_ < size_ ? std::memchr(data_ + block_, '\n', size_ - block_) : nullptr;
      if (newline == nullptr) {
         nul_ = nul_ || (block_ < size_ && std::memchr(data_ + block_, '\0', size_ - block_) != nullptr);
         block_ = size_;
         return size_;
      }
      const auto at = static_cast<std::size_t>(static_cast<const char *>(newline) - data_);
      nul_ = nul_ || std::memchr(data_ + block_, '\0', at - block_) != nullptr;
      block_ = at + 1;
      return at;
#endif
   }

   // Whether the bytes looked at so far hold a NUL.
   bool SawNul() const {
      return nul_;
   }

private:
#if defined(__SSE2__)
   // The newline mask of the block at block_, the bytes past the end left out.
   unsigned Load() {
      if (block_ + 16 <= size_) {
         const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i *>(data_ + block_));
         nul_ = nul_ || _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_setzero_si128())) != 0;
         return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n'))));
      }
      unsigned mask = 0;
      for (std::size_t i = block_; i < size_; ++i) {
         mask |= data_[i] == '\n' ? 1u << (i - block_) : 0u;
         nul_ = nul_ || data_[i] == '\0';
      }
      return mask;
   }
#endif

   const char *data_;
   std::size_t size_;
   std::size_t block_;
   unsigned mask_;
   bool nul_ = false;
};

// A line where it stands in its file: at most 255 characters, the newline
// included when it fits.
struct IdLine {
   const char *text = nullptr;
   std::size_t length = 0;
   bool overLong = false;    // the file's line was longer; its rest is skipped
   bool mayHoldNul = false;  // a NUL may stand in it

   // Byte i as the line buffer holds it.
   char operator[](std::size_t i) const { return i < length ? text[i] : '\0'; }

   // The C string the line buffer holds from column `from`: up to the first
   // NUL, the line's end, or column `end` where an earlier parse wrote a NUL.
   std::string_view From(std::size_t from, std::size_t end = kNone) const {
      const std::size_t stop = std::min(length, end);
      if (from >= stop) {
         return {};
      }
      const std::string_view rest(text + from, stop - from);
      return mayHoldNul ? rest.substr(0, rest.find('\0')) : rest;
   }
};

// The lines of one file from an offset on, as reading them through a
// 256-byte line buffer would give them.
class FileLines {
public:
   FileLines(const IdFile &file, std::size_t from)
       : file_(&file), newlines_(file.data.get(), file.size, from), offset_(from) {}

   // The next line; false at the end of the file.
   bool Next(IdLine &line) {
      if (offset_ >= file_->size) {
         return false;
      }
      const std::size_t newline = newlines_.Next();
      const std::size_t end = newline < file_->size ? newline + 1 : file_->size;
      const std::size_t size = end - offset_;
      line.text = file_->data.get() + offset_;
      line.overLong = size > kMaxLine || (size == kMaxLine && newline == file_->size);
      line.length = std::min(size, kMaxLine);
      line.mayHoldNul = newlines_.SawNul();
      offset_ = end;
      return true;
   }

private:
   const IdFile *file_;
   NewlineFinder newlines_;
   std::size_t offset_;
};

// The ID files read as one stream of lines, with line numbers.
class LineStream {
public:
   explicit LineStream(const std::vector<IdFile> &files) : files_(files) { StartFile(); }

   // The next line; false at the end of the last file.
   bool Next(IdLine &line) {
      while (current_ < files_.size()) {
         if (lines_.Next(line)) {
            lineNumber_++;
            return true;
         }
         current_++;
         StartFile();
      }
      return false;
   }

   const IdFile &CurrentFile() const { return files_[current_]; }
   const char *CurrentPath() const { return files_[current_].path.c_str(); }
   int LineNumber() const { return lineNumber_; }

private:
   void StartFile() {
      lines_ = FileLines(current_ < files_.size() ? files_[current_] : kNoFile, 0);
      lineNumber_ = 0;
   }

   static inline const IdFile kNoFile;
   const std::vector<IdFile> &files_;
   std::size_t current_ = 0;
   FileLines lines_{kNoFile, 0};
   int lineNumber_ = 0;
};

bool IsIgnoredLine(const IdLine &line) {
   return line[0] == ' ' || line[0] == '#' || line[0] == '\n';
}

bool IsEndOfVendors(const IdLine &line) {
   return line[0] == 'f' && line[1] == 'f' && line[2] == 'f' && line[3] == 'f';
}

enum class DeviceLine { Ignored, EndOfVendors, Vendor, Device, Subsystem, ThreeTabs };

DeviceLine ClassifyDeviceLine(const IdLine &line) {
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

ClassLine ClassifyClassLine(const IdLine &line) {
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

// What the device section carries from one line to the next, and from one
// file to the next.
struct DeviceState {
   std::uint16_t vendor = 0;
   std::uint16_t device = 0;
   NameRef vendorName;  // empty before the first vendor line and while one is parsed
};

// A device table entry as its line makes it, its names where they stand.
struct DevEntry {
   std::uint16_t vendor = 0;
   std::uint16_t device = 0;
   std::uint16_t subvendor = 0;
   std::uint16_t subdevice = 0;
   NameRef vendorName;
   NameRef deviceName;  // empty for a vendor entry and a made-up name
   bool madeUpName = false;

   // True when the device name begins with the made-up names' prefix, whether
   // made up here or listed so in a file.
   bool HasMadeUpName() const {
      return madeUpName || (deviceName.length >= kNameNotAvailableLength &&
                            std::memcmp(deviceName.text, kNameNotAvailable, kNameNotAvailableLength) == 0);
   }

   // Sets every field in place: building the entry aside and copying it
   // whole stalls the processor on every line.
   void Set(const DeviceState &state, std::uint16_t deviceId, std::uint16_t subvendorId, std::uint16_t subdeviceId,
            NameRef name, bool madeUp);

   PCIDevEntry Expand() const {
      PCIDevEntry entry{};
      entry.vendor = vendor;
      entry.device = device;
      entry.subvendor = subvendor;
      entry.subdevice = subdevice;
      CopyName(entry.vendorName, sizeof entry.vendorName, vendorName.View());
      if (madeUpName) {
         std::snprintf(entry.deviceName, sizeof entry.deviceName, "%s%.*s device", kNameNotAvailable,
                       static_cast<int>(vendorName.length), vendorName.text);
      } else {
         CopyName(entry.deviceName, sizeof entry.deviceName, deviceName.View());
      }
      return entry;
   }
};

void DevEntry::Set(const DeviceState &state, std::uint16_t deviceId, std::uint16_t subvendorId,
                   std::uint16_t subdeviceId, NameRef name, bool madeUp) {
   vendor = state.vendor;
   device = deviceId;
   subvendor = subvendorId;
   subdevice = subdeviceId;
   vendorName = state.vendorName;
   deviceName = name;
   madeUpName = madeUp;
}

// Where the device section's line messages go; none when lines are read again.
class LineReporter {
public:
   virtual void LineMessage(const char *format) = 0;
   virtual void NoVendorForSubsystem(std::uint16_t subvendor, std::uint16_t subdevice) = 0;

protected:
   ~LineReporter() = default;
};

enum class LineOutcome { NoEntry, Entry, EndOfSection };

// One line of the device section: the state it leaves and the entry it makes.
// A line that ends the section has its message given to the reporter.
LineOutcome DeviceSectionLine(const IdLine &line, bool mainFile, DeviceState &state, DevEntry &entry,
                              LineReporter *reporter) {
   unsigned long id = 0;
   std::string_view name;
   std::size_t separator = kNone;
   const auto report = [reporter](const char *format) {
      if (reporter != nullptr) {
         reporter->LineMessage(format);
      }
   };
   switch (ClassifyDeviceLine(line)) {
      case DeviceLine::Ignored:
      case DeviceLine::ThreeTabs:
         return LineOutcome::NoEntry;
      case DeviceLine::EndOfVendors:
         return LineOutcome::EndOfSection;
      case DeviceLine::Vendor: {
         state.vendorName = {};
         const bool parsed = ParseIdAndNameIn(line.From(0), true, &id, &name, &separator);
         if (separator != kNone) {
            state.vendor = static_cast<std::uint16_t>(id);
         }
         if (!parsed) {
            report("%s: %s: line %d improperly formatted(1)\n");
            return LineOutcome::EndOfSection;
         }
         state.vendorName = NameRef::Of(name, kVendorNameSize);
         if (!mainFile) {
            return LineOutcome::NoEntry;
         }
         entry.Set(state, kAnyDevicePart, kAnyDevicePart, kAnyDevicePart, {}, false);
         return LineOutcome::Entry;
      }
      case DeviceLine::Device: {
         const bool parsed = ParseIdAndNameIn(line.From(1), true, &id, &name, &separator);
         if (separator != kNone) {
            state.device = static_cast<std::uint16_t>(id);
         }
         if (parsed) {
            entry.Set(state, state.device, 0, 0, NameRef::Of(name, kDeviceNameSize), false);
            return LineOutcome::Entry;
         }
         if (state.vendorName.Empty()) {
            report("%s: %s: can't synthesize device name for line %d\n");
            return LineOutcome::EndOfSection;
         }
         entry.Set(state, state.device, 0, 0, {}, true);
         return LineOutcome::Entry;
      }
      case DeviceLine::Subsystem: {
         unsigned long subvendor = 0;
         unsigned long subdevice = 0;
         if (!ParseIdAndNameIn(line.From(kSubvendorColumn), false, &subvendor, nullptr, &separator)) {
            report("%s: %s: line %d improperly formatted(3)\n");
            return LineOutcome::EndOfSection;
         }
         // The first parse ends its ID with a NUL, which cuts the subdevice's
         // text when the subvendor ID runs past its four columns.
         const std::size_t cut = kSubvendorColumn + separator;
         if (!ParseIdAndNameIn(line.From(kSubdeviceColumn, cut >= kSubdeviceColumn ? cut : kNone), true, &subdevice,
                               &name, &separator)) {
            report("%s: %s: line %d improperly formatted(4)\n");
            return LineOutcome::EndOfSection;
         }
         const auto sv = static_cast<std::uint16_t>(subvendor);
         const auto sd = static_cast<std::uint16_t>(subdevice);
         if (state.vendorName.Empty()) {
            if (reporter != nullptr) {
               reporter->NoVendorForSubsystem(sv, sd);
            }
            return LineOutcome::EndOfSection;
         }
         entry.Set(state, state.device, sv, sd, NameRef::Of(name, kDeviceNameSize), false);
         return LineOutcome::Entry;
      }
   }
   return LineOutcome::NoEntry;
}

std::uint32_t KeyOf(std::uint16_t vendor, std::uint16_t device) {
   return static_cast<std::uint32_t>(vendor) << 16 | device;
}

// Consecutive device entries of one file: where the line making the first one
// stands, the state before that line, and the keys of the entries.
struct Block {
   const IdFile *file;
   std::size_t offset;
   DeviceState state;
   std::uint32_t firstEntry;
   std::uint32_t entries;
   std::uint32_t minKey;
   std::uint32_t maxKey;
};

// A class table entry, its names where they stand.
struct ClassRecord {
   std::uint8_t classCode;
   std::uint8_t subclass;
   std::uint8_t progIf;
   NameRef className;
   NameRef subclassName;
   NameRef progIfName;
};

struct IdTables {
   std::vector<IdFile> files;  // the names stand in them
   std::vector<Block> blocks;
   std::uint32_t devices = 0;
   std::vector<ClassRecord> classes;
   int lastDropInEntry = -1;

   // Reads the entries of a block again, from the first on, handing each with
   // its table index to visit until it returns true; true then.
   template <typename Visit>
   static bool ForEachEntry(const Block &block, Visit &&visit) {
      FileLines lines(*block.file, block.offset);
      DeviceState state = block.state;
      IdLine line;
      DevEntry entry;
      std::uint32_t made = 0;
      while (made < block.entries && lines.Next(line)) {
         const LineOutcome outcome = DeviceSectionLine(line, block.file->mainFile, state, entry, nullptr);
         if (outcome == LineOutcome::EndOfSection) {
            break;
         }
         if (outcome == LineOutcome::Entry && visit(block.firstEntry + made++, entry)) {
            return true;
         }
      }
      return false;
   }

   // The entries whose (vendor, device) is key, in table order, as above.
   template <typename Visit>
   bool ForEachEntryWithKey(std::uint32_t key, Visit &&visit) const {
      for (const Block &block : blocks) {
         if (key >= block.minKey && key <= block.maxKey &&
             ForEachEntry(block, [&](std::uint32_t index, const DevEntry &entry) {
                return KeyOf(entry.vendor, entry.device) == key && visit(index, entry);
             })) {
            return true;
         }
      }
      return false;
   }

   void Clear() {
      files = {};
      blocks = {};
      devices = 0;
      classes = {};
      lastDropInEntry = -1;
   }
};

// The lookup's precedence over the entries of one vendor and device, given in
// table order.
class DeviceMatcher {
public:
   DeviceMatcher(int lastDropInEntry, std::uint16_t subvendor, std::uint16_t subdevice)
       : lastDropInEntry_(lastDropInEntry), subvendor_(subvendor), subdevice_(subdevice) {}

   // Considers one entry; true when the lookup is decided.
   bool Consider(std::uint32_t index, const DevEntry &entry) {
      const bool fromDropIn = static_cast<int>(index) <= lastDropInEntry_;
      if (entry.subvendor != 0) {
         if (entry.subvendor != subvendor_ || entry.subdevice != subdevice_) {
            return false;
         }
         // A listed name from a drop-in file outranks the main file's exact entry.
         const bool keepCandidate = !fromDropIn && bestIndex_ >= 0 && bestFromDropIn_ && !best_.HasMadeUpName();
         if (!keepCandidate) {
            Take(index, entry);
         }
         return true;
      }
      if (bestIndex_ < 0 || (best_.HasMadeUpName() && !entry.HasMadeUpName())) {
         Take(index, entry);
         bestFromDropIn_ = fromDropIn;
      }
      return false;
   }

   int Result() const { return bestIndex_; }
   const DevEntry &Best() const { return best_; }

private:
   void Take(std::uint32_t index, const DevEntry &entry) {
      best_ = entry;
      bestIndex_ = static_cast<int>(index);
   }

   int lastDropInEntry_;
   std::uint16_t subvendor_;
   std::uint16_t subdevice_;
   DevEntry best_;
   int bestIndex_ = -1;
   bool bestFromDropIn_ = false;
};

// Messages held back until the messages before them are out.
class HeldMessages {
public:
   HeldMessages() : stream_(open_memstream(&text_, &size_)) {}
   ~HeldMessages() {
      if (stream_ != nullptr) {
         std::fclose(stream_);
      }
      std::free(text_);
   }
   HeldMessages(const HeldMessages &) = delete;
   HeldMessages &operator=(const HeldMessages &) = delete;

   // Where to print them; without memory for it, nowhere.
   std::FILE *Stream() const { return stream_; }
   std::size_t Mark() {
      Flush();
      return size_;
   }
   // Prints the first `length` bytes held.
   void WriteTo(std::FILE *out, std::size_t length) {
      Flush();
      if (text_ != nullptr && length > 0) {
         std::fwrite(text_, 1, length, out);
      }
   }
   void WriteTo(std::FILE *out) { WriteTo(out, Mark()); }

private:
   void Flush() {
      if (stream_ != nullptr) {
         std::fflush(stream_);
      }
   }

   char *text_ = nullptr;
   std::size_t size_ = 0;
   std::FILE *stream_;
};

// Builds the tables in one pass over the stream of ID lines that does the
// work of the three: each line is counted, as the counting passes would, and
// handed to the filling, which runs ahead of the counts. Its messages are held
// back and printed after the counting's, and the counts decide at the end, as
// they would have after the counting passes.
class TableBuilder : LineReporter {
public:
   TableBuilder(IdTables &tables, std::string mainFile, std::FILE *messages)
       : stream_(tables.files), mainFile_(std::move(mainFile)), tables_(tables), messages_(messages) {}

   // False after a failure (its message printed).
   bool Build() {
      Reserve();
      IdLine line;
      while (stream_.Next(line)) {
         if (line.overLong && line.text[0] != ' ' && line.text[0] != '#') {
            OverLongMessage(messages_);
            if (fill_ != Fill::Done) {
               OverLongMessage(held_.Stream());
            }
         }
         Count(line);
         if (fill_ != Fill::Done) {
            FillLine(line);
         }
      }
      EndCounting();
      if (devicesOutOfMemory_ || classesOutOfMemory_) {
         AllocationMessages();
         return false;
      }
      EndFilling();
      if (devicesMade_ != deviceCount_) {
         held_.WriteTo(messages_, deviceSectionMessages_);
         std::fprintf(messages_, "%s: parsing problem: devices %u nDevID %u\n", "PCIBuildTable",
                      static_cast<unsigned>(devicesMade_), static_cast<unsigned>(deviceCount_));
         return false;
      }
      held_.WriteTo(messages_);
      if (classesMade_ != classCount_) {
         std::fprintf(messages_, "%s: internal error: classes %u nClass %u\n", "PCIBuildTable",
                      static_cast<unsigned>(classesMade_), static_cast<unsigned>(classCount_));
         return false;
      }
      return true;
   }

private:
   void OverLongMessage(std::FILE *out) {
      if (out != nullptr) {
         std::fprintf(out, "%s: %s: line %d is more than %d bytes long; ignoring the rest\n", "ListGets",
                      stream_.CurrentPath(), stream_.LineNumber(), kPciIdLineSize);
      }
   }

   // Counting: device entries up to the end-of-vendors marker, class entries
   // after it.
   void Count(const IdLine &line) {
      if (countingClasses_) {
         if (!IsIgnoredLine(line) && (line[0] == 'C' || line[0] == '\t')) {
            classCount_++;
         }
         return;
      }
      const DeviceLine kind = ClassifyDeviceLine(line);
      if (kind == DeviceLine::EndOfVendors) {
         EndDeviceCount();
         return;
      }
      if ((kind == DeviceLine::Vendor && stream_.CurrentFile().mainFile && IsHexDigit(line[0])) ||
          kind == DeviceLine::Device || kind == DeviceLine::Subsystem) {
         deviceCount_++;
      }
   }

   void EndDeviceCount() {
      countingClasses_ = true;
      if (deviceCount_ == 0) {
         std::fprintf(messages_, "%s: no device entries in the PCI IDs files\npossible file corruption\n",
                      "PCIBuildTable");
      }
   }

   void EndCounting() {
      if (!countingClasses_) {
         EndDeviceCount();
      }
      if (classCount_ == 0) {
         std::fprintf(messages_, "%s: no class entries in %s\npossible file corruption\n", "PCIBuildTable",
                      mainFile_.c_str());
      }
   }

   // Room for as many blocks as the files could fill and for the usual
   // classes. Only the memory written to is ever touched, so the estimate
   // may be generous; the tables grow past it when they must. Without the
   // room, the lines are only counted.
   void Reserve() {
      std::size_t bytes = 0;
      for (const IdFile &file : tables_.files) {
         bytes += file.size;
      }
      constexpr std::size_t kShortestEntryLine = 4;  // a tab, an ID, a blank, a name
      try {
         tables_.blocks.reserve(bytes / (kShortestEntryLine * kBlockEntries) + tables_.files.size() + 1);
      } catch (const std::bad_alloc &) {
         devicesOutOfMemory_ = true;
      }
      try {
         tables_.classes.reserve(kUsualClassEntries);
      } catch (const std::bad_alloc &) {
         classesOutOfMemory_ = true;
      }
      if (devicesOutOfMemory_ || classesOutOfMemory_) {
         fill_ = Fill::Done;
      }
   }

   // The messages of the tables that could not be had, at the sizes counted.
   void AllocationMessages() {
      if (devicesOutOfMemory_) {
         std::fprintf(messages_, "%s: couldn't allocate pciDevTable (%zu bytes)\n", "PCIBuildTable",
                      static_cast<std::size_t>(deviceCount_) * sizeof(PCIDevEntry));
      }
      if (classesOutOfMemory_) {
         std::fprintf(messages_, "%s: couldn't allocate pciClassCodeTable (%zu bytes)\n", "PCIBuildTable",
                      static_cast<std::size_t>(classCount_) * sizeof(PCIClassEntry));
      }
   }

   void LineMessage(const char *format) override {
      if (held_.Stream() != nullptr) {
         std::fprintf(held_.Stream(), format, "PCIBuildTable", stream_.CurrentPath(), stream_.LineNumber());
      }
   }

   void NoVendorForSubsystem(std::uint16_t subvendor, std::uint16_t subdevice) override {
      if (held_.Stream() != nullptr) {
         std::fprintf(held_.Stream(), "%s: no vendor information for subvendor 0%04x: subsystem 0%04x", "PCIBuildTable",
                      subvendor, subdevice);
      }
   }

   // Filling: the device section, up to the marker or the first line that
   // ends it, then the class section, up to the end or the first line that
   // ends it.
   enum class Fill { Devices, Classes, Done };

   void FillLine(const IdLine &line) {
      if (fill_ == Fill::Devices) {
         const DeviceState before = deviceState_;
         DevEntry entry;
         const LineOutcome outcome = DeviceSectionLine(line, stream_.CurrentFile().mainFile, deviceState_, entry, this);
         if (outcome == LineOutcome::Entry) {
            AddDeviceEntry(line, before, entry);
         } else if (outcome == LineOutcome::EndOfSection) {
            EndDeviceSection();
         }
      } else if (!ClassSectionLine(line)) {
         fill_ = Fill::Done;
      }
   }

   void EndDeviceSection() {
      fill_ = Fill::Classes;
      deviceSectionMessages_ = held_.Mark();
   }

   void EndFilling() {
      if (fill_ == Fill::Devices) {
         EndDeviceSection();
      }
      if (fill_ == Fill::Classes) {
         CloseOpenItems();
      }
   }

   // Counts the entry made by line, read in the state before.
   void AddDeviceEntry(const IdLine &line, const DeviceState &before, const DevEntry &entry) {
      const IdFile &file = stream_.CurrentFile();
      if (!file.mainFile) {
         tables_.lastDropInEntry = devicesMade_;
      }
      const std::uint32_t key = KeyOf(entry.vendor, entry.device);
      std::vector<Block> &blocks = tables_.blocks;
      if (blocks.empty() || blocks.back().file != &file || blocks.back().entries == kBlockEntries) {
         const auto offset = static_cast<std::size_t>(line.text - file.data.get());
         try {
            blocks.push_back({&file, offset, before, static_cast<std::uint32_t>(devicesMade_), 0, key, key});
         } catch (const std::bad_alloc &) {
            devicesOutOfMemory_ = true;
            fill_ = Fill::Done;
            return;
         }
      }
      Block &block = blocks.back();
      block.entries++;
      block.minKey = std::min(block.minKey, key);
      block.maxKey = std::max(block.maxKey, key);
      tables_.devices++;
      devicesMade_++;
   }

   // ParseIdAndName into an item of the class section: the ID stored once its
   // separator is found, the name only on success.
   static bool ParseItem(std::string_view text, unsigned long *id, NameRef *name) {
      std::string_view found;
      std::size_t separator = kNone;
      if (!ParseIdAndNameIn(text, true, id, &found, &separator)) {
         return false;
      }
      *name = NameRef::Of(found, kClassNameSize);
      return true;
   }

   void MakeClassEntry(std::uint8_t subclass, std::uint8_t progIf, NameRef subclassName, NameRef progIfName) {
      try {
         tables_.classes.push_back(
               {static_cast<std::uint8_t>(classId_), subclass, progIf, className_, subclassName, progIfName});
      } catch (const std::bad_alloc &) {
         classesOutOfMemory_ = true;
         fill_ = Fill::Done;
      }
      classesMade_++;
   }

   void CloseSubclass() { MakeClassEntry(static_cast<std::uint8_t>(subclassId_), kAnyClassPart, subclassName_, {}); }
   void CloseClass() { MakeClassEntry(kAnyClassPart, kAnyClassPart, {}, {}); }

   void CloseOpenItems() {
      if (open_ == Open::Subclass || open_ == Open::ProgIf) {
         CloseSubclass();
      }
      if (open_ != Open::Nothing) {
         CloseClass();
      }
   }

   // One line of the class section; false when it ends the section.
   bool ClassSectionLine(const IdLine &line) {
      switch (ClassifyClassLine(line)) {
         case ClassLine::Ignored:
            return true;
         case ClassLine::Class:
            CloseOpenItems();
            open_ = Open::Nothing;
            if (!ParseItem(line.From(1), &classId_, &className_)) {
               LineMessage("%s: %s: line %d improperly formatted(5)\n");
               return false;
            }
            open_ = Open::Class;
            return true;
         case ClassLine::Subclass:
            if (open_ == Open::Subclass || open_ == Open::ProgIf) {
               CloseSubclass();
            }
            if (!ParseItem(line.From(1), &subclassId_, &subclassName_)) {
               LineMessage("%s: %s: line %d improperly formatted(6)\n");
               CloseSubclass();
               CloseClass();
               return false;
            }
            open_ = Open::Subclass;
            return true;
         case ClassLine::ProgIf:
            if (!ParseItem(line.From(2), &progIfId_, &progIfName_)) {
               LineMessage("%s: %s: line %d improperly formatted(7)\n");
               CloseSubclass();
               CloseClass();
               return false;
            }
            MakeClassEntry(static_cast<std::uint8_t>(subclassId_), static_cast<std::uint8_t>(progIfId_), subclassName_,
                           progIfName_);
            open_ = Open::ProgIf;
            return true;
         case ClassLine::Other:
            LineMessage("%s: %s: line %d improperly formatted(8)\n");
            return true;
      }
      return true;
   }

   LineStream stream_;
   std::string mainFile_;
   IdTables &tables_;
   std::FILE *messages_;
   HeldMessages held_;
   bool devicesOutOfMemory_ = false;
   bool classesOutOfMemory_ = false;

   bool countingClasses_ = false;
   int deviceCount_ = 0;
   int classCount_ = 0;

   Fill fill_ = Fill::Devices;
   std::size_t deviceSectionMessages_ = 0;  // held bytes of the device section
   DeviceState deviceState_;
   int devicesMade_ = 0;

   // State of the class section: which items are open.
   enum class Open { Nothing, Class, Subclass, ProgIf };
   Open open_ = Open::Nothing;
   int classesMade_ = 0;
   unsigned long classId_ = 0;
   NameRef className_;
   unsigned long subclassId_ = 0;
   NameRef subclassName_;
   unsigned long progIfId_ = 0;
   NameRef progIfName_;
};

// The ID files of hwdataDir in reading order: the drop-in directories', then
// the main file, which is listed whether or not it exists.
std::optional<PciIdFatalError> ListIdFiles(const std::string &hwdataDir, PciIdFileList &list) {
   if (auto error = list.Init()) {
      return error;
   }
   for (const char *dropIn : kDropInDirectories) {
      if (auto error = list.AddDirectory(hwdataDir + "/" + dropIn)) {
         return error;
      }
   }
   return list.AddFile(hwdataDir + "/" + kMainFile);
}

}  // namespace

std::string PciIdFatalError::Message() const {
   return std::string(routine) + ": " + problem + "\n";
}

std::optional<PciIdFatalError> PciIdFileList::Init() {
   try {
      paths_.reserve(8);
   } catch (const std::bad_alloc &) {
      return PciIdFatalError{"InitList", "not enough memory for file list"};
   }
   return std::nullopt;
}

std::optional<PciIdFatalError> PciIdFileList::AddFile(std::string_view path) {
   if (path.size() >= kMaxPath) {
      return PciIdFatalError{"AddFileToList", "found corrupted file name"};
   }
   try {
      paths_.emplace_back(path);
   } catch (const std::bad_alloc &) {
      return PciIdFatalError{"AddFileToList", "not enough memory for file list"};
   }
   return std::nullopt;
}

std::optional<PciIdFatalError> PciIdFileList::AddDirectory(const std::string &directory) {
   DIR *dir = opendir(directory.c_str());
   if (dir == nullptr) {
      return std::nullopt;
   }
   std::optional<PciIdFatalError> error;
   while (!error) {
      const dirent *entry = readdir(dir);
      if (entry == nullptr) {
         break;
      }
      const std::string_view name = entry->d_name;
      if (name.size() >= kMaxPath) {
         error = PciIdFatalError{"AddDirectoryToList", "found corrupted file name"};
      } else if (name.size() >= 5 && name.ends_with(".ids")) {
         if (directory.size() + 1 + name.size() > kMaxJoinedPath) {
            error = PciIdFatalError{"AddDirectoryToList", "found corrupted file name"};
         } else {
            error = AddFile(directory + "/" + std::string(name));
         }
      }
   }
   closedir(dir);
   return error;
}

bool ParseIdAndName(char *text, int nameCapacity, unsigned long *id, char *name) {
   const bool wantName = nameCapacity > 0 && name != nullptr;
   const std::string_view view(text);
   std::string_view found;
   std::size_t separator = kNone;
   const bool parsed = ParseIdAndNameIn(view, wantName, id, &found, &separator);
   if (separator != kNone) {
      text[separator] = '\0';
   }
   if (!parsed) {
      return false;
   }
   if (wantName) {
      const std::size_t end = static_cast<std::size_t>(found.data() - text) + found.size();
      if (end < view.size()) {
         text[end] = '\0';  // the newline
      }
      CopyName(name, static_cast<std::size_t>(nameCapacity), found);
   }
   return true;
}

std::string PciHwdataDir() {
   const char *dir = std::getenv("ZLC_HWDATA_DIR");
   return dir != nullptr && *dir != '\0' ? dir : kDefaultHwdataDir;
}

struct PciIdTable::Tables : IdTables {};

PciIdTable::PciIdTable() : tables_(std::make_unique<Tables>()) {}
PciIdTable::~PciIdTable() = default;
PciIdTable::PciIdTable(PciIdTable &&) noexcept = default;
PciIdTable &PciIdTable::operator=(PciIdTable &&) noexcept = default;

std::optional<PciIdFatalError> PciIdTable::Build(const std::string &hwdataDir, std::FILE *messages) {
   tables_->Clear();
   PciIdFileList list;
   if (auto error = ListIdFiles(hwdataDir, list)) {
      return error;
   }
   std::vector<IdFile> &files = tables_->files;
   files.reserve(list.Paths().size());
   for (const std::string &path : list.Paths()) {
      files.push_back(LoadFile(path, files.size() + 1 == list.Paths().size()));
   }
   TableBuilder builder(*tables_, hwdataDir + "/" + kMainFile, messages);
   if (!builder.Build()) {
      tables_->Clear();
      std::fputs("failed to build PCI tables\n", messages);
   }
   return std::nullopt;
}

int PciIdTable::DeviceCount() const {
   return static_cast<int>(tables_->devices);
}

int PciIdTable::ClassCount() const {
   return static_cast<int>(tables_->classes.size());
}

int PciIdTable::LastDropInEntry() const {
   return tables_->lastDropInEntry;
}

PCIDevEntry PciIdTable::DeviceEntry(int index) const {
   const auto wanted = static_cast<std::uint32_t>(index);
   const auto block = std::upper_bound(tables_->blocks.begin(), tables_->blocks.end(), wanted,
                                       [](std::uint32_t i, const Block &b) { return i < b.firstEntry; });
   PCIDevEntry found{};
   IdTables::ForEachEntry(*std::prev(block), [&](std::uint32_t i, const DevEntry &entry) {
      if (i == wanted) {
         found = entry.Expand();
      }
      return i == wanted;
   });
   return found;
}

PCIClassEntry PciIdTable::ClassEntry(int index) const {
   const ClassRecord &record = tables_->classes[static_cast<std::size_t>(index)];
   PCIClassEntry entry{};
   entry.classCode = record.classCode;
   entry.subclass = record.subclass;
   entry.progIf = record.progIf;
   CopyName(entry.className, sizeof entry.className, record.className.View());
   CopyName(entry.subclassName, sizeof entry.subclassName, record.subclassName.View());
   CopyName(entry.progIfName, sizeof entry.progIfName, record.progIfName.View());
   return entry;
}

int PciIdTable::FindDeviceIndex(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                                std::uint16_t subdevice) const {
   DeviceMatcher matcher(tables_->lastDropInEntry, subvendor, subdevice);
   tables_->ForEachEntryWithKey(KeyOf(vendor, device), [&](std::uint32_t index, const DevEntry &entry) {
      return matcher.Consider(index, entry);
   });
   return matcher.Result();
}

int PciIdTable::FindDeviceIndexByScan(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                                      std::uint16_t subdevice) const {
   DeviceMatcher matcher(tables_->lastDropInEntry, subvendor, subdevice);
   for (const Block &block : tables_->blocks) {
      if (IdTables::ForEachEntry(block, [&](std::uint32_t index, const DevEntry &entry) {
             return entry.vendor == vendor && entry.device == device && matcher.Consider(index, entry);
          })) {
         break;
      }
   }
   return matcher.Result();
}

std::optional<PCIDevEntry> PciIdTable::FindDevice(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                                                  std::uint16_t subdevice) const {
   DeviceMatcher matcher(tables_->lastDropInEntry, subvendor, subdevice);
   tables_->ForEachEntryWithKey(KeyOf(vendor, device), [&](std::uint32_t index, const DevEntry &entry) {
      return matcher.Consider(index, entry);
   });
   if (matcher.Result() < 0) {
      return std::nullopt;
   }
   return matcher.Best().Expand();
}

PCIClassNames PciIdTable::FindClass(std::uint16_t classCode) const {
   PCIClassNames names{};
   const auto base = static_cast<std::uint8_t>(classCode >> 8);
   const auto subclass = static_cast<std::uint8_t>(classCode & 0xFF);
   for (const ClassRecord &entry : tables_->classes) {
      if (entry.classCode == base && (entry.subclass == subclass || entry.subclass == kAnyClassPart) &&
          entry.progIf == kAnyClassPart) {
         CopyName(names.className, sizeof names.className, entry.className.View());
         CopyName(names.subclassName, sizeof names.subclassName, entry.subclassName.View());
         return names;
      }
   }
   std::snprintf(names.className, sizeof names.className, "Unknown class %.4x", classCode);
   return names;
}

PCIDeviceNames PciIdTable::NameDevice(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor,
                                      std::uint16_t subdevice) const {
   PCIDeviceNames names{};
   if (const std::optional<PCIDevEntry> entry = FindDevice(vendor, device, subvendor, subdevice)) {
      CopyName(names.vendorName, sizeof names.vendorName, entry->vendorName);
      CopyName(names.deviceName, sizeof names.deviceName, entry->deviceName);
      return names;
   }
   if (const std::optional<PCIDevEntry> entry = FindDevice(vendor, kAnyDevicePart, kAnyDevicePart, kAnyDevicePart)) {
      CopyName(names.vendorName, sizeof names.vendorName, entry->vendorName);
   } else {
      std::snprintf(names.vendorName, sizeof names.vendorName, "Vendor %.4x", vendor);
   }
   std::snprintf(names.deviceName, sizeof names.deviceName, "Device %.4x", device);
   return names;
}
