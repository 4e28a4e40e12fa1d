// The application data text: six decimal digits giving a byte count n, then 2n hexadecimal
// characters of the TLV data read from a card. The reading step writes it, the cryptogram steps
// read it back from the host.
#pragma once

#include "engine/data/tlv.h"
#include "support/wiped.h"

#include <cstddef>
#include <span>
#include <string_view>

namespace qaven::application_data {

// Bytes of data that the text and the reading of a card take at most.
constexpr std::size_t kMaxSize = 8000;

inline constexpr std::string_view kEmpty = "000000";

// The bytes of a handed-in text. The count is cut to the digits that follow it, and to 8000; a
// negative one counts as 0.
WipedBytes parse(std::string_view text);

// Writes the text of head and records into out, leaving out whole every record that would not fit.
void write(tlv::Bytes head, std::span<const tlv::Bytes> records, std::span<char> out);

} // namespace qaven::application_data
