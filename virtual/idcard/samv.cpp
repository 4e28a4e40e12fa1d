// SAM-V frames and commands, from the module's side of the cable.
#include "virtual/idcard/samv.h"

#include <algorithm>
#include <array>
#include <numeric>
#include <utility>

namespace qaven::virtual_idcard {
namespace {

// Preamble and start code.
constexpr std::array<std::uint8_t, 5> frame_start{0xAA, 0xAA, 0xAA, 0x96, 0x69};
constexpr std::size_t length_at = frame_start.size();
constexpr std::size_t body_at = length_at + 2;
constexpr std::size_t checksum_size = 1;
// Command and parameter; none of the commands here takes data.
constexpr std::size_t command_size = 2;

constexpr std::uint16_t find_card = 0x2001;
constexpr std::uint16_t select_card = 0x2002;
constexpr std::uint16_t read_base = 0x3001;

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
    const std::size_t length = 3 + data.size() + checksum_size;
    Bytes frame(frame_start.begin(), frame_start.end());
    append(frame, std::array<std::uint8_t, 5>{high(length), low(length), 0x00, 0x00,
                                              static_cast<std::uint8_t>(status)});
    append(frame, data);
    frame.push_back(checksum_of(std::span(frame).subspan(length_at)));
    return frame;
}

} // namespace

Samv::Samv(std::optional<IdentityCard> card) : card_(std::move(card)) {}

Bytes Samv::execute(std::span<const std::uint8_t> frame) {
    if (frame.size() < body_at + checksum_size) {
        return reply(Sw3::wrong_length);
    }
    const auto checked = frame.subspan(length_at, frame.size() - length_at - checksum_size);
    if (checksum_of(checked) != frame.back()) {
        return reply(Sw3::wrong_checksum);
    }
    const auto command = frame.subspan(body_at, frame.size() - body_at - checksum_size);
    if (command.size() != command_size) {
        return reply(Sw3::wrong_length);
    }
    switch (big_endian(command)) {
    case find_card:
        return find();
    case select_card:
        return select();
    case read_base:
        return read_base_information();
    default:
        return reply(Sw3::unknown_command);
    }
}

Bytes Samv::find() {
    if (!card_) {
        stage_ = Stage::idle;
        return reply(Sw3::no_card);
    }
    stage_ = Stage::found;
    return reply(Sw3::found, std::array<std::uint8_t, 4>{});
}

Bytes Samv::select() {
    if (stage_ == Stage::idle) {
        return reply(Sw3::select_failed);
    }
    stage_ = Stage::selected;
    return reply(Sw3::success, std::array<std::uint8_t, 8>{});
}

Bytes Samv::read_base_information() const {
    if (stage_ != Stage::selected) {
        return reply(Sw3::read_failed);
    }
    const IdentityCard& card = *card_;
    Bytes data{high(card.text.size()), low(card.text.size()), //
               high(card.photo.size()), low(card.photo.size())};
    append(data, card.text);
    append(data, card.photo);
    return reply(Sw3::success, data);
}

std::optional<Bytes> FrameCollector::take(std::span<const std::uint8_t> report) {
    const bool starts_a_frame =
        std::ranges::equal(frame_start, report.first(std::min(report.size(), frame_start.size())));
    if (frame_.empty() && !starts_a_frame) {
        return std::nullopt;
    }
    append(frame_, report);
    if (frame_.size() < body_at) {
        return std::nullopt;
    }
    const std::size_t size = body_at + big_endian(std::span(frame_).subspan(length_at));
    if (frame_.size() < size) {
        return std::nullopt;
    }
    frame_.resize(size);
    return std::exchange(frame_, {});
}

} // namespace qaven::virtual_idcard
