// Texts on a terminal: controls, masks.
#include "card_text.h"
#include "terminal.h"

#include <gtest/gtest.h>

namespace {

TEST(Terminal, IsNotSteeredByACard) {
    EXPECT_EQ(tool::printable("a\x1B[2Jb\n\x7F"), "a?[2Jb??");
    EXPECT_EQ(tool::printable("示例 \xF0\x9F\x8D\xB5"), "示例 \xF0\x9F\x8D\xB5");
}

TEST(Terminal, IsNotSteeredByControlsBehindAscii) {
    EXPECT_EQ(tool::printable("a\xC2\x9B"
                              "2J"),
              "a?2J");
}

TEST(Terminal, GetsNothingThatIsNoUtf8) {
    for (const char* const text : {"\x9B", "\xC2", "\xC0\x9B", "\xFF", "\xF5\x80\x80\x80"}) {
        EXPECT_EQ(tool::printable(text), std::string(std::string_view(text).size(), '?'));
    }
    for (const char* const text :
         {"\xE0\x82\x9B", "\xED\xA0\x80", "\xF0\x80\x82\x9B", "\xF4\x90\x80\x80", "\xE7\xA4"}) {
        EXPECT_EQ(tool::printable(text), std::string(std::string_view(text).size(), '?'));
    }
}

TEST(Mask, LeavesTheFirstSixAndTheLastFour) {
    EXPECT_EQ(tool::masked_number("6228000100001234565"), "622800*********4565");
    EXPECT_EQ(tool::masked_number("62280012345"), "622800*2345");
}

TEST(Mask, HidesAShortNumberAltogether) {
    EXPECT_EQ(tool::masked_number("6228001234"), "**********");
    EXPECT_EQ(tool::masked_number(""), "");
}

TEST(Mask, CountsCharactersNotBytes) {
    EXPECT_EQ(tool::masked_number("军字第123456789号"), "军字第123***789号");
    EXPECT_EQ(tool::masked_number("军字第1234567"), "**********");
}

TEST(Mask, HidesATrackTwoBehindItsSeparator) {
    EXPECT_EQ(tool::masked_track2("6228000100001234565=30122201", '='),
              "622800*********4565=********");
    EXPECT_EQ(tool::masked_track2("6228000100001234565", '='), "622800*********4565");
}

} // namespace
