// What a card reader sees of an integrated circuit card: contacts that give an answer to reset and
// take one command APDU at a time. The reader model knows no more of the card than this.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

namespace qaven::virtual_card {

using Bytes = std::vector<std::uint8_t>;

class Icc {
  public:
    virtual ~Icc() = default;

    // Supplies power and reset; returns the ATR. An empty one is a mute card.
    virtual Bytes power_on() = 0;

    // Takes the power away: the volatile state of the card (selected application, transaction in
    // progress) is gone.
    virtual void power_off() = 0;

    // One command APDU, one response APDU that ends in SW1 SW2. Called on a powered card only.
    virtual Bytes transmit(std::span<const std::uint8_t> command) = 0;
};

} // namespace qaven::virtual_card
