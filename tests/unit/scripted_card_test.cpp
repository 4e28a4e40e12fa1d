// The scripted card notices everything that departs from its script; other tests rely on that.
#include "scripted_card.h"

#include "card_test.h"
#include "engine/card/apdu.h"
#include "engine/card/session.h"
#include "usb/ccid.h"

#include <gmock/gmock.h>
#include <gtest/gtest-spi.h>
#include <gtest/gtest.h>

#include <array>

using qaven::test::bytes;
using qaven::test::Bytes;
using qaven::test::CardTest;
using qaven::test::FakeUsb;
using qaven::test::hex;
using qaven::test::ScriptedCard;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

namespace {

class Script : public CardTest {
  protected:
    int send(std::string_view command) {
        Bytes cmd = bytes(command);
        std::array<unsigned char, 1024> reply{};
        int length = 0;
        const int result =
            Qm_Icc_EXApdu(cmd.data(), static_cast<int>(cmd.size()), reply.data(), &length, 0);
        response = hex(std::span(reply).first(static_cast<std::size_t>(length)));
        return result;
    }

    std::string response;
};

TEST_F(Script, IsFollowedInOrder) {
    card.expect("00B2010C00", "70 03 5A 01 62 9000").expect("00B2020C00", "6A83");
    EXPECT_EQ(send("00B2010C00"), 0);
    EXPECT_EQ(response, "70035A01629000");
    EXPECT_EQ(send("00B2020C00"), 0x6A83);
    EXPECT_THAT(card.commands(), ElementsAre("00B2010C00", "00B2020C00"));
    EXPECT_THAT(card.take_violations(), IsEmpty());
}

TEST_F(Script, ACommandThatIsNotTheNextOneIsAViolation) {
    card.expect("00B2010C00", "9000").expect("00B2020C00", "9000");
    EXPECT_EQ(send("00B2020C00"), 0x6F00);
    EXPECT_EQ(send("00B2010C00"), 0x6F00);
    EXPECT_THAT(card.take_violations(), ElementsAre("was sent 00B2020C00 instead of 00B2010C00"));
}

TEST_F(Script, ACommandBehindTheEndIsAViolation) {
    EXPECT_EQ(send("00B2010C00"), 0x6F00);
    EXPECT_THAT(card.take_violations(), ElementsAre("was sent 00B2010C00 instead of nothing more"));
}

TEST_F(Script, ACommandThatIsNeverSentIsAViolation) {
    card.expect("00B2010C00", "9000").expect("80 CA 9F 13 00", "9000");
    EXPECT_EQ(send("00B2010C00"), 0);
    EXPECT_THAT(card.take_violations(), ElementsAre("was never sent 80 CA 9F 13 00"));
    EXPECT_THAT(card.take_violations(), IsEmpty());
}

TEST_F(Script, ACommandThatIsTooShortOrTooLongIsAViolation) {
    card.expect("80AE8000 02 1122", "9000");
    send("80AE8000021122FF");
    EXPECT_THAT(card.take_violations(), ElementsAre(HasSubstr("instead of 80AE8000 02 1122")));
    card.expect("80AE8000 02 1122", "9000");
    send("80AE80000211");
    EXPECT_THAT(card.take_violations(), ElementsAre(HasSubstr("instead of 80AE8000 02 1122")));
}

TEST_F(Script, QuestionMarksStandForAnyByte) {
    card.expect("80AE8000 04 ???????? 00", "9000");
    EXPECT_EQ(send("80AE800004 01020304 00"), 0);
    card.expect("80AE8000 04 ???????? 00", "9000");
    EXPECT_EQ(send("80AE800004 01020304 01"), 0x6F00);
    EXPECT_EQ(card.take_violations().size(), 1U);
}

TEST_F(Script, LongCommandsAreMatchedAsFarAsTheyAreSent) {
    const std::string data(190, '1');
    card.expect("80AE80005F" + data, "9000");
    EXPECT_EQ(send("80AE80005F" + data), 0);
    // The last ten bytes of 100 never reach the reader; the 90th does.
    card.expect("80AE80005F" + data.substr(20) + std::string(20, '2'), "9000");
    EXPECT_EQ(send("80AE80005F" + data), 0);
    card.expect("80AE80005F" + std::string(168, '1') + std::string(22, '2'), "9000");
    EXPECT_EQ(send("80AE80005F" + data), 0x6F00);
    EXPECT_EQ(card.take_violations().size(), 1U);
}

TEST_F(Script, ACardMayAnswerWithSeveralPackets) {
    const std::string record = qaven::test::repeated("A5", 200);
    card.expect("00B2010C00", record + "9000");
    EXPECT_EQ(send("00B2010C00"), 0);
    EXPECT_EQ(response, record + "9000");
    // Header and response of exactly two packets are ended by an empty third one.
    const std::string full = qaven::test::repeated("A5", 116);
    card.expect("00B2010C00", full + "9000");
    EXPECT_EQ(send("00B2010C00"), 0);
    EXPECT_EQ(response, full + "9000");
    EXPECT_EQ(usb.unread(), 0U);
}

TEST_F(Script, AReaderMayStaySilentOrFail) {
    card.expect_silence("00B2010C00").expect_failure("00B2010C00", LIBUSB_ERROR_PIPE);
    EXPECT_EQ(send("00B2010C00"), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(send("00B2010C00"), LIBUSB_ERROR_PIPE);
}

TEST_F(Script, AReplyMayBeAnyPackets) {
    card.expect_packets("00B2010C00", {bytes("80 02000000 00 00 00 00 00 6985")});
    EXPECT_EQ(send("00B2010C00"), 0x6985);
}

TEST_F(Script, ACommandWithoutPowerIsAViolation) {
    CCID reader{};
    card.disconnect();
    reader.open(0x2F7A, 0x4417, 2);
    std::array<unsigned char, 1024> reply{};
    int length = 0;
    Bytes cmd = bytes("00B2010C00");
    card.expect("00B2010C00", "9000");
    EXPECT_EQ(reader.interact_apdu(cmd.data(), 5, reply.data(), &length, 100), 0);
    EXPECT_EQ(length, 0);
    reader.close();
    EXPECT_THAT(card.take_violations(),
                ElementsAre("was sent 00B2010C00 without power", "was never sent 00B2010C00"));
}

TEST_F(Script, AMessageNumberOutOfTurnIsAViolation) {
    CCID reader{};
    card.disconnect();
    reader.open(0x2F7A, 0x4417, 2);
    reader.seq = 5;
    reader.poweron();
    reader.close();
    EXPECT_THAT(card.take_violations(), ElementsAre("was sent bSeq 5 instead of 0"));
}

TEST_F(Script, StartsWithNothingNoted) {
    EXPECT_TRUE(card.powered());
    EXPECT_THAT(card.events(), IsEmpty());
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(Script, ViolationsFailTheTest) {
    card.expect("00B2010C00", "9000");
    EXPECT_NONFATAL_FAILURE(card.verify(), "was never sent 00B2010C00");
}

TEST(ScriptedReader, ShowsConnectionAndPowerAsEvents) {
    FakeUsb usb;
    ScriptedCard card(usb);
    EXPECT_EQ(qaven::session::open_with_card(), 0);
    EXPECT_TRUE(card.powered());
    card.disconnect();
    EXPECT_FALSE(card.powered());
    EXPECT_THAT(card.events(),
                ElementsAre("claim 2", "power on", "slot status", "power off", "close"));
}

TEST(ScriptedReader, HasASecondSlot) {
    FakeUsb usb;
    ScriptedCard card(usb, ScriptedCard::kOtherSlot);
    EXPECT_EQ(qaven::session::open_with_card(), 0);
    EXPECT_THAT(card.events(), ElementsAre("claim 2", "power on", "slot status", "power off",
                                           "close", "claim 1", "power on", "slot status"));
    card.disconnect();
}

TEST(ScriptedReader, MayHoldNoCard) {
    FakeUsb usb;
    ScriptedCard card(usb, ScriptedCard::kNoSlot);
    EXPECT_EQ(card.connect(), -1);
    EXPECT_FALSE(card.powered());
}

TEST(FakeBus, AnythingLeftBehindFailsTheTest) {
    EXPECT_NONFATAL_FAILURE(
        {
            FakeUsb usb;
            libusb_init(nullptr);
        },
        "the library was not ended");
}

TEST(FakeBus, AStaleHandleIsAViolation) {
    FakeUsb usb;
    usb.plug(qaven::test::ccid_reader());
    libusb_init(nullptr);
    libusb_device_handle* handle = libusb_open_device_with_vid_pid(nullptr, 0x2F7A, 0x4417);
    ASSERT_NE(handle, nullptr);
    libusb_close(handle);
    EXPECT_LT(libusb_claim_interface(handle, 2), 0);
    EXPECT_LT(libusb_claim_interface(nullptr, 2), 0);
    libusb_exit(nullptr);
    EXPECT_THAT(usb.take_violations(), ElementsAre("claim_interface with a closed handle",
                                                   "claim_interface with a null handle"));
}

} // namespace
