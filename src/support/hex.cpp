// Hexadecimal text of byte runs and back, over the conversions of utils.
#include "support/hex.h"

#include "support/utils.h"

#include <array>

namespace qaven::hex {

WipedText text(std::span<const unsigned char> bytes) {
    WipedText digits;
    digits.reserve(2 * bytes.size());
    for (const unsigned char byte : bytes) {
        std::array<unsigned char, 2> pair{};
        bcd2asc(pair.data(), byte);
        digits.append(pair.begin(), pair.end());
    }
    return digits;
}

WipedBytes bytes(std::string_view text) {
    WipedBytes packed;
    packed.reserve(text.size() / 2);
    for (std::size_t at = 0; at + 1 < text.size(); at += 2) {
        std::array pair{static_cast<unsigned char>(text[at]),
                        static_cast<unsigned char>(text[at + 1])};
        packed.push_back(asc2bcd(pair.data()));
    }
    return packed;
}

} // namespace qaven::hex
