// The virtual identity-card reader, driven report by report as a host does.
#include "virtual/idcard/idcard_device.h"
#include "virtual/idcard/identity_card.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <numeric>
#include <string>

using namespace qaven::virtual_idcard;
using qaven::virtual_usb::Device;
using qaven::virtual_usb::Handshake;
using qaven::virtual_usb::Reply;
using ControlSetup = qaven::virtual_usb::Setup; // GoogleTest keeps the short name for itself
using qaven::virtual_usb::TimePoint;
using namespace std::chrono_literals;

namespace {

constexpr ControlSetup get_report{
    .request_type = 0xA1, .request = 1, .value = 0x0100, .index = 0, .length = 64};
constexpr ControlSetup set_report{
    .request_type = 0x21, .request = 9, .value = 0x0200, .index = 0, .length = 64};

class VirtualIdCardReader : public testing::Test {
  protected:
    void put(std::string_view kind) {
        device_ = make_idcard_reader(kind);
        ASSERT_NE(device_, nullptr);
        device_->reset();
    }

    void send(Bytes report) {
        report.resize(64, 0);
        ASSERT_EQ(device_->control(set_report, report, now_).handshake, Handshake::kAck);
    }

    Bytes poll() {
        const Reply reply = device_->control(get_report, {}, now_);
        EXPECT_EQ(reply.handshake, Handshake::kAck);
        EXPECT_EQ(reply.data.size(), 64U);
        return reply.data;
    }

    // The whole reply that the length field of its first report announces.
    Bytes exchange(const Bytes& command) {
        send(command);
        now_ += 1s;
        Bytes reply = poll();
        const std::size_t size = std::size_t{reply[5]} * 256 + reply[6] + 7;
        while (reply.size() < size) {
            const Bytes more = poll();
            reply.insert(reply.end(), more.begin(), more.end());
        }
        EXPECT_TRUE(std::all_of(reply.begin() + static_cast<std::ptrdiff_t>(size), reply.end(),
                                [](std::uint8_t byte) { return byte == 0; }));
        reply.resize(size);
        return reply;
    }

    // SW3 of a refusal, which is a reply without data.
    int refusal(const Bytes& command) {
        const Bytes reply = exchange(command);
        EXPECT_EQ(reply.size(), 11U);
        return reply[9];
    }

    const Bytes zeros = Bytes(64, 0);
    const Bytes find{0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x03, 0x20, 0x01, 0x22};
    const Bytes select{0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x03, 0x20, 0x02, 0x21};
    const Bytes read_base{0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x03, 0x30, 0x01, 0x32};

    std::unique_ptr<Device> device_;
    TimePoint now_;
};

unsigned checksum(const Bytes& frame) {
    return std::accumulate(frame.begin() + 5, frame.end(), 0U, std::bit_xor<>());
}

TEST_F(VirtualIdCardReader, IsAHidDeviceWithTheIdsThatHostsLookFor) {
    put("resident");
    const Bytes device = device_->device_descriptor();
    ASSERT_EQ(device.size(), 18U);
    EXPECT_EQ(device[0], 18);
    EXPECT_EQ(Bytes(device.begin() + 8, device.begin() + 12), (Bytes{0x7A, 0x2F, 0x63, 0x44}));
    EXPECT_FALSE(device_->string(device[14]).empty());
    EXPECT_FALSE(device_->string(device[15]).empty());

    const Bytes configuration = device_->configuration_descriptor();
    EXPECT_EQ(configuration[2] + configuration[3] * 256U, configuration.size());
    EXPECT_EQ(configuration[4], 1);         // interfaces
    EXPECT_EQ(configuration[9 + 2], 0);     // bInterfaceNumber
    EXPECT_EQ(configuration[9 + 5], 3);     // HID
    EXPECT_EQ(configuration[18 + 1], 0x21); // HID descriptor
    EXPECT_EQ(configuration[27 + 2], 0x81); // interrupt IN
    EXPECT_EQ(configuration.size(), 34U);
}

TEST_F(VirtualIdCardReader, DescribesItsReportsInTheLengthItAnnounces) {
    put("resident");
    const Bytes configuration = device_->configuration_descriptor();
    const Reply hid = device_->control({0x81, 6, 0x2100, 0, 9}, {}, now_);
    EXPECT_EQ(hid.data, Bytes(configuration.begin() + 18, configuration.begin() + 27));
    const Reply report = device_->control({0x81, 6, 0x2200, 0, 255}, {}, now_);
    EXPECT_EQ(report.handshake, Handshake::kAck);
    EXPECT_EQ(report.data.size(), configuration[25]);
}

TEST_F(VirtualIdCardReader, GivesReportsOfZerosWhileItHasNothingToSay) {
    put("resident");
    EXPECT_EQ(poll(), zeros);
}

TEST_F(VirtualIdCardReader, GivesReportsOfZerosWhileItWorksOnACommand) {
    put("resident");
    send(find);
    EXPECT_EQ(poll(), zeros);
    now_ += kProcessingTime - 1ms;
    EXPECT_EQ(poll(), zeros);
    now_ += 1ms;
    EXPECT_NE(poll(), zeros);
    EXPECT_EQ(poll(), zeros);
}

TEST_F(VirtualIdCardReader, FindsACard) {
    put("resident");
    EXPECT_EQ(exchange(find), (Bytes{0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x08, 0x00, 0x00, 0x9F,
                                     0x00, 0x00, 0x00, 0x00, 0x97}));
}

TEST_F(VirtualIdCardReader, SelectsTheCardItFound) {
    put("resident");
    exchange(find);
    EXPECT_EQ(exchange(select), (Bytes{0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x0C, 0x00, 0x00, 0x90,
                                       0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x9C}));
}

TEST_F(VirtualIdCardReader, ReadsLengthsTextAndPictureIn1295Bytes) {
    put("resident");
    exchange(find);
    exchange(select);
    const Bytes reply = exchange(read_base);
    ASSERT_EQ(reply.size(), 1295U);
    EXPECT_EQ(Bytes(reply.begin() + 5, reply.begin() + 14),
              (Bytes{0x05, 0x08, 0x00, 0x00, 0x90, 0x01, 0x00, 0x04, 0x00}));
    EXPECT_EQ(Bytes(reply.begin() + 14, reply.begin() + 270), resident_card().text);
    EXPECT_EQ(Bytes(reply.begin() + 270, reply.end() - 1), resident_card().photo);
    EXPECT_EQ(checksum(reply), 0U); // the checksum's own byte makes the sum zero
}

TEST_F(VirtualIdCardReader, ReadsASelectedCardAgain) {
    put("resident");
    exchange(find);
    exchange(select);
    EXPECT_EQ(exchange(read_base), exchange(read_base));
}

TEST_F(VirtualIdCardReader, RefusesWhereThereIsNoCard) {
    put("none");
    EXPECT_EQ(refusal(find), 0x80);
    EXPECT_EQ(refusal(select), 0x81);
    EXPECT_EQ(refusal(read_base), 0x41);
}

TEST_F(VirtualIdCardReader, RefusesCommandsOutOfOrder) {
    put("resident");
    EXPECT_EQ(refusal(select), 0x81);
    EXPECT_EQ(refusal(read_base), 0x41);
    exchange(find);
    EXPECT_EQ(refusal(read_base), 0x41);
    exchange(select);
    exchange(find); // begins anew
    EXPECT_EQ(refusal(read_base), 0x41);
}

TEST_F(VirtualIdCardReader, ForgetsTheCardWhenPowerGoes) {
    put("resident");
    exchange(find);
    exchange(select);
    device_->unplugged();
    device_->reset();
    EXPECT_EQ(refusal(read_base), 0x41);
}

TEST_F(VirtualIdCardReader, RefusesAWrongChecksum) {
    put("resident");
    Bytes command = find;
    command.back() ^= 0x01;
    EXPECT_EQ(refusal(command), 0x10);
}

TEST_F(VirtualIdCardReader, RefusesAWrongLength) {
    put("resident");
    EXPECT_EQ(refusal({0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x00}), 0x11);
    EXPECT_EQ(refusal({0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x02, 0x20, 0x22}), 0x11);
    EXPECT_EQ(refusal({0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x04, 0x20, 0x01, 0x00, 0x25}), 0x11);
}

TEST_F(VirtualIdCardReader, RefusesAnUnknownCommand) {
    put("resident");
    EXPECT_EQ(refusal({0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x03, 0x20, 0x03, 0x20}), 0x21);
}

TEST_F(VirtualIdCardReader, DropsWhatIsNoFrame) {
    put("resident");
    send({0xAA, 0xAA, 0xAA, 0x69, 0x96, 0x00, 0x03, 0x20, 0x01, 0x22});
    now_ += 1s;
    EXPECT_EQ(poll(), zeros);
    EXPECT_EQ(exchange(find)[9], 0x9F);
}

TEST_F(VirtualIdCardReader, PutsALongFrameTogetherFromItsReports) {
    put("resident");
    Bytes command{0xAA, 0xAA, 0xAA, 0x96, 0x69, 0x00, 0x50}; // 87 bytes in all
    command.resize(87, 0x55);
    command.back() = 0;
    command.back() = static_cast<std::uint8_t>(checksum(command));
    send(Bytes(command.begin(), command.begin() + 64));
    now_ += 1s;
    EXPECT_EQ(poll(), zeros);
    EXPECT_EQ(refusal(Bytes(command.begin() + 64, command.end())), 0x11);
    EXPECT_EQ(exchange(find)[9], 0x9F);
}

TEST_F(VirtualIdCardReader, LosesAReplyThatWasNotReadToItsEnd) {
    put("resident");
    exchange(find);
    exchange(select);
    send(read_base);
    now_ += 1s;
    EXPECT_NE(poll(), zeros);
    send({0x00}); // any report of the host ends it
    EXPECT_EQ(poll(), zeros);
    EXPECT_EQ(exchange(find).size(), 15U);
}

TEST_F(VirtualIdCardReader, StallsRequestsItDoesNotKnow) {
    put("resident");
    const Bytes report(64, 0);
    const auto answer = [&](const ControlSetup& setup) {
        return device_->control(setup, report, now_).handshake;
    };
    EXPECT_EQ(answer({0x21, 0x0A, 0, 0, 0}), Handshake::kAck);      // SET_IDLE: every host sends it
    EXPECT_EQ(answer({0xA1, 1, 0x0300, 0, 64}), Handshake::kStall); // a feature report
    EXPECT_EQ(answer({0x21, 9, 0x0201, 0, 64}), Handshake::kStall); // another report identifier
    EXPECT_EQ(answer({0xA1, 1, 0x0100, 1, 64}), Handshake::kStall); // another interface
    EXPECT_EQ(answer({0xC0, 1, 0x0100, 0, 64}), Handshake::kStall); // a vendor request
    EXPECT_EQ(answer({0x81, 6, 0x2300, 0, 64}), Handshake::kStall); // a physical descriptor
    EXPECT_EQ(device_->control(set_report, Bytes(65, 0), now_).handshake, Handshake::kStall);
}

TEST_F(VirtualIdCardReader, HasAnInterruptEndpointThatStaysQuiet) {
    put("resident");
    exchange(find);
    EXPECT_EQ(device_->in(0x81, now_).handshake, Handshake::kNak);
    device_->clear_halt(0x81);
    EXPECT_EQ(device_->in(0x81, now_).handshake, Handshake::kNak);
    EXPECT_EQ(device_->out(0x01, {}, now_), Handshake::kStall);
}

TEST(VirtualIdCardReaderKinds, AreFourAndNoOthers) {
    for (const char* kind : {"resident", "foreign", "hmt", "none"}) {
        EXPECT_NE(make_idcard_reader(kind), nullptr) << kind;
    }
    EXPECT_EQ(make_idcard_reader("passport"), nullptr);
    EXPECT_EQ(make_idcard_reader(""), nullptr);
}

// Characters of a text block, code below 0x100 only.
std::string characters(const Bytes& text, std::size_t offset, std::size_t count) {
    std::string found;
    for (std::size_t i = 0; i < count; ++i) {
        EXPECT_EQ(text[offset + 2 * i + 1], 0);
        found += static_cast<char>(text[offset + 2 * i]);
    }
    return found;
}

// Weights 2^(18 - position); the sum of a valid number is 1 modulo 11.
bool is_valid_identity_number(const std::string& number) {
    constexpr std::array<int, 18> weights{7, 9, 10, 5, 8, 4, 2, 1, 6, 3, 7, 9, 10, 5, 8, 4, 2, 1};
    int sum = 0;
    for (std::size_t i = 0; i < weights.size(); ++i) {
        sum += weights[i] * (number[i] == 'X' ? 10 : number[i] - '0');
    }
    return number.size() == 18 && sum % 11 == 1;
}

TEST(VirtualIdentityCards, FillTheirTextAndPictureBlocks) {
    for (const IdentityCard& card : {resident_card(), foreign_permit(), hmt_permit()}) {
        EXPECT_EQ(card.text.size(), 256U);
        EXPECT_EQ(card.photo.size(), 1024U);
    }
}

TEST(VirtualIdentityCards, TellTheirKindAtByte248) {
    const auto kind = [](const IdentityCard& card) {
        return Bytes(card.text.begin() + 248, card.text.begin() + 250);
    };
    EXPECT_EQ(kind(resident_card()), (Bytes{' ', 0}));
    EXPECT_EQ(kind(foreign_permit()), (Bytes{'I', 0}));
    EXPECT_EQ(kind(hmt_permit()), (Bytes{'J', 0}));
}

TEST(VirtualIdentityCards, CarryNumbersThatPassTheirCheck) {
    const std::string resident = characters(resident_card().text, 122, 18);
    EXPECT_EQ(resident.substr(0, 17), "99010119900307002");
    EXPECT_TRUE(is_valid_identity_number(resident)) << resident;
    const std::string hmt = characters(hmt_permit().text, 122, 18);
    EXPECT_TRUE(is_valid_identity_number(hmt)) << hmt;
    EXPECT_EQ(characters(resident_card().text, 36, 8), "19900307");
    EXPECT_EQ(characters(resident_card().text, 204, 8), "20400101");
}

} // namespace
