// Reading and writing the application data text.
#include "engine/data/application_data.h"

#include "support/bounded_text.h"
#include "support/decimal.h"
#include "support/hex.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

namespace qaven::application_data {

namespace {

constexpr std::size_t kCountDigits = 6;
constexpr std::string_view kHexDigits = "0123456789ABCDEFabcdef";

} // namespace

WipedBytes parse(std::string_view text) {
    const std::string count_text(text.substr(0, kCountDigits));
    const int declared = decimal(count_text.c_str());
    const std::string_view behind = text.substr(std::min(kCountDigits, text.size()));
    const std::string_view digits = behind.substr(0, behind.find_first_not_of(kHexDigits));
    const std::size_t count =
        std::min({static_cast<std::size_t>(std::max(declared, 0)), digits.size() / 2, kMaxSize});
    return hex::bytes(digits.substr(0, 2 * count));
}

void write(tlv::Bytes head, std::span<const tlv::Bytes> records, std::span<char> out) {
    WipedBytes taken(head.begin(), head.end());
    for (const tlv::Bytes record : records) {
        if (kCountDigits + 2 * (taken.size() + record.size()) < out.size()) {
            taken.insert(taken.end(), record.begin(), record.end());
        }
    }
    std::array<char, 16> count{};
    std::snprintf(count.data(), count.size(), "%06zu", taken.size());
    BoundedText text(out);
    text.append(count.data());
    text.append(hex::text(taken));
}

} // namespace qaven::application_data
