// The edges of a message: what the reader makes of packets that a host library counts in its own
// way, and how it packs its answers.
#include "reader_on_port.h"

using namespace virtual_test;

namespace {

class Framing : public ReaderOnPort {};

// The whole reply to an APDU sent in the library's packets.
Bytes exchange(const std::vector<Bytes>& packets, const std::function<void(const Bytes&)>& send,
               const std::function<Bytes()>& receive) {
    for (const auto& packet : packets) {
        send(packet);
    }
    Bytes reply;
    Bytes piece;
    do {
        piece = receive();
        reply = std::move(reply) + piece;
    } while (piece.size() == packet_size);
    return reply;
}

class LibraryPackets : public ReaderOnPort, public testing::WithParamInterface<std::size_t> {};

TEST_P(LibraryPackets, BringTheCardTheBytesThatWereSentAndZerosForTheRest) {
    plug();
    power_on();
    const Bytes apdu = counting(GetParam());
    const auto packets = library_packets(apdu, 1);
    std::size_t sent = 0;
    for (const auto& packet : packets) {
        sent += packet.size();
    }
    Bytes expected = apdu;
    for (std::size_t i = sent < apdu.size() + 10 ? sent - 10 : apdu.size(); i < apdu.size(); ++i) {
        expected[i] = 0;
    }

    const Bytes reply = exchange(
        packets, [this](const Bytes& packet) { send(packet); }, [this] { return receive().data; });

    ASSERT_EQ(card_.commands.size(), 1U);
    EXPECT_EQ(show(card_.commands[0]), show(expected));
    const auto length = static_cast<std::uint8_t>((apdu.size() + 2) & 0xFFU);
    const auto length_high = static_cast<std::uint8_t>((apdu.size() + 2) >> 8U);
    EXPECT_EQ(show(reply), show(Bytes{0x80, length, length_high, 0, 0, 0, 1, 0, 0, 0} + expected +
                                hex("90 00")));
    EXPECT_EQ(receive().status, -EINPROGRESS) << "nothing but this one reply";
}

INSTANTIATE_TEST_SUITE_P(OfEveryLengthThatIsCountedDifferently, LibraryPackets,
                         testing::Values(5, 53, 54, 55, 56, 62, 63, 64, 65, 100, 117, 118, 119, 127,
                                         128, 129, 181, 182, 183, 191, 192, 193, 245, 246, 247,
                                         255),
                         [](const auto& tested) { return "Of" + std::to_string(tested.param); });

TEST_F(Framing, AnApduOf54BytesIsFollowedByZerosThatTheReaderDrops) {
    const auto packets = library_packets(counting(54), 0);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[0].size(), 64U);
    EXPECT_EQ(packets[1], Bytes(54));
}

TEST_F(Framing, AnApduOf100BytesLosesItsLastTenOnTheWay) {
    const auto packets = library_packets(counting(100), 0);
    ASSERT_EQ(packets.size(), 2U);
    EXPECT_EQ(packets[1].size(), 36U);
}

TEST_F(Framing, AMessageAfterDroppedZerosIsUnderstood) {
    plug();
    power_on();
    send(hex("00 00 00"));
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 07 00 00 00")), "81 00 00 00 00 00 07 00 00 00");
}

TEST_F(Framing, SurplusBytesInThePacketOfAWholeMessageAreDropped) {
    plug();
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 02 00 00 00 65 00 00 00 00 00 03 00 00 00")),
              "81 00 00 00 00 00 02 01 00 01");
    EXPECT_EQ(receive().status, -EINPROGRESS);
}

TEST_F(Framing, AHeaderCutShortIsFilledWithZeros) {
    plug();
    EXPECT_EQ(answer_to(hex("65")), "81 00 00 00 00 00 00 01 00 01");
}

TEST_F(Framing, AnEmptyPacketBetweenMessagesMeansNothing) {
    plug();
    EXPECT_EQ(send({}).status, 0);
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 01 00 00 00")), "81 00 00 00 00 00 01 01 00 01");
}

TEST_F(Framing, AMessageLongerThanTheReaderHoldsIsRefusedAtItsEnd) {
    plug();
    power_on();
    Bytes message = hex("6F 06 01 00 00 00 05 00 00 00") + counting(262);
    EXPECT_EQ(answer_to(message), "80 00 00 00 00 00 05 40 01 00");
    EXPECT_TRUE(card_.commands.empty());
    EXPECT_EQ(answer_to(hex("65 00 00 00 00 00 06 00 00 00")), "81 00 00 00 00 00 06 00 00 00");
}

TEST_F(Framing, AReplyOfWholePacketsEndsWithAnEmptyOne) {
    plug();
    power_on();
    send(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 34")); // 52 bytes, SW1 SW2, header: 64
    EXPECT_EQ(receive().data.size(), 64U);
    const auto end = receive();
    EXPECT_EQ(end.status, 0);
    EXPECT_EQ(end.actual, 0U);
}

TEST_F(Framing, AReplyOfTwoWholePacketsEndsWithAnEmptyOne) {
    plug();
    power_on();
    send(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 74"));
    EXPECT_EQ(receive().data.size(), 64U);
    EXPECT_EQ(receive().data.size(), 64U);
    EXPECT_EQ(receive().data.size(), 0U);
}

TEST_F(Framing, AReplyOfOneByteMoreNeedsNoEmptyPacket) {
    plug();
    power_on();
    send(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 35"));
    EXPECT_EQ(receive().data.size(), 64U);
    EXPECT_EQ(receive().data.size(), 1U);
    EXPECT_EQ(receive().status, -EINPROGRESS);
}

TEST_F(Framing, TheLongestReplyTakesFivePackets) {
    plug();
    power_on();
    send(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 00"));
    const Bytes whole = receive(512).data;
    EXPECT_EQ(whole.size(), 10U + 256U + 2U);
    EXPECT_EQ(whole[1], 0x02);
    EXPECT_EQ(whole[2], 0x01);
}

class StrictFraming : public ReaderOnPort {
  protected:
    void SetUp() override {
        plug({.strict = true});
        power_on();
    }
};

TEST_F(StrictFraming, AnUnknownMessageIsACommandNotSupported) {
    EXPECT_EQ(answer_to(Bytes(54)), "81 00 00 00 00 00 00 40 00 00");
}

TEST_F(StrictFraming, ACutMessageHasABadLength) {
    EXPECT_EQ(answer_to(hex("6F 06 00 00 00 00 03 00 00 00 00 A4 04 00 00")),
              "80 00 00 00 00 00 03 40 01 00");
    EXPECT_TRUE(card_.commands.empty());
}

TEST_F(StrictFraming, SurplusBytesAreABadLength) {
    EXPECT_EQ(answer_to(hex("6F 05 00 00 00 00 03 00 00 00 00 A4 04 00 00 00")),
              "80 00 00 00 00 00 03 40 01 00");
}

TEST_F(StrictFraming, ALevelParameterIsRefused) {
    EXPECT_EQ(answer_to(hex("6F 05 00 00 00 00 03 00 01 00 00 A4 04 00 00")),
              "80 00 00 00 00 00 03 40 08 00");
}

TEST_F(StrictFraming, AnUnknownVoltageIsRefused) {
    EXPECT_EQ(answer_to(hex("62 00 00 00 00 00 03 04 00 00")), "80 00 00 00 00 00 03 40 07 00");
}

TEST_F(StrictFraming, AWellFramedExchangeIsUntouched) {
    EXPECT_EQ(answer_to(hex("6F 05 00 00 00 00 03 00 00 00 00 A4 04 00 00")),
              "80 07 00 00 00 00 03 00 00 00 00 A4 04 00 00 90 00");
}

TEST_F(StrictFraming, AMessageOfWholePacketsMayEndWithAnEmptyOne) {
    send(hex("6F 36 00 00 00 00 03 00 00 00") + counting(54));
    send({});
    EXPECT_EQ(card_.commands.size(), 1U);
    EXPECT_EQ(receive(512).data.size(), 10U + 54U + 2U);
    EXPECT_EQ(receive().status, -EINPROGRESS);
}

} // namespace
