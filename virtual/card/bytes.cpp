// Byte strings and their hexadecimal text.
#include "virtual/card/bytes.h"

namespace qaven::virtual_card {

namespace {

std::optional<std::uint8_t> digit_value(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<std::uint8_t>(digit - '0');
    }
    if (digit >= 'A' && digit <= 'F') {
        return static_cast<std::uint8_t>(digit - 'A' + 10);
    }
    if (digit >= 'a' && digit <= 'f') {
        return static_cast<std::uint8_t>(digit - 'a' + 10);
    }
    return std::nullopt;
}

} // namespace

std::string to_hex(ByteView bytes) {
    constexpr std::string_view kDigits = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 2);
    for (const std::uint8_t byte : bytes) {
        text.push_back(kDigits[byte >> 4U]);
        text.push_back(kDigits[byte & 0x0FU]);
    }
    return text;
}

std::optional<Bytes> from_hex(std::string_view text) {
    Bytes bytes;
    std::size_t at = 0;
    while (at < text.size()) {
        if (text[at] == ' ') {
            ++at;
            continue;
        }
        if (at + 1 >= text.size()) {
            return std::nullopt;
        }
        const auto high = digit_value(text[at]);
        const auto low = digit_value(text[at + 1]);
        if (!high || !low) {
            return std::nullopt;
        }
        bytes.push_back(static_cast<std::uint8_t>((*high << 4U) | *low));
        at += 2;
    }
    return bytes;
}

Bytes to_bytes(std::string_view text) {
    return {text.begin(), text.end()};
}

Bytes big_endian(std::uint16_t number) {
    return {static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)};
}

void append(Bytes& target, ByteView more) {
    target.insert(target.end(), more.begin(), more.end());
}

Bytes concatenate(std::initializer_list<ByteView> parts) {
    Bytes whole;
    for (const ByteView part : parts) {
        append(whole, part);
    }
    return whole;
}

} // namespace qaven::virtual_card
