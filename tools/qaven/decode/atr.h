// The answer to reset.
#pragma once

#include "tools/emv/hex.h"
#include "tools/qaven/decode/outline.h"

namespace qaven::cli {

// Begins as one and is exactly as long as it says.
bool is_atr(emv::Bytes atr);

void explain_atr(emv::Bytes atr, Outline& out);

} // namespace qaven::cli
