// What the reader does with each CCID message.
#include "virtual/reader/slot.h"

#include <algorithm>
#include <array>
#include <utility>

namespace qaven::virtual_reader {
namespace {

// CCID 1.1, 6.2.1 to 6.2.5.
namespace rdr_to_pc {
constexpr std::uint8_t kDataBlock = 0x80;
constexpr std::uint8_t kSlotStatus = 0x81;
constexpr std::uint8_t kParameters = 0x82;
constexpr std::uint8_t kEscape = 0x83;
constexpr std::uint8_t kDataRate = 0x84;
} // namespace rdr_to_pc

// bmCommandStatus 1 in bStatus (CCID 1.1, 6.2.6).
constexpr std::uint8_t kCommandFailed = 0x40;

// bError (CCID 1.1, 6.2.6): a small number is the offset of the field that is wrong.
constexpr std::uint8_t kErrorCommandNotSupported = 0x00;
constexpr std::uint8_t kErrorBadLength = 1;
constexpr std::uint8_t kErrorBadSlot = 5;
constexpr std::uint8_t kErrorBadPowerSelect = 7;
constexpr std::uint8_t kErrorBadLevel = 8;
constexpr std::uint8_t kErrorIccMute = 0xFE;

constexpr std::uint8_t kHighestPowerSelect = 3;

constexpr std::uint8_t kClockRunning = 0;
constexpr std::uint8_t kClockStoppedLow = 1;

// A character on the card's line: start bit, eight data bits, parity, two of guard time (ISO/IEC
// 7816-3, 7.2).
constexpr unsigned kBitsPerCharacter = 12;

std::uint8_t reply_type(std::uint8_t command) {
    switch (command) {
    case pc_to_rdr::kIccPowerOn:
    case pc_to_rdr::kXfrBlock:
    case pc_to_rdr::kSecure:
        return rdr_to_pc::kDataBlock;
    case pc_to_rdr::kGetParameters:
    case pc_to_rdr::kResetParameters:
    case pc_to_rdr::kSetParameters:
        return rdr_to_pc::kParameters;
    case pc_to_rdr::kEscape:
        return rdr_to_pc::kEscape;
    case pc_to_rdr::kSetDataRate:
        return rdr_to_pc::kDataRate;
    default:
        return rdr_to_pc::kSlotStatus;
    }
}

// TA1 of the ATR: transmission factors, 11 by default (ISO/IEC 7816-3, 8.3).
std::uint8_t transmission_factors(std::span<const std::uint8_t> atr) {
    constexpr std::uint8_t kDefaultFactors = 0x11;
    constexpr std::uint8_t kTa1Present = 0x10;
    return atr.size() > 2 && (atr[1] & kTa1Present) != 0 ? atr[2] : kDefaultFactors;
}

} // namespace

Slot::Slot(virtual_card::Icc* card, const Behaviour& behaviour)
    : card_(behaviour.remove_card_after == 0U ? nullptr : card), behaviour_(behaviour) {}

Slot::IccStatus Slot::icc_status() const {
    if (card_ == nullptr) {
        return IccStatus::kAbsent;
    }
    return powered_ ? IccStatus::kActive : IccStatus::kInactive;
}

Bytes Slot::reply(const Message& to, std::uint8_t type, std::uint8_t last,
                  std::span<const std::uint8_t> data) const {
    Bytes bytes(kCcidHeaderSize + data.size());
    bytes[0] = type;
    for (std::size_t i = 0; i < 4; ++i) {
        bytes[1 + i] = static_cast<std::uint8_t>((data.size() >> (8 * i)) & 0xFFU);
    }
    bytes[5] = to.slot();
    bytes[6] = to.seq();
    bytes[7] = static_cast<std::uint8_t>(icc_status());
    bytes[9] = last;
    std::copy(data.begin(), data.end(), bytes.begin() + kCcidHeaderSize);
    return bytes;
}

Bytes Slot::error_reply(const Message& to, std::uint8_t error) const {
    // An unsupported command is answered with a slot status (CCID 1.1, 6.2.2), every other failure
    // with the command's own kind of reply.
    const std::uint8_t type =
        error == kErrorCommandNotSupported ? rdr_to_pc::kSlotStatus : reply_type(to.type());
    Bytes bytes = reply(to, type);
    bytes[7] = static_cast<std::uint8_t>(bytes[7] | kCommandFailed);
    bytes[8] = error;
    return bytes;
}

std::chrono::nanoseconds Slot::line_time(std::size_t bytes) const {
    constexpr std::uint64_t kNanosecondsPerSecond = 1'000'000'000;
    if (behaviour_.baud == 0) {
        return std::chrono::nanoseconds{0};
    }
    return std::chrono::nanoseconds(bytes * kBitsPerCharacter * kNanosecondsPerSecond /
                                    behaviour_.baud);
}

std::optional<std::uint8_t> Slot::framing_error(const Message& message) const {
    if (message.arrival == Arrival::kTooLong) {
        return kErrorBadLength;
    }
    if (!behaviour_.strict) {
        return std::nullopt;
    }
    switch (message.arrival) {
    case Arrival::kUnknownStart:
        return kErrorCommandNotSupported;
    case Arrival::kCutShort:
    case Arrival::kWithSurplus:
        return kErrorBadLength;
    default:
        return std::nullopt;
    }
}

std::optional<Slot::Answer> Slot::answer(const Message& message) {
    if (message.arrival == Arrival::kUnknownStart && !behaviour_.strict) {
        return std::nullopt;
    }
    if (const auto error = framing_error(message)) {
        return Answer{.message = error_reply(message, *error)};
    }
    if (message.slot() != 0) {
        Bytes bytes = error_reply(message, kErrorBadSlot);
        bytes[7] = kCommandFailed | static_cast<std::uint8_t>(IccStatus::kAbsent);
        return Answer{.message = std::move(bytes)};
    }
    switch (message.type()) {
    case pc_to_rdr::kIccPowerOn:
        return power_on(message);
    case pc_to_rdr::kIccPowerOff:
        power_off();
        return Answer{.message = reply(message, rdr_to_pc::kSlotStatus, kClockStoppedLow)};
    case pc_to_rdr::kGetSlotStatus:
        return Answer{.message = reply(message, rdr_to_pc::kSlotStatus,
                                       powered_ ? kClockRunning : kClockStoppedLow)};
    case pc_to_rdr::kGetParameters:
        return parameters(message);
    case pc_to_rdr::kXfrBlock:
        return transfer(message);
    default:
        return Answer{.message = error_reply(message, kErrorCommandNotSupported)};
    }
}

Slot::Answer Slot::power_on(const Message& message) {
    if (behaviour_.strict && message.bytes[7] > kHighestPowerSelect) {
        return {.message = error_reply(message, kErrorBadPowerSelect)};
    }
    if (card_ == nullptr) {
        return {.message = error_reply(message, kErrorIccMute)};
    }
    power_off();
    atr_ = card_->power_on();
    if (atr_.empty()) {
        return {.message = error_reply(message, kErrorIccMute)};
    }
    powered_ = true;
    return {.message = reply(message, rdr_to_pc::kDataBlock, 0, atr_),
            .delay = line_time(atr_.size())};
}

Slot::Answer Slot::transfer(const Message& message) {
    if (behaviour_.strict && (message.bytes[8] != 0 || message.bytes[9] != 0)) {
        return {.message = error_reply(message, kErrorBadLevel)};
    }
    if (!powered_) {
        return {.message = error_reply(message, kErrorIccMute)};
    }
    const Bytes response = card_->transmit(message.data());
    // T=0: the card's procedure byte travels too.
    const auto delay = line_time(message.data().size() + 1 + response.size());
    Answer answer{.message = reply(message, rdr_to_pc::kDataBlock, 0, response), .delay = delay};
    ++apdus_;
    if (behaviour_.remove_card_after && apdus_ >= *behaviour_.remove_card_after) {
        remove_card();
    }
    return answer;
}

Slot::Answer Slot::parameters(const Message& message) const {
    constexpr std::uint8_t kProtocolT0 = 0;
    if (!powered_) {
        return {.message = error_reply(message, kErrorIccMute)};
    }
    const std::array<std::uint8_t, 5> t0{
        transmission_factors(atr_), // bmFindexDindex
        0x00,                       // bmTCCKST0: direct convention
        0x00,                       // bGuardTimeT0
        0x0A,                       // bWaitingIntegerT0
        0x00,                       // bClockStop: not allowed
    };
    return {.message = reply(message, rdr_to_pc::kParameters, kProtocolT0, t0)};
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
