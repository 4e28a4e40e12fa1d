// Currencies and amounts.
#include "amount.h"

#include "engine/data/currency_table.h"
#include "exit_status.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <span>
#include <vector>

namespace tool {

namespace {

constexpr std::size_t kCodeDigits = 4;
constexpr std::size_t kAmountDigits = 12;
constexpr std::size_t kGroup = 3;

bool is_digit(char character) {
    return character >= '0' && character <= '9';
}

bool all_digits(std::string_view text) {
    return !text.empty() && std::ranges::all_of(text, is_digit);
}

std::string to_upper(std::string_view text) {
    std::string upper(text);
    std::ranges::transform(upper, upper.begin(),
                           [](unsigned char c) { return static_cast<char>(std::toupper(c)); });
    return upper;
}

std::string padded(std::string_view digits, std::size_t size) {
    std::string text(digits);
    text.insert(0, size - std::min(size, text.size()), '0');
    return text;
}

// The library's table keeps a code as the integer whose hexadecimal digits it has.
std::string digits_of(int code) {
    std::string digits;
    for (int shift = 12; shift >= 0; shift -= 4) {
        digits += static_cast<char>('0' + (static_cast<unsigned>(code) >> shift & 0xFU));
    }
    return digits;
}

// ISO 4217's exceptions from two decimals.
struct Decimals {
    std::string_view digits;
    std::size_t count;
};

constexpr std::array kDecimals{
    Decimals{"0108", 0}, Decimals{"0152", 0}, Decimals{"0262", 0}, Decimals{"0324", 0},
    Decimals{"0352", 0}, Decimals{"0392", 0}, Decimals{"0174", 0}, Decimals{"0410", 0},
    Decimals{"0600", 0}, Decimals{"0646", 0}, Decimals{"0704", 0}, Decimals{"0800", 0},
    Decimals{"0548", 0}, Decimals{"0940", 0}, Decimals{"0950", 0}, Decimals{"0952", 0},
    Decimals{"0953", 0}, Decimals{"0048", 3}, Decimals{"0368", 3}, Decimals{"0400", 3},
    Decimals{"0414", 3}, Decimals{"0434", 3}, Decimals{"0512", 3}, Decimals{"0788", 3},
    Decimals{"0927", 4}, Decimals{"0990", 4},
};

// The digits of "1,012" or "1012"; empty when the commas are not where thousands are.
std::string without_commas(std::string_view whole) {
    if (whole.find(',') == std::string_view::npos) {
        return std::string(whole);
    }
    std::string digits;
    std::size_t from = 0;
    while (true) {
        const std::size_t comma = whole.find(',', from);
        const std::string_view group = whole.substr(from, comma - from);
        const bool fits =
            from == 0 ? !group.empty() && group.size() <= kGroup : group.size() == kGroup;
        if (!fits) {
            return {};
        }
        digits += group;
        if (comma == std::string_view::npos) {
            return digits;
        }
        from = comma + 1;
    }
}

} // namespace

Currency Currency::named(std::string_view text) {
    const std::span<const currency_entry> table(gc4217Name);
    const std::string letters = to_upper(text);
    const std::string digits = all_digits(text) ? padded(text, kCodeDigits) : "";
    const auto entry = std::ranges::find_if(table, [&](const currency_entry& candidate) {
        return letters == candidate.name || digits == digits_of(candidate.code);
    });
    if (entry == table.end()) {
        throw UsageError("'" + std::string(text) +
                         "' is no currency of ISO 4217; there it has a number or letters, for "
                         "example 156 or CNY");
    }
    return Currency(digits_of(entry->code));
}

Currency Currency::numbered(std::string_view digits) {
    return Currency(std::string(digits));
}

std::string Currency::name() const {
    const std::span<const currency_entry> table(gc4217Name);
    const auto entry = std::ranges::find_if(table, [this](const currency_entry& candidate) {
        return digits_of(candidate.code) == digits_;
    });
    return entry == table.end() ? digits_ : entry->name;
}

std::size_t Currency::decimals() const {
    const auto* const exception = std::ranges::find(kDecimals, digits_, &Decimals::digits);
    return exception == kDecimals.end() ? 2 : exception->count;
}

std::string parse_amount(std::string_view option, std::string_view text, const Currency& currency) {
    const std::string complaint = std::string(option) +
                                  " takes an amount like 12.13 or 1,012.13, not '" +
                                  std::string(text) + "'";
    const std::size_t point = text.find('.');
    const std::string whole = without_commas(text.substr(0, point));
    std::string fraction;
    if (point != std::string_view::npos) {
        fraction = text.substr(point + 1);
        if (!all_digits(fraction)) {
            throw UsageError(complaint);
        }
    }
    if (!all_digits(whole)) {
        throw UsageError(complaint);
    }
    if (fraction.size() > currency.decimals()) {
        throw UsageError(std::string(option) + ": " + currency.name() + " has " +
                         std::to_string(currency.decimals()) + " decimals, '" + std::string(text) +
                         "' has " + std::to_string(fraction.size()));
    }
    fraction.append(currency.decimals() - fraction.size(), '0');
    std::string digits = whole + fraction;
    digits.erase(0, std::min(digits.find_first_not_of('0'), digits.size() - 1));
    if (digits.size() > kAmountDigits) {
        throw UsageError(std::string(option) + ": '" + std::string(text) +
                         "' is more than a card can be told, twelve digits");
    }
    return padded(digits, kAmountDigits);
}

std::string format_amount(std::string_view digits, const Currency& currency) {
    if (!all_digits(digits)) {
        return std::string(digits);
    }
    const std::size_t decimals = currency.decimals();
    std::string text = padded(digits, decimals + 1);
    const std::size_t leading = text.find_first_not_of('0');
    text.erase(0, std::min(leading, text.size() - decimals - 1));
    if (decimals > 0) {
        text.insert(text.size() - decimals, ".");
    }
    return text;
}

} // namespace tool
