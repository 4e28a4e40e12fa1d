// Values as people write them.
#include "tools/emv/values.h"

#include "tools/emv/aid.h"
#include "tools/emv/code_words.h"
#include "tools/emv/date_time.h"
#include "tools/emv/gbk.h"
#include "tools/emv/money.h"
#include "tools/emv/number_shapes.h"

#include <algorithm>
#include <array>

namespace qaven::emv {

namespace {

constexpr auto kTerminalOperators =
    std::to_array<std::string_view>({"financial institution", "merchant", "cardholder"});

constexpr auto kTerminalPlaces = std::to_array<std::string_view>({
    "attended, online only",
    "attended, offline with online capability",
    "attended, offline only",
    "unattended, online only",
    "unattended, offline with online capability",
    "unattended, offline only",
});

struct Size {
    Form form;
    std::size_t least;
    std::size_t most;
};

// EMV Book 3, annex A.
constexpr auto kSizes = std::to_array<Size>({
    {Form::kNumber, 1, 4},
    {Form::kAmount, 6, 6},
    {Form::kDate, 3, 3},
    {Form::kTime, 3, 3},
    {Form::kIdentityType, 1, 1},
    {Form::kServiceCode, 2, 2},
    {Form::kCurrency, 2, 2},
    {Form::kCurrencies, 2, 8},
    {Form::kCountry, 2, 2},
    {Form::kAip, 2, 2},
    {Form::kTvr, 5, 5},
    {Form::kTsi, 2, 2},
    {Form::kCid, 1, 1},
    {Form::kIad, 1, 32},
    {Form::kAuc, 2, 2},
    {Form::kTerminalCapabilities, 3, 3},
    {Form::kAdditionalTerminalCapabilities, 5, 5},
    {Form::kTerminalType, 1, 1},
    {Form::kTransactionType, 1, 1},
    {Form::kTtq, 4, 4},
    {Form::kResponseCode, 2, 2},
    {Form::kIssuerAuthentication, 8, 16},
    {Form::kLogEntry, 2, 2},
    {Form::kPriority, 1, 1},
});

std::string terminal_type_text(Bytes value) {
    std::string digits = hex(value);
    const unsigned who = value[0] >> 4U;
    const unsigned place = value[0] & 0xFU;
    if (who < 1 || who > kTerminalOperators.size() || place < 1 || place > kTerminalPlaces.size()) {
        return digits;
    }
    return digits + " (" + std::string(kTerminalPlaces.at(place - 1)) + ", operated by the " +
           std::string(kTerminalOperators.at(who - 1)) + ')';
}

std::string number_text(Bytes value) {
    std::uint32_t number = 0;
    for (const unsigned char byte : value) {
        number = number << 8U | byte;
    }
    std::string digits = hex(value);
    const std::string decimal = std::to_string(number);
    return digits == decimal ? decimal : digits + " (" + decimal + ')';
}

std::string log_entry_text(Bytes value) {
    return hex(value) + " (SFI " + std::to_string(value[0]) + ", " + std::to_string(value[1]) +
           " records)";
}

std::string priority_text(Bytes value) {
    const std::string confirmation =
        (value[0] & 0x80U) != 0 ? ", only when the cardholder confirms" : "";
    const unsigned priority = value[0] & 0xFU;
    return hex(value) + " (" +
           (priority == 0 ? "no priority" : "priority " + std::to_string(priority)) + confirmation +
           ')';
}

// The field holds an amount on cards with electronic cash and track 2 on others.
std::string track2_or_limit(Bytes value, std::string_view currency, Privacy& privacy) {
    std::string digits = hex(value);
    return value.size() == 6 && all_digits(digits) ? amount_text(digits, currency)
                                                   : track2_text(digits, privacy);
}

// Packed digits that are no text may be somebody's number.
std::string text_text(Bytes value, Privacy& privacy) {
    const bool is_text = std::ranges::all_of(value, [](unsigned char c) { return c >= 0x20; });
    return is_text || packed_numbers(hex(value)).empty()
               ? in_quotes(privacy.field(characters_of(value)))
               : privacy.guarded(hex(value));
}

// What the bytes are if they are text, filled up with zeros or not.
std::string_view text_in(Bytes value) {
    constexpr std::size_t kLeastText = 3;
    const std::string_view characters = characters_of(value);
    const std::size_t end = characters.find_last_not_of('\0');
    const std::string_view kept = characters.substr(0, end == std::string_view::npos ? 0 : end + 1);
    const bool is_text = kept.size() >= kLeastText &&
                         std::ranges::all_of(kept, [](char c) { return c >= 0x20 && c < 0x7F; });
    return is_text ? kept : std::string_view();
}

// Hexadecimal digits, and the text they may be.
std::string bytes_text(Bytes value) {
    const std::string_view text = text_in(value);
    return text.empty() ? hex(value) : hex(value) + ' ' + in_quotes(text);
}

const Size* size_of(Form form) {
    const auto* const found = std::ranges::find(kSizes, form, &Size::form);
    return found != kSizes.end() ? found : nullptr;
}

bool has_size_of_form(Form form, std::size_t size) {
    const Size* const sizes = size_of(form);
    return sizes == nullptr || (size >= sizes->least && size <= sizes->most);
}

std::string response_code_text(std::string_view code) {
    const std::string_view words = response_code_words(code);
    return in_quotes(code) + (words.empty() ? "" : " (" + std::string(words) + ')');
}

std::string currencies_text(std::string_view digits) {
    std::string text;
    for (std::size_t at = 0; at < digits.size(); at += 4) {
        text += (text.empty() ? "" : ", ") + currency_text(digits.substr(at, 4));
    }
    return text;
}

std::string cid_text(Bytes value) {
    constexpr std::array<std::string_view, 4> kTypes{"AAC", "TC", "ARQC", "reserved"};
    return hex(value) + " (" + std::string(kTypes.at(value[0] >> 6U)) + ')';
}

// The digits of a tag.
std::string tag_number_text(const std::string& digits) {
    const HexText tag = from_hex(digits);
    return tag.bytes.size() == 2
               ? digits + ' ' + std::string(tag_name(tag.bytes[0] * 256U + tag.bytes[1]))
               : digits;
}

std::string digits_text(Form form, const std::string& digits, std::string_view currency) {
    switch (form) {
    case Form::kAmount:
        return amount_text(digits, currency);
    case Form::kDate:
        return date_text(digits);
    case Form::kTime:
        return time_text(digits);
    case Form::kIdentityType:
        return identity_type_text(digits);
    case Form::kCurrency:
        return currency_text(digits);
    case Form::kCurrencies:
        return currencies_text(digits);
    case Form::kCountry:
        return country_text(digits);
    case Form::kTransactionType:
        return transaction_type_text(digits);
    case Form::kTag:
        return tag_number_text(digits);
    default:
        return digits;
    }
}

} // namespace

std::string account_number_text(std::string_view digits, Privacy& privacy) {
    while (!digits.empty() && (digits.back() == 'F' || digits.back() == 'f')) {
        digits.remove_suffix(1);
    }
    return privacy.number(digits) +
           (all_digits(digits) ? "" : " (has characters that are no digits)");
}

std::string track2_text(std::string_view track, Privacy& privacy) {
    constexpr std::size_t kExpiry = 4;
    constexpr std::size_t kService = 3;
    const std::size_t separator = track.find_first_of("Dd=");
    if (separator == std::string_view::npos) {
        return account_number_text(track, privacy) + " (no separator behind the number)";
    }
    while (!track.empty() && (track.back() == 'F' || track.back() == 'f')) {
        track.remove_suffix(1);
    }
    std::string text = account_number_text(track.substr(0, separator), privacy);
    std::string_view rest = track.substr(std::min(separator + 1, track.size()));
    if (is_month(rest.substr(0, kExpiry))) {
        text +=
            ", expiry 20" + std::string(rest.substr(0, 2)) + '-' + std::string(rest.substr(2, 2));
        rest.remove_prefix(kExpiry);
        if (rest.size() >= kService && all_digits(rest.substr(0, kService))) {
            text += ", service code " + std::string(rest.substr(0, kService));
            rest.remove_prefix(kService);
        }
    }
    return rest.empty() ? text : text + ", discretionary data " + privacy.track_data(rest);
}

std::string value_text(Form form, Bytes value, std::string_view currency, Privacy& privacy) {
    const std::string digits = hex(value);
    if (!has_size_of_form(form, value.size())) {
        return privacy.guarded(digits);
    }
    switch (form) {
    case Form::kTemplate:
    case Form::kScriptCommand: // has lines of its own, and may hold a PIN
        return "";
    case Form::kText:
        return text_text(value, privacy);
    case Form::kNumber:
        return number_text(value);
    case Form::kAccountNumber:
        return account_number_text(digits, privacy);
    case Form::kTrack2:
        return track2_or_limit(value, currency, privacy);
    case Form::kTrackData:
        return privacy.show_all() ? bytes_text(value) : privacy.track_data(digits);
    case Form::kIdentityNumber: {
        const std::string_view characters = characters_of(value);
        return readable(privacy.number(characters.substr(0, characters.find('\0'))));
    }
    case Form::kPinData:
        return "(never shown)";
    case Form::kCid:
        return cid_text(value);
    case Form::kTerminalType:
        return terminal_type_text(value);
    case Form::kLogEntry:
        return log_entry_text(value);
    case Form::kPriority:
        return priority_text(value);
    case Form::kResponseCode:
        return response_code_text(characters_of(value));
    case Form::kAid:
        return aid_text(value);
    case Form::kBytes:
        return bytes_text(value);
    default:
        return digits_text(form, digits, currency);
    }
}

std::string record_text(Form form, std::string_view value, std::string_view currency,
                        Privacy& privacy) {
    switch (form) {
    case Form::kText:
        return readable(without_filling(privacy.field(value)));
    case Form::kAccountNumber:
        return readable(account_number_text(value, privacy));
    case Form::kIdentityNumber:
        return readable(privacy.number(value));
    case Form::kTrack2:
        return readable(track2_text(value, privacy));
    case Form::kTrackData:
        return readable(privacy.track_data(value));
    default:
        return value.size() < kShortestNumber ? digits_text(form, readable(value), currency)
                                              : in_quotes(privacy.guarded(value));
    }
}

std::string wrong_size(Form form, std::size_t size) {
    if (has_size_of_form(form, size)) {
        return {};
    }
    const auto [ignored, least, most] = *size_of(form);
    return "has " + std::to_string(size) + (size == 1 ? " byte" : " bytes") + " instead of " +
           (least == most ? "" : std::to_string(least) + " to ") + std::to_string(most);
}

bool is_short_text(Bytes value) {
    const std::string_view text = text_in(value);
    return !text.empty() && text.size() < kShortestNumber;
}

} // namespace qaven::emv
