// The data formats of the tags that cards ask for in their data object lists.
#pragma once

#include "support/export.h"

#include <span>

// Bytes of the table.
constexpr int kTagTableSize = 431;

// 160 entries back to back: a tag of one or two bytes, then its format letter: a alphanumeric,
// b binary, c compressed numeric, n numeric, t template, v variable-format identifier, g (tag 04
// only).
QAVEN_API extern const unsigned char gcTagName[kTagTableSize];

namespace qaven {

// The format letter of tag in gcTagName, or 0.
unsigned char format_letter(std::span<const unsigned char> tag);

} // namespace qaven
