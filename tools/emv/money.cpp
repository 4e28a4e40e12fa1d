// Currencies and amounts.
#include "tools/emv/money.h"

#include "tools/emv/hex.h"

#include "engine/data/currency_table.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <span>

namespace qaven::emv {

namespace {

constexpr std::size_t kCodeDigits = 4;
constexpr std::size_t kAmountDigits = 12;
constexpr std::size_t kGroup = 3;

std::string padded(std::string_view digits, std::size_t size) {
    std::string text(digits);
    text.insert(0, size - std::min(size, text.size()), '0');
    return text;
}

// The library's table holds a code as the integer whose hexadecimal digits it has.
std::string digits_of(const currency_entry& entry) {
    return hex(static_cast<unsigned>(entry.code), kCodeDigits);
}

struct Decimals {
    std::string_view digits;
    std::size_t count;
};

// ISO 4217: the currencies that do not have hundredths.
constexpr std::size_t kUsualDecimals = 2;
constexpr auto kUnusualDecimals = std::to_array<Decimals>({
    {"0048", 3}, {"0108", 0}, {"0152", 0}, {"0174", 0}, {"0262", 0}, {"0324", 0}, {"0352", 0},
    {"0368", 3}, {"0392", 0}, {"0400", 3}, {"0410", 0}, {"0414", 3}, {"0434", 3}, {"0512", 3},
    {"0548", 0}, {"0600", 0}, {"0646", 0}, {"0704", 0}, {"0788", 3}, {"0800", 0}, {"0927", 4},
    {"0940", 0}, {"0950", 0}, {"0952", 0}, {"0953", 0}, {"0990", 4},
});

std::size_t decimals_of(std::string_view currency) {
    const auto* const unusual = std::ranges::find(kUnusualDecimals, currency, &Decimals::digits);
    return unusual != kUnusualDecimals.end() ? unusual->count : kUsualDecimals;
}

std::string with_commas(std::string digits) {
    for (std::size_t at = digits.size(); at > kGroup;) {
        at -= kGroup;
        digits.insert(at, ",");
    }
    return digits;
}

// The digits of "1,012" or "1012"; empty when the commas are not where thousands are.
std::string without_commas(std::string_view whole) {
    std::string digits(whole);
    std::erase(digits, ',');
    return all_digits(digits) && (digits == whole || with_commas(digits) == whole) ? digits : "";
}

} // namespace

std::optional<std::string> currency_digits(std::string_view text) {
    const std::string letters = upper(text);
    const std::string digits = padded(text, kCodeDigits);
    const std::span table(gc4217Name);
    const auto entry = std::ranges::find_if(table, [&](const currency_entry& candidate) {
        return letters == candidate.name || (!text.empty() && digits == digits_of(candidate));
    });
    return entry != table.end() ? std::optional(digits_of(*entry)) : std::nullopt;
}

std::string_view currency_letters(std::string_view digits) {
    const std::span table(gc4217Name);
    const auto entry = std::ranges::find(table, padded(digits, kCodeDigits), digits_of);
    return !digits.empty() && entry != table.end() ? entry->name : std::string_view();
}

std::string decimal_text(std::string_view digits, std::string_view currency) {
    if (digits.empty() || !all_digits(digits)) {
        return std::string(digits) + " (not an amount)";
    }
    const std::size_t decimals = decimals_of(currency);
    std::string text = padded(digits, decimals + 1);
    text.erase(0, std::min(text.find_first_not_of('0'), text.size() - decimals - 1));
    return decimals == 0 ? text : text.insert(text.size() - decimals, ".");
}

std::string amount_text(std::string_view digits, std::string_view currency) {
    const std::string_view letters = all_digits(digits) ? currency_letters(currency) : "";
    return decimal_text(digits, currency) + (letters.empty() ? "" : " ") + std::string(letters);
}

std::string parse_amount(std::string_view text, std::string_view currency) {
    const std::string quoted = "'" + std::string(text) + "'";
    const std::size_t point = text.find('.');
    const std::string whole = without_commas(text.substr(0, point));
    const bool has_fraction = point != std::string_view::npos;
    std::string fraction(has_fraction ? text.substr(point + 1) : "");
    if (whole.empty() || has_fraction == fraction.empty() || !all_digits(fraction)) {
        throw NotAnAmount(quoted + " is not an amount like 12.13 or 1,012.13");
    }
    const std::size_t decimals = decimals_of(currency);
    if (fraction.size() > decimals) {
        throw NotAnAmount(quoted + " has " + std::to_string(fraction.size()) + " decimals, " +
                          std::string(currency_letters(currency)) + " has " +
                          std::to_string(decimals));
    }
    fraction.append(decimals - fraction.size(), '0');
    std::string digits = whole + fraction;
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
    if (digits.size() > kAmountDigits) {
        throw NotAnAmount(quoted + " has more than the " + std::to_string(kAmountDigits) +
                          " digits of an amount on a card");
    }
    return padded(digits, kAmountDigits);
}

} // namespace qaven::emv
