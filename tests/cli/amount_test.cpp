// Amounts as people write them.
#include "amount.h"
#include "exit_status.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

using tool::Currency;

std::string parsed(const char* text, const char* currency = "CNY") {
    return tool::parse_amount("--amount", text, Currency::named(currency));
}

TEST(Amount, IsKeptInTheSmallestUnit) {
    EXPECT_EQ(parsed("12.13"), "000000001213");
    EXPECT_EQ(parsed("12.1"), "000000001210");
    EXPECT_EQ(parsed("12"), "000000001200");
    EXPECT_EQ(parsed("0.05"), "000000000005");
    EXPECT_EQ(parsed("0"), "000000000000");
    EXPECT_EQ(parsed("000012.13"), "000000001213");
}

TEST(Amount, HasTheDecimalsOfItsCurrency) {
    EXPECT_EQ(parsed("1200", "JPY"), "000000001200");
    EXPECT_EQ(parsed("1.234", "KWD"), "000000001234");
    EXPECT_EQ(parsed("1.5", "990"), "000000015000");
    EXPECT_THROW(parsed("1.5", "JPY"), tool::UsageError);
    EXPECT_THROW(parsed("12.131"), tool::UsageError);
}

TEST(Amount, MayHaveCommasBetweenThousandsAndNowhereElse) {
    EXPECT_EQ(parsed("1,012.13"), "000000101213");
    EXPECT_EQ(parsed("1,234,567"), "000123456700");
    for (const char* const text :
         {"12,13", "1,2345", ",123", "1,,234", "1,234,", "1234,567", "1.0,0"}) {
        EXPECT_THROW(parsed(text), tool::UsageError) << text;
    }
}

TEST(Amount, TakesTwelveDigits) {
    EXPECT_EQ(parsed("9999999999.99"), "999999999999");
    EXPECT_THROW(parsed("10000000000.00"), tool::UsageError);
}

TEST(Amount, IsNothingElse) {
    for (const char* const text : {"", ".", "12.", ".5", "-1", "+1", "1e3", "1 000", "12.13 "}) {
        EXPECT_THROW(parsed(text), tool::UsageError) << text;
    }
}

TEST(Amount, IsShownWithItsDecimals) {
    EXPECT_EQ(tool::format_amount("000000001213", Currency::named("CNY")), "12.13");
    EXPECT_EQ(tool::format_amount("000000000005", Currency::named("CNY")), "0.05");
    EXPECT_EQ(tool::format_amount("000000000000", Currency::named("CNY")), "0.00");
    EXPECT_EQ(tool::format_amount("999999999999", Currency::named("CNY")), "9999999999.99");
    EXPECT_EQ(tool::format_amount("000000001200", Currency::named("JPY")), "1200");
    EXPECT_EQ(tool::format_amount("000000000000", Currency::named("JPY")), "0");
    EXPECT_EQ(tool::format_amount("000000001234", Currency::named("KWD")), "1.234");
}

TEST(Amount, OfACardThatKeepsNoDigitsIsShownAsItIs) {
    EXPECT_EQ(tool::format_amount("0000000FFFFF", Currency::named("CNY")), "0000000FFFFF");
    EXPECT_EQ(tool::format_amount("", Currency::named("CNY")), "");
}

TEST(CurrencyName, MayBeANumberOrLetters) {
    for (const char* const text : {"156", "0156", "CNY", "cny"}) {
        EXPECT_EQ(Currency::named(text).digits(), "0156") << text;
        EXPECT_EQ(Currency::named(text).name(), "CNY") << text;
    }
    EXPECT_EQ(Currency::named("8").digits(), "0008");
    EXPECT_EQ(Currency::named("8").name(), "ALL");
}

TEST(CurrencyName, OfANumberWithoutLettersIsTheNumber) {
    EXPECT_EQ(Currency::numbered("0001").name(), "0001");
    EXPECT_EQ(Currency::numbered("").name(), "");
}

TEST(CurrencyName, MayNotBeAnythingElse) {
    for (const char* const text : {"", "yuan", "12345", "1x", "CN", "9999", "000", "1", "00156"}) {
        EXPECT_THROW(Currency::named(text), tool::UsageError) << text;
    }
}

} // namespace
