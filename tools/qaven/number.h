// Numbers in texts.
#pragma once

#include <charconv>
#include <iterator>
#include <string_view>

namespace tool {

// The number that a text begins with; 0 when it begins with none.
inline int number_in(std::string_view text, int base) {
    int number = 0;
    const char* const end = std::next(text.data(), static_cast<std::ptrdiff_t>(text.size()));
    std::from_chars(text.data(), end, number, base);
    return number;
}

} // namespace tool
