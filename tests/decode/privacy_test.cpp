// Card numbers do not leave a machine with what is printed here.
#include "decode/privacy.h"

#include "samples.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace tool::test;
using testing::HasSubstr;
using tool::Privacy;

namespace {

TEST(ShowsOfTheseTests, FindsANumberInEveryForm) {
    EXPECT_TRUE(shows("a 6228000100001234565 b", kAccountNumber));
    EXPECT_TRUE(shows("62 28 00 01 00\r\n 00 12 34 56 5F", kAccountNumber));
    EXPECT_TRUE(shows("363232383030303130303030313233343536 35", kAccountNumber));
    EXPECT_FALSE(shows("622800*********4565", kAccountNumber));
}

TEST(MaskedOutput, ShowsNoNumberOfAnySample) {
    for (const Sample& sample : samples()) {
        const std::string text = decoded(sample.text, sample.form);
        EXPECT_FALSE(shows(text, kAccountNumber)) << sample.name << '\n' << text;
        EXPECT_FALSE(shows(text, kIdentityNumber)) << sample.name << '\n' << text;
    }
}

TEST(MaskedOutput, ShowsNoNumberOfATrace) {
    const std::string log = sample_file("transaction.trace");
    ASSERT_TRUE(shows(log, kAccountNumber));
    ASSERT_TRUE(shows(log, kIdentityNumber));
    const std::string text = traced(log);
    EXPECT_FALSE(shows(text, kAccountNumber));
    EXPECT_FALSE(shows(text, kIdentityNumber));
    // Behind expiry and service code there is nothing that anybody needs.
    EXPECT_FALSE(shows(text, "1234567890"));
    EXPECT_THAT(text, HasSubstr("622800*********4565"));
}

TEST(UnmaskedOutput, IsThereForThoseWhoAskForIt) {
    EXPECT_TRUE(shows(traced(sample_file("transaction.trace"), true), kAccountNumber));
    EXPECT_TRUE(shows(decoded("5A0A6228000100001234565F", "", true), kAccountNumber));
}

TEST(MaskedNumber, KeepsSixAndFourDigits) {
    Privacy privacy(false);
    EXPECT_EQ(privacy.number("6228000200006545"), "622800******6545");
    EXPECT_EQ(privacy.number("6228000200"), "**********");
    EXPECT_EQ(Privacy(true).number("6228000200006545"), "6228000200006545");
}

TEST(MaskedNumber, StaysMaskedWhereverItTurnsUp) {
    Privacy privacy(false);
    privacy.number(kAccountNumber);
    EXPECT_EQ(privacy.redacted("x6228000100001234565y"), "x622800*********4565y");
    EXPECT_EQ(privacy.redacted("62 28 00 01 00 00 12 34 56 5F"), "62 28 00 ** ** ** ** *4 56 5F");
    EXPECT_EQ(privacy.redacted("36323238303030313030303031323334353635"),
              "363232383030******************34353635");
    EXPECT_EQ(privacy.redacted("6228000100001234565D30122201234567890F"),
              "622800*********4565D3012220**********F");
    // The end of a line has cut it off.
    EXPECT_EQ(privacy.redacted("number 62280001000012"), "number 622800********");
}

TEST(MaskedNumber, IsFoundAmongAnyNumberOfOthersInTheTimeOfOne) {
    Privacy privacy(false);
    std::string text;
    std::string last;
    for (int card = 0; card < 3000; ++card) {
        last = "62280001" + std::to_string(10000000 + 7919 * card);
        privacy.number(last);
        text += last + " 9F2608D2F6E9DCD5CC9617 ";
    }
    const std::string shown = privacy.redacted(text);
    EXPECT_FALSE(shows(shown, last));
    EXPECT_FALSE(shows(shown, "6228000110000000"));
    // Each of them costs nothing: searching one by one took minutes for this text.
    EXPECT_THAT(shown, HasSubstr("622800******0000 9F2608D2F6E9DCD5CC9617 "));
}

TEST(MaskedNumber, IsOneThoughItsFieldOrItsTextIsDamaged) {
    for (const char* const text : {
             "B0196228000100001234565", // the letter of another field
             "P0196228000100001234565",
             "580A6228000100001234565F",
             "500A6228000100001234565F",
             "{\"IcInfo\": \"A0196228000100001234565\", \"Field60\": \"",
             "{\"6228000100001234565\": 1}",
             "reader 62-28-00-01-00-00-12-34-56-6",
         }) {
        EXPECT_FALSE(shows(decoded(text), kAccountNumber)) << decoded(text);
        EXPECT_FALSE(shows(traced(text), kAccountNumber)) << traced(text);
    }
    EXPECT_FALSE(shows(decoded("6228000100001234565", "aid"), kAccountNumber));
}

TEST(MaskedNumber, IsFoundInTextThatNobodyKnows) {
    Privacy privacy(false);
    privacy.learn("the clerk typed 6228000200006545, then left");
    EXPECT_EQ(privacy.redacted("6228000200006545"), "622800******6545");
    privacy.learn("track 2: 6228000300007773=30122201234567890");
    EXPECT_EQ(privacy.redacted("6228000300007773"), "622800******7773");
    // An amount, a counter and a wrong check digit are no card numbers.
    Privacy other(false);
    other.learn("000000001213 20260102030405 6228000200006546");
    EXPECT_EQ(other.redacted("6228000200006546"), "6228000200006546");
}

TEST(Pin, IsShownToNobody) {
    EXPECT_FALSE(shows(decoded("0020008008241234567890FFFF", "", true), "1234567890"));
    EXPECT_FALSE(shows(decoded("990812345678901234FF", "", true), "1234567890"));
    EXPECT_FALSE(shows(decoded("9908123456789012", "", true), "1234567890"));
    EXPECT_FALSE(shows(decoded("720F860D0020008008241234567890FFFF", "", true), "1234567890"));
    EXPECT_FALSE(shows(traced("to card(HEX): 00 20 00 80 08 24 12 34 56 78 90 FF FF \r\n", true),
                       "1234567890"));
}

} // namespace
