// The transaction log and the load log as texts.
#include "engine/operation/transaction_log.h"

#include "console.h"
#include "engine/card/session.h"
#include "host_calls.h"
#include "payment_card.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace session = qaven::session;

using namespace qaven::test;
using testing::EndsWith;
using testing::SizeIs;

namespace {

// The log format that cards usually have, its fields in another order than the host's.
constexpr std::string_view kFormat =
    "9F4F19 9A03 9F2103 9F0206 9F0306 9F1A02 5F2A02 9F4E14 9C01 9F3602";

constexpr std::string_view kReadFormat = "80CA9F4F00";
constexpr std::string_view kReadLoadFormat = "80CADF4F00";

// A record of that format.
std::string record(std::string_view merchant_hex, std::string_view atc) {
    return "190422 161355 000000001213 000000000000 0156 0156 " + std::string(merchant_hex) +
           " 03 " + std::string(atc);
}

std::string merchant(std::string_view name) {
    return text_hex(name) + repeated("00", 20 - name.size());
}

std::string record_text(std::string_view merchant_text, std::string_view atc) {
    return "P012000000001213"
           "Q012000000000000"
           "R0040156"
           "S006190422"
           "T00203"
           "U006161355"
           "V0040156"
           "W020" +
           std::string(merchant_text) + "X004" + std::string(atc);
}

// Length of one such text.
constexpr std::size_t kRecordText = 16 + 16 + 8 + 10 + 6 + 10 + 8 + 24 + 8;

std::string read_record_command(int number, int sfi) {
    return "00B2" +
           hex(Bytes{static_cast<std::uint8_t>(number), static_cast<std::uint8_t>(sfi * 8 + 4), 0});
}

class TransactionLog : public OperationTest {
  protected:
    void SetUp() override { connect(); }

    // Selection, format and log entry; the records follow.
    void expect_log(std::string_view format, std::string_view fci) {
        expect_select(card, kPrefix, fci);
        card.expect(kReadFormat, std::string(format) + "9000");
    }

    void expect_record(int number, std::string_view data, int sfi = 11) {
        card.expect(read_record_command(number, sfi), std::string(data) + "9000");
    }

    void expect_end(int number, int sfi = 11) {
        card.expect(read_record_command(number, sfi), "6A83");
    }

    // A one-record log of this format.
    std::string one_record(std::string_view format, std::string_view data) {
        expect_log(format, object("9F4D", "0B01"));
        expect_record(1, data);
        TxDetailCall single;
        EXPECT_EQ(single.run(), 0);
        return single.detail.text().substr(2);
    }

    TxDetailCall call;
};

// --- the transaction log ---

TEST_F(TransactionLog, RecordsComeInTheOrderOfTheHostsFields) {
    expect_log(kFormat, object("9F4D", "0B02"));
    expect_record(1, record(merchant("LURO CNT 0328"), "0012"));
    expect_record(2, record(merchant("MRCH CNT 0001"), "0011"));
    EXPECT_EQ(call.run(), 0);
    const std::string text =
        record_text("LURO CNT 0328       ", "0012") + record_text("MRCH CNT 0001       ", "0011");
    ASSERT_THAT(text, SizeIs(2 * kRecordText));
    EXPECT_EQ(call.detail.text(), "\x02"
                                  "\x6A" +
                                      text);
    EXPECT_EQ(call.error_text.text(), kOld);
    EXPECT_TRUE(session::live());
}

// What is left is the answer for a card without this application.
TEST_F(TransactionLog, OfAnOperationThatWasAnsweredAsAKilledHostIsReadAnew) {
    session::end();
    leave_answers_of_a_killed_host("6A82");
    card.expect("00A40400 05 A000000333", "6A82");
    expect_log(kFormat, object("9F4D", "0B01"));
    expect_record(1, record(merchant("A"), "0001"));
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text()[0], 1);
    EXPECT_EQ(call.error_text.text(), kOld);
    EXPECT_EQ(usb.unread(), 0U);
}

TEST_F(TransactionLog, TheEntryNamesTheFileAndTheNumberOfRecords) {
    expect_log(kFormat, object("9F4D", "0C01"));
    expect_record(1, record(merchant("A"), "0001"), 12);
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text()[0], 1);
}

TEST_F(TransactionLog, WithoutAnEntryTenRecordsOfFileElevenAreTried) {
    expect_log(kFormat, "");
    for (int number = 1; number <= 10; ++number) {
        expect_record(number, record(merchant("A"), "0001"));
    }
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text()[0], 10);
    EXPECT_THAT(call.detail.text(), SizeIs(2 + 10 * kRecordText));
}

TEST_F(TransactionLog, TheFirstRecordThatCannotBeReadEndsTheList) {
    expect_log(kFormat, "");
    expect_record(1, record(merchant("A"), "0001"));
    expect_end(2);
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text(), "\x01"
                                  "\x6A" +
                                      record_text("A                   ", "0001"));
}

TEST_F(TransactionLog, ALogWithoutRecordsIsTwoZeroCountsAndNoText) {
    expect_log(kFormat, "");
    expect_end(1);
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.first(4), std::string(4, '\0'));
    expect_log(kFormat, object("9F4D", "0B00"));
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.first(4), std::string(4, '\0'));
}

TEST_F(TransactionLog, FieldsThatTheFormatDoesNotNameAreEmpty) {
    EXPECT_EQ(one_record("9F4F03 9A03", "190422"), "P000Q000R000S006190422T000U000V000W000X000");
    EXPECT_EQ(one_record("9F4F00", "190422"), "P000Q000R000S000T000U000V000W000X000");
}

TEST_F(TransactionLog, UnknownEntriesTakeTheirPlaceInTheRecord) {
    EXPECT_EQ(one_record("9F4F0A 9F2701 9A03 9602 9F3602", "80 190422 AABB 0012"),
              "P000Q000R000S006190422T000U000V000W000X0040012");
}

TEST_F(TransactionLog, TheFormatEndsAtAZeroOrPadding) {
    EXPECT_EQ(one_record("9F4F06 9A03 0000 9C01", "190422 03"),
              "P000Q000R000S006190422T000U000V000W000X000");
    EXPECT_EQ(one_record("9F4F07 9A03 FFFF00 9C01", "190422 03"),
              "P000Q000R000S006190422T000U000V000W000X000");
    EXPECT_EQ(one_record("9F4F04 9A03 9C01", "190422 03"),
              "P000Q000R000S006190422T00203U000V000W000X000");
}

TEST_F(TransactionLog, TheFormatMayBreakOffInsideAnEntry) {
    EXPECT_EQ(one_record("9F4F04 9A03 9C", "190422 03"),
              "P000Q000R000S006190422T000U000V000W000X000");
    EXPECT_EQ(one_record("9F4F04 9A03 9F02", "190422 03"),
              "P000Q000R000S006190422T000U000V000W000X000");
    EXPECT_EQ(one_record("9F", "190422"), "P000Q000R000S000T000U000V000W000X000");
}

TEST_F(TransactionLog, TagsAreReadByTheirFirstBytesLowestBit) {
    // 5A is even: a tag of one byte. 9D is odd: a tag of two, so what follows shifts.
    EXPECT_EQ(one_record("9F4F05 5A02 9A03", "6214 190422"),
              "P000Q000R000S006190422T000U000V000W000X000");
    EXPECT_EQ(one_record("9F4F06 9D9A03 9A03", "AABBCC 190422"),
              "P000Q000R000S006190422T000U000V000W000X000");
}

TEST_F(TransactionLog, AnEntryThatComesTwiceCountsWhereItStandsLast) {
    EXPECT_EQ(one_record("9F4F04 9A03 9A02", "190422 2019"),
              "P000Q000R000S0042019T000U000V000W000X000");
}

TEST_F(TransactionLog, EveryZeroByteOfTheMerchantIsABlank) {
    EXPECT_EQ(one_record("9F4F03 9F4E06", "00 41 00 42 00 00"),
              "P000Q000R000S000T000U000V000W006 A B  X000");
}

TEST_F(TransactionLog, AMerchantIsHandedOnAsTheCardStoresIt) {
    EXPECT_EQ(one_record("9F4F03 9F4E04", "CABE C0FD"),
              "P000Q000R000S000T000U000V000W004\xCA\xBE\xC0\xFDX000");
}

TEST_F(TransactionLog, ARecordThatIsShorterThanItsFormatEndsInZeros) {
    EXPECT_EQ(one_record("9F4F06 9A03 9F4E03", "1904"),
              "P000Q000R000S006190400T000U000V000W003   X000");
}

TEST_F(TransactionLog, ARecordShowsNothingOfALongerOneBefore) {
    expect_log("9F4F05 9A03 9F3602", object("9F4D", "0B02"));
    expect_record(1, "190422 0012");
    expect_record(2, "190423");
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(call.detail.text(), EndsWith("S006190423T000U000V000W000X0040000"));
}

TEST_F(TransactionLog, TheSecondCountIsThatOfTheLastRecordModulo256) {
    // S takes 4 + 240 characters, the others 8 * 4: 276 together.
    expect_log("9F4F02 9A78", object("9F4D", "0B01"));
    expect_record(1, repeated("19", 0x78));
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.first(2), std::string("\x01\x14"));
}

TEST_F(TransactionLog, ThroughTheDirectoryTheFinalSelectionsEntryCounts) {
    for (const std::string_view aid : {"", "0", "0A0000003"}) {
        expect_directory(card, kAid, object("BF0C", object("9F4D", "0D01")));
        card.expect(kReadFormat, std::string(kFormat) + "9000");
        expect_record(1, record(merchant("A"), "0001"), 13);
        TxDetailCall by_directory;
        by_directory.aid = aid;
        EXPECT_EQ(by_directory.run(), 0) << aid;
        EXPECT_EQ(by_directory.detail.text()[0], 1);
    }
}

TEST_F(TransactionLog, TheAidTextIsNotSplit) {
    // Three bytes, of which the separator spoils one.
    card.expect("00A40400 03 ?????? ", "6A82");
    call.aid = "A000|0";
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text(), "0");
}

TEST_F(TransactionLog, ACardWithoutALogFormatHasNoLog) {
    expect_select(card);
    card.expect(kReadFormat, "6A88");
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text(), "0");
    EXPECT_EQ(call.error_text.text(), kOld);
    EXPECT_TRUE(session::live());
}

TEST_F(TransactionLog, AnEntryThatIsTooShortIsNoLog) {
    for (const std::string_view entry : {"9F4D010B", "9F4D00"}) {
        expect_log(kFormat, entry);
        TxDetailCall short_entry;
        EXPECT_EQ(short_entry.run(), 0);
        EXPECT_EQ(short_entry.detail.text(), "0");
        EXPECT_EQ(short_entry.error_text.text(), kOld);
    }
}

TEST_F(TransactionLog, AnAidThatSelectsNothingGivesItsCountAndNoLog) {
    card.expect("00A40400 05 A000000333", "6A82");
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text(), "0");
    EXPECT_EQ(call.error_text.text(), "");
    EXPECT_THAT(card.commands(), SizeIs(1));
}

TEST_F(TransactionLog, ACardWithoutADirectoryGivesItsCountAndNoLog) {
    card.expect("00A404000E 315041592E5359532E4444463031", "6A82");
    call.aid = "";
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text(), "0");
    EXPECT_EQ(call.error_text.text(), "");
}

TEST_F(TransactionLog, ARefusedFinalSelectionIsTheResult) {
    const std::string entry = object("4F", kAid) + object("87", "01");
    card.expect("00A404000E 315041592E5359532E4444463031",
                object("6F", object("88", "01")) + "9000");
    card.expect("00B2010C00", object("70", object("61", entry)) + "9000");
    card.expect("00B2020C00", "6A83");
    card.expect("00A4040008 A000000333010101", "6A81");
    call.aid = "";
    EXPECT_EQ(call.run(), 0x6A81);
    EXPECT_EQ(call.detail.text(), "0");
    EXPECT_EQ(call.error_text.text(), "");
}

TEST_F(TransactionLog, AReaderThatFallsSilentAtTheFinalSelectionIsTheResult) {
    card.expect("00A404000E 315041592E5359532E4444463031",
                object("6F", object("88", "01")) + "9000");
    card.expect("00B2010C00", object("70", object("61", object("4F", kAid))) + "9000");
    card.expect("00B2020C00", "6A83");
    card.expect_silence("00A4040008 A000000333010101");
    call.aid = "";
    EXPECT_EQ(call.run(), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(call.detail.text(), "0");
    EXPECT_EQ(call.error_text.text(), gbk(" 等待响应超时     "));
}

TEST_F(TransactionLog, TracesAndPrintsNothingOfItsOwn) {
    expect_log(kFormat, "");
    expect_end(1);
    const Printed printed = printed_by([this] { call.run(); });
    EXPECT_EQ(without_link_lines(printed.out), "");
    EXPECT_FALSE(trace.exists());
}

TEST_F(TransactionLog, WhatTheHostDoesNotPassIsNotNeeded) {
    card.expect("00A404000E 315041592E5359532E4444463031", "6A82");
    EXPECT_EQ(ZEB_ICC_GetTxDetail(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
              0);
    expect_log(kFormat, object("9F4D", "0B01"));
    expect_record(1, record(merchant("A"), "0001"));
    HostText aid(kPrefix);
    EXPECT_EQ(ZEB_ICC_GetTxDetail(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                  nullptr, nullptr, aid.get(), nullptr, nullptr, nullptr),
              0);
}

// --- transaction logs that say too much ---

TEST_F(TransactionLog, ARecordThatDoesNotFitIsLeftOutAndEndsTheReading) {
    // 276 characters for each record: seven fit behind the two counts.
    expect_log("9F4F02 9A78", object("9F4D", "0BFF"));
    for (int number = 1; number <= 8; ++number) {
        expect_record(number, repeated("19", 0x78));
    }
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text()[0], 7);
    EXPECT_THAT(call.detail.text(), SizeIs(2 + 7 * 276));
}

TEST_F(TransactionLog, ManyShortRecordsStayInTheText) {
    // 36 characters each: 56 records are 2016 and 2 count bytes; the 57th would pass 2047.
    expect_log("9F4F00", object("9F4D", "0BFF"));
    for (int number = 1; number <= 57; ++number) {
        expect_record(number, "00");
    }
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text()[0], 56);
    EXPECT_THAT(call.detail.text(), SizeIs(2 + 56 * 36));
}

TEST_F(TransactionLog, TheLargestTextLeavesOneZeroByte) {
    // 2045 = 5 * 409 characters: 36 of heads and 373 = 255 + 118 of values.
    expect_log("9F4F05 9F4EFF 9A3B", object("9F4D", "0B06"));
    for (int number = 1; number <= 6; ++number) {
        expect_record(number, repeated("41", 255) + repeated("19", 59));
    }
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text()[0], 5);
    EXPECT_THAT(call.detail.text(), SizeIs(QAVEN_TXDETAIL_SIZE - 1));
}

TEST_F(TransactionLog, ARecordThatWouldTakeTheZeroByteIsLeftOut) {
    // 2046 = 6 * 341 characters: 36 of heads and 305 = 255 + 50 of values.
    expect_log("9F4F05 9F4EFF 9A19", object("9F4D", "0B06"));
    for (int number = 1; number <= 6; ++number) {
        expect_record(number, repeated("41", 255) + repeated("19", 25));
    }
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text()[0], 5);
    EXPECT_THAT(call.detail.text(), SizeIs(2 + 5 * 341));
}

TEST_F(TransactionLog, ARecordThatNeverFitsGivesNone) {
    expect_log("9F4F1A 9F02FF 9F03FF 5F2AFF 9AFF 9CFF 9F21FF 9F1AFF 9F4EFF 9F36FF",
               object("9F4D", "0B01"));
    expect_record(1, repeated("AB", 1000));
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.first(4), std::string(4, '\0'));
}

TEST_F(TransactionLog, AnOffsetIsKeptInOneByte) {
    // 9A stands at offset 256, which reads as 0.
    EXPECT_EQ(one_record("9F4F08 9602 96FE 9A02", "ABCD" + repeated("00", 254) + "1904"),
              "P000Q000R000S004ABCDT000U000V000W000X000");
}

// --- the load log ---

// What every load record begins with: 2, 6 and 6 bytes.
constexpr std::string_view kPrefixBytes = "0102 030405060708 090A0B0C0D0E";
constexpr std::string_view kPrefixText = "P0040102"
                                         "Q012030405060708"
                                         "R012090A0B0C0D0E";

class LoadLog : public OperationTest {
  protected:
    void SetUp() override { connect(); }

    void expect_log(std::string_view format, std::string_view fci) {
        expect_select(card, kAid, fci);
        card.expect("80A80000 02 8300", object("80", "7C00") + "9000");
        card.expect(kReadLoadFormat, std::string(format) + "9000");
    }

    void expect_record(int number, std::string_view data, int sfi = 12) {
        card.expect(read_record_command(number, sfi), std::string(data) + "9000");
    }

    // How many of the loads are read for an index, when the entry says three.
    std::size_t read_for(int index) {
        expect_log(kLoadFormat, object("DF4D", "0C03"));
        const int wanted = index < 0 ? 3 : index == 0 ? 1 : index;
        for (int number = 1; number <= wanted; ++number) {
            expect_record(number, load("A", "0001"));
        }
        AmtLogCall indexed;
        indexed.record_index = index;
        EXPECT_EQ(indexed.run(), 0);
        card.verify();
        return indexed.log.text().size() / kLoadText;
    }

    static constexpr std::string_view kLoadFormat = "DF4F0E 9A03 9F2103 9F1A02 9F4E14 9F3602";
    static constexpr std::size_t kLoadText = 8 + 16 + 16 + 10 + 10 + 8 + 24 + 8;

    static std::string load(std::string_view name, std::string_view atc) {
        return std::string(kPrefixBytes) + "190422 161355 0156" + merchant(name) + std::string(atc);
    }

    AmtLogCall call;
};

TEST_F(LoadLog, RecordsBeginWithTheirFixedFields) {
    expect_log(kLoadFormat, object("DF4D", "0C02"));
    expect_record(1, load("LURO CNT 0328", "0012"));
    expect_record(2, load("", "0011"));
    EXPECT_EQ(call.run(), 0);
    const std::string middle = "S006190422T006161355U0040156";
    EXPECT_EQ(call.log.text(), std::string(kPrefixText) + middle +
                                   "V020LURO CNT 0328       W0040012" + std::string(kPrefixText) +
                                   middle + "V020                    W0040011");
    EXPECT_TRUE(session::live());
}

TEST_F(LoadLog, OfAnOperationThatWasAnsweredAsAKilledHostIsReadAnew) {
    session::end();
    leave_answers_of_a_killed_host("6A82");
    card.expect("00A40400 08 A000000333010101", "6A82");
    expect_log(kLoadFormat, object("DF4D", "0C01"));
    expect_record(1, load("A", "0001"));
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(call.log.text(), SizeIs(kLoadText));
    EXPECT_EQ(usb.unread(), 0U);
}

TEST_F(LoadLog, TheMerchantEndsAtItsFirstZeroByte) {
    expect_log("DF4F03 9F4E06", object("DF4D", "0C01"));
    expect_record(1, std::string(kPrefixBytes) + "41 42 00 43 00 44");
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.log.text(), std::string(kPrefixText) + "S000T000U000V006AB    W000");
}

TEST_F(LoadLog, WithoutAnEntryTenRecordsOfFileTwelveAreTried) {
    expect_log(kLoadFormat, "");
    for (int number = 1; number <= 10; ++number) {
        expect_record(number, load("A", "0001"));
    }
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(call.log.text(), SizeIs(10 * kLoadText));
}

TEST_F(LoadLog, TheEntryNamesTheFile) {
    expect_log(kLoadFormat, object("DF4D", "1E01"));
    expect_record(1, load("A", "0001"), 30);
    EXPECT_EQ(call.run(), 0);
}

TEST_F(LoadLog, TheIndexSaysHowManyAreRead) {
    EXPECT_EQ(read_for(-1), 3U);
    EXPECT_EQ(read_for(-100), 3U);
    EXPECT_EQ(read_for(0), 1U);
    EXPECT_EQ(read_for(1), 1U);
    EXPECT_EQ(read_for(2), 2U);
    EXPECT_EQ(read_for(10), 10U); // whatever the entry says
}

TEST_F(LoadLog, AnIndexOfElevenOrMoreIsRefusedWithoutReading) {
    for (const int index : {11, 12, 1000}) {
        expect_log(kLoadFormat, object("DF4D", "0C03"));
        call.record_index = index;
        call.log.set(kOld);
        EXPECT_EQ(call.run(), -22);
        EXPECT_EQ(call.log.text(), "");
    }
    EXPECT_TRUE(session::live());
}

TEST_F(LoadLog, TheFirstRecordThatCannotBeReadEndsTheList) {
    expect_log(kLoadFormat, "");
    expect_record(1, load("A", "0001"));
    card.expect(read_record_command(2, 12), "6A83");
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(call.log.text(), SizeIs(kLoadText));
}

TEST_F(LoadLog, ALogWithoutRecordsIsEmpty) {
    expect_log(kLoadFormat, "");
    card.expect(read_record_command(1, 12), "6A83");
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.log.text(), "");
}

TEST_F(LoadLog, ARefusedSelectionIsTheResult) {
    card.expect("00A40400 08 A000000333010101", "6A82");
    EXPECT_EQ(call.run(), 0x6A82);
    EXPECT_TRUE(session::live());
}

TEST_F(LoadLog, RefusedOptionsDoNotMatter) {
    expect_select(card, kAid);
    card.expect("80A80000 02 8300", "6985");
    card.expect(kReadLoadFormat, std::string(kLoadFormat) + "9000");
    card.expect(read_record_command(1, 12), "6A83");
    EXPECT_EQ(call.run(), 0);
}

TEST_F(LoadLog, TheOptionsAreAnsweredWithAnEmptyTransaction) {
    expect_select(card, kAid, object("A5", object("9F38", "9F0206 9A03 9F2103 9C01")));
    card.expect("80A80000 0F 830D 000000000000 190422 161355 33", object("80", "7C00") + "9000");
    card.expect(kReadLoadFormat, "6A88");
    EXPECT_EQ(call.run(), -22);
}

TEST_F(LoadLog, ACardWithoutALoadFormatHasNoLog) {
    expect_select(card, kAid);
    card.expect("80A80000 02 8300", object("80", "7C00") + "9000");
    card.expect(kReadLoadFormat, "6A88");
    EXPECT_EQ(call.run(), -22);
    EXPECT_EQ(call.log.text(), "");
}

TEST_F(LoadLog, AnEntryThatIsTooShortIsNoLog) {
    for (const std::string_view entry : {"DF4D010C", "DF4D00"}) {
        expect_log(kLoadFormat, entry);
        call.log.set(kOld);
        EXPECT_EQ(call.run(), -22);
        EXPECT_EQ(call.log.text(), "");
    }
}

TEST_F(LoadLog, ARecordThatIsShorterThanItsFieldsEndsInZeros) {
    expect_log(kLoadFormat, object("DF4D", "0C01"));
    expect_record(1, "0102 03");
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.log.text(), "P0040102Q012030000000000R012000000000000"
                               "S006000000T006000000U0040000V020                    W0040000");
}

TEST_F(LoadLog, ARecordThatDoesNotFitIsLeftOutAndEndsTheReading) {
    // 40 + 4 * 4 + 4 + 240 = 300 characters for each record: six fit.
    expect_log("DF4F02 9A78", object("DF4D", "0CFF"));
    for (int number = 1; number <= 7; ++number) {
        expect_record(number, std::string(kPrefixBytes) + repeated("19", 0x78));
    }
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(call.log.text(), SizeIs(6 * 300));
}

TEST_F(LoadLog, FieldsOfTheLargestSizeStayInTheirRecord) {
    expect_log("DF4F0E 9AFF 9F21FF 9F1AFF 9F4EFF 9F36FF", object("DF4D", "0C01"));
    expect_record(1, repeated("41", 1000));
    EXPECT_EQ(call.run(), 0);
    // 40 + 5 * 4 + 4 * 510 + 255 characters are more than the text takes.
    EXPECT_EQ(call.log.text(), "");
}

TEST_F(LoadLog, WhatTheHostDoesNotPassIsNotNeeded) {
    card.expect("00A40400 00", "6A82");
    EXPECT_EQ(ReadAmtLog(nullptr, 0, nullptr), 0x6A82);
    expect_log(kLoadFormat, object("DF4D", "0C01"));
    HostText aid(kAid);
    EXPECT_EQ(ReadAmtLog(aid.get(), 11, nullptr), -22);
}

} // namespace
