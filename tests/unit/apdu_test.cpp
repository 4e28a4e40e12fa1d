// One command and its final response: follow-ups, status words, replies that are none.
#include "engine/card/apdu.h"

#include "card_test.h"
#include "tests/support/hex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

using qaven::test::Bytes;
using qaven::test::bytes;
using qaven::test::CardTest;
using qaven::test::hex;
using qaven::test::repeated;
using testing::IsEmpty;

namespace {

constexpr int kIllegalData = -16;
constexpr int kUntouched = 99;

class Exchange : public CardTest {
  protected:
    int send(std::string_view command, int wait = 3) {
        cmd = bytes(command);
        reply.fill(0);
        length = kUntouched;
        return Qm_Icc_EXApdu(cmd.data(), static_cast<int>(cmd.size()), reply.data(), &length, wait);
    }

    std::string response() const {
        return hex(std::span(reply).first(static_cast<std::size_t>(length)));
    }

    Bytes cmd;
    std::array<unsigned char, 1024> reply{};
    int length = kUntouched;
};

TEST_F(Exchange, GivesTheResponseWithItsStatusWord) {
    card.expect("00B2010C00", "70 03 5A 01 62 9000");
    EXPECT_EQ(send("00B2010C00"), 0);
    EXPECT_EQ(response(), "70035A01629000");
    EXPECT_EQ(length, 7);
}

TEST_F(Exchange, EveryReplyPacketIsAwaitedForTenSecondsWhateverTheHint) {
    for (const int wait : {-1, 0, 3, 60}) {
        usb.clear_log();
        card.expect("00B2010C00", "6110").expect("00C0000010", repeated("A1", 100) + "9000");
        EXPECT_EQ(send("00B2010C00", wait), 0);
        const auto transfers = usb.transfers();
        ASSERT_EQ(transfers.size(), 5U);
        EXPECT_EQ(transfers[1], "bulk_in 84 64 10000ms");
        EXPECT_EQ(transfers[3], "bulk_in 84 64 10000ms");
        EXPECT_EQ(transfers[4], "bulk_in 84 64 10000ms");
    }
}

TEST_F(Exchange, AWrongLengthIsCorrectedAndTheSameCommandSentAgain) {
    card.expect("00B2010C00", "6C10").expect("00B2010C10", repeated("A1", 16) + "9000");
    EXPECT_EQ(send("00B2010C00"), 0);
    EXPECT_EQ(response(), repeated("A1", 16) + "9000");
    EXPECT_EQ(hex(cmd), "00B2010C10");
}

TEST_F(Exchange, TheLastByteOfACommandWithDataIsTakenForItsLength) {
    card.expect("80A80000 02 8300", "6C1A").expect("80A80000 02 831A", "9000");
    EXPECT_EQ(send("80A80000 02 8300"), 0);
}

TEST_F(Exchange, AnEmptyCommandHasNoLengthToCorrect) {
    card.expect("", "6C10");
    std::array<unsigned char, 5> room{};
    EXPECT_EQ(Qm_Icc_EXApdu(room.data(), 0, reply.data(), &length, 5), 0x6C10);
    EXPECT_EQ(hex(room), "0000000000");
}

TEST_F(Exchange, WaitingBytesAreFetched) {
    card.expect("80A80000 02 8300", "611A").expect("00C000001A", repeated("A1", 26) + "9000");
    EXPECT_EQ(send("80A80000 02 8300"), 0);
    EXPECT_EQ(response(), repeated("A1", 26) + "9000");
    // The five bytes stand where the command began.
    EXPECT_EQ(hex(cmd), "00C000001A8300");
}

TEST_F(Exchange, AWarningIsAnsweredByFetchingTheResponse) {
    for (const std::string sw2 : {"00", "81", "83", "F1"}) {
        card.expect("00A4040000", "AABB 62" + sw2).expect("00C0000000", "6F00 9000");
        EXPECT_EQ(send("00A4040000"), 0);
        EXPECT_EQ(response(), "6F009000") << sw2;
        EXPECT_EQ(hex(cmd), "00C0000000");
    }
}

TEST_F(Exchange, FollowUpsFollowOneAnother) {
    card.expect("00A4040000", "6283")
        .expect("00C0000000", "6C08")
        .expect("00C0000008", "6104")
        .expect("00C0000004", "01020304 9000");
    EXPECT_EQ(send("00A4040000"), 0);
    EXPECT_EQ(response(), "010203049000");
}

TEST_F(Exchange, AFollowUpThatFailsIsTheResult) {
    card.expect("00A4040000", "6283").expect("00C0000000", "6A88");
    EXPECT_EQ(send("00A4040000"), 0x6A88);
    card.expect("00A4040000", "6110").expect_silence("00C0000010");
    EXPECT_EQ(send("00A4040000"), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(length, kUntouched);
}

TEST_F(Exchange, AnyOtherStatusWordIsTheResult) {
    for (const int status :
         {0x6A82, 0x6985, 0x6300, 0x6383, 0x9001, 0x90FF, 0x6F00, 0x0001, 0x0100, 0x9F10, 0xFFFF}) {
        const std::array sw{static_cast<std::uint8_t>(status >> 8),
                            static_cast<std::uint8_t>(status & 0xFF)};
        card.expect("00B2010C00", "AABB" + hex(sw));
        EXPECT_EQ(send("00B2010C00"), status);
        EXPECT_EQ(length, kUntouched);
    }
}

TEST_F(Exchange, AStatusWordOfZerosIsIllegalData) {
    card.expect("00B2010C00", "AABB 0000");
    EXPECT_EQ(send("00B2010C00"), kIllegalData);
    EXPECT_EQ(length, kUntouched);
}

TEST_F(Exchange, AReplyTooShortForAStatusWordIsIllegalData) {
    card.expect_packets("00B2010C00", {bytes("80 00000000 00 00 00 00 00")});
    EXPECT_EQ(send("00B2010C00"), kIllegalData);
    card.expect_packets("00B2010C00", {bytes("80 01000000 00 00 00 00 00 90")});
    EXPECT_EQ(send("00B2010C00"), kIllegalData);
    card.expect_packets("00B2010C00", {Bytes{}});
    EXPECT_EQ(send("00B2010C00"), kIllegalData);
    EXPECT_EQ(length, kUntouched);
}

TEST_F(Exchange, AReplyThatDoesNotFitIsIllegalData) {
    card.expect("00B2010C00", repeated("A1", 1012) + "9000");
    EXPECT_EQ(send("00B2010C00"), kIllegalData);
    EXPECT_EQ(usb.unread(), 0U);
    card.expect("00B2010C00", repeated("A1", 1011) + "9000");
    EXPECT_EQ(send("00B2010C00"), 0);
    EXPECT_EQ(length, 1013);
}

TEST_F(Exchange, TransferFailuresAreTheResult) {
    card.expect_silence("00B2010C00");
    EXPECT_EQ(send("00B2010C00"), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(length, kUntouched);
    card.expect_failure("00B2010C00", LIBUSB_ERROR_PIPE);
    EXPECT_EQ(send("00B2010C00"), LIBUSB_ERROR_PIPE);
    usb.fail_bulk(1, LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(send("00B2010C00"), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_EQ(length, kUntouched);
}

TEST_F(Exchange, WithoutAReaderIsABadHandle) {
    card.disconnect();
    usb.clear_log();
    EXPECT_EQ(send("00B2010C00"), -8);
    EXPECT_EQ(length, kUntouched);
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(Exchange, ACardThatNeverStopsAskingIsFollowed256Times) {
    card.expect("00B2010C00", "6110");
    for (int k = 0; k < 256; ++k) {
        card.expect("00C0000010", "6110");
    }
    EXPECT_EQ(send("00B2010C00"), 0x6110);
    EXPECT_EQ(card.commands().size(), 257U);
    EXPECT_EQ(length, kUntouched);
}

TEST_F(Exchange, TheLastFollowUpMayStillSucceed) {
    card.expect("00B2010C00", "6C01");
    for (int k = 0; k < 255; ++k) {
        card.expect("00B2010C01", "6C01");
    }
    card.expect("00B2010C01", "9000");
    EXPECT_EQ(send("00B2010C00"), 0);
    EXPECT_EQ(length, 2);
}

TEST(TestApduCase, IsSelectOfThePaymentSystemEnvironmentWithLe) {
    EXPECT_EQ(hex(test_apdu_case), "00A404000E315041592E5359532E444446303100");
}

} // namespace
