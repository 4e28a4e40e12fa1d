// A disturbed connection: the answers that belong to earlier commands are dropped, and what cannot
// be brought into step is given up.
#include "engine/card/in_step.h"

#include "card_test.h"
#include "console.h"
#include "engine/card/apdu.h"
#include "engine/card/reading.h"
#include "engine/card/session.h"
#include "support/operation.h"

#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <future>
#include <memory>
#include <thread>

namespace operation = qaven::operation;
namespace session = qaven::session;

using namespace qaven::test;
using namespace std::chrono_literals;
using testing::Contains;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

namespace {

constexpr std::string_view kReadFirst = "00B2010C00";
constexpr std::string_view kReadSecond = "00B2020C00";
constexpr std::string_view kSelect = "00A4040005A000000333";
constexpr std::string_view kFci = "6F07 8405A000000333 9000";
constexpr std::string_view kFirstRecord = "7002 5A00 9000";
constexpr std::string_view kSecondRecord = "7002 5700 9000";

// A reply of the reader to a command with this bSeq.
Bytes data_block(int bseq, std::string_view response, std::uint8_t status = 0) {
    return reply_message(0x80, bseq, status, bytes(response));
}

Bytes slot_status(int bseq, std::uint8_t status = 0) {
    return reply_message(0x81, bseq, status, {});
}

struct Exchanged {
    int result;
    std::string response;
};

Exchanged send(std::string_view command) {
    Bytes apdu = bytes(command);
    std::array<unsigned char, qaven::Reply::kCapacity> place{};
    qaven::Reply reply{place};
    const int result = session::exchange(apdu, reply);
    return {result, hex(reply.place.first(reply.length))};
}

class DisturbedConnection : public CardTest {
  protected:
    // The card's answer to the first record does not come within the time-out; its bSeq is 2.
    void lose_the_first_record() {
        card.expect_silence(kReadFirst);
        ASSERT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
        card.clear_events();
        usb.clear_log();
    }
};

TEST_F(DisturbedConnection, ALateAnswerIsDroppedBeforeTheNextCommandIsSent) {
    lose_the_first_record();
    usb.answer(data_block(2, kFirstRecord));
    card.expect(kReadSecond, kSecondRecord);
    EXPECT_EQ(send(kReadSecond).response, "700257009000");
    EXPECT_THAT(card.events(), ElementsAre("slot status", kReadSecond));
    EXPECT_THAT(trace.text(), HasSubstr("Reader in step again: 1 messages dropped, 16 bytes\n"));
}

TEST_F(DisturbedConnection, OnceInStepNothingIsAskedAnyMore) {
    lose_the_first_record();
    card.expect(kReadSecond, kSecondRecord).expect(kReadFirst, kFirstRecord);
    send(kReadSecond);
    card.clear_events();
    EXPECT_EQ(send(kReadFirst).response, "70025A009000");
    EXPECT_THAT(card.events(), ElementsAre(kReadFirst));
}

TEST_F(DisturbedConnection, AnOlderAnswerAboutTheSlotIsNotTheAnswerToTheQuestion) {
    lose_the_first_record();
    usb.answer(slot_status(1));
    usb.answer(data_block(2, kFirstRecord));
    card.expect(kReadSecond, kSecondRecord);
    EXPECT_EQ(send(kReadSecond).response, "700257009000");
    EXPECT_THAT(trace.text(), HasSubstr(": 2 messages dropped, 26 bytes\n"));
}

// The record of 64 bytes makes a message of 74, whose second packet the card could make look like
// the reader's answer.
TEST_F(DisturbedConnection, WhatTheCardSaysInsideALongAnswerIsNotTheReadersAnswer) {
    lose_the_first_record();
    Bytes record(54, 0xEE);
    const Bytes imitation = slot_status(3);
    record.insert(record.end(), imitation.begin(), imitation.end());
    for (const Bytes& packet : in_packets(reply_message(0x80, 2, 0, record))) {
        usb.answer(packet);
    }
    card.expect(kReadSecond, kSecondRecord);
    EXPECT_EQ(send(kReadSecond).response, "700257009000");
    EXPECT_EQ(usb.unread(), 0U);
}

TEST_F(DisturbedConnection, AnAnswerThatFillsItsPacketsNeedsNoEmptyOneToEnd) {
    lose_the_first_record();
    usb.answer(reply_message(0x80, 2, 0, Bytes(54, 0xEE)));
    card.expect(kReadSecond, kSecondRecord);
    EXPECT_EQ(send(kReadSecond).response, "700257009000");
    EXPECT_THAT(trace.text(), HasSubstr("Reader in step again: 1 messages dropped, 64 bytes\n"));
}

TEST_F(DisturbedConnection, TheRestOfAnAnswerThatWasCutIsDropped) {
    const auto packets = in_packets(reply_message(0x80, 2, 0, Bytes(100, 0xEE)));
    card.expect_packets(kReadFirst, {packets[0]});
    ASSERT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
    usb.answer(packets[1]);
    card.expect(kReadSecond, kSecondRecord);
    EXPECT_EQ(send(kReadSecond).response, "700257009000");
}

TEST_F(DisturbedConnection, TheRestOfACutAnswerMayAlsoNeverCome) {
    card.expect_packets(kReadFirst, {in_packets(reply_message(0x80, 2, 0, Bytes(100, 0xEE)))[0]});
    ASSERT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
    card.expect(kReadSecond, kSecondRecord);
    EXPECT_EQ(send(kReadSecond).response, "700257009000");
}

TEST_F(DisturbedConnection, AnAnswerShorterThanAnnouncedDisturbs) {
    Bytes cut = data_block(2, kFirstRecord);
    cut.pop_back();
    card.expect_packets(kReadFirst, {cut}).expect(kReadSecond, kSecondRecord);
    send(kReadFirst);
    card.clear_events();
    send(kReadSecond);
    EXPECT_THAT(card.events(), ElementsAre("slot status", kReadSecond));
}

TEST_F(DisturbedConnection, AnAnswerThatWasRefusedDisturbs) {
    for (const std::string_view refused : {"", "90", "0000"}) {
        card.expect(kReadFirst, refused).expect(kReadSecond, kSecondRecord);
        Bytes first = bytes(kReadFirst);
        std::array<unsigned char, 1024> reply{};
        int length = 0;
        EXPECT_EQ(Qm_Icc_EXApdu(first.data(), 5, reply.data(), &length, 0), -16);
        card.clear_events();
        send(kReadSecond);
        EXPECT_THAT(card.events(), ElementsAre("slot status", kReadSecond));
    }
}

TEST_F(DisturbedConnection, AfterARequestForMoreTimeTheRealAnswerIsNotTheNextCommands) {
    card.expect_packets(kReadFirst, {data_block(2, "", 0x80)}).expect(kReadSecond, kSecondRecord);
    EXPECT_EQ(send(kReadFirst).response, "");
    usb.answer(data_block(2, kFirstRecord));
    EXPECT_EQ(send(kReadSecond).response, "700257009000");
}

TEST_F(DisturbedConnection, ASlotThatIsBusyWithAnOlderCommandIsAskedAgain) {
    lose_the_first_record();
    Bytes busy = slot_status(3, 0x40);
    busy[8] = 0xE0; // CMD_SLOT_BUSY
    usb.on_packet = [&, answer = usb.on_packet](std::span<const std::uint8_t> packet) {
        if (packet[6] == 3) {
            usb.answer(busy);
            usb.answer(data_block(2, kFirstRecord));
        } else if (packet[0] == 0x65) {
            usb.answer(slot_status(packet[6]));
        } else {
            usb.answer(data_block(packet[6], kSecondRecord));
        }
    };
    EXPECT_EQ(send(kReadSecond).response, "700257009000");
}

TEST_F(DisturbedConnection, AReaderThatNumbersNothingIsKnownByTheTypeOfItsAnswer) {
    card.disconnect();
    usb.on_packet = [this](std::span<const std::uint8_t> packet) {
        usb.answer(packet[0] == 0x65 ? slot_status(0) : data_block(0, kSecondRecord));
    };
    ASSERT_EQ(session::open_with_card(), 0);
    usb.fail_bulk(2, LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(send(kReadSecond).response, "700257009000");
}

TEST_F(DisturbedConnection, AnOlderUnnumberedAnswerAboutTheSlotIsTheAnswerOnlyIfNothingFollows) {
    card.disconnect();
    usb.on_packet = [this](std::span<const std::uint8_t> packet) {
        usb.answer(packet[0] == 0x65 ? slot_status(0) : data_block(0, kSecondRecord));
    };
    ASSERT_EQ(session::open_with_card(), 0);
    usb.fail_bulk(2, LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
    usb.answer(slot_status(0));
    usb.answer(data_block(0, kFirstRecord));
    EXPECT_EQ(send(kReadSecond).response, "700257009000");
    EXPECT_THAT(trace.text(), HasSubstr("Reader in step again: 3 messages dropped, 42 bytes\n"));
}

TEST_F(DisturbedConnection, AReaderThatNumberedAnEmptyAnswerNumbersTheAnswerToTheQuestionToo) {
    card.disconnect();
    usb.on_packet = [this](std::span<const std::uint8_t> packet) {
        usb.answer(packet[0] == 0x65 ? slot_status(0) : data_block(0, kSecondRecord));
    };
    ASSERT_EQ(session::open_with_card(), 0);
    usb.fail_bulk(2, LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
    usb.answer(data_block(7, ""));
    EXPECT_EQ(send(kReadSecond).result, LIBUSB_ERROR_TIMEOUT);
}

TEST_F(DisturbedConnection, ACardThatLostItsPowerMeanwhileIsNotTheOneThatWasSelected) {
    lose_the_first_record();
    usb.on_packet = [this](auto) { usb.answer(slot_status(3, 0x01)); };
    EXPECT_EQ(send(kReadSecond).result, LIBUSB_ERROR_TIMEOUT);
    EXPECT_FALSE(session::live());
    EXPECT_THAT(usb.sent(), ElementsAre("65000000000003000000"));
}

TEST_F(DisturbedConnection, AnOperationThatFindsALostSessionOpensAnew) {
    lose_the_first_record();
    usb.on_packet = [&, answer = usb.on_packet](std::span<const std::uint8_t> packet) {
        if (packet[6] == 3) {
            usb.answer(slot_status(3, 0x01));
        } else {
            answer(packet);
        }
    };
    const session::Visit visit;
    EXPECT_THAT(card.events(), ElementsAre("close", "claim 2", "power on", "slot status"));
}

TEST_F(DisturbedConnection, AReaderThatStaysSilentIsGivenUp) {
    lose_the_first_record();
    usb.on_packet = nullptr;
    EXPECT_EQ(send(kReadSecond).result, LIBUSB_ERROR_TIMEOUT);
    EXPECT_FALSE(session::live());
    EXPECT_EQ(usb.open_handles(), 0);
    EXPECT_THAT(trace.text(), HasSubstr("Reader out of step: 0 messages dropped, 0 bytes\n"));
    usb.clear_log();
    EXPECT_EQ(send(kReadSecond).result, LIBUSB_ERROR_TIMEOUT);
    EXPECT_THAT(usb.transfers(), IsEmpty());
}

TEST_F(DisturbedConnection, AReaderThatTalksWithoutEndIsGivenUp) {
    lose_the_first_record();
    usb.on_packet = nullptr;
    for (int k = 0; k < 1200; ++k) {
        usb.answer(data_block(2, kFirstRecord));
    }
    EXPECT_EQ(send(kReadSecond).result, LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(usb.unread(), 1200U - 1100U);
    EXPECT_FALSE(session::live());
}

TEST_F(DisturbedConnection, AReaderThatWasPulledMeanwhileSaysSo) {
    lose_the_first_record();
    usb.unplug();
    EXPECT_EQ(send(kReadSecond).result, LIBUSB_ERROR_NO_DEVICE);
    EXPECT_FALSE(session::live());
}

// --- openings ---

class Opening : public testing::Test {
  protected:
    void TearDown() override { card.disconnect(); }

    FakeUsb usb;
    ScriptedCard card{usb};
    TraceLog trace;
};

// What a host that was killed has left in the reader.
struct LeftBehind {
    const char* name;
    std::vector<Bytes> answers;
};

class OpeningAfterAKilledHost : public Opening, public testing::WithParamInterface<LeftBehind> {};

TEST_P(OpeningAfterAKilledHost, PowersTheCardAndAsksAgainOnceInStep) {
    for (const Bytes& answer : GetParam().answers) {
        usb.answer(answer);
    }
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(card.events(), ElementsAre("claim 2", "power on", "slot status", "slot status",
                                           "power on", "slot status"));
    card.expect(kReadFirst, kFirstRecord);
    EXPECT_EQ(send(kReadFirst).response, "70025A009000");
    EXPECT_EQ(usb.unread(), 0U);
}

INSTANTIATE_TEST_SUITE_P(
    , OpeningAfterAKilledHost,
    testing::Values(LeftBehind{"ARecord", {data_block(7, kFirstRecord)}},
                    LeftBehind{"AnUnnumberedRecord", {data_block(0, kFirstRecord)}},
                    LeftBehind{"ThePowerOff", {slot_status(9)}},
                    LeftBehind{"TwoAnswers", {data_block(4, kFirstRecord), slot_status(5)}},
                    LeftBehind{"TheEndOfARecord", {Bytes(30, 0xEE)}}),
    [](const auto& left) { return left.param.name; });

// What comes of an operation that opens the reader and sends these commands, all of it once more
// when it was misled.
struct Told {
    int result;
    std::vector<std::string> responses;
};

Told told_by(const std::vector<std::string_view>& commands) {
    Told told{};
    told.result = session::from_opening([&] {
        told.responses.clear();
        int result = session::open_with_card();
        for (const std::string_view command : commands) {
            const Exchanged exchanged = send(command);
            result = result != 0 ? result : exchanged.result;
            told.responses.push_back(exchanged.response);
        }
        return result;
    });
    return told;
}

// Two answers of a killed host pass for those to power-on and slot status, and the answer to reset
// comes when an application is selected.
TEST_F(Opening, AnAnswerToResetIsNotWhatASelectGot) {
    usb.answer(data_block(0, kFirstRecord));
    usb.answer(slot_status(1));
    card.expect(kSelect, kFci).expect(kSelect, kFci);
    const Told told = told_by({kSelect});
    EXPECT_EQ(told.result, 0);
    EXPECT_THAT(told.responses, ElementsAre(hex(bytes(kFci))));
    EXPECT_THAT(card.events(), ElementsAre("claim 2", "power on", "slot status", kSelect, "close",
                                           "claim 2", "power on", "slot status", "slot status",
                                           "power on", "slot status", kSelect));
    EXPECT_EQ(usb.unread(), 0U);
}

// So does the answer to the killed host's own SELECT, from whatever card that had.
TEST_F(Opening, WhatAnEarlierHostSelectedIsNotThisCardsApplication) {
    const Bytes of_another_card = bytes("6F07 8405A000000334 9000");
    for (const Bytes& left :
         {data_block(0, "3B00"), slot_status(1), data_block(2, hex(of_another_card))}) {
        usb.answer(left);
    }
    card.expect(kSelect, kFci).expect(kReadFirst, kFirstRecord);
    card.expect(kSelect, kFci).expect(kReadFirst, kFirstRecord);
    const Told told = told_by({kSelect, kReadFirst});
    EXPECT_EQ(told.result, 0);
    EXPECT_THAT(told.responses, ElementsAre(hex(bytes(kFci)), "70025A009000"));
    EXPECT_EQ(usb.unread(), 0U);
}

TEST_F(Opening, WordOfTheSlotIsNotWhatACardAnswers) {
    for (const Bytes& left :
         {data_block(0, "3B00"), slot_status(1), data_block(2, kFirstRecord), slot_status(3)}) {
        usb.answer(left);
    }
    card.expect(kSelect, kFci).expect(kReadFirst, kFirstRecord);
    card.expect(kSelect, kFci).expect(kReadFirst, kFirstRecord);
    EXPECT_EQ(told_by({kSelect, kReadFirst}).result, 0);
    EXPECT_EQ(usb.unread(), 0U);
}

TEST_F(Opening, AMisledOperationReadsNothingMore) {
    usb.answer(data_block(0, kFirstRecord));
    usb.answer(slot_status(1));
    card.expect(kSelect, kFci);
    ASSERT_EQ(session::open_with_card(), 0);
    EXPECT_EQ(send(kSelect).result, LIBUSB_ERROR_TIMEOUT);
    EXPECT_TRUE(session::misled());
    EXPECT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(usb.open_handles(), 0);
    EXPECT_TRUE(session::forget_misled());
    EXPECT_FALSE(session::misled());
}

// One command, whose answer comes when the card's power is taken.
TEST_F(Opening, APowerOffThatGetsACardsAnswerShowsIt) {
    for (const Bytes& left : {data_block(0, "3B00"), slot_status(1), data_block(2, "6A82")}) {
        usb.answer(left);
    }
    card.expect(kSelect, kFci).expect(kSelect, kFci);
    std::string response;
    session::from_opening([&] {
        session::open_with_card();
        response = send(kSelect).response;
        session::end();
        return 0;
    });
    EXPECT_EQ(response, hex(bytes(kFci)));
    EXPECT_EQ(usb.unread(), 0U);
}

// A card's own bytes may be any once the session is in step.
TEST_F(Opening, OnceInStepWhatLooksLikeAnAnswerToResetIsTheCards) {
    usb.answer(slot_status(9));
    card.expect(kSelect, "3B00");
    EXPECT_THAT(told_by({kSelect}).responses, ElementsAre("3B00"));
    EXPECT_EQ(card.commands().size(), 1U);
}

TEST_F(Opening, AKeptConnectionIsNotDoubtedByTheNextOperation) {
    {
        const operation::Scope scope;
        ASSERT_EQ(card.connect(), 0);
    }
    const operation::Scope scope;
    card.expect(kReadFirst, "3B00");
    EXPECT_EQ(send(kReadFirst).response, "3B00");
}

// TS, T0, interface characters, historical bytes, TCK (ISO/IEC 7816-3, 8.2).
TEST(AnAnswerToReset, IsKnownByItsFirstCharacterAndItsLength) {
    for (const std::string_view whole :
         {"3B00", "3F00", "3B02 1450", "3B 65 0000 2063CB6800", "3B 10 95", "3B F0 11223300",
          "3B 80 01 81", "3B 80 80 01 01", "3B 81 01 77 F7"}) {
        EXPECT_TRUE(qaven::in_step::is_answer_to_reset(bytes(whole))) << whole;
    }
    for (const std::string_view other : {"", "3B", "9000", "3B01", "3B00 9000", "3C00", "3B 80 01",
                                         "3B 80 00 81", "3B F0 1122", "6F00 9000"}) {
        EXPECT_FALSE(qaven::in_step::is_answer_to_reset(bytes(other))) << other;
    }
}

// The host was killed when it asked for a card that was put in only after that.
TEST_F(Opening, ASlotThatAnOlderAnswerCallsEmptyIsAskedAgain) {
    usb.answer(data_block(0, "", 0x42));
    usb.answer(slot_status(1, 0x02));
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(card.events(), ElementsAre("claim 2", "power on", "slot status", "power off",
                                           "slot status", "power on", "slot status"));
    EXPECT_EQ(usb.unread(), 0U);
}

TEST(OpeningWithoutACard, ASlotThatIsEmptyInStepTooIsLeftForTheOther) {
    FakeUsb usb;
    ScriptedCard card(usb, ScriptedCard::kOtherSlot);
    usb.answer(data_block(0, "", 0x42));
    usb.answer(slot_status(1, 0x02));
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(card.events(), ElementsAre("claim 2", "power on", "slot status", "power off",
                                           "slot status", "power on", "slot status", "power off",
                                           "close", "claim 1", "power on", "slot status"));
    card.disconnect();
}

// Their answers would be, to the byte, those to the next opening's own power-on and slot status.
TEST_F(Opening, OneThatNobodyAnsweredEndsWithAReset) {
    usb.on_packet = nullptr;
    ASSERT_EQ(session::open_with_card(), 0);
    EXPECT_EQ(send(kSelect).result, LIBUSB_ERROR_TIMEOUT);
    EXPECT_THAT(usb.log(), Contains("reset_device").Times(1));
    EXPECT_FALSE(session::live());
}

TEST_F(Opening, MissingAndZeroRepliesProveNothing) {
    usb.on_packet = nullptr;
    usb.answer(Bytes(10));
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(usb.sent(), ElementsAre("62000000000000000000", "65000000000001000000"));
}

TEST_F(Opening, AnAnswerToResetOfMoreThanOnePacketDisturbs) {
    card.atr = Bytes(60, 0x3B);
    ASSERT_EQ(session::open_with_card(), 0);
    card.clear_events();
    card.expect(kReadFirst, kFirstRecord);
    EXPECT_EQ(send(kReadFirst).response, "70025A009000");
    EXPECT_THAT(card.events(), ElementsAre("slot status", kReadFirst));
}

TEST_F(Opening, AReaderThatStaysOutOfStepIsResetOnceAndUsedAfterThat) {
    const auto claims = std::make_shared<int>(0);
    usb.on_claim = [claims, claim = usb.on_claim](int interface) {
        ++*claims;
        claim(interface);
    };
    // Until it is reset the reader repeats an old answer and nothing else.
    usb.on_packet = [this, claims, answer = usb.on_packet](std::span<const std::uint8_t> packet) {
        if (*claims > 1) {
            answer(packet);
        } else {
            usb.answer(data_block(77, kFirstRecord));
        }
    };
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(usb.log(), Contains("reset_device").Times(1));
    card.expect(kReadFirst, kFirstRecord);
    EXPECT_EQ(send(kReadFirst).response, "70025A009000");
}

TEST_F(Opening, AReaderThatNoResetBringsIntoStepIsGivenUp) {
    usb.on_packet = [this](auto) { usb.answer(data_block(77, kFirstRecord)); };
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(usb.log(), Contains("reset_device").Times(1));
    EXPECT_FALSE(session::live());
    EXPECT_EQ(usb.open_handles(), 0);
    EXPECT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
}

TEST_F(Opening, AfterAConnectionThatEndedDisturbedTheNextOneGetsInStep) {
    ASSERT_EQ(card.connect(), 0);
    card.expect_silence(kReadFirst);
    send(kReadFirst);
    session::end();
    card.clear_events();
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(card.events(), ElementsAre("claim 2", "power on", "slot status", "slot status",
                                           "power on", "slot status"));
    session::end();
    card.clear_events();
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_THAT(card.events(), ElementsAre("claim 2", "power on", "slot status"));
}

// --- an operation's end ---

class Deadline : public CardTest {
  protected:
    void SetUp() override {
        CardTest::SetUp();
        setenv(operation::kDeadlineVariable, "1", 1);
    }
    void TearDown() override {
        unsetenv(operation::kDeadlineVariable);
        CardTest::TearDown();
    }
};

TEST_F(Deadline, WhenItHasPassedNothingIsSentAndTheConnectionIsClosed) {
    const operation::Scope scope;
    std::this_thread::sleep_for(2ms);
    EXPECT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
    EXPECT_THAT(usb.transfers(), IsEmpty());
    EXPECT_EQ(usb.open_handles(), 0);
    EXPECT_EQ(session::open_with_card(), 0);
    EXPECT_EQ(usb.open_handles(), 0);
}

TEST_F(Deadline, BelongsToTheOperationAndNotToTheNextOne) {
    {
        const operation::Scope scope;
        std::this_thread::sleep_for(2ms);
    }
    setenv(operation::kDeadlineVariable, "0", 1);
    const operation::Scope scope;
    std::this_thread::sleep_for(2ms);
    card.expect(kReadFirst, kFirstRecord);
    EXPECT_EQ(send(kReadFirst).result, 0);
}

TEST_F(Deadline, TheNextOperationCanStillTakeTheCardsPower) {
    {
        setenv(operation::kDeadlineVariable, "20", 1);
        const operation::Scope scope;
        card.expect(kReadFirst, kFirstRecord);
        send(kReadFirst);
    }
    std::this_thread::sleep_for(21ms);
    const operation::Scope scope;
    session::end();
    EXPECT_THAT(card.events(), ElementsAre(kReadFirst, "power off", "close"));
}

TEST_F(Deadline, WithoutASessionTheNextOperationHasABadHandle) {
    {
        const operation::Scope scope;
        std::this_thread::sleep_for(2ms);
        EXPECT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
    }
    setenv(operation::kDeadlineVariable, "0", 1);
    const operation::Scope scope;
    EXPECT_EQ(send(kReadFirst).result, -8);
}

TEST_F(Deadline, AnOperationInsideAnotherHasNoTimeOfItsOwn) {
    const operation::Scope scope;
    std::this_thread::sleep_for(2ms);
    const operation::Scope inner;
    EXPECT_TRUE(operation::over());
}

TEST_F(Deadline, NoTransferWaitsLongerThanWhatIsLeft) {
    setenv(operation::kDeadlineVariable, "5000", 1);
    const operation::Scope scope;
    card.expect(kReadFirst, kFirstRecord);
    send(kReadFirst);
    EXPECT_THAT(usb.transfers(), Not(Contains(HasSubstr("10000ms"))));
}

TEST_F(Deadline, NothingIsReadOnceItHasPassedByLessThanAMillisecond) {
    setenv(operation::kDeadlineVariable, "5", 1);
    const operation::Scope scope;
    usb.on_packet = [](auto) {
        while (operation::Clock::now() < operation::deadline()) {
        }
    };
    EXPECT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(usb.reads(), 0);
}

TEST_F(Deadline, WhatIsNoNumberOfMillisecondsIsNotTaken) {
    for (const char* wrong : {"", "soon", "-1", "1.5"}) {
        setenv(operation::kDeadlineVariable, wrong, 1);
        const operation::Scope scope;
        EXPECT_GT(operation::deadline(), operation::Clock::now() + 100s) << wrong;
    }
}

TEST_F(DisturbedConnection, FourThousandAndNinetySixExchangesAreAnOperationsLast) {
    const operation::Scope scope;
    usb.on_packet = [this](std::span<const std::uint8_t> packet) {
        usb.answer(data_block(packet[6], kFirstRecord));
    };
    for (int k = 0; k < 4096; ++k) {
        ASSERT_EQ(send(kReadFirst).result, 0);
    }
    usb.clear_log();
    EXPECT_EQ(send(kReadFirst).result, LIBUSB_ERROR_TIMEOUT);
    EXPECT_THAT(usb.transfers(), IsEmpty());
}

// --- threads and processes ---

TEST(TheLock, KeepsAnotherThreadOutUntilTheLastHoldOfThisOneEnds) {
    std::future<void> other;
    {
        const operation::Lock outer;
        {
            const operation::Lock inner;
            other = std::async(std::launch::async, [] { const operation::Lock lock; });
        }
        EXPECT_EQ(other.wait_for(20ms), std::future_status::timeout);
    }
    EXPECT_EQ(other.wait_for(10s), std::future_status::ready);
}

TEST_F(DisturbedConnection, TheChildOfAForkHoldsNoConnectionAndNoLock) {
    std::promise<void> held;
    std::promise<void> release;
    std::thread holder([&] {
        const operation::Lock lock;
        held.set_value();
        release.get_future().wait();
    });
    held.get_future().wait();
    const pid_t child = fork();
    if (child == 0) {
        alarm(10);
        const operation::Lock lock;
        _exit(session::live() ? 1 : 0);
    }
    release.set_value();
    holder.join();
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    EXPECT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0);
    EXPECT_TRUE(session::live());
}

// --- reading records ---

TEST_F(DisturbedConnection, ThreeRecordsInARowThatNobodyAnswersEndTheReading) {
    usb.on_packet = [this](std::span<const std::uint8_t> packet) {
        if (packet.size() == 10) {
            usb.answer(slot_status(packet[6]));
        } else if (packet[12] == 1) {
            usb.answer(data_block(packet[6], kFirstRecord));
        }
    };
    const auto data = qaven::reading::read_records(bytes("08010900 10010900"));
    EXPECT_EQ(hex(data.bytes()), "70025A00");
    EXPECT_THAT(usb.sent(), testing::Each(Not(EndsWith("00B2050C00"))));
    EXPECT_THAT(usb.sent(), Contains(EndsWith("00B2040C00")));
}

TEST_F(DisturbedConnection, ARefusedRecordBetweenThemKeepsTheReadingGoing) {
    usb.on_packet = [this](std::span<const std::uint8_t> packet) {
        if (packet.size() == 10) {
            usb.answer(slot_status(packet[6]));
        } else if (packet[12] % 3 == 0) {
            usb.answer(data_block(packet[6], "6A83"));
        }
    };
    qaven::reading::read_records(bytes("08010900"));
    EXPECT_THAT(usb.sent(), Contains(EndsWith("00B2090C00")));
}

} // namespace
