// A log of the card as people read it.
#pragma once

#include "tools/emv/letter_records.h"
#include "tools/qaven/library.h"

#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace qaven::cli {

// The records of the library's transaction log text; nothing when the card keeps no log, or has
// none to give.
std::optional<std::string> transaction_records(const Answer& log);

struct Column {
    char letter;
    const char* name;
};

// One row for each entry of the letter-coded text, below the names of the columns. currency: of
// entries that do not name theirs.
void print_log(std::string_view text, std::span<const emv::LetterField> fields,
               std::span<const Column> columns, std::string_view currency);

} // namespace qaven::cli
