// The reader's side of the slot protocol, and the script.
#include "scripted_card.h"

#include "engine/card/session.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <utility>

namespace qaven::test {

namespace {

constexpr std::size_t kPacket = 64;
constexpr std::size_t kHeader = 10;
constexpr std::size_t kFirstPacketData = kPacket - kHeader;

constexpr std::uint8_t kPowerOn = 0x62;
constexpr std::uint8_t kPowerOff = 0x63;
constexpr std::uint8_t kSlotStatus = 0x65;
constexpr std::uint8_t kTransferBlock = 0x6F;

constexpr std::uint8_t kDataBlock = 0x80;
constexpr std::uint8_t kSlotStatusReply = 0x81;

constexpr std::uint8_t kActive = 0x00;
constexpr std::uint8_t kInactive = 0x01;
constexpr std::uint8_t kAbsent = 0x02;
constexpr std::uint8_t kFailed = 0x40;

constexpr std::string_view kAnyByte = "??";

std::vector<std::optional<std::uint8_t>> pattern(std::string_view text) {
    std::string compact;
    std::ranges::remove_copy(text, std::back_inserter(compact), ' ');
    std::vector<std::optional<std::uint8_t>> parsed;
    for (std::size_t i = 0; i < compact.size(); i += 2) {
        const std::string_view byte = std::string_view(compact).substr(i, 2);
        if (byte == kAnyByte) {
            parsed.emplace_back(std::nullopt);
        } else {
            parsed.emplace_back(bytes(byte).front());
        }
    }
    return parsed;
}

// How many of the APDU's bytes the library puts on the wire: of a long one the last ten are lost
// unless the last packet, which carries length modulo 64 bytes, reaches that far.
std::size_t bytes_on_wire(std::size_t length) {
    const std::size_t further = (length + kHeader) / kPacket;
    if (further == 0) {
        return length;
    }
    return std::min(length, kFirstPacketData + (further - 1) * kPacket + length % kPacket);
}

} // namespace

std::vector<Bytes> command_packets(std::span<const std::uint8_t> apdu, int seq) {
    Bytes message{kTransferBlock,
                  static_cast<std::uint8_t>(apdu.size()),
                  0,
                  0,
                  0,
                  0,
                  static_cast<std::uint8_t>(seq),
                  0,
                  0,
                  0};
    message.insert(message.end(), apdu.begin(), apdu.end());
    const std::size_t further = message.size() / kPacket;
    if (further == 0) {
        return {message};
    }
    message.resize(kPacket * (further + 1));
    std::vector<Bytes> packets;
    for (std::size_t k = 0; k < further; ++k) {
        const auto start = message.begin() + static_cast<std::ptrdiff_t>(k * kPacket);
        packets.emplace_back(start, start + kPacket);
    }
    const auto start = message.begin() + static_cast<std::ptrdiff_t>(further * kPacket);
    packets.emplace_back(start, start + static_cast<std::ptrdiff_t>(apdu.size() % kPacket));
    return packets;
}

Bytes reply_message(std::uint8_t type, int seq, std::uint8_t status,
                    std::span<const std::uint8_t> data) {
    const auto length = static_cast<std::uint32_t>(data.size());
    Bytes message{type,
                  static_cast<std::uint8_t>(length),
                  static_cast<std::uint8_t>(length >> 8U),
                  static_cast<std::uint8_t>(length >> 16U),
                  static_cast<std::uint8_t>(length >> 24U),
                  0,
                  static_cast<std::uint8_t>(seq),
                  status,
                  0,
                  0};
    message.insert(message.end(), data.begin(), data.end());
    return message;
}

std::vector<Bytes> in_packets(std::span<const std::uint8_t> message) {
    std::vector<Bytes> packets;
    while (message.size() >= kPacket) {
        packets.emplace_back(message.begin(), message.begin() + kPacket);
        message = message.subspan(kPacket);
    }
    packets.emplace_back(message.begin(), message.end());
    return packets;
}

ScriptedCard::ScriptedCard(FakeUsb& usb, int slot) : usb_(usb), slot_(slot) {
    usb_.plug(ccid_reader());
    usb_.on_claim = [this](int interface) {
        interface_ = interface;
        next_seq_ = 0;
        incoming_.clear();
        events_.push_back("claim " + std::to_string(interface));
    };
    usb_.on_close = [this] {
        interface_ = kNoSlot;
        events_.emplace_back("close");
    };
    usb_.on_packet = [this](std::span<const std::uint8_t> packet) { take_packet(packet); };
    usb_.on_lost_packet = [this] {
        // The message has used its number all the same.
        if (incoming_.empty()) {
            next_seq_ = (next_seq_ + 1) % 256;
        }
        incoming_.clear();
    };
}

ScriptedCard::~ScriptedCard() {
    verify();
    usb_.on_claim = nullptr;
    usb_.on_close = nullptr;
    usb_.on_packet = nullptr;
    usb_.on_lost_packet = nullptr;
}

ScriptedCard& ScriptedCard::expect(std::string_view command, std::string_view response) {
    script_.push_back({std::string(command), pattern(command), {}, bytes(response), 0});
    return *this;
}

ScriptedCard& ScriptedCard::expect_silence(std::string_view command) {
    return expect_failure(command, LIBUSB_ERROR_TIMEOUT);
}

ScriptedCard& ScriptedCard::expect_failure(std::string_view command, int code) {
    script_.push_back({std::string(command), pattern(command), {}, std::nullopt, code});
    return *this;
}

ScriptedCard& ScriptedCard::expect_packets(std::string_view command, std::vector<Bytes> packets) {
    script_.push_back(
        {std::string(command), pattern(command), std::move(packets), std::nullopt, 0});
    return *this;
}

int ScriptedCard::connect() {
    const int result = session::open_with_card();
    events_.clear();
    usb_.clear_log();
    return result;
}

void ScriptedCard::disconnect() {
    if (usb_.starts() > 0) {
        session::end();
    }
    session::forget();
}

void ScriptedCard::verify() {
    for (const std::string& what : take_violations()) {
        ADD_FAILURE() << "card: " << what;
    }
}

std::vector<std::string> ScriptedCard::take_violations() {
    if (!off_script_) {
        for (const Exchange& exchange : script_) {
            violations_.push_back("was never sent " + exchange.text);
        }
    }
    script_.clear();
    off_script_ = false;
    return std::exchange(violations_, {});
}

std::vector<std::string> ScriptedCard::commands() const {
    std::vector<std::string> found;
    std::ranges::copy_if(events_, std::back_inserter(found), [](const std::string& event) {
        return event.find_first_not_of("0123456789ABCDEF") == std::string::npos;
    });
    return found;
}

void ScriptedCard::take_packet(std::span<const std::uint8_t> packet) {
    if (incoming_.empty()) {
        if (packet.size() < kHeader) {
            violation("was sent a packet without a header: " + hex(packet));
            return;
        }
        seq_ = packet[6];
        if (seq_ != next_seq_) {
            violation("was sent bSeq " + std::to_string(seq_) + " instead of " +
                      std::to_string(next_seq_));
        }
        next_seq_ = (seq_ + 1) % 256;
        if (packet[0] != kTransferBlock) {
            take_control(packet);
            return;
        }
        incoming_length_ = command_length(packet[1]);
    }
    incoming_.emplace_back(packet.begin(), packet.end());
    if (incoming_.size() == 1 + (incoming_length_ + kHeader) / kPacket) {
        take_command();
        incoming_.clear();
    }
}

// A command of more than 255 bytes is announced by the low byte of its length alone.
std::size_t ScriptedCard::command_length(std::uint8_t low_byte) const {
    if (!off_script_ && !script_.empty() && script_.front().command.size() % 256 == low_byte) {
        return script_.front().command.size();
    }
    return low_byte;
}

void ScriptedCard::take_control(std::span<const std::uint8_t> message) {
    const std::uint8_t type = message[0];
    Bytes expected(kHeader);
    expected[0] = type;
    expected[6] = static_cast<std::uint8_t>(seq_);
    if (!std::ranges::equal(message, expected)) {
        violation("was sent a wrong message " + hex(message));
    }
    const bool present = interface_ == slot_;
    switch (type) {
    case kPowerOn:
        events_.emplace_back("power on");
        powered_ = present;
        reply(kDataBlock, powered_ ? atr : Bytes{});
        break;
    case kPowerOff:
        events_.emplace_back("power off");
        powered_ = powered_ && !present;
        reply(kSlotStatusReply, {});
        break;
    case kSlotStatus:
        events_.emplace_back("slot status");
        reply(kSlotStatusReply, {});
        break;
    default:
        violation("was sent a message of unknown type " + hex(message));
        break;
    }
}

void ScriptedCard::reply(std::uint8_t type, std::span<const std::uint8_t> data) {
    const bool present = interface_ == slot_;
    const std::uint8_t slot_state = !present ? kAbsent : powered_ ? kActive : kInactive;
    const bool refused = type == kDataBlock && slot_state != kActive;
    const auto status = static_cast<std::uint8_t>(slot_state | (refused ? kFailed : 0));
    for (Bytes& packet : in_packets(reply_message(type, seq_, status, data))) {
        usb_.answer(std::move(packet));
    }
}

bool ScriptedCard::next_is(std::span<const std::uint8_t> apdu) const {
    if (script_.empty()) {
        return false;
    }
    const Pattern& expected = script_.front().command;
    return expected.size() == incoming_length_ &&
           std::ranges::equal(apdu, std::span(expected).first(bytes_on_wire(incoming_length_)),
                              [](std::uint8_t sent, std::optional<std::uint8_t> wanted) {
                                  return !wanted || sent == *wanted;
                              });
}

void ScriptedCard::take_command() {
    Bytes wire;
    for (const Bytes& packet : incoming_) {
        wire.insert(wire.end(), packet.begin(), packet.end());
    }
    const std::size_t carried = std::min(bytes_on_wire(incoming_length_), wire.size() - kHeader);
    const Bytes apdu(wire.begin() + kHeader,
                     wire.begin() + static_cast<std::ptrdiff_t>(kHeader + carried));
    events_.push_back(hex(apdu));

    // Everything around the APDU's bytes is fixed: the header, the packet sizes, the filling.
    Bytes whole = apdu;
    whole.resize(incoming_length_);
    if (incoming_ != command_packets(whole, seq_)) {
        violation("was sent a command that is framed wrongly: " + hex(wire));
    }
    if (!powered_ || interface_ != slot_) {
        violation("was sent " + hex(apdu) + " without power");
        reply(kDataBlock, {});
        return;
    }
    if (off_script_ || !next_is(apdu)) {
        if (!off_script_) {
            violation("was sent " + hex(apdu) + " instead of " +
                      (script_.empty() ? "nothing more" : script_.front().text));
            off_script_ = true;
        }
        reply(kDataBlock, bytes("6F00"));
        return;
    }
    const Exchange exchange = std::move(script_.front());
    script_.pop_front();
    answer(exchange);
}

void ScriptedCard::answer(const Exchange& exchange) {
    if (exchange.failure != 0) {
        usb_.answer_failure(exchange.failure);
        return;
    }
    if (exchange.response) {
        reply(kDataBlock, *exchange.response);
        return;
    }
    for (const Bytes& packet : exchange.packets) {
        usb_.answer(packet);
    }
}

void ScriptedCard::violation(std::string what) {
    violations_.push_back(std::move(what));
}

} // namespace qaven::test
