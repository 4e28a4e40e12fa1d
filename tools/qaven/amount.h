// Amounts as people write them and as cards keep them: digits in the currency's smallest unit.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// A currency by its ISO 4217 number.
class Currency {
  public:
    // "156", "0156" or "CNY"; throws UsageError for what is no currency.
    static Currency named(std::string_view text);

    // The digits that cards and hosts use, "0156".
    static Currency numbered(std::string_view digits);

    const std::string& digits() const { return digits_; }

    // "CNY"; the number where it has no letters.
    std::string name() const;

    // Digits behind the decimal point.
    std::size_t decimals() const;

  private:
    explicit Currency(std::string digits) : digits_(std::move(digits)) {}

    std::string digits_;
};

// "12.13" or "1,012.13" as the twelve digits "000000001213". Throws UsageError, which calls the
// amount by `option`.
std::string parse_amount(std::string_view option, std::string_view text, const Currency& currency);

// "000000001213" as "12.13"; text that is not all digits comes back as it is.
std::string format_amount(std::string_view digits, const Currency& currency);

} // namespace tool
