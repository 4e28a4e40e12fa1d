// The letter-coded texts of hosts: a letter, a length in three digits, and so many characters.
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::emv {

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
    // Blanks after the last record.
    std::size_t blanks = 0;
};

LetterRecords letter_records(std::string_view text);

// The first value with this letter; empty when there is none.
std::string value_of(std::span<const LetterRecord> records, char letter);

// A log's entries: a letter that comes again begins the next one.
std::vector<std::vector<LetterRecord>> log_entries(std::span<const LetterRecord> records);

// The two count bytes ahead of a transaction log are raw, and any character of text can be one:
// whether they are there is told by what follows them.
bool has_log_counts(std::string_view text);

} // namespace qaven::emv

namespace tool {
using namespace qaven::emv;
}
