// Currencies of ISO 4217, and amounts: cards keep digits in the currency's smallest unit, people
// write a decimal point.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

namespace qaven::emv {

// The digits that cards and hosts use, "0156", for "156", "0156" or "CNY".
std::optional<std::string> currency_digits(std::string_view text);

// "CNY" for "0156"; "" for a number that no currency has.
std::string_view currency_letters(std::string_view digits);

// The digits with a decimal point: "12.13" for "000000001213" and "0156". The currency's digits may
// be empty; two decimals are usual. What is no amount is followed by a word about it.
std::string decimal_text(std::string_view digits, std::string_view currency);

// The same with the currency's letters: "12.13 CNY".
std::string amount_text(std::string_view digits, std::string_view currency);

class NotAnAmount : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

// "12.13" or "1,012.13" as the twelve digits "000000001213". Throws NotAnAmount.
std::string parse_amount(std::string_view text, std::string_view currency);

} // namespace qaven::emv
