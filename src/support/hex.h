// Hexadecimal text of byte runs and back, over the conversions of utils.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::hex {

// Two upper-case characters for each byte.
std::string text(std::span<const unsigned char> bytes);

// One byte for each pair of characters, read by asc2bcd's rule; an odd last character is ignored.
std::vector<unsigned char> bytes(std::string_view text);

} // namespace qaven::hex
