// Lists of what a card wants to be told.
#pragma once

#include "tools/emv/hex.h"
#include "tools/qaven/decode/outline.h"

namespace qaven::cli {

// Data object list: tags and lengths. start: where the list begins in what the user gave.
void explain_dol(emv::Bytes list, std::size_t start, Outline& out);

// Tags alone.
void explain_tag_list(emv::Bytes list, Outline& out);

// More than one entry; every one is whole and has a tag that a terminal may be asked for.
bool is_dol_of_known_tags(emv::Bytes list);

} // namespace qaven::cli
