// Texts of cards on terminals.
#include "tools/emv/gbk.h"

#include <gtest/gtest.h>

namespace {

using namespace qaven::emv;

TEST(CardText, IsGbk) {
    EXPECT_EQ(readable("\xCA\xBE\xC0\xFD shop"), "示例 shop");
    EXPECT_EQ(to_gbk("示例 shop"), "\xCA\xBE\xC0\xFD shop");
}

TEST(CardText, HasItsFillingCutOff) {
    EXPECT_EQ(without_filling("TEST SHOP           "), "TEST SHOP");
    EXPECT_EQ(without_filling(std::string_view("shop\0 \0", 7)), "shop");
    EXPECT_EQ(without_filling("  "), "");
    EXPECT_EQ(in_quotes("TEST SHOP "), "\"TEST SHOP\"");
}

TEST(CardText, ShowsTheBytesOfWhatIsNoText) {
    EXPECT_EQ(readable("a\xFF"
                       "b"),
              "a\\xFFb");
    EXPECT_EQ(readable("shop\xCA"), "shop\\xCA");
    EXPECT_EQ(readable("a\x1B[2J\x7F"), "a\\x1B[2J\\x7F");
}

TEST(CardText, MayHaveCharactersOfTheLargerSet) {
    EXPECT_EQ(readable("\x81\x30\x84\x36"), "\xC2\xA5");
    // But none that steers a terminal.
    EXPECT_EQ(readable("\x81\x30\x83\x37"), "\\x810\\x837");
}

TEST(HostText, ThatACardCannotHaveIsRefused) {
    EXPECT_FALSE(to_gbk("caf\xC3\xA9 \xF0\x9F\x8D\xB5").has_value());
    EXPECT_FALSE(to_gbk("\xCA\xBE").has_value());
}

} // namespace
