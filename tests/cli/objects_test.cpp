// Lists of data objects.
#include "objects.h"

#include <gtest/gtest.h>

namespace {

TEST(Objects, HaveTagsOfOneByteOrTwo) {
    const auto objects = tool::read_objects("9A032611219F3602000382007F0105");
    ASSERT_EQ(objects.size(), 3U);
    EXPECT_EQ(tool::object_value(objects, "9A"), "261121");
    EXPECT_EQ(tool::object_value(objects, "9F36"), "0003");
    EXPECT_EQ(tool::object_value(objects, "82"), "");
    EXPECT_FALSE(tool::object_value(objects, "7F01").has_value());
}

TEST(Objects, EndWhereTheListIsCutShort) {
    for (const char* const hex : {"", "9A", "9A03", "9A032611", "9F"}) {
        EXPECT_TRUE(tool::read_objects(hex).empty()) << hex;
    }
}

TEST(Objects, ShowNoCardNumberUnlessTheyMay) {
    const auto objects = tool::read_objects("5A0A6228000100001234565F");
    testing::internal::CaptureStdout();
    tool::print_objects(objects, false);
    tool::print_objects(objects, true);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "  5A    card number             622800*********4565\n"
              "  5A    card number             6228000100001234565\n");
}

} // namespace
