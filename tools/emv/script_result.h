// What became of an issuer script, as the library reports it (tag DF31).
#pragma once

#include "tools/emv/hex.h"

#include <optional>
#include <string>
#include <string_view>

namespace qaven::emv {

// Of one script: its result, then its identifier (9F18).
constexpr std::size_t kScriptResultSize = 5;

// "the script was carried out" and the like.
std::string script_outcome(unsigned char result);

// The results in the library's text, in which a byte of an identifier from 80 on has eight digits.
// Nothing for a text that does not begin as one.
std::optional<HexText> script_results_in(std::string_view text);

} // namespace qaven::emv
