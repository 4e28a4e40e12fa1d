// Codes of two or four digits that stand for something, and the words for them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qaven::emv {

// "33 (account verification)"; the digits alone for a code without words.
std::string transaction_type_text(std::string_view digits);
std::string currency_text(std::string_view digits);
std::string country_text(std::string_view digits);
std::string identity_type_text(std::string_view digits);

// An authorisation response code: "approved online" for "00"; "" for one without words.
std::string_view response_code_words(std::string_view code);

// The digits of a transaction type, for what a command line calls it or for two digits.
std::optional<std::string> transaction_type_digits(std::string_view text);

// What a command line may call them: "purchase, cash, ...".
std::string transaction_type_names();

} // namespace qaven::emv
