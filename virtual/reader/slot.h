// One slot of the reader: CCID messages in, CCID messages out, a card or none between.
#pragma once

#include "virtual/card/icc.h"
#include "virtual/reader/framing.h"
#include "virtual/usb/device.h"

#include <chrono>
#include <cstdint>
#include <optional>

namespace qaven::virtual_reader {

// How the reader behaves beyond what the class leaves open.
struct Behaviour {
    // Answers a malformed message with the error of the CCID class instead of executing it.
    bool strict = false;
    // Speed of the card's line in bit/s, which every byte to and from the card takes its time on;
    // 0: takes none.
    unsigned baud = 0;
    // The card leaves the slot after so many command APDUs.
    std::optional<unsigned> remove_card_after{};
};

class Slot {
  public:
    // The card, or null for an empty slot; it outlives the slot (a cardholder takes it home).
    Slot(virtual_card::Icc* card, const Behaviour& behaviour);

    struct Answer {
        Bytes message;
        // What the card's line takes.
        std::chrono::nanoseconds delay{0};
    };

    // Nothing where the reader keeps silent: a stray packet on a lenient reader.
    [[nodiscard]] std::optional<Answer> answer(const Message& message);

    [[nodiscard]] bool card_present() const { return card_ != nullptr; }
    void power_off();
    void remove_card();
    // The card outlives the slot.
    void insert_card(virtual_card::Icc& card);

  private:
    enum class IccStatus : std::uint8_t { kActive = 0, kInactive = 1, kAbsent = 2 };

    [[nodiscard]] IccStatus icc_status() const;
    [[nodiscard]] Bytes reply(const Message& to, std::uint8_t type, std::uint8_t last = 0,
                              std::span<const std::uint8_t> data = {}) const;
    [[nodiscard]] Bytes error_reply(const Message& to, std::uint8_t error) const;
    [[nodiscard]] std::chrono::nanoseconds line_time(std::size_t bytes) const;
    [[nodiscard]] std::optional<std::uint8_t> framing_error(const Message& message) const;

    Answer power_on(const Message& message);
    Answer transfer(const Message& message);
    Answer parameters(const Message& message) const;

    virtual_card::Icc* card_;
    Behaviour behaviour_;
    bool powered_ = false;
    Bytes atr_;
    unsigned apdus_ = 0;
};

} // namespace qaven::virtual_reader
