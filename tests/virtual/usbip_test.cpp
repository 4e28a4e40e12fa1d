// A USB/IP host at the other end of a socket: what it asks for, what comes back, and what becomes
// of a host that talks nonsense.
#include "../temporary_folder.h"
#include "echo_card.h"
#include "hex.h"
#include "virtual/plug/usbip_command.h"
#include "virtual/plug/usbip_server.h"
#include "virtual/reader/reader.h"

#include <gtest/gtest.h>

#include <fcntl.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>

using namespace qaven::virtual_plug;
using namespace virtual_test;

namespace {

namespace fs = std::filesystem;
namespace reader = qaven::virtual_reader;
namespace usb = qaven::virtual_usb;

constexpr std::size_t kHeaderSize = 48;

std::uint32_t word(const Bytes& bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value = value << 8U | bytes.at(at + i);
    }
    return value;
}

Bytes words(std::initializer_list<std::uint32_t> values) {
    Bytes bytes;
    for (const auto value : values) {
        for (const unsigned shift : {24U, 16U, 8U, 0U}) {
            bytes.push_back(static_cast<std::uint8_t>(value >> shift & 0xFFU));
        }
    }
    return bytes;
}

Bytes text(std::string_view letters, std::size_t size) {
    Bytes bytes(letters.begin(), letters.end());
    bytes.resize(size);
    return bytes;
}

constexpr std::uint32_t first_device = 65538; // bus 1, number 2

// A command to submit a transfer, field by field as the host's kernel fills it.
struct SubmitCommand {
    std::uint32_t seq = 0;
    std::uint32_t device = first_device;
    std::uint32_t direction = 0; // 1: in
    std::uint32_t endpoint = 0;
    std::uint32_t flags = 0;
    std::uint32_t length = 0;
    std::uint32_t packets = 0;
    std::string_view setup = "00 00 00 00 00 00 00 00";
    Bytes data{};

    [[nodiscard]] Bytes bytes() const {
        return words({1, seq, device, direction, endpoint, flags, length, 0, packets, 0}) +
               hex(setup) + data;
    }
};

// A reply to a transfer or to its being taken back.
struct Reply {
    std::uint32_t command = 0; // 3: transfer, 4: taken back
    std::uint32_t seq = 0;
    int status = 0;
    std::uint32_t actual = 0;
    Bytes data;

    bool operator==(const Reply&) const = default;
};

std::ostream& operator<<(std::ostream& out, const Reply& reply) {
    return out << "{command " << reply.command << ", seq " << reply.seq << ", status "
               << reply.status << ", actual " << reply.actual << ", data " << show(reply.data)
               << "}";
}

class UsbipHost : public testing::Test {
  protected:
    void SetUp() override {
        offer({});
        connect();
    }

    void offer(UsbipServer::Settings settings, std::vector<usb::Fault> faults = {}) {
        server_.emplace(std::move(settings));
        server_->add(device_, std::move(faults));
        server_->plug_all();
    }

    void offer(usb::Device& device) {
        server_.emplace(UsbipServer::Settings{});
        server_->add(device);
        server_->plug_all();
    }

    // A new connection to the server; the test writes and reads its other end.
    void connect() {
        std::array<int, 2> ends{};
        ASSERT_EQ(socketpair(AF_UNIX, SOCK_STREAM, 0, ends.data()), 0);
        host_ = Fd(ends[0]);
        server_->accept(Fd(ends[1]));
        received_.clear();
    }

    void send(const Bytes& bytes) {
        ASSERT_EQ(::send(host_.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(bytes.size()));
        serve();
    }

    // Lets the server do what it can, and fetches what it sent.
    void serve() {
        for (ssize_t count = 1; count > 0;) {
            server_->serve(now_);
            std::array<std::uint8_t, 4096> bytes{};
            count = recv(host_.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
            connected_ = count != 0;
            received_.insert(received_.end(), bytes.begin(),
                             bytes.begin() + std::max<ssize_t>(count, 0));
        }
    }

    Bytes take(std::size_t size) {
        EXPECT_GE(received_.size(), size);
        const auto end =
            received_.begin() + static_cast<std::ptrdiff_t>(std::min(size, received_.size()));
        Bytes taken(received_.begin(), end);
        received_.erase(received_.begin(), end);
        taken.resize(size);
        return taken;
    }

    // The next reply; `in`: of a read, which has data behind it.
    Reply reply(bool in) {
        const Bytes header = take(kHeaderSize);
        Reply reply{.command = word(header, 0),
                    .seq = word(header, 4),
                    .status = static_cast<int>(word(header, 20)),
                    .actual = word(header, 24),
                    .data = {}};
        if (in && reply.command == 3) {
            reply.data = take(reply.actual);
        }
        return reply;
    }

    [[nodiscard]] bool silent() const { return received_.empty() && connected_; }

    void import() {
        send(hex("01 11 80 03 00 00 00 00") + text("1-1", 32));
        ASSERT_EQ(show(take(8)), "01 11 00 03 00 00 00 00");
        take(312);
    }

    // A message to slot 2 as one bulk transfer.
    Reply write(const Bytes& message, std::uint32_t seq = 100) {
        send(SubmitCommand{.seq = seq,
                           .endpoint = 4,
                           .length = static_cast<std::uint32_t>(message.size()),
                           .data = message}
                 .bytes());
        return reply(false);
    }

    void start_reading(std::uint32_t seq, std::uint32_t room) {
        send(SubmitCommand{.seq = seq, .direction = 1, .endpoint = 4, .length = room}.bytes());
    }

    void take_back(std::uint32_t seq, std::uint32_t victim) {
        send(words({2, seq, first_device, 0, 0, victim}) + Bytes(24));
    }

    Reply control(std::uint32_t direction, std::string_view setup, std::uint32_t length,
                  const Bytes& data = {}) {
        send(SubmitCommand{
            .seq = 7, .direction = direction, .length = length, .setup = setup, .data = data}
                 .bytes());
        return reply(direction == 1);
    }

    void power_on() {
        write(hex("62 00 00 00 00 00 00 00 00 00"));
        start_reading(101, 64);
        ASSERT_EQ(reply(true).data.at(7), 0);
    }

    EchoCard card_;
    reader::Reader device_{nullptr, &card_};
    std::optional<UsbipServer> server_;
    Fd host_;
    Bytes received_;
    bool connected_ = true;
    usb::TimePoint now_ = usb::TimePoint(std::chrono::hours(1));
};

const Bytes slot_status = hex("65 00 00 00 00 00 01 00 00 00");
const Bytes answer_card_off = hex("81 00 00 00 00 00 01 01 00 01");

// GET RESPONSE, to which the card answers with 52 counting bytes and 90 00: with its header a
// message of exactly one packet.
const Bytes one_packet_answer = hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 34");

class BeforeTheImport : public UsbipHost {};

TEST_F(BeforeTheImport, TheListNamesTheReaderAndItsInterfaces) {
    send(hex("01 11 80 05 00 00 00 00"));
    EXPECT_EQ(show(take(12)), "01 11 00 05 00 00 00 00 00 00 00 01");
    take(256); // path
    EXPECT_EQ(take(32), text("1-1", 32));
    EXPECT_EQ(take(12), words({1, 2, 2})); // bus, number, full speed
    EXPECT_EQ(show(take(12)), "2F 7A 44 17 01 00 00 00 00 01 01 03");
    EXPECT_EQ(show(take(12)), "03 00 00 00 0B 00 00 00 0B 00 00 00");
    EXPECT_TRUE(silent());
}

TEST_F(BeforeTheImport, ADeviceThatIsNotThereIsRefused) {
    send(hex("01 11 80 03 00 00 00 00") + text("7-7", 32));
    EXPECT_EQ(show(take(8)), "01 11 00 03 00 00 00 04");
    EXPECT_FALSE(connected_);
}

TEST_F(BeforeTheImport, ADeviceThatAnotherHostHasIsRefusedAndNotListed) {
    import();
    const Fd first = std::move(host_);
    connect();
    send(hex("01 11 80 05 00 00 00 00"));
    EXPECT_EQ(show(take(12)), "01 11 00 05 00 00 00 00 00 00 00 00");
    send(hex("01 11 80 03 00 00 00 00") + text("1-1", 32));
    EXPECT_EQ(show(take(8)), "01 11 00 03 00 00 00 02");
}

TEST_F(BeforeTheImport, ADeviceIsFreeAgainWhenItsHostHasGone) {
    import();
    start_reading(1, 64);
    host_ = Fd();
    server_->serve(now_);
    connect();
    import();
    EXPECT_EQ(write(slot_status).status, 0);
    start_reading(2, 64);
    EXPECT_EQ(reply(true).data, answer_card_off) << "the read of the host that left took nothing";
}

TEST_F(BeforeTheImport, ABusIdWithoutAnEndIsNoDevice) {
    send(hex("01 11 80 03 00 00 00 00") + Bytes(32, '1'));
    EXPECT_EQ(show(take(8)), "01 11 00 03 00 00 00 04");
}

TEST_F(BeforeTheImport, AQuestionMayComeInPieces) {
    for (const auto byte : hex("01 11 80 03 00 00 00 00") + text("1-1", 32)) {
        send({byte});
    }
    EXPECT_EQ(show(take(8)), "01 11 00 03 00 00 00 00");
}

TEST_F(BeforeTheImport, AHostThatTalksSomethingElseIsLeft) {
    for (const auto* const nonsense : {"47 45 54 20 2F 20 48 54", "01 10 80 05 00 00 00 00",
                                       "01 11 80 04 00 00 00 00", "01 11 00 05 00 00 00 00"}) {
        connect();
        send(hex(nonsense));
        EXPECT_FALSE(connected_) << nonsense;
        EXPECT_TRUE(received_.empty()) << nonsense;
    }
}

class Imported : public UsbipHost {
  protected:
    void SetUp() override {
        UsbipHost::SetUp();
        import();
    }
};

TEST_F(Imported, AReadOfADescriptorIsAnswered) {
    EXPECT_EQ(control(1, "80 06 00 01 00 00 12 00", 18),
              (Reply{.command = 3,
                     .seq = 7,
                     .status = 0,
                     .actual = 18,
                     .data = hex("12 01 00 02 00 00 00 40 7A 2F 17 44 00 01 01 02 00 01")}));
}

TEST_F(Imported, AControlReadBringsNoMoreThanTheSmallerOfTheTwoLengths) {
    EXPECT_EQ(control(1, "80 06 00 01 00 00 12 00", 8).actual, 8U);
    EXPECT_EQ(control(1, "80 06 00 01 00 00 08 00", 18).actual, 8U);
}

TEST_F(Imported, AConfigurationIsSetAndRead) {
    EXPECT_EQ(show(control(1, "80 08 00 00 00 00 01 00", 1).data), "00");
    EXPECT_EQ(control(0, "00 09 01 00 00 00 00 00", 0),
              (Reply{.command = 3, .seq = 7, .status = 0, .actual = 0, .data = {}}));
    EXPECT_EQ(show(control(1, "80 08 00 00 00 00 01 00", 1).data), "01");
}

TEST_F(Imported, AControlWriteTellsHowManyBytesWent) {
    const auto set_report = control(0, "21 09 00 02 00 00 08 00", 8, Bytes(8));
    EXPECT_EQ(set_report.status, 0);
    EXPECT_EQ(set_report.actual, 8U);
}

TEST_F(Imported, WhatTheDeviceRefusesIsAStall) {
    EXPECT_EQ(control(1, "A1 77 00 00 01 00 04 00", 4).status, -EPIPE);
    EXPECT_EQ(control(0, "21 77 00 00 01 00 04 00", 4, Bytes(4)).status, -EPIPE);
}

TEST_F(Imported, ASetUpThatContradictsTheDirectionIsAStall) {
    EXPECT_EQ(control(0, "80 06 00 01 00 00 12 00", 18, Bytes(18)),
              (Reply{.command = 3, .seq = 7, .status = -EPIPE, .actual = 0, .data = {}}));
    EXPECT_EQ(control(1, "21 09 00 02 00 00 08 00", 8).status, -EPIPE);
    EXPECT_EQ(control(1, "80 08 00 00 00 00 01 00", 1).actual, 1U) << "the stream is in step";
}

TEST_F(Imported, AMessageGoesToTheSlotAndItsAnswerComesBack) {
    EXPECT_EQ(write(slot_status),
              (Reply{.command = 3, .seq = 100, .status = 0, .actual = 10, .data = {}}));
    start_reading(101, 64);
    EXPECT_EQ(
        reply(true),
        (Reply{.command = 3, .seq = 101, .status = 0, .actual = 10, .data = answer_card_off}));
}

TEST_F(Imported, AReadWaitsUntilThereIsSomething) {
    start_reading(5, 64);
    EXPECT_TRUE(silent());
    send(SubmitCommand{.seq = 6, .endpoint = 4, .length = 10, .data = slot_status}.bytes());
    const Reply first = reply(false);
    EXPECT_EQ(first.seq, 6U);
    EXPECT_EQ(reply(true).seq, 5U);
}

TEST_F(Imported, AReadEndsWithAFullBuffer) {
    power_on();
    write(one_packet_answer);
    start_reading(5, 64);
    EXPECT_EQ(reply(true).actual, 64U);
    start_reading(6, 64);
    EXPECT_EQ(reply(true), (Reply{.command = 3, .seq = 6, .status = 0, .actual = 0, .data = {}}))
        << "an empty packet ends the message";
}

TEST_F(Imported, AReadWithMoreRoomEndsWithTheEmptyPacket) {
    power_on();
    write(one_packet_answer);
    start_reading(5, 512);
    EXPECT_EQ(reply(true).actual, 64U);
    EXPECT_TRUE(silent());
}

TEST_F(Imported, AReadTakesPacketsUntilAShortOne) {
    power_on();
    write(hex("6F 05 00 00 00 00 01 00 00 00 00 C0 00 00 80"));
    start_reading(5, 512);
    EXPECT_EQ(reply(true).actual, 10U + 128U + 2U);
}

TEST_F(Imported, AShortPacketIsAnErrorToAHostThatForbidsIt) {
    write(slot_status);
    send(SubmitCommand{.seq = 5, .direction = 1, .endpoint = 4, .flags = 1, .length = 64}.bytes());
    const auto short_read = reply(true);
    EXPECT_EQ(short_read.status, -EREMOTEIO);
    EXPECT_EQ(short_read.data, answer_card_off);
}

TEST_F(Imported, AReadSmallerThanThePacketOverflows) {
    write(slot_status);
    start_reading(5, 4);
    EXPECT_EQ(
        reply(true),
        (Reply{.command = 3, .seq = 5, .status = -75, .actual = 4, .data = hex("81 00 00 00")}));
}

TEST_F(Imported, AnEmptyPacketGoesOutWhereTheHostAsksForIt) {
    power_on();
    // The header promises 108 bytes and 54 come: only the empty packet tells that it was all.
    const Bytes half_of_108 = hex("6F 6C 00 00 00 00 01 00 00 00") + counting(54);
    send(SubmitCommand{.seq = 5, .endpoint = 4, .flags = 0x40, .length = 64, .data = half_of_108}
             .bytes());
    EXPECT_EQ(reply(false).actual, 64U);
    ASSERT_EQ(card_.commands.size(), 1U);
}

TEST_F(Imported, TheInterruptEndpointTellsOfACard) {
    send(SubmitCommand{.seq = 5, .direction = 1, .endpoint = 5, .length = 8}.bytes());
    EXPECT_EQ(show(reply(true).data), "50 03");
    send(SubmitCommand{.seq = 6, .direction = 1, .endpoint = 5, .length = 8}.bytes());
    EXPECT_TRUE(silent());
    device_.remove_card(2);
    serve();
    EXPECT_EQ(show(reply(true).data), "50 02");
    send(SubmitCommand{.seq = 7, .direction = 1, .endpoint = 5, .length = 8}.bytes());
    device_.insert_card(2, card_);
    serve();
    EXPECT_EQ(show(reply(true).data), "50 03");
}

TEST_F(Imported, AnEndpointThatIsNotThereIsAnError) {
    send(SubmitCommand{.seq = 5, .direction = 1, .endpoint = 9, .length = 8}.bytes());
    EXPECT_EQ(reply(true).status, -ENOENT);
}

TEST_F(Imported, AReadTakenBackUntouchedHasOneReply) {
    start_reading(5, 64);
    take_back(6, 5);
    EXPECT_EQ(reply(true),
              (Reply{.command = 4, .seq = 6, .status = -ECONNRESET, .actual = 0, .data = {}}));
    EXPECT_TRUE(silent());
    write(slot_status);
    start_reading(7, 64);
    EXPECT_EQ(reply(true).data, answer_card_off) << "the next read gets the answer";
}

TEST_F(Imported, ATransferThatIsCompleteCannotBeTakenBack) {
    write(slot_status, 5);
    take_back(6, 5);
    EXPECT_EQ(reply(false), (Reply{.command = 4, .seq = 6, .status = 0, .actual = 0, .data = {}}));
    take_back(7, 4711);
    EXPECT_EQ(reply(false), (Reply{.command = 4, .seq = 7, .status = 0, .actual = 0, .data = {}}));
}

TEST_F(Imported, AWriteThatTheReaderHoldsOffIsTakenBackAsAWhole) {
    for (std::uint32_t seq = 1000; seq < 1064; ++seq) {
        EXPECT_EQ(write(slot_status, seq).status, 0);
    }
    send(SubmitCommand{.seq = 5, .endpoint = 4, .length = 10, .data = slot_status}.bytes());
    EXPECT_TRUE(silent()) << "64 answers wait to be read";
    take_back(6, 5);
    EXPECT_EQ(reply(false),
              (Reply{.command = 4, .seq = 6, .status = -ECONNRESET, .actual = 0, .data = {}}));
}

TEST_F(Imported, CommandsMayComeInPiecesAndInOneGo) {
    const Bytes both =
        SubmitCommand{.seq = 5, .endpoint = 4, .length = 10, .data = slot_status}.bytes() +
        SubmitCommand{.seq = 6, .direction = 1, .endpoint = 4, .length = 64}.bytes();
    for (const auto byte : both) {
        send({byte});
    }
    EXPECT_EQ(reply(false).seq, 5U);
    EXPECT_EQ(reply(true).data, answer_card_off);
    send(both);
    EXPECT_EQ(reply(false).seq, 5U);
    EXPECT_EQ(reply(true).data, answer_card_off);
}

// A host that cannot be understood is left; what it says next would be a guess.
TEST_F(Imported, NonsenseEndsTheConnection) {
    const std::vector<std::pair<const char*, Bytes>> all{
        {"an unknown command", words({9, 1, first_device}) + Bytes(36)},
        {"another device", SubmitCommand{.seq = 1, .device = 65539}.bytes()},
        {"another device's transfer", words({2, 1, 65539, 0, 0, 1}) + Bytes(24)},
        {"endpoint 16", SubmitCommand{.seq = 1, .endpoint = 16}.bytes()},
        {"a negative length", SubmitCommand{.seq = 1, .endpoint = 4, .length = 0xFFFFFFFF}.bytes()},
        {"a negative length of a read",
         SubmitCommand{.seq = 1, .direction = 1, .endpoint = 4, .length = 0x80000000}.bytes()},
        {"more than 16 MB",
         SubmitCommand{.seq = 1, .endpoint = 4, .length = 16 * 1024 * 1024 + 1}.bytes()},
        {"isochronous packets",
         SubmitCommand{.seq = 1, .direction = 1, .endpoint = 4, .length = 8, .packets = 1}.bytes()},
        {"a number in flight",
         SubmitCommand{.seq = 1, .direction = 1, .endpoint = 4, .length = 64}.bytes() +
             SubmitCommand{.seq = 1, .direction = 1, .endpoint = 4, .length = 64}.bytes()},
    };
    for (const auto& [what, bytes] : all) {
        send(bytes);
        EXPECT_FALSE(connected_) << what;
        EXPECT_TRUE(received_.empty()) << what;
        connect();
        import();
    }
}

TEST_F(Imported, AFloodOfReadsEndsTheConnection) {
    for (std::uint32_t seq = 1; seq <= 4096; ++seq) {
        start_reading(seq, 64);
    }
    EXPECT_TRUE(silent());
    start_reading(4097, 64);
    EXPECT_FALSE(connected_);
}

TEST_F(Imported, AHostThatFetchesNothingIsNotListenedToForEver) {
    const Bytes question =
        SubmitCommand{.seq = 7, .direction = 1, .length = 202, .setup = "80 06 00 02 00 00 CA 00"}
            .bytes();
    // Its questions pile up in the socket in the end, and not in the server.
    ssize_t sent = 0;
    for (int i = 0; i < 200'000 && sent >= 0; ++i) {
        sent = ::send(host_.get(), question.data(), question.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
        server_->serve(now_);
    }
    EXPECT_LT(sent, 0);
    EXPECT_EQ(errno, EAGAIN);
}

TEST_F(Imported, AHostMayGoInTheMiddleOfACommand) {
    send(SubmitCommand{.seq = 5, .endpoint = 4, .length = 1000}.bytes() + Bytes(10));
    host_ = Fd();
    server_->serve(now_);
    EXPECT_EQ(server_->status(), std::vector<std::string>{"1-1 2F7A:4417 on offer"});
}

TEST_F(Imported, TheCardLosesItsPowerWhenTheHostGoes) {
    power_on();
    host_ = Fd();
    server_->serve(now_);
    EXPECT_EQ(card_.power_offs, 1);
}

TEST_F(Imported, AnUnpluggedReaderEndsTheConnection) {
    power_on();
    start_reading(5, 64);
    server_->unplug("1-1");
    serve();
    EXPECT_FALSE(connected_);
    EXPECT_EQ(card_.power_offs, 1);
    EXPECT_EQ(server_->status(), std::vector<std::string>{"1-1 2F7A:4417 unplugged"});

    server_->plug("1-1");
    connect();
    import();
    EXPECT_EQ(write(slot_status).status, 0);
}

// A device whose packets come and go one by one, as the test lets them.
class PacketDevice : public usb::Device {
  public:
    [[nodiscard]] Bytes device_descriptor() const override {
        return {18, 1, 0, 2, 0xFF, 0, 0, 64, 0x7A, 0x2F, 1, 0, 0, 1, 0, 0, 0, 1};
    }
    [[nodiscard]] Bytes configuration_descriptor() const override {
        return hex("09 02 20 00 01 01 00 80 32 09 04 00 00 02 FF 00 00 00 07 05 04 02 40 00 00 "
                   "07 05 84 02 40 00 00");
    }
    usb::Reply control(const usb::Setup& /*setup*/, std::span<const std::uint8_t> /*data*/,
                       usb::TimePoint /*now*/) override {
        return usb::Reply::stall();
    }
    usb::Handshake out(std::uint8_t /*endpoint*/, std::span<const std::uint8_t> packet,
                       usb::TimePoint /*now*/) override {
        if (room == 0) {
            return usb::Handshake::kNak;
        }
        --room;
        taken.emplace_back(packet.begin(), packet.end());
        return usb::Handshake::kAck;
    }
    usb::Reply in(std::uint8_t /*endpoint*/, usb::TimePoint /*now*/) override {
        if (packets.empty()) {
            return usb::Reply::nak();
        }
        auto reply = usb::Reply::ack(std::move(packets.front()));
        packets.erase(packets.begin());
        return reply;
    }
    void clear_halt(std::uint8_t /*endpoint*/) override {}
    void reset() override {}

    std::vector<Bytes> packets; // towards the host
    std::vector<Bytes> taken;
    unsigned room = 0; // packets that it will take
};

class PacketByPacket : public UsbipHost {
  protected:
    void SetUp() override {
        offer(packets_);
        connect();
        import();
    }
    PacketDevice packets_;
};

TEST_F(PacketByPacket, AReadTakenBackPartlyFilledDeliversWhatItHas) {
    packets_.packets = {counting(64)};
    start_reading(5, 512);
    EXPECT_TRUE(silent()) << "a whole packet is no end";
    take_back(6, 5);
    EXPECT_EQ(reply(true),
              (Reply{.command = 3, .seq = 5, .status = -104, .actual = 64, .data = counting(64)}));
    EXPECT_EQ(reply(true), (Reply{.command = 4, .seq = 6, .status = 0, .actual = 0, .data = {}}));
    EXPECT_TRUE(silent());
}

TEST_F(PacketByPacket, AReadGoesOnWhereItWas) {
    packets_.packets = {counting(64)};
    start_reading(5, 512);
    packets_.packets = {counting(3)};
    serve();
    EXPECT_EQ(reply(true).data, counting(64) + counting(3));
}

TEST_F(PacketByPacket, AWriteTakenBackHasOneReply) {
    packets_.room = 1;
    send(SubmitCommand{.seq = 5, .endpoint = 4, .length = 100, .data = counting(100)}.bytes());
    EXPECT_EQ(packets_.taken, std::vector<Bytes>{counting(64)});
    take_back(6, 5);
    EXPECT_EQ(reply(false),
              (Reply{.command = 4, .seq = 6, .status = -104, .actual = 0, .data = {}}));
    EXPECT_TRUE(silent());
}

TEST_F(PacketByPacket, AReadBehindOneThatIsTakenBackMoves) {
    packets_.packets = {counting(64)};
    start_reading(5, 512);
    start_reading(6, 64);
    take_back(7, 5);
    packets_.packets = {counting(2)};
    serve();
    EXPECT_EQ(reply(true).seq, 5U);
    EXPECT_EQ(reply(true).seq, 7U);
    EXPECT_EQ(reply(true),
              (Reply{.command = 3, .seq = 6, .status = 0, .actual = 2, .data = counting(2)}));
}

class WithFaults : public UsbipHost {};

TEST_F(WithFaults, APulledOutReaderComesBackAfterItsTime) {
    UsbipServer::Settings settings;
    settings.replug_after = std::chrono::milliseconds(300);
    offer(std::move(settings), {{.after = 1, .kind = usb::FaultKind::kUnplug}});
    connect();
    import();
    write(slot_status);
    start_reading(5, 64);
    EXPECT_FALSE(connected_);
    EXPECT_EQ(reply(true).status, -ESHUTDOWN);
    EXPECT_EQ(server_->wake(), now_ + std::chrono::milliseconds(300));

    connect();
    send(hex("01 11 80 03 00 00 00 00") + text("1-1", 32));
    EXPECT_EQ(show(take(8)), "01 11 00 03 00 00 00 04") << "it is not back yet";

    now_ += std::chrono::milliseconds(300);
    server_->serve(now_);
    connect();
    import();
    EXPECT_EQ(write(slot_status).status, 0);
    start_reading(6, 64);
    EXPECT_EQ(reply(true).data, answer_card_off) << "the fault does not happen again";
}

TEST_F(WithFaults, AFaultOnDemandCountsFromThen) {
    import();
    write(slot_status);
    server_->add_fault("1-1", {.after = 1, .kind = usb::FaultKind::kStall});
    start_reading(5, 64);
    EXPECT_EQ(reply(true).status, 0);
    EXPECT_EQ(write(slot_status).status, -32);
    EXPECT_EQ(write(slot_status).status, 0);
}

TEST_F(WithFaults, ALateAnswerComesWhenItsTimeHasCome) {
    import();
    server_->add_fault(
        "1-1",
        {.after = 1, .kind = usb::FaultKind::kLate, .delay = std::chrono::milliseconds(200)});
    write(slot_status);
    start_reading(5, 64);
    EXPECT_TRUE(silent());
    EXPECT_EQ(server_->wake(), now_ + std::chrono::milliseconds(200));
    now_ += std::chrono::milliseconds(200);
    serve();
    EXPECT_EQ(reply(true).data, answer_card_off);
}

// The whole program, served in a process of its own, and a host that comes by TCP.
class OverTheNetwork : public testing::Test {
  protected:
    void start(const Options& options) {
        std::array<int, 2> ends{};
        ASSERT_EQ(pipe(ends.data()), 0);
        server_ = fork();
        if (server_ == 0) {
            dup2(ends[1], STDOUT_FILENO);
            dup2(::open("/dev/null", O_RDONLY | O_CLOEXEC), STDIN_FILENO);
            _exit(serve_usbip(options,
                              {.card = [](const fs::path&) { return std::make_unique<EchoCard>(); },
                               .save = nullptr,
                               .idcard = nullptr}));
        }
        ::close(ends[1]);
        const Fd said(ends[0]);
        std::string line;
        for (char letter = 0; ::read(said.get(), &letter, 1) == 1 && letter != '\n';) {
            line += letter;
        }
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(static_cast<std::uint16_t>(
            std::stoul(line.substr(line.rfind(' ') + 1)))); // "listening at ... port N"
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        host_ = Fd(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        const timeval patience{.tv_sec = 3, .tv_usec = 0};
        const int on = 1;
        ASSERT_EQ(setsockopt(host_.get(), SOL_SOCKET, SO_RCVTIMEO, &patience, sizeof patience), 0);
        ASSERT_EQ(setsockopt(host_.get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on), 0);
        ASSERT_EQ(connect(host_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address),
                  0);
        ASSERT_EQ(exchange(hex("01 11 80 03 00 00 00 00") + text("1-1", 32), 8 + 312).size(), 320U);
    }

    void TearDown() override {
        kill(server_, SIGTERM);
        int status = -1;
        EXPECT_EQ(waitpid(server_, &status, 0), server_);
        EXPECT_EQ(status, 0);
    }

    // Fewer bytes than expected when they do not come in time.
    Bytes exchange(const Bytes& question, std::size_t expected) {
        EXPECT_EQ(::send(host_.get(), question.data(), question.size(), MSG_NOSIGNAL),
                  static_cast<ssize_t>(question.size()));
        Bytes answer(expected);
        const auto count = recv(host_.get(), answer.data(), answer.size(), MSG_WAITALL);
        answer.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
        return answer;
    }

    Bytes message(const Bytes& data, std::size_t expected) {
        return exchange(
            SubmitCommand{.seq = 1,
                          .endpoint = 4,
                          .length = static_cast<std::uint32_t>(data.size()),
                          .data = data}
                    .bytes() +
                SubmitCommand{.seq = 2, .direction = 1, .endpoint = 4, .length = 64}.bytes(),
            2 * kHeaderSize + expected);
    }

    pid_t server_ = -1;
    Fd host_;
};

// Each reply is due some 40 microseconds after its command.
TEST_F(OverTheNetwork, NoneOfManyRepliesIsForgotten) {
    Options options;
    options.listen.port = 0;
    options.baud = 4'000'000;
    start(options);
    ASSERT_EQ(message(hex("62 00 00 00 00 00 00 00 00 00"), 21).size(), 2 * kHeaderSize + 21);
    for (int i = 0; i < 3000; ++i) {
        const Bytes answer = message(hex("6F 05 00 00 00 00 02 00 00 00 00 A4 04 00 00"), 17);
        ASSERT_EQ(answer.size(), 2 * kHeaderSize + 17) << "reply " << i;
    }
}

// The lines by which readers and cards are moved.
class HandOnTheDesk : public testing::Test {
  protected:
    HandOnTheDesk() {
        server_.add(*devices_.reader());
        server_.plug_all();
    }

    std::string last(std::string_view line) { return commands_.execute(line).back(); }

    DeviceSet devices_{Options{},
                       {.card = [](const fs::path&) { return std::make_unique<EchoCard>(); },
                        .save = nullptr,
                        .idcard = nullptr}};
    UsbipServer server_{{}};
    ControlCommands commands_{server_, devices_, 2};
};

TEST_F(HandOnTheDesk, PullsTheReaderOutAndPlugsItIn) {
    EXPECT_EQ(last("unplug"), "ok");
    EXPECT_EQ(last("unplug"), "error: 1-1 is not plugged in");
    EXPECT_EQ(last("fault after=0:stall"), "error: 1-1 is not plugged in");
    EXPECT_EQ(commands_.execute("status"),
              (std::vector<std::string>{"1-1 2F7A:4417 unplugged", "ok"}));
    EXPECT_EQ(last("plug 1-1"), "ok");
    EXPECT_EQ(last("plug"), "error: 1-1 is already plugged in");
    EXPECT_EQ(commands_.execute("status"),
              (std::vector<std::string>{"1-1 2F7A:4417 on offer", "ok"}));
    EXPECT_EQ(last("plug 1-9"), "error: there is no device 1-9");
}

TEST_F(HandOnTheDesk, TakesTheCardOutAndPutsItIn) {
    EXPECT_TRUE(devices_.reader()->card_present(2));
    EXPECT_EQ(last("card out"), "ok");
    EXPECT_FALSE(devices_.reader()->card_present(2));
    EXPECT_EQ(last("card out"), "error: the card is already out");
    EXPECT_EQ(last("  card   in "), "ok");
    EXPECT_TRUE(devices_.reader()->card_present(2));
    EXPECT_EQ(last("card in"), "error: the card is already in");
}

TEST_F(HandOnTheDesk, ArrangesFaults) {
    EXPECT_EQ(last("fault after=3:stall"), "ok");
    EXPECT_EQ(last("fault after=3:fire").substr(0, 7), "error: ");
}

TEST_F(HandOnTheDesk, ExplainsWhatItUnderstands) {
    for (const auto* const line : {"", "card", "card up", "plug 1-1 1-2", "quit now", "dance"}) {
        EXPECT_EQ(last(line).substr(0, 22), "error: unknown command") << line;
    }
    EXPECT_FALSE(commands_.quitting());
    EXPECT_EQ(last("quit"), "ok");
    EXPECT_TRUE(commands_.quitting());
}

// The vhci-hcd module as its files show it, in a folder.
class VhciFolder : public testing::Test {
  protected:
    void status(const std::string& ports) const {
        std::ofstream(folder_ / "status")
            << "hub port sta spd dev      sockfd local_busid\n" + ports;
    }

    const qaven::test::TemporaryFolder temporary_;
    const fs::path folder_ = temporary_.path();
};

TEST_F(VhciFolder, APortIsTakenOnlyWhereNothingIsPluggedIn) {
    EXPECT_EQ(free_port("hub port sta spd dev      sockfd local_busid\n"
                        "hs  0000 006 002 00010002 000003 1-1\n"
                        "hs  0001 005 000 00000000 000000 0-0\n"
                        "hs  0002 004 000 00000000 000000 0-0\n"),
              2U);
    EXPECT_EQ(free_port("hs  0000 006 002 00010002 000003 1-1\n"
                        "ss  0008 004 000 00000000 000000 0-0\n"),
              std::nullopt);
    EXPECT_EQ(free_port(""), std::nullopt);
    EXPECT_EQ(free_port("hs  \n\nhs x 004\n"), std::nullopt);
}

TEST_F(VhciFolder, AnAttachmentNamesPortSocketDeviceAndSpeed) {
    status("hs  0003 004 000 00000000 000000 0-0\n");
    std::ofstream(folder_ / "attach").flush();
    const auto attachment = Vhci(folder_).attach(first_device, usb::Speed::kFull);
    EXPECT_EQ(attachment.port, 3U);
    std::ifstream order(folder_ / "attach");
    unsigned port = 0;
    int socket = -1;
    unsigned device = 0;
    unsigned speed = 0;
    ASSERT_TRUE(order >> port >> socket >> device >> speed);
    EXPECT_EQ(port, 3U);
    EXPECT_GE(socket, 0);
    EXPECT_EQ(device, first_device);
    EXPECT_EQ(speed, 2U);
}

TEST_F(VhciFolder, WhatIsMissingIsNamed) {
    const auto complaint = [this] {
        try {
            static_cast<void>(Vhci(folder_).attach(first_device, usb::Speed::kFull));
        } catch (const std::runtime_error& error) {
            return std::string(error.what());
        }
        return std::string();
    };
    EXPECT_NE(complaint().find("load the kernel module vhci-hcd"), std::string::npos);
    status("hs  0000 006 002 00010002 000003 1-1\n");
    EXPECT_EQ(complaint(), "vhci-hcd has no free port");
    status("hs  0000 004 000 00000000 000000 0-0\n");
    EXPECT_NE(complaint().find("cannot attach through"), std::string::npos);
}

} // namespace
