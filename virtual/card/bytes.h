// Byte strings and their hexadecimal text, as the virtual card, its profiles and the issuer use
// them.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "virtual/card/icc.h"

namespace qaven::virtual_card {

using ByteView = std::span<const std::uint8_t>;

// Upper-case hexadecimal text, two characters for each byte.
std::string to_hex(ByteView bytes);

// Reads hexadecimal text; blanks between bytes are allowed so that a profile can group what belongs
// together. Nothing for an odd number of digits or a character that is no digit.
std::optional<Bytes> from_hex(std::string_view text);

Bytes to_bytes(std::string_view text);

// A counter as cards hold it: two bytes, the high one first.
Bytes big_endian(std::uint16_t number);

void append(Bytes& target, ByteView more);

Bytes concatenate(std::initializer_list<ByteView> parts);

} // namespace qaven::virtual_card
