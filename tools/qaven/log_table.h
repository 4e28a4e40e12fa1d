// A log of the card as people read it.
#pragma once

#include "card_text.h"
#include "library.h"
#include "terminal.h"

#include <optional>
#include <string>
#include <string_view>

namespace tool {

// The records of the library's transaction log text; nothing when the card keeps no log, or has
// none to give.
std::optional<std::string> transaction_records(const Answer& log);

// One row for each record of the letter-coded text, below the names of the columns.
void print_log(std::string_view text, const Row& columns, Row (*row_of)(LetterFields));

} // namespace tool
