// Hexadecimal text in tests.
#include "tests/support/hex.h"

#include <stdexcept>

namespace qaven::test {

namespace {

std::uint8_t digit(char ch) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    const char upper = ch >= 'a' && ch <= 'f' ? static_cast<char>(ch - 'a' + 'A') : ch;
    const std::size_t value = kDigits.find(upper);
    if (value == std::string_view::npos) {
        throw std::invalid_argument("no hexadecimal digit: " + std::string(1, ch));
    }
    return static_cast<std::uint8_t>(value);
}

} // namespace

Bytes bytes(std::string_view hex) {
    Bytes packed;
    bool high = true;
    for (const char ch : hex) {
        if (ch == ' ') {
            continue;
        }
        if (high) {
            packed.push_back(static_cast<std::uint8_t>(digit(ch) << 4U));
        } else {
            packed.back() = static_cast<std::uint8_t>(packed.back() | digit(ch));
        }
        high = !high;
    }
    if (!high) {
        throw std::invalid_argument("odd number of hexadecimal digits: " + std::string(hex));
    }
    return packed;
}

std::string hex(std::span<const std::uint8_t> data) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    text.reserve(2 * data.size());
    for (const unsigned int byte : data) {
        text.push_back(kDigits[byte >> 4U]);
        text.push_back(kDigits[byte & 0x0FU]);
    }
    return text;
}

std::string repeated(std::string_view byte, std::size_t count) {
    std::string text;
    text.reserve(byte.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        text += byte;
    }
    return text;
}

} // namespace qaven::test
