// Byte runs, their hexadecimal text, and digits in texts.
#include "tools/emv/hex.h"

#include <algorithm>
#include <charconv>

namespace qaven::emv {

namespace {

constexpr std::string_view kDigits = "0123456789ABCDEF";
constexpr std::string_view kBlanks = " \t\r\n";

bool separates(char character) {
    return kBlanks.find(character) != std::string_view::npos || character == ':';
}

// After blanks and a leading 0x.
std::size_t start_of_digits(std::string_view text) {
    const std::size_t start = std::min(text.find_first_not_of(kBlanks), text.size());
    const std::string_view rest = text.substr(start);
    return rest.starts_with("0x") || rest.starts_with("0X") ? start + 2 : start;
}

} // namespace

std::string hex(Bytes bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (const unsigned byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0xFU];
    }
    return text;
}

std::string hex(std::uint32_t number, int digits) {
    std::string text;
    for (int place = 0; place < digits || number != 0; ++place) {
        text += kDigits[number & 0xFU];
        number >>= 4U;
    }
    std::ranges::reverse(text);
    return text;
}

HexText from_hex(std::string_view text) {
    HexText result;
    int high = -1;
    for (std::size_t at = start_of_digits(text); at < text.size(); ++at) {
        if (separates(text[at])) {
            continue;
        }
        const int value = digit_value(text[at]);
        if (value < 0) {
            result.stranger_at = at;
            break;
        }
        if (high < 0) {
            high = value;
        } else {
            result.bytes.push_back(static_cast<unsigned char>(16 * high + value));
            high = -1;
        }
    }
    result.odd = high >= 0;
    return result;
}

bool looks_like_hex(std::string_view text) {
    const std::string_view digits = text.substr(start_of_digits(text));
    return std::ranges::all_of(digits,
                               [](char c) { return separates(c) || digit_value(c) >= 0; }) &&
           std::ranges::any_of(digits, [](char c) { return digit_value(c) >= 0; });
}

bool is_hex(std::string_view text) {
    return !text.empty() && text.size() % 2 == 0 &&
           std::ranges::all_of(text, [](char c) { return digit_value(c) >= 0; });
}

int digit_value(char character) {
    if (character >= '0' && character <= '9') {
        return character - '0';
    }
    if (character >= 'A' && character <= 'F') {
        return character - 'A' + 10;
    }
    if (character >= 'a' && character <= 'f') {
        return character - 'a' + 10;
    }
    return -1;
}

bool is_digit(char character) {
    return character >= '0' && character <= '9';
}

bool all_digits(std::string_view text) {
    return std::ranges::all_of(text, is_digit);
}

unsigned number_in(std::string_view digits) {
    unsigned number = 0;
    std::from_chars(digits.data(), digits.data() + digits.size(), number);
    return number;
}

Bytes bytes_of(std::string_view text) {
    return {reinterpret_cast<const unsigned char*>(text.data()), text.size()};
}

std::string_view characters_of(Bytes bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

std::string_view trimmed(std::string_view text) {
    const std::size_t first = text.find_first_not_of(kBlanks);
    if (first == std::string_view::npos) {
        return {};
    }
    return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

std::string upper(std::string_view text) {
    std::string result(text);
    std::ranges::transform(result, result.begin(), [](char c) {
        return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    });
    return result;
}

} // namespace qaven::emv
