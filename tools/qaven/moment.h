// Dates and times as people write them and as cards keep them.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// "2026-11-21" as "20261121". Throws UsageError for what is no day.
std::string parse_date(std::string_view text);

// "16:13:55" or "16:13" as "161355". Throws UsageError for what is no time.
std::string parse_time(std::string_view text);

// The same digits from the clock.
std::string today();
std::string time_of_day();

// "261121" or "20261121" as "2026-11-21"; digits that are no day come back as they are.
std::string format_date(std::string_view digits);

// "161355" as "16:13:55"; anything else comes back as it is.
std::string format_time(std::string_view digits);

} // namespace tool
