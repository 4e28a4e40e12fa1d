// The data formats of the tags that cards ask for in their data object lists.
#pragma once

#include "engine/data/tlv.h"
#include "support/export.h"

#include <array>

// Bytes of the table.
constexpr int kTagTableSize = 431;

// 160 entries back to back: a tag of one or two bytes, then its format letter: a alphanumeric,
// b binary, c compressed numeric, n numeric, t template, v variable-format identifier, g (tag 04
// only).
QAVEN_API extern const unsigned char gcTagName[kTagTableSize];

namespace qaven {

// How the value of each tag of one or two bytes answers a list, by the tag's number: its letter in
// gcTagName; 0 where zeros do, also for templates.
[[gnu::visibility("hidden")]] extern const std::array<unsigned char, tlv::kTagNumbers>
    kFormatLetters;

} // namespace qaven
