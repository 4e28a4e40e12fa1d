// What account and identity numbers look like in text that is not known to hold one.
#include "tools/emv/number_shapes.h"

#include "tools/emv/hex.h"
#include "tools/emv/known_numbers.h"

#include <algorithm>
#include <span>
#include <vector>

namespace qaven::emv {

namespace {

constexpr std::size_t kIdentityNumber = 18;

int two_digits(std::string_view digits) {
    return 10 * digit_value(digits[0]) + digit_value(digits[1]);
}

// The check digit that account numbers end with.
bool has_check_digit(std::string_view digits) {
    int sum = 0;
    bool doubled = false;
    for (std::size_t at = digits.size(); at-- > 0;) {
        const int digit = digit_value(digits[at]) * (doubled ? 2 : 1);
        sum += digit > 9 ? digit - 9 : digit;
        doubled = !doubled;
    }
    return sum % 10 == 0;
}

// The issuers of bank cards begin their numbers so; 20 is the year in a time of day.
bool begins_as_bank_card(std::string_view digits) {
    const int beginning = two_digits(digits);
    return (beginning >= 30 && beginning <= 69) || beginning >= 90 || beginning == 81 ||
           (beginning >= 22 && beginning <= 27);
}

// The lengths that numbers with this beginning have: what stands in the middle of other digits
// needs more than a check digit to be one.
bool has_length_of_issuer(std::string_view digits) {
    const int beginning = two_digits(digits);
    const std::size_t size = digits.size();
    if (beginning == 34 || beginning == 37) {
        return size == 15;
    }
    if (beginning >= 40 && beginning <= 49) {
        return size == 13 || size == 16 || size == 19;
    }
    if (beginning <= 27 || (beginning >= 51 && beginning <= 55)) {
        return size == 16;
    }
    const bool diners = beginning == 30 || beginning == 36 || beginning == 38 || beginning == 39;
    return (size >= 16 && beginning != 31 && beginning != 32 && beginning != 33) ||
           (diners && size == 14);
}

// Date and time, with thousandths of a second or without: what logs are full of.
bool is_timestamp(std::string_view digits) {
    constexpr std::size_t kSeconds = 14;
    constexpr std::size_t kThousandths = 17;
    if ((digits.size() != kSeconds && digits.size() != kThousandths) ||
        (!digits.starts_with("19") && !digits.starts_with("20"))) {
        return false;
    }
    const auto within = [&](std::size_t at, int least, int most) {
        const int number = two_digits(digits.substr(at));
        return number >= least && number <= most;
    };
    return within(4, 1, 12) && within(6, 1, 31) && within(8, 0, 23) && within(10, 0, 59) &&
           within(12, 0, 60);
}

// Digits of a text, each of which stands there as one character or as two, the hex of it.
struct Run {
    std::string digits;
    std::size_t at;
    std::size_t each;

    void mask(std::string& text, std::size_t from, std::size_t to) const {
        std::fill(text.begin() + static_cast<std::ptrdiff_t>(at + from * each),
                  text.begin() + static_cast<std::ptrdiff_t>(at + to * each), kMask);
    }

    void mask_middle(std::string& text, std::size_t from, std::size_t size) const {
        mask(text, from + kShownAhead, from + size - kShownBehind);
    }
};

// Between other characters: the whole run is an account number, or an identity number is in it.
void mask_run(std::string& text, const Run& run) {
    const std::string_view digits(run.digits);
    if (is_timestamp(digits)) {
        return;
    }
    if (is_account_number(digits)) {
        run.mask_middle(text, 0, digits.size());
        return;
    }
    for (std::size_t at = 0; at + kIdentityNumber <= digits.size(); ++at) {
        if (is_identity_number(digits.substr(at, kIdentityNumber))) {
            run.mask_middle(text, at, kIdentityNumber);
            at += kIdentityNumber - 1;
        }
    }
}

// As hex of characters so many digits in a row are nothing else; but a time of day.
void mask_hex_run(std::string& text, const Run& run) {
    if (is_account_number(run.digits)) {
        run.mask_middle(text, 0, run.digits.size());
    } else if (!is_timestamp(run.digits)) {
        run.mask(text, kShownAhead, run.digits.size());
    }
}

bool may_be_of_number(char character) {
    return is_digit(character) || character == 'X' || character == 'x';
}

Run digits_from(std::string_view text, std::size_t at) {
    const std::size_t end = std::min(text.find_first_not_of("0123456789", at), text.size());
    return {std::string(text.substr(at, end - at)), at, 1};
}

void mask_runs(std::string& text, std::size_t begin, std::size_t end) {
    for (std::size_t at = begin; at < end; ++at) {
        Run run = digits_from(text, at);
        at += run.digits.size();
        if (run.digits.size() >= kShortestNumber) {
            if (at < text.size() && may_be_of_number(text[at])) {
                run.digits += 'X';
            }
            mask_run(text, run);
        }
    }
}

// Runs of digits as hex of their characters, each of two digits, the first at begin.
template <typename Take>
void for_each_run_of_hex(std::string_view text, std::size_t begin, std::size_t end, Take take) {
    for (std::size_t at = begin; at + 1 < end; at += 2) {
        Run run{{}, at, 2};
        for (; at + 1 < end; at += 2) {
            const auto character = static_cast<char>(16 * std::max(digit_value(text[at]), 0) +
                                                     std::max(digit_value(text[at + 1]), 0));
            if (!may_be_of_number(character)) {
                break;
            }
            run.digits += character;
        }
        if (run.digits.size() >= kShortestNumber) {
            take(run);
        }
    }
}

bool is_blank(char character) {
    return character == ' ' || character == '\t' || character == '\r' || character == '\n' ||
           character == ':' || character == '-';
}

// The places of digits from here on, with a few blanks between them at most.
std::vector<std::size_t> joined_digits(std::string_view text, std::size_t at) {
    constexpr std::size_t kMostBlanks = 3;
    std::vector<std::size_t> places;
    for (std::size_t blanks = 0; at < text.size() && blanks <= kMostBlanks; ++at) {
        if (is_digit(text[at])) {
            places.push_back(at);
            blanks = 0;
        } else if (is_blank(text[at])) {
            ++blanks;
        } else {
            break;
        }
    }
    return places;
}

// Masks digits that stand in groups and gives the end of the last.
std::size_t mask_groups(std::string& text, std::size_t at, std::size_t least) {
    constexpr std::size_t kTimestamp = 14;
    const std::vector<std::size_t> places = joined_digits(text, at);
    std::string digits;
    for (const std::size_t place : places) {
        digits += text[place];
    }
    const std::size_t time = is_timestamp(digits.substr(0, kTimestamp)) ? kTimestamp : 0;
    if (digits.size() - time >= std::max(least, kShortestNumber)) {
        for (const std::size_t place : std::span(places).subspan(time + kShownAhead)) {
            text[place] = kMask;
        }
    }
    return places.back() + 1;
}

bool is_of_token(char character) {
    return digit_value(character) >= 0 || (character >= 'A' && character <= 'Z') ||
           character == '=';
}

void mask_digits_of_token(std::string& text, std::size_t begin, std::size_t end,
                          std::size_t least) {
    for (std::size_t at = begin; at < end; ++at) {
        const Run run = digits_from(text, at);
        at += run.digits.size();
        if (run.digits.size() >= least && !is_timestamp(run.digits)) {
            run.mask(text, kShownAhead, run.digits.size());
        }
    }
}

} // namespace

bool may_be_number(std::string_view digits) {
    return digits.size() >= kShortestNumber && digits.size() <= kLongestNumber &&
           all_digits(digits) && begins_as_bank_card(digits);
}

bool is_account_number(std::string_view text) {
    return may_be_number(text) && has_check_digit(text);
}

bool is_identity_number(std::string_view text) {
    if (text.size() != kIdentityNumber || !all_digits(text.substr(0, kIdentityNumber - 1)) ||
        !may_be_of_number(text.back())) {
        return false;
    }
    const int province = two_digits(text);
    const int century = two_digits(text.substr(6));
    const int month = two_digits(text.substr(10));
    const int day = two_digits(text.substr(12));
    return province >= 11 && province <= 83 && (century == 19 || century == 20) && month >= 1 &&
           month <= 12 && day >= 1 && day <= 31;
}

bool is_packed_number(std::string_view digits) {
    const std::size_t end = digits.find_last_not_of("Ff") + 1;
    const std::string_view number = digits.substr(0, end);
    return digits.size() - end <= 1 && may_be_number(number) &&
           (digits.size() != end || has_check_digit(number));
}

bool are_fields(std::string_view digits) {
    return digits.size() >= kShortestNumber && all_digits(digits) && !begins_as_bank_card(digits);
}

std::vector<std::string_view> packed_numbers(std::string_view digits) {
    std::vector<std::string_view> numbers;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        const std::string_view rest = digits.substr(at, kLongestNumber + 1);
        const std::size_t run = std::min(rest.find_first_not_of("0123456789"), rest.size());
        for (std::size_t size = std::min(run, kLongestNumber); size >= kShortestNumber; --size) {
            const std::string_view number = rest.substr(0, size);
            // A number ends with a byte, filled up by F; but nothing else begins like one.
            const bool ends = at == 0 || size % 2 == 0 || upper(rest.substr(size, 1)) == "F";
            if (ends && has_length_of_issuer(number) && is_account_number(number)) {
                numbers.push_back(number);
                at += size - 2 + size % 2;
                break;
            }
        }
    }
    return numbers;
}

std::vector<std::string> numbers_in_hex_of_text(std::string_view digits) {
    std::vector<std::string> numbers;
    for (const std::size_t begin : {0U, 1U}) {
        for_each_run_of_hex(digits, begin, digits.size(), [&](const Run& run) {
            if (begins_as_bank_card(run.digits)) {
                numbers.push_back(run.digits);
            }
            // Behind the length of a record.
            for (std::size_t at = 1; at + kShortestNumber <= run.digits.size() && at < 5; ++at) {
                if (is_account_number(run.digits.substr(at))) {
                    numbers.push_back(run.digits.substr(at));
                }
            }
        });
    }
    return numbers;
}

void mask_lookalikes(std::string& text) {
    for (std::size_t at = 0; at < text.size();) {
        std::size_t end = at;
        while (end < text.size() && digit_value(text[end]) >= 0) {
            ++end;
        }
        if (end - at >= kShortestNumber) {
            mask_runs(text, at, end);
            for (const std::size_t begin : {at, at + 1}) {
                for_each_run_of_hex(text, begin, end,
                                    [&](const Run& run) { mask_hex_run(text, run); });
            }
        }
        at = end + 1;
    }
}

void mask_long_runs(std::string& text, std::size_t least) {
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::size_t begin = at;
        while (at < text.size() && is_of_token(text[at])) {
            ++at;
        }
        if (at - begin >= kShortestNumber) {
            mask_digits_of_token(text, begin, at, least);
        }
    }
    for (std::size_t at = 0; at < text.size();) {
        at = is_digit(text[at]) ? mask_groups(text, at, least) : at + 1;
    }
}

} // namespace qaven::emv
