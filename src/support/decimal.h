// Numbers that travel as decimal text.
#pragma once

#include "support/host_text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <string>

namespace qaven {

// The number that the text begins with, 0 when it begins with none; a number beyond the
// range is the end of the range.
inline int decimal(HostText text) {
    constexpr int kDecimal = 10;
    const long number = std::strtol(text.c_str(), nullptr, kDecimal);
    return static_cast<int>(
        std::clamp<long>(number, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()));
}

// As the length before a value in texts for hosts; numbers from 1000 on have more digits.
inline std::string three_digits(std::size_t number) {
    std::array<char, 24> digits{};
    std::snprintf(digits.data(), digits.size(), "%03zu", number);
    return digits.data();
}

} // namespace qaven
