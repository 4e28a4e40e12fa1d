// Texts from a card: letters, encodings, masks.
#include "card_text.h"
#include "exit_status.h"
#include "library.h"
#include "terminal.h"

#include <gtest/gtest.h>

namespace {

using tool::LetterFields;

TEST(LetterText, BeginsANewRecordWithALetterThatComesAgain) {
    const std::vector<LetterFields> expected{{{'P', "12"}, {'R', ""}}, {{'P', "345"}}};
    EXPECT_EQ(tool::letter_records("P00212R000P003345"), expected);
}

TEST(LetterText, EndsWhereItIsCutShort) {
    const std::vector<LetterFields> expected{{{'P', "12"}, {'R', "3"}}};
    EXPECT_EQ(tool::letter_records("P00212R0053"), expected);
    EXPECT_EQ(tool::letter_records("P00212R0013S00"), expected);
    EXPECT_TRUE(tool::letter_records("").empty());
}

TEST(LetterText, TakesTheLengthOfATrackTwoWithoutItsPadding) {
    const std::vector<LetterFields> expected{{{'E', "1234567890=12345678"}, {'F', "x"}}};
    EXPECT_EQ(tool::letter_records("E02/1234567890=12345678F001x"), expected);
}

TEST(Encoding, OfCardsIsGbk) {
    EXPECT_EQ(tool::to_utf8("\xCA\xBE\xC0\xFD shop"), "示例 shop");
    EXPECT_EQ(tool::to_gbk("示例 shop"), "\xCA\xBE\xC0\xFD shop");
    EXPECT_EQ(tool::to_utf8("TEST SHOP           "), "TEST SHOP");
}

TEST(Encoding, ShowsAQuestionMarkForWhatIsNoText) {
    EXPECT_EQ(tool::to_utf8("a\xFF"
                            "b"),
              "a?b");
    EXPECT_EQ(tool::to_utf8("shop\xCA"), "shop?");
    EXPECT_THROW(tool::to_gbk("caf\xC3\xA9 \xF0\x9F\x8D\xB5"), tool::UsageError);
}

TEST(Encoding, OfJsonKeepsEveryByte) {
    const std::string bytes = "\x02j\xCA\xBE\xFF\"\\";
    EXPECT_EQ(tool::text_of(tool::json_object("text", bytes), "text"), bytes);
    EXPECT_NE(tool::json_object("text", bytes).find("\xCA\xBE\xFF"), std::string::npos);
}

TEST(Json, WithoutTheKeyGivesNoText) {
    EXPECT_EQ(tool::text_of(R"({"a":"b"})", "c"), "");
    EXPECT_EQ(tool::text_of("no json", "c"), "");
    EXPECT_EQ(tool::text_of("", "c"), "");
}

TEST(Terminal, IsNotSteeredByACard) {
    EXPECT_EQ(tool::printable("a\x1B[2Jb\n\x7F"), "a?[2Jb??");
    EXPECT_EQ(tool::printable("示例"), "示例");
}

TEST(Mask, LeavesTheFirstSixAndTheLastFour) {
    EXPECT_EQ(tool::masked_number("6228000100001234565"), "622800*********4565");
    EXPECT_EQ(tool::masked_number("62280012345"), "622800*2345");
}

TEST(Mask, HidesAShortNumberAltogether) {
    EXPECT_EQ(tool::masked_number("6228001234"), "**********");
    EXPECT_EQ(tool::masked_number(""), "");
}

TEST(Mask, HidesATrackTwoBehindItsSeparator) {
    EXPECT_EQ(tool::masked_track2("6228000100001234565=30122201", '='),
              "622800*********4565=********");
    EXPECT_EQ(tool::masked_track2("6228000100001234565", '='), "622800*********4565");
}

} // namespace
