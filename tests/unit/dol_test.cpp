// Data object lists: the format table, reading a list, and the value string that answers it.
#include "engine/data/dol.h"

#include "digest.h"
#include "engine/data/tag_table.h"
#include "engine/data/tlv.h"
#include "exact_buffer.h"
#include "tests/support/hex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace dol = qaven::dol;
using qaven::test::Bytes;
using qaven::test::bytes;
using qaven::test::exact;
using qaven::test::hex;
using qaven::test::repeated;
using qaven::test::room;

namespace {

constexpr int kNoTag = -204;
constexpr int kEmptyData = -205;
constexpr int kUntouched = 99;

// --- the format table ---

struct TagFormat {
    std::string tag; // in hexadecimal
    char letter;
};

// In the order of lookup.
std::vector<TagFormat> tag_formats() {
    std::vector<TagFormat> formats;
    const std::span<const unsigned char> table(gcTagName);
    for (std::size_t at = 0; at < table.size();) {
        const std::size_t size = (table[at] & 0x1FU) == 0x1FU ? 2 : 1;
        formats.push_back({hex(table.subspan(at, size)), static_cast<char>(table[at + size])});
        at += size + 1;
    }
    return formats;
}

int format_of(std::string_view tag_text, const Bytes& table) {
    const Bytes tag = exact(tag_text);
    return qmcx_GetTagType(tag.data(), static_cast<int>(tag.size()), table.data(),
                           static_cast<int>(table.size()));
}

int format_of(std::string_view tag_text) {
    return format_of(tag_text, Bytes(std::begin(gcTagName), std::end(gcTagName)));
}

TEST(FormatTable, HoldsEveryTagWithItsLetterBackToBack) {
    EXPECT_EQ(tag_formats().size(), 160U);
    EXPECT_EQ(std::size(gcTagName), 431U);
    EXPECT_EQ(qaven::test::Digest().add(hex(gcTagName)).value(), 0x8B5509E8415D5672U);
}

TEST(FormatTable, AnswersEveryTagWithItsFirstLetter) {
    const std::vector<TagFormat> formats = tag_formats();
    for (const TagFormat& format : formats) {
        const auto first = std::ranges::find_if(
            formats, [&](const auto& other) { return other.tag == format.tag; });
        EXPECT_EQ(format_of(format.tag), first->letter) << format.tag;
    }
}

TEST(FormatTable, KnowsATagThatIsListedTwiceByItsFirstLetter) {
    EXPECT_EQ(format_of("9F53"), 'a');
}

TEST(FormatTable, HasNoLetterForOtherTags) {
    for (const std::string_view tag : {"DF60", "9F", "9F0C", "DF", "00", "FF", "5F", "9F8101"}) {
        EXPECT_EQ(format_of(tag), 0) << tag;
    }
}

TEST(FormatTable, IsKnownToTheEngineByTheNumberOfEveryTag) {
    using qaven::tlv::Extent;
    std::set<qaven::tlv::TagNumber> numbers;
    for (unsigned int value = 0; value <= 0xFFFF; ++value) {
        const Bytes pair{static_cast<std::uint8_t>(value >> 8U), static_cast<std::uint8_t>(value)};
        const auto tag = qaven::tlv::read_tag<Extent::kBounded>(pair, 0);
        if (tag) {
            const int letter =
                qmcx_GetTagType(pair.data(), static_cast<int>(tag.end), gcTagName, kTagTableSize);
            numbers.insert(tag.number);
            ASSERT_EQ(qaven::kFormatLetters[tag.number], letter == 't' ? 0 : letter) << hex(pair);
        }
    }
    EXPECT_EQ(numbers.size(), 248U + 7U * 128U) << "each tag of one or two bytes has its own";
}

TEST(FormatTable, HasNoLetterForTheNumberOfLongTags) {
    using qaven::tlv::Extent;
    const auto tag = qaven::tlv::read_tag<Extent::kBounded>(bytes("9F8101"), 0);
    EXPECT_EQ(tag.end, 3U);
    EXPECT_EQ(qaven::kFormatLetters[tag.number], 0);
}

TEST(FormatTable, OfAHostMayHaveLongerTags) {
    EXPECT_EQ(format_of("DF8101", bytes("5A 63 DF8101 6E")), 'n');
    EXPECT_EQ(format_of("5A", bytes("DF8101 6E 5A 63")), 'c');
}

TEST(FormatTable, OfAHostEndsAtPadding) {
    EXPECT_EQ(format_of("5A", bytes("57 62 FF 62 5A 63")), 0);
    EXPECT_EQ(format_of("57", bytes("57 62 FF 62 5A 63")), 'b');
}

TEST(FormatTable, OfAHostMayEndAnywhere) {
    EXPECT_EQ(format_of("5A", exact("57 62 5A")), 0) << "the letter is missing";
    EXPECT_EQ(format_of("9F02", exact("57 62 9F")), 0) << "half the tag is missing";
    EXPECT_EQ(format_of("9F02", exact("57 62 9F02")), 0);
    EXPECT_EQ(format_of("5A", Bytes{}), 0);
}

// --- one entry of a list ---

struct Entry {
    int result;
    int requested;
    std::string tag; // what the output buffer holds, as far as it was written
};

Entry entry_of(std::string_view list_text) {
    const Bytes list = exact(list_text);
    Bytes tag = room(256);
    int requested = kUntouched;
    const int result =
        qmcx_GetTaginDOL(list.data(), static_cast<int>(list.size()), tag.data(), &requested);
    while (!tag.empty() && tag.back() == qaven::test::kUntouchedByte) {
        tag.pop_back();
    }
    return {result, requested, hex(tag)};
}

void expect_unreadable(std::string_view list, int result) {
    const Entry entry = entry_of(list);
    EXPECT_EQ(entry.result, result) << list;
    EXPECT_EQ(entry.requested, kUntouched) << list;
    EXPECT_EQ(entry.tag, "") << list;
}

TEST(ListEntry, IsATagAndTheLengthAskedFor) {
    const Entry date = entry_of("9A03 9F2103");
    EXPECT_EQ(date.result, 2);
    EXPECT_EQ(date.tag, "9A00") << "with a zero behind it";
    EXPECT_EQ(date.requested, 3);

    const Entry amount = entry_of("9F0206");
    EXPECT_EQ(amount.result, 3);
    EXPECT_EQ(amount.tag, "9F0200");
    EXPECT_EQ(amount.requested, 6);
}

TEST(ListEntry, MayHaveATagOfThreeBytes) {
    const Entry entry = entry_of("DF8101 04");
    EXPECT_EQ(entry.result, 4);
    EXPECT_EQ(entry.tag, "DF810100");
    EXPECT_EQ(entry.requested, 4);
}

TEST(ListEntry, MayHaveALengthOfTwoOrThreeBytes) {
    const Entry two = entry_of("9F02 8180");
    EXPECT_EQ(two.result, 4);
    EXPECT_EQ(two.requested, 0x80);
    const Entry three = entry_of("9F02 820102");
    EXPECT_EQ(three.result, 5);
    EXPECT_EQ(three.requested, 0x102);
}

TEST(ListEntry, TakesOtherLongFormsAsLengths) {
    EXPECT_EQ(entry_of("9F02 80").requested, 0x80);
    EXPECT_EQ(entry_of("9F02 83").requested, 0x83);
    EXPECT_EQ(entry_of("9F02 83").result, 3);
}

TEST(ListEntry, MayAskForNothing) {
    const Entry entry = entry_of("9F0200");
    EXPECT_EQ(entry.result, 3);
    EXPECT_EQ(entry.requested, 0);
}

TEST(ListEntry, IsNoneAtPaddingOrInsideATag) {
    expect_unreadable("FF 03", 0);
    expect_unreadable("9F", 0);
    expect_unreadable("9F81", 0);
    expect_unreadable("9FFF 03", 0);
}

TEST(ListEntry, IsNoneWhenATwoByteLengthRunsPastTheEnd) {
    expect_unreadable("9F02 82", 0);
    expect_unreadable("9F02 8201", 0);
    expect_unreadable("9A 8201", 0);
}

TEST(ListEntry, IsBadWhenAnyOtherLengthRunsPastTheEnd) {
    expect_unreadable("9F02", kNoTag);
    expect_unreadable("9A", kNoTag);
    expect_unreadable("9F02 81", kNoTag);
    expect_unreadable("9A 81", kNoTag);
}

TEST(ListEntry, WithATagBeyondReasonIsNone) {
    // 9F, continued as often as it takes, closed.
    const auto tag_of = [](std::size_t size) { return "9F" + repeated("81", size - 2) + "01"; };
    const Entry longest = entry_of(tag_of(254) + "03");
    EXPECT_EQ(longest.result, 255);
    EXPECT_EQ(longest.tag, tag_of(254) + "00");
    EXPECT_EQ(longest.requested, 3);
    expect_unreadable(tag_of(255) + "03", 0);
    expect_unreadable(tag_of(300) + "03", 0);
    expect_unreadable(tag_of(1000) + "820102", 0);
}

// --- is a tag asked for ---

int asked_for(std::string_view tag_text, std::string_view list_text) {
    const Bytes tag = exact(tag_text);
    const Bytes list = exact(list_text);
    return qmcx_findtaginDOL(tag.data(), static_cast<int>(tag.size()), list.data(),
                             static_cast<int>(list.size()));
}

TEST(AskedFor, IsEveryTagOfTheList) {
    for (const std::string_view tag : {"9F02", "9F1A", "95", "9A", "9F37"}) {
        EXPECT_EQ(asked_for(tag, "9F0206 9F1A02 9505 9A03 9F3704"), 0) << tag;
    }
}

TEST(AskedFor, IsNoOtherTag) {
    EXPECT_EQ(asked_for("9F03", "9F0206 9F1A02 9505"), kNoTag);
    EXPECT_EQ(asked_for("9F", "9F0206"), kNoTag);
    EXPECT_EQ(asked_for("02", "9F0206"), kNoTag);
    EXPECT_EQ(asked_for("06", "9F0206"), kNoTag) << "a length is no tag";
}

TEST(AskedFor, StepsOverLengthsOfTwoAndThreeBytes) {
    EXPECT_EQ(asked_for("9A", "9F02 8180 9A03"), 0);
    EXPECT_EQ(asked_for("9A", "9F02 820102 9A03"), 0);
    EXPECT_EQ(asked_for("9A", "9F02 80 9A03"), 0);
}

TEST(AskedFor, StepsOverTemplatesLikeOverAnyTag) {
    EXPECT_EQ(asked_for("9A", "7004 9A03"), 0);
    EXPECT_EQ(asked_for("70", "7004 9A03"), 0);
}

TEST(AskedFor, IsATagWhoseLengthTheListNoLongerHolds) {
    EXPECT_EQ(asked_for("9F37", "9F0206 9F37"), 0);
    EXPECT_EQ(asked_for("9A", "9F0206 9A8203"), 0);
}

TEST(AskedFor, IsNothingBehindPaddingOrABrokenEntry) {
    EXPECT_EQ(asked_for("9A", "9F0206 FF 9A03"), kNoTag);
    EXPECT_EQ(asked_for("9A", "9F0206 9FFF 9A03"), kNoTag);
    EXPECT_EQ(asked_for("95", "9F0206 9A8203"), kNoTag);
    EXPECT_EQ(asked_for("95", "9F0206 9F81"), kNoTag);
}

TEST(AskedFor, IsNothingByAnEmptyList) {
    const Bytes tag = exact("9A");
    EXPECT_EQ(qmcx_findtaginDOL(tag.data(), 1, nullptr, 0), kNoTag);
    EXPECT_EQ(qmcx_findtaginDOL(tag.data(), 1, tag.data(), 0), kNoTag);
}

// --- the value string ---

struct Answer {
    int result;
    int length;
    std::string values; // what the whole output buffer holds
};

Answer answer(std::string_view list_text, std::string_view data_text, std::size_t out_size,
              bool zero_terminated = false) {
    const Bytes list = exact(list_text);
    Bytes data = exact(data_text);
    Bytes out = room(out_size);
    int length = kUntouched;
    const int result =
        qmcx_BuildDOL(data.data(), zero_terminated ? 0 : static_cast<int>(data.size()), list.data(),
                      static_cast<int>(list.size()), out.data(), &length);
    return {result, length, hex(out)};
}

// The answer to a list that can be answered.
std::string values(std::string_view list_text, std::string_view data_text, std::size_t out_size) {
    const Answer given = answer(list_text, data_text, out_size);
    EXPECT_EQ(given.result, 0) << list_text;
    EXPECT_EQ(given.length, static_cast<int>(out_size)) << list_text;
    return given.values;
}

TEST(ValueString, TakesAValueOfTheLengthAskedForAsItIs) {
    EXPECT_EQ(values("9F0206", "9F0206000000010000", 6), "000000010000");
}

TEST(ValueString, PutsZerosBeforeAShortNumber) {
    EXPECT_EQ(values("9F1A03", "9F1A020156", 3), "000156");
    EXPECT_EQ(values("9C03", "9C0133", 3), "000033");
}

TEST(ValueString, KeepsTheLastDigitsOfALongNumber) {
    EXPECT_EQ(values("9F0204", "9F0206000000012345", 4), "00012345");
    EXPECT_EQ(values("9A02", "9A03190422", 2), "0422");
}

TEST(ValueString, PutsFsBehindAShortCompressedNumber) {
    EXPECT_EQ(values("5A0A", "5A086214830123456789", 10), "6214830123456789FFFF");
    EXPECT_EQ(values("9F6204", "9F62023344", 4), "3344FFFF");
}

TEST(ValueString, KeepsTheFirstDigitsOfALongCompressedNumber) {
    EXPECT_EQ(values("5A04", "5A086214830123456789", 4), "62148301");
}

TEST(ValueString, PutsZerosBehindShortBinariesAndTexts) {
    EXPECT_EQ(values("9F3706", "9F370411223344", 6), "112233440000") << "binary";
    EXPECT_EQ(values("5F2006", "5F20044C55524F", 6), "4C55524F0000") << "text";
    EXPECT_EQ(values("8409", "8407A0000003330101", 9), "A00000033301010000") << "variable";
    EXPECT_EQ(values("0403", "040111", 3), "110000");
}

TEST(ValueString, KeepsTheFirstBytesOfLongBinariesAndTexts) {
    EXPECT_EQ(values("9F3702", "9F370411223344", 2), "1122");
    EXPECT_EQ(values("5F2002", "5F20044C55524F", 2), "4C55");
    EXPECT_EQ(values("8405", "8407A0000003330101", 5), "A000000333");
}

TEST(ValueString, TreatsATagListedTwiceByItsFirstFormat) {
    EXPECT_EQ(values("9F5302", "9F5303112233", 2), "1122");
}

TEST(ValueString, HasZerosForATagWithoutAFormat) {
    EXPECT_EQ(values("DF6002", "DF60021122", 2), "0000");
}

TEST(ValueString, HasZerosForATemplate) {
    EXPECT_EQ(values("7004", "7004 5A026214", 4), "00000000");
    EXPECT_EQ(values("A504", "A504 5A026214", 4), "00000000");
    EXPECT_EQ(values("BF0C02", "BF0C02 5A00", 2), "0000");
}

TEST(ValueString, HasZerosForATagThatIsNotThere) {
    EXPECT_EQ(values("9F0206", "9F370411223344", 6), "000000000000");
    EXPECT_EQ(values("5A04", "9F370411223344", 4), "00000000") << "no Fs without a value";
}

TEST(ValueString, FillsUpForAnEmptyValue) {
    EXPECT_EQ(values("9F0203", "9F0200", 3), "000000");
    EXPECT_EQ(values("5A03", "5A00", 3), "FFFFFF");
    EXPECT_EQ(values("9F3703", "9F3700", 3), "000000");
}

TEST(ValueString, HasEveryEntryInTheListsOrder) {
    EXPECT_EQ(values("9F6604 9F0206 5F2A02 DF6001 9F3704",
                     "9F0206000000001213 5F2A020156 9F370411223344 9F6604F4000000", 17),
              "F4000000"
              "000000001213"
              "0156"
              "00"
              "11223344");
}

// Every primitive tag of the table, each with another value and a second time with FF behind all of
// them, and a list that asks for them backwards.
TEST(ValueString, HasTheFirstValueOfEachOfManyTags) {
    std::string list;
    std::string firsts;
    std::string seconds;
    std::string expected;
    std::set<std::string> seen;
    for (const TagFormat& format : tag_formats()) {
        if ((bytes(format.tag).front() & 0x20) == 0 && seen.insert(format.tag).second) {
            const std::string value = hex(Bytes{static_cast<std::uint8_t>(seen.size())});
            list.insert(0, format.tag + "01");
            firsts += format.tag + "01" + value;
            seconds += format.tag + "01FF";
            expected.insert(0, value);
        }
    }
    ASSERT_GT(seen.size(), 100U);
    EXPECT_EQ(values(list, firsts + seconds, seen.size()), expected);
    EXPECT_EQ(answer(list, firsts + seconds + "00", seen.size(), true).values, expected);
}

TEST(ValueString, HasTheFirstOfTwoValuesThatASearchForAnotherTagPassed) {
    EXPECT_EQ(values("9F3704 9C01", "9C0133 9C01FF 9F370411223344", 5), "1122334433");
}

// 9A and 9F15 share a note: whichever is passed first has it.
TEST(ValueString, HasTheValuesOfTagsThatShareANote) {
    const std::string_view data = "9C0133 9A03190422 9F15021234 9A03FFFFFF";
    EXPECT_EQ(values("9A03 9F1502 9A03 9F1502 9C01", data, 11), "1904221234190422123433");
    EXPECT_EQ(values("9F1502 9A03 9C01 9F1502", data, 8), "1234190422331234");
    EXPECT_EQ(values("9F1502 9F1502", "9A03190422", 4), "00000000");
}

TEST(ValueString, HasNothingForAnEntryThatAsksForNothing) {
    EXPECT_EQ(values("9F0200 9C01 9F3700", "9F0206000000001213 9C0133 9F370411223344", 1), "33");
}

TEST(ValueString, FindsValuesInsideTemplates) {
    EXPECT_EQ(values("9F3602", "77 0E 9F2701 80 9F3602 0017 9F1002 0701", 2), "0017");
}

TEST(ValueString, TakesStoredLengthsOfTwoAndThreeBytesFromTheirPlace) {
    EXPECT_EQ(values("9F3702", "9C0133 9F37810411223344", 2), "1122");
    EXPECT_EQ(values("9F3706", "9C0133 9F37810411223344", 6), "112233440000");
    EXPECT_EQ(values("9F3706", "9C0133 9F3782000411223344", 6), "112233440000");
}

TEST(ValueString, ComesFromAZeroTerminatedListWhenTheLengthIsZero) {
    const Answer given =
        answer("9F0206 9C01", "9F0206000000001213 00 9C0133 00", 7, /*zero_terminated=*/true);
    EXPECT_EQ(given.result, 0);
    EXPECT_EQ(given.length, 7);
    EXPECT_EQ(given.values, "00000000121300") << "the type stands behind the list's end";
}

TEST(ValueString, IsFoundInAZeroTerminatedListWithoutReadingOnBehindIt) {
    // No zero byte: a read behind the last value is one behind the block.
    EXPECT_EQ(answer("9F0206", "9F0206000000001213", 6, /*zero_terminated=*/true).values,
              "000000001213");
    EXPECT_EQ(answer("9F0306 9F0206 9F0301", "9F0206000000001213 9F0306000000000055", 13,
                     /*zero_terminated=*/true)
                  .values,
              "00000000005500000000121355");
}

TEST(ValueString, HasZerosForATagOfThreeBytes) {
    // Cards may ask for them; no format is known for them.
    EXPECT_EQ(values("DF810102 9F0206", "DF81010211229F0206000000001213", 8), "0000000000001213");
}

TEST(ValueString, WritesNoByteOfTheFieldsThatFollow) {
    const Answer given = answer("9F0204", "9F02021213", 6);
    EXPECT_EQ(given.length, 4);
    EXPECT_EQ(given.values, "00001213EEEE");
}

TEST(ValueString, HasZerosForWhatTheDataCutsOff) {
    EXPECT_EQ(values("9F3704", "9F37041122", 4), "11220000") << "binary";
    EXPECT_EQ(values("9F0206", "9F02060000", 6), "000000000000") << "numeric";
    EXPECT_EQ(values("9F0204", "9F020600000001", 4), "00010000") << "its last bytes are missing";
    EXPECT_EQ(values("9F0208", "9F020611223344", 8), "0000112233440000");
    EXPECT_EQ(values("5A06", "5A046214", 6), "62140000FFFF") << "compressed numeric";
    EXPECT_EQ(values("9F3704", "9C0133 9F37", 4), "00000000") << "its length is missing";
    EXPECT_EQ(values("9F3704", "9C0133 9F378200", 4), "00000000");
}

TEST(ValueString, AnswersTagsWithAZeroByteByZeros) {
    EXPECT_EQ(values("0002", "00021122", 2), "0000");
    EXPECT_EQ(values("9F0002", "9F00021122", 2), "0000");
}

TEST(ValueString, MayBeAsLongAsAHostsListAsks) {
    EXPECT_EQ(values("9F02820400 9F3781FF", "9F0206000000001213 9F370411223344", 1279),
              repeated("00", 1018) + "000000001213" + "11223344" + repeated("00", 251));
}

TEST(ValueString, AnswersAHostWithoutData) {
    const Bytes list = exact("9F0206 5A02");
    Bytes out = room(8);
    int length = kUntouched;
    EXPECT_EQ(qmcx_BuildDOL(nullptr, 0, list.data(), 5, out.data(), &length), 0);
    EXPECT_EQ(length, 8);
    EXPECT_EQ(hex(out), "0000000000000000");
}

TEST(ValueString, OfAnEmptyListIsRefused) {
    Bytes data = exact("9F0206000000001213");
    Bytes out = room(4);
    int length = kUntouched;
    EXPECT_EQ(qmcx_BuildDOL(data.data(), 9, data.data(), 0, out.data(), &length), kEmptyData);
    EXPECT_EQ(length, 0);
    length = kUntouched;
    EXPECT_EQ(qmcx_BuildDOL(data.data(), 9, nullptr, 3, out.data(), &length), kEmptyData);
    EXPECT_EQ(length, 0);
    EXPECT_EQ(hex(out), "EEEEEEEE");
}

TEST(ValueString, OfAListThatEndsInsideATagIsRefused) {
    const Answer given = answer("9F", "9F0206000000001213", 2);
    EXPECT_EQ(given.result, kNoTag);
    EXPECT_EQ(given.length, 0);
    EXPECT_EQ(given.values, "EEEE");
}

TEST(ValueString, KeepsTheValuesBeforeAnEntryThatCannotBeRead) {
    for (const std::string_view broken : {"9F", "9A", "9F02", "9A81", "9A82", "9A8201", "FF03"}) {
        const Answer given =
            answer("9C01 9F3704" + std::string(broken), "9C0133 9F370411223344", 5);
        EXPECT_EQ(given.result, kNoTag) << broken;
        EXPECT_EQ(given.length, 5);
        EXPECT_EQ(given.values, "3311223344");
    }
}

// --- the value string in a place of limited size ---

TEST(BoundedValueString, MayFillItsPlace) {
    Bytes out = room(255);
    const auto built = dol::build(exact("9F370411223344"), exact("9F3704 9F4C81FB"), out);
    EXPECT_EQ(built.result, 0);
    EXPECT_EQ(built.length, 255U);
    EXPECT_EQ(hex(out), "11223344" + repeated("00", 251));
}

TEST(BoundedValueString, OfAListThatAsksForMoreIsRefused) {
    Bytes out = room(255);
    EXPECT_EQ(dol::build(exact("9F370411223344"), exact("9F3704 9F4C81FC"), out).result,
              kEmptyData);
    EXPECT_EQ(dol::build(exact("9F370411223344"), exact("9F4C820100"), out).result, kEmptyData);
    EXPECT_EQ(dol::build(exact("9F370411223344"), exact("9F4C82FFFF 9F3704"), out).result,
              kEmptyData);
}

TEST(BoundedValueString, WritesNothingForTheEntryThatDoesNotFit) {
    Bytes out = room(6);
    EXPECT_EQ(dol::build(exact("9F370411223344"), exact("9F3704 9F3704"), out).result, kEmptyData);
    EXPECT_EQ(hex(out), "11223344EEEE");
}

} // namespace
