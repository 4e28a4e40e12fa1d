// The letter-coded texts: a letter, the length in three digits, and so many characters.
#include "tools/qaven/decode/records.h"

#include "tools/emv/aid.h"
#include "tools/emv/gbk.h"
#include "tools/emv/hex.h"
#include "tools/emv/values.h"

#include <algorithm>
#include <span>

namespace qaven::cli {

using namespace emv;

namespace {

void explain_record(const LetterRecord& record, std::span<const LetterField> fields,
                    std::string_view currency, Outline& out) {
    const LetterField* const field = find_field(fields, record.letter);
    const std::string letter = readable({&record.letter, 1});
    if (field == nullptr) {
        out.line(letter + " (ignored): " + in_quotes(out.privacy().guarded(record.value)));
        return;
    }
    // A text is searched for numbers by itself.
    const bool is_text = field->form == Form::kText;
    const std::string text = record_text(field->form, record.value, currency, out.privacy());
    out.line(letter + ' ' + std::string(field->name) + ": " +
                 (record.value.empty() ? "(empty)"
                  : is_text            ? '"' + text + '"'
                                       : text),
             is_text);
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

void explain_all(std::string_view text, std::span<const LetterField> fields,
                 std::string_view currency, Outline& out) {
    const LetterRecords read = letter_records(text);
    for (const LetterRecord& record : read.records) {
        explain_record(record, fields, currency, out);
    }
    explain_rest(read, text, out);
}

void explain_log(std::string_view text, std::span<const LetterField> fields, Outline& out) {
    const LetterRecords read = letter_records(text);
    int number = 0;
    for (const auto& entry : log_entries(read.records)) {
        out.line("entry " + std::to_string(++number));
        const auto nest = out.nest();
        // The load log is of electronic cash, and names an amount with the letter of a currency.
        const std::string currency = fields.data() == kTransactionLog.data()
                                         ? value_of(entry, 'R')
                                         : std::string(kCashCurrency);
        for (const LetterRecord& record : entry) {
            explain_record(record, fields, currency, out);
        }
    }
    explain_rest(read, text, out);
}

} // namespace

void explain_card_information(std::string_view text, Outline& out) {
    explain_all(text, kCardInformation, kCashCurrency, out);
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
        if (const LetterField* const field = find_field(kCardInformation, letter)) {
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

} // namespace qaven::cli
