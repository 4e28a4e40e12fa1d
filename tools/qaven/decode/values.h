// The value of a data object: a short text, and what else there is to say about it.
#pragma once

#include "decode/outline.h"
#include "decode/tags.h"
#include "tools/emv/hex.h"

#include <string>
#include <string_view>

namespace tool {

// The value as people write it: "12.13 CNY", "2030-12-31". currency: its four digits, or "".
std::string value_text(Form form, Bytes value, std::string_view currency, Privacy& privacy);

// The value has a layout of its own, whose digits are no part of an account number.
bool is_told(Form form, Bytes value);

// Bits, entries and parts, a line each; nothing for values that the short text says all about.
void explain_value(Form form, Bytes value, Outline& out);

// Currencies, one after the other, four digits each.
std::string currencies_text(std::string_view digits);

// The digits of an account number, filled up with F or not.
std::string account_number_text(std::string_view digits, Privacy& privacy);

// Digits, D or =, expiry, service code, discretionary data; filled up with F or not.
std::string track2_text(std::string_view track, Privacy& privacy);

} // namespace tool
