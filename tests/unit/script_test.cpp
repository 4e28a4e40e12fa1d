// Issuer scripts: which commands reach the card, in which form, and where a run ends.
#include "engine/card/script.h"

#include "card_test.h"
#include "exact_buffer.h"
#include "noted_operations.h"
#include "tests/support/hex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <string_view>

using qaven::test::Bytes;
using qaven::test::CardTest;
using qaven::test::exact;
using qaven::test::hex;
using qaven::test::repeated;
using testing::ElementsAre;
using testing::IsEmpty;

namespace {

constexpr int kEmptyData = -205;
constexpr int kTimeout = -7;

class IssuerScript : public CardTest {
  protected:
    int run(std::string_view script_text) {
        Bytes script = exact(script_text);
        count = 99;
        return qmcx_exeicscript(script.data(), static_cast<int>(script.size()), &count);
    }

    int count = 99;
};

TEST_F(IssuerScript, SendsACommandWholeWhenItsLcCountsTheRest) {
    card.expect("8424000008 1122334455667788", "9000");
    EXPECT_EQ(run("9F180400000001 860D 84240000081122334455667788"), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, SendsAFiveByteCommandWithLeZeroWhole) {
    card.expect("00B2010C00", "9000");
    EXPECT_EQ(run("8605 00B2010C00"), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, LeavesOutTheLastByteOfAnyOtherCommand) {
    card.expect("80CA9F3600", "9000");
    EXPECT_EQ(run("8606 80CA9F360000"), 0);
    card.expect("8424000002 1122", "9000");
    EXPECT_EQ(run("8608 8424000002112200"), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, LeavesOutTheOnlyLengthByteOfACommandThatAsksForData) {
    card.expect("00840000", "9000");
    EXPECT_EQ(run("8605 0084000008"), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, GivesEachCommandTheTimeOfACryptogram) {
    card.expect("00B2010C00", "9000");
    EXPECT_EQ(run("8605 00B2010C00"), 0);
    EXPECT_EQ(qaven::test::noted_wait(), 10);
}

TEST_F(IssuerScript, SendsItsCommandsInTheirOrder) {
    card.expect("841E000000", "9000").expect("8424000001 11", "9000").expect("8418000000", "9000");
    EXPECT_EQ(run("8605841E000000 8606842400000111 86058418000000"), 0);
    EXPECT_EQ(count, 3);
}

TEST_F(IssuerScript, EndsAtTheFirstCommandThatTheCardRefuses) {
    card.expect("841E000000", "6985");
    EXPECT_EQ(run("8605841E000000 86058418000000"), 0x6985);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, CountsTheRefusedCommand) {
    card.expect("841E000000", "9000").expect("8418000000", "6A80");
    EXPECT_EQ(run("8605841E000000 86058418000000 8605841E000001"), 0x6A80);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, EndsWithTheLinksFailure) {
    card.expect_silence("841E000000");
    EXPECT_EQ(run("8605841E000000 86058418000000"), kTimeout);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, WithoutCommandsSendsNothing) {
    for (const std::string_view script :
         {"9F180400000001", "00", "FF 8605841E000000", "5F", "57"}) {
        EXPECT_EQ(run(script), 0) << script;
        EXPECT_EQ(count, 0) << script;
    }
    EXPECT_THAT(card.commands(), IsEmpty());
}

TEST_F(IssuerScript, OfLengthZeroSendsNothing) {
    Bytes script = exact("8605841E000000");
    EXPECT_EQ(qmcx_exeicscript(script.data(), 0, &count), 0);
    EXPECT_EQ(count, 0);
    EXPECT_EQ(qmcx_exeicscript(script.data(), -1, &count), 0);
    EXPECT_EQ(count, 0);
}

TEST_F(IssuerScript, FindsCommandsInsideTemplates) {
    card.expect("841E000000", "9000").expect("8418000000", "9000");
    EXPECT_EQ(run("7110 9F180400000001 7207 8605841E000000 8605 8418000000"), 0);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, StepsOverOtherObjectsBetweenCommands) {
    card.expect("841E000000", "9000").expect("8418000000", "9000");
    EXPECT_EQ(run("8605841E000000 9F180400000002 86058418000000 9F1801 00"), 0);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, CountsAnEmptyCommandButDoesNotSendIt) {
    card.expect("841E000000", "9000");
    EXPECT_EQ(run("8600 8605841E000000"), 0);
    EXPECT_EQ(count, 2);
    EXPECT_EQ(run("8600"), 0);
    EXPECT_EQ(count, 1);
    EXPECT_THAT(card.commands(), ElementsAre("841E000000"));
}

TEST_F(IssuerScript, FollowsUpWithoutTakingItForARefusal) {
    card.expect("841E000000", "6102").expect("00C0000002", "1122 9000");
    card.expect("80CA9F3600", "6C05").expect("80CA9F3605", "9F36020017 9000");
    card.expect("8418000000", "6300");
    EXPECT_EQ(run("8605841E000000 860580CA9F3600 86058418000000"), 0x6300);
    EXPECT_EQ(count, 3);
}

TEST_F(IssuerScript, GoesOnBehindAWarningThatGetResponseEnds) {
    // Every 62xx is answered by GET RESPONSE first; what that brings is the command's result.
    card.expect("841E000000", "6283").expect("00C0000000", "9000");
    card.expect("8418000000", "6200").expect("00C0000000", "6985");
    EXPECT_EQ(run("8605841E000000 86058418000000 86058416000000"), 0x6985);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, LeavesTheScriptAsItWas) {
    card.expect("80CA9F3600", "6C05").expect("80CA9F3605", "9F36020017 9000");
    card.expect("841E000000", "6102").expect("00C0000002", "1122 9000");
    Bytes script = exact("860580CA9F3600 8605841E000000");
    EXPECT_EQ(qmcx_exeicscript(script.data(), 14, &count), 0);
    EXPECT_EQ(hex(script), "860580CA9F36008605841E000000");
}

TEST_F(IssuerScript, TakesALongAnswerWithoutLookingAtIt) {
    card.expect("80CA9F3600", repeated("A1", 300) + "9000");
    EXPECT_EQ(run("860580CA9F3600"), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, RefusesAnAnswerThatNoBufferHolds) {
    card.expect("80CA9F3600", repeated("A1", 1100) + "9000");
    EXPECT_EQ(run("860580CA9F3600 8605841E000000"), -16);
    EXPECT_EQ(count, 1);
}

// --- commands that are none ---

TEST_F(IssuerScript, EndsAtACommandThatRunsPastItsEnd) {
    for (const std::string_view script :
         {"8606 841E000000", "860D 8424000008112233", "86FF 841E000000", "8605"}) {
        EXPECT_EQ(run(script), kEmptyData) << script;
        EXPECT_EQ(count, 1) << script;
    }
    EXPECT_THAT(card.commands(), IsEmpty());
}

TEST_F(IssuerScript, EndsAtACommandWithoutALength) {
    for (const std::string_view script : {"86", "8681", "8682", "868200"}) {
        EXPECT_EQ(run(script), kEmptyData) << script;
        EXPECT_EQ(count, 1) << script;
    }
    EXPECT_THAT(card.commands(), IsEmpty());
}

TEST_F(IssuerScript, EndsAtACommandTooShortToBeOne) {
    for (const std::string_view script :
         {"8601 84 8605841E000000", "8602 841E 8605841E000000", "8603 841E00 8605841E000000",
          "8604 841E0000 8605841E000000"}) {
        EXPECT_EQ(run(script), kEmptyData) << script;
        EXPECT_EQ(count, 1) << script;
    }
    EXPECT_THAT(card.commands(), IsEmpty());
}

TEST_F(IssuerScript, CountsTheCommandsBeforeABrokenOne) {
    card.expect("841E000000", "9000");
    EXPECT_EQ(run("8605841E000000 8606 8418000000"), kEmptyData);
    EXPECT_EQ(count, 2);
}

// --- lengths of more than one byte ---

TEST_F(IssuerScript, TakesACommandWhoseLengthHasTwoBytes) {
    const std::string data = repeated("A1", 200);
    card.expect("84DA9F79 C8" + data, "9000");
    EXPECT_EQ(run("8681CD 84DA9F79C8" + data), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, TakesTheLowByteOfALengthOfThreeBytes) {
    card.expect("841E000000", "9000");
    EXPECT_EQ(run("86820005 841E000000"), 0);
    EXPECT_EQ(count, 1);
    card.expect("841E000000", "9000");
    EXPECT_EQ(run("86820105 841E000000 FF"), 0);
    EXPECT_EQ(count, 1);
}

TEST_F(IssuerScript, StepsOnAsIfEveryLengthHadOneByte) {
    // Behind 86 82 0005 the search goes on two bytes before the command's end, at 86 00: an empty
    // command of which only the step knows.
    card.expect("841E008600", "9000").expect("8418000000", "9000");
    EXPECT_EQ(run("86820005 841E008600 86058418000000"), 0);
    EXPECT_EQ(count, 3);
}

TEST_F(IssuerScript, AnEmptyCommandWithALongLengthIsSteppedOverByTwoBytes) {
    // Behind 86 82 the search goes on at 00 00, then finds the next command.
    card.expect("841E000000", "9000");
    EXPECT_EQ(run("86820000 8605841E000000"), 0);
    EXPECT_EQ(count, 2);
}

TEST_F(IssuerScript, MayHoldACommandOf255Bytes) {
    const std::string data = repeated("A1", 250);
    card.expect("84DA9F79 FA" + data, "9000");
    EXPECT_EQ(run("86FF 84DA9F79FA" + data), 0);
    EXPECT_EQ(count, 1);
}

} // namespace
