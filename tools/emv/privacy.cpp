// What of a card number, of track data and of an identity number may be seen.
#include "tools/emv/privacy.h"

#include "tools/emv/gbk.h"
#include "tools/emv/number_shapes.h"

#include <algorithm>
#include <optional>
#include <utility>
#include <vector>

namespace qaven::emv {

namespace {

// In text that nobody can take apart, a run of digits that could be a good part of a number.
constexpr std::size_t kTellingRun = 9;

// The number of a shop (ISO 8583, field 42), alone in a field of text.
bool is_merchant_number(std::string_view text) {
    constexpr std::size_t kMerchant = 15;
    return text.size() == kMerchant && all_digits(text) && !may_be_number(text);
}

std::string_view digits_at(std::string_view text, std::size_t at) {
    std::size_t end = at;
    while (end < text.size() && is_digit(text[end])) {
        ++end;
    }
    return text.substr(at, end - at);
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

// The account or identity number of a card information: letter, length, digits.
std::string_view number_of_record(std::string_view text, std::size_t at) {
    constexpr std::size_t kHead = 4;
    if ((text[at] != 'A' && text[at] != 'D') || !all_digits(text.substr(at + 1, kHead - 1))) {
        return {};
    }
    std::size_t length = 0;
    for (const char digit : text.substr(at + 1, kHead - 1)) {
        length = 10 * length + static_cast<std::size_t>(digit_value(digit));
    }
    if (length < kShortestNumber || length > kLongestNumber || text.size() < at + kHead) {
        return {};
    }
    const std::string_view number = text.substr(at + kHead, length);
    return digits_at(number, 0).size() >= kShortestNumber ? number : std::string_view();
}

// The ends of a run of digits ahead of track 2's separator that may be the account number: tag,
// length or a field's length may stand ahead of it as further digits.
template <typename Take>
void for_each_number_of_track(std::string_view run, Take take) {
    const std::size_t longest = std::min(run.size(), kLongestNumber);
    for (std::size_t size = kShortestNumber; size <= longest; ++size) {
        const std::string_view tail = run.substr(run.size() - size);
        if (size == longest || is_account_number(tail)) {
            take(tail);
        }
    }
}

} // namespace

std::string Privacy::number(std::string_view digits) {
    if (show_all_) {
        return std::string(digits);
    }
    known_.add(digits);
    std::vector<std::string_view> characters;
    while (!digits.empty()) {
        characters.push_back(digits.substr(0, gbk_character_size(digits)));
        digits.remove_prefix(characters.back().size());
    }
    const std::size_t size = characters.size();
    std::string shown;
    for (std::size_t at = 0; at < size; ++at) {
        const bool is_shown =
            size > kShownAhead + kShownBehind && (at < kShownAhead || at + kShownBehind >= size);
        shown += is_shown ? characters[at] : std::string_view(&kMask, 1);
    }
    return shown;
}

std::string Privacy::track_data(std::string_view data) const {
    return show_all_ ? std::string(data) : "(not shown)";
}

void Privacy::learn(std::string_view text) {
    if (show_all_) {
        return;
    }
    const auto learn_from = [this](std::string_view all) {
        for (std::size_t at = 0; at < all.size(); ++at) {
            if (const auto value = behind_account_tag(all, at)) {
                known_.add(digits_at(all.substr(0, *value + kLongestNumber), *value));
            }
            if (const std::string_view number = number_of_record(all, at); !number.empty()) {
                known_.add(number);
            }
            if (!is_digit(all[at]) || (at > 0 && is_digit(all[at - 1]))) {
                continue;
            }
            const std::string_view run = digits_at(all, at);
            const std::string_view behind = all.substr(at + run.size());
            if (run.size() >= kShortestNumber &&
                (behind.starts_with('=') || behind.starts_with('D')) &&
                digits_at(behind.substr(0, 5), 1).size() == 4) {
                for_each_number_of_track(run, [this](auto number) { known_.add(number); });
            } else if (is_account_number(run)) {
                known_.add(run);
            }
        }
    };
    std::string joined = upper(text);
    learn_from(joined);
    constexpr std::string_view kBlanks = " \t\r\n:-";
    if (std::erase_if(joined, [&](char c) { return kBlanks.find(c) != std::string_view::npos; })) {
        learn_from(joined);
    }
}

void Privacy::learn(Bytes bytes) {
    const std::string digits = hex(bytes);
    learn(digits);
    learn(characters_of(bytes));
    for (const std::string_view number : packed_numbers(digits)) {
        known_.add(number);
    }
    for (const std::string& number : numbers_in_hex_of_text(digits)) {
        known_.add(number);
    }
}

std::string Privacy::guarded(std::string_view text) {
    learn(text);
    std::string shown = redacted(std::string(text));
    if (!show_all_) {
        mask_long_runs(shown, kTellingRun);
    }
    return shown;
}

std::string Privacy::field(std::string_view text) const {
    std::string shown(text);
    if (!show_all_) {
        mask_lookalikes(shown);
        if (!is_merchant_number(trimmed(text))) {
            mask_long_runs(shown, kShortestNumber);
        }
    }
    return shown;
}

std::string Privacy::hidden(std::string text) const {
    std::string shown = redacted(std::move(text));
    if (!show_all_) {
        mask_long_runs(shown, kShortestNumber);
    }
    return shown;
}

std::string Privacy::redacted(std::string text) const {
    if (!show_all_) {
        known_.mask(text);
        mask_lookalikes(text);
    }
    return text;
}

} // namespace qaven::emv
