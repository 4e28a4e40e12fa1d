// What there is to say about a value, by its form.
#pragma once

#include "tools/emv/hex.h"
#include "tools/emv/tags.h"
#include "tools/qaven/decode/outline.h"

#include <string>
#include <string_view>

namespace qaven::cli {

// Bits, entries and parts, a line each; nothing for values that their short text says all about.
void explain_value(emv::Form form, emv::Bytes value, Outline& out);

// The short text; of bytes that do not make sense as the form, which may be anything, guarded
// digits.
std::string shown_value(emv::Form form, emv::Bytes value, std::string_view currency,
                        emv::Privacy& privacy);

// The value has a layout of its own, whose digits are no part of an account number.
bool is_told_value(emv::Form form, emv::Bytes value);

} // namespace qaven::cli
