// A log of the card as people read it.
#pragma once

#include "library.h"
#include "terminal.h"
#include "tools/emv/letter_records.h"

#include <optional>
#include <string>
#include <string_view>

namespace tool {

// The records of the library's transaction log text; nothing when the card keeps no log, or has
// none to give.
std::optional<std::string> transaction_records(const Answer& log);

// One row for each entry of the letter-coded text, below the names of the columns.
using Entry = std::span<const LetterRecord>;
void print_log(std::string_view text, const Row& columns, Row (*row_of)(Entry));

} // namespace tool
