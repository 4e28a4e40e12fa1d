// Numbers that travel as decimal text.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <limits>

namespace qaven {

// The number that zero-terminated text begins with, 0 when it begins with none; a number beyond the
// range is the end of the range.
inline int decimal(const char* text) {
    constexpr int kDecimal = 10;
    const long number = std::strtol(text, nullptr, kDecimal);
    return static_cast<int>(
        std::clamp<long>(number, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

} // namespace qaven
