// The search order of the ID files: ZLC_HWDATA_DIR, else per name the system's
// directory, then the installation's own; a name found nowhere is read from
// the system's directory so that its message names it.
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "hwdata.h"

namespace {

namespace fs = std::filesystem;

class HwdataSearch : public testing::Test {
protected:
   void SetUp() override {
      root_ = fs::temp_directory_path() / ("hwdata-test-" + std::to_string(::getpid()));
      system_ = root_ / "usr/share/hwdata";
      own_ = root_ / "opt/share/hwdata";
      fs::create_directories(system_);
      fs::create_directories(own_);
      std::ofstream(system_ / "pci.ids") << "ffff\n";
      std::ofstream(own_ / "pci.ids") << "ffff\n";
      std::ofstream(own_ / "acpiHIDs.ids") << "PNP0A03\tPCI bus\n";
   }
   void TearDown() override { fs::remove_all(root_); }

   std::string Choose(const char *name, const char *override) const {
      const std::vector<std::string> candidates = {system_.string(), own_.string()};
      return hwdata::ChooseDirectory(name, override, candidates);
   }

   fs::path root_;
   fs::path system_;
   fs::path own_;
};

TEST_F(HwdataSearch, EachNameIsTakenFromTheFirstDirectoryThatHoldsIt) {
   struct Case {
      const char *name;
      const char *override;
      fs::path want;
   } cases[] = {
         {"pci.ids", nullptr, system_},            // in both: the system's wins
         {"acpiHIDs.ids", nullptr, own_},          // only in the installation's
         {"acpiClasses.ids", nullptr, system_},    // nowhere: the system's, for the message
         {"acpiHIDs.ids", "", own_},               // an empty override is none
         {"pci.ids", "/elsewhere", "/elsewhere"},  // the override wins, held or not
   };
   for (const Case &c : cases) {
      EXPECT_EQ(Choose(c.name, c.override), c.want.string())
            << c.name << " override " << (c.override ? c.override : "-");
   }
}

TEST_F(HwdataSearch, AnUnknownInstallationIsPassedOver) {
   const std::vector<std::string> candidates = {system_.string(), ""};
   EXPECT_EQ(hwdata::ChooseDirectory("acpiHIDs.ids", nullptr, candidates), system_.string());
}

}  // namespace
