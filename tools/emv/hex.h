// Byte runs, their hexadecimal text, and digits in texts.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::emv {

using Bytes = std::span<const unsigned char>;

// Upper-case digits, without blanks.
std::string hex(Bytes bytes);

// A number as so many upper-case hex digits at least.
std::string hex(std::uint32_t number, int digits);

// What a hexadecimal text stands for, as far as it is one.
struct HexText {
    std::vector<unsigned char> bytes;
    // Where in the text the first character stands that is neither digit nor blank.
    std::optional<std::size_t> stranger_at;
    // A last digit has no partner.
    bool odd = false;

    bool sound() const { return !stranger_at && !odd; }
};

// Blanks, line ends, colons and a leading 0x are skipped.
HexText from_hex(std::string_view text);

// Nothing but hex digits and what from_hex skips, and at least one digit.
bool looks_like_hex(std::string_view text);

// One byte or more in hex digits, and nothing else.
bool is_hex(std::string_view text);

// The value of one hex digit, or -1.
int digit_value(char character);

bool is_digit(char character);
// True of an empty text too.
bool all_digits(std::string_view text);

// The value of decimal digits; what follows them is not read.
unsigned number_in(std::string_view digits);

// The bytes of a text, and the text of bytes.
Bytes bytes_of(std::string_view text);
std::string_view characters_of(Bytes bytes);

// Without blanks, tabs and line ends at both ends.
std::string_view trimmed(std::string_view text);

std::string upper(std::string_view text);

} // namespace qaven::emv
