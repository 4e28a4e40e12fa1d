// The slot protocol, message by message: what goes out, what is taken in, what is printed.
#include "usb/ccid.h"

#include "console.h"
#include "tests/support/fake_usb.h"
#include "tests/support/hex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

using qaven::test::Bytes;
using qaven::test::bytes;
using qaven::test::Call;
using qaven::test::ccid_reader;
using qaven::test::FakeUsb;
using qaven::test::hex;
using qaven::test::Printed;
using qaven::test::printed_by;
using qaven::test::repeated;
using testing::Each;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kVendor = 0x2F7A;
constexpr int kProduct = 0x4417;
constexpr int kIllegalData = -16;

// What a transfer prints when it went well, by direction.
constexpr const char* kWriteLine = "write Successful!\n";

std::string read_lines(int transferred) {
    return "read Successful!\nread-ret = 0, transferred =" + std::to_string(transferred) + "\n";
}

std::string timed_read_lines(int transferred) {
    return "read Successful!\nreadtimeout-ret = 0, transferred =" + std::to_string(transferred) +
           "\n";
}

// 01 02 03 ... as an APDU of that many bytes.
Bytes counting_apdu(std::size_t length) {
    Bytes apdu(length);
    for (std::size_t i = 0; i < length; ++i) {
        apdu[i] = static_cast<std::uint8_t>(i + 1);
    }
    return apdu;
}

// The bytes first..first+count-1 of a counting APDU in hexadecimal.
std::string counting(std::size_t first, std::size_t count) {
    const Bytes all = counting_apdu(first + count - 1);
    return hex(std::span(all).last(count));
}

class CcidSlot : public testing::Test {
  protected:
    void SetUp() override {
        usb.plug(ccid_reader());
        slot.open(kVendor, kProduct, 2);
        usb.clear_log();
        response.fill(0xEE);
    }

    void TearDown() override {
        if (slot.handle != nullptr || slot.library_started) {
            slot.close();
        }
    }

    int exchange(Bytes apdu, int timeout_ms = 10000) {
        return slot.interact_apdu(apdu.data(), static_cast<int>(apdu.size()), response.data(),
                                  &response_length, timeout_ms);
    }

    // The OUT packets of one APDU that the reader answers with 9000.
    std::vector<std::string> packets_of(std::size_t apdu_length) {
        usb.clear_log();
        usb.answer("80 02000000 00 00 00 00 00 9000");
        EXPECT_EQ(exchange(counting_apdu(apdu_length)), 0);
        return usb.sent();
    }

    // The first count bytes of the response buffer.
    std::string response_hex(std::size_t count) const {
        return hex(std::span(response).first(count));
    }

    FakeUsb usb;
    CCID slot{};
    std::array<unsigned char, 1280> response{};
    int response_length = 99;
};

// --- connection ---

TEST_F(CcidSlot, OpeningIsEnumerationChoiceOfTheInterfaceAndClaim) {
    slot.close();
    usb.clear_log();
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.open(kVendor, kProduct, 1), 0); });
    EXPECT_EQ(printed.out, "iccep0 = 2\niccep1 = 130\nDevice Opened\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(usb.log(),
                ElementsAre("init", "get_device_list", "get_device_descriptor 2F7A:4417",
                            "get_config_descriptor 2F7A:4417 0", "free_config_descriptor",
                            "free_device_list 1", "open 2F7A:4417", "kernel_driver_active 1",
                            "claim_interface 1"));
}

TEST_F(CcidSlot, OpeningWithoutAnInterfaceKeepsTheOneChosenBefore) {
    slot.close();
    usb.clear_log();
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.open(kVendor, kProduct), 0); });
    EXPECT_EQ(printed.out, "Device Opened\n");
    EXPECT_EQ(usb.log().back(), "claim_interface 2");
    EXPECT_EQ(slot.ep_out, 0x04);
    EXPECT_EQ(slot.ep_in, 0x84);
}

TEST_F(CcidSlot, OpeningGivesZeroEvenWithoutAReader) {
    slot.close();
    usb.unplug();
    slot.seq = 7;
    Printed printed = printed_by([&] { EXPECT_EQ(slot.open(kVendor, kProduct, 2), 0); });
    EXPECT_EQ(printed.out, "iccep0 = 4\niccep1 = 132\n");
    EXPECT_EQ(printed.err, "Cannot open device\n: No such device\n");
    EXPECT_EQ(slot.seq, 0);
    slot.close();
    printed = printed_by([&] { EXPECT_EQ(slot.open(kVendor, kProduct), 0); });
    EXPECT_EQ(printed.err, "Cannot open device\n: No such device\n");
}

TEST_F(CcidSlot, OpeningGivesZeroEvenWhenTheClaimIsRefused) {
    slot.close();
    usb.fail(Call::kClaim, LIBUSB_ERROR_BUSY);
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.open(kVendor, kProduct, 2), 0); });
    EXPECT_EQ(printed.out, "iccep0 = 4\niccep1 = 132\nDevice Opened\n");
    EXPECT_EQ(printed.err, "Cannot Claim Interface\n: No such device\n");
}

TEST_F(CcidSlot, OpeningAgainEndsTheConnectionThatIsStillHeld) {
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.open(kVendor, kProduct, 1), 0); });
    EXPECT_EQ(printed.out, "Released Interface!\nDevice Closed!\n"
                           "iccep0 = 2\niccep1 = 130\nDevice Opened\n");
    EXPECT_EQ(printed.err, "");
    EXPECT_THAT(usb.log(),
                ElementsAre("release_interface 2", "close", "exit", "init", "get_device_list",
                            "get_device_descriptor 2F7A:4417", "get_config_descriptor 2F7A:4417 0",
                            "free_config_descriptor", "free_device_list 1", "open 2F7A:4417",
                            "kernel_driver_active 1", "claim_interface 1"));
    EXPECT_EQ(usb.open_handles(), 1);
    EXPECT_EQ(usb.starts(), 1);
}

TEST_F(CcidSlot, OpeningAgainWithoutAnInterfaceEndsTheHeldConnectionToo) {
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.open(kVendor, kProduct), 0); });
    EXPECT_EQ(printed.out, "Released Interface!\nDevice Closed!\nDevice Opened\n");
    EXPECT_EQ(usb.log()[0], "release_interface 2");
    EXPECT_EQ(usb.open_handles(), 1);
}

TEST_F(CcidSlot, OpeningAgainAfterARefusedClaimClosesTheHandleThatWasLeft) {
    slot.close();
    usb.fail(Call::kClaim, LIBUSB_ERROR_BUSY);
    slot.open(kVendor, kProduct, 2);
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.open(kVendor, kProduct, 2), 0); });
    EXPECT_EQ(printed.out, "Cannot Released Interface!\nDevice Closed!\n"
                           "iccep0 = 4\niccep1 = 132\nDevice Opened\n");
    EXPECT_EQ(usb.open_handles(), 1);
    EXPECT_EQ(usb.starts(), 1);
}

TEST_F(CcidSlot, ChoosingAnInterfaceGivesZero) {
    EXPECT_EQ(slot.setInterface(1), 0);
    EXPECT_EQ(slot.ep_out, 0x02);
    EXPECT_EQ(slot.ep_in, 0x82);
    EXPECT_EQ(slot.setInterface(2), 0);
}

TEST_F(CcidSlot, ClosingEndsTheConnection) {
    const Printed printed = printed_by([&] { slot.close(); });
    EXPECT_EQ(printed.out, "Released Interface!\nDevice Closed!\n");
    EXPECT_THAT(usb.log(), ElementsAre("release_interface 2", "close", "exit"));
    EXPECT_EQ(slot.handle, nullptr);
}

// --- power and status ---

TEST_F(CcidSlot, PowerOnKeepsTheWholeReplyWithTheAnswerToReset) {
    const std::string reply = "80 09000000 00 00 00 00 00 3B6500002063CB6800";
    usb.answer(reply);
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.poweron(), 0); });
    EXPECT_EQ(printed.out, kWriteLine + read_lines(19));
    EXPECT_THAT(usb.log(),
                ElementsAre("bulk_out 04 10000ms 62000000000000000000", "bulk_in 84 64 10000ms"));
    EXPECT_EQ(hex(std::span(slot.atr).first(20)), hex(bytes(reply)) + "00");
}

TEST_F(CcidSlot, PowerOffOverwritesTheAnswerToReset) {
    usb.answer("80 02000000 00 00 00 00 00 3B00");
    slot.poweron();
    usb.clear_log();
    usb.answer("81 00000000 00 01 01 00 00");
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.poweroff(), 0); });
    EXPECT_EQ(printed.out, kWriteLine + read_lines(10));
    EXPECT_THAT(usb.log(),
                ElementsAre("bulk_out 04 10000ms 63000000000001000000", "bulk_in 84 64 10000ms"));
    EXPECT_EQ(hex(std::span(slot.atr).first(12)), "810000000000010100003B00");
}

TEST_F(CcidSlot, SlotStatusGoesIntoTheCallersBuffer) {
    usb.answer("81 00000000 00 00 02 00 00");
    std::array<unsigned char, 64> status{};
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.GetSlotStatus(status.data()), 0); });
    EXPECT_EQ(printed.out, kWriteLine + read_lines(10));
    EXPECT_THAT(usb.log(),
                ElementsAre("bulk_out 04 10000ms 65000000000000000000", "bulk_in 84 64 10000ms"));
    EXPECT_EQ(hex(std::span(status).first(10)), "81000000000000020000");
    EXPECT_THAT(std::span(slot.atr), Each(0));
}

TEST_F(CcidSlot, AnAnswerToResetOfMoreThanOnePacketIsCut) {
    usb.answer("80 3C000000 00 00 00 00 00" + repeated("3B", 54));
    usb.answer(repeated("3C", 6));
    EXPECT_EQ(slot.poweron(), 0);
    EXPECT_EQ(usb.reads(), 1);
    EXPECT_EQ(usb.unread(), 1U);
    EXPECT_EQ(hex(std::span(slot.atr).subspan(10, 55)), repeated("3B", 54) + "00");
}

TEST_F(CcidSlot, AMissingReplyLeavesTheBuffersAsTheyWere) {
    std::array<unsigned char, 64> status{};
    status.fill(0x11);
    std::ranges::fill(slot.atr, static_cast<unsigned char>(0x22));
    const Printed printed = printed_by([&] {
        EXPECT_EQ(slot.poweron(), 0);
        EXPECT_EQ(slot.GetSlotStatus(status.data()), 0);
        EXPECT_EQ(slot.poweroff(), 0);
    });
    const std::string lines = std::string(kWriteLine) + "read error!\n";
    EXPECT_EQ(printed.out, lines + lines + lines);
    EXPECT_THAT(status, Each(0x11));
    EXPECT_THAT(std::span(slot.atr), Each(0x22));
}

TEST_F(CcidSlot, PowerAndStatusGiveTheResultOfTheirWrite) {
    std::array<unsigned char, 64> status{};
    usb.fail_bulk(1, LIBUSB_ERROR_PIPE);
    usb.fail_bulk(3, LIBUSB_ERROR_IO);
    usb.fail_bulk(5, LIBUSB_ERROR_NO_DEVICE);
    const Printed printed = printed_by([&] {
        EXPECT_EQ(slot.poweron(), LIBUSB_ERROR_PIPE);
        EXPECT_EQ(slot.poweroff(), LIBUSB_ERROR_IO);
        EXPECT_EQ(slot.GetSlotStatus(status.data()), LIBUSB_ERROR_NO_DEVICE);
    });
    const std::string lines = "write error!\nread error!\n";
    EXPECT_EQ(printed.out, lines + lines + lines);
}

TEST_F(CcidSlot, WithoutAReaderPowerAndStatusAreRefused) {
    slot.close();
    usb.clear_log();
    std::array<unsigned char, 64> status{};
    const Printed printed = printed_by([&] {
        EXPECT_EQ(slot.poweron(), -8);
        EXPECT_EQ(slot.poweroff(), -8);
        EXPECT_EQ(slot.GetSlotStatus(status.data()), -8);
    });
    const std::string lines = "write error!\nread error!\n";
    EXPECT_EQ(printed.out, lines + lines + lines);
    EXPECT_THAT(usb.log(), IsEmpty());
    EXPECT_THAT(status, Each(0));
}

// --- message counter ---

TEST_F(CcidSlot, MessagesAreNumberedFromZeroInEachConnection) {
    std::array<unsigned char, 64> status{};
    slot.poweron();
    slot.GetSlotStatus(status.data());
    exchange(bytes("00B2010C00"));
    slot.poweroff();
    EXPECT_THAT(usb.sent(), ElementsAre("62000000000000000000", "65000000000001000000",
                                        "6F05000000000200000000B2010C00", "63000000000003000000"));
    slot.open(kVendor, kProduct, 2);
    usb.clear_log();
    slot.poweron();
    slot.poweron();
    EXPECT_THAT(usb.sent(), ElementsAre("62000000000000000000", "62000000000001000000"));
}

TEST_F(CcidSlot, TheNumberWrapsAfter255) {
    slot.seq = 255;
    slot.poweron();
    slot.poweron();
    EXPECT_THAT(usb.sent(), ElementsAre("620000000000FF000000", "62000000000000000000"));
    EXPECT_EQ(slot.seq, 257);
}

TEST_F(CcidSlot, AMessageThatCouldNotBeSentHasUsedItsNumber) {
    usb.fail_bulk(1, LIBUSB_ERROR_TIMEOUT);
    exchange(bytes("00B2010C00"));
    EXPECT_EQ(slot.seq, 1);
}

// --- sending an APDU ---

TEST_F(CcidSlot, AShortApduIsOnePacket) {
    EXPECT_THAT(packets_of(5), ElementsAre("6F050000000000000000" + counting(1, 5)));
}

TEST_F(CcidSlot, TheSecondMessageCarriesNumberOne) {
    packets_of(5);
    EXPECT_THAT(packets_of(5), ElementsAre("6F050000000001000000" + counting(1, 5)));
}

TEST_F(CcidSlot, AnEmptyApduIsAHeader) {
    EXPECT_THAT(packets_of(0), ElementsAre("6F000000000000000000"));
}

TEST_F(CcidSlot, AnApduOf53BytesIsTheLongestOfOnePacket) {
    EXPECT_THAT(packets_of(53), ElementsAre("6F350000000000000000" + counting(1, 53)));
}

TEST_F(CcidSlot, AnApduThatFillsItsPacketIsFollowedBy54Zeros) {
    EXPECT_THAT(packets_of(54),
                ElementsAre("6F360000000000000000" + counting(1, 54), repeated("00", 54)));
}

TEST_F(CcidSlot, TheLastPacketIsAsLongAsTheApduModulo64) {
    EXPECT_THAT(packets_of(55), ElementsAre("6F370000000000000000" + counting(1, 54),
                                            counting(55, 1) + repeated("00", 54)));
}

TEST_F(CcidSlot, AnApduOf64BytesIsFollowedByAnEmptyPacket) {
    EXPECT_THAT(packets_of(64), ElementsAre("6F400000000000000000" + counting(1, 54), ""));
}

TEST_F(CcidSlot, OfAnApduOf100BytesTheLastTenAreNotSent) {
    EXPECT_THAT(packets_of(100),
                ElementsAre("6F640000000000000000" + counting(1, 54), counting(55, 36)));
}

TEST_F(CcidSlot, AnApduOfTwoFullPacketsIsFollowedBy54Zeros) {
    EXPECT_THAT(packets_of(118), ElementsAre("6F760000000000000000" + counting(1, 54),
                                             counting(55, 64), repeated("00", 54)));
}

TEST_F(CcidSlot, TheLongestShortCommandTakesFivePackets) {
    // 261 bytes announce themselves as 5; of the last packet only five bytes go out.
    EXPECT_THAT(packets_of(261),
                ElementsAre("6F050000000000000000" + counting(1, 54), counting(55, 64),
                            counting(119, 64), counting(183, 64), counting(247, 5)));
}

TEST_F(CcidSlot, SendingPrintsALineForEachPacket) {
    usb.answer("80 02000000 00 00 00 00 00 9000");
    const Printed printed = printed_by([&] { EXPECT_EQ(exchange(counting_apdu(118)), 0); });
    EXPECT_EQ(printed.out,
              std::string(kWriteLine) + kWriteLine + kWriteLine + timed_read_lines(12));
    EXPECT_EQ(printed.err, "");
}

TEST_F(CcidSlot, AFirstPacketThatFailsEndsTheExchange) {
    usb.fail_bulk(1, LIBUSB_ERROR_PIPE);
    EXPECT_EQ(exchange(counting_apdu(118)), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(usb.transfers().size(), 1U);
}

TEST_F(CcidSlot, AFullPacketThatFailsEndsTheExchange) {
    usb.fail_bulk(2, LIBUSB_ERROR_IO);
    EXPECT_EQ(exchange(counting_apdu(118)), LIBUSB_ERROR_IO);
    EXPECT_EQ(usb.transfers().size(), 2U);
}

TEST_F(CcidSlot, ALastPacketThatFailsDoesNotEndTheExchange) {
    usb.fail_bulk(3, LIBUSB_ERROR_IO);
    usb.answer("80 02000000 00 00 00 00 00 9000");
    EXPECT_EQ(exchange(counting_apdu(118)), 0);
    EXPECT_EQ(usb.transfers().size(), 4U);
    EXPECT_EQ(response_length, 2);
}

TEST_F(CcidSlot, WithoutAReaderAnExchangeIsRefused) {
    slot.close();
    usb.clear_log();
    const Printed printed = printed_by([&] { EXPECT_EQ(exchange(bytes("00B2010C00")), -8); });
    EXPECT_EQ(printed.out, "write error!\n");
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(CcidSlot, AnApduOfImpossibleLengthIsRefused) {
    std::array<unsigned char, 5> apdu{};
    for (const int length : {-1, 65545}) {
        EXPECT_EQ(slot.interact_apdu(apdu.data(), length, response.data(), &response_length, 100),
                  kIllegalData);
        EXPECT_EQ(slot.write(apdu.data(), length), kIllegalData);
    }
    EXPECT_THAT(usb.log(), IsEmpty());
}

// --- taking the reply ---

TEST_F(CcidSlot, AStatusWordAloneIsFollowedByZeros) {
    usb.answer("80 02000000 00 00 00 00 00 9000");
    EXPECT_EQ(exchange(bytes("00B2010C00"), 4321), 0);
    EXPECT_EQ(response_length, 2);
    EXPECT_EQ(response_hex(55), "9000" + repeated("00", 52) + "EE");
    EXPECT_EQ(usb.log().back(), "bulk_in 84 64 4321ms");
}

TEST_F(CcidSlot, AllOfTheFirstPacketIsCopiedWhateverTheLengthSays) {
    usb.answer("80 02000000 00 00 00 00 00 9000" + repeated("AA", 52));
    EXPECT_EQ(exchange(bytes("00B2010C00")), 0);
    EXPECT_EQ(response_length, 2);
    EXPECT_EQ(response_hex(55), "9000" + repeated("AA", 52) + "EE");
}

TEST_F(CcidSlot, AReplyOf53BytesIsOnePacket) {
    usb.answer("80 35000000 00 00 00 00 00" + repeated("AA", 51) + "9000");
    EXPECT_EQ(exchange(bytes("00B2010C00")), 0);
    EXPECT_EQ(response_length, 53);
    EXPECT_EQ(usb.reads(), 1);
}

TEST_F(CcidSlot, AReplyThatFillsItsPacketNeedsAZeroLengthPacketBehindIt) {
    usb.answer("80 36000000 00 00 00 00 00" + repeated("AA", 52) + "9000");
    usb.answer("");
    const Printed printed = printed_by([&] { EXPECT_EQ(exchange(bytes("00B2010C00")), 0); });
    EXPECT_EQ(printed.out, kWriteLine + timed_read_lines(64) + timed_read_lines(0));
    EXPECT_EQ(response_length, 54);
    EXPECT_EQ(response_hex(54), repeated("AA", 52) + "9000");
}

TEST_F(CcidSlot, WithoutThatPacketTheExchangeTimesOut) {
    usb.answer("80 36000000 00 00 00 00 00" + repeated("AA", 52) + "9000");
    const Printed printed =
        printed_by([&] { EXPECT_EQ(exchange(bytes("00B2010C00"), 77), LIBUSB_ERROR_TIMEOUT); });
    EXPECT_EQ(printed.out, kWriteLine + timed_read_lines(64) +
                               "read error!\nreadtimeout-ret = -7, transferred =0\n");
    EXPECT_THAT(usb.transfers(), ElementsAre("bulk_out 04 10000ms 6F05000000000000000000B2010C00",
                                             "bulk_in 84 64 77ms", "bulk_in 84 64 77ms"));
}

TEST_F(CcidSlot, TheDataOfALongReplyLandsContiguous) {
    usb.answer("80 C8000000 00 00 00 00 00" + repeated("A1", 54));
    usb.answer(repeated("A2", 64));
    usb.answer(repeated("A3", 64));
    usb.answer(repeated("A4", 16) + "9000");
    EXPECT_EQ(exchange(bytes("00B2010C00")), 0);
    EXPECT_EQ(response_length, 200);
    EXPECT_EQ(response_hex(200), repeated("A1", 54) + repeated("A2", 64) + repeated("A3", 64) +
                                     repeated("A4", 16) + "9000");
    EXPECT_EQ(usb.reads(), 4);
}

TEST_F(CcidSlot, WhatTheLastPacketDoesNotBringReadsAsZeros) {
    usb.answer("80 64000000 00 00 00 00 00" + repeated("A1", 54));
    usb.answer("A2A2");
    EXPECT_EQ(exchange(bytes("00B2010C00")), 0);
    EXPECT_EQ(response_length, 100);
    EXPECT_EQ(response_hex(119), repeated("A1", 54) + "A2A2" + repeated("00", 62) + "EE");
}

TEST_F(CcidSlot, OnlyThePlacesOfPacketsThatWereAskedForAreWritten) {
    // Three packets are announced, the second one does not come.
    usb.answer("80 C8000000 00 00 00 00 00" + repeated("A1", 54));
    EXPECT_EQ(exchange(bytes("00B2010C00")), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(response_hex(119), repeated("A1", 54) + repeated("00", 64) + "EE");
}

TEST_F(CcidSlot, AContinuationThatFailsEndsTheExchange) {
    usb.answer("80 C8000000 00 00 00 00 00" + repeated("A1", 54));
    usb.answer_failure(LIBUSB_ERROR_PIPE);
    usb.answer(repeated("A3", 64));
    EXPECT_EQ(exchange(bytes("00B2010C00")), LIBUSB_ERROR_PIPE);
    EXPECT_EQ(usb.reads(), 2);
    EXPECT_EQ(usb.unread(), 1U);
}

TEST_F(CcidSlot, AFirstReadThatFailsIsTheResultOfAnEmptyReply) {
    const Printed printed =
        printed_by([&] { EXPECT_EQ(exchange(bytes("00B2010C00")), LIBUSB_ERROR_TIMEOUT); });
    EXPECT_EQ(printed.out,
              std::string(kWriteLine) + "read error!\nreadtimeout-ret = -7, transferred =0\n");
    EXPECT_EQ(response_length, 0);
    EXPECT_EQ(response_hex(55), repeated("00", 54) + "EE");
    EXPECT_EQ(usb.reads(), 1);
}

TEST_F(CcidSlot, AFirstReadThatFailsIsNoReplyWhateverItBrought) {
    usb.answer_failure(LIBUSB_ERROR_TIMEOUT, "80 02000000 00 00 00 00 00 9000");
    EXPECT_EQ(exchange(bytes("00B2010C00")), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(response_length, 0);
    EXPECT_EQ(response_hex(54), repeated("00", 54));
}

TEST_F(CcidSlot, StatusAndNumberOfTheReplyAreNotLookedAt) {
    usb.answer("83 02000000 05 77 42 FE 01 6985");
    EXPECT_EQ(exchange(bytes("00B2010C00")), 0);
    EXPECT_EQ(response_length, 2);
    EXPECT_EQ(response_hex(2), "6985");
}

TEST_F(CcidSlot, AnEmptyReplyHasLengthZero) {
    usb.answer("80 00000000 00 00 40 00 00");
    EXPECT_EQ(exchange(bytes("00B2010C00")), 0);
    EXPECT_EQ(response_length, 0);
}

TEST_F(CcidSlot, TheLargestReplyThatFitsIsTaken) {
    // 1013 bytes: 54 in the first packet, 15 further packets, the last one with 63 bytes.
    usb.answer("80 F5030000 00 00 00 00 00" + repeated("A1", 54));
    for (int k = 0; k < 14; ++k) {
        usb.answer(repeated("A2", 64));
    }
    usb.answer(repeated("A3", 61) + "9000");
    EXPECT_EQ(exchange(bytes("00B2010C00")), 0);
    EXPECT_EQ(response_length, 1013);
    EXPECT_EQ(hex(std::span(response).subspan(54 + 14 * 64, 63)), repeated("A3", 61) + "9000");
    EXPECT_THAT(std::span(response).subspan(1024), Each(0xEE));
}

TEST_F(CcidSlot, ALargerReplyIsReadToItsEndAndRefused) {
    usb.answer("80 F6030000 00 00 00 00 00" + repeated("A1", 54));
    for (int k = 0; k < 15; ++k) {
        usb.answer(repeated("A2", 64));
    }
    usb.answer("");
    EXPECT_EQ(exchange(bytes("00B2010C00")), kIllegalData);
    EXPECT_EQ(usb.unread(), 0U);
    EXPECT_EQ(usb.reads(), 17);
    EXPECT_THAT(std::span(response).subspan(1024), Each(0xEE));
    // The next exchange finds its own reply.
    usb.answer("80 02000000 00 01 00 00 00 9000");
    EXPECT_EQ(exchange(bytes("00B2010C00")), 0);
    EXPECT_EQ(response_hex(2), "9000");
}

TEST_F(CcidSlot, TheRestOfALargerReplyIsReadUntilTheReaderFallsSilent) {
    usb.answer("80 FFFF0000 00 00 00 00 00" + repeated("A1", 54));
    usb.answer(repeated("A2", 64));
    const Printed printed =
        printed_by([&] { EXPECT_EQ(exchange(bytes("00B2010C00"), 50), kIllegalData); });
    EXPECT_EQ(printed.out, kWriteLine + timed_read_lines(64) + timed_read_lines(64) +
                               "read error!\nreadtimeout-ret = -7, transferred =0\n");
    EXPECT_EQ(usb.transfers().back(), "bulk_in 84 64 50ms");
}

TEST_F(CcidSlot, TheRestOfALargerReplyIsNotReadForEver) {
    usb.answer("80 FFFFFFFF 00 00 00 00 00" + repeated("A1", 54));
    for (int k = 0; k < 1200; ++k) {
        usb.answer(repeated("A2", 64));
    }
    EXPECT_EQ(exchange(bytes("00B2010C00")), kIllegalData);
    EXPECT_EQ(usb.reads(), 1 + 1100);
    EXPECT_EQ(usb.unread(), 100U);
}

TEST_F(CcidSlot, AShortFirstPacketThatAnnouncesALargerReplyIsRefusedAtOnce) {
    // A length that only the highest of its four bytes makes too large.
    usb.answer("80 02000001 00 00 00 00 00 9000");
    usb.answer("80 02000000 00 00 00 00 00 9000");
    EXPECT_EQ(exchange(bytes("00B2010C00")), kIllegalData);
    EXPECT_EQ(usb.reads(), 1);
    EXPECT_EQ(usb.unread(), 1U);
}

TEST(CcidHeader, AnnouncesTheDataLengthInFourBytesLowestFirst) {
    const std::array<unsigned char, CCID::kHeaderSize> header{0x80, 0x04, 0x03, 0x02, 0x01};
    EXPECT_EQ(CCID::announced_length(header), 0x01020304U);
}

// --- the unsplit transfers ---

TEST_F(CcidSlot, WritingSendsTheWholeMessageInOneTransfer) {
    Bytes apdu = counting_apdu(100);
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.write(apdu.data(), 100), 0); });
    EXPECT_EQ(printed.out, kWriteLine);
    EXPECT_THAT(usb.log(),
                ElementsAre("bulk_out 04 10000ms 6F640000000000000000" + counting(1, 100)));
    EXPECT_EQ(slot.seq, 1);
}

TEST_F(CcidSlot, WritingGivesTheLibusbCode) {
    Bytes apdu = bytes("00B2010C00");
    usb.fail_bulk(1, LIBUSB_ERROR_PIPE);
    EXPECT_EQ(slot.write(apdu.data(), 5), LIBUSB_ERROR_PIPE);
    slot.close();
    EXPECT_EQ(slot.write(apdu.data(), 5), -8);
}

TEST_F(CcidSlot, ReadingGivesTheLowByteOfTheLength) {
    usb.answer("80 0F010000 00 00 00 00 00 9000");
    int length = 0;
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.read(response.data(), &length), 0); });
    EXPECT_EQ(printed.out, read_lines(12));
    EXPECT_EQ(length, 15);
    EXPECT_EQ(response_hex(12), "800F01000000000000009000");
    EXPECT_THAT(usb.log(), ElementsAre("bulk_in 84 64 10000ms"));
}

TEST_F(CcidSlot, ReadingCountsFurtherPacketsFromTheDataLengthAlone) {
    // 63 data bytes are 73 of message, but no second packet is read.
    usb.answer("80 3F000000 00 00 00 00 00" + repeated("A1", 54));
    int length = 0;
    EXPECT_EQ(slot.read(response.data(), &length), 0);
    EXPECT_EQ(length, 63);
    EXPECT_EQ(usb.reads(), 1);
}

TEST_F(CcidSlot, ReadingPlacesFurtherPacketsBehindTheFirst) {
    usb.answer("80 FF000000 00 00 00 00 00" + repeated("A1", 54));
    usb.answer(repeated("A2", 64));
    usb.answer(repeated("A3", 64));
    usb.answer(repeated("A4", 64));
    int length = 0;
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.read(response.data(), &length), 0); });
    EXPECT_EQ(printed.out, read_lines(64) + "read Successful!\nread Successful!\n"
                                            "read Successful!\n");
    EXPECT_EQ(length, 255);
    EXPECT_EQ(response_hex(257), "80FF0000000000000000" + repeated("A1", 54) + repeated("A2", 64) +
                                     repeated("A3", 64) + repeated("A4", 64) + "EE");
    EXPECT_THAT(usb.log(), ElementsAre("bulk_in 84 64 10000ms", "bulk_in 84 64 10000ms",
                                       "bulk_in 84 64 10000ms", "bulk_in 84 64 10000ms"));
}

TEST_F(CcidSlot, ReadingStopsAtTheFirstPacketThatFails) {
    usb.answer("80 FF000000 00 00 00 00 00" + repeated("A1", 54));
    usb.answer(repeated("A2", 64));
    usb.answer_failure(LIBUSB_ERROR_PIPE);
    usb.answer(repeated("A4", 64));
    int length = 0;
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.read(response.data(), &length), -1); });
    EXPECT_EQ(printed.out, read_lines(64) + "read Successful!\nread error!\n");
    EXPECT_EQ(usb.unread(), 1U);
    EXPECT_EQ(length, 255);
}

TEST_F(CcidSlot, ReadingNothingGivesMinusOneAndNoLength) {
    int length = 99;
    const Printed printed = printed_by([&] { EXPECT_EQ(slot.read(response.data(), &length), -1); });
    EXPECT_EQ(printed.out, "read error!\n");
    EXPECT_EQ(length, 0);
    slot.close();
    EXPECT_EQ(slot.read(response.data(), &length), -1);
}

TEST_F(CcidSlot, ReadingWithATimeOutUsesItForEveryPacket) {
    usb.answer("80 40000000 00 00 00 00 00" + repeated("A1", 54));
    usb.answer(repeated("A2", 10));
    int length = 0;
    const Printed printed =
        printed_by([&] { EXPECT_EQ(slot.readTimeout(response.data(), &length, 123), 0); });
    EXPECT_EQ(printed.out, timed_read_lines(64) + "read Successful!\n");
    EXPECT_EQ(length, 64);
    EXPECT_EQ(response_hex(75),
              "80400000000000000000" + repeated("A1", 54) + repeated("A2", 10) + "EE");
    EXPECT_THAT(usb.log(), ElementsAre("bulk_in 84 64 123ms", "bulk_in 84 64 123ms"));
}

TEST_F(CcidSlot, ReadingWithATimeOutGivesTheLibusbCode) {
    int length = 99;
    Printed printed = printed_by(
        [&] { EXPECT_EQ(slot.readTimeout(response.data(), &length, 123), LIBUSB_ERROR_TIMEOUT); });
    EXPECT_EQ(length, 0);
    EXPECT_EQ(printed.out, "read error!\nreadtimeout-ret = -7, transferred =0\n");
    usb.answer("80 40000000 00 00 00 00 00" + repeated("A1", 54));
    usb.answer_failure(LIBUSB_ERROR_PIPE);
    printed = printed_by(
        [&] { EXPECT_EQ(slot.readTimeout(response.data(), &length, 123), LIBUSB_ERROR_PIPE); });
    EXPECT_EQ(printed.out, timed_read_lines(64) + "read error!\n");
    slot.close();
    EXPECT_EQ(slot.readTimeout(response.data(), &length, 123), -8);
}

} // namespace
