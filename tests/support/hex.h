// Bytes in tests are written and shown in hexadecimal; blanks between them are free.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::test {

using Bytes = std::vector<std::uint8_t>;

// "00 A4 0400" to bytes. Text that is no hexadecimal throws std::invalid_argument.
Bytes bytes(std::string_view hex);

// Bytes to "00A40400".
std::string hex(std::span<const std::uint8_t> data);

// count bytes of one value, as hexadecimal text.
std::string repeated(std::string_view byte, std::size_t count);

} // namespace qaven::test
