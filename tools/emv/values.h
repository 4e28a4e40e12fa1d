// The value of a data object, or of a record of a host's text, as people write it.
#pragma once

#include "tools/emv/hex.h"
#include "tools/emv/privacy.h"
#include "tools/emv/tags.h"

#include <string>
#include <string_view>

namespace qaven::emv {

// "12.13 CNY", "2030-12-31", "00 (purchase)". currency: its four digits, or "".
std::string value_text(Form form, Bytes value, std::string_view currency, Privacy& privacy);

// The text of a record, without what fills it up.
std::string record_text(Form form, std::string_view value, std::string_view currency,
                        Privacy& privacy);

// "has 6 bytes instead of 5"; "" for a size that values of this form have.
std::string wrong_size(Form form, std::size_t size);

// The digits of an account number, filled up with F or not.
std::string account_number_text(std::string_view digits, Privacy& privacy);

// Digits, D or =, expiry, service code, discretionary data; filled up with F or not.
std::string track2_text(std::string_view track, Privacy& privacy);

// Bytes that are text, too short for a part of an account number.
bool is_short_text(Bytes value);

} // namespace qaven::emv
