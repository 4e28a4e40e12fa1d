// Codes and the words for them.
#include "tools/emv/code_words.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace qaven::emv;

TEST(TransactionType, MayBeANameOrTwoDigits) {
    EXPECT_EQ(transaction_type_digits("purchase"), "00");
    EXPECT_EQ(transaction_type_digits("33"), "33");
    for (const char* const text : {"", "1", "333", "3x", "theft"}) {
        EXPECT_FALSE(transaction_type_digits(text).has_value()) << text;
    }
}

TEST(TransactionType, OfEveryNameIsShownWithItsDigitsAndWords) {
    EXPECT_EQ(transaction_type_names(),
              "purchase, cash, cashback, refund, deposit, balance, transfer");
    EXPECT_EQ(transaction_type_text("00"), "00 (purchase)");
    EXPECT_EQ(transaction_type_text("33"), "33 (account verification)");
    EXPECT_EQ(transaction_type_text("03"), "03");
}

TEST(Country, HasItsName) {
    EXPECT_EQ(country_text("0156"), "0156 (China)");
    EXPECT_EQ(country_text("156"), "156 (China)");
    EXPECT_EQ(country_text("0384"), "0384 (Côte d'Ivoire)");
    for (const char* const digits : {"0000", "56", "00156", ""}) {
        EXPECT_EQ(country_text(digits), digits);
    }
}

TEST(ResponseCode, HasWordsOfItsOwn) {
    for (const char* const code :
         {"00", "01", "02", "04", "05", "10", "11", "12", "14", "31", "40", "41", "51",
          "54", "55", "61", "65", "75", "91", "96", "Y1", "Z1", "Y2", "Z2", "Y3", "Z3"}) {
        EXPECT_NE(response_code_words(code), "") << code;
    }
    EXPECT_EQ(response_code_words("99"), "");
}

} // namespace
