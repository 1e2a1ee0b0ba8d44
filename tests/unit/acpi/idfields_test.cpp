// Scanning the ID fields of a bus ID text for the hardware ID.
#include "acpi/idfields.h"

#include <gtest/gtest.h>

#include <string>

namespace {

std::string Hid(std::string_view busId) {
   return ParseIdFields(busId).h.text;
}

TEST(IdFieldsTest, FieldsAreSteppedOverToFindTheHid) {
   EXPECT_EQ(Hid("s5ABCDEh7PNP0A03"), "PNP0A03");
   // Code letters inside a field's characters are not fields of their own.
   EXPECT_EQ(Hid("s5chrsxh7PNP0A03"), "PNP0A03");
   const IdFields all = ParseIdFields("c7PNP0A03h7PNP0A08r1Ax3UIDs4PCI0");
   EXPECT_STREQ(all.c.text, "PNP0A03");
   EXPECT_STREQ(all.h.text, "PNP0A08");
   EXPECT_STREQ(all.r.text, "A");
   EXPECT_STREQ(all.x.text, "UID");
   EXPECT_STREQ(all.s.text, "PCI0");
}

TEST(IdFieldsTest, TwoDigitLengthsCopyThatManyCharacters) {
   EXPECT_EQ(Hid("h12ABCDEFGHIJKLs1x"), "ABCDEFGHIJKL");
}

TEST(IdFieldsTest, OtherBytesAreNotCodes) {
   EXPECT_EQ(Hid("a3XYZh7PNP0A03"), "PNP0A03");
   EXPECT_EQ(Hid("H7PNP0A03"), "");
   EXPECT_EQ(Hid(""), "");
}

TEST(IdFieldsTest, AFieldThatCannotBeCopiedLeavesScanningAfterItsDigits) {
   // 20 characters do not follow, so scanning goes on at "PNP" and finds h3.
   EXPECT_EQ(Hid("h20PNPh3XYZ"), "XYZ");
   EXPECT_EQ(Hid("h0h7PNP0A03"), "PNP0A03");
   EXPECT_EQ(Hid("h99999999999999999999999999"), "");
   EXPECT_EQ(Hid("h"), "");
}

TEST(IdFieldsTest, FieldsEndWithinSixtyFourBytesAndTheTerminator) {
   EXPECT_EQ(Hid(std::string(59, 'z') + "h3ABC"), "ABC");  // ends at byte 64
   EXPECT_EQ(Hid(std::string(60, 'z') + "h3ABC"), "");     // would end at byte 65
   EXPECT_EQ(Hid(std::string("h4AB\0CD", 7)), "");         // runs past the terminator
}

TEST(IdFieldsTest, ALaterFieldReplacesAnEarlierOne) {
   EXPECT_EQ(Hid("h7PNP0A03h2XY"), "XY");
}

TEST(IdFieldsTest, ParseIdFieldReportsWhatItTook) {
   IdField field;
   EXPECT_EQ(ParseIdField("3ABCrest", field), 4u);
   EXPECT_STREQ(field.text, "ABC");
   IdField untouched;
   EXPECT_EQ(ParseIdField("12AB", untouched), 2u);
   EXPECT_STREQ(untouched.text, "");
   EXPECT_EQ(ParseIdField("XYZ", untouched), 0u);
}

}  // namespace
