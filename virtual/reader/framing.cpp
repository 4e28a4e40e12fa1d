// Where messages begin and end in a stream of packets.
#include "virtual/reader/framing.h"

#include <algorithm>
#include <array>

namespace qaven::virtual_reader {
namespace {

constexpr std::array kKnownTypes{
    pc_to_rdr::kSetParameters, pc_to_rdr::kIccPowerOn,    pc_to_rdr::kIccPowerOff,
    pc_to_rdr::kGetSlotStatus, pc_to_rdr::kSecure,        pc_to_rdr::kT0Apdu,
    pc_to_rdr::kEscape,        pc_to_rdr::kGetParameters, pc_to_rdr::kResetParameters,
    pc_to_rdr::kIccClock,      pc_to_rdr::kXfrBlock,      pc_to_rdr::kMechanical,
    pc_to_rdr::kAbort,         pc_to_rdr::kSetDataRate,
};

bool known(std::uint8_t type) {
    return std::find(kKnownTypes.begin(), kKnownTypes.end(), type) != kKnownTypes.end();
}

} // namespace

std::uint32_t dw_length(std::span<const std::uint8_t> header) {
    return static_cast<std::uint32_t>(header[1]) | (static_cast<std::uint32_t>(header[2]) << 8U) |
           (static_cast<std::uint32_t>(header[3]) << 16U) |
           (static_cast<std::uint32_t>(header[4]) << 24U);
}

std::optional<Message> MessageAssembler::packet(std::span<const std::uint8_t> packet) {
    const bool last = packet.size() < kBulkPacketSize;
    if (skipping_) {
        if (!last) {
            return std::nullopt;
        }
        return finish(Arrival::kTooLong);
    }
    if (buffer_.empty()) {
        if (packet.empty()) {
            return std::nullopt; // ends a message of whole packets that is already taken
        }
        if (!known(packet[0])) {
            Message stray{.arrival = Arrival::kUnknownStart,
                          .bytes = {packet.begin(), packet.end()}};
            stray.bytes.resize(std::max(stray.bytes.size(), kCcidHeaderSize));
            return stray;
        }
    }
    buffer_.insert(buffer_.end(), packet.begin(), packet.end());
    if (buffer_.size() < kCcidHeaderSize) {
        buffer_.resize(kCcidHeaderSize);
        return finish(Arrival::kCutShort);
    }
    const std::size_t whole = kCcidHeaderSize + std::size_t{dw_length(buffer_)};
    if (whole > kMaxCcidMessageLength) {
        buffer_.resize(kCcidHeaderSize);
        if (last) {
            return finish(Arrival::kTooLong);
        }
        skipping_ = true;
        return std::nullopt;
    }
    if (buffer_.size() < whole && !last) {
        return std::nullopt;
    }
    const Arrival arrival = buffer_.size() < whole   ? Arrival::kCutShort
                            : buffer_.size() > whole ? Arrival::kWithSurplus
                                                     : Arrival::kExact;
    buffer_.resize(whole);
    return finish(arrival);
}

void MessageAssembler::clear() {
    buffer_.clear();
    skipping_ = false;
}

Message MessageAssembler::finish(Arrival arrival) {
    Message message{.arrival = arrival, .bytes = buffer_};
    clear();
    return message;
}

std::deque<Bytes> to_packets(std::span<const std::uint8_t> message) {
    std::deque<Bytes> packets;
    for (std::size_t at = 0; at <= message.size(); at += kBulkPacketSize) {
        const auto piece =
            message.subspan(at, std::min<std::size_t>(kBulkPacketSize, message.size() - at));
        packets.emplace_back(piece.begin(), piece.end());
    }
    return packets;
}

} // namespace qaven::virtual_reader
