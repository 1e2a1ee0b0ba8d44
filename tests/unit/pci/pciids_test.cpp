// The PCI ID database: the ID and name parser, the build with its messages
// and failure path, drop-in precedence, class lookups, and the indexed device
// lookup against a scan of the whole table.
#include "pci/pciids.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <utility>

namespace {

namespace fs = std::filesystem;

using NamePair = std::pair<std::string, std::string>;

NamePair Names(const PciIdTable &table, std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor = 0,
               std::uint16_t subdevice = 0) {
   const PCIDeviceNames names = table.NameDevice(vendor, device, subvendor, subdevice);
   return {names.vendorName, names.deviceName};
}

NamePair Class(const PciIdTable &table, std::uint16_t code) {
   const PCIClassNames names = table.FindClass(code);
   return {names.className, names.subclassName};
}

// Builds table from the ID files of dir; returns the build's messages.
std::string BuildFrom(PciIdTable &table, const std::string &dir) {
   char *text = nullptr;
   std::size_t size = 0;
   std::FILE *messages = open_memstream(&text, &size);
   const std::optional<PciIdFatalError> fatal = table.Build(dir, messages);
   std::fclose(messages);
   std::string result(text, size);
   std::free(text);
   return fatal ? "fatal: " + fatal->Message() : result;
}

// The ID and the name up to the newline; a name cut to the capacity less one,
// none wanted with capacity 0; an over-long ID saturates. A failure before
// the separator leaves the ID as it was, one after it stores the ID.
TEST(ParseIdAndName, IdNameAndFailures) {
   const struct {
      std::string text;
      int capacity;
      bool ok;
      unsigned long id;
      std::string name;
   } cases[] = {
         {"  8086  Intel Corporation  \n", 64, true, 0x8086, "Intel Corporation  "},
         {"1 " + std::string(100, 'x') + "\n", 64, true, 1, std::string(63, 'x')},
         {"fffffffffffffffffffff\tignored", 0, true, static_cast<unsigned long>(-1), "untouched"},
         {"10000000000000000  saturates at its last digit\n", 64, true, static_cast<unsigned long>(-1),
          "saturates at its last digit"},
         {"8086\n", 64, false, 7, "untouched"},
         {"12g4  name\n", 64, false, 7, "untouched"},
         {"\tname\n", 64, false, 7, "untouched"},
         {"1234 \t \n", 64, false, 0x1234, "untouched"},
   };
   for (const auto &c : cases) {
      std::string text = c.text;
      char name[128] = "untouched";
      unsigned long id = 7;
      EXPECT_EQ(ParseIdAndName(text.data(), c.capacity, &id, c.capacity > 0 ? name : nullptr), c.ok) << c.text;
      EXPECT_EQ(id, c.id) << c.text;
      EXPECT_EQ(name, c.name) << c.text;
   }
}

// A hwdata directory of ID files written by the test.
class IdFiles : public testing::Test {
protected:
   void SetUp() override {
      char dir[] = "/tmp/pciids-XXXXXX";
      ASSERT_NE(mkdtemp(dir), nullptr);
      dir_ = dir;
   }
   void TearDown() override { fs::remove_all(dir_); }

   void Write(const std::string &path, const std::string &content) {
      const fs::path full = fs::path(dir_) / path;
      fs::create_directories(full.parent_path());
      std::ofstream(full, std::ios::binary) << content;
   }
   std::string Path(const std::string &path) const { return dir_ + "/" + path; }

   std::string Build() { return BuildFrom(table_, dir_); }
   NamePair Names(std::uint16_t vendor, std::uint16_t device, std::uint16_t subvendor = 0,
                  std::uint16_t subdevice = 0) const {
      return ::Names(table_, vendor, device, subvendor, subdevice);
   }
   NamePair Class(std::uint16_t code) const { return ::Class(table_, code); }

   std::string dir_;
   PciIdTable table_;
};

constexpr char kClasses[] =
      "ffff  Illegal Vendor ID\n"
      "# classes\n"
      "C 02  Network controller\n"
      "\t00  Ethernet controller\n"
      "\t80  Network controller\n"
      "C 0c  Serial bus controller\n"
      "\t03  USB controller\n"
      "\t\t30  XHCI\n";

constexpr char kMain[] =
      "# main file\n"
      "8086  Intel Corporation\n"
      "\t1533  I210 Gigabit Network Connection\n"
      "\t\t8086 0001  I210 Gigabit Network Connection (OEM)\n"
      "\t\t\tthree tabs are skipped\n"
      "\t1572  Ethernet Controller X710 for 10GbE SFP+\n"
      "\t\t8086 0002  X710 Main Subsystem\n";

TEST_F(IdFiles, MainFileNamesVendorsDevicesSubsystemsAndClasses) {
   Write("pci.ids", std::string(kMain) + kClasses);
   EXPECT_EQ(Build(), "");
   EXPECT_EQ(table_.DeviceCount(), 5);  // one vendor, two devices, two subsystems
   EXPECT_EQ(table_.ClassCount(), 6);
   EXPECT_EQ(Names(0x8086, 0x1533), NamePair("Intel Corporation", "I210 Gigabit Network Connection"));
   // An exact subsystem entry wins over the device entry; other subsystems get the device.
   EXPECT_EQ(Names(0x8086, 0x1533, 0x8086, 0x0001).second, "I210 Gigabit Network Connection (OEM)");
   EXPECT_EQ(Names(0x8086, 0x1533, 0x8086, 0x0009).second, "I210 Gigabit Network Connection");
   EXPECT_EQ(Names(0x8086, 0x9999), NamePair("Intel Corporation", "Device 9999"));
   EXPECT_EQ(Names(0x10de, 0x0001), NamePair("Vendor 10de", "Device 0001"));

   // A listed subclass wins; an unlisted one gets the class alone.
   EXPECT_EQ(Class(0x0280), NamePair("Network controller", "Network controller"));
   EXPECT_EQ(Class(0x0200), NamePair("Network controller", "Ethernet controller"));
   EXPECT_EQ(Class(0x0205), NamePair("Network controller", ""));
   EXPECT_EQ(Class(0x0c03), NamePair("Serial bus controller", "USB controller"));
   EXPECT_EQ(Class(0x0300), NamePair("Unknown class 0300", ""));

   // Class entries: each subclass's interfaces, the subclass, then the class alone.
   const PCIClassEntry xhci = table_.ClassEntry(3);
   EXPECT_EQ(xhci.classCode, 0x0c);
   EXPECT_EQ(xhci.subclass, 0x03);
   EXPECT_EQ(xhci.progIf, 0x30);
   EXPECT_STREQ(xhci.progIfName, "XHCI");
   EXPECT_EQ(table_.ClassEntry(4).progIf, 0xFF);
   EXPECT_EQ(table_.ClassEntry(5).subclass, 0xFF);
}

TEST_F(IdFiles, DropInDeviceNamesWinOverTheMainFilesSubsystems) {
   Write("pci.ids", std::string(kMain) + kClasses);
   Write("default.pciids.d/site.ids", "8086  Our Intel\n\t1572  Site X710\n");
   EXPECT_EQ(Build(), "");
   EXPECT_EQ(table_.LastDropInEntry(), 0);
   EXPECT_EQ(Names(0x8086, 0x1572, 0x8086, 0x0002), NamePair("Our Intel", "Site X710"));
   // The main file's vendor entry still names the vendor of unknown devices.
   EXPECT_EQ(Names(0x8086, 0x9999), NamePair("Intel Corporation", "Device 9999"));
}

TEST_F(IdFiles, AnExactDropInSubsystemWinsAndOrderOfDirectoriesCounts) {
   Write("pci.ids", std::string(kMain) + kClasses);
   Write("fallback.pciids.d/late.ids", "8086  Late\n\t1533  Late I210\n");
   Write("oem.pciids.d/early.ids", "8086  Early\n\t1533  Early I210\n\t\t8086 0001  Early OEM I210\n");
   EXPECT_EQ(Build(), "");
   EXPECT_EQ(Names(0x8086, 0x1533, 0x8086, 0x0001), NamePair("Early", "Early OEM I210"));
   // The first device entry with a listed name wins: the oem directory comes first.
   EXPECT_EQ(Names(0x8086, 0x1533, 0x8086, 0x0005), NamePair("Early", "Early I210"));
}

TEST_F(IdFiles, MadeUpDropInNamesLoseToListedOnes) {
   Write("pci.ids", std::string(kMain) + kClasses);
   // With the blank the ID is taken and the name made up; without it the entry
   // carries the previous device line's ID.
   Write("driver.pciids.d/partial.ids", "8086  Partial\n\t1533 \n\t10d3  Listed\n\t1572\n");
   EXPECT_EQ(Build(), "");
   ASSERT_GE(table_.DeviceCount(), 3);
   const PCIDevEntry madeUp = table_.DeviceEntry(0);
   EXPECT_EQ(madeUp.device, 0x1533);
   EXPECT_STREQ(madeUp.deviceName, "Name not available for Partial device");
   const PCIDevEntry noBlank = table_.DeviceEntry(2);
   EXPECT_EQ(noBlank.device, 0x10d3);
   EXPECT_STREQ(noBlank.deviceName, "Name not available for Partial device");
   EXPECT_EQ(Names(0x8086, 0x1533), NamePair("Intel Corporation", "I210 Gigabit Network Connection"));
   // A listed drop-in name wins over a later made-up one.
   EXPECT_EQ(Names(0x8086, 0x10d3), NamePair("Partial", "Listed"));
}

TEST_F(IdFiles, DeviceLinesAtTheStartOfADropInUseThePreviousFilesVendor) {
   Write("pci.ids", std::string(kMain) + kClasses);
   Write("oem.pciids.d/a.ids", "8086  Intel from oem\n");
   Write("ihv.pciids.d/b.ids", "\t1533  Carried over\n");
   EXPECT_EQ(Build(), "");
   EXPECT_EQ(Names(0x8086, 0x1533), NamePair("Intel from oem", "Carried over"));
}

TEST_F(IdFiles, AMadeUpNameWithoutAnyVendorFailsTheBuild) {
   Write("pci.ids", std::string(kMain) + kClasses);
   Write("oem.pciids.d/a.ids", "# no vendor yet\n\t1533\n");
   EXPECT_EQ(Build(), "PCIBuildTable: " + Path("oem.pciids.d/a.ids") +
                            ": can't synthesize device name for line 2\n"
                            "PCIBuildTable: parsing problem: devices 0 nDevID 6\n"
                            "failed to build PCI tables\n");
   EXPECT_EQ(table_.DeviceCount(), 0);
   EXPECT_EQ(table_.ClassCount(), 0);
   // Every lookup is numeric afterwards.
   EXPECT_EQ(Names(0x8086, 0x1533), NamePair("Vendor 8086", "Device 1533"));
   EXPECT_EQ(Class(0x0200), NamePair("Unknown class 0200", ""));
}

TEST_F(IdFiles, OnlyFilesEndingInLowerCaseIdsAreRead) {
   Write("pci.ids", std::string(kMain) + kClasses);
   Write("oem.pciids.d/upper.IDS", "8086  Upper\n\t1533  Upper\n");
   Write("oem.pciids.d/.ids", "8086  Bare\n\t1533  Bare\n");
   Write("oem.pciids.d/ids", "8086  Short\n\t1533  Short\n");
   Write("oem.pciids.d/.hidden.ids", "8086  Hidden\n\t1572  Hidden X710\n");
   EXPECT_EQ(Build(), "");
   EXPECT_EQ(table_.LastDropInEntry(), 0);
   EXPECT_EQ(Names(0x8086, 0x1533).second, "I210 Gigabit Network Connection");
   EXPECT_EQ(Names(0x8086, 0x1572).second, "Hidden X710");
}

TEST_F(IdFiles, NoFilesAtAllGiveBothMessagesAndNumericNames) {
   EXPECT_EQ(Build(),
             "PCIBuildTable: no device entries in the PCI IDs files\npossible file corruption\n"
             "PCIBuildTable: no class entries in " +
                   Path("pci.ids") + "\npossible file corruption\n");
   EXPECT_EQ(Names(0x8086, 0x1533), NamePair("Vendor 8086", "Device 1533"));
   EXPECT_EQ(Class(0x0106), NamePair("Unknown class 0106", ""));
}

TEST_F(IdFiles, LinesReadAsALineBufferHoldsThem) {
   // 254 characters and the newline fit; 255 do not, and are reported each
   // time they are read (counting and filling) unless they are comments. A
   // NUL ends what the parser sees (here: an ID and no name); a subvendor ID
   // past its four columns cuts the subdevice's text; the last line may lack
   // its newline.
   const std::string fits = "\t1237  " + std::string(247, 'a') + "\n";
   const std::string tooLong = "\t7000  " + std::string(248, 'b') + "\n";
   Write("pci.ids", "8086  Intel\n" + fits + tooLong + "#" + std::string(300, 'c') + "\n" +
                          std::string("\t1000 \0Hidden\n", 14) +
                          "\t\t1234 56789  Wide subdevice\nffff\nC 02  Network\n\t00  Ethernet\n\t\t01  Last");
   const std::string message =
         "ListGets: " + Path("pci.ids") + ": line 3 is more than 256 bytes long; ignoring the rest\n";
   EXPECT_EQ(Build(), message + message);
   EXPECT_EQ(Names(0x8086, 0x7000).second, std::string(127, 'b'));
   EXPECT_EQ(Names(0x8086, 0x1000), NamePair("Intel", "Name not available for Intel device"));
   EXPECT_EQ(Names(0x8086, 0x1000, 0x1234, 0x6789).second, "Wide subdevice");
   EXPECT_EQ(table_.ClassEntry(0).progIfName, std::string("Last"));

   Write("pci.ids", "8086  Intel\n\t1237  Host\n\t\t12345 0001  Subvendor too wide\n" + std::string(kClasses));
   EXPECT_EQ(Build(), "PCIBuildTable: " + Path("pci.ids") + ": line 3 improperly formatted(4)\n" +
                            "PCIBuildTable: parsing problem: devices 2 nDevID 3\nfailed to build PCI tables\n");
}

TEST_F(IdFiles, MessagesKeepTheOrderOfCountingThenFilling) {
   // The over-long line is reported once, by the counting: the filling never
   // reads it, having failed at line 3.
   Write("pci.ids", "8086  Intel\n\t1533  I210\n\r\n10de  NVIDIA\n\t1234  " + std::string(300, 'n') +
                          "\nffff\nC 02  Network\n\t00  Ethernet\n");
   EXPECT_EQ(Build(), "ListGets: " + Path("pci.ids") + ": line 5 is more than 256 bytes long; ignoring the rest\n" +
                            "PCIBuildTable: " + Path("pci.ids") + ": line 3 improperly formatted(1)\n" +
                            "PCIBuildTable: parsing problem: devices 2 nDevID 4\nfailed to build PCI tables\n");
   EXPECT_EQ(Names(0x8086, 0x1533), NamePair("Vendor 8086", "Device 1533"));
   // A line that ends the device section early without losing a counted
   // entry: the class section then starts with the next line, the marker.
   Write("pci.ids", "8086  Intel\n\t1533  I210\nxyz\nffff\nC 02  Network\n\t00  Ethernet\n");
   EXPECT_EQ(Build(), "PCIBuildTable: " + Path("pci.ids") + ": line 3 improperly formatted(1)\n" +
                            "PCIBuildTable: " + Path("pci.ids") + ": line 4 improperly formatted(8)\n");
   EXPECT_EQ(Names(0x8086, 0x1533), NamePair("Intel", "I210"));
   EXPECT_EQ(Class(0x0200), NamePair("Network", "Ethernet"));
}

TEST_F(IdFiles, ClassLinesBeforeTheMarkerAreVendorLines) {
   Write("pci.ids", "C 02  Network controller\n\t00  Ethernet controller\nffff  end\nC 03  Display controller\n");
   EXPECT_EQ(Build(), "");
   EXPECT_EQ(Names(0x000c, 0x0000), NamePair("02  Network controller", "Ethernet controller"));
   EXPECT_EQ(Class(0x0200), NamePair("Unknown class 0200", ""));
   EXPECT_EQ(Class(0x0300), NamePair("Display controller", ""));
}

TEST_F(IdFiles, MalformedClassSectionLines) {
   // An unexpected line is skipped with a message; a bad subclass ends the
   // section after closing what is open, and the count check then fails.
   Write("pci.ids", "8086  Intel\nffff\nC 02  Network\nstray\n\t00  Ethernet\n\tzz  bad\n\t01  Token ring\n");
   EXPECT_EQ(Build(), "PCIBuildTable: " + Path("pci.ids") + ": line 4 improperly formatted(8)\n" +
                            "PCIBuildTable: " + Path("pci.ids") + ": line 6 improperly formatted(6)\n" +
                            "PCIBuildTable: internal error: classes 3 nClass 4\n"
                            "failed to build PCI tables\n");
}

TEST_F(IdFiles, ASubsystemLineWithoutAnyVendor) {
   Write("pci.ids", "\t\t8086 0001  Orphan\n8086  Intel\n" + std::string(kClasses));
   EXPECT_EQ(Build(),
             "PCIBuildTable: no vendor information for subvendor 08086: subsystem 00001"
             "PCIBuildTable: parsing problem: devices 0 nDevID 2\n"
             "failed to build PCI tables\n");
}

TEST_F(IdFiles, AFatalErrorOfTheFileListIsReturnedWithAnEmptyTable) {
   Write("pci.ids", std::string(kMain) + kClasses);
   ASSERT_EQ(Build(), "");
   const std::string deep = dir_ + "/" + std::string(250, 'd');
   EXPECT_EQ(BuildFrom(table_, deep), "fatal: AddFileToList: found corrupted file name\n");
   EXPECT_EQ(table_.DeviceCount(), 0);
   EXPECT_EQ(Names(0x8086, 0x1533), NamePair("Vendor 8086", "Device 1533"));
}

// The real pci.ids, as kept with the tests.
class RealIds : public testing::Test {
protected:
   static void SetUpTestSuite() { messages_ = BuildFrom(table_, fs::path(ZIF_TESTS_DIR) / "pci" / "data"); }
   static std::string messages_;
   static PciIdTable table_;
};
std::string RealIds::messages_;
PciIdTable RealIds::table_;

TEST_F(RealIds, BuildsWithoutMessagesAndNamesAVirtualMachinesFunctions) {
   EXPECT_EQ(messages_, "");
   EXPECT_GT(table_.DeviceCount(), 30000);
   struct Case {
      std::uint16_t vendor, device, subvendor, subdevice, classCode;
      const char *vendorName, *deviceName, *className;
   };
   const Case cases[] = {
         {0x8086, 0x1237, 0, 0, 0x0600, "Intel Corporation", "440FX - 82441FX PMC [Natoma]", "Host bridge"},
         {0x8086, 0x7010, 0, 0, 0x0101, "Intel Corporation", "82371SB PIIX3 IDE [Natoma/Triton II]", "IDE interface"},
         {0x8086, 0x1237, 0x1af4, 0x1100, 0x0600, "Intel Corporation", "Qemu virtual machine", "Host bridge"},
         {0x8086, 0x29c0, 0x1af4, 0x1100, 0x0600, "Intel Corporation", "QEMU Virtual Machine", "Host bridge"},
         {0x1af4, 0x1000, 0x1af4, 0x0001, 0x0200, "Red Hat, Inc.", "Virtio network device", "Ethernet controller"},
         {0x1af4, 0x1042, 0x1af4, 0x1100, 0x0100, "Red Hat, Inc.", "Virtio 1.0 block device",
          "SCSI storage controller"},
         {0x8086, 0x100e, 0x8086, 0x001e, 0x0200, "Intel Corporation", "PRO/1000 MT Desktop Adapter",
          "Ethernet controller"},
   };
   for (const Case &c : cases) {
      EXPECT_EQ(Names(table_, c.vendor, c.device, c.subvendor, c.subdevice), NamePair(c.vendorName, c.deviceName));
      EXPECT_STREQ(table_.FindClass(c.classCode).subclassName, c.className);
   }
}

TEST_F(RealIds, TheIndexAgreesWithAScanOfTheWholeTable) {
   // A sample of the entries: each one's own IDs, and the same device with
   // other subsystems. (The fuzz target compares the two on every input.)
   for (int i = 0; i < table_.DeviceCount(); i += 401) {
      const PCIDevEntry e = table_.DeviceEntry(i);
      for (const auto &[sv, sd] : {std::pair{e.subvendor, e.subdevice}, std::pair<std::uint16_t, std::uint16_t>{0, 0},
                                   std::pair<std::uint16_t, std::uint16_t>{0x1234, 0x5678}}) {
         ASSERT_EQ(table_.FindDeviceIndex(e.vendor, e.device, sv, sd),
                   table_.FindDeviceIndexByScan(e.vendor, e.device, sv, sd))
               << std::hex << e.vendor << ":" << e.device << " " << sv << ":" << sd;
      }
   }
}

}  // namespace
