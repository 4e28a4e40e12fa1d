// Dates and times as cards keep them and as people write them.
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace qaven::emv {

// A day of the calendar as YYMMDD or YYYYMMDD; also its first six digits, YYYYMM, which is what the
// library completes a transaction with.
bool is_date(std::string_view digits);

// A month as YYMM.
bool is_month(std::string_view digits);

// A time of day as HHMMSS.
bool is_time(std::string_view digits);

// YYYY-MM-DD and HH:MM:SS; digits that are no day or no time are followed by a word about it.
std::string date_text(std::string_view digits);
std::string time_text(std::string_view digits);

// "2026-11-21" as 20261121.
std::optional<std::string> parse_date(std::string_view text);

// "16:13:55" or "16:13" as 161355.
std::optional<std::string> parse_time(std::string_view text);

// The same digits from the clock.
std::string today();
std::string time_of_day();

} // namespace qaven::emv
