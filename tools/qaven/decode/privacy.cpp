// What of a card number, of track data and of an identity number may be seen.
#include "decode/privacy.h"

#include "decode/bytes.h"

#include <algorithm>
#include <array>
#include <optional>

namespace tool {

namespace {

constexpr std::size_t kShownAhead = 6;
constexpr std::size_t kShownBehind = 4;
constexpr std::size_t kShortestNumber = 13;
constexpr std::size_t kLongestNumber = 19;

// A number that a line's end has cut off is known by its beginning.
constexpr std::size_t kTellingBeginning = 8;

// In text that nobody can take apart, a run of digits that could be a good part of a number.
constexpr std::size_t kTellingRun = 9;

// Expiry and service code stand between account number and the rest of track 2.
constexpr std::size_t kShownOfTrack = 7;

// A trace of a year has many cards; a number turns up again close to where it was met first.
constexpr std::size_t kMostNumbers = 64;

constexpr char kMask = '*';

bool is_shown(std::size_t place, std::size_t size) {
    return size > kShownAhead + kShownBehind &&
           (place < kShownAhead || place + kShownBehind >= size);
}

bool is_blank(char character) {
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

char to_upper(char character) {
    return character >= 'a' && character <= 'z' ? static_cast<char>(character - 'a' + 'A')
                                                : character;
}

// The hex digits of the characters: "62" gives "3632".
std::string hex_of_characters(std::string_view number) {
    return hex(bytes_of(number));
}

// The places in text of the characters of a wanted text, blanks between them passed over: as many
// as are there in a row.
std::vector<std::size_t> match(std::string_view text, std::size_t at, std::string_view wanted) {
    std::vector<std::size_t> places;
    for (; at < text.size() && places.size() < wanted.size(); ++at) {
        if (is_blank(text[at]) && !places.empty()) {
            continue;
        }
        if (to_upper(text[at]) != wanted[places.size()]) {
            break;
        }
        places.push_back(at);
    }
    return places;
}

// Behind an account number: the rest of track 2, up to its end.
void mask_rest_of_track(std::string& text, std::size_t at) {
    while (at < text.size() && is_blank(text[at])) {
        ++at;
    }
    if (at >= text.size() || (to_upper(text[at]) != 'D' && text[at] != '=')) {
        return;
    }
    std::size_t seen = 0;
    for (++at; at < text.size() && (is_digit(text[at]) || is_blank(text[at])); ++at) {
        if (!is_blank(text[at]) && seen++ >= kShownOfTrack) {
            text[at] = kMask;
        }
    }
}

// What is looked for: a number, or its end alone.
struct Wanted {
    std::string form;
    std::size_t characters_each; // of the form, for one of the number
    bool has_beginning;
};

void mask(std::string& text, const Wanted& wanted) {
    const std::size_t each = wanted.characters_each;
    const std::size_t size = wanted.form.size() / each;
    for (std::size_t at = 0; at < text.size(); ++at) {
        const std::vector<std::size_t> places = match(text, at, wanted.form);
        const std::size_t found = places.size() / each;
        const bool whole = found == size;
        const bool cut_off = !places.empty() && places.back() + 1 == text.size();
        if (!whole && found < (cut_off ? kTellingBeginning : kShortestNumber)) {
            continue;
        }
        for (std::size_t k = 0; k < places.size(); ++k) {
            const std::size_t place = k / each;
            const bool beginning = wanted.has_beginning && place < kShownAhead;
            const bool end = whole && place + kShownBehind >= size;
            if (!beginning && !end) {
                text[places[k]] = kMask;
            }
        }
        mask_rest_of_track(text, places.back() + 1);
        at = places.back();
    }
}

// The check digit that account numbers end with.
bool has_check_digit(std::string_view digits) {
    int sum = 0;
    bool doubled = false;
    for (std::size_t at = digits.size(); at-- > 0;) {
        const int digit = (digits[at] - '0') * (doubled ? 2 : 1);
        sum += digit > 9 ? digit - 9 : digit;
        doubled = !doubled;
    }
    return sum % 10 == 0;
}

bool begins_as_bank_card(char digit) {
    return (digit >= '3' && digit <= '6') || digit == '9';
}

bool has_number_length(std::size_t length) {
    return length >= kShortestNumber && length <= kLongestNumber;
}

// Behind one of the tags that hold an account number, and its length: the value's beginning.
std::optional<std::size_t> behind_account_tag(std::string_view text, std::size_t at) {
    for (const std::string_view tag : {"5A", "57", "9F6B"}) {
        if (text.substr(at).starts_with(tag) && at + tag.size() + 2 <= text.size()) {
            const int high = digit_value(text[at + tag.size()]);
            const int low = digit_value(text[at + tag.size() + 1]);
            const int length = 16 * high + low;
            if (high >= 0 && low >= 0 && length >= 7 && length <= 19) {
                return at + tag.size() + 2;
            }
        }
    }
    return std::nullopt;
}

bool is_token(char character) {
    return digit_value(character) >= 0 || (character >= 'A' && character <= 'Z') ||
           character == '=';
}

// Date and time, with thousandths of a second or without: what logs are full of.
bool is_timestamp(std::string_view token) {
    return (token.size() == 14 || token.size() == 17) && all_digits(token) &&
           (token.starts_with("19") || token.starts_with("20")) && token.substr(4, 2) >= "01" &&
           token.substr(4, 2) <= "12";
}

void guard_token(std::string& text, std::size_t begin, std::size_t end) {
    if (is_timestamp(std::string_view(text).substr(begin, end - begin))) {
        return;
    }
    for (std::size_t at = begin; at < end;) {
        std::size_t run = at;
        while (run < end && is_digit(text[run])) {
            ++run;
        }
        if (run - at >= kTellingRun) {
            std::fill(text.begin() + static_cast<std::ptrdiff_t>(at + kShownAhead),
                      text.begin() + static_cast<std::ptrdiff_t>(run), kMask);
        }
        at = run + 1;
    }
}

std::string_view digits_at(std::string_view text, std::size_t at) {
    std::size_t end = at;
    while (end < text.size() && is_digit(text[end])) {
        ++end;
    }
    return text.substr(at, end - at);
}

} // namespace

bool is_account_number(std::string_view text) {
    return has_number_length(text.size()) && all_digits(text) && begins_as_bank_card(text[0]) &&
           has_check_digit(text);
}

std::string Privacy::number(std::string_view digits) {
    std::string shown(digits);
    if (show_all_) {
        return shown;
    }
    remember(digits);
    for (std::size_t place = 0; place < shown.size(); ++place) {
        if (!is_shown(place, shown.size())) {
            shown[place] = kMask;
        }
    }
    return shown;
}

std::string Privacy::track_data(std::string_view data) const {
    return show_all_ ? std::string(data) : "(not shown)";
}

void Privacy::remember(std::string_view digits) {
    if (digits.size() < kShortestNumber) {
        return;
    }
    if (std::ranges::find(numbers_, digits) != numbers_.end()) {
        return;
    }
    if (numbers_.size() == kMostNumbers) {
        numbers_.erase(numbers_.begin());
    }
    numbers_.emplace_back(digits);
}

void Privacy::learn(std::string_view text) {
    if (show_all_) {
        return;
    }
    std::string joined = upper(text);
    std::erase_if(joined, is_blank);
    const std::string_view all(joined);
    for (std::size_t at = 0; at < all.size(); ++at) {
        if (const auto value = behind_account_tag(all, at)) {
            const std::string_view digits = digits_at(all, *value);
            remember(digits.substr(0, kLongestNumber));
        }
        if (!is_digit(all[at]) || (at > 0 && is_digit(all[at - 1]))) {
            continue;
        }
        std::string_view run = digits_at(all, at);
        const std::string_view behind = all.substr(at + run.size());
        const bool track2 = run.size() >= kShortestNumber &&
                            (behind.starts_with('=') || behind.starts_with('D')) &&
                            digits_at(behind, 1).size() >= 4;
        if (track2) {
            // Tag, length or a field's length may stand ahead of it as further digits.
            for (std::size_t size = kShortestNumber; size <= std::min(run.size(), kLongestNumber);
                 ++size) {
                const std::string_view tail = run.substr(run.size() - size);
                if (size == std::min(run.size(), kLongestNumber) ||
                    (begins_as_bank_card(tail[0]) && has_check_digit(tail))) {
                    remember(tail);
                }
            }
        } else if (is_account_number(run)) {
            remember(run);
        }
    }
}

std::string Privacy::guarded(std::string_view text) {
    learn(text);
    std::string shown = redacted(std::string(text));
    if (show_all_) {
        return shown;
    }
    for (std::size_t at = 0; at < shown.size();) {
        std::size_t end = at;
        while (end < shown.size() && is_token(shown[end])) {
            ++end;
        }
        if (end - at >= kShortestNumber) {
            guard_token(shown, at, end);
        }
        at = end + 1;
    }
    return shown;
}

std::string Privacy::redacted(std::string text) const {
    if (!show_all_) {
        for (const std::string& number : numbers_) {
            for (std::size_t skip = 0; skip + kShortestNumber <= number.size(); ++skip) {
                const std::string end = number.substr(skip);
                mask(text, {end, 1, skip == 0});
                mask(text, {hex_of_characters(end), 2, skip == 0});
            }
        }
    }
    return text;
}

} // namespace tool
