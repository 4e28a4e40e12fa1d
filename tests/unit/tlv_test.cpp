// Finding data objects in card data, and the values behind their tags.
#include "engine/data/tlv.h"

#include "exact_buffer.h"
#include "tests/support/hex.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <optional>
#include <string>
#include <string_view>

namespace tlv = qaven::tlv;
using qaven::test::Bytes;
using qaven::test::exact;
using qaven::test::hex;
using qaven::test::repeated;
using qaven::test::room;

namespace {

constexpr int kNoTag = -204;
constexpr int kUntouched = 99;
constexpr int kNotFound = -1;

// A debit application's FCI: DF name, label, priority, PDOL.
constexpr std::string_view kFci = "6F1A 8407A0000003330101 A50F 500450424F43 870101 9F38039F1A02";

// Where a search finds the tag in data; buflen 0 searches to the zero at the end.
int position(std::string_view wanted, Bytes& data, int buflen) {
    const Bytes tag = exact(wanted);
    const unsigned char* const found =
        qmcx_findtag(tag.data(), static_cast<int>(tag.size()), data.data(), buflen);
    return found == nullptr ? kNotFound : static_cast<int>(found - data.data());
}

int position_in(std::string_view wanted, std::string_view hex_text) {
    Bytes data = exact(hex_text);
    return position(wanted, data, static_cast<int>(data.size()));
}

int position_in_list(std::string_view wanted, std::string_view hex_text) {
    Bytes data = exact(hex_text);
    return position(wanted, data, 0);
}

struct Value {
    int result;
    int length;
    std::string value; // what the whole output buffer holds
};

Value value_of(std::string_view wanted, std::string_view hex_text, std::size_t out_size,
               bool zero_terminated = false) {
    const Bytes tag = exact(wanted);
    Bytes data = exact(hex_text);
    Bytes out = room(out_size);
    int length = kUntouched;
    const int result =
        qmcx_gettagvalue(tag.data(), static_cast<int>(tag.size()), data.data(),
                         zero_terminated ? 0 : static_cast<int>(data.size()), out.data(), &length);
    return {result, length, hex(out)};
}

// --- searching a buffer of known length ---

TEST(FindTag, SearchesThroughTheTemplatesOfAnFci) {
    EXPECT_EQ(position_in("9F38", kFci), 22) << "inside A5 inside 6F";
    EXPECT_EQ(position_in("87", kFci), 19);
    EXPECT_EQ(position_in("84", kFci), 2);
}

TEST(FindTag, FindsATemplateItselfNotItsContent) {
    EXPECT_EQ(position_in("6F", kFci), 0);
    EXPECT_EQ(position_in("A5", kFci), 11);
}

TEST(FindTag, GivesAPointerIntoTheBufferAndLeavesTheBufferAlone) {
    Bytes data = exact(kFci);
    const Bytes tag = exact("9F38");
    EXPECT_EQ(qmcx_findtag(tag.data(), 2, data.data(), static_cast<int>(data.size())),
              data.data() + 22);
    EXPECT_EQ(data, exact(kFci));
}

TEST(FindTag, DoesNotFindWhatIsNotThere) {
    EXPECT_EQ(position_in("9F4D", kFci), kNotFound);
    EXPECT_EQ(position_in("5A", kFci), kNotFound);
}

TEST(FindTag, FindsNothingInABufferThatBeginsWithPadding) {
    EXPECT_EQ(position_in("5A", "FF 5A 01 62"), kNotFound);
    EXPECT_EQ(position_in("FF", "FF 01 62"), kNotFound);
}

TEST(FindTag, PaddingBetweenObjectsEndsTheSearch) {
    EXPECT_EQ(position_in("5A", "57 01 62 FF 5A 01 62"), kNotFound);
    EXPECT_EQ(position_in("5A", "70 04 FF 5A 01 62"), kNotFound);
}

TEST(FindTag, AOneByteTagIsNotTheFirstHalfOfALongerOne) {
    EXPECT_EQ(position_in("9F", kFci), kNotFound);
    EXPECT_EQ(position_in("9F", "9F38 03 9F1A02"), kNotFound);
}

TEST(FindTag, ALongerTagIsNotMatchedByItsFirstHalf) {
    EXPECT_EQ(position_in("9F36", "9F38 01 36"), kNotFound);
    EXPECT_EQ(position_in("9A36", "9A 36"), kNotFound);
    EXPECT_EQ(position_in("9F8102", "9F8101 00"), kNotFound);
}

TEST(FindTag, DoesNotLookIntoPrimitiveValues) {
    EXPECT_EQ(position_in("5A", "57 04 5A026214 5A 01 62"), 6);
    EXPECT_EQ(position_in("5A", "57 04 5A026214"), kNotFound);
}

TEST(FindTag, TheFirstInDocumentOrderWinsHoweverDeepItStands) {
    EXPECT_EQ(position_in("5A", "70 07 73 05 61 03 5A 01 11 5A 01 22"), 6);
    EXPECT_EQ(position_in("5A", "5A 01 22 70 03 5A 01 11"), 0);
    EXPECT_EQ(position_in("5A", "70 03 5A 01 11 5A 01 22"), 2);
}

TEST(FindTag, ATemplateIsLeftWhereItsObjectsEndWhateverItsLengthSays) {
    EXPECT_EQ(position_in("5A", "70 00 5A 01 62"), 2);
    EXPECT_EQ(position_in("5A", "70 7F 57 01 62 5A 01 62"), 5);
}

TEST(FindTag, StepsOverLengthsOfTwoAndThreeBytes) {
    EXPECT_EQ(position_in("5A", "57 81 02 5A00 5A 01 62"), 5);
    EXPECT_EQ(position_in("5A", "57 82 0002 5A00 5A 01 62"), 6);
    EXPECT_EQ(position_in("5A", "57 82 0102" + repeated("5A", 258) + "5A 01 62"), 262);
    EXPECT_EQ(position_in("5A", "70 81 03 5A 01 62"), 3);
    EXPECT_EQ(position_in("5A", "70 82 0003 5A 01 62"), 4);
}

TEST(FindTag, NoTagIsNowhere) {
    Bytes data = exact("01 01 5A 00");
    for (const int length : {0, -1}) {
        const Bytes tag = exact("01");
        EXPECT_EQ(qmcx_findtag(tag.data(), length, data.data(), 4), nullptr) << length;
    }
}

TEST(FindTag, OtherLongFormsAreLengthsThemselves) {
    EXPECT_EQ(position_in("5A", "57 80" + repeated("5A", 128) + "5A 01 62"), 130);
    EXPECT_EQ(position_in("5A", "57 83" + repeated("5A", 131) + "5A 01 62"), 133);
    EXPECT_EQ(position_in("5A", "57 84" + repeated("5A", 132) + "5A 01 62"), 134);
    EXPECT_EQ(position_in("5A", "57 FF" + repeated("5A", 255) + "5A 01 62"), 257);
    EXPECT_EQ(position_in("5A", "70 80 5A 01 62"), 2);
    EXPECT_EQ(position_in("5A", "70 83 5A 01 62"), 2);
}

TEST(FindTag, ZeroIsATagWithALengthOfItsOwn) {
    EXPECT_EQ(position_in("5A", "00 00 00 00 5A 01 62"), 4);
    EXPECT_EQ(position_in("5A", "00 02 5A01 5A 01 62"), 4);
    EXPECT_EQ(position_in("5A", "00 00 00 5A 01 62"), kNotFound) << "a zero of length 5A";
    EXPECT_EQ(position_in("00", "5A 01 62 00 00"), 3);
}

TEST(FindTag, KnowsTagsOfThreeBytesAndMore) {
    EXPECT_EQ(position_in("9F8101", "57 00 9F8101 01 62"), 2);
    EXPECT_EQ(position_in("5A", "9F8101 01 62 5A 01 62"), 5);
    EXPECT_EQ(position_in("5A", "DF818201 01 62 5A 01 62"), 6);
    EXPECT_EQ(position_in("5A", "BF8101 03 5A 01 62"), 4);
}

TEST(FindTag, PaddingInsideATagEndsTheSearch) {
    EXPECT_EQ(position_in("5A", "9FFF 01 62 5A 01 62"), kNotFound);
    EXPECT_EQ(position_in("9FFF", "9FFF 01 62"), kNotFound);
    EXPECT_EQ(position_in("5A", "9F81FF 01 62 5A 01 62"), kNotFound);
}

TEST(FindTag, ATagThatRunsPastTheEndIsNone) {
    EXPECT_EQ(position_in("9F", "9F"), kNotFound);
    EXPECT_EQ(position_in("9F81", "5A 01 62 9F81"), kNotFound);
    EXPECT_EQ(position_in("9F8182", "9F8182"), kNotFound);
    EXPECT_EQ(position_in("5A", "5F"), kNotFound);
}

TEST(FindTag, ATagAtTheVeryEndIsFoundWithoutItsLength) {
    EXPECT_EQ(position_in("57", "5A 01 62 57"), 3);
    EXPECT_EQ(position_in("9F38", "5A 01 62 9F38"), 3);
    EXPECT_EQ(position_in("57", "57"), 0);
}

TEST(FindTag, ALengthFieldOutsideTheBufferEndsTheSearch) {
    EXPECT_EQ(position_in("50", "5A 01 62 57"), kNotFound);
    EXPECT_EQ(position_in("50", "5A 01 62 57 81"), kNotFound);
    EXPECT_EQ(position_in("50", "5A 01 62 57 82"), kNotFound);
    EXPECT_EQ(position_in("50", "5A 01 62 57 82 00"), kNotFound);
    EXPECT_EQ(position_in("50", "70"), kNotFound);
    EXPECT_EQ(position_in("50", "70 82 00"), kNotFound);
}

TEST(FindTag, AValueThatRunsPastTheEndEndsTheSearch) {
    EXPECT_EQ(position_in("5A", "57 7F 5A 01 62"), kNotFound);
    EXPECT_EQ(position_in("5A", "57 82 FFFF 5A 01 62"), kNotFound);
    EXPECT_EQ(position_in("5A", "57 03 5A 01"), kNotFound);
}

TEST(FindTag, NoCutOfAnFciIsReadPastItsEnd) {
    const Bytes whole = exact(kFci);
    for (std::size_t size = 1; size < whole.size(); ++size) {
        Bytes cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(position("9F4D", cut, static_cast<int>(size)), kNotFound) << size;
        EXPECT_EQ(position("A5", cut, static_cast<int>(size)), size > 11 ? 11 : kNotFound) << size;
    }
}

TEST(FindTag, FindsNothingWithoutABuffer) {
    const Bytes tag = exact("5A");
    Bytes data = exact("5A 01 62");
    EXPECT_EQ(qmcx_findtag(tag.data(), 1, nullptr, 3), nullptr);
    EXPECT_EQ(qmcx_findtag(tag.data(), 1, data.data(), -1), nullptr);
}

TEST(FindTag, AnEmptyTagIsNeverFound) {
    Bytes data = exact("01 01 62");
    for (const int size : {0, -1}) {
        EXPECT_EQ(qmcx_findtag(data.data(), size, data.data(), 3), nullptr);
    }
}

TEST(FindTag, ATagWithAByteTooManyIsNeverFound) {
    EXPECT_EQ(position_in("5A01", "01 01 62 5A 01 62"), kNotFound);
}

// --- searching a list that ends with a zero ---

TEST(FindTagInList, GoesToTheTerminatingZero) {
    EXPECT_EQ(position_in_list("5A", "57 01 62 5A 01 62 00"), 3);
    EXPECT_EQ(position_in_list("50", "57 01 62 5A 01 62 00"), kNotFound);
    EXPECT_EQ(position_in_list("5A", "57 01 62 00 5A 01 62 00"), kNotFound);
    EXPECT_EQ(position_in_list("5A", "00"), kNotFound);
}

TEST(FindTagInList, PaddingEndsTheListToo) {
    EXPECT_EQ(position_in_list("5A", "FF"), kNotFound);
    EXPECT_EQ(position_in_list("5A", "57 01 62 FF"), kNotFound);
}

TEST(FindTagInList, ZeroIsNoTagThere) {
    EXPECT_EQ(position_in_list("00", "57 01 62 00"), kNotFound);
}

TEST(FindTagInList, ZerosInsideValuesDoNotEndIt) {
    EXPECT_EQ(position_in_list("5A", "57 03 000000 9F02 01 00 5A 01 62 00"), 9);
}

TEST(FindTagInList, TheSecondByteAlwaysEndsATag) {
    EXPECT_EQ(position_in_list("9F81", "9F81 01 62 5A 01 62 00"), 0);
    EXPECT_EQ(position_in_list("5A", "9F81 01 62 5A 01 62 00"), 4);
    EXPECT_EQ(position_in_list("5A", "9FFF 01 62 5A 01 62 00"), 4);
    EXPECT_EQ(position_in_list("9F8101", "9F8101 00 00"), kNotFound);
}

TEST(FindTagInList, SearchesTemplatesAndLongLengthsAlike) {
    EXPECT_EQ(position_in_list("5A", "70 03 5A 01 62 00"), 2);
    EXPECT_EQ(position_in_list("5A", "57 81 02 5A00 5A 01 62 00"), 5);
    EXPECT_EQ(position_in_list("5A", "57 82 0002 5A00 5A 01 62 00"), 6);
}

// --- the value behind a tag ---

TEST(TagValue, IsCopiedWithItsLength) {
    const auto name = value_of("84", kFci, 7);
    EXPECT_EQ(name.result, 0);
    EXPECT_EQ(name.length, 7);
    EXPECT_EQ(name.value, "A0000003330101");
    EXPECT_EQ(value_of("9F38", kFci, 3).value, "9F1A02");
}

TEST(TagValue, OfATemplateIsItsWholeContent) {
    const auto content = value_of("A5", kFci, 15);
    EXPECT_EQ(content.length, 15);
    EXPECT_EQ(content.value, "500450424F438701019F38039F1A02");
}

TEST(TagValue, OfAMissingTagIsRefusedAndNothingWritten) {
    const auto missing = value_of("5A", kFci, 8);
    EXPECT_EQ(missing.result, kNoTag);
    EXPECT_EQ(missing.length, kUntouched);
    EXPECT_EQ(missing.value, repeated("EE", 8));
}

TEST(TagValue, OfLengthZeroWritesOnlyTheLength) {
    const auto empty = value_of("5A", "5A 00 57 01 62", 4);
    EXPECT_EQ(empty.result, 0);
    EXPECT_EQ(empty.length, 0);
    EXPECT_EQ(empty.value, "EEEEEEEE");
}

TEST(TagValue, TakesATwoByteLength) {
    const auto big = value_of("5A", "5A 82 0102" + repeated("62", 258) + "57 00", 258);
    EXPECT_EQ(big.result, 0);
    EXPECT_EQ(big.length, 258);
    EXPECT_EQ(big.value, repeated("62", 258));
}

TEST(TagValue, TakesOtherLongFormsAsLengths) {
    for (const std::size_t length : {0x80U, 0x83U, 0x84U, 0xFFU}) {
        const std::array field{static_cast<std::uint8_t>(length)};
        const auto found =
            value_of("5A", "5A" + hex(field) + repeated("62", length) + "FF", length);
        EXPECT_EQ(found.length, static_cast<int>(length));
        EXPECT_EQ(found.value, repeated("62", length));
    }
}

TEST(TagValue, ALengthBehind81IsReadFromTheBuffersSecondByte) {
    const std::string record = "70 81 90 5A 81 08 6214830123456789" + repeated("A1", 133);
    const auto pan = value_of("5A", record, 0x81);
    EXPECT_EQ(pan.result, 0);
    EXPECT_EQ(pan.length, 0x81) << "not 8";
    EXPECT_EQ(pan.value, "6214830123456789" + repeated("A1", 0x81 - 8));
}

TEST(TagValue, ALengthBehind81CanAlsoComeOutShort) {
    const auto name = value_of("5F20", "57 03 112233 5F20 81 05 4C55524F21", 3);
    EXPECT_EQ(name.length, 3) << "of the first object";
    EXPECT_EQ(name.value, "4C5552");
}

TEST(TagValue, TheOutermostTemplatesOwn81IsThatSecondByte) {
    const auto content = value_of("70", "70 81 03 5A 01 62", 0x81);
    EXPECT_EQ(content.length, 0x81);
    EXPECT_EQ(content.value, "5A0162" + repeated("00", 0x81 - 3));
}

TEST(TagValue, ALengthBehind81OfAZeroTerminatedListIsReadThereToo) {
    const auto found = value_of("5A", "57 02 1122 5A 81 04 62636465 00", 2, true);
    EXPECT_EQ(found.length, 2);
    EXPECT_EQ(found.value, "6263");
}

TEST(TagValue, ThatRunsPastTheEndIsFilledWithZeros) {
    const auto cut = value_of("5A", "5A 08 6214", 8);
    EXPECT_EQ(cut.result, 0);
    EXPECT_EQ(cut.length, 8) << "as declared";
    EXPECT_EQ(cut.value, "6214000000000000");

    const auto nothing_there = value_of("5A", "57 01 62 5A 04", 4);
    EXPECT_EQ(nothing_there.length, 4);
    EXPECT_EQ(nothing_there.value, "00000000");
}

TEST(TagValue, ThatClaims65535BytesIsFilledWithZeros) {
    const auto huge = value_of("5A", "5A 82 FFFF 6214", 65535);
    EXPECT_EQ(huge.length, 65535);
    EXPECT_EQ(huge.value, "6214" + repeated("00", 65533));
}

TEST(TagValue, WhoseLengthFieldIsOutsideTheBufferIsRefused) {
    for (const std::string_view data :
         {"57 01 62 5A", "57 01 62 5A 81", "57 01 62 5A 82", "57 01 62 5A 82 00"}) {
        const auto cut = value_of("5A", data, 4);
        EXPECT_EQ(cut.result, kNoTag) << data;
        EXPECT_EQ(cut.length, kUntouched);
        EXPECT_EQ(cut.value, "EEEEEEEE");
    }
}

TEST(TagValue, OfAZeroTerminatedListIsFoundBeforeTheZeroOnly) {
    EXPECT_EQ(value_of("51", "50 06 000000001213 51 02 0156 00", 2, true).value, "0156");
    EXPECT_EQ(value_of("52", "50 06 000000001213 00 52 01 01 00", 1, true).result, kNoTag);
}

// --- extraction with a capacity, as the engine does it ---

TEST(Extract, TakesAllThatFits) {
    for (const std::size_t capacity : {255U, 256U, 257U, 1024U, 1025U}) {
        for (const std::size_t length : {256U, 257U, 1024U, 1025U}) {
            const std::array<std::uint8_t, 2> field{static_cast<std::uint8_t>(length / 256),
                                                    static_cast<std::uint8_t>(length % 256)};
            const Bytes data = exact("5A 82" + hex(field) + repeated("62", length));
            Bytes out = room(capacity);
            EXPECT_EQ(tlv::extract(exact("5A"), data, out), std::min(capacity, length))
                << capacity << ' ' << length;
            EXPECT_EQ(out.back(), capacity <= length ? 0x62 : 0xEE) << capacity << ' ' << length;
        }
    }
}

TEST(Extract, CutsLengthAndCopyToItsCapacity) {
    const Bytes data = exact("5A 82 0102" + repeated("62", 258));
    Bytes out = room(256);
    EXPECT_EQ(tlv::extract(exact("5A"), data, out), std::optional<std::size_t>(256));
    EXPECT_EQ(hex(out), repeated("62", 256));
}

TEST(Extract, LeavesWhatIsBehindTheValueAlone) {
    Bytes out = room(4);
    EXPECT_EQ(tlv::extract(exact("5A"), exact("5A 02 6214"), out), std::optional<std::size_t>(2));
    EXPECT_EQ(hex(out), "6214EEEE");
}

TEST(Extract, FillsUpWithZerosWhatTheDataDoesNotHold) {
    Bytes out = room(4);
    EXPECT_EQ(tlv::extract(exact("5A"), exact("5A 7F 6214"), out), std::optional<std::size_t>(4));
    EXPECT_EQ(hex(out), "62140000");
}

TEST(Extract, GivesNothingForAMissingTag) {
    Bytes out = room(4);
    EXPECT_EQ(tlv::extract(exact("5A"), exact("57 02 6214"), out), std::nullopt);
    EXPECT_EQ(tlv::extract(exact("5A"), {}, out), std::nullopt);
    EXPECT_EQ(hex(out), "EEEEEEEE");
}

// --- which tags of a list the data lacks ---

struct Missing {
    int length;
    std::string list;
};

Missing missing_tags(std::string_view data_text, std::string_view list_text, bool terminated) {
    Bytes data = exact(data_text);
    Bytes list = exact(list_text);
    const int left = qmcx_findapptag(data.data(), terminated ? 0 : static_cast<int>(data.size()),
                                     list.data(), static_cast<int>(list.size()));
    return {left, hex(std::span(list).first(static_cast<std::size_t>(left)))};
}

TEST(MissingTags, AreWhatTheDataDoesNotHold) {
    const auto missing = missing_tags("57 01 62", "5A 5F20 57", false);
    EXPECT_EQ(missing.length, 3);
    EXPECT_EQ(missing.list, "5A5F20");
}

TEST(MissingTags, AreNoneWhenAllAreThere) {
    EXPECT_EQ(missing_tags("70 08 5A 01 62 5F20 02 4C55", "5A 5F20", false).length, 0);
}

TEST(MissingTags, AreAllWhenNoneIsThere) {
    const auto missing = missing_tags("9F36 02 0001", "8C 5A 5F34 9F61 57", false);
    EXPECT_EQ(missing.length, 7);
    EXPECT_EQ(missing.list, "8C5A5F349F6157");
}

TEST(MissingTags, TheRestOfTheListMovesUpOverEachOneFound) {
    const auto missing = missing_tags("5F34 01 01 57 01 62", "5A 5F34 5F34 57 9F61 57 8D", false);
    EXPECT_EQ(missing.length, 4);
    EXPECT_EQ(missing.list, "5A9F618D");
}

TEST(MissingTags, HaveTwoBytesAtMost) {
    const auto missing = missing_tags("9F8101 01 62 5A 01 62", "9F81 5A", false);
    EXPECT_EQ(missing.list, "9F81") << "the data has a tag of three bytes";
}

TEST(MissingTags, AListThatEndsInsideATagKeepsItsEnd) {
    const auto missing = missing_tags("5A 01 62 9F36 02 0001", "5A 9F", false);
    EXPECT_EQ(missing.length, 1);
    EXPECT_EQ(missing.list, "9F");
}

TEST(MissingTags, AnEmptyListStaysEmpty) {
    Bytes data = exact("5A 01 62");
    EXPECT_EQ(qmcx_findapptag(data.data(), 3, data.data(), 0), 0);
    EXPECT_EQ(qmcx_findapptag(data.data(), 3, data.data(), -1), 0);
}

TEST(MissingTags, CanBeAskedOfAZeroTerminatedList) {
    EXPECT_EQ(missing_tags("57 01 62 00 5A 01 62", "5A 57", true).list, "5A");
}

// --- the value behind a length field ---

struct Field {
    int result;
    unsigned int length;
    std::string value;
};

Field field_at(int pos, std::string_view hex_text, std::size_t out_size) {
    const Bytes data = exact(hex_text);
    Bytes out = room(out_size);
    unsigned char length = kUntouched;
    const int result = qmcx_GetTagData(pos, data.data(), out.data(), &length);
    return {result, length, hex(out)};
}

TEST(LengthAndValue, AreReadFromThePosition) {
    const auto field = field_at(1, "86 02 00B2", 2);
    EXPECT_EQ(field.result, 0);
    EXPECT_EQ(field.length, 2U);
    EXPECT_EQ(field.value, "00B2");
    EXPECT_EQ(field_at(0, "02 00B2", 2).value, "00B2");
}

TEST(LengthAndValue, ALengthOfZeroCopiesNothing) {
    const auto field = field_at(1, "86 00", 2);
    EXPECT_EQ(field.result, 0);
    EXPECT_EQ(field.length, 0U);
    EXPECT_EQ(field.value, "EEEE");
}

TEST(LengthAndValue, BehindA81StandTheLengthAndThenTheValue) {
    const auto field = field_at(1, "86 81 82" + repeated("A1", 130), 130);
    EXPECT_EQ(field.length, 130U);
    EXPECT_EQ(field.value, repeated("A1", 130));
}

TEST(LengthAndValue, OfATwoByteLengthOnlyTheLowByteCounts) {
    const auto field = field_at(2, "9F10 82 0103" + repeated("A1", 259), 3);
    EXPECT_EQ(field.result, 0);
    EXPECT_EQ(field.length, 3U);
    EXPECT_EQ(field.value, "A1A1A1");
}

TEST(LengthAndValue, OtherLongFormsAreLengthsThemselves) {
    EXPECT_EQ(field_at(1, "86 80" + repeated("A1", 128), 128).length, 128U);
    EXPECT_EQ(field_at(1, "86 FF" + repeated("A1", 255), 255).value, repeated("A1", 255));
}

// --- tags of a log format ---

struct LogTag {
    int consumed;
    unsigned int size;
    std::string tag; // what the whole output buffer holds
};

LogTag log_tag(std::string_view hex_text, int len) {
    const Bytes format = exact(hex_text);
    Bytes tag = room(2);
    unsigned char size = kUntouched;
    const int consumed = qm_GetTL(tag.data(), &size, format.data(), len);
    return {consumed, size, hex(tag)};
}

TEST(LogFormatTag, HasTwoBytesWhenItsFirstIsOdd) {
    for (const std::string_view entry : {"9F2103", "5F2A02", "9F4E14", "9F3602", "9F0206"}) {
        const auto tag = log_tag(entry, 3);
        EXPECT_EQ(tag.consumed, 3) << entry;
        EXPECT_EQ(tag.size, 2U);
        EXPECT_EQ(tag.tag, entry.substr(0, 4));
    }
}

TEST(LogFormatTag, HasOneByteWhenItsFirstIsEven) {
    for (const std::string_view entry : {"9A03", "9C01", "5A0A", "8202"}) {
        const auto tag = log_tag(entry, 2);
        EXPECT_EQ(tag.consumed, 2) << entry;
        EXPECT_EQ(tag.size, 1U);
        EXPECT_EQ(tag.tag, std::string(entry.substr(0, 2)) + "EE");
    }
}

TEST(LogFormatTag, GoesByTheLowestBitAlone) {
    EXPECT_EQ(log_tag("9505", 2).tag, "9505") << "the verification results have a one-byte tag";
    EXPECT_EQ(log_tag("9505", 2).consumed, 3);
}

TEST(LogFormatTag, DoesNotAskHowMuchIsLeft) {
    EXPECT_EQ(log_tag("9F2103", 0).consumed, 3);
    EXPECT_EQ(log_tag("9A", -1).consumed, 2);
}

} // namespace
