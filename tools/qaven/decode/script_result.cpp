// What became of an issuer script.
#include "decode/script_result.h"

#include "decode/text.h"

#include <algorithm>

namespace tool {

namespace {

std::string outcome(unsigned result) {
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

} // namespace

void explain_script_result(Bytes value, Outline& out) {
    constexpr std::size_t kWhole = 5;
    if (value.empty()) {
        out.problem("the result is empty");
        return;
    }
    for (std::size_t at = 0; at < value.size(); at += kWhole) {
        const Bytes one = value.subspan(at, std::min(kWhole, value.size() - at));
        out.line("result " + hex(one[0], 2) + ": " + outcome(one[0]));
        out.line("script identifier (9F18): " + hex(one.subspan(1)));
    }
    if (value.size() % kWhole != 0) {
        out.problem("has " + std::to_string(value.size()) + " bytes; a result has 5");
    }
}

void explain_script_result_text(std::string_view text, Outline& out) {
    constexpr std::string_view kHead = "DF3105";
    constexpr std::string_view kWide = "FFFFFF";
    const std::string digits = upper(trimmed(text));
    if (digits.empty()) {
        out.line("empty: there was no script to run, or the transaction was declined");
        return;
    }
    out.line("DF31 issuer script results");
    const auto nest = out.nest();
    if (!digits.starts_with(kHead)) {
        out.problem("a script result begins with " + std::string(kHead));
        return;
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
    const HexText value = from_hex(narrow);
    if (!value.sound()) {
        out.problem("not hexadecimal: " + readable(out.privacy().guarded(narrow)));
    }
    explain_script_result(value.bytes, out);
}

} // namespace tool
