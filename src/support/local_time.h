// The counter's date and time.
#pragma once

#include <array>
#include <cstdint>

namespace qaven::local_time {

using Text = std::array<char, 32>;

// Now, in strftime's format; zeros when that takes more than the text holds.
Text text(const char* format);

// Packed decimal: YY MM DD.
std::array<std::uint8_t, 3> date();

// Packed decimal: YYYY MM DD hh mm ss.
std::array<std::uint8_t, 7> date_and_time();

} // namespace qaven::local_time
