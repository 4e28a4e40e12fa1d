// Bytes as the tests write and show them.
#pragma once

#include <cctype>
#include <cstdint>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace virtual_test {

using Bytes = std::vector<std::uint8_t>;

// "6F 05" and "6F05" alike.
inline Bytes hex(std::string_view text) {
    const auto digit = [](char letter) -> unsigned {
        constexpr std::string_view digits = "0123456789ABCDEF";
        const auto at = digits.find(static_cast<char>(std::toupper(letter)));
        if (at == std::string_view::npos) {
            throw std::invalid_argument("no hex digit");
        }
        return static_cast<unsigned>(at);
    };
    Bytes bytes;
    for (std::size_t at = 0; at < text.size();) {
        if (text[at] == ' ') {
            ++at;
            continue;
        }
        bytes.push_back(
            static_cast<std::uint8_t>(digit(text[at]) << 4U | digit(text.substr(at + 1).front())));
        at += 2;
    }
    return bytes;
}

inline std::string show(std::span<const std::uint8_t> bytes) {
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string text;
    for (const auto byte : bytes) {
        text += text.empty() ? "" : " ";
        text += digits[byte >> 4U];
        text += digits[byte & 0x0FU];
    }
    return text;
}

inline Bytes counting(std::size_t size, unsigned first = 1) {
    Bytes bytes(size);
    for (std::size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<std::uint8_t>((first + i) & 0xFFU);
    }
    return bytes;
}

inline Bytes operator+(Bytes left, std::span<const std::uint8_t> right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

} // namespace virtual_test
