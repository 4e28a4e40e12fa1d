// Results of issuer scripts.
#include "tools/emv/script_result.h"

namespace qaven::emv {

std::string script_outcome(unsigned char result) {
    const unsigned number = result & 0xFU;
    switch (result >> 4U) {
    case 0:
        return "the script was not run";
    case 1:
        return number == 0 ? "the script failed, the command is not named"
                           : "the script failed at command " + std::to_string(number) +
                                 (number == 0xF ? " or a later one" : "");
    case 2:
        return "the script was carried out";
    default:
        return "unknown result";
    }
}

std::optional<HexText> script_results_in(std::string_view text) {
    constexpr std::string_view kHead = "DF3105";
    constexpr std::string_view kWide = "FFFFFF";
    const std::string digits = upper(trimmed(text));
    if (!digits.starts_with(kHead)) {
        return std::nullopt;
    }
    std::string narrow;
    std::size_t at = kHead.size();
    while (at < digits.size()) {
        // A result byte is never FF, so only the identifier can be widened.
        if (!narrow.empty() && digits.compare(at, kWide.size(), kWide) == 0 &&
            digits.size() - at >= kWide.size() + 2) {
            at += kWide.size();
        }
        narrow += digits.substr(at, 2);
        at += 2;
    }
    return from_hex(narrow);
}

} // namespace qaven::emv
