// Application identifiers.
#pragma once

#include "tools/emv/hex.h"

#include <string>

namespace qaven::emv {

// Hex digits and whose they are; a name in characters ("1PAY.SYS.DDF01") as text.
std::string aid_text(Bytes aid);

// Of an internationally registered provider: those that begin with a digit below A begin as account
// numbers do (ISO/IEC 7816-5, 8.2).
bool is_registered(Bytes aid);

} // namespace qaven::emv
