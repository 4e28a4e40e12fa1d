// Characters of UTF-8 (RFC 3629), in texts that may hold anything.
#pragma once

#include <algorithm>
#include <cstddef>
#include <string_view>

namespace qaven::emv {

// The bytes of the first character; 0 when the text does not begin with one.
inline std::size_t character_size(std::string_view text) {
    const auto byte = [text](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    };
    if (text.empty() || byte(0) < 0x80) {
        return text.empty() ? 0 : 1;
    }
    const std::size_t size = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
    const bool lead = byte(0) >= 0xC2 && byte(0) <= 0xF4;
    // No longer form than needed, no half of a pair of UTF-16, nothing beyond the last character.
    const bool second = (byte(0) != 0xE0 || byte(1) >= 0xA0) &&
                        (byte(0) != 0xED || byte(1) < 0xA0) &&
                        (byte(0) != 0xF0 || byte(1) >= 0x90) && (byte(0) != 0xF4 || byte(1) < 0x90);
    const std::string_view rest = text.substr(1, size - 1);
    const bool whole = rest.size() == size - 1 && std::ranges::all_of(rest, [](char character) {
                           return (static_cast<unsigned char>(character) & 0xC0U) == 0x80;
                       });
    return lead && second && whole ? size : 0;
}

} // namespace qaven::emv

namespace tool {
using namespace qaven::emv;
}
