// The host's description of a transaction: walked, completed, converted.
#include "engine/data/transaction_data.h"

#include "exact_buffer.h"
#include "fixed_clock.h"
#include "tests/support/hex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <string>
#include <string_view>

namespace transaction_data = qaven::transaction_data;
using qaven::test::Bytes;
using qaven::test::bytes;
using qaven::test::exact;
using qaven::test::exact_text;
using qaven::test::FixedClock;
using qaven::test::hex;
using qaven::test::kUntouchedByte;
using qaven::test::repeated;
using qaven::test::room;

namespace {

constexpr int kUntouched = 99;

// As a host sends it: 12.13 yuan, a merchant's name, a trailing blank.
constexpr std::string_view kPurchase =
    "P012000000001213Q012000000000000R0040156S00820190422T00203U006161355I00200V013LURO CNT 0328 ";

std::string text_of(std::span<const std::uint8_t> characters) {
    std::string text;
    for (const std::uint8_t character : characters) {
        text.push_back(static_cast<char>(character));
    }
    return text;
}

std::string zeros(std::size_t count) {
    std::string text;
    text.resize(count);
    return text;
}

// --- the clock ---

TEST(TransactionClock, GivesHourMinuteAndSecond) {
    const FixedClock clock(2019, 4, 22, 7, 5, 9);
    Bytes out = room(8);
    GetTime(out.data());
    EXPECT_EQ(text_of(out), "070509" + zeros(2));
}

TEST(TransactionClock, IsTheCountersLocalTime) {
    const FixedClock clock(2019, 4, 22, 16, 13, 55);
    FixedClock::set_zone("CST-8");
    Bytes out = room(8);
    GetTime(out.data());
    EXPECT_EQ(text_of(out), "001355" + zeros(2));
}

// --- lengths ---

TEST(RecordLength, IsADecimalNumberOfSoManyCharacters) {
    const Bytes digits = exact("303132"); // "012" without a terminator
    const auto* const text = reinterpret_cast<const char*>(digits.data());
    EXPECT_EQ(getLen(text, 3), 12);
    EXPECT_EQ(getLen(text, 2), 1);
    EXPECT_EQ(getLen(text, 0), 0);
}

TEST(RecordLength, IsWhatItsLeadingDigitsSay) {
    EXPECT_EQ(getLen("01X", 3), 1);
    EXPECT_EQ(getLen(" 12", 3), 12);
    EXPECT_EQ(getLen("-12", 3), -12);
    EXPECT_EQ(getLen("+12", 3), 12);
    EXPECT_EQ(getLen("ABC", 3), 0);
    EXPECT_EQ(getLen("", 0), 0);
}

TEST(RecordLength, IsReadFrom31CharactersAtMost) {
    const Bytes digits = exact(repeated("30", 30) + "37"); // thirty '0' and a '7'
    EXPECT_EQ(getLen(reinterpret_cast<const char*>(digits.data()), 31), 7);
    EXPECT_EQ(getLen(reinterpret_cast<const char*>(digits.data()), 100), 7);
}

// --- looking up a letter ---

struct Found {
    std::ptrdiff_t offset; // of the letter; -1 when there is none
    int length;
};

Found look_up(std::string_view text, char letter) {
    const std::string copy(text);
    // No terminator behind the text.
    const Bytes characters(copy.begin(), copy.end());
    const auto* const data = reinterpret_cast<const char*>(characters.data());
    int length = kUntouched;
    const char* const record = getTag(data, static_cast<int>(characters.size()), letter, &length);
    return {record == nullptr ? -1 : record - data, length};
}

TEST(RecordLookUp, FindsEveryLetter) {
    const struct {
        std::ptrdiff_t offset;
        int length;
        char letter;
    } records[] = {{0, 12, 'P'}, {16, 12, 'Q'}, {32, 4, 'R'}, {40, 8, 'S'},
                   {52, 2, 'T'}, {58, 6, 'U'},  {68, 2, 'I'}, {74, 13, 'V'}};
    for (const auto& record : records) {
        const Found found = look_up(kPurchase, record.letter);
        EXPECT_EQ(found.offset, record.offset) << record.letter;
        EXPECT_EQ(found.length, record.length) << record.letter;
    }
}

TEST(RecordLookUp, DoesNotFindALetterThatIsOnlyInAValue) {
    EXPECT_EQ(look_up(kPurchase, 'L').offset, -1);
    EXPECT_EQ(look_up(kPurchase, 'Z').offset, -1);
    EXPECT_EQ(look_up(kPurchase, 'Z').length, kUntouched);
}

TEST(RecordLookUp, FindsTheFirstOfTwo) {
    EXPECT_EQ(look_up("T00203T00233", 'T').offset, 0);
    EXPECT_EQ(look_up("V003T00T00233", 'T').offset, 7);
}

TEST(RecordLookUp, NeedsNoLength) {
    const std::string text(kPurchase);
    EXPECT_EQ(getTag(text.data(), static_cast<int>(text.size()), 'T', nullptr), text.data() + 52);
}

TEST(RecordLookUp, CutsARecordAtTheEndOfTheText) {
    EXPECT_EQ(look_up("T00203V999AB", 'V').offset, 6);
    EXPECT_EQ(look_up("T00203V999AB", 'V').length, 2);
    EXPECT_EQ(look_up("T00203V999AB", 'A').offset, -1);
}

TEST(RecordLookUp, TakesANegativeLengthForZero) {
    EXPECT_EQ(look_up("P-12T00203", 'P').length, 0);
    EXPECT_EQ(look_up("P-12T00203", 'T').offset, 4);
}

TEST(RecordLookUp, IgnoresWhatIsTooShortForALetterAndALength) {
    for (const std::string_view rest : {"V", "V0", "V01"}) {
        EXPECT_EQ(look_up("T00203" + std::string(rest), 'V').offset, -1) << rest;
    }
    EXPECT_EQ(look_up("T00203V000", 'V').offset, 6);
    EXPECT_EQ(look_up("T00203V000", 'V').length, 0);
}

TEST(RecordLookUp, FindsNothingInNoText) {
    int length = kUntouched;
    EXPECT_EQ(getTag("T00203", 0, 'T', &length), nullptr);
    EXPECT_EQ(getTag("T00203", -1, 'T', &length), nullptr);
    EXPECT_EQ(getTag(nullptr, 6, 'T', &length), nullptr);
    EXPECT_EQ(length, kUntouched);
}

// --- completion ---

using Completion = int (*)(unsigned char* in, unsigned char* out);

// What a zeroed buffer of 92 bytes holds afterwards.
std::string completed(Completion complete, std::string_view text) {
    Bytes in = exact_text(text);
    Bytes out(92);
    EXPECT_EQ(complete(in.data(), out.data()), 0);
    return text_of(out);
}

std::string for_arqc(std::string_view text) {
    return completed(GetTransData, text);
}

std::string for_issuer_answer(std::string_view text) {
    return completed(ARPCGetTransData, text);
}

constexpr std::string_view kAmounts = "P012000000000000Q012000000000000R0040156";
constexpr std::string_view kNoMerchant = "V02000000000000000000000";

std::string completed_text(std::string_view date, std::string_view time,
                           std::string_view merchant) {
    return std::string(kAmounts) + "S006" + std::string(date) + "T00233U006" + std::string(time) +
           std::string(merchant) + zeros(2);
}

class Completed : public testing::Test {
  protected:
    FixedClock clock{2019, 4, 22, 16, 13, 55};
};

TEST_F(Completed, AnEmptyTextHasTheTerminalsValuesAndTheCurrentTime) {
    EXPECT_EQ(for_arqc(""), completed_text("000000", "161355", kNoMerchant));
    EXPECT_EQ(for_issuer_answer(""), completed_text("000000", "161355", kNoMerchant));
}

TEST_F(Completed, NoTextIsAnEmptyOne) {
    Bytes out(92);
    EXPECT_EQ(GetTransData(nullptr, out.data()), 0);
    EXPECT_EQ(text_of(out), completed_text("000000", "161355", kNoMerchant));
}

TEST_F(Completed, AHostsTextHasItsDateTimeAndMerchant) {
    const std::string merchant = "V020LURO CNT 0328" + zeros(7);
    EXPECT_EQ(for_arqc(kPurchase), completed_text("190422", "161355", merchant));
    EXPECT_EQ(for_issuer_answer(kPurchase), completed_text("201904", "161355", merchant));
}

TEST_F(Completed, TheArqcTakesTheDateBehindTheCentury) {
    EXPECT_EQ(for_arqc("S00820190422"), completed_text("190422", "161355", kNoMerchant));
}

TEST_F(Completed, TheIssuersAnswerTakesTheDateAsItBegins) {
    EXPECT_EQ(for_issuer_answer("S00820190422"), completed_text("201904", "161355", kNoMerchant));
}

TEST_F(Completed, ASixDigitDateLosesItsYearForTheArqcOnly) {
    EXPECT_EQ(for_arqc("S006330201"), completed_text("0201" + zeros(2), "161355", kNoMerchant));
    EXPECT_EQ(for_issuer_answer("S006330201"), completed_text("330201", "161355", kNoMerchant));
}

TEST_F(Completed, AnEmptyDateTimeOrMerchantCountsAsGiven) {
    EXPECT_EQ(for_arqc("S000U000V000"), completed_text(zeros(6), zeros(6), "V020" + zeros(20)));
    EXPECT_EQ(for_issuer_answer("S000U000V000"),
              completed_text(zeros(6), zeros(6), "V020" + zeros(20)));
}

TEST_F(Completed, AHostsTimeIsCutToSixCharacters) {
    EXPECT_EQ(for_arqc("U00806155840"), completed_text("000000", "061558", kNoMerchant));
    EXPECT_EQ(for_arqc("U0040615"), completed_text("000000", "0615" + zeros(2), kNoMerchant));
}

TEST_F(Completed, AShortMerchantIsFollowedByZeroBytes) {
    EXPECT_EQ(for_arqc("V00304A"), completed_text("000000", "161355", "V02004A" + zeros(17)));
}

TEST_F(Completed, NothingStandsBehindTheHostsMerchant) {
    Bytes in = exact_text("V003ABC");
    Bytes out = room(92);
    EXPECT_EQ(GetTransData(in.data(), out.data()), 0);
    EXPECT_EQ(hex(std::span(out).last(2)), "EEEE");
}

TEST_F(Completed, ALongMerchantIsCutTo20Bytes) {
    EXPECT_EQ(for_arqc("V025ABCDEFGHIJKLMNOPQRSTUVWXY"),
              completed_text("000000", "161355", "V020ABCDEFGHIJKLMNOPQRST"));
}

TEST_F(Completed, AmountsCurrencyAndTypeAreNeverTheHosts) {
    const std::string expected = completed_text("000000", "161355", kNoMerchant);
    EXPECT_EQ(for_arqc("P012000000001213Q012000000000001R0040840T00200Z00200I00201"), expected);
    EXPECT_EQ(for_issuer_answer("P012000000001213Q012000000000001R0040840T00200"), expected);
}

TEST_F(Completed, ALaterRecordReplacesAnEarlierOne) {
    EXPECT_EQ(for_arqc("S00820190422U006161355V005HELLOV002NOS00820200101U006070000"),
              completed_text("200101", "070000", "V020NO" + zeros(18)));
}

TEST_F(Completed, LettersInsideValuesAreNoRecords) {
    EXPECT_EQ(for_arqc("I012S00820190422"), completed_text("000000", "161355", kNoMerchant));
}

TEST_F(Completed, ALengthThatIsNoNumberIsZero) {
    EXPECT_EQ(for_arqc("PXYZS00820190422"), completed_text("190422", "161355", kNoMerchant));
    EXPECT_EQ(for_arqc("P-12S00820190422"), completed_text("190422", "161355", kNoMerchant));
}

TEST_F(Completed, ARecordThatRunsPastTheTextIsCut) {
    EXPECT_EQ(for_arqc("S008201904"), completed_text("1904" + zeros(2), "161355", kNoMerchant));
    EXPECT_EQ(for_arqc("V999AB"), completed_text("000000", "161355", "V020AB" + zeros(18)));
}

TEST_F(Completed, WhatIsTooShortForARecordIsIgnored) {
    for (const std::string_view rest : {" ", "V", "V0", "V02", "S00"}) {
        EXPECT_EQ(for_arqc("S00820190422" + std::string(rest)),
                  completed_text("190422", "161355", kNoMerchant))
            << rest;
    }
}

TEST_F(Completed, AValueLongerThanItsHoldingAreaIsCut) {
    const std::string date = "S999" + std::string("20190422") + std::string(991, '7');
    EXPECT_EQ(for_arqc(date + "U006070000"), completed_text("190422", "070000", kNoMerchant));
    EXPECT_EQ(for_arqc("V200" + std::string(200, 'M')),
              completed_text("000000", "161355", "V020" + std::string(20, 'M')));
}

// A buffer that was not zeroed shows where terminators go.
Bytes completed_over_rubbish(Completion complete, std::string_view text, std::size_t size) {
    Bytes in = exact_text(text);
    Bytes out = room(size);
    EXPECT_EQ(complete(in.data(), out.data()), 0);
    return out;
}

TEST_F(Completed, TheTerminatorStandsOneByteLateWithoutAMerchant) {
    for (const Completion complete : {GetTransData, ARPCGetTransData}) {
        const Bytes out = completed_over_rubbish(complete, "", 93);
        EXPECT_EQ(hex(std::span(out).subspan(89)), "30"
                                                   "EE"
                                                   "00"
                                                   "EE");
    }
}

TEST_F(Completed, ThereIsNoTerminatorBehindAMerchant) {
    for (const Completion complete : {GetTransData, ARPCGetTransData}) {
        const Bytes out = completed_over_rubbish(complete, "V003ABC", 90);
        EXPECT_EQ(text_of(std::span(out).subspan(66)), "V020ABC" + zeros(17));
    }
}

// --- conversion ---

using Conversion = int (*)(unsigned char* out, unsigned char* in);

// What the conversion writes over EE; its result is the number of bytes given here.
std::string converted_by(Conversion convert, std::string_view text) {
    Bytes in = exact_text(text);
    // As many bytes as the text has characters are always enough.
    Bytes out = room(std::max<std::size_t>(text.size(), 1));
    const int size = convert(out.data(), in.data());
    const auto written = std::span(out).first(static_cast<std::size_t>(size));
    const auto behind = std::span(out).subspan(written.size());
    EXPECT_TRUE(std::ranges::all_of(behind, [](auto byte) { return byte == kUntouchedByte; }))
        << "no terminator is written";
    return hex(written);
}

std::string converted(std::string_view text) {
    return converted_by(Qm_ConvertTxData2BCD, text);
}

std::string converted_the_old_way(std::string_view text) {
    return converted_by(oldQm_ConvertTxData2BCD, text);
}

TEST(Converted, AHostsTextIsAListOfPackedRecords) {
    const std::string expected = "5006000000001213"
                                 "5106000000000000"
                                 "52020156"
                                 "530420190422"
                                 "540103"
                                 "5503161355"
                                 "490100"
                                 "560D" +
                                 hex(bytes("4C55524F20434E542030333238"));
    EXPECT_EQ(converted(kPurchase), expected);
    EXPECT_EQ(converted_the_old_way(kPurchase), expected);
}

TEST(Converted, AnAmountIsPacked) {
    EXPECT_EQ(converted("P012000000001213"), "5006000000001213");
}

TEST(Converted, AMerchantIsKeptAsItIs) {
    EXPECT_EQ(converted("V003ABC"), "5603414243");
}

TEST(Converted, TheAlgorithmIndicatorIsPacked) {
    EXPECT_EQ(converted("Z00201"), "5A0101");
}

TEST(Converted, AnUnknownLetterIsPackedLikeAnyOther) {
    EXPECT_EQ(converted("I00200"), "490100");
    EXPECT_EQ(converted("x00412AB"), "780212AB");
}

TEST(Converted, AnOddDigitLeavesItsByteUnwritten) {
    EXPECT_EQ(converted("T0013"), "5401EE");
    EXPECT_EQ(converted("P00512345T00203"), "50031234EE540103");
}

TEST(Converted, AnOddDigitLeavesItsByteInTheEnginesOwnBufferToo) {
    Bytes out = room(4);
    EXPECT_EQ(transaction_data::convert("P003123", out), 4U);
    EXPECT_EQ(hex(out), "500212EE");
}

TEST(Converted, AnOddDigitUsedToBeDropped) {
    EXPECT_EQ(converted_the_old_way("T0013"), "5400");
    EXPECT_EQ(converted_the_old_way("P00512345T00203"), "50021234540103");
}

TEST(Converted, AnOddMerchantIsWholeBothWays) {
    EXPECT_EQ(converted_the_old_way("V003ABC"), "5603414243");
}

TEST(Converted, DigitsAreHexadecimalAndEverythingElseCountsFrom37) {
    EXPECT_EQ(converted("P0060a9FAf"), "50030A9FAF");
    // 'G' is 16, 'Z' 35: their upper halves spill into the digit before, or are lost.
    EXPECT_EQ(converted("P0021G"), "500120");
    EXPECT_EQ(converted("P002Z1"), "500131");
    EXPECT_EQ(converted("P002 0"), "500190") << "a blank is 20, less 37 is E9";
}

TEST(Converted, AnEmptyTextIsAnEmptyList) {
    EXPECT_EQ(converted(""), "");
    Bytes out = room(1);
    EXPECT_EQ(Qm_ConvertTxData2BCD(out.data(), nullptr), 0);
    EXPECT_EQ(hex(out), "EE");
}

TEST(Converted, AnEmptyRecordIsALetterAndAZero) {
    EXPECT_EQ(converted("T000V000"), "54005600");
    EXPECT_EQ(converted("P-12T00203"), "5000540103") << "a negative length is none";
    EXPECT_EQ(converted("PXYZT00203"), "5000540103");
}

TEST(Converted, ARecordThatRunsPastTheTextIsCutAndSaysSo) {
    EXPECT_EQ(converted("S00820190"), "53032019EE") << "five digits are left";
    EXPECT_EQ(converted("S0082019"), "53022019");
    EXPECT_EQ(converted("V020AB"), "56024142");
    EXPECT_EQ(converted("T999"), "5400");
    EXPECT_EQ(converted_the_old_way("S00820190"), "53022019");
}

TEST(Converted, WhatIsTooShortForARecordIsIgnored) {
    for (const std::string_view rest : {" ", "V", "V0", "V02"}) {
        EXPECT_EQ(converted("T00203" + std::string(rest)), "540103") << rest;
        EXPECT_EQ(converted(rest), "") << rest;
    }
}

TEST(Converted, ALongMerchantHasTheLowByteOfItsLength) {
    EXPECT_EQ(converted("V300" + std::string(300, 'M')), "562C" + repeated("4D", 300));
    EXPECT_EQ(converted("V256" + std::string(256, 'M')), "5600" + repeated("4D", 256));
}

TEST(Converted, TheLongestDigitRecordHasTheLowByteOfItsLength) {
    EXPECT_EQ(converted("P998" + std::string(998, '1')), "50F3" + repeated("11", 499));
}

TEST(Converted, TheCompletedTextOfTheIssuersAnswerHasItsOwnValues) {
    const FixedClock clock(2019, 4, 22, 16, 13, 55);
    Bytes in = exact_text("P012000000001213S00820190422T00203Z00200");
    Bytes complete(1024);
    ARPCGetTransData(in.data(), complete.data());
    Bytes out(90);
    const int size = Qm_ConvertTxData2BCD(out.data(), complete.data());
    EXPECT_EQ(hex(std::span(out).first(static_cast<std::size_t>(size))), "5006000000000000"
                                                                         "5106000000000000"
                                                                         "52020156"
                                                                         "5303201904"
                                                                         "540133"
                                                                         "5503161355"
                                                                         "5614" +
                                                                             repeated("30", 20));
}

// --- conversion into a place of limited size ---

std::string converted_into(std::string_view text, std::size_t size) {
    Bytes out = room(size);
    const std::size_t written = transaction_data::convert(text, out);
    return hex(std::span(out).first(written));
}

TEST(ConvertedIntoAPlace, MayFillIt) {
    EXPECT_EQ(converted_into("T00203V003ABC", 8), "5401035603414243");
}

TEST(ConvertedIntoAPlace, StopsBeforeTheRecordThatDoesNotFit) {
    EXPECT_EQ(converted_into("T00203V003ABC", 7), "540103");
    EXPECT_EQ(converted_into("T00203V003ABCT00204", 7), "540103") << "and before any after it";
    EXPECT_EQ(converted_into("T00203", 2), "");
    EXPECT_EQ(converted_into("T00203", 0), "");
}

TEST(ConvertedIntoAPlace, StopsAt1024AndAt4095Bytes) {
    std::string text;
    for (int k = 0; k < 10; ++k) {
        text += "V500" + std::string(500, 'M');
    }
    EXPECT_EQ(converted_into(text, 1024).size() / 2, 1004U);
    EXPECT_EQ(converted_into(text, 4095).size() / 2, 4016U);
}

// --- the normalised form ---

std::string normalised(std::string_view text) {
    const Bytes in = exact_text(text);
    Bytes out = room(2200);
    parseTxData(reinterpret_cast<const char*>(in.data()), reinterpret_cast<char*>(out.data()));
    std::string written = text_of(out);
    written.erase(written.find_last_not_of(static_cast<char>(kUntouchedByte)) + 1);
    return written;
}

TEST(Normalised, RecordsHaveFixedWidthsAndARecordForTheZeroFollows) {
    EXPECT_EQ(normalised(kPurchase),
              "P012000000001213Q012000000000000R0040156S00820190422T00203U006161355"
              "V013LURO CNT 0328" +
                  zeros(1) + "0130000000000000" + zeros(1));
}

TEST(Normalised, ShortValuesStandAtTheEndOfZeros) {
    EXPECT_EQ(normalised("P0041213Q0011R003156S006190422T0013U0051355V"),
              "P012000000001213Q012000000000001R0040156S00800190422T00203U00601355V"
              "V000" +
                  zeros(1) + "000" + zeros(1))
        << "a time of five characters takes the next letter with it";
}

TEST(Normalised, RecordsComeInAFixedOrder) {
    EXPECT_EQ(normalised("T00203P012000000001213"),
              "P012000000001213Q012000000000000R0040000S00800000000T00203U006000000V000" +
                  zeros(1) + "000" + zeros(1));
}

TEST(Normalised, AMissingTypeTakesTheWritingBackToTheStart) {
    // "33" is written at 2, and the empty record of the type over it; time, merchant and the zero
    // follow there.
    const std::string text = normalised("P012000000001213V002AB");
    EXPECT_EQ(text.substr(0, 2), "P0");
    EXPECT_EQ(text.substr(2, 4), "T000");
    EXPECT_EQ(text.substr(6, 10), "U006000000");
    EXPECT_EQ(text.substr(16, 6), "V002AB");
    EXPECT_EQ(text.substr(22, 6), zeros(1) + "00200");
    EXPECT_EQ(text.substr(28, 1), zeros(1));
    EXPECT_EQ(text.substr(29), std::string("Q012000000000000R0040000S00800000000").substr(13))
        << "what was written before stays behind the end";
}

TEST(Normalised, LongValuesKeepTheirLastCharacters) {
    EXPECT_EQ(normalised("P013"
                         "9000000001213"
                         "T00203")
                  .substr(0, 16),
              "P012000000001213");
}

TEST(Normalised, TheLongestMerchantFits) {
    const std::string text = normalised("T00203V999" + std::string(999, 'M'));
    EXPECT_EQ(text.substr(68, 1003), "V999" + std::string(999, 'M'));
    EXPECT_EQ(text.substr(68 + 1003), zeros(1) + "999" + std::string(999, '0') + zeros(1));
}

TEST(Normalised, NoTextIsAnEmptyOne) {
    Bytes out = room(2200);
    parseTxData(nullptr, reinterpret_cast<char*>(out.data()));
    EXPECT_EQ(text_of(std::span(out).first(6)), "P0T000");
}

} // namespace
