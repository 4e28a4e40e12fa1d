// Results of cards, scripts and the library.
#include "tools/emv/result_codes.h"
#include "tools/emv/script_result.h"

#include <gtest/gtest.h>

namespace {

using namespace qaven::emv;

TEST(Result, OfACardIsItsStatusWord) {
    EXPECT_EQ(result_words(0x6A82), "the file or application is not found");
    EXPECT_EQ(result_text(0x6A82),
              "27266: the card answered 6A82 the file or application is not found");
}

TEST(Result, OfTheLibraryHasWords) {
    EXPECT_EQ(result_text(-7), "-7: the reader did not answer in time");
    EXPECT_EQ(result_text(-99), "-99: unknown result");
}

TEST(ScriptResult, HasItsIdentifier) {
    const auto results = script_results_in("DF31052000000001");
    ASSERT_TRUE(results.has_value());
    EXPECT_EQ(hex(results->bytes), "2000000001");
    EXPECT_EQ(script_outcome(results->bytes[0]), "the script was carried out");
    EXPECT_EQ(script_outcome(0x13), "the script failed at command 3");
    EXPECT_EQ(script_outcome(0x00), "the script was not run");
}

TEST(ScriptResult, HasEightDigitsForAByteFromEightyOn) {
    EXPECT_EQ(hex(script_results_in("DF310520FFFFFF8000FFFFFFFF01")->bytes), "208000FF01");
    EXPECT_FALSE(script_results_in("").has_value());
    EXPECT_FALSE(script_results_in("9F2608").has_value());
}

} // namespace
