// The currency table, as a host reads it.
#include "engine/data/currency_table.h"

#include "digest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace {

// All letters that stand under a numeric code, in table order.
std::vector<std::string> lettersOf(int code) {
    std::vector<std::string> letters;
    for (const currency_entry& entry : gc4217Name) {
        if (entry.code == code) {
            letters.emplace_back(entry.name);
        }
    }
    return letters;
}

using Letters = std::vector<std::string>;

bool isUpperCaseLetter(char c) {
    return c >= 'A' && c <= 'Z';
}

TEST(CurrencyTable, HasTwoHundredFiftyFiveEntriesAndFillsThemAll) {
    EXPECT_EQ(std::size(gc4217Name), 255U);
    EXPECT_TRUE(std::all_of(std::begin(gc4217Name), std::end(gc4217Name),
                            [](const currency_entry& entry) { return entry.name != nullptr; }));
}

TEST(CurrencyTable, BeginsAtTheOldAfghaniAndEndsAtNoCurrency) {
    EXPECT_EQ(gc4217Name[0].code, 0x0004);
    EXPECT_STREQ(gc4217Name[0].name, "AFA");
    EXPECT_EQ(gc4217Name[kCurrencyTableSize - 1].code, 0x0999);
    EXPECT_STREQ(gc4217Name[kCurrencyTableSize - 1].name, "XXX");
}

TEST(CurrencyTable, NamesCurrenciesThatCardsAreUsedIn) {
    EXPECT_EQ(lettersOf(0x0156), Letters{"CNY"});
    EXPECT_EQ(lettersOf(0x0344), Letters{"HKD"});
    EXPECT_EQ(lettersOf(0x0392), Letters{"JPY"});
    EXPECT_EQ(lettersOf(0x0446), Letters{"MOP"});
    EXPECT_EQ(lettersOf(0x0826), Letters{"GBP"});
    EXPECT_EQ(lettersOf(0x0840), Letters{"USD"});
    EXPECT_EQ(lettersOf(0x0901), Letters{"TWD"});
    EXPECT_EQ(lettersOf(0x0978), Letters{"EUR"});
}

TEST(CurrencyTable, KeepsWithdrawnCurrencies) {
    EXPECT_EQ(lettersOf(0x0020), Letters{"ADP"});
    EXPECT_EQ(lettersOf(0x0040), Letters{"ATS"});
    EXPECT_EQ(lettersOf(0x0056), Letters{"BEF"});
    EXPECT_EQ(lettersOf(0x0180), Letters{"ZRN"});
    EXPECT_EQ(lettersOf(0x0250), Letters{"FRF"});
    EXPECT_EQ(lettersOf(0x0276), Letters{"DEM"});
    EXPECT_EQ(lettersOf(0x0380), Letters{"ITL"});
    EXPECT_EQ(lettersOf(0x0716), Letters{"ZWD"});
}

TEST(CurrencyTable, PutsTheCurrentHolderOfASharedNumberFirst) {
    EXPECT_EQ(lettersOf(0x0532), (Letters{"XCG", "ANG"}));
}

TEST(CurrencyTable, KnowsNothingUnderNumbersThatAreNoCurrency) {
    EXPECT_EQ(lettersOf(0x0000), Letters{});
    EXPECT_EQ(lettersOf(0x0280), Letters{}) << "Germany before 1990";
}

TEST(CurrencyTable, NamesTheForintForABinary840) {
    EXPECT_EQ(lettersOf(840), Letters{"HUF"}) << "840 is 0x0348: numbers are BCD digits";
}

TEST(CurrencyTable, HoldsEveryNumberAsThreeBcdDigits) {
    for (const currency_entry& entry : gc4217Name) {
        SCOPED_TRACE(entry.name);
        EXPECT_GT(entry.code, 0x0000);
        EXPECT_LE(entry.code, 0x0999);
        EXPECT_LE(entry.code & 0xF, 9);
        EXPECT_LE((entry.code >> 4) & 0xF, 9);
    }
}

TEST(CurrencyTable, SpellsEveryNameInThreeUpperCaseLetters) {
    for (const currency_entry& entry : gc4217Name) {
        const std::string_view name{entry.name};
        EXPECT_EQ(name.size(), 3U) << name;
        EXPECT_TRUE(std::all_of(name.begin(), name.end(), isUpperCaseLetter)) << name;
    }
}

TEST(CurrencyTable, ListsEveryNameOnce) {
    std::set<std::string_view> names;
    for (const currency_entry& entry : gc4217Name) {
        EXPECT_TRUE(names.insert(entry.name).second) << entry.name;
    }
}

TEST(CurrencyTable, AscendsByNumber) {
    EXPECT_TRUE(std::is_sorted(
        std::begin(gc4217Name), std::end(gc4217Name),
        [](const currency_entry& a, const currency_entry& b) { return a.code < b.code; }));
}

TEST(CurrencyTable, HasItsRows) {
    qaven::test::Digest rows;
    for (const currency_entry& entry : gc4217Name) {
        rows.add(std::to_string(entry.code)).add(entry.name);
    }
    EXPECT_EQ(rows.value(), 0xA6CEC12A2EB3978DU);
}

} // namespace
