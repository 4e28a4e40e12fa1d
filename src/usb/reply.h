// What a card answers to one command APDU, and where it goes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace qaven {

struct Reply {
    // Bytes that the place of a reply has. Larger replies are refused.
    static constexpr std::size_t kCapacity = 1024;

    std::span<std::uint8_t> place;
    std::size_t length = 0; // of response data and status word
};

} // namespace qaven
