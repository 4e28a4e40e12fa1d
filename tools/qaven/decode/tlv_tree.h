// Data objects as a tree of lines.
#pragma once

#include "decode/outline.h"
#include "tools/emv/hex.h"

namespace tool {

// The objects of data, to its end or to where it stops making sense. start: where data begins in
// what the user gave; places are counted from there.
void explain_objects(Bytes data, std::size_t start, Outline& out);

} // namespace tool
