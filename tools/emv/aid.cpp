// Application identifiers.
#include "tools/emv/aid.h"

#include "tools/emv/gbk.h"

#include <algorithm>
#include <array>

namespace qaven::emv {

namespace {

struct Application {
    std::string_view digits;
    std::string_view name;
};

// The longer ones ahead of what they begin with.
constexpr auto kApplications = std::to_array<Application>({
    {"A000000333010101", "UnionPay debit"},
    {"A000000333010102", "UnionPay credit"},
    {"A000000333010103", "UnionPay quasi-credit"},
    {"A000000333010106", "UnionPay electronic cash"},
    {"A000000333", "UnionPay"},
});

} // namespace

std::string aid_text(Bytes aid) {
    const std::string_view characters = characters_of(aid);
    const std::string digits = hex(aid);
    if (!aid.empty() &&
        std::ranges::all_of(characters, [](char c) { return c >= 0x20 && c < 0x7F; })) {
        return digits + ' ' + in_quotes(characters);
    }
    const auto* const known = std::ranges::find_if(
        kApplications, [&](const Application& a) { return digits.starts_with(a.digits); });
    return known != kApplications.end() ? digits + " (" + std::string(known->name) + ')' : digits;
}

bool is_registered(Bytes aid) {
    constexpr std::size_t kShortest = 5;
    constexpr std::size_t kLongest = 16;
    return aid.size() >= kShortest && aid.size() <= kLongest && hex(aid).starts_with("A000000");
}

} // namespace qaven::emv
