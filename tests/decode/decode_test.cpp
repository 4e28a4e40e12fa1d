// Values of cards, issuers and the library, and what is said about them.
#include "golden.h"
#include "samples.h"
#include "tools/emv/hex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qaven::cli::test;
using testing::EndsWith;
using testing::HasSubstr;
using testing::Not;

namespace {

using namespace qaven::emv;

class Decode : public testing::TestWithParam<Sample> {};

TEST_P(Decode, SaysWhatIsCommitted) {
    expect_committed(GetParam().name, decoded(GetParam().text, GetParam().form));
}

INSTANTIATE_TEST_SUITE_P(Samples, Decode, testing::ValuesIn(samples()), [](const auto& instance) {
    std::string name = instance.param.name;
    std::erase(name, '-');
    return name;
});

TEST(DecodedText, IsGbkWhereverItComesFrom) {
    EXPECT_THAT(decoded("5F2004D5C5C8FD"), HasSubstr("\"张三\""));
    // People paste what their terminal showed; the length counts the characters' GBK.
    EXPECT_THAT(decoded("B004张三"), HasSubstr("B cardholder name: \"张三\""));
}

TEST(DecodedText, CannotMoveTheCursor) {
    const std::string text = decoded("5F20081B5B324A9B410A0D");
    EXPECT_THAT(text, HasSubstr("\\x1B[2J"));
    EXPECT_THAT(text, Not(HasSubstr("\x1B")));
    EXPECT_THAT(text, Not(HasSubstr("\r")));
}

TEST(DecodedAmount, FollowsTheCurrencyBesideIt) {
    EXPECT_THAT(decoded("9F02060000000012135F2A020156"), HasSubstr("12.13 CNY"));
    EXPECT_THAT(decoded("9F02060000000012135F2A020392"), HasSubstr("1213 JPY"));
    EXPECT_THAT(decoded("9F02060000000012135F2A020414"), HasSubstr("1.213 KWD"));
    EXPECT_THAT(decoded("9F0206000000001213"), HasSubstr("authorised: 12.13\n"));
    // What was paid in units of account with four decimals, as a host and as a card write it.
    EXPECT_THAT(decoded("9F02060000000123455F2A020990"), HasSubstr("1.2345 CLF"));
    EXPECT_THAT(decoded("P012000000012345R0040990"), HasSubstr("1.2345 CLF"));
    EXPECT_THAT(decoded("9F020600000000000A"), HasSubstr("not an amount"));
}

TEST(DecodedDate, IsADateOrSaysThatItIsNone) {
    EXPECT_THAT(decoded("9A03300228"), HasSubstr("2030-02-28"));
    EXPECT_THAT(decoded("5F2403991231"), HasSubstr("1999-12-31"));
    EXPECT_THAT(decoded("9A03301331"), HasSubstr("(not a date)"));
    EXPECT_THAT(decoded("9A03201904"), HasSubstr("as YYYYMM, 2019-04"));
}

TEST(DecodedResponseCode, IsSaidInWords) {
    EXPECT_THAT(decoded("8A023132"), HasSubstr("\"12\" (declined: invalid transaction)"));
}

TEST(DecodedTrack2, InFullOnlyWhenAskedFor) {
    const std::string track = "57136228000100001234565D30122201234567890F";
    EXPECT_THAT(decoded(track), HasSubstr("622800*********4565, expiry 2030-12, service code 220"));
    EXPECT_THAT(decoded(track, "", true), HasSubstr("6228000100001234565"));
    EXPECT_THAT(decoded(track, "", true), HasSubstr("discretionary data 1234567890"));
}

TEST(DecodedCardInformation, TakesTheLengthThatHasLostAFillingDigit) {
    EXPECT_THAT(decoded("E02/622800020000654=301B003ABC", "cardinfo"),
                HasSubstr("B cardholder name: \"ABC\""));
}

TEST(DecodedAid, IsKnownWithoutItsName) {
    EXPECT_THAT(decoded("A000000333010101"), HasSubstr("UnionPay"));
    EXPECT_THAT(decoded("A00000033301010299"), HasSubstr("application identifier"));
    // A card without an account number, and its name.
    EXPECT_THAT(decoded("A000B003ABC"), HasSubstr("B cardholder name: \"ABC\""));
}

TEST(DecodedRequest, NamesValuesOfTheWrongType) {
    EXPECT_THAT(decoded(R"({"AIDList":"","isReadArqc":true})"), HasSubstr("! has to be a text"));
    EXPECT_THAT(decoded(R"({"TagList":5})"), HasSubstr("! has to be a text"));
    EXPECT_THAT(decoded(R"({"Status":"0"})"), HasSubstr("! has to be a number"));
    EXPECT_THAT(decoded(R"({"Status":0,"isReadArqc":"true"})"), Not(HasSubstr("!")));
}

TEST(DecodedRequest, CanBeNestedToAnyDepth) {
    std::string arrays = "{\"x\":" + std::string(50000, '[') + std::string(50000, ']') + "}";
    std::string answers;
    for (int depth = 0; depth < 50000; ++depth) {
        answers += R"({"IcARQC":)";
    }
    for (const std::string& text : {arrays, answers + "1" + std::string(50000, '}'), answers}) {
        EXPECT_THAT(decoded(text), HasSubstr("! nested too deep: "));
        EXPECT_THAT(traced("resmsg:" + text + "\r\n"), HasSubstr("not a JSON object"));
    }
    EXPECT_THAT(decoded(R"({"x":[[["deep enough"]]]})"), HasSubstr("deep enough"));
}

TEST(DecodedObject, HasTheSizeAndTheDayThatItsFormHas) {
    for (const char* const text :
         {"82037C0000", "9F0205000000001213",
          "9F1021"
          "000102030405060708090A0B0C0D0E0F"
          "101112131415161718191A1B1C1D1E1F20",
          "9A022604", "5F2A0156", "5F2A03015600", "9F570101", "9504000800600000", "95060008006000",
          "9B03E80000", "9F270280FF"}) {
        EXPECT_THAT(decoded(text), HasSubstr("! ")) << text;
    }
    EXPECT_THAT(decoded("0008006000FF", "tvr"), HasSubstr("! has 6 bytes instead of 5"));
    EXPECT_THAT(decoded("E8", "tsi"), HasSubstr("! has 1 byte instead of 2"));
    EXPECT_THAT(decoded("03A0000000", "cvr"), HasSubstr("! card verification results have"));
    EXPECT_THAT(decoded("5F2403300230"), HasSubstr("! the calendar has no such day"));
    EXPECT_THAT(decoded("5F2403280229"), Not(HasSubstr("!")));
    EXPECT_THAT(decoded("9F3B0401560840"), HasSubstr("0156 (CNY), 0840 (USD)\n"));
}

TEST(DecodedBits, ComeInTheirOrderWithAllTheirMeanings) {
    EXPECT_THAT(decoded("FE80", "aip"),
                HasSubstr("byte 1 bit 8: reserved, but set\n  byte 1 bit 7: static"));
    EXPECT_THAT(decoded("0080", "aip"), HasSubstr("byte 2 bit 8: contactless: EMV mode"));
    EXPECT_THAT(decoded("9F660426000080"), HasSubstr("byte 4 bit 8: fDDA version 01 is supported"));
    EXPECT_THAT(decoded("9F270184"), HasSubstr("byte 1 bits 3-1: reason: reserved value 4"));
    EXPECT_THAT(decoded("9F270187"), HasSubstr("byte 1 bits 3-1: reason: reserved value 7"));
    EXPECT_THAT(decoded("9F5B0A20000000011300000002"),
                HasSubstr("result 13: the script failed at command 3\n"
                          "    script identifier (9F18): 00000002"));
}

TEST(DecodedLog, OfLoadsIsKnownByItsKey) {
    const std::string log = "P0049F79Q012000000000000R012000000100000S006250101";
    EXPECT_THAT(decoded(R"({"LoadLog":")" + log + "\"}"), HasSubstr("load log"));
    EXPECT_THAT(decoded(R"({"LoadLog":")" + log + "\"}"), HasSubstr("1000.00"));
}

TEST(DecodedLog, HasCountBytesOfAnyValue) {
    // Ten entries are a line feed, and JSON writes it as an escape.
    const std::string entry = "P012000000001213R0040156W003ABC";
    EXPECT_THAT(decoded("\n\x1F" + entry),
                HasSubstr("entries: 10, characters of the last one: 31"));
    EXPECT_THAT(decoded("\\u000A\\u001f" + entry), HasSubstr("entries: 10"));
    EXPECT_THAT(decoded("{\"TxDtailRet\":\"\\n\xEA" + entry + "\"}"),
                HasSubstr("entries: 10, characters of the last one: 234"));
}

TEST(DecodedObjects, StopWhereTheyStopMakingSense) {
    EXPECT_THAT(decoded("9F2608112233445566778895"),
                HasSubstr("! at byte 12: the data end before the length of object 95"));
    EXPECT_THAT(decoded("950500080060009F3602"),
                HasSubstr("! at byte 10: the data end here; object "
                          "9F36 announces 2 bytes, 0 are there"));
    EXPECT_THAT(decoded("9584FFFFFFFF"), HasSubstr("! at byte 1: 84 is no length of object 95"));
    EXPECT_THAT(decoded("95x5"), HasSubstr("! at character 0"));
    EXPECT_THAT(decoded("95x5", "tlv"), HasSubstr("! at character 2: no hexadecimal digit"));
}

TEST(DecodedAnswerToReset, HasTimesInTheirUnits) {
    // At 3.57 MHz: 372 cycles an etu without TA1, 512/16 with 95.
    EXPECT_THAT(decoded("3B4002", "atr"), HasSubstr("extra guard time 2: 14 etu, 1.46 ms\n"));
    EXPECT_THAT(decoded("3B40FF", "atr"), HasSubstr("shortest guard time: 12 etu, 1.25 ms\n"));
    EXPECT_THAT(decoded("3BC0FF0141", "atr"), HasSubstr("shortest guard time: 11 etu, 1.15 ms\n"));
    EXPECT_THAT(decoded("3B80400A", "atr"),
                HasSubstr("waiting time (T=0) 10: 9600 etu, 1000.34 ms\n"));
    EXPECT_THAT(decoded("3B9095400A", "atr"),
                HasSubstr("waiting time (T=0) 10: 153600 etu, 1376.81 ms\n"));
    EXPECT_THAT(decoded("3B804000", "atr"), HasSubstr("waiting time (T=0) 0: reserved\n"));
    EXPECT_THAT(decoded("3B8081214560", "atr"),
                HasSubstr("block waiting time 4: 1601.68 ms; "
                          "character waiting time 5: 43 etu, 4.48 ms\n"));
    EXPECT_THAT(decoded("3B808121A580", "atr"), HasSubstr("block waiting time 10: reserved; "));
}

TEST(DecodedAnswerToReset, HasTheObjectsOfItsHistoricalBytes) {
    const std::string objects = decoded("3B0F"
                                        "8012156F31C0730102034254457381"
                                        "07",
                                        "atr");
    EXPECT_THAT(objects, HasSubstr("category 80: COMPACT-TLV objects\n"));
    EXPECT_THAT(objects, HasSubstr("12 country code: 156 (China)\n"));
    EXPECT_THAT(objects, HasSubstr("31 card service data: C0\n"));
    EXPECT_THAT(objects, HasSubstr("73 card capabilities: 010203\n"));
    EXPECT_THAT(objects, HasSubstr("42 initial access data: 5445\n"));
    EXPECT_THAT(objects, HasSubstr("! at byte 15: object 73 is longer than the historical bytes"));
    EXPECT_THAT(decoded("3B0480829000", "atr"), HasSubstr("82 status indicator: 9000 (success)\n"));
    EXPECT_THAT(decoded("3B0380810F", "atr"),
                HasSubstr("81 status indicator: life cycle 0F (terminated)\n"));
    EXPECT_THAT(decoded("3B0400079000", "atr"),
                HasSubstr("status indicator: life cycle 07 (activated), 9000 (success)\n"));
    EXPECT_THAT(decoded("3B0200FF", "atr"), HasSubstr("! at byte 4: the status indicator has 3"));
    EXPECT_THAT(decoded("3B021002", "atr"), HasSubstr("category 10: DIR data reference 02\n"));
    EXPECT_THAT(decoded("3B080056414243444546", "atr"), HasSubstr("! at byte 3: object 56"));
}

TEST(DecodedAnswerToReset, HasARightCheckByteUnlessItHasNone) {
    EXPECT_THAT(decoded("3B800180", "atr"), HasSubstr("! TCK 80: the check byte is wrong"));
    EXPECT_THAT(decoded("3B800180"), HasSubstr("! TCK 80: the check byte is wrong"));
    EXPECT_THAT(decoded("3B8001", "atr"),
                HasSubstr("! at byte 3: the check byte (TCK) is missing"));
    EXPECT_THAT(decoded("3B800F", "atr"),
                HasSubstr("! at byte 3: the check byte (TCK) is missing"));
    EXPECT_THAT(decoded("3B8000", "atr"), Not(HasSubstr("!")));
}

TEST(DecodedUnknownValue, IsShownWithoutItsLongEnd) {
    const std::string number = "zz " + std::string(2'000'000, '7');
    const std::string blanks = "zz " + std::string(2'000'000, '-');
    const std::string rest = " (1999003 more characters left out)\n";
    EXPECT_EQ(decoded(number), "! at character 0: nothing tells what this is: \"zz 777777" +
                                   std::string(991, '*') + '"' + rest);
    EXPECT_THAT(decoded(blanks), EndsWith("---\"" + rest));
    for (const std::string& text : {"{\"x\":\"" + blanks + "\"}", "{\"x\":" + blanks}) {
        EXPECT_THAT(decoded(text), HasSubstr(" more characters left out)\n"));
        EXPECT_LT(decoded(text).size(), 1200U);
    }
    EXPECT_LT(decoded("95" + blanks, "tlv").size(), 1200U);
    EXPECT_THAT(decoded("zz " + std::string(997, '-')), Not(HasSubstr("left out")));
    // The cut goes through the number, whose first eight digits would tell it.
    const std::string ahead = "zz " + std::string(985, '.');
    EXPECT_FALSE(shows(decoded(ahead + kAccountNumber), kAccountNumber, 8));
}

TEST(DecodedStatusWord, IsSaidInWords) {
    EXPECT_THAT(decoded("9000"), HasSubstr("success"));
    EXPECT_THAT(decoded("6110"), HasSubstr("16 more bytes"));
    EXPECT_THAT(decoded("6C00"), HasSubstr("256 bytes"));
    EXPECT_THAT(decoded("63C1"), HasSubstr("tries left: 1"));
    EXPECT_THAT(decoded("6985"), HasSubstr("conditions of use"));
    EXPECT_THAT(decoded("9999", "sw"), HasSubstr("unknown status word"));
}

} // namespace
