// Buffers as a host hands them in: each is a heap block of exactly the size that the signature asks
// for, so that the address sanitizer sees every byte read or written past it.
#pragma once

#include "tests/support/hex.h"

#include <cstddef>
#include <string_view>

namespace qaven::test {

// What an output buffer holds before the call.
inline constexpr std::uint8_t kUntouchedByte = 0xEE;

// Data to be read.
inline Bytes exact(std::string_view hex_text) {
    const Bytes parsed = bytes(hex_text);
    return {parsed.begin(), parsed.end()};
}

// A zero-terminated text.
inline Bytes exact_text(std::string_view text) {
    Bytes copy(text.size() + 1);
    for (std::size_t k = 0; k < text.size(); ++k) {
        copy[k] = static_cast<std::uint8_t>(text[k]);
    }
    return copy;
}

// Room to be written to.
inline Bytes room(std::size_t size) {
    Bytes block;
    block.assign(size, kUntouchedByte);
    return block;
}

} // namespace qaven::test
