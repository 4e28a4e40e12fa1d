// Hexadecimal text of byte runs and back.
//
// Texts of hosts are not checked, so what is no digit reads as something too. Each family of
// conversions has its own rule for that, hosts know them all, and they are not interchangeable.
#pragma once

#include "support/wiped.h"

#include <cstdint>
#include <span>
#include <string_view>

namespace qaven::hex {

// How a character reads as a nibble.
using Rule = int(std::uint8_t);

// Whatever is neither digit nor lower case is upper case.
constexpr int else_upper_case(std::uint8_t ch) {
    if (ch >= '0' && ch <= '9') {
        return ch - 0x30;
    }
    if (ch >= 'a' && ch <= 'f') {
        return ch - 0x57;
    }
    return ch - 0x37;
}

// Whatever is neither digit nor upper case is lower case.
constexpr int else_lower_case(std::uint8_t ch) {
    if (ch >= '0' && ch <= '9') {
        return ch - 0x30;
    }
    if (ch >= 'A' && ch <= 'F') {
        return ch - 0x37;
    }
    return ch - 0x57;
}

// Letters of either case by their low four bits.
constexpr int low_bits(std::uint8_t ch) {
    return (ch & 0x0F) + (ch > '9' ? 9 : 0);
}

// Decimal digits only.
constexpr int decimal_digit(std::uint8_t ch) {
    return ch - 0x30;
}

// The byte of two characters.
template <Rule rule>
constexpr std::uint8_t byte_of(std::uint8_t high, std::uint8_t low) {
    return static_cast<std::uint8_t>(rule(high) * 16 + rule(low));
}

// One byte for each pair of characters; an odd last character is ignored.
template <Rule rule>
WipedBytes bytes_by(std::string_view text) {
    WipedBytes packed(text.size() / 2);
    for (std::size_t k = 0; k < packed.size(); ++k) {
        packed[k] = byte_of<rule>(static_cast<std::uint8_t>(text[2 * k]),
                                  static_cast<std::uint8_t>(text[2 * k + 1]));
    }
    return packed;
}

inline WipedBytes bytes(std::string_view text) {
    return bytes_by<else_upper_case>(text);
}

// The upper-case digit of the low four bits.
constexpr char digit(unsigned int nibble) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    return kDigits[nibble & 0x0FU];
}

// Two upper-case characters for each byte.
inline WipedText text(std::span<const std::uint8_t> bytes) {
    WipedText digits(2 * bytes.size(), '\0');
    for (std::size_t k = 0; k < bytes.size(); ++k) {
        digits[2 * k] = digit(bytes[k] >> 4U);
        digits[2 * k + 1] = digit(bytes[k]);
    }
    return digits;
}

} // namespace qaven::hex
