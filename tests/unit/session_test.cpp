// Who opens the reader, who keeps the connection, who ends it.
#include "engine/card/session.h"

#include "console.h"
#include "engine/card/commands.h"
#include "engine/operation/power_off.h"
#include "host_calls.h"
#include "payment_card.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>

namespace session = qaven::session;

using namespace qaven::test;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

constexpr std::string_view kIssuerResponse = "910A 0102030405060708 3030";
constexpr std::string_view kExternalAuthenticate = "00820000 0A 0102030405060708 3030";
constexpr std::string_view kDate = "201904"; // the date as the issuer step's terminal data has it

std::string second_generate_ac(std::string_view p1) {
    return "80AE" + std::string(p1) + "00 1F 3030 000000000000 000000000000 0156 0008006000 0156 " +
           std::string(kDate) + " 33 " + unpredictable_number();
}

int send_read_record() {
    std::array<unsigned char, 5> command{0x00, 0xB2, 0x01, 0x0C, 0x00};
    std::array<unsigned char, qaven::Reply::kCapacity> place{};
    qaven::Reply reply{place};
    return session::exchange(command, reply);
}

class Session : public OperationTest {};

class SessionOnTheOtherSlot : public OperationTest {
  protected:
    SessionOnTheOtherSlot() : OperationTest(ScriptedCard::kOtherSlot) {}
};

class SessionWithoutCard : public OperationTest {
  protected:
    SessionWithoutCard() : OperationTest(ScriptedCard::kNoSlot) {}
};

class SessionWithoutReader : public testing::Test {
  protected:
    void TearDown() override { session::end(); }

    FakeUsb usb;
    FixedClock clock{2019, 4, 22, 16, 13, 55};
};

// --- opening ---

TEST_F(Session, IsNotLiveBeforeAnythingWasOpened) {
    EXPECT_FALSE(session::live());
}

TEST_F(Session, ACardInTheFirstSlotIsPoweredOnInterfaceTwo) {
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(card.events(), ElementsAre("claim 2", "power on", "slot status"));
    EXPECT_TRUE(session::live());
    EXPECT_TRUE(card.powered());
}

TEST_F(Session, AnOpeningPrintsEveryStepAndTheFirstTenBytesOfTheSlotStatus) {
    const Printed printed = printed_by([] { session::open_with_card(); });
    EXPECT_EQ(printed.out, "iccep0 = 4\niccep1 = 132\nDevice Opened\n"
                           "write Successful!\nread Successful!\nread-ret = 0, transferred =19\n"
                           "write Successful!\nread Successful!\nread-ret = 0, transferred =10\n"
                           "81 00 00 00 00 00 01 00 00 00 \n");
    EXPECT_EQ(printed.err, "");
}

TEST_F(SessionOnTheOtherSlot, ACardThereIsFoundOnInterfaceOneAfterInterfaceTwoWasGivenBack) {
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(card.events(), ElementsAre("claim 2", "power on", "slot status", "power off",
                                           "close", "claim 1", "power on", "slot status"));
    EXPECT_TRUE(session::live());
}

TEST_F(SessionOnTheOtherSlot, BothSlotsStatesArePrinted) {
    const std::string printed = printed_by([] { session::open_with_card(); }).out;
    EXPECT_EQ(without_link_lines(printed),
              "81 00 00 00 00 00 01 02 00 00 \n81 00 00 00 00 00 01 00 00 00 \n");
    EXPECT_THAT(printed, HasSubstr("Released Interface!\nDevice Closed!\n"
                                   "iccep0 = 2\niccep1 = 130\nDevice Opened\n"));
}

TEST_F(SessionWithoutCard, NoCardInEitherSlotIsMinusOneAndEverythingIsGivenBack) {
    EXPECT_EQ(session::open_with_card(), -1);
    EXPECT_THAT(card.events(),
                ElementsAre("claim 2", "power on", "slot status", "power off", "close", "claim 1",
                            "power on", "slot status", "power off", "close"));
    EXPECT_FALSE(session::live());
    EXPECT_EQ(usb.open_handles(), 0);
    EXPECT_EQ(usb.starts(), 0);
}

TEST_F(Session, AnySlotStatusButNotPresentCountsAsACard) {
    usb.on_packet = nullptr;
    usb.answer("80 00000000 00 00 01 00 00");
    usb.answer("81 00000000 00 01 42 00 00"); // failed, and present but inactive
    EXPECT_EQ(session::open_with_card(), 0);
}

TEST_F(Session, ASlotThatDoesNotAnswerCountsAsACard) {
    usb.on_packet = nullptr;
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(usb.log(), Contains("claim_interface 2"));
    EXPECT_THAT(usb.log(), Not(Contains("claim_interface 1")));
}

TEST_F(SessionWithoutReader, AnAbsentReaderShowsInTheFirstCommandOnly) {
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_FALSE(session::live());
    EXPECT_THAT(usb.transfers(), IsEmpty());
    EXPECT_EQ(send_read_record(), -8);
    session::end();
    EXPECT_EQ(usb.starts(), 0);
}

TEST_F(SessionWithoutReader, EverySearchForAReaderEndsTheOneBefore) {
    for (int attempt = 0; attempt < 3; ++attempt) {
        EXPECT_EQ(session::open_with_card(), 0);
        EXPECT_EQ(usb.starts(), 1);
    }
}

TEST_F(Session, AnOpeningEndsTheConnectionThatIsStillHeld) {
    ASSERT_EQ(session::open_with_card(), 0);
    card.clear_events();
    const std::string printed = printed_by([] { session::open_with_card(); }).out;
    // By closing alone: the card is not powered off.
    EXPECT_THAT(card.events(), ElementsAre("close", "claim 2", "power on", "slot status"));
    EXPECT_THAT(printed, StartsWith("Released Interface!\nDevice Closed!\niccep0 = 4\n"));
    EXPECT_EQ(usb.open_handles(), 1);
    EXPECT_EQ(usb.starts(), 1);
}

TEST_F(Session, AnInterfaceThatSomebodyElseHoldsMakesNoLiveConnection) {
    usb.fail(Call::kClaim, LIBUSB_ERROR_BUSY);
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_FALSE(session::live());
    EXPECT_LT(send_read_record(), 0);
    // The handle is still held, so the next opening gives it back first.
    EXPECT_EQ(usb.open_handles(), 1);
    usb.clear_log();
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(usb.log(),
                ElementsAre("release_interface 2", "close", "exit", "init", "get_device_list",
                            "get_device_descriptor 2F7A:4417", "get_config_descriptor 2F7A:4417 0",
                            "free_config_descriptor", "free_device_list 1", "open 2F7A:4417",
                            "kernel_driver_active 2", "claim_interface 2",
                            StartsWith("bulk_out 04"), // power on
                            StartsWith("bulk_in 84"), StartsWith("bulk_out 04"),
                            StartsWith("bulk_in 84")));
    EXPECT_TRUE(session::live());
}

// --- ending ---

TEST_F(Session, EndingPowersTheCardOffAndClosesTheReader) {
    connect();
    session::end();
    EXPECT_THAT(card.events(), ElementsAre("power off", "close"));
    EXPECT_FALSE(session::live());
    EXPECT_EQ(usb.open_handles(), 0);
    EXPECT_EQ(usb.starts(), 0);
}

TEST_F(Session, WhatWasEndedIsNotEndedAgain) {
    connect();
    session::end();
    usb.clear_log();
    const Printed printed = printed_by([] { session::end(); });
    EXPECT_EQ(printed.out, "");
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(Session, ACommandAfterTheEndIsABadHandleAndNeverReachesTheBus) {
    connect();
    session::end();
    usb.clear_log();
    EXPECT_EQ(send_read_record(), -8);
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(Session, AReaderFoundGoneIsNotLive) {
    connect();
    usb.unplug();
    EXPECT_TRUE(session::live()); // nobody has noticed yet
    EXPECT_EQ(send_read_record(), LIBUSB_ERROR_NO_DEVICE);
    EXPECT_FALSE(session::live());
}

TEST_F(Session, AReaderThatCameBackIsLiveAfterTheNextOpening) {
    connect();
    usb.unplug();
    EXPECT_EQ(send_read_record(), LIBUSB_ERROR_NO_DEVICE);
    usb.plug(ccid_reader());
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_TRUE(session::live());
    EXPECT_EQ(usb.open_handles(), 1);
}

TEST_F(Session, ASilentCardLeavesTheConnectionLive) {
    connect();
    card.expect_silence("00B2010C00");
    EXPECT_EQ(send_read_record(), LIBUSB_ERROR_TIMEOUT);
    EXPECT_TRUE(session::live());
}

TEST_F(Session, AVisitToAClosedReaderOpensItAndEndsIt) {
    {
        const session::Visit visit;
        EXPECT_EQ(visit.result(), 0);
        EXPECT_TRUE(session::live());
    }
    EXPECT_THAT(card.events(),
                ElementsAre("claim 2", "power on", "slot status", "power off", "close"));
    EXPECT_FALSE(session::live());
}

TEST_F(Session, AVisitToALiveConnectionLeavesItAsItIs) {
    connect();
    {
        const session::Visit visit;
        EXPECT_EQ(visit.result(), 0);
    }
    EXPECT_THAT(card.events(), IsEmpty());
    EXPECT_TRUE(session::live());
}

TEST_F(SessionWithoutCard, AVisitWithoutACardIsMinusOne) {
    {
        const session::Visit visit;
        EXPECT_EQ(visit.result(), -1);
    }
    EXPECT_EQ(usb.starts(), 0);
}

TEST_F(Session, WhatIsNotKeptIsEnded) {
    connect();
    { const session::EndUnlessKept connection; }
    EXPECT_THAT(card.events(), ElementsAre("power off", "close"));
    connect();
    {
        session::EndUnlessKept connection;
        connection.keep();
    }
    EXPECT_THAT(card.events(), IsEmpty());
    EXPECT_TRUE(session::live());
}

// --- read card information ---

TEST_F(Session, ReadingCardInformationEndsItsConnection) {
    expect_reading(card, {transaction_record()});
    GetInfoCall call;
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(card.events().front(), "claim 2");
    EXPECT_EQ(card.events().back(), "close");
    EXPECT_THAT(card.events(), Contains("power off"));
    EXPECT_FALSE(session::live());
    EXPECT_EQ(usb.starts(), 0);
}

TEST_F(Session, AFailedReadingLeavesItsConnectionToTheNextOpening) {
    card.expect("00A40400 05 A000000333", "6A82");
    GetInfoCall call;
    EXPECT_EQ(call.run(), -23);
    EXPECT_TRUE(session::live());
    EXPECT_TRUE(card.powered());
    card.clear_events();
    expect_reading(card, {transaction_record()});
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(std::vector(card.events().begin(), card.events().begin() + 4),
                ElementsAre("close", "claim 2", "power on", "slot status"));
    EXPECT_FALSE(session::live());
}

TEST_F(Session, ReadingCardInformationStartsAnewEvenOnALiveConnection) {
    connect();
    expect_reading(card, {transaction_record()});
    GetInfoCall call;
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(card.events().front(), "close");
    EXPECT_EQ(card.events()[1], "claim 2");
}

TEST_F(SessionWithoutCard, ReadingWithoutACardIsMinusOneAndEverythingIsGivenBack) {
    GetInfoCall call;
    EXPECT_EQ(call.run(), -1);
    EXPECT_FALSE(session::live());
    EXPECT_EQ(usb.starts(), 0);
}

TEST_F(SessionOnTheOtherSlot, ACardIsReadThereToo) {
    expect_reading(card, {transaction_record()});
    GetInfoCall call;
    call.tag_list = "A";
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.user_info.text(), "A0196214830123456789012");
}

TEST_F(SessionWithoutReader, ReadingFindsAnAbsentReaderAtItsFirstSelection) {
    GetInfoCall call;
    EXPECT_EQ(call.run(), -23);
    call.aid = "";
    EXPECT_EQ(call.run(), 0); // as a card without a directory
    EXPECT_THAT(usb.transfers(), IsEmpty());
}

// --- the ARQC step ---

TEST_F(Session, TheArqcStepLeavesTheCardPoweredForTheIssuersAnswer) {
    expect_reading(card, {transaction_record()});
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, object("9F13", "000F") + "9000");
    GenArqcCall call;
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(card.events(), Not(Contains("power off")));
    EXPECT_THAT(card.events(), Not(Contains("close")));
    EXPECT_TRUE(session::live());
    EXPECT_TRUE(card.powered());
}

TEST_F(Session, AFailureBehindTheReadingStepEndsTheConnection) {
    expect_reading(card, {transaction_record()});
    card.expect(generate_arqc_command(), "6985");
    GenArqcCall call;
    EXPECT_EQ(call.run(), 0x6985);
    EXPECT_EQ(card.events().back(), "close");
    EXPECT_EQ(*(card.events().end() - 2), "power off");
    EXPECT_FALSE(session::live());
}

TEST_F(Session, AFailureOfTheReadingStepLeavesTheConnectionToTheNextOpening) {
    expect_select(card);
    card.expect("80A80000 02 8300", "6985");
    GenArqcCall call;
    EXPECT_EQ(call.run(), 0x6985);
    EXPECT_TRUE(session::live());
    EXPECT_THAT(card.events(), Not(Contains("close")));
}

TEST_F(Session, EveryFurtherAidOfTheArqcStepReopensTheReader) {
    card.expect("00A40400 05 A000000333", "6A82");
    card.expect("00A40400 08 A000000333010102", "6A82");
    GenArqcCall call;
    call.aid_list = "A000000333|A000000333010102";
    EXPECT_EQ(call.run(), -23);
    EXPECT_THAT(card.events(),
                ElementsAre("claim 2", "power on", "slot status", "00A4040005A000000333", "close",
                            "claim 2", "power on", "slot status", "00A4040008A000000333010102"));
}

TEST_F(Session, HandedInDataOnALiveConnectionOpensAndSelectsNothing) {
    connect();
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    GenArqcCall call;
    call.application_data.set(transaction_data_text());
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(card.events(), card.commands());
    EXPECT_TRUE(session::live());
}

TEST_F(Session, HandedInDataWithoutAConnectionOpensAndSelectsTheApplicationAgain) {
    expect_select(card); // the 4F object of the data
    card.expect("80A80000 02 8300", object("80", "7C0008010100") + "9000");
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    GenArqcCall call;
    call.application_data.set(transaction_data_text());
    call.aid_list = "A999"; // not looked at
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(std::vector(card.events().begin(), card.events().begin() + 3),
                ElementsAre("claim 2", "power on", "slot status"));
    EXPECT_TRUE(session::live());
}

TEST_F(Session, HandedInDataOfAnOperationThatWasAnsweredAsAKilledHostIsUsedAnew) {
    leave_answers_of_a_killed_host("6F07 8405 A000000333 9000");
    for (int reading = 0; reading < 2; ++reading) {
        expect_select(card);
        card.expect("80A80000 02 8300", object("80", "7C0008010100") + "9000");
    }
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    GenArqcCall call;
    call.application_data.set(transaction_data_text());
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(usb.unread(), 0U);
}

TEST_F(Session, TheOptionsOfARestoredApplicationAreAnsweredWithTheTransactionsTerminalData) {
    expect_select(card, kPrefix, object("A5", object("9F38", "9F0206 9A03 9F3704")));
    card.expect("80A80000 0F 83 0D 000000001213 190422 " + unpredictable_number(),
                object("80", "7C0008010100") + "9000");
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    GenArqcCall call;
    call.application_data.set(transaction_data_text());
    EXPECT_EQ(call.run(), 0);
}

TEST_F(Session, HandedInDataOnAReaderFoundGoneOpensAnew) {
    connect();
    usb.unplug();
    EXPECT_EQ(send_read_record(), LIBUSB_ERROR_NO_DEVICE);
    usb.plug(ccid_reader());
    expect_select(card);
    card.expect("80A80000 02 8300", object("80", "7C0008010100") + "9000");
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    GenArqcCall call;
    call.application_data.set(transaction_data_text());
    card.clear_events();
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(std::vector(card.events().begin(), card.events().begin() + 4),
                ElementsAre("close", "claim 2", "power on", "slot status"));
    EXPECT_TRUE(session::live());
}

TEST_F(Session, HandedInDataWithoutAnAidCannotBeRestored) {
    GenArqcCall call;
    call.application_data.set(application_data_text(transaction_record()));
    EXPECT_EQ(call.run(), -204);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有找到标签     "));
    EXPECT_THAT(card.events(),
                ElementsAre("claim 2", "power on", "slot status", "power off", "close"));
}

TEST_F(Session, ARefusedSelectionOfHandedInDataEndsTheOperationWithItsCode) {
    card.expect("00A40400 05 A000000333", "6A82");
    GenArqcCall call;
    call.application_data.set(transaction_data_text());
    EXPECT_EQ(call.run(), 0x6A82);
    EXPECT_EQ(call.error_text.text(), "");
    EXPECT_EQ(card.events().back(), "close");
    EXPECT_FALSE(session::live());
}

TEST_F(Session, RefusedOptionsOfHandedInDataEndTheOperationWithTheirCode) {
    expect_select(card);
    card.expect("80A80000 02 8300", object("77", object("82", "7C00")) + "9000");
    GenArqcCall call;
    call.application_data.set(transaction_data_text());
    EXPECT_EQ(call.run(), -1);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有配置参数     "));
    EXPECT_FALSE(session::live());
}

TEST_F(SessionWithoutCard, HandedInDataWithoutACardIsMinusOne) {
    GenArqcCall call;
    call.application_data.set(transaction_data_text());
    EXPECT_EQ(call.run(), -1);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有配置参数     "));
    EXPECT_EQ(usb.starts(), 0);
}

TEST_F(Session, AFailureOnAConnectionThatWasFoundEndsItToo) {
    connect();
    card.expect(generate_arqc_command(), "6985");
    GenArqcCall call;
    call.application_data.set(transaction_data_text());
    EXPECT_EQ(call.run(), 0x6985);
    EXPECT_THAT(card.events(), ElementsAre(testing::_, "power off", "close"));
}

// --- the issuer's answer ---

TEST_F(Session, TheIssuersAnswerOpensNothing) {
    IssuerAnswerCall call;
    call.application_data = transaction_data_text();
    call.response = hex(bytes(kIssuerResponse));
    EXPECT_EQ(call.run(), -8);
    EXPECT_EQ(call.error_text.text(), kOld); // a refused authentication writes no text
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(Session, ARefusedIssuerAuthenticationKeepsTheCardForAnotherTry) {
    connect();
    card.expect(kExternalAuthenticate, "6300").expect(kExternalAuthenticate, "9000");
    card.expect(second_generate_ac("40"), "6985");
    IssuerAnswerCall call;
    call.application_data = transaction_data_text();
    call.response = hex(bytes(kIssuerResponse));
    EXPECT_EQ(call.run(), 0x6300);
    EXPECT_TRUE(session::live());
    EXPECT_EQ(call.run(), 0x6985);
    EXPECT_FALSE(session::live());
}

TEST_F(Session, AnIncompleteIssuersAnswerKeepsTheCardForAnotherTry) {
    connect();
    IssuerAnswerCall call;
    call.application_data = transaction_data_text();
    EXPECT_EQ(call.run(), -205);
    call.response = "9F1804AABBCCDD";
    EXPECT_EQ(call.run(), -206);
    call.application_data = "000000";
    EXPECT_EQ(call.run(), -202);
    EXPECT_THAT(card.events(), IsEmpty());
    EXPECT_TRUE(session::live());
}

TEST_F(Session, FromTheSecondCryptogramOnTheConnectionEnds) {
    connect();
    card.expect(kExternalAuthenticate, "9000");
    card.expect(second_generate_ac("40"), cryptogram_answer("40"));
    card.expect(kGetLastOnlineAtc, "6A88");
    IssuerAnswerCall call;
    call.application_data = transaction_data_text();
    call.response = hex(bytes(kIssuerResponse));
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(card.events().back(), "close");
    EXPECT_EQ(*(card.events().end() - 2), "power off");
    EXPECT_FALSE(session::live());
    EXPECT_EQ(usb.starts(), 0);
}

// --- logs ---

TEST_F(Session, TheTransactionLogEndsAConnectionOfItsOwn) {
    expect_select(card);
    card.expect("80CA9F4F00", "6A88");
    TxDetailCall call;
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(card.events().front(), "claim 2");
    EXPECT_EQ(card.events().back(), "close");
    EXPECT_THAT(card.events(), Contains("power off"));
    EXPECT_FALSE(session::live());
}

TEST_F(Session, TheTransactionLogLeavesAConnectionThatItFound) {
    connect();
    expect_select(card);
    card.expect("80CA9F4F00", "6A88");
    TxDetailCall call;
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(card.events(), card.commands());
    EXPECT_TRUE(session::live());
}

TEST_F(Session, AFailedTransactionLogEndsAConnectionOfItsOwnToo) {
    card.expect("00A40400 05 A000000333", "6A82");
    TxDetailCall call;
    EXPECT_EQ(call.run(), 0);
    EXPECT_FALSE(session::live());
    EXPECT_EQ(usb.starts(), 0);
    connect();
    card.expect("00A40400 05 A000000333", "6A82");
    EXPECT_EQ(call.run(), 0);
    EXPECT_TRUE(session::live());
}

TEST_F(SessionWithoutCard, TheLogsOfNoCardAreMinusOne) {
    TxDetailCall detail;
    EXPECT_EQ(detail.run(), -1);
    EXPECT_EQ(detail.detail.text(), "0");
    EXPECT_EQ(detail.error_text.text(), gbk(" 没有配置参数     "));
    AmtLogCall loads;
    EXPECT_EQ(loads.run(), -1);
    EXPECT_EQ(loads.log.text(), "");
    EXPECT_EQ(usb.starts(), 0);
}

TEST_F(Session, TheLoadLogEndsAConnectionOfItsOwn) {
    expect_select(card, kAid);
    card.expect("80A80000 02 8300", "6985");
    card.expect("80CADF4F00", "6A88");
    AmtLogCall call;
    EXPECT_EQ(call.run(), -22);
    EXPECT_EQ(card.events().front(), "claim 2");
    EXPECT_EQ(card.events().back(), "close");
    EXPECT_FALSE(session::live());
}

TEST_F(Session, TheLoadLogLeavesAConnectionThatItFound) {
    connect();
    card.expect("00A40400 08 A000000333010101", "6A82");
    AmtLogCall call;
    EXPECT_EQ(call.run(), 0x6A82);
    EXPECT_EQ(card.events(), card.commands());
    EXPECT_TRUE(session::live());
}

TEST_F(Session, ALogOnAReaderThatIsGoneFailsOnceAndThenOpensAnew) {
    connect();
    usb.unplug();
    TxDetailCall call;
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.detail.text(), "0");
    EXPECT_FALSE(session::live());
    usb.plug(ccid_reader());
    card.clear_events();
    expect_select(card);
    card.expect("80CA9F4F00", "6A88");
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(card.events(), ElementsAre("close", "claim 2", "power on", "slot status",
                                           testing::_, testing::_, "power off", "close"));
}

// --- what touches nothing ---

TEST_F(Session, TheCloseHooksAndTheLifecycleTouchNothing) {
    connect();
    qm_closeicc();
    Qm_CloseDevice();
    EXPECT_EQ(initDriver(), 0);
    EXPECT_EQ(deinit(), 0);
    setPortAttr(nullptr, 1, 2, 3);
    HostText empty("");
    ZEB_ICC_PowerOff(empty.get(), empty.get(), empty.get(), empty.get(), empty.get(), empty.get(),
                     empty.get(), empty.get(), empty.get(), empty.get());
    EXPECT_THAT(usb.log(), IsEmpty());
    EXPECT_TRUE(session::live());
}

TEST_F(Session, AWholeTransactionRunsOnOnePoweredCard) {
    expect_reading(card, {transaction_record()});
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    GenArqcCall arqc;
    ASSERT_EQ(arqc.run(), 0);

    card.expect(kExternalAuthenticate, "9000");
    card.expect(second_generate_ac("40"), cryptogram_answer("40"));
    card.expect(kGetLastOnlineAtc, "6A88");
    IssuerAnswerCall answer;
    answer.application_data = arqc.application_data.text();
    answer.response = hex(bytes(kIssuerResponse));
    ASSERT_EQ(answer.run(), 0);

    EXPECT_EQ(std::ranges::count(card.events(), "claim 2"), 1);
    EXPECT_EQ(std::ranges::count(card.events(), "power on"), 1);
    EXPECT_EQ(std::ranges::count(card.events(), "power off"), 1);
    EXPECT_EQ(card.events().back(), "close");
}

} // namespace
