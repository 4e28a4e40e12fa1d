// Decimal numbers out of command-line texts.
#pragma once

#include <charconv>
#include <memory>
#include <optional>
#include <string_view>

namespace qaven::virtual_usb {

// Nothing unless the text is a number through and through.
[[nodiscard]] inline std::optional<unsigned> parse_number(std::string_view text) {
    unsigned value = 0;
    const char* const end = std::to_address(text.end());
    const auto [stopped, error] = std::from_chars(text.data(), end, value);
    if (text.empty() || error != std::errc{} || stopped != end) {
        return std::nullopt;
    }
    return value;
}

} // namespace qaven::virtual_usb
