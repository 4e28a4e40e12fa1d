// Where messages begin and end in a stream of packets.
#include "virtual/reader/framing.h"

#include <algorithm>
#include <array>

namespace qaven::virtual_reader {
namespace {

constexpr std::array known_types{
    pc_to_rdr::set_parameters,  pc_to_rdr::icc_power_on,   pc_to_rdr::icc_power_off,
    pc_to_rdr::get_slot_status, pc_to_rdr::secure,         pc_to_rdr::t0_apdu,
    pc_to_rdr::escape,          pc_to_rdr::get_parameters, pc_to_rdr::reset_parameters,
    pc_to_rdr::icc_clock,       pc_to_rdr::xfr_block,      pc_to_rdr::mechanical,
    pc_to_rdr::abort,           pc_to_rdr::set_data_rate,
};

bool known(std::uint8_t type) {
    return std::find(known_types.begin(), known_types.end(), type) != known_types.end();
}

} // namespace

std::uint32_t dw_length(std::span<const std::uint8_t> header) {
    return static_cast<std::uint32_t>(header[1]) | (static_cast<std::uint32_t>(header[2]) << 8U) |
           (static_cast<std::uint32_t>(header[3]) << 16U) |
           (static_cast<std::uint32_t>(header[4]) << 24U);
}

std::optional<Message> MessageAssembler::packet(std::span<const std::uint8_t> packet) {
    const bool last = packet.size() < bulk_packet_size;
    if (skipping_) {
        if (!last) {
            return std::nullopt;
        }
        return finish(Arrival::too_long);
    }
    if (buffer_.empty()) {
        if (packet.empty()) {
            return std::nullopt; // ends a message of whole packets that is already taken
        }
        if (!known(packet[0])) {
            Message stray{.arrival = Arrival::unknown_start,
                          .bytes = {packet.begin(), packet.end()}};
            stray.bytes.resize(std::max(stray.bytes.size(), ccid_header_size));
            return stray;
        }
    }
    buffer_.insert(buffer_.end(), packet.begin(), packet.end());
    if (buffer_.size() < ccid_header_size) {
        buffer_.resize(ccid_header_size);
        return finish(Arrival::cut_short);
    }
    const std::size_t whole = ccid_header_size + std::size_t{dw_length(buffer_)};
    if (whole > max_ccid_message_length) {
        buffer_.resize(ccid_header_size);
        if (last) {
            return finish(Arrival::too_long);
        }
        skipping_ = true;
        return std::nullopt;
    }
    if (buffer_.size() < whole && !last) {
        return std::nullopt;
    }
    const Arrival arrival = buffer_.size() < whole   ? Arrival::cut_short
                            : buffer_.size() > whole ? Arrival::with_surplus
                                                     : Arrival::exact;
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
    for (std::size_t at = 0; at <= message.size(); at += bulk_packet_size) {
        const auto piece =
            message.subspan(at, std::min<std::size_t>(bulk_packet_size, message.size() - at));
        packets.emplace_back(piece.begin(), piece.end());
    }
    return packets;
}

} // namespace qaven::virtual_reader
