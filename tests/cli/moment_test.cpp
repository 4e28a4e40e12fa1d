// Dates and times as people write them and as cards keep them.
#include "exit_status.h"
#include "moment.h"

#include <gtest/gtest.h>

namespace {

TEST(Date, IsADayOfTheCalendar) {
    EXPECT_EQ(tool::parse_date("2026-11-21"), "20261121");
    EXPECT_EQ(tool::parse_date("2028-02-29"), "20280229");
    for (const char* const text :
         {"2026-02-29", "2026-13-01", "2026-00-10", "26-11-21", "20261121", "2026-11-2", ""}) {
        EXPECT_THROW(tool::parse_date(text), tool::UsageError) << text;
    }
}

TEST(Date, OfACardHasTwoDigitsOfTheYearOrFour) {
    EXPECT_EQ(tool::format_date("301231"), "2030-12-31");
    EXPECT_EQ(tool::format_date("19900307"), "1990-03-07");
}

TEST(Date, ThatIsNoDayIsShownAsItIs) {
    for (const char* const digits : {"202611", "000000", "3012", "30123F", ""}) {
        EXPECT_EQ(tool::format_date(digits), digits);
    }
}

TEST(Time, MayLeaveTheSecondsOut) {
    EXPECT_EQ(tool::parse_time("16:13:55"), "161355");
    EXPECT_EQ(tool::parse_time("08:05"), "080500");
    for (const char* const text : {"24:00:00", "12:60", "12:00:60", "8:05", "080500", ""}) {
        EXPECT_THROW(tool::parse_time(text), tool::UsageError) << text;
    }
}

TEST(Time, OfACardIsShownWithColons) {
    EXPECT_EQ(tool::format_time("161355"), "16:13:55");
    EXPECT_EQ(tool::format_time("990000"), "990000");
    EXPECT_EQ(tool::format_time(""), "");
}

TEST(Clock, GivesADayAndATimeThatTheCommandLineWouldTake) {
    EXPECT_EQ(tool::format_date(tool::today()).size(), 10U);
    EXPECT_EQ(tool::format_time(tool::time_of_day()).size(), 8U);
}

} // namespace
