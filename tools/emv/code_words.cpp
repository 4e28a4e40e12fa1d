// Codes and the words for them.
#include "tools/emv/code_words.h"

#include "tools/emv/hex.h"
#include "tools/emv/money.h"

#include <algorithm>
#include <array>

namespace qaven::emv {

namespace {

struct Words {
    std::string_view code;
    std::string_view words;
    std::string_view name = {}; // on a command line
};

template <std::size_t Size>
std::string_view words_for(const std::array<Words, Size>& table, std::string_view code) {
    const auto* const found = std::ranges::find(table, code, &Words::code);
    return found != table.end() ? found->words : std::string_view();
}

constexpr auto kTransactionTypes = std::to_array<Words>({
    {"00", "purchase", "purchase"},
    {"01", "cash", "cash"},
    {"09", "purchase with cashback", "cashback"},
    {"17", "cash advance"},
    {"20", "refund", "refund"},
    {"21", "deposit", "deposit"},
    {"30", "balance inquiry"},
    {"31", "balance inquiry", "balance"},
    {"33", "account verification"},
    {"40", "transfer", "transfer"},
    {"60", "load of electronic cash from the linked account"},
    {"62", "load of electronic cash from another account"},
    {"63", "load of electronic cash with banknotes"},
});

constexpr auto kIdentityTypes = std::to_array<Words>({
    {"00", "identity card"},
    {"01", "military officer's card"},
    {"02", "passport"},
    {"03", "entry permit"},
    {"04", "temporary identity card"},
    {"05", "other"},
});

constexpr auto kResponseCodes = std::to_array<Words>({
    {"00", "approved online"},
    {"01", "refer to the issuer"},
    {"02", "refer to the issuer"},
    {"04", "capture the card"},
    {"05", "declined online"},
    {"10", "approved for a part of the amount"},
    {"11", "approved (VIP)"},
    {"12", "declined: invalid transaction"},
    {"14", "declined: invalid card number"},
    {"31", "declined: the switch does not support the issuer"},
    {"40", "declined: function not supported"},
    {"41", "declined: lost card"},
    {"51", "declined: not enough money"},
    {"54", "declined: the card has expired"},
    {"55", "declined: wrong PIN"},
    {"61", "declined: the amount exceeds a limit"},
    {"65", "declined: more transactions than a limit allows"},
    {"75", "declined: too many PIN tries"},
    {"91", "declined: issuer or switch does not answer"},
    {"96", "declined: system malfunction"},
    {"Y1", "approved offline"},
    {"Z1", "declined offline"},
    {"Y2", "approved after a referral"},
    {"Z2", "declined after a referral"},
    {"Y3", "could not go online, approved offline"},
    {"Z3", "could not go online, declined offline"},
});

constexpr auto kCountries = std::to_array<Words>({
#include "countries.inc"
});

std::string with_words(std::string_view code, std::string_view words) {
    return words.empty() ? std::string(code) : std::string(code) + " (" + std::string(words) + ')';
}

} // namespace

std::string transaction_type_text(std::string_view digits) {
    return with_words(digits, words_for(kTransactionTypes, digits));
}

std::string currency_text(std::string_view digits) {
    return with_words(digits, currency_letters(digits));
}

std::string country_text(std::string_view digits) {
    const std::string number(digits.size() == 3 ? 1 : 0, '0');
    return with_words(digits, words_for(kCountries, number + std::string(digits)));
}

std::string identity_type_text(std::string_view digits) {
    return with_words(digits, words_for(kIdentityTypes, digits));
}

std::string_view response_code_words(std::string_view code) {
    return words_for(kResponseCodes, code);
}

std::optional<std::string> transaction_type_digits(std::string_view text) {
    const auto* const named = std::ranges::find(kTransactionTypes, text, &Words::name);
    if (!text.empty() && named != kTransactionTypes.end()) {
        return std::string(named->code);
    }
    return text.size() == 2 && all_digits(text) ? std::optional(std::string(text)) : std::nullopt;
}

std::string transaction_type_names() {
    std::string names;
    for (const Words& type : kTransactionTypes) {
        const std::string_view separator = names.empty() || type.name.empty() ? "" : ", ";
        names.append(separator).append(type.name);
    }
    return names;
}

} // namespace qaven::emv
