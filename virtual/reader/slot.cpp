// What the reader does with each CCID message.
#include "virtual/reader/slot.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qaven::virtual_reader {
namespace {

namespace rdr_to_pc {
constexpr std::uint8_t data_block = 0x80;
constexpr std::uint8_t slot_status = 0x81;
constexpr std::uint8_t parameters = 0x82;
constexpr std::uint8_t escape = 0x83;
constexpr std::uint8_t data_rate = 0x84;
} // namespace rdr_to_pc

constexpr std::uint8_t command_failed = 0x40;

// bError: a small number is the offset of the field that is wrong.
constexpr std::uint8_t error_command_not_supported = 0x00;
constexpr std::uint8_t error_bad_length = 1;
constexpr std::uint8_t error_bad_slot = 5;
constexpr std::uint8_t error_bad_power_select = 7;
constexpr std::uint8_t error_bad_level = 8;
constexpr std::uint8_t error_icc_mute = 0xFE;

constexpr std::uint8_t highest_power_select = 3;

constexpr std::uint8_t clock_running = 0;
constexpr std::uint8_t clock_stopped_low = 1;

// A character on the card's line: start bit, eight data bits, parity, two of guard time.
constexpr unsigned bits_per_character = 12;

std::uint8_t reply_type(std::uint8_t command) {
    switch (command) {
    case pc_to_rdr::icc_power_on:
    case pc_to_rdr::xfr_block:
    case pc_to_rdr::secure:
        return rdr_to_pc::data_block;
    case pc_to_rdr::get_parameters:
    case pc_to_rdr::reset_parameters:
    case pc_to_rdr::set_parameters:
        return rdr_to_pc::parameters;
    case pc_to_rdr::escape:
        return rdr_to_pc::escape;
    case pc_to_rdr::set_data_rate:
        return rdr_to_pc::data_rate;
    default:
        return rdr_to_pc::slot_status;
    }
}

// TA1 of the answer to reset: transmission factors, 11 by default.
std::uint8_t transmission_factors(std::span<const std::uint8_t> atr) {
    constexpr std::uint8_t default_factors = 0x11;
    constexpr std::uint8_t ta1_present = 0x10;
    return atr.size() > 2 && (atr[1] & ta1_present) != 0 ? atr[2] : default_factors;
}

} // namespace

Slot::Slot(virtual_card::Icc* card, const Behaviour& behaviour)
    : card_(behaviour.remove_card_after == 0U ? nullptr : card), behaviour_(behaviour) {}

Slot::IccStatus Slot::icc_status() const {
    if (card_ == nullptr) {
        return IccStatus::absent;
    }
    return powered_ ? IccStatus::active : IccStatus::inactive;
}

Bytes Slot::reply(const Message& to, std::uint8_t type, std::uint8_t last,
                  std::span<const std::uint8_t> data) const {
    Bytes bytes(ccid_header_size + data.size());
    bytes[0] = type;
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[1 + i] = static_cast<std::uint8_t>((data.size() >> (8 * i)) & 0xFFU);
    }
    bytes[5] = to.slot();
    bytes[6] = to.seq();
    bytes[7] = static_cast<std::uint8_t>(icc_status());
    bytes[9] = last;
    std::copy(data.begin(), data.end(), bytes.begin() + ccid_header_size);
    return bytes;
}

Bytes Slot::refusal(const Message& to, std::uint8_t error) const {
    // An unsupported command is answered by a slot status, every other failure by the command's own
    // kind of reply.
    const std::uint8_t type =
        error == error_command_not_supported ? rdr_to_pc::slot_status : reply_type(to.type());
    Bytes bytes = reply(to, type);
    bytes[7] = static_cast<std::uint8_t>(bytes[7] | command_failed);
    bytes[8] = error;
    return bytes;
}

std::chrono::nanoseconds Slot::line_time(std::size_t bytes) const {
    constexpr std::uint64_t nanoseconds_per_second = 1'000'000'000;
    if (behaviour_.baud == 0) {
        return std::chrono::nanoseconds{0};
    }
    return std::chrono::nanoseconds(bytes * bits_per_character * nanoseconds_per_second /
                                    behaviour_.baud);
}

std::optional<std::uint8_t> Slot::framing_error(const Message& message) const {
    if (message.arrival == Arrival::too_long) {
        return error_bad_length;
    }
    if (!behaviour_.strict) {
        return std::nullopt;
    }
    switch (message.arrival) {
    case Arrival::unknown_start:
        return error_command_not_supported;
    case Arrival::cut_short:
    case Arrival::with_surplus:
        return error_bad_length;
    default:
        return std::nullopt;
    }
}

std::optional<Slot::Answer> Slot::answer(const Message& message) {
    if (message.arrival == Arrival::unknown_start && !behaviour_.strict) {
        return std::nullopt;
    }
    if (const auto error = framing_error(message)) {
        return Answer{.message = refusal(message, *error)};
    }
    if (message.slot() != 0) {
        Bytes bytes = refusal(message, error_bad_slot);
        bytes[7] = command_failed | static_cast<std::uint8_t>(IccStatus::absent);
        return Answer{.message = std::move(bytes)};
    }
    switch (message.type()) {
    case pc_to_rdr::icc_power_on:
        return power_on(message);
    case pc_to_rdr::icc_power_off:
        power_off();
        return Answer{.message = reply(message, rdr_to_pc::slot_status, clock_stopped_low)};
    case pc_to_rdr::get_slot_status:
        return Answer{.message = reply(message, rdr_to_pc::slot_status,
                                       powered_ ? clock_running : clock_stopped_low)};
    case pc_to_rdr::get_parameters:
        return parameters(message);
    case pc_to_rdr::xfr_block:
        return transfer(message);
    default:
        return Answer{.message = refusal(message, error_command_not_supported)};
    }
}

Slot::Answer Slot::power_on(const Message& message) {
    if (behaviour_.strict && message.bytes[7] > highest_power_select) {
        return {.message = refusal(message, error_bad_power_select)};
    }
    if (card_ == nullptr) {
        return {.message = refusal(message, error_icc_mute)};
    }
    power_off();
    atr_ = card_->power_on();
    if (atr_.empty()) {
        return {.message = refusal(message, error_icc_mute)};
    }
    powered_ = true;
    return {.message = reply(message, rdr_to_pc::data_block, 0, atr_),
            .delay = line_time(atr_.size())};
}

Slot::Answer Slot::transfer(const Message& message) {
    if (behaviour_.strict && (message.bytes[8] != 0 || message.bytes[9] != 0)) {
        return {.message = refusal(message, error_bad_level)};
    }
    if (!powered_) {
        return {.message = refusal(message, error_icc_mute)};
    }
    const Bytes response = card_->transmit(message.data());
    // T=0: the card's procedure byte travels too.
    const auto delay = line_time(message.data().size() + 1 + response.size());
    Answer answer{.message = reply(message, rdr_to_pc::data_block, 0, response), .delay = delay};
    ++apdus_;
    if (behaviour_.remove_card_after && apdus_ >= *behaviour_.remove_card_after) {
        remove_card();
    }
    return answer;
}

Slot::Answer Slot::parameters(const Message& message) const {
    constexpr std::uint8_t protocol_t0 = 0;
    if (!powered_) {
        return {.message = refusal(message, error_icc_mute)};
    }
    const std::array<std::uint8_t, 5> t0{
        transmission_factors(atr_), // bmFindexDindex
        0x00,                       // bmTCCKST0: direct convention
        0x00,                       // bGuardTimeT0
        0x0A,                       // bWaitingIntegerT0
        0x00,                       // bClockStop: not allowed
    };
    return {.message = reply(message, rdr_to_pc::parameters, protocol_t0, t0)};
}

void Slot::power_off() {
    if (powered_) {
        card_->power_off();
        powered_ = false;
    }
}

void Slot::remove_card() {
    power_off();
    card_ = nullptr;
}

void Slot::insert_card(virtual_card::Icc& card) {
    remove_card();
    behaviour_.remove_card_after.reset(); // that a card leaves by itself happens once
    card_ = &card;
}

} // namespace qaven::virtual_reader
