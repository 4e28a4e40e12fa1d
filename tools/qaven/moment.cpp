// Dates and times.
#include "moment.h"

#include "exit_status.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <ctime>
#include <optional>

namespace tool {

namespace {

// A text in the form of a pattern, in which 0 stands for any digit; the digits of it.
std::optional<std::string> digits_in_form(std::string_view text, std::string_view pattern) {
    if (text.size() != pattern.size()) {
        return std::nullopt;
    }
    std::string digits;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool digit = text[i] >= '0' && text[i] <= '9';
        if (pattern[i] == '0' ? !digit : text[i] != pattern[i]) {
            return std::nullopt;
        }
        if (digit) {
            digits += text[i];
        }
    }
    return digits;
}

unsigned number(std::string_view digits) {
    unsigned value = 0;
    for (const char digit : digits) {
        value = 10 * value + static_cast<unsigned>(digit - '0');
    }
    return value;
}

bool is_day(std::string_view yyyymmdd) {
    using namespace std::chrono;
    return year_month_day(year(static_cast<int>(number(yyyymmdd.substr(0, 4)))),
                          month(number(yyyymmdd.substr(4, 2))), day(number(yyyymmdd.substr(6, 2))))
        .ok();
}

bool is_time(std::string_view hhmmss) {
    return number(hhmmss.substr(0, 2)) < 24 && number(hhmmss.substr(2, 2)) < 60 &&
           number(hhmmss.substr(4, 2)) < 60;
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

std::string parse_date(std::string_view text) {
    const auto digits = digits_in_form(text, "0000-00-00");
    if (!digits || !is_day(*digits)) {
        throw UsageError("--date takes a day like 2026-11-21, not '" + std::string(text) + "'");
    }
    return *digits;
}

std::string parse_time(std::string_view text) {
    auto digits = digits_in_form(text, "00:00:00");
    if (!digits) {
        digits = digits_in_form(text, "00:00");
        if (digits) {
            *digits += "00";
        }
    }
    if (!digits || !is_time(*digits)) {
        throw UsageError("--time takes a time like 16:13:55 or 16:13, not '" + std::string(text) +
                         "'");
    }
    return *digits;
}

std::string today() {
    return now("%Y%m%d");
}

std::string time_of_day() {
    return now("%H%M%S");
}

std::string format_date(std::string_view digits) {
    std::string full(digits);
    if (digits_in_form(full, "000000")) {
        full.insert(0, "20");
    }
    if (!digits_in_form(full, "00000000") || !is_day(full)) {
        return std::string(digits);
    }
    return full.substr(0, 4) + "-" + full.substr(4, 2) + "-" + full.substr(6, 2);
}

std::string format_time(std::string_view digits) {
    if (!digits_in_form(digits, "000000") || !is_time(digits)) {
        return std::string(digits);
    }
    const std::string text(digits);
    return text.substr(0, 2) + ":" + text.substr(2, 2) + ":" + text.substr(4, 2);
}

} // namespace tool
