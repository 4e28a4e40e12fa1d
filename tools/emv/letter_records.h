// The letter-coded texts of hosts: a letter, a length in three digits, and so many characters.
#pragma once

#include "tools/emv/tags.h"

#include <array>
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

// Electronic cash is in the currency of the card, which is the yuan.
inline constexpr std::string_view kCashCurrency = "0156";

// What the letter of a record stands for.
struct LetterField {
    char letter;
    std::string_view name;
    Form form;
};

// What was read from the card.
inline constexpr auto kCardInformation = std::to_array<LetterField>({
    {'A', "account number (PAN)", Form::kAccountNumber},
    {'B', "cardholder name", Form::kText},
    {'C', "identity type", Form::kIdentityType},
    {'D', "identity number", Form::kIdentityNumber},
    {'E', "track 2", Form::kTrack2},
    {'F', "track 1 discretionary data", Form::kTrackData},
    {'G', "electronic cash balance", Form::kAmount},
    {'H', "electronic cash balance limit", Form::kAmount},
    {'I', "expiry date", Form::kDate},
    {'J', "PAN sequence number", Form::kDigits},
    {'K', "single transaction limit", Form::kAmount},
    {'L', "issuer text 1 (DF20)", Form::kText},
    {'M', "issuer text 2 (DF21)", Form::kText},
    {'N', "issuer text 3 (DF22)", Form::kText},
    {'O', "issuer text 4 (DF23)", Form::kText},
});

// What the host says about a transaction.
inline constexpr auto kTransactionData = std::to_array<LetterField>({
    {'P', "amount, authorised", Form::kAmount},
    {'Q', "amount, other", Form::kAmount},
    {'R', "currency", Form::kCurrency},
    {'S', "date", Form::kDate},
    {'T', "transaction type", Form::kTransactionType},
    {'U', "time", Form::kTime},
    {'V', "merchant", Form::kText},
    {'Z', "SM algorithm indicator", Form::kDigits},
});

inline constexpr auto kTransactionLog = std::to_array<LetterField>({
    {'P', "amount, authorised", Form::kAmount},
    {'Q', "amount, other", Form::kAmount},
    {'R', "currency", Form::kCurrency},
    {'S', "date", Form::kDate},
    {'T', "transaction type", Form::kTransactionType},
    {'U', "time", Form::kTime},
    {'V', "terminal country", Form::kCountry},
    {'W', "merchant", Form::kText},
    {'X', "transaction counter (ATC)", Form::kDigits},
});

// The log of loads of electronic cash.
inline constexpr auto kLoadLog = std::to_array<LetterField>({
    {'P', "what was loaded", Form::kTag},
    {'Q', "before the load", Form::kAmount},
    {'R', "after the load", Form::kAmount},
    {'S', "date", Form::kDate},
    {'T', "time", Form::kTime},
    {'U', "terminal country", Form::kCountry},
    {'V', "merchant", Form::kText},
    {'W', "transaction counter (ATC)", Form::kDigits},
});

// Null for a letter that stands for nothing there.
const LetterField* find_field(std::span<const LetterField> fields, char letter);

// The first value with this letter; empty when there is none.
std::string value_of(std::span<const LetterRecord> records, char letter);

// A log's entries: a letter that comes again begins the next one.
std::vector<std::vector<LetterRecord>> log_entries(std::span<const LetterRecord> records);

// The two count bytes ahead of a transaction log are raw, and any character of text can be one:
// whether they are there is told by what follows them.
bool has_log_counts(std::string_view text);

} // namespace qaven::emv
