// What each slot answers, with and without a card.
#include "reader_on_port.h"

using namespace virtual_test;

namespace {

class Slot : public ReaderOnPort {};

TEST_F(Slot, APoweredCardIsActive) {
    plug();
    power_on();
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 01 00 00 00")), "81 00 00 00 00 00 01 00 00 00");
}

TEST_F(Slot, ACardWithoutPowerIsInactive) {
    plug();
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 01 00 00 00")), "81 00 00 00 00 00 01 01 00 01");
}

TEST_F(Slot, PowerOnGivesTheAnswerToReset) {
    plug();
    EXPECT_EQ(answer_to(hex("62 00 00 00 00 00 09 00 00 00")),
              "80 0B 00 00 00 00 09 00 00 00 3B 67 00 00 51 41 56 45 4E 30 31");
}

TEST_F(Slot, PowerOnOfAPoweredCardResetsIt) {
    plug();
    power_on();
    power_on();
    EXPECT_EQ(card_.power_ons, 2);
    EXPECT_EQ(card_.power_offs, 1);
}

TEST_F(Slot, PowerOffTakesThePowerAway) {
    plug();
    power_on();
    EXPECT_EQ(answer_to(hex("63 00 00 00 00 00 01 00 00 00")), "81 00 00 00 00 00 01 01 00 01");
    EXPECT_EQ(card_.power_offs, 1);
}

TEST_F(Slot, AnApduToACardWithoutPowerFailsWithoutData) {
    plug();
    EXPECT_EQ(answer_to(hex("6F 05 00 00 00 00 01 00 00 00 00 A4 04 00 00")),
              "80 00 00 00 00 00 01 41 FE 00");
    EXPECT_TRUE(card_.commands.empty());
}

TEST_F(Slot, ParametersAreThoseOfTheAnswerToReset) {
    card_ = EchoCard(hex("3B 1A 95"));
    plug();
    power_on();
    EXPECT_EQ(answer_to(hex("6C 00 00 00 00 00 01 00 00 00")),
              "82 05 00 00 00 00 01 00 00 00 95 00 00 0A 00");
}

TEST_F(Slot, ParametersAreTheDefaultWhereTheAnswerToResetNamesNone) {
    plug();
    power_on();
    EXPECT_EQ(answer_to(hex("6C 00 00 00 00 00 01 00 00 00")),
              "82 05 00 00 00 00 01 00 00 00 11 00 00 0A 00");
}

TEST_F(Slot, ParametersOfACardWithoutPowerAreRefused) {
    plug();
    EXPECT_EQ(answer_to(hex("6C 00 00 00 00 00 01 00 00 00")), "82 00 00 00 00 00 01 41 FE 00");
}

TEST_F(Slot, AMuteCardIsReported) {
    card_ = EchoCard(Bytes{});
    plug();
    EXPECT_EQ(answer_to(hex("62 00 00 00 00 00 01 00 00 00")), "80 00 00 00 00 00 01 41 FE 00");
}

TEST_F(Slot, AnotherSlotOfTheInterfaceDoesNotExist) {
    plug();
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 01 01 00 00 00")), "81 00 00 00 00 01 01 42 05 00");
}

TEST_F(Slot, AMessageOfTheClassThatTheReaderLacksIsNotSupported) {
    plug();
    EXPECT_EQ(answer_to(hex("69 00 00 00 00 00 01 00 00 00")), "81 00 00 00 00 00 01 41 00 00");
}

class EmptySlot : public ReaderOnPort {
  protected:
    void SetUp() override {
        device_.emplace(&card_, nullptr); // the card sits in the other slot
        port_.emplace(*device_);
        port_->enumerate(now_);
    }
};

TEST_F(EmptySlot, HasStatusTwo) {
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 01 00 00 00")), "81 00 00 00 00 00 01 02 00 01");
}

TEST_F(EmptySlot, CannotBePowered) {
    EXPECT_EQ(answer_to(hex("62 00 00 00 00 00 01 00 00 00")), "80 00 00 00 00 00 01 42 FE 00");
    EXPECT_EQ(card_.power_ons, 0);
}

TEST_F(EmptySlot, TakesPowerOffWithoutComplaint) {
    EXPECT_EQ(answer_to(hex("63 00 00 00 00 00 01 00 00 00")), "81 00 00 00 00 00 01 02 00 01");
}

TEST_F(EmptySlot, RefusesAnApdu) {
    EXPECT_EQ(answer_to(hex("6F 05 00 00 00 00 01 00 00 00 00 A4 04 00 00")),
              "80 00 00 00 00 00 01 42 FE 00");
}

TEST_F(EmptySlot, LeavesTheOtherSlotsCardAlone) {
    transfer({.id = ++id_,
              .endpoint = reader::kSlot1.bulk_out,
              .data = hex("62 00 00 00 00 00 00 00 00 00"),
              .length = 10});
    const auto reply =
        transfer({.id = ++id_, .endpoint = reader::kSlot1.bulk_in, .length = packet_size});
    EXPECT_EQ(reply.data.at(7), 0);
    EXPECT_EQ(card_.power_ons, 1);
}

TEST_F(Slot, ACardTakenOutIsGoneFromTheNextCommandOn) {
    plug({.remove_card_after = 2});
    power_on();
    const Bytes apdu = hex("6F 05 00 00 00 00 01 00 00 00 00 A4 04 00 00");
    EXPECT_EQ(answer_to(apdu), "80 07 00 00 00 00 01 00 00 00 00 A4 04 00 00 90 00");
    EXPECT_EQ(answer_to(apdu), "80 07 00 00 00 00 01 00 00 00 00 A4 04 00 00 90 00");
    EXPECT_EQ(answer_to(apdu), "80 00 00 00 00 00 01 42 FE 00");
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 01 00 00 00")), "81 00 00 00 00 00 01 02 00 01");
}

TEST_F(Slot, ACardTakenOutAfterNoCommandWasNeverThere) {
    plug({.remove_card_after = 0});
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 01 00 00 00")), "81 00 00 00 00 00 01 02 00 01");
}

TEST_F(Slot, TheInterruptEndpointTellsOfCardsThatComeAndGo) {
    plug({.remove_card_after = 1});
    const auto news = [this] {
        const auto id = ++id_;
        port_->submit({.id = id,
                       .type = usb::TransferType::kInterrupt,
                       .endpoint = reader::kSlot2.interrupt_in,
                       .length = 8},
                      now_);
        auto completion = completion_of(id);
        port_->discard(id);
        completion_of(id);
        return completion;
    };
    EXPECT_EQ(show(news().data), "50 03");
    EXPECT_EQ(news().status, -EINPROGRESS);
    power_on();
    answer_to(hex("6F 05 00 00 00 00 01 00 00 00 00 A4 04 00 00"));
    EXPECT_EQ(show(news().data), "50 02");
}

TEST_F(Slot, ATimedLineDelaysTheAnswerByItsBytes) {
    plug({.baud = 9600});
    const auto id = ++id_;
    send(hex("62 00 00 00 00 00 00 00 00 00"));
    port_->submit({.id = id, .endpoint = reader::kSlot2.bulk_in, .length = packet_size}, now_);
    EXPECT_EQ(completion_of(id).status, -EINPROGRESS);
    // 11 bytes of answer to reset, twelve bits each.
    const auto due = now_ + std::chrono::microseconds(11 * 12 * 1'000'000 / 9600);
    ASSERT_TRUE(port_->wake());
    EXPECT_EQ(*port_->wake(), due);
    port_->advance(due - std::chrono::microseconds(1));
    EXPECT_EQ(completion_of(id).status, -EINPROGRESS);
    port_->advance(due);
    EXPECT_EQ(completion_of(id).status, 0);
}

TEST_F(Slot, AResetForgetsEverythingInProgress) {
    plug();
    power_on();
    send(hex("65 00 00 00 00 00 01 00 00 00"));
    send(hex("6F 64 00 00 00 00 02 00 00 00") + counting(54));
    port_->reset();
    EXPECT_EQ(card_.power_offs, 1);
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 03 00 00 00")), "81 00 00 00 00 00 03 01 00 01");
}

} // namespace
