// Every card command as the card sees it, and what its function hands back.
#include "engine/card/commands.h"

#include "card_test.h"
#include "console.h"
#include "noted_operations.h"
#include "tests/support/hex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <map>
#include <string>

using qaven::test::Bytes;
using qaven::test::bytes;
using qaven::test::CardTest;
using qaven::test::hex;
using qaven::test::Printed;
using qaven::test::printed_by;
using qaven::test::repeated;
using testing::Each;
using testing::IsEmpty;

namespace {

constexpr int kIllegalData = -16;
constexpr int kNotFound = 27266; // 6A82
constexpr unsigned int kUntouched = 99;

class Command : public CardTest {
  protected:
    void SetUp() override {
        CardTest::SetUp();
        out.fill(0xEE);
    }

    // What was handed back: the first count bytes, which must be followed by an untouched one.
    std::string handed_out(std::size_t count) const {
        EXPECT_EQ(out[count], 0xEE);
        return hex(std::span(out).first(count));
    }

    void expect_untouched() const {
        EXPECT_THAT(out, Each(0xEE));
        EXPECT_EQ(short_length, kUntouched);
        EXPECT_EQ(length, kUntouched);
    }

    std::array<unsigned char, 1100> out{};
    unsigned char short_length = kUntouched;
    unsigned int length = kUntouched;
};

// --- SELECT ---

TEST_F(Command, SelectGivesTheFileControlInformation) {
    Bytes name = bytes("A000000333");
    card.expect("00A40400 05 A000000333", "6F 07 84 05 A000000333 9000");
    EXPECT_EQ(qmcx_SelectFile(0x04, 0x00, name.data(), 5, out.data(), &length), 0);
    EXPECT_EQ(handed_out(9), "6F078405A000000333");
    EXPECT_EQ(length, 9U);
}

TEST_F(Command, SelectSendsItsParametersAndNoLe) {
    Bytes name = bytes("3F00");
    card.expect("00A4010C 02 3F00", "9000");
    EXPECT_EQ(qmcx_SelectFile(0x01, 0x0C, name.data(), 2, out.data(), &length), 0);
    EXPECT_EQ(length, 0U);
}

TEST_F(Command, SelectOfAFileThatIsNotThereGivesTheStatusWordAndNothingElse) {
    Bytes name = bytes("A000000333");
    card.expect("00A40400 05 A000000333", "6F00 6A82");
    EXPECT_EQ(qmcx_SelectFile(0x04, 0x00, name.data(), 5, out.data(), &length), kNotFound);
    expect_untouched();
}

TEST_F(Command, SelectOfABlockedApplicationFetchesTheResponse) {
    Bytes name = bytes("A000000333");
    card.expect("00A40400 05 A000000333", "6283").expect("00C0000000", "6F00 9000");
    EXPECT_EQ(qmcx_SelectFile(0x04, 0x00, name.data(), 5, out.data(), &length), 0);
    EXPECT_EQ(handed_out(2), "6F00");
    EXPECT_EQ(name, bytes("A000000333"));
}

TEST_F(Command, SelectSendsANameOf255Bytes) {
    Bytes name(255, 0xA5);
    card.expect("00A40400 FF" + repeated("A5", 255), "9000");
    EXPECT_EQ(qmcx_SelectFile(0x04, 0x00, name.data(), 255, out.data(), &length), 0);
}

TEST_F(Command, SelectTakes256BytesAndNoMore) {
    Bytes name = bytes("3F00");
    card.expect("00A40000 02 3F00", repeated("A1", 256) + "9000");
    EXPECT_EQ(qmcx_SelectFile(0, 0, name.data(), 2, out.data(), &length), 0);
    EXPECT_EQ(handed_out(256), repeated("A1", 256));
    EXPECT_EQ(length, 256U);

    out.fill(0xEE);
    length = kUntouched;
    card.expect("00A40000 02 3F00", repeated("A1", 257) + "9000");
    EXPECT_EQ(qmcx_SelectFile(0, 0, name.data(), 2, out.data(), &length), kIllegalData);
    expect_untouched();
}

// --- READ RECORD ---

TEST_F(Command, ReadRecordPutsTheFileIntoP2) {
    card.expect("00B2011400", "70 02 5A 00 9000");
    EXPECT_EQ(qmcx_ReadRecord(1, 2, out.data(), &length), 0);
    EXPECT_EQ(handed_out(4), "70025A00");
    EXPECT_EQ(length, 4U);
    card.expect("00B2FFFC00", "6A83");
    EXPECT_EQ(qmcx_ReadRecord(255, 31, out.data(), &length), 0x6A83);
}

TEST_F(Command, ReadRecordIsSentAgainWithTheLengthThatTheCardNames) {
    card.expect("00B2010C00", "6C10").expect("00B2010C10", repeated("A1", 16) + "9000");
    EXPECT_EQ(qmcx_ReadRecord(1, 1, out.data(), &length), 0);
    EXPECT_EQ(handed_out(16), repeated("A1", 16));
}

TEST_F(Command, ReadRecordTakesTheLargestReplyOfTheReader) {
    card.expect("00B2010C00", repeated("A1", 1011) + "9000");
    EXPECT_EQ(qmcx_ReadRecord(1, 1, out.data(), &length), 0);
    EXPECT_EQ(handed_out(1011), repeated("A1", 1011));
    EXPECT_EQ(length, 1011U);

    out.fill(0xEE);
    length = kUntouched;
    card.expect("00B2010C00", repeated("A1", 1012) + "9000");
    EXPECT_EQ(qmcx_ReadRecord(1, 1, out.data(), &length), kIllegalData);
    expect_untouched();
}

TEST_F(Command, ReadRecordWithoutAnAnswerGivesTheTransferCode) {
    card.expect_silence("00B2010C00");
    EXPECT_EQ(qmcx_ReadRecord(1, 1, out.data(), &length), LIBUSB_ERROR_TIMEOUT);
    expect_untouched();
}

// --- GET PROCESSING OPTIONS ---

TEST_F(Command, GetProcessingOptionsSendsThePdolData) {
    Bytes data = bytes("8302 0156");
    card.expect("80A80000 04 83020156", "80 06 7C00 08010100 9000");
    EXPECT_EQ(qmcx_GetProcessOptions(data.data(), 4, out.data(), &short_length), 0);
    EXPECT_EQ(handed_out(8), "80067C0008010100");
    EXPECT_EQ(short_length, 8);
}

TEST_F(Command, GetProcessingOptionsFetchesWaitingBytes) {
    Bytes data = bytes("8300");
    card.expect("80A80000 02 8300", "611A").expect("00C000001A", repeated("A1", 26) + "9000");
    EXPECT_EQ(qmcx_GetProcessOptions(data.data(), 2, out.data(), &short_length), 0);
    EXPECT_EQ(short_length, 26);
    EXPECT_EQ(data, bytes("8300"));
}

TEST_F(Command, AnEightBitLengthKeepsItsLowByte) {
    Bytes data = bytes("8300");
    card.expect("80A80000 02 8300", repeated("A1", 256) + "9000");
    EXPECT_EQ(qmcx_GetProcessOptions(data.data(), 2, out.data(), &short_length), 0);
    EXPECT_EQ(handed_out(256), repeated("A1", 256));
    EXPECT_EQ(short_length, 0);
}

TEST_F(Command, GetProcessingOptionsThatIsRefusedTouchesNothing) {
    Bytes data = bytes("8300");
    card.expect("80A80000 02 8300", "6985");
    EXPECT_EQ(qmcx_GetProcessOptions(data.data(), 2, out.data(), &short_length), 0x6985);
    expect_untouched();
    card.expect("80A80000 02 8300", repeated("A1", 257) + "9000");
    EXPECT_EQ(qmcx_GetProcessOptions(data.data(), 2, out.data(), &short_length), kIllegalData);
    expect_untouched();
}

// --- GET DATA ---

TEST_F(Command, GetDataSelectsADataObject) {
    const std::map<unsigned char, std::string> tags{
        {1, "9F13"}, {2, "9F17"}, {3, "9F4F"}, {4, "9F79"}, {5, "9F77"}, {6, "9F78"}, {8, "DF4F"}};
    for (const auto& [which, tag] : tags) {
        card.expect("80CA" + tag + "00", tag + "02 0102 9000");
        EXPECT_EQ(qmcx_GetData(which, out.data(), &short_length), 0);
        EXPECT_EQ(handed_out(5), tag + "020102");
        EXPECT_EQ(short_length, 5);
    }
}

TEST_F(Command, GetDataAsksForTheTransactionCounterByEveryOtherSelector) {
    for (const unsigned char which : std::array<unsigned char, 4>{0, 7, 9, 255}) {
        card.expect("80CA9F3600", "9F36020001 9000");
        EXPECT_EQ(qmcx_GetData(which, out.data(), &short_length), 0);
    }
}

TEST_F(Command, GetDataThatTheCardDoesNotHaveTouchesNothing) {
    card.expect("80CA9F7900", "6A88");
    EXPECT_EQ(qmcx_GetData(4, out.data(), &short_length), 0x6A88);
    card.expect("80CA9F7900", repeated("A1", 257) + "9000");
    EXPECT_EQ(qmcx_GetData(4, out.data(), &short_length), kIllegalData);
    expect_untouched();
}

// --- GENERATE AC ---

TEST_F(Command, GenerateAcAnnouncesItselfAndItsReturn) {
    Bytes data = bytes("000000001213");
    card.expect("80AE8000 06 000000001213", "80 02 8000 9000");
    int result = -1;
    const Printed printed = printed_by(
        [&] { result = qmcx_GenerateAC(0x80, data.data(), 6, out.data(), &short_length); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(printed.out, "i come\n"
                           "write Successful!\n"
                           "read Successful!\nreadtimeout-ret = 0, transferred =16\n"
                           "i comeback\n");
    EXPECT_EQ(handed_out(4), "80028000");
    EXPECT_EQ(short_length, 4);
}

TEST_F(Command, GenerateAcThatIsRefusedReturnsAllTheSame) {
    Bytes data = bytes("00");
    card.expect("80AE4000 01 00", "6985");
    int result = -1;
    const Printed printed = printed_by(
        [&] { result = qmcx_GenerateAC(0x40, data.data(), 1, out.data(), &short_length); });
    EXPECT_EQ(result, 0x6985);
    EXPECT_TRUE(printed.out.starts_with("i come\n"));
    EXPECT_TRUE(printed.out.ends_with("\ni comeback\n"));
    card.expect("80AE4000 01 00", repeated("A1", 257) + "9000");
    EXPECT_EQ(qmcx_GenerateAC(0x40, data.data(), 1, out.data(), &short_length), kIllegalData);
    expect_untouched();
}

// --- authentication ---

TEST_F(Command, ExternalAuthenticateGivesItsResultAlone) {
    Bytes data = bytes("1122334455667788 3030");
    card.expect("00820000 0A 1122334455667788 3030", "9000");
    EXPECT_EQ(qmcx_ExternalAuth(data.data(), 10), 0);
    card.expect("00820000 0A 1122334455667788 3030", "6300");
    EXPECT_EQ(qmcx_ExternalAuth(data.data(), 10), 0x6300);
    card.expect_silence("00820000 0A 1122334455667788 3030");
    EXPECT_EQ(qmcx_ExternalAuth(data.data(), 10), LIBUSB_ERROR_TIMEOUT);
}

TEST_F(Command, InternalAuthenticateGivesTheSignedData) {
    Bytes data = bytes("01020304");
    card.expect("00880000 04 01020304", repeated("A1", 128) + "9000");
    EXPECT_EQ(qmcx_InternalAuth(data.data(), 4, out.data(), &short_length), 0);
    EXPECT_EQ(handed_out(128), repeated("A1", 128));
    EXPECT_EQ(short_length, 128);
}

TEST_F(Command, InternalAuthenticateThatIsRefusedTouchesNothing) {
    Bytes data = bytes("01020304");
    card.expect("00880000 04 01020304", "6985");
    EXPECT_EQ(qmcx_InternalAuth(data.data(), 4, out.data(), &short_length), 0x6985);
    card.expect("00880000 04 01020304", repeated("A1", 257) + "9000");
    EXPECT_EQ(qmcx_InternalAuth(data.data(), 4, out.data(), &short_length), kIllegalData);
    expect_untouched();
}

TEST_F(Command, VerifySendsOnlyAsManyBytesAsThePinBlockHas) {
    Bytes pin = bytes("24 1234 FFFFFFFFFF");
    card.expect("00200080 08 241234", "9000");
    EXPECT_EQ(qmcx_VerifyPin(0x80, pin.data(), 8), 0);
    card.expect("00200080 08 241234", "63C2");
    EXPECT_EQ(qmcx_VerifyPin(0x80, pin.data(), 8), 0x63C2);
}

TEST_F(Command, VerifyOfAShortPinBlockIsCutWithinItsHeader) {
    Bytes pin = bytes("1234");
    card.expect("0020", "6700");
    EXPECT_EQ(qmcx_VerifyPin(0x80, pin.data(), 2), 0x6700);
    // A follow-up has room for its five bytes all the same.
    card.expect("0020", "6104").expect("00C0000004", "9000");
    EXPECT_EQ(qmcx_VerifyPin(0x80, pin.data(), 2), 0);
}

// --- GET CHALLENGE, READ BINARY ---

TEST_F(Command, GetChallengeGivesTheRequestedCount) {
    card.expect("0084000008", "0102030405060708 9000");
    EXPECT_EQ(qmcx_getrandom(8, out.data()), 0);
    EXPECT_EQ(handed_out(8), "0102030405060708");
}

TEST_F(Command, GetChallengeIsFilledUpWithZerosWhenTheCardGivesLess) {
    card.expect("0084000008", "01020304 9000");
    EXPECT_EQ(qmcx_getrandom(8, out.data()), 0);
    EXPECT_EQ(handed_out(8), "0102030400000000");
}

TEST_F(Command, GetChallengeIsCutWhenTheCardGivesMore) {
    card.expect("0084000004", "0102030405060708 9000");
    EXPECT_EQ(qmcx_getrandom(4, out.data()), 0);
    EXPECT_EQ(handed_out(4), "01020304");
}

TEST_F(Command, GetChallengeThatIsRefusedTouchesNothing) {
    card.expect("0084000008", "6D00");
    EXPECT_EQ(qmcx_getrandom(8, out.data()), 0x6D00);
    card.expect("0084000008", repeated("A1", 257) + "9000");
    EXPECT_EQ(qmcx_getrandom(8, out.data()), kIllegalData);
    expect_untouched();
}

TEST_F(Command, ReadBinaryLeavesItsLengthToTheCard) {
    int count = static_cast<int>(kUntouched);
    card.expect("00B0850700", "6C03").expect("00B0850703", "010203 9000");
    EXPECT_EQ(QM_read_binary(5, 7, 200, out.data(), &count), 0);
    EXPECT_EQ(handed_out(3), "010203");
    EXPECT_EQ(count, 3);
}

TEST_F(Command, ReadBinaryUsesTheLowFiveBitsOfTheFileIdentifier) {
    int count = static_cast<int>(kUntouched);
    card.expect("00B0810000", "6A82");
    EXPECT_EQ(QM_read_binary(0x61, 0, 0, out.data(), &count), kNotFound);
    EXPECT_EQ(count, static_cast<int>(kUntouched));
    expect_untouched();
}

TEST_F(Command, ReadBinaryTakes512BytesAndNoMore) {
    int count = static_cast<int>(kUntouched);
    card.expect("00B0810000", repeated("A1", 512) + "9000");
    EXPECT_EQ(QM_read_binary(1, 0, 0, out.data(), &count), 0);
    EXPECT_EQ(handed_out(512), repeated("A1", 512));
    EXPECT_EQ(count, 512);

    out.fill(0xEE);
    count = static_cast<int>(kUntouched);
    card.expect("00B0810000", repeated("A1", 513) + "9000");
    EXPECT_EQ(QM_read_binary(1, 0, 0, out.data(), &count), kIllegalData);
    EXPECT_EQ(count, static_cast<int>(kUntouched));
    expect_untouched();
}

// --- the close hooks ---

TEST_F(Command, TheCloseHooksTouchNothing) {
    const Printed printed = printed_by([] {
        EXPECT_EQ(qm_closeicc(), 0);
        Qm_CloseDevice();
    });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(usb.log(), IsEmpty());
    EXPECT_TRUE(card.powered());
    EXPECT_EQ(usb.open_handles(), 1);
}

TEST_F(Command, WithoutAReaderEveryCommandIsABadHandle) {
    card.disconnect();
    usb.clear_log();
    Bytes data = bytes("8300");
    int count = 0;
    EXPECT_EQ(qmcx_getrandom(8, out.data()), -8);
    EXPECT_EQ(QM_read_binary(1, 0, 0, out.data(), &count), -8);
    EXPECT_EQ(qmcx_SelectFile(4, 0, data.data(), 2, out.data(), &length), -8);
    EXPECT_EQ(qmcx_ExternalAuth(data.data(), 2), -8);
    EXPECT_EQ(qmcx_InternalAuth(data.data(), 2, out.data(), &short_length), -8);
    EXPECT_EQ(qmcx_VerifyPin(0x80, data.data(), 2), -8);
    EXPECT_EQ(qmcx_GetProcessOptions(data.data(), 2, out.data(), &short_length), -8);
    EXPECT_EQ(qmcx_GetData(1, out.data(), &short_length), -8);
    EXPECT_EQ(qmcx_GenerateAC(0x80, data.data(), 2, out.data(), &short_length), -8);
    EXPECT_EQ(qmcx_ReadRecord(1, 1, out.data(), &length), -8);
    EXPECT_THAT(usb.log(), IsEmpty());
    expect_untouched();
}

// --- waiting hints ---

TEST_F(Command, TellsTheExchangeHowLongItMayTake) {
    Bytes data = bytes("0102030405060708");
    const auto wait_of = [](auto command) {
        command();
        return qaven::test::noted_wait();
    };
    int count = 0;
    card.disconnect(); // the hint is given before there is a card
    EXPECT_EQ(wait_of([&] { qmcx_getrandom(8, out.data()); }), 3);
    EXPECT_EQ(wait_of([&] { QM_read_binary(1, 0, 8, out.data(), &count); }), 3);
    EXPECT_EQ(wait_of([&] { qmcx_SelectFile(4, 0, data.data(), 8, out.data(), &length); }), 3);
    EXPECT_EQ(wait_of([&] { qmcx_ExternalAuth(data.data(), 8); }), 12);
    EXPECT_EQ(wait_of([&] { qmcx_InternalAuth(data.data(), 8, out.data(), &short_length); }), 12);
    EXPECT_EQ(wait_of([&] { qmcx_VerifyPin(0x80, data.data(), 8); }), 5);
    EXPECT_EQ(wait_of([&] { qmcx_GetProcessOptions(data.data(), 8, out.data(), &short_length); }),
              6);
    EXPECT_EQ(wait_of([&] { qmcx_GetData(1, out.data(), &short_length); }), 3);
    EXPECT_EQ(wait_of([&] { qmcx_GenerateAC(0x80, data.data(), 8, out.data(), &short_length); }),
              10);
    EXPECT_EQ(wait_of([&] { qmcx_ReadRecord(1, 1, out.data(), &length); }), 5);
}

} // namespace
