// The letter-coded texts: a letter, the length in three digits, and so many characters.
#pragma once

#include "decode/outline.h"

#include <optional>
#include <string_view>
#include <vector>

namespace tool {

struct LetterRecord {
    char letter;
    std::string_view value;
};

// What a text is made of, as far as it makes sense.
struct LetterRecords {
    std::vector<LetterRecord> records;
    // Where a record begins that is none or is cut off.
    std::optional<std::size_t> stops_at;
    // A record that announces more characters than there are.
    bool cut = false;
    // Blanks behind the last record.
    std::size_t blanks = 0;
};

LetterRecords letter_records(std::string_view text);

// Letters A to O: what was read from the card.
void explain_card_information(std::string_view text, Outline& out);

// Letters P to V and Z: what the host says about a transaction.
void explain_transaction_data(std::string_view text, Outline& out);

// Letters P to X, record by record, the two count bytes ahead of them or not.
void explain_transaction_log(std::string_view text, Outline& out);

// The log of loads of electronic cash.
void explain_load_log(std::string_view text, Outline& out);

// The count bytes are raw, and any character of text can be one: whether they stand ahead is told
// by what follows them.
bool has_log_counts(std::string_view text);

// Wanted fields: letters, whatever stands between them.
void explain_tag_list_letters(std::string_view text, Outline& out);

// AIDs in hex with | between them.
void explain_aid_list(std::string_view text, Outline& out);

} // namespace tool
