// The host's texts are bytes (GBK, a card's own data), JSON is UTF-8. Between the two each byte
// travels as the character of its number.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace qaven::emv {

inline std::string latin1_to_utf8(std::string_view bytes) {
    std::string text;
    for (const char character : bytes) {
        const auto byte = static_cast<unsigned char>(character);
        if (byte < 0x80) {
            text += character;
        } else {
            text += static_cast<char>(0xC0U | byte >> 6U);
            text += static_cast<char>(0x80U | (byte & 0x3FU));
        }
    }
    return text;
}

inline std::string utf8_to_latin1(std::string_view utf8) {
    std::string bytes;
    for (std::size_t at = 0; at < utf8.size(); ++at) {
        const auto byte = static_cast<unsigned char>(utf8[at]);
        const bool pair = (byte == 0xC2 || byte == 0xC3) && at + 1 < utf8.size();
        bytes += pair ? static_cast<char>((byte & 0x03U) << 6U |
                                          (static_cast<unsigned char>(utf8[++at]) & 0x3FU))
                      : utf8[at];
    }
    return bytes;
}

} // namespace qaven::emv
