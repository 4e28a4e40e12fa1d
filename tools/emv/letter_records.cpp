// Reading letter-coded texts.
#include "tools/emv/letter_records.h"

#include "tools/emv/hex.h"

#include <algorithm>

namespace qaven::emv {

namespace {

constexpr std::size_t kHead = 4;
constexpr std::size_t kLogCounts = 2;

// The length field of a record, which the library makes smaller by one as a character when it drops
// a filling digit: "02/" is one less than "020".
std::optional<std::size_t> length_of(std::string_view digits) {
    if (!all_digits(digits.substr(0, 2)) || digits[2] < '/' || digits[2] > '9') {
        return std::nullopt;
    }
    const int length = 100 * (digits[0] - '0') + 10 * (digits[1] - '0') + (digits[2] - '0');
    return length < 0 ? std::nullopt : std::optional(static_cast<std::size_t>(length));
}

} // namespace

LetterRecords letter_records(std::string_view text) {
    LetterRecords result;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::string_view rest = text.substr(at);
        if (rest.size() < kHead &&
            std::ranges::all_of(rest, [](char c) { return c == ' ' || c == '\0'; })) {
            result.blanks = rest.size();
            break;
        }
        const bool lettered = rest[0] >= 'A' && rest[0] <= 'Z';
        const auto length =
            lettered && rest.size() >= kHead ? length_of(rest.substr(1, 3)) : std::nullopt;
        if (!length || *length > rest.size() - kHead) {
            result.stops_at = at;
            result.cut = length.has_value();
            break;
        }
        result.records.push_back({rest[0], rest.substr(kHead, *length)});
        at += kHead + *length;
    }
    return result;
}

const LetterField* find_field(std::span<const LetterField> fields, char letter) {
    const auto found = std::ranges::find(fields, letter, &LetterField::letter);
    return found != fields.end() ? &*found : nullptr;
}

std::string value_of(std::span<const LetterRecord> records, char letter) {
    const auto found = std::ranges::find(records, letter, &LetterRecord::letter);
    return std::string(found != records.end() ? found->value : "");
}

std::vector<std::vector<LetterRecord>> log_entries(std::span<const LetterRecord> records) {
    std::vector<std::vector<LetterRecord>> entries;
    for (const LetterRecord& record : records) {
        if (entries.empty() || std::ranges::find(entries.back(), record.letter,
                                                 &LetterRecord::letter) != entries.back().end()) {
            entries.emplace_back();
        }
        entries.back().push_back(record);
    }
    return entries;
}

bool has_log_counts(std::string_view text) {
    return text.size() >= kLogCounts + kHead && text[kLogCounts] == 'P' &&
           length_of(text.substr(kLogCounts + 1, 3)).has_value();
}

} // namespace qaven::emv
