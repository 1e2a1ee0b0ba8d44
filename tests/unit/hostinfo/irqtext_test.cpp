// The device text of an interrupt cookie's row and its cut at 63 characters.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "hostinfo/irqtext.h"

namespace {

std::string Text(const std::vector<const char *> &names) {
   return irqinfo::DeviceText(names);
}

TEST(DeviceText, DevicesJoinedWithoutATrailingSeparator) {
   EXPECT_EQ(Text({}), "");
   EXPECT_EQ(Text({"nic0"}), "ZLC nic0");
   EXPECT_EQ(Text({"nic0", nullptr, "hba1"}), "ZLC nic0, ZLC device, ZLC hba1");
}

TEST(DeviceText, CutAtSixtyThreeCharactersWhereverTheCutFalls) {
   const std::string name58(58, 'n');
   // 62 characters, then the separator has room for its comma only.
   EXPECT_EQ(Text({name58.c_str(), "x"}), "ZLC " + name58 + ",");
   // Exactly 63: nothing of the next device fits.
   const std::string name59(59, 'n');
   EXPECT_EQ(Text({name59.c_str(), "x", "y"}), "ZLC " + name59);
   // A cut inside the "ZLC " of a later device.
   const std::string name55(55, 'n');
   EXPECT_EQ(Text({name55.c_str(), "x"}), "ZLC " + name55 + ", ZL");
   // A name far longer than the room.
   const std::string name200(200, 'n');
   EXPECT_EQ(Text({name200.c_str()}), "ZLC " + std::string(59, 'n'));
   EXPECT_EQ(Text({name200.c_str()}).size(), irqinfo::kDeviceTextSize - 1);
}

}  // namespace
