// CCID framing: ten header bytes, 64-byte packets, one message counter.
#include "usb/ccid.h"

#include "support/boundary.h"
#include "support/diagnostics.h"
#include "support/wiped.h"
#include "usb/link_state.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <vector>

namespace diagnostics = qaven::diagnostics;
using qaven::guarded;

namespace {

constexpr std::size_t kPacket = CCID::kPacketSize;
constexpr std::size_t kHeader = CCID::kHeaderSize;
constexpr std::size_t kFirstPacketData = kPacket - kHeader;

// What read and readTimeout fill: the low byte of dwLength counts up to three further packets.
constexpr std::size_t kMessageBuffer = 4 * kPacket;

// A reader in good order announces at most what a slot can answer; one that announces more is read
// until it falls silent, but not for ever.
constexpr int kMaxDroppedPackets = 1100;

// Packets that follow the first one of a message. They are counted from the whole message, so a
// message that fills its packets exactly is followed by one more packet.
constexpr std::uint64_t packets_after_first(std::uint64_t data_length) {
    return (data_length + kHeader) / kPacket;
}

// bmCommandStatus of bStatus, and its value when the reader asks for more time (CCID 1.1, 6.2.6).
constexpr std::uint8_t kCommandStatusMask = 0xC0;
constexpr std::uint8_t kTimeExtension = 0x80;

// The reader firmware counts the last packet from the APDU length, not from the bytes still unsent.
constexpr std::size_t last_packet_length(std::size_t apdu_length) {
    return apdu_length % kPacket;
}

// A reply message counts its further packets from the data length alone, without the header.
constexpr int further_packets_of_reply(std::uint8_t low_length) {
    return low_length / CCID::kPacketSize;
}

// A negative length becomes one that cannot be framed.
std::span<const std::uint8_t> host_apdu(const unsigned char* apdu, int len) {
    return {apdu, static_cast<std::size_t>(len)};
}

bool can_be_framed(std::span<const std::uint8_t> apdu) {
    return apdu.size() <= CCID::kMaxApdu && (apdu.data() != nullptr || apdu.empty());
}

} // namespace

std::uint32_t CCID::announced_length(std::span<const std::uint8_t, kHeaderSize> header) {
    return static_cast<std::uint32_t>(header[1]) | static_cast<std::uint32_t>(header[2]) << 8U |
           static_cast<std::uint32_t>(header[3]) << 16U |
           static_cast<std::uint32_t>(header[4]) << 24U;
}

int CCID::open(int vid, int pid, int interface) {
    Myusb::init(vid, pid);
    Myusb::setInterface(interface);
    return open_device();
}

int CCID::open(int vid, int pid) {
    Myusb::init(vid, pid);
    return open_device();
}

int CCID::open_device() {
    Myusb::open();
    seq = 0;
    auto& link = qaven::link::of(this);
    link.numbers_replies = false;
    link.reply_unfinished = false;
    return 0;
}

int CCID::setInterface(int interface) {
    return Myusb::setInterface(interface);
}

void CCID::close() {
    Myusb::close();
}

void CCID::put_header(Message type, std::size_t apdu_length, std::span<std::uint8_t> message) {
    message[0] = static_cast<std::uint8_t>(type);
    // The reader wants the low byte of dwLength alone: a command of 256 bytes or more announces its
    // length modulo 256.
    message[1] = static_cast<std::uint8_t>(apdu_length);
    message[kSequenceByte] = static_cast<std::uint8_t>(seq);
    seq = static_cast<int>(static_cast<unsigned int>(seq) + 1U);
}

int CCID::send(Message type) {
    std::array<std::uint8_t, kHeader> message{};
    put_header(type, 0, message);
    return Myusb::send(message);
}

int CCID::send_slot_status_request() {
    return send(Message::kGetSlotStatus);
}

int CCID::command(Message type, std::span<std::uint8_t, kPacketSize> reply) {
    const int result = send(type);
    auto& link = qaven::link::of(this);
    link.reply_unfinished = false;
    if (Myusb::receive(reply) == 0) {
        std::array<std::uint8_t, kHeader> header{};
        std::copy_n(reply.begin(), std::min(transferred, kHeaderSize), header.begin());
        link.reply_unfinished = note_packet(note_header(header)) > 0;
        link.disturbed = link.disturbed || link.reply_unfinished;
    }
    return result;
}

// Takes down what a reply's header says of the connection; gives the bytes of the whole message.
std::uint64_t CCID::note_header(std::span<const std::uint8_t, kHeaderSize> header) {
    const std::uint64_t announced = announced_length(header);
    // The reader asks for patience: the answer itself follows as a message of its own (CCID 1.1,
    // 6.2.6).
    const bool time_extension = (header[kStatusByte] & kCommandStatusMask) == kTimeExtension;
    auto& link = qaven::link::of(this);
    link.disturbed = link.disturbed || (time_extension && announced == 0);
    link.numbers_replies = link.numbers_replies || header[kSequenceByte] != 0;
    return kHeader + announced;
}

// Counts the packet that was just read against the bytes awaited of its message; gives those still
// to come. A packet that is not full ends a message, whatever was announced.
std::uint64_t CCID::note_packet(std::uint64_t awaited) {
    const auto received = static_cast<std::uint64_t>(transferred);
    const bool last = received < kPacket;
    auto& link = qaven::link::of(this);
    link.disturbed = link.disturbed || (last && received < awaited);
    return last ? 0 : awaited - std::min(awaited, received);
}

int CCID::poweron() {
    return command(Message::kPowerOn, std::span(atr).first<kPacketSize>());
}

int CCID::poweroff() {
    return command(Message::kPowerOff, std::span(atr).first<kPacketSize>());
}

int CCID::ask_slot_status(std::span<std::uint8_t, kPacketSize> status) {
    return command(Message::kGetSlotStatus, status);
}

int CCID::GetSlotStatus(unsigned char* status) {
    return ask_slot_status(std::span<std::uint8_t, kPacketSize>(status, kPacketSize));
}

int CCID::send_apdu(std::span<const std::uint8_t> apdu) {
    std::array<std::uint8_t, kPacket> packet{};
    const qaven::WipedAtEnd wiped(packet);
    put_header(Message::kTransferBlock, apdu.size(), packet);
    auto rest = apdu;
    const auto fill_behind = [&](std::size_t from) {
        const auto part = rest.first(std::min(kPacket - from, rest.size()));
        std::fill(std::ranges::copy(part, packet.begin() + from).out, packet.end(), 0);
        rest = rest.subspan(part.size());
    };

    fill_behind(kHeader);
    const std::size_t first = apdu.size() > kFirstPacketData ? kPacket : apdu.size() + kHeader;
    if (const int sent = Myusb::send(std::span(packet).first(first)); sent < 0) {
        return sent;
    }
    const std::uint64_t further = packets_after_first(apdu.size());
    for (std::uint64_t k = 1; k < further; ++k) {
        fill_behind(0);
        if (const int sent = Myusb::send(packet); sent < 0) {
            return sent;
        }
    }
    if (further > 0) {
        fill_behind(0);
        Myusb::send(std::span(packet).first(last_packet_length(apdu.size())));
    }
    return 0;
}

// True when the message has ended.
bool CCID::drop_continuation(int timeout_ms) {
    std::array<std::uint8_t, kPacket> dropped{};
    for (int k = 0; k < kMaxDroppedPackets; ++k) {
        if (Myusb::receive(dropped, timeout_ms) != 0) {
            return false;
        }
        if (transferred < kPacketSize) {
            return true;
        }
    }
    return false;
}

int CCID::exchange(std::span<const std::uint8_t> apdu, qaven::Reply& reply, int timeout_ms) {
    if (!can_be_framed(apdu)) {
        return kIllegalData;
    }
    if (const int sent = send_apdu(apdu); sent < 0) {
        return sent;
    }
    return receive_response(reply, timeout_ms);
}

int CCID::interact_apdu(unsigned char* apdu, int len, unsigned char* resp, int* resp_len,
                        int timeout_ms) {
    // Stands when nothing is received.
    constexpr std::size_t kNone = SIZE_MAX;
    qaven::Reply reply{{resp, kReplyBufferSize}, kNone};
    const int result = exchange(host_apdu(apdu, len), reply, timeout_ms);
    if (reply.length != kNone) {
        *resp_len = static_cast<int>(reply.length);
    }
    return result;
}

int CCID::receive_response(qaven::Reply& reply, int timeout_ms) {
    auto& link = qaven::link::of(this);
    std::array<std::uint8_t, 2 * kPacket> packet{};
    const qaven::WipedAtEnd wiped(packet);
    int result = Myusb::receive(std::span(packet).first(kPacket), timeout_ms);
    if (result != 0) {
        // Whatever a failed read left behind is no reply.
        packet.fill(0);
    }
    const std::span header = std::span(packet).first<kHeader>();
    std::ranges::copy(header, link.reply_header.begin());
    const std::uint32_t announced = announced_length(header);
    const std::uint64_t further = packets_after_first(announced);
    const std::uint64_t needed = kFirstPacketData + kPacket * further;
    if (needed > kReplyBufferSize) {
        link.disturbed = true;
        link.reply_unfinished = transferred == kPacketSize && !drop_continuation(timeout_ms);
        reply.length = 0;
        return kIllegalData;
    }

    reply.length = announced;
    const auto response = reply.place.first(static_cast<std::size_t>(needed));
    std::copy_n(packet.begin() + kHeader, kFirstPacketData, response.begin());
    std::uint64_t awaited = result == 0 ? note_packet(note_header(header)) : 0;
    for (std::uint64_t k = 0; k < further; ++k) {
        link.reply_unfinished = awaited > 0;
        // Place by place: a host that holds no more than the reply really brings is not written
        // past.
        const auto place = response.subspan(kFirstPacketData + kPacket * k, kPacket);
        std::ranges::fill(place, static_cast<std::uint8_t>(0));
        result = Myusb::receive(place, timeout_ms);
        if (result < 0) {
            return result;
        }
        awaited = note_packet(awaited);
    }
    link.reply_unfinished = awaited > 0;
    return result;
}

int CCID::write(unsigned char* data, int len) {
    const auto apdu = host_apdu(data, len);
    if (!can_be_framed(apdu)) {
        return kIllegalData;
    }
    return guarded(kIllegalData, [&] {
        std::vector<std::uint8_t> message(kHeader + apdu.size());
        put_header(Message::kTransferBlock, apdu.size(), message);
        std::ranges::copy(apdu, message.begin() + kHeader);
        return Myusb::send(message);
    });
}

int CCID::receive_rest(std::span<std::uint8_t> message, int* len, unsigned int timeout_ms) {
    *len = message[1];
    int result = 0;
    for (int i = 1; i <= further_packets_of_reply(message[1]); ++i) {
        const auto place = message.subspan(kPacket * static_cast<std::size_t>(i), kPacket);
        result = transfer(ep_in, place, timeout_ms);
        diagnostics::line("%s", result == 0 ? "read Successful!" : "read error!");
        if (result != 0) {
            break;
        }
    }
    return result;
}

int CCID::read(unsigned char* buf, int* len) {
    *len = 0;
    const std::span message(buf, kMessageBuffer);
    if (const int result = Myusb::receive(message.first(kPacket)); result != 0) {
        return result;
    }
    return receive_rest(message, len, kTransferTimeoutMs) == 0 ? 0 : kReadFailed;
}

int CCID::readTimeout(unsigned char* buf, int* len, int timeout_ms) {
    *len = 0;
    const std::span message(buf, kMessageBuffer);
    if (const int result = Myusb::receive(message.first(kPacket), timeout_ms); result != 0) {
        return result;
    }
    return receive_rest(message, len, static_cast<unsigned int>(std::max(timeout_ms, 1)));
}
