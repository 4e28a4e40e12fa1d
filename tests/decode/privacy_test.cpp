// Card numbers do not leave a machine with what is printed here.
#include "tools/emv/privacy.h"

#include "tools/emv/gbk.h"

#include "samples.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>

using namespace qaven::cli::test;
using testing::HasSubstr;

namespace {

using namespace qaven::emv;

// Shorter runs of digits could be anything.
constexpr std::size_t kTelling = 13;

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

TEST(MaskedNumber, KeepsSixAndFourCharacters) {
    Privacy privacy(false);
    EXPECT_EQ(privacy.number("6228000200006545"), "622800******6545");
    EXPECT_EQ(privacy.number("62280012345"), "622800*2345");
    EXPECT_EQ(privacy.number("6228000200"), "**********");
    EXPECT_EQ(privacy.number(""), "");
    EXPECT_EQ(Privacy(true).number("6228000200006545"), "6228000200006545");
    // The number of a military officer's card begins with Chinese characters.
    EXPECT_EQ(readable(privacy.number(to_gbk("军字第123456789号").value())), "军字第123***789号");
    EXPECT_EQ(readable(privacy.number(to_gbk("军字第1234567").value())), "**********");
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

// The front of a number may be lost, or something in its middle be wrong: what is left looks like
// no number, and is a good part of one.
TEST(PartOfANumber, IsNotShownUnderTheNameOfAnotherValue) {
    for (const char* const form : {"aid", "aidlist", "cvm", "iad", "response", "tlv", "afl"}) {
        for (const char* const text : {"28000100001234565F820279009F3602001A",
                                       "70155A0A6228F00100001234565F5F24033012315F340101",
                                       "96228000100001234565", "2800010000123455"}) {
            const std::string said = decoded(text, form);
            EXPECT_FALSE(shows(said, kAccountNumber, kTelling)) << form << '\n' << said;
        }
    }
}

TEST(PartOfANumber, IsNotShownAtHalfAByte) {
    for (const char* const text : {
             "sent(HEX): 41 30 31 39 36 2 32 38 30 30 30 31 30 30 30 30 31 32 33 34 35 36 35 42",
             "HEX: 5A 0A 62 F8 00 01 00 00 12 34 56 5F 5F 34 01 01 ",
             "80A800000C830A65F228000100001234565F",
             "80A800000C830A62280A0100001234565F",
             "00DC0114175A0A622808000100001234565F5F2400100001234565F5",
         }) {
        EXPECT_FALSE(shows(traced(text), kAccountNumber, kTelling)) << traced(text);
    }
}

TEST(PartOfANumber, IsNotShownInAName) {
    const std::string said = decoded("B015TE1101011990010I006301231");
    EXPECT_FALSE(shows(said, kIdentityNumber, kTelling)) << said;
    EXPECT_THAT(decoded("P012000000001213V015104110070110001"), HasSubstr("104110070110001"));
}

TEST(PartOfANumber, IsNoTimeOfDayThatNoClockShows) {
    EXPECT_FALSE(shows(decoded("? 20001000012345 ?"), "20001000012345", kTelling));
    EXPECT_THAT(decoded("? 20260102030405 ?"), HasSubstr("20260102030405"));
}

TEST(LongDigits, AreShownWhereTheirLayoutSaysWhatTheyAre) {
    const std::vector<std::array<const char*, 2>> values{
        {"afl", "0801020210010200180104012002030110040500"},
        {"cvm", "000000000000000042031E031F00"},
        {"iad", "07010103600000010102030405060708"},
        {"aid", "A000000333010101"},
        {"apdu", "80AE800020000000001213000000000000015600800600000156190422339F8E7D6C161355"},
        {"tlv", "830D01000000000012015601560156"},
        {"tlv", "910A11223344556677883030"},
        {"tlv", "9F26081122334455667788"},
        {"tlv", "9F631030303031303030300000000000000000"},
    };
    for (const auto& [form, digits] : values) {
        EXPECT_THAT(decoded(digits, form), testing::Not(HasSubstr("*"))) << digits;
    }
    const std::string record = "25 03 02 10 15 30 00 00 00 00 12 50 00 00 00 00 00 00 01 56 01 56 ";
    EXPECT_THAT(traced("read(HEX): " + record), testing::Not(HasSubstr("*")));
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
