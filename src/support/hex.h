// Hexadecimal text of byte runs and back, over the conversions of utils.
#pragma once

#include "support/wiped.h"

#include <span>
#include <string_view>

namespace qaven::hex {

// Two upper-case characters for each byte.
WipedText text(std::span<const unsigned char> bytes);

// One byte for each pair of characters, read by asc2bcd's rule; an odd last character is ignored.
WipedBytes bytes(std::string_view text);

} // namespace qaven::hex
