// A log of the card as people read it.
#pragma once

#include "card_text.h"
#include "terminal.h"

#include <string_view>

namespace tool {

// One row for each record of the letter-coded text, below the names of the columns.
void print_log(std::string_view text, const Row& columns, Row (*row_of)(LetterFields));

} // namespace tool
