// Lists of data objects in hex.
#include "tools/qaven/field55.h"

#include <gtest/gtest.h>

namespace {

using namespace qaven::cli;

TEST(Objects, AreFoundByTheirTag) {
    const std::string objects = "9A032611219F3602000382007F0105";
    EXPECT_EQ(object_value(objects, 0x9A), "261121");
    EXPECT_EQ(object_value(objects, 0x9F36), "0003");
    EXPECT_EQ(object_value(objects, 0x82), "");
    EXPECT_EQ(object_value(objects, 0x9F26), "");
}

std::string printed(const char* objects, bool show_pan) {
    testing::internal::CaptureStdout();
    print_objects(objects, show_pan);
    return testing::internal::GetCapturedStdout();
}

TEST(Objects, EndWhereTheListIsCutShort) {
    for (const char* const hex : {"", "9A", "9A03", "9A032611", "9F"}) {
        EXPECT_EQ(printed(hex, false), "") << hex;
    }
}

TEST(Objects, HaveTheNamesAndValuesThatDecodeGivesThem) {
    EXPECT_EQ(printed("9C01335F2A020990"
                      "9F0206000000012345",
                      false),
              "  9C    transaction type                      33 (account verification)\n"
              "  5F2A  transaction currency code             0990 (CLF)\n"
              "  9F02  amount, authorised                    1.2345 CLF\n");
}

TEST(Objects, ShowNoCardNumberUnlessTheyMay) {
    const char* const object = "5A0A6228000100001234565F";
    EXPECT_EQ(printed(object, false),
              "  5A    primary account number (PAN)          622800*********4565\n");
    EXPECT_EQ(printed(object, true),
              "  5A    primary account number (PAN)          6228000100001234565\n");
}

} // namespace
