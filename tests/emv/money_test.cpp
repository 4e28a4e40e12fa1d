// Amounts as people write them.
#include "tools/emv/money.h"

#include <gtest/gtest.h>

namespace {

using namespace qaven::emv;

std::string parsed(const char* text, const char* currency = "CNY") {
    return parse_amount(text, currency_digits(currency).value());
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
    EXPECT_THROW(parsed("1.5", "JPY"), NotAnAmount);
    EXPECT_THROW(parsed("12.131"), NotAnAmount);
}

TEST(Amount, MayHaveCommasBetweenThousandsAndNowhereElse) {
    EXPECT_EQ(parsed("1,012.13"), "000000101213");
    EXPECT_EQ(parsed("1,234,567"), "000123456700");
    for (const char* const text :
         {"12,13", "1,2345", ",123", "1,,234", "1,234,", "1234,567", "1.0,0"}) {
        EXPECT_THROW(parsed(text), NotAnAmount) << text;
    }
}

TEST(Amount, TakesTwelveDigits) {
    EXPECT_EQ(parsed("9999999999.99"), "999999999999");
    EXPECT_THROW(parsed("10000000000.00"), NotAnAmount);
}

TEST(Amount, IsNothingElse) {
    for (const char* const text : {"", ".", "12.", ".5", "-1", "+1", "1e3", "1 000", "12.13 "}) {
        EXPECT_THROW(parsed(text), NotAnAmount) << text;
    }
}

TEST(Amount, IsShownWithItsDecimals) {
    EXPECT_EQ(decimal_text("000000001213", "0156"), "12.13");
    EXPECT_EQ(decimal_text("000000000005", "0156"), "0.05");
    EXPECT_EQ(decimal_text("000000000000", "0156"), "0.00");
    EXPECT_EQ(decimal_text("999999999999", "0156"), "9999999999.99");
    EXPECT_EQ(decimal_text("000000001200", "0392"), "1200");
    EXPECT_EQ(decimal_text("000000000000", "0392"), "0");
    EXPECT_EQ(decimal_text("000000001234", "0414"), "1.234");
    EXPECT_EQ(decimal_text("000000001213", ""), "12.13");
}

TEST(Amount, IsShownAsItWasWrittenInEveryCurrency) {
    for (const char* const currency : {"CNY", "JPY", "KWD", "CLF", "UYW"}) {
        const std::string digits = currency_digits(currency).value();
        const std::string shown = amount_text("000000012345", digits);
        const std::string written = shown.substr(0, shown.find(' '));
        EXPECT_EQ(shown, written + ' ' + currency);
        EXPECT_EQ(parse_amount(written, digits), "000000012345") << shown;
    }
}

TEST(Amount, OfACardThatKeepsNoDigitsIsSaidToBeNone) {
    EXPECT_EQ(amount_text("0000000FFFFF", "0156"), "0000000FFFFF (not an amount)");
}

TEST(Currency, MayBeANumberOrLetters) {
    for (const char* const text : {"156", "0156", "CNY", "cny"}) {
        EXPECT_EQ(currency_digits(text), "0156") << text;
    }
    EXPECT_EQ(currency_digits("8"), "0008");
    EXPECT_EQ(currency_letters("0156"), "CNY");
    EXPECT_EQ(currency_letters("0008"), "ALL");
}

TEST(Currency, OfANumberWithoutLettersHasNone) {
    EXPECT_EQ(currency_letters("0001"), "");
    EXPECT_EQ(currency_letters(""), "");
}

TEST(Currency, IsNothingElse) {
    for (const char* const text : {"", "yuan", "12345", "1x", "CN", "9999", "000", "1", "00156"}) {
        EXPECT_FALSE(currency_digits(text).has_value()) << text;
    }
}

} // namespace
