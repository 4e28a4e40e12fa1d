// Dates and times as cards keep them and as people write them.
#include "tools/emv/date_time.h"

#include "tools/emv/hex.h"

#include <array>
#include <chrono>
#include <ctime>

namespace qaven::emv {

namespace {

constexpr std::size_t kShort = 6;
constexpr std::size_t kLong = 8;

bool is_day(std::string_view yyyymmdd) {
    using namespace std::chrono;
    return all_digits(yyyymmdd) &&
           year_month_day(year(static_cast<int>(number_in(yyyymmdd.substr(0, 4)))),
                          month(number_in(yyyymmdd.substr(4, 2))),
                          day(number_in(yyyymmdd.substr(6, 2))))
               .ok();
}

// The years of cards have two digits; 50 to 99 are those of the last century.
std::string with_century(std::string_view digits) {
    return (digits < "50" ? "20" : "19") + std::string(digits);
}

// The day that the digits are, in eight of them.
std::optional<std::string> day_in(std::string_view digits) {
    const std::string full = digits.size() == kShort ? with_century(digits) : std::string(digits);
    return full.size() == kLong && is_day(full) ? std::optional(full) : std::nullopt;
}

bool is_year_and_month(std::string_view digits) {
    return digits.size() == kShort && digits.starts_with("20") &&
           is_day(std::string(digits) + "01");
}

// The digits of a text in the form of a pattern, in which 0 is any digit.
std::optional<std::string> digits_in_form(std::string_view text, std::string_view pattern) {
    std::string digits;
    for (std::size_t i = 0; i < text.size() && i < pattern.size(); ++i) {
        if (pattern[i] == '0' ? !is_digit(text[i]) : text[i] != pattern[i]) {
            return std::nullopt;
        }
        digits.append(is_digit(text[i]) ? 1 : 0, text[i]);
    }
    return text.size() == pattern.size() ? std::optional(digits) : std::nullopt;
}

std::string now(const char* format) {
    const std::time_t time = std::time(nullptr);
    std::tm local{};
    localtime_r(&time, &local);
    std::array<char, 16> text{};
    std::strftime(text.data(), text.size(), format, &local);
    return text.data();
}

} // namespace

bool is_date(std::string_view digits) {
    return day_in(digits).has_value() || is_year_and_month(digits);
}

bool is_month(std::string_view digits) {
    return digits.size() == 4 && is_day("20" + std::string(digits) + "01");
}

bool is_time(std::string_view digits) {
    return digits.size() == kShort && all_digits(digits) && digits.substr(0, 2) < "24" &&
           digits.substr(2, 2) < "60" && digits.substr(4) < "60";
}

std::string date_text(std::string_view digits) {
    if (const auto day = day_in(digits)) {
        return day->substr(0, 4) + '-' + day->substr(4, 2) + '-' + day->substr(6);
    }
    const std::string text(digits);
    return text + (is_year_and_month(digits) ? " (not YYMMDD; as YYYYMM, " + text.substr(0, 4) +
                                                   '-' + text.substr(4) + ')'
                                             : " (not a date)");
}

std::string time_text(std::string_view digits) {
    const std::string text(digits);
    return is_time(digits) ? text.substr(0, 2) + ':' + text.substr(2, 2) + ':' + text.substr(4)
                           : text + " (not a time)";
}

std::optional<std::string> parse_date(std::string_view text) {
    auto digits = digits_in_form(text, "0000-00-00");
    return digits && is_day(*digits) ? digits : std::nullopt;
}

std::optional<std::string> parse_time(std::string_view text) {
    auto digits = digits_in_form(text, "00:00:00");
    if (!digits) {
        digits = digits_in_form(std::string(text) + ":00", "00:00:00");
    }
    return digits && is_time(*digits) ? digits : std::nullopt;
}

std::string today() {
    return now("%Y%m%d");
}

std::string time_of_day() {
    return now("%H%M%S");
}

} // namespace qaven::emv
