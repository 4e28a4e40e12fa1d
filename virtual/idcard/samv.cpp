// SAM-V frames and commands, from the module's side of the cable.
#include "virtual/idcard/samv.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

namespace qaven::virtual_idcard {
namespace {

// Preamble and start code.
constexpr std::array<std::uint8_t, 5> kFrameStart{0xAA, 0xAA, 0xAA, 0x96, 0x69};
constexpr std::size_t kLengthAt = kFrameStart.size();
constexpr std::size_t kBodyAt = kLengthAt + 2;
constexpr std::size_t kChecksumSize = 1;
// Command and parameter; none of the commands here takes data.
constexpr std::size_t kCommandSize = 2;

constexpr std::uint16_t kFindCard = 0x2001;
constexpr std::uint16_t kSelectCard = 0x2002;
constexpr std::uint16_t kReadBase = 0x3001;

std::uint8_t high(std::size_t value) {
    return static_cast<std::uint8_t>((value >> 8U) & 0xFFU);
}

std::uint8_t low(std::size_t value) {
    return static_cast<std::uint8_t>(value & 0xFFU);
}

std::size_t big_endian(std::span<const std::uint8_t> bytes) {
    return (std::size_t{bytes[0]} << 8U) | bytes[1];
}

// Over everything from the length field on.
std::uint8_t checksum_of(std::span<const std::uint8_t> bytes) {
    return std::accumulate(
        bytes.begin(), bytes.end(), std::uint8_t{0},
        [](std::uint8_t sum, std::uint8_t byte) { return static_cast<std::uint8_t>(sum ^ byte); });
}

void append(Bytes& to, std::span<const std::uint8_t> bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

Bytes reply(Sw3 status, std::span<const std::uint8_t> data = {}) {
    const std::size_t length = 3 + data.size() + kChecksumSize;
    Bytes frame(kFrameStart.begin(), kFrameStart.end());
    append(frame, std::array<std::uint8_t, 5>{high(length), low(length), 0x00, 0x00,
                                              static_cast<std::uint8_t>(status)});
    append(frame, data);
    frame.push_back(checksum_of(std::span(frame).subspan(kLengthAt)));
    return frame;
}

} // namespace

Samv::Samv(std::optional<IdentityCard> card) : card_(std::move(card)) {}

Bytes Samv::execute(std::span<const std::uint8_t> frame) {
    if (frame.size() < kBodyAt + kChecksumSize) {
        return reply(Sw3::kWrongLength);
    }
    const auto checked = frame.subspan(kLengthAt, frame.size() - kLengthAt - kChecksumSize);
    if (checksum_of(checked) != frame.back()) {
        return reply(Sw3::kWrongChecksum);
    }
    const auto command = frame.subspan(kBodyAt, frame.size() - kBodyAt - kChecksumSize);
    if (command.size() != kCommandSize) {
        return reply(Sw3::kWrongLength);
    }
    switch (big_endian(command)) {
    case kFindCard:
        return find();
    case kSelectCard:
        return select();
    case kReadBase:
        return read_base_information();
    default:
        return reply(Sw3::kUnknownCommand);
    }
}

Bytes Samv::find() {
    if (!card_) {
        stage_ = Stage::kIdle;
        return reply(Sw3::kNoCard);
    }
    stage_ = Stage::kFound;
    return reply(Sw3::kFound, std::array<std::uint8_t, 4>{});
}

Bytes Samv::select() {
    if (stage_ == Stage::kIdle) {
        return reply(Sw3::kSelectFailed);
    }
    stage_ = Stage::kSelected;
    return reply(Sw3::kSuccess, std::array<std::uint8_t, 8>{});
}

Bytes Samv::read_base_information() const {
    if (stage_ != Stage::kSelected) {
        return reply(Sw3::kReadFailed);
    }
    const IdentityCard& card = *card_;
    Bytes data{high(card.text.size()), low(card.text.size()), //
               high(card.photo.size()), low(card.photo.size())};
    append(data, card.text);
    append(data, card.photo);
    return reply(Sw3::kSuccess, data);
}

std::optional<Bytes> FrameCollector::take(std::span<const std::uint8_t> report) {
    const bool starts_a_frame =
        std::ranges::equal(kFrameStart, report.first(std::min(report.size(), kFrameStart.size())));
    if (frame_.empty() && !starts_a_frame) {
        return std::nullopt;
    }
    append(frame_, report);
    if (frame_.size() < kBodyAt) {
        return std::nullopt;
    }
    const std::size_t size = kBodyAt + big_endian(std::span(frame_).subspan(kLengthAt));
    if (frame_.size() < size) {
        return std::nullopt;
    }
    frame_.resize(size);
    return std::exchange(frame_, {});
}

} // namespace qaven::virtual_idcard
