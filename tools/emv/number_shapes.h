// What account and identity numbers look like in text that is not known to hold one.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::emv {

// Digits, as many as an account number has, the last of which is the right check digit
// (ISO/IEC 7812-1, annex B).
bool is_account_number(std::string_view text);

// A place, a day of birth, a number among those born there that day, and a check character
// (GB 11643); the check character is not looked at.
bool is_identity_number(std::string_view text);

// Digits that begin as an account number does, as many as one has; one of them may be wrong.
bool may_be_number(std::string_view digits);

// Hex digits that are nothing but an account number and the F that fills it up.
bool is_packed_number(std::string_view digits);

// Packed fields of terminal data: digits from the first to the last, which do not begin as account
// numbers do.
bool are_fields(std::string_view digits);

// The account numbers among packed digits, of which any byte may be a number's first.
std::vector<std::string_view> packed_numbers(std::string_view digits);

// The runs of digits that begin as an account number does and are as long at least, in the text
// whose hex this is; the first digit of a pair may be lost.
std::vector<std::string> numbers_in_hex_of_text(std::string_view digits);

// Masks the middle of every whole number that stands alone, as digits or as hex of its characters,
// and of the latter all that are long enough for a part of one.
void mask_lookalikes(std::string& text);

// Masks what may be a good part of a number: of so many digits in a row, or of those of a short
// number in groups with blanks between, all but the first six. Dates with a time of day stay.
void mask_long_runs(std::string& text, std::size_t least);

} // namespace qaven::emv
