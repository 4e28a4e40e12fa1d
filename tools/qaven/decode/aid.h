// Application identifiers.
#pragma once

#include "tools/emv/hex.h"

#include <string>

namespace tool {

// Hex digits and whose they are; a name in characters ("1PAY.SYS.DDF01") as text.
std::string aid_text(Bytes aid);

} // namespace tool
