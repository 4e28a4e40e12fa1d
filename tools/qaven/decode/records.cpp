// The letter-coded texts: a letter, the length in three digits, and so many characters.
#include "decode/records.h"

#include "decode/aid.h"
#include "tools/emv/gbk.h"
#include "decode/values.h"
#include "tools/emv/code_words.h"
#include "tools/emv/date_time.h"
#include "tools/emv/hex.h"
#include "tools/emv/money.h"

#include <algorithm>
#include <array>
#include <span>

namespace tool {

namespace {

enum class Value {
    kText,
    kDigits,
    kAmount,
    kCurrency,
    kCountry,
    kDate,
    kTime,
    kType,
    kAccountNumber,
    kIdentityType,
    kIdentityNumber,
    kTrack2,
    kTrackData,
    kChange,
};

struct Field {
    char letter;
    std::string_view name;
    Value value;
};

constexpr auto kCardInformation = std::to_array<Field>({
    {'A', "account number (PAN)", Value::kAccountNumber},
    {'B', "cardholder name", Value::kText},
    {'C', "identity type", Value::kIdentityType},
    {'D', "identity number", Value::kIdentityNumber},
    {'E', "track 2", Value::kTrack2},
    {'F', "track 1 discretionary data", Value::kTrackData},
    {'G', "electronic cash balance", Value::kAmount},
    {'H', "electronic cash balance limit", Value::kAmount},
    {'I', "expiry date", Value::kDate},
    {'J', "PAN sequence number", Value::kDigits},
    {'K', "single transaction limit", Value::kAmount},
    {'L', "issuer text 1 (DF20)", Value::kText},
    {'M', "issuer text 2 (DF21)", Value::kText},
    {'N', "issuer text 3 (DF22)", Value::kText},
    {'O', "issuer text 4 (DF23)", Value::kText},
});

constexpr auto kTransactionData = std::to_array<Field>({
    {'P', "amount, authorised", Value::kAmount},
    {'Q', "amount, other", Value::kAmount},
    {'R', "currency", Value::kCurrency},
    {'S', "date", Value::kDate},
    {'T', "transaction type", Value::kType},
    {'U', "time", Value::kTime},
    {'V', "merchant", Value::kText},
    {'Z', "SM algorithm indicator", Value::kDigits},
});

constexpr auto kTransactionLog = std::to_array<Field>({
    {'P', "amount, authorised", Value::kAmount},
    {'Q', "amount, other", Value::kAmount},
    {'R', "currency", Value::kCurrency},
    {'S', "date", Value::kDate},
    {'T', "transaction type", Value::kType},
    {'U', "time", Value::kTime},
    {'V', "terminal country", Value::kCountry},
    {'W', "merchant", Value::kText},
    {'X', "transaction counter (ATC)", Value::kDigits},
});

constexpr auto kLoadLog = std::to_array<Field>({
    {'P', "what was loaded", Value::kChange},
    {'Q', "before the load", Value::kAmount},
    {'R', "after the load", Value::kAmount},
    {'S', "date", Value::kDate},
    {'T', "time", Value::kTime},
    {'U', "terminal country", Value::kCountry},
    {'V', "merchant", Value::kText},
    {'W', "transaction counter (ATC)", Value::kDigits},
});

std::string change_text(std::string_view digits) {
    const HexText tag = from_hex(digits);
    if (tag.bytes.size() != 2) {
        return readable(digits);
    }
    return readable(digits) + ' ' + std::string(tag_name(tag.bytes[0] * 256U + tag.bytes[1]));
}

std::string text_of(Value form, std::string_view value, std::string_view currency,
                    Privacy& privacy) {
    if (value.empty()) {
        return "(empty)";
    }
    const bool shows_number = form == Value::kAccountNumber || form == Value::kIdentityNumber ||
                              form == Value::kTrack2 || form == Value::kTrackData;
    if (value.size() >= kShortestNumber && !shows_number && form != Value::kText) {
        return in_quotes(privacy.guarded(value));
    }
    const std::string shown = readable(value);
    switch (form) {
    case Value::kText:
        return in_quotes(privacy.field(value));
    case Value::kAmount:
        return amount_text(shown, currency);
    case Value::kCurrency:
        return currency_text(shown);
    case Value::kCountry:
        return country_text(shown);
    case Value::kDate:
        return date_text(shown);
    case Value::kTime:
        return time_text(shown);
    case Value::kType:
        return transaction_type_text(shown);
    case Value::kAccountNumber:
        return readable(account_number_text(value, privacy));
    case Value::kIdentityType:
        return identity_type_text(shown);
    case Value::kIdentityNumber:
        return readable(privacy.number(value));
    case Value::kTrack2:
        return readable(track2_text(value, privacy));
    case Value::kTrackData:
        return readable(privacy.track_data(value));
    case Value::kChange:
        return change_text(value);
    case Value::kDigits:
        break;
    }
    return shown;
}

const Field* field_of(std::span<const Field> fields, char letter) {
    const auto found = std::ranges::find(fields, letter, &Field::letter);
    return found != fields.end() ? &*found : nullptr;
}

void explain_record(const LetterRecord& record, std::span<const Field> fields,
                    std::string_view currency, Outline& out) {
    const Field* const field = field_of(fields, record.letter);
    const std::string letter = readable({&record.letter, 1});
    if (field == nullptr) {
        out.line(letter + " (ignored): " + in_quotes(out.privacy().guarded(record.value)));
        return;
    }
    // A text is searched for numbers by itself.
    out.line(letter + ' ' + std::string(field->name) + ": " +
                 text_of(field->value, record.value, currency, out.privacy()),
             field->value == Value::kText);
}

void explain_rest(const LetterRecords& read, std::string_view text, Outline& out) {
    if (!read.stops_at) {
        return;
    }
    const std::string_view rest = text.substr(*read.stops_at);
    out.problem("at character " + std::to_string(*read.stops_at) + ": " +
                (read.cut ? "the record announces more characters than there are: "
                          : "no letter with a length of three digits: ") +
                in_quotes(out.privacy().guarded(rest)));
}

void explain_all(std::string_view text, std::span<const Field> fields, std::string_view currency,
                 Outline& out) {
    const LetterRecords read = letter_records(text);
    for (const LetterRecord& record : read.records) {
        explain_record(record, fields, currency, out);
    }
    explain_rest(read, text, out);
}

void explain_log(std::string_view text, std::span<const Field> fields, Outline& out) {
    const LetterRecords read = letter_records(text);
    int number = 0;
    for (const auto& entry : log_entries(read.records)) {
        out.line("entry " + std::to_string(++number));
        const auto nest = out.nest();
        // The load log names an amount with the letter of a currency.
        const std::string currency =
            fields.data() == kTransactionLog.data() ? value_of(entry, 'R') : std::string();
        for (const LetterRecord& record : entry) {
            explain_record(record, fields, currency, out);
        }
    }
    explain_rest(read, text, out);
}

} // namespace

void explain_card_information(std::string_view text, Outline& out) {
    explain_all(text, kCardInformation, "", out);
}

void explain_transaction_data(std::string_view text, Outline& out) {
    const LetterRecords read = letter_records(text);
    explain_all(text, kTransactionData, value_of(read.records, 'R'), out);
}

void explain_transaction_log(std::string_view text, Outline& out) {
    if (text == "0") {
        out.line("no log, or no application, card or reader to read it from");
        return;
    }
    if (has_log_counts(text)) {
        const auto counts = bytes_of(text.substr(0, 2));
        out.line("entries: " + std::to_string(counts[0]) +
                 ", characters of the last one: " + std::to_string(counts[1]) + " (modulo 256)");
        text.remove_prefix(2);
    } else if (text.empty()) {
        out.line("the log is empty");
    }
    explain_log(text, kTransactionLog, out);
}

void explain_load_log(std::string_view text, Outline& out) {
    explain_log(text, kLoadLog, out);
}

void explain_tag_list_letters(std::string_view text, Outline& out) {
    for (const char letter : text) {
        if (const Field* const field = field_of(kCardInformation, letter)) {
            out.line(std::string(1, letter) + ' ' + std::string(field->name));
        }
    }
}

void explain_aid_list(std::string_view text, Outline& out) {
    constexpr std::size_t kLongestAid = 16;
    std::size_t at = 0;
    while (at <= text.size()) {
        const std::size_t end = std::min(text.find('|', at), text.size());
        const std::string_view field = text.substr(at, end - at);
        const HexText aid = from_hex(field);
        if (field.empty()) {
            out.line("(empty field: any UnionPay application, or the card's directory)");
        } else if (!aid.sound() || aid.bytes.size() > kLongestAid) {
            out.problem("at character " + std::to_string(at) +
                        ": no AID: " + in_quotes(out.privacy().guarded(field)));
        } else if (field[0] == '0') {
            out.line(hex(aid.bytes) + " (the card's directory)");
        } else {
            out.line(aid_text(aid.bytes), is_registered(aid.bytes));
        }
        at = end + 1;
    }
}

} // namespace tool
