// Dates and times as people write them and as cards keep them.
#include "tools/emv/date_time.h"

#include <gtest/gtest.h>

namespace {

using namespace qaven::emv;

TEST(Date, IsADayOfTheCalendar) {
    EXPECT_EQ(parse_date("2026-11-21"), "20261121");
    EXPECT_EQ(parse_date("2028-02-29"), "20280229");
    for (const char* const text :
         {"2026-02-29", "2026-13-01", "2026-00-10", "26-11-21", "20261121", "2026-11-2", ""}) {
        EXPECT_FALSE(parse_date(text).has_value()) << text;
    }
}

TEST(Date, OfACardHasTwoDigitsOfTheYearOrFour) {
    EXPECT_EQ(date_text("301231"), "2030-12-31");
    EXPECT_EQ(date_text("991231"), "1999-12-31");
    EXPECT_EQ(date_text("19900307"), "1990-03-07");
}

TEST(Date, ThatTheCalendarDoesNotHaveIsSaidToBeNone) {
    for (const char* const digits :
         {"260231", "20260231", "000000", "3012", "30123F", "-11231", ""}) {
        EXPECT_FALSE(is_date(digits)) << digits;
        EXPECT_EQ(date_text(digits), std::string(digits) + " (not a date)");
    }
}

TEST(Date, ThatWasCutToSixDigitsIsAMonth) {
    EXPECT_TRUE(is_date("202611"));
    EXPECT_EQ(date_text("202611"), "202611 (not YYMMDD; as YYYYMM, 2026-11)");
}

TEST(Month, IsOneOfTwelve) {
    EXPECT_TRUE(is_month("3012"));
    for (const char* const digits : {"3013", "3000", "301", "30121", "30AB"}) {
        EXPECT_FALSE(is_month(digits)) << digits;
    }
}

TEST(Time, MayLeaveTheSecondsOut) {
    EXPECT_EQ(parse_time("16:13:55"), "161355");
    EXPECT_EQ(parse_time("08:05"), "080500");
    for (const char* const text : {"24:00:00", "12:60", "12:00:60", "8:05", "080500", ""}) {
        EXPECT_FALSE(parse_time(text).has_value()) << text;
    }
}

TEST(Time, OfACardIsShownWithColons) {
    EXPECT_EQ(time_text("161355"), "16:13:55");
    for (const char* const digits : {"990000", "126000", "120060", "1613", "16135F", ""}) {
        EXPECT_EQ(time_text(digits), std::string(digits) + " (not a time)");
    }
}

TEST(Clock, GivesADayAndATimeThatACardWouldTake) {
    EXPECT_EQ(date_text(today()).size(), 10U);
    EXPECT_EQ(time_text(time_of_day()).size(), 8U);
}

} // namespace
