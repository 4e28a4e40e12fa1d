// Amounts, currencies and countries.
#pragma once

#include "decode/bytes.h"

#include <string>
#include <string_view>

namespace tool {

// The three letters of a currency whose code the digits are ("0156"); "" for one nobody knows.
std::string_view currency_letters(std::string_view digits);

// The digits of an amount with a decimal point: "12.13 CNY" for "000000001213" and "0156". The
// currency's digits may be empty; two decimals are usual.
std::string amount_text(std::string_view digits, std::string_view currency);

// "" for a code that no country has.
std::string_view country_name(std::string_view digits);

} // namespace tool
