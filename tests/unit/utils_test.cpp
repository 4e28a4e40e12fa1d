// The conversions, each by its own rule.
#include "support/utils.h"

#include "fixed_clock.h"
#include "tests/support/hex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <list>
#include <string>
#include <string_view>
#include <vector>

using qaven::test::FixedClock;
using qaven::test::hex;
using testing::ElementsAre;

namespace {

// A buffer that shows which of its bytes were written: all others are still EE.
using Buffer = std::array<unsigned char, 16>;

constexpr Buffer untouched() {
    Buffer buffer{};
    buffer.fill(0xEE);
    return buffer;
}

// The written bytes of a buffer in hexadecimal.
std::string written(const Buffer& buffer) {
    std::size_t end = buffer.size();
    while (end > 0 && buffer[end - 1] == 0xEE) {
        --end;
    }
    return hex(std::span(buffer).first(end));
}

std::string written(const std::array<char, 16>& buffer) {
    Buffer copy{};
    std::memcpy(copy.data(), buffer.data(), copy.size());
    return written(copy);
}

// Text as the conversions take it: writable, zero-terminated, followed by a zero byte more.
class Input {
  public:
    explicit Input(std::string_view text) : text_(text.begin(), text.end()) {
        text_.resize(text.size() + 2);
    }
    unsigned char* data() { return text_.data(); }

  private:
    std::vector<unsigned char> text_;
};

std::string packed_by_asc_to_bcd(std::string_view text, int len, unsigned int right_align) {
    Buffer out = untouched();
    Qm_AscToBcd(out.data(), Input(text).data(), len, right_align);
    return written(out);
}

std::string packed_by_ascii_to_hex(std::string_view text, int len) {
    Buffer out = untouched();
    Qm_AsciiToHex(Input(text).data(), out.data(), len);
    return written(out);
}

std::string packed_by_halftochar(std::string_view text, int& len) {
    std::array<char, 16> out{};
    out.fill('\xEE');
    std::string in(text);
    Qm_halftochar(in.data(), out.data(), &len);
    return written(out);
}

std::string packed_by_var_asc2bcd(std::string_view text, unsigned int len) {
    Buffer out = untouched();
    var_asc2bcd(out.data(), Input(text).data(), len);
    return written(out);
}

std::string packed_by_var_pack_two_to_one(std::string_view text, int len) {
    Buffer out = untouched();
    EXPECT_EQ(var_packTwo2One_30(out.data(), Input(text).data(), len), 0);
    return written(out);
}

unsigned char byte_by_asc2bcd(std::string_view text) {
    return asc2bcd(Input(text).data());
}

// --- Qm_AscToBcd ---

TEST(AscToBcd, AMarkerByteFollowsCompletePairs) {
    EXPECT_EQ(packed_by_asc_to_bcd("123456", 6, 0), "12345650");
    EXPECT_EQ(packed_by_asc_to_bcd("123456", 6, 1), "12345650");
}

TEST(AscToBcd, TheLastDigitOfAnOddLeftAlignedTextIsDropped) {
    EXPECT_EQ(packed_by_asc_to_bcd("123", 3, 0), "12");
    EXPECT_EQ(packed_by_asc_to_bcd("7", 1, 0), "");
}

TEST(AscToBcd, AnOddRightAlignedTextGetsALeadingZeroDigit) {
    EXPECT_EQ(packed_by_asc_to_bcd("123", 3, 1), "012350");
    EXPECT_EQ(packed_by_asc_to_bcd("7", 1, 2), "0750");
}

TEST(AscToBcd, ReadsLettersOfBothCases) {
    EXPECT_EQ(packed_by_asc_to_bcd("aFfA09", 6, 0), "AFFA0950");
    EXPECT_EQ(packed_by_asc_to_bcd("0a0A0f0F", 8, 0), "0A0A0F0F50");
}

TEST(AscToBcd, ReadsCharactersByRangesAndThoseBelowTheDigitsAsZero) {
    // '/' and blank lie below the digits, ':' follows them, '@' is still counted as a digit.
    EXPECT_EQ(packed_by_asc_to_bcd("/1 2", 4, 0), "010250");
    EXPECT_EQ(packed_by_asc_to_bcd("0:0?", 4, 0), "0A0F50");
    EXPECT_EQ(packed_by_asc_to_bcd("0@", 2, 0), "1050");
    EXPECT_EQ(packed_by_asc_to_bcd("0G0`0g", 6, 0), "10291050");
}

TEST(AscToBcd, ACharacterThatReadsAsTheMarkerIsLost) {
    EXPECT_EQ(packed_by_asc_to_bcd("\xAC"
                                   "12",
                                   3, 0),
              "1250");
}

TEST(AscToBcd, TakesOnlyAsManyCharactersAsItIsTold) {
    EXPECT_EQ(packed_by_asc_to_bcd("123456", 4, 0), "123450");
}

TEST(AscToBcd, AnEmptyTextGivesTheMarkerAlone) {
    EXPECT_EQ(packed_by_asc_to_bcd("12", 0, 0), "50");
    EXPECT_EQ(packed_by_asc_to_bcd("12", -2, 0), "50");
}

// --- Qm_chartohalf ---

TEST(Chartohalf, WritesTwoUpperCaseCharactersAndATerminator) {
    std::array<char, 4> out{'#', '#', '#', '#'};
    EXPECT_EQ(Qm_chartohalf(0x9F, out.data()), out.data() + 2);
    EXPECT_STREQ(out.data(), "9F");
    EXPECT_EQ(out[3], '#');
}

TEST(Chartohalf, TakesTheLowByteOfTheValue) {
    std::array<char, 3> out{};
    Qm_chartohalf(0x123A, out.data());
    EXPECT_STREQ(out.data(), "3A");
    Qm_chartohalf(-1, out.data());
    EXPECT_STREQ(out.data(), "FF");
    Qm_chartohalf(0, out.data());
    EXPECT_STREQ(out.data(), "00");
}

// --- Qm_AsciiToHex ---

TEST(AsciiToHex, ReadsLettersOfBothCases) {
    EXPECT_EQ(packed_by_ascii_to_hex("9f27", 4), "9F27");
    EXPECT_EQ(packed_by_ascii_to_hex("9F27aB", 6), "9F27AB");
}

TEST(AsciiToHex, AnOddLengthReadsOneCharacterMore) {
    EXPECT_EQ(packed_by_ascii_to_hex("9f27", 3), "9F27");
}

TEST(AsciiToHex, ReadsOtherCharactersByTheirLowBits) {
    // 'g' is 7 + 9 = 16, which carries into the high digit; blank is 0.
    EXPECT_EQ(packed_by_ascii_to_hex("0g 1", 4), "1001");
}

TEST(AsciiToHex, NothingIsWrittenForNoCharacters) {
    EXPECT_EQ(packed_by_ascii_to_hex("12", 0), "");
    EXPECT_EQ(packed_by_ascii_to_hex("12", -4), "");
}

// --- Qm_halftochar ---

TEST(Halftochar, AnOddTextGivesLengthZeroAndNothingElse) {
    int len = 99;
    EXPECT_EQ(packed_by_halftochar("abc", len), "");
    EXPECT_EQ(len, 0);
}

TEST(Halftochar, AddsAZeroByteToThePackedText) {
    int len = 99;
    EXPECT_EQ(packed_by_halftochar("0aFF", len), "0AFF00");
    EXPECT_EQ(len, 2);
}

TEST(Halftochar, AnEmptyTextIsATerminator) {
    int len = 99;
    EXPECT_EQ(packed_by_halftochar("", len), "00");
    EXPECT_EQ(len, 0);
}

TEST(Halftochar, ReadsOtherCharactersAsLowerCase) {
    int len = 0;
    // 'g' reads as 16, cut to the byte.
    EXPECT_EQ(packed_by_halftochar("0gg0", len), "100000");
    EXPECT_EQ(len, 2);
}

// --- asc2bcd and its kin ---

TEST(Asc2bcd, ReadsLettersOfBothCases) {
    EXPECT_EQ(byte_by_asc2bcd("9F"), 0x9F);
    EXPECT_EQ(byte_by_asc2bcd("9f"), 0x9F);
    EXPECT_EQ(byte_by_asc2bcd("aB"), 0xAB);
}

TEST(Asc2bcd, ReadsOtherCharactersAsUpperCase) {
    EXPECT_EQ(byte_by_asc2bcd("0G"), 0x10);
    EXPECT_EQ(byte_by_asc2bcd("G0"), 0x00);
}

TEST(VarAsc2bcd, IgnoresAnOddLastCharacter) {
    EXPECT_EQ(packed_by_var_asc2bcd("A00000", 6), "A00000");
    EXPECT_EQ(packed_by_var_asc2bcd("A00000", 5), "A000");
    EXPECT_EQ(packed_by_var_asc2bcd("A0", 1), "");
    EXPECT_EQ(packed_by_var_asc2bcd("A0", 0), "");
}

TEST(VarPackTwoToOne, PacksDecimalDigits) {
    EXPECT_EQ(packed_by_var_pack_two_to_one("1290", 4), "1290");
}

TEST(VarPackTwoToOne, KnowsNoLetters) {
    EXPECT_EQ(packed_by_var_pack_two_to_one("9F", 2), "A6");
}

TEST(VarPackTwoToOne, AnOddLengthReadsOneCharacterMore) {
    EXPECT_EQ(packed_by_var_pack_two_to_one("1234", 3), "1234");
    EXPECT_EQ(packed_by_var_pack_two_to_one("12", 0), "");
    EXPECT_EQ(packed_by_var_pack_two_to_one("12", -1), "");
}

TEST(ConversionsThatLookAlike, ReadTheSameCharactersDifferently) {
    int len = 0;
    EXPECT_EQ(packed_by_asc_to_bcd("1:", 2, 0), "1A50");
    EXPECT_EQ(packed_by_ascii_to_hex("1:", 2), "23");
    EXPECT_EQ(packed_by_halftochar("1:", len), "F300");
    EXPECT_EQ(byte_by_asc2bcd("1:"), 0x13);
    EXPECT_EQ(packed_by_var_pack_two_to_one("1:", 2), "1A");
}

// --- bytes to text ---

TEST(Bcd2asc, WritesTwoUpperCaseCharactersWithoutTerminator) {
    Buffer out = untouched();
    bcd2asc(out.data(), 0xA5);
    EXPECT_EQ(written(out), "4135");
}

TEST(VarBcd2asc, WritesEveryByteWithoutTerminator) {
    Buffer out = untouched();
    Buffer in{0x62, 0x14, 0xFF};
    var_bcd2asc(out.data(), in.data(), 3);
    EXPECT_EQ(written(out), hex(qaven::test::bytes("36 32 31 34 46 46")));
    out = untouched();
    var_bcd2asc(out.data(), in.data(), 0);
    EXPECT_EQ(written(out), "");
}

TEST(Hex2Asc, WritesEveryByteAndATerminator) {
    Buffer out = untouched();
    Buffer in{0x0A, 0xFF};
    EXPECT_EQ(Hex2Asc(out.data(), in.data(), 2), 0);
    EXPECT_EQ(written(out), "3041464600");
}

TEST(Hex2Asc, OfNothingIsAnEmptyText) {
    Buffer out = untouched();
    Buffer in{};
    EXPECT_EQ(Hex2Asc(out.data(), in.data(), 0), 0);
    EXPECT_EQ(written(out), "00");
    out = untouched();
    EXPECT_EQ(Hex2Asc(out.data(), in.data(), -3), 0);
    EXPECT_EQ(written(out), "00");
}

TEST(UnpackOneToTwo, GivesBothNibblesAsDigitsAndReturnsTheLower) {
    Buffer out = untouched();
    EXPECT_EQ(unpackOne2Two_30(out.data(), 0x3A), ':');
    EXPECT_EQ(written(out), "333A");
    EXPECT_EQ(unpackOne2Two_30(out.data(), 0xF9), '9');
    EXPECT_EQ(written(out), "3F39");
}

// --- trimming ---

TEST(TrimStr, CopiesWithoutBlanksAndTabs) {
    Buffer out = untouched();
    EXPECT_EQ(TrimStr(out.data(), Input(" a b\t").data()), 2);
    EXPECT_EQ(written(out), "616200");
    out = untouched();
    EXPECT_EQ(TrimStr(out.data(), Input(" \t ").data()), 0);
    EXPECT_EQ(written(out), "00");
    out = untouched();
    EXPECT_EQ(TrimStr(out.data(), Input("a\r\nb").data()), 4);
    EXPECT_EQ(written(out), "610D0A6200");
}

std::string trimmed(void (*trim)(unsigned char*), std::string_view text) {
    Input in(text);
    trim(in.data());
    return reinterpret_cast<const char*>(in.data());
}

TEST(TrimLeft, RemovesLeadingBlanksAndTabsAndCountsThem) {
    Input text("\t ab");
    EXPECT_EQ(TrimLeft(text.data()), 2);
    EXPECT_STREQ(reinterpret_cast<const char*>(text.data()), "ab");
}

TEST(TrimLeft, LeavesATextWithoutThemAlone) {
    Input text("a b ");
    EXPECT_EQ(TrimLeft(text.data()), 0);
    EXPECT_STREQ(reinterpret_cast<const char*>(text.data()), "a b ");
}

TEST(TrimLeft, EmptiesATextOfBlanks) {
    Input text(" \t ");
    EXPECT_EQ(TrimLeft(text.data()), 3);
    EXPECT_STREQ(reinterpret_cast<const char*>(text.data()), "");
}

TEST(TrimLeft, TakesNoTextAtAllAsNothingRemoved) {
    EXPECT_EQ(TrimLeft(nullptr), 0);
}

TEST(TrimRight, RemovesTrailingBlanksAndTabs) {
    EXPECT_EQ(trimmed(TrimRight, "ab \t "), "ab");
    EXPECT_EQ(trimmed(TrimRight, " ab"), " ab");
    EXPECT_EQ(trimmed(TrimRight, "a"), "a");
}

TEST(TrimRight, NeverRemovesTheFirstCharacter) {
    EXPECT_EQ(trimmed(TrimRight, "  "), " ");
    EXPECT_EQ(trimmed(TrimRight, "\t\t\t"), "\t");
    EXPECT_EQ(trimmed(TrimRight, " "), " ");
}

TEST(TrimRight, AnEmptyTextHasNothingToTrim) {
    // The byte before the text is a blank that must stay.
    std::array<unsigned char, 2> text{' ', 0};
    TrimRight(text.data() + 1);
    EXPECT_EQ(text[0], ' ');
    EXPECT_EQ(text[1], 0);
    TrimRight(nullptr);
}

TEST(Trim, RemovesBoth) {
    EXPECT_EQ(trimmed(Trim, "\t a b \t"), "a b");
    EXPECT_EQ(trimmed(Trim, "   "), "");
    EXPECT_EQ(trimmed(Trim, ""), "");
    Trim(nullptr);
}

// --- checks and numbers ---

TEST(CalLrc, IsTheXorOfAllBytes) {
    const std::array<unsigned char, 3> data{0x01, 0x02, 0x03};
    EXPECT_EQ(CalLRC(data.data(), 3), 0x00);
    EXPECT_EQ(CalLRC(data.data(), 2), 0x03);
}

TEST(CalLrc, OfNothingIsZero) {
    const std::array<unsigned char, 1> data{0x55};
    EXPECT_EQ(CalLRC(data.data(), 0), 0);
    EXPECT_EQ(CalLRC(data.data(), -1), 0);
}

TEST(ReverseHex, StandsMostSignificantByteFirst) {
    Buffer out = untouched();
    EXPECT_EQ(Int2ReverseHex(out.data(), 0x12345678U), 0x78);
    EXPECT_EQ(written(out), "12345678");
    EXPECT_EQ(ReverseHex2Int(out.data()), 0x12345678U);
}

TEST(ReverseHex, HoldsTheLargestValue) {
    Buffer out = untouched();
    EXPECT_EQ(Int2ReverseHex(out.data(), 0xFFFFFFFEU), 0xFE);
    EXPECT_EQ(written(out), "FFFFFFFE");
    EXPECT_EQ(ReverseHex2Int(out.data()), 0xFFFFFFFEU);
}

// --- dates ---

TEST(LocalDate, IsThreeBcdBytes) {
    const FixedClock clock(2026, 11, 15, 9, 30, 5);
    std::array<char, 16> out{};
    out.fill('\xEE');
    Qm_GetYYMMDD(out.data());
    EXPECT_EQ(written(out), "261115");
}

TEST(LocalDate, WithTimeIsSevenBcdBytes) {
    const FixedClock clock(2026, 11, 15, 9, 30, 5);
    std::array<char, 16> out{};
    out.fill('\xEE');
    GetDateTime(out.data());
    EXPECT_EQ(written(out), "20261115093005");
}

TEST(LocalDate, AsANumberHasTwoDigitsForTheYear) {
    const FixedClock clock(2026, 11, 15, 9, 30, 5);
    EXPECT_EQ(GetIntDate(), 261115);
}

TEST(LocalDate, AsANumberLosesLeadingZeros) {
    const FixedClock clock(2009, 1, 2, 0, 0, 7);
    EXPECT_EQ(GetIntDate(), 90102);
    EXPECT_EQ(GetIntTime(), 7);
    std::array<char, 16> out{};
    out.fill('\xEE');
    Qm_GetYYMMDD(out.data());
    EXPECT_EQ(written(out), "090102");
}

TEST(LocalTime, AsANumberIsHhmmss) {
    const FixedClock clock(2026, 11, 15, 9, 30, 5);
    EXPECT_EQ(GetIntTime(), 93005);
}

TEST(LocalTime, FollowsTheTimeZone) {
    const FixedClock clock(2026, 12, 31, 18, 0, 0);
    FixedClock::set_zone("CST-8"); // Beijing is eight hours ahead
    EXPECT_EQ(GetIntDate(), 270101);
    EXPECT_EQ(GetIntTime(), 20000);
}

// --- Split ---

std::list<std::string> fields_of(const char* text, int count) {
    std::list<std::string> fields;
    EXPECT_EQ(Split(text, fields, '|'), count);
    return fields;
}

TEST(Split, KeepsEmptyFieldsBetweenAndBehindSeparators) {
    EXPECT_THAT(fields_of("a||b|", 4), ElementsAre("a", "", "b", ""));
}

TEST(Split, ALeadingSeparatorGivesAnEmptyFirstField) {
    EXPECT_THAT(fields_of("|A000000333010101|A000000333010102", 3),
                ElementsAre("", "A000000333010101", "A000000333010102"));
}

TEST(Split, AnEmptyTextIsOneEmptyField) {
    EXPECT_THAT(fields_of("", 1), ElementsAre(""));
}

TEST(Split, FieldsAreNotTrimmed) {
    EXPECT_THAT(fields_of(" a |\tb", 2), ElementsAre(" a ", "\tb"));
}

TEST(Split, AppendsToWhatTheListHolds) {
    std::list<std::string> fields{"before"};
    EXPECT_EQ(Split("a,b|c", fields, ','), 2);
    EXPECT_THAT(fields, ElementsAre("before", "a", "b|c"));
}

TEST(Split, NoTextAtAllIsAnEmptyOne) {
    EXPECT_THAT(fields_of(nullptr, 1), ElementsAre(""));
}

} // namespace
