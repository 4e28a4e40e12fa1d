// The answer to reset.
#pragma once

#include "decode/outline.h"
#include "tools/emv/hex.h"

namespace tool {

// Begins as one and is exactly as long as it says.
bool is_atr(Bytes atr);

void explain_atr(Bytes atr, Outline& out);

} // namespace tool
