// A port between host and device: transfers become packets, and faults happen to transfers.
#include "reader_on_port.h"

using namespace virtual_test;

namespace {

using usb::FaultKind;

Bytes slot_status() {
    return hex("65 00 00 00 00 00 01 00 00 00");
}

class PortWithReader : public ReaderOnPort {};

TEST_F(PortWithReader, ATransferOnAnUnknownEndpointIsRefused) {
    plug();
    EXPECT_EQ(port_->submit({.id = 1, .endpoint = 0x07}, now_), -ENOENT);
    EXPECT_EQ(port_->submit({.id = 1, .endpoint = 0x00}, now_), -ENOENT);
}

TEST_F(PortWithReader, AReadSmallerThanThePacketOverflows) {
    plug();
    send(slot_status());
    const auto reply = receive(4);
    EXPECT_EQ(reply.status, -EOVERFLOW);
    EXPECT_EQ(show(reply.data), "81 00 00 00");
}

TEST_F(PortWithReader, AReadTakesPacketsUntilAShortOne) {
    plug();
    power_on();
    send(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 80"));
    const auto reply = receive(512);
    EXPECT_EQ(reply.status, 0);
    EXPECT_EQ(reply.actual, 10U + 128U + 2U);
}

TEST_F(PortWithReader, AShortPacketIsAnErrorToAHostThatForbidsIt) {
    plug();
    send(slot_status());
    const auto reply = transfer({.id = ++id_,
                                 .endpoint = reader::kSlot2.bulk_in,
                                 .length = packet_size,
                                 .short_not_ok = true});
    EXPECT_EQ(reply.status, -EREMOTEIO);
    EXPECT_EQ(reply.actual, 10U);
}

TEST_F(PortWithReader, ALongWriteIsSplitIntoPackets) {
    plug();
    power_on();
    send(hex("6F 80 00 00 00 00 01 00 00 00") + counting(128));
    ASSERT_EQ(card_.commands.size(), 1U);
    EXPECT_EQ(card_.commands[0], counting(128));
}

TEST_F(PortWithReader, AWriteOfWholePacketsEndsWithAnEmptyOneIfTheHostAsksForIt) {
    plug();
    power_on();
    const Bytes half_of_108 = hex("6F 6C 00 00 00 00 01 00 00 00") + counting(54);
    send(half_of_108);
    EXPECT_TRUE(card_.commands.empty()) << "more is to come";
    port_->reset();
    power_on();
    transfer({.id = ++id_,
              .endpoint = reader::kSlot2.bulk_out,
              .data = half_of_108,
              .length = half_of_108.size(),
              .zero_packet = true});
    ASSERT_EQ(card_.commands.size(), 1U);
    EXPECT_EQ(card_.commands[0], counting(54) + Bytes(54));
}

TEST_F(PortWithReader, AReadThatIsTakenBackLeavesTheAnswerToTheNext) {
    plug();
    EXPECT_EQ(receive().status, -EINPROGRESS);
    EXPECT_TRUE(port_->discard(id_));
    EXPECT_EQ(completion_of(id_).status, -ENOENT);
    EXPECT_FALSE(port_->discard(id_)) << "it is not in flight any more";
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 01 00 01");
}

TEST_F(PortWithReader, ATransferTakenBackTellsWhatHadMoved) {
    plug();
    power_on();
    const auto id = id_ + 1;
    receive(512);
    send(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 34")); // a whole packet, then an empty one
    EXPECT_EQ(completion_of(id).actual, 64U);

    plug({.baud = 9600});
    const auto waiting = id_ + 1;
    receive();
    send(hex("62 00 00 00 00 00 00 00 00 00"));
    port_->discard(waiting);
    const auto taken_back = completion_of(waiting);
    EXPECT_EQ(taken_back.status, -ENOENT);
    EXPECT_EQ(taken_back.actual, 0U);
}

TEST_F(PortWithReader, AnUnplugEndsWhatIsInFlight) {
    plug();
    power_on();
    receive();
    port_->unplug();
    EXPECT_EQ(completion_of(id_).status, -ESHUTDOWN);
    EXPECT_EQ(card_.power_offs, 1);
    EXPECT_EQ(port_->submit({.id = 99, .endpoint = reader::kSlot2.bulk_in}, now_), -ENODEV);
}

TEST_F(PortWithReader, AResetEndsWhatIsInFlightAndLeavesNothing) {
    plug({.baud = 1200});
    send(hex("62 00 00 00 00 00 00 00 00 00"));
    EXPECT_EQ(receive().status, -EINPROGRESS);
    const auto waiting = id_;
    port_->reset();
    EXPECT_EQ(completion_of(waiting).status, -ENOENT);
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 01 00 01");
}

TEST_F(PortWithReader, WhatBecomesDueBetweenMovingAndAskingIsTold) {
    plug({.baud = 1200});
    send(hex("62 00 00 00 00 00 00 00 00 00"));
    const auto asked = now_;
    receive();
    const auto due = port_->wake();
    ASSERT_TRUE(due);
    EXPECT_EQ(*due, asked + std::chrono::milliseconds(110)); // eleven characters of twelve bits
    now_ = *due + std::chrono::seconds(1);
    EXPECT_EQ(port_->wake(), due) << "nobody has moved it yet";
    port_->advance(now_);
    EXPECT_EQ(completion_of(id_).status, 0);
    EXPECT_EQ(port_->wake(), std::nullopt);
}

TEST_F(PortWithReader, TwoInterfacesDoNotHearEachOther) {
    plug();
    send(slot_status());
    EXPECT_EQ(
        transfer({.id = ++id_, .endpoint = reader::kSlot1.bulk_in, .length = packet_size}).status,
        -EINPROGRESS);
    EXPECT_EQ(receive().status, 0);
}

class ControlTransfers : public ReaderOnPort {
  protected:
    usb::Completion request(std::string_view setup_bytes, const Bytes& data = {}) {
        const Bytes setup = hex(setup_bytes);
        usb::Urb urb;
        urb.id = ++id_;
        urb.type = usb::TransferType::kControl;
        urb.endpoint = setup[0] & usb::kDirectionIn;
        std::copy_n(setup.begin(), usb::kSetupSize, urb.setup.begin());
        urb.data = data;
        urb.length = setup[6];
        return transfer(std::move(urb));
    }
};

TEST_F(ControlTransfers, TheDeviceDescriptorNamesTheReader) {
    plug();
    const auto descriptor = request("80 06 00 01 00 00 12 00").data;
    EXPECT_EQ(show(descriptor), "12 01 00 02 00 00 00 40 7A 2F 17 44 00 01 01 02 00 01");
}

TEST_F(ControlTransfers, ADescriptorIsCutToWhatIsAskedFor) {
    plug();
    EXPECT_EQ(show(request("80 06 00 02 00 00 09 00").data), "09 02 CA 00 03 01 00 80 64");
}

TEST_F(ControlTransfers, ACcidInterfaceListsBulkOutBulkInAndInterruptIn) {
    plug();
    const Bytes all = request("80 06 00 02 00 00 CA 00").data;
    ASSERT_EQ(all.size(), 0xCAU);
    const auto piece = [&all](std::size_t from, std::size_t size) {
        return show(std::span(all).subspan(from, size));
    };
    constexpr std::size_t keypad = 9 + 9 + 9 + 7;
    EXPECT_EQ(piece(keypad, 9), "09 04 01 00 03 0B 00 00 00");
    EXPECT_EQ(piece(keypad + 9, 4), "36 21 10 01");
    EXPECT_EQ(piece(keypad + 9 + 40, 8), "BE 04 02 00 0F 01 00 00");
    EXPECT_EQ(piece(keypad + 9 + 54, 21),
              "07 05 02 02 40 00 00 07 05 82 02 40 00 00 07 05 83 03 08 00 10");
    EXPECT_EQ(piece(keypad + 84, 9), "09 04 02 00 03 0B 00 00 00");
    EXPECT_EQ(piece(keypad + 84 + 9 + 54, 21),
              "07 05 04 02 40 00 00 07 05 84 02 40 00 00 07 05 85 03 08 00 10");
}

TEST_F(ControlTransfers, StringsAreUtf16) {
    plug();
    EXPECT_EQ(show(request("80 06 01 03 09 04 FF 00").data), "0C 03 71 00 61 00 76 00 65 00 6E 00");
    EXPECT_EQ(request("80 06 07 03 09 04 FF 00").status, -EPIPE);
}

TEST_F(ControlTransfers, TheConfigurationIsChosenWhenTheDeviceAppears) {
    plug();
    EXPECT_EQ(show(request("80 08 00 00 00 00 01 00").data), "01");
}

TEST_F(ControlTransfers, SettingTheConfigurationEmptiesQueuesAndLiftsHalts) {
    plug();
    power_on();
    send(slot_status());
    EXPECT_EQ(request("02 03 00 00 84 00 00 00").status, 0); // SET_FEATURE(ENDPOINT_HALT)
    EXPECT_EQ(receive().status, -EPIPE);
    EXPECT_EQ(request("00 09 07 00 00 00 00 00").status, -EPIPE) << "there is no such one";
    EXPECT_EQ(receive().status, -EPIPE);
    EXPECT_EQ(request("00 09 01 00 00 00 00 00").status, 0);
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 02 00 00 00")), "81 00 00 00 00 00 02 01 00 01");
}

TEST_F(ControlTransfers, TheKeypadHasAHidAndAReportDescriptor) {
    plug();
    EXPECT_EQ(show(request("81 06 00 21 00 00 09 00").data), "09 21 11 01 00 01 22 19 00");
    EXPECT_EQ(request("81 06 00 23 00 00 09 00").status, -EPIPE);
    const auto report = request("81 06 00 22 00 00 FF 00").data;
    EXPECT_EQ(report.size(), 25U);
    EXPECT_EQ(report.at(0), 0x06);
}

TEST_F(ControlTransfers, AnUnknownClassRequestIsStalled) {
    plug();
    EXPECT_EQ(request("A1 77 00 00 01 00 04 00").status, -EPIPE);
    EXPECT_EQ(request("21 01 00 00 01 00 00 00").status, 0) << "ABORT of nothing is accepted";
}

TEST_F(ControlTransfers, AHaltIsToldAndCleared) {
    plug({}, {{.after = 0, .kind = FaultKind::kHalt}});
    EXPECT_EQ(send(slot_status()).status, -EPIPE);
    EXPECT_EQ(send(slot_status()).status, -EPIPE);
    EXPECT_EQ(show(request("82 00 00 00 04 00 02 00").data), "01 00");
    EXPECT_EQ(request("02 01 00 00 04 00 00 00").status, 0);
    EXPECT_EQ(show(request("82 00 00 00 04 00 02 00").data), "00 00");
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 01 00 01");
}

class Faults : public ReaderOnPort {
  protected:
    // Two good transfers, and then the fault.
    void plug_with(FaultKind kind, std::chrono::milliseconds delay = {}) {
        plug({}, {{.after = 2, .kind = kind, .delay = delay}});
        power_on();
    }
};

TEST_F(Faults, ATimeoutHoldsOneTransferUntilTheHostTakesItBack) {
    plug_with(FaultKind::kTimeout);
    EXPECT_EQ(send(slot_status()).status, -EINPROGRESS);
    port_->advance(now_ + std::chrono::hours(1));
    EXPECT_FALSE(port_->wake());
    port_->discard(id_);
    EXPECT_EQ(completion_of(id_).status, -ENOENT);
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 00 00 00");
}

TEST_F(Faults, AStallHitsOneTransfer) {
    plug_with(FaultKind::kStall);
    EXPECT_EQ(send(slot_status()).status, -EPIPE);
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 00 00 00");
}

TEST_F(Faults, AnUnplugTakesTheDeviceAway) {
    plug_with(FaultKind::kUnplug);
    EXPECT_EQ(send(slot_status()).status, -ESHUTDOWN);
    EXPECT_FALSE(port_->plugged());
    EXPECT_EQ(card_.power_offs, 1);
}

TEST_F(Faults, AnOverflowWaitsForATransferTowardsTheHost) {
    plug_with(FaultKind::kOverflow);
    EXPECT_EQ(send(slot_status()).status, 0);
    EXPECT_EQ(receive().status, -EOVERFLOW);
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 00 00 00");
}

TEST_F(Faults, AShortAnswerHasHalfItsBytes) {
    plug_with(FaultKind::kCutShort);
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00");
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 00 00 00");
}

TEST_F(Faults, GarbageHasTheRightLengthAndNoRightByte) {
    plug_with(FaultKind::kGarbage);
    send(slot_status());
    const Bytes good = hex("81 00 00 00 00 00 01 00 00 00");
    const Bytes bad = receive().data;
    ASSERT_EQ(bad.size(), good.size());
    for (std::size_t i = 0; i < good.size(); ++i) {
        EXPECT_NE(bad[i], good[i]) << "byte " << i;
    }
}

TEST_F(Faults, ALateTransferMovesWhenItsTimeHasCome) {
    using std::chrono::milliseconds;
    plug_with(FaultKind::kLate, milliseconds(300));
    EXPECT_EQ(send(slot_status()).status, -EINPROGRESS);
    EXPECT_EQ(port_->wake(), now_ + milliseconds(300));
    port_->advance(now_ + milliseconds(299));
    EXPECT_EQ(completion_of(id_).status, -EINPROGRESS);
    now_ += milliseconds(300);
    port_->advance(now_);
    EXPECT_EQ(completion_of(id_).status, 0);
    EXPECT_EQ(show(receive().data), "81 00 00 00 00 00 01 00 00 00");
}

TEST_F(Faults, ALateReplyIsNoSoonerThereForAHostThatGaveUp) {
    using std::chrono::milliseconds;
    plug({}, {{.after = 3, .kind = FaultKind::kLate, .delay = milliseconds(300)}});
    power_on();
    send(slot_status());
    receive();
    port_->discard(id_);
    EXPECT_EQ(send(hex("65 00 00 00 00 00 02 00 00 00")).status, 0);
    EXPECT_EQ(receive().status, -EINPROGRESS);
    EXPECT_EQ(port_->wake(), now_ + milliseconds(300));
    now_ += milliseconds(300);
    port_->advance(now_);
    EXPECT_EQ(show(completion_of(id_).data), "81 00 00 00 00 00 01 00 00 00");
    EXPECT_EQ(show(receive().data), "81 00 00 00 00 00 02 00 00 00");
}

TEST_F(Faults, AShortPacketOfALongReplyLeavesTheRestOfIt) {
    plug_with(FaultKind::kCutShort);
    send(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 80"));
    EXPECT_EQ(receive().data.size(), 32U);
    EXPECT_EQ(answer_to(slot_status()).substr(0, 5), "37 38") << "the 55th byte of the data";
}

TEST_F(Faults, AnExtensionComesBeforeTheReply) {
    using std::chrono::milliseconds;
    plug({}, {{.after = 3, .kind = FaultKind::kExtension, .delay = milliseconds(300)}});
    power_on();
    EXPECT_EQ(answer_to(hex("6F 05 00 00 00 00 07 00 00 00 00 A4 04 00 00")),
              "80 00 00 00 00 00 07 80 01 00");
    const auto waiting = id_ + 1;
    EXPECT_EQ(receive().status, -EINPROGRESS);
    EXPECT_EQ(port_->wake(), now_ + milliseconds(300));
    now_ += milliseconds(300);
    port_->advance(now_);
    EXPECT_EQ(show(completion_of(waiting).data),
              "80 07 00 00 00 00 07 00 00 00 00 A4 04 00 00 90 00");
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 00 00 00") << "it happens once";
}

TEST_F(Faults, AnExtensionWaitsForAMessageToBegin) {
    plug({}, {{.after = 2, .kind = FaultKind::kExtension}});
    send(hex("62 00 00 00 00 00 00 00 00 00"));
    receive(4); // an overflow: what is left of the packet is lost
    EXPECT_EQ(receive().status, -EINPROGRESS) << "the fault's transfer, and nothing to read";
    send(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 34"));
    EXPECT_EQ(completion_of(id_ - 1).data.size(), 10U);
    EXPECT_EQ(receive().data.size(), 64U);
    EXPECT_EQ(receive().data.size(), 0U);

    plug({}, {{.after = 4, .kind = FaultKind::kExtension}});
    power_on();
    send(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 34"));
    EXPECT_EQ(receive().data.size(), 64U);
    EXPECT_EQ(receive().data.size(), 0U) << "in the middle of a message";
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 80 01 00");
}

TEST_F(Faults, SeveralHappenOneAfterTheOther) {
    plug({}, {{.after = 1, .kind = FaultKind::kCutShort}, {.after = 2, .kind = FaultKind::kStall}});
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00");
    EXPECT_EQ(send(slot_status()).status, -EPIPE);
    EXPECT_EQ(answer_to(slot_status()), "81 00 00 00 00 00 01 01 00 01");
}

TEST_F(Faults, OnlyBulkTransfersCount) {
    plug({}, {{.after = 1, .kind = FaultKind::kStall}});
    usb::Urb interrupt;
    interrupt.id = ++id_;
    interrupt.type = usb::TransferType::kInterrupt;
    interrupt.endpoint = reader::kSlot2.interrupt_in;
    interrupt.length = 8;
    EXPECT_EQ(transfer(interrupt).status, 0);
    EXPECT_EQ(send(slot_status()).status, 0);
    EXPECT_EQ(receive().status, -EPIPE);
}

TEST(FaultText, NamesWhenAndWhat) {
    const auto stall = usb::parse_fault("after=12:stall");
    EXPECT_EQ(stall.after, 12U);
    EXPECT_EQ(stall.kind, FaultKind::kStall);
    EXPECT_EQ(usb::parse_fault("after=0:short").kind, FaultKind::kCutShort);
    EXPECT_EQ(usb::parse_fault("after=0:late").delay, std::chrono::milliseconds(500));
    EXPECT_EQ(usb::parse_fault("after=0:late=20").delay, std::chrono::milliseconds(20));
    const auto extension = usb::parse_fault("after=0:extension=20");
    EXPECT_EQ(extension.kind, FaultKind::kExtension);
    EXPECT_EQ(extension.delay, std::chrono::milliseconds(20));
}

TEST(FaultText, OfAnotherFormIsRefused) {
    for (const auto* const text : {"", "stall", "after=:stall", "after=x:stall", "after=1",
                                   "after=1:", "after=1:fire", "after=1:stall=3", "after=1:late=",
                                   "after=-1:stall", "after=99999999999:stall", "after=1:late=x"}) {
        EXPECT_THROW(static_cast<void>(usb::parse_fault(text)), std::invalid_argument) << text;
    }
}

} // namespace
