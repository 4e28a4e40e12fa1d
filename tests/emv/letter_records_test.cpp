// Letter-coded texts.
#include "tools/emv/letter_records.h"

#include <gtest/gtest.h>

namespace {

using namespace qaven::emv;

std::string letters_of(const LetterRecords& read) {
    std::string letters;
    for (const LetterRecord& record : read.records) {
        letters += record.letter;
    }
    return letters;
}

TEST(LetterText, HasALengthOfThreeDigitsAfterEachLetter) {
    const LetterRecords read = letter_records("P00212R000S003345");
    EXPECT_EQ(letters_of(read), "PRS");
    EXPECT_EQ(value_of(read.records, 'P'), "12");
    EXPECT_EQ(value_of(read.records, 'R'), "");
    EXPECT_EQ(value_of(read.records, 'S'), "345");
    EXPECT_EQ(value_of(read.records, 'T'), "");
    EXPECT_FALSE(read.stops_at.has_value());
}

TEST(LetterText, EndsWhereItIsCutShort) {
    for (const char* const text : {"P00212R0053", "P00212R0013S00", "P00212r0013"}) {
        EXPECT_EQ(value_of(letter_records(text).records, 'P'), "12");
        EXPECT_TRUE(letter_records(text).stops_at.has_value()) << text;
    }
    EXPECT_EQ(letter_records("P00212R0053").stops_at, 6U);
    EXPECT_TRUE(letter_records("P00212R0053").cut);
    EXPECT_TRUE(letter_records("").records.empty());
}

TEST(LetterText, TakesTheLengthOfATrackTwoWithoutItsPadding) {
    const LetterRecords read = letter_records("E02/1234567890=12345678F001x");
    EXPECT_EQ(value_of(read.records, 'E'), "1234567890=12345678");
    EXPECT_EQ(value_of(read.records, 'F'), "x");
}

TEST(Log, BeginsANewEntryWithALetterThatComesAgain) {
    const LetterRecords read = letter_records("P00212R000P003345X0011");
    const auto entries = log_entries(read.records);
    ASSERT_EQ(entries.size(), 2U);
    EXPECT_EQ(value_of(entries[0], 'P'), "12");
    EXPECT_EQ(value_of(entries[1], 'P'), "345");
    EXPECT_EQ(value_of(entries[1], 'X'), "1");
    EXPECT_TRUE(log_entries({}).empty());
}

} // namespace
