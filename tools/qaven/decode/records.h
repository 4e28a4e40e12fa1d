// The letter-coded texts: a letter, the length in three digits, and so many characters.
#pragma once

#include "tools/emv/letter_records.h"
#include "tools/qaven/decode/outline.h"

#include <string_view>

namespace qaven::cli {

// Letters A to O: what was read from the card.
void explain_card_information(std::string_view text, Outline& out);

// Letters P to V and Z: what the host says about a transaction.
void explain_transaction_data(std::string_view text, Outline& out);

// Letters P to X, record by record, the two count bytes ahead of them or not.
void explain_transaction_log(std::string_view text, Outline& out);

// The log of loads of electronic cash.
void explain_load_log(std::string_view text, Outline& out);

// Wanted fields: letters, whatever stands between them.
void explain_tag_list_letters(std::string_view text, Outline& out);

// AIDs in hex with | between them.
void explain_aid_list(std::string_view text, Outline& out);

} // namespace qaven::cli
