// The card that answers in the manner of T=0: 61xx, GET RESPONSE and 6Cxx.
#include <gtest/gtest.h>

#include "counter_terminal.h"

namespace qaven::card_test {
namespace {

class GetResponse : public testing::Test {
  protected:
    Card card{profile("get-response")};
    CounterTerminal terminal{card};
};

TEST_F(GetResponse, SelectionSaysHowMuchIsWaiting) {
    EXPECT_EQ(terminal.select(debit_aid), refused("614E"));
    Card direct(profile("debit"));
    CounterTerminal other(direct);
    EXPECT_EQ(terminal.send("00C000004E"), other.select(debit_aid));
}

TEST_F(GetResponse, WrongLengthIsCorrectedAndTheDataStays) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("00C0000000"), refused("6C4E"));
    EXPECT_EQ(terminal.send("00C0000010"), refused("6C4E"));
    EXPECT_EQ(terminal.send("00C000004E").status, "9000");
    EXPECT_EQ(terminal.send("00C000004E"), refused("6985")) << "handed over once";
}

TEST_F(GetResponse, AnotherCommandDropsWhatIsWaiting) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("80CA9F3605"), accepted("9F36020002"));
    EXPECT_EQ(terminal.send("00C000004E"), refused("6985"));
}

TEST_F(GetResponse, ReadingNeedsTheExactLength) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("80CA9F3600"), refused("6C05"));
    EXPECT_EQ(terminal.send("80CA9F3604"), refused("6C05"));
    EXPECT_EQ(terminal.send("80CA9F3605"), accepted("9F36020002"));
    EXPECT_EQ(terminal.send("80CA9F36"), refused("6C05")) << "no length at all";
    EXPECT_EQ(terminal.send("0084000000"), refused("6C08"));
    EXPECT_EQ(terminal.send("00B2015C00"), refused("6C2D"));
    EXPECT_EQ(terminal.send("00B0950000"), refused("6C21"));
}

TEST_F(GetResponse, RefusalsAndBareAnswersComeAsTheyAre) {
    EXPECT_EQ(terminal.select("B0"), refused("6A82"));
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("0020008008 26123456FFFFFFFF"), accepted());
    EXPECT_EQ(terminal.send("00C0010000"), refused("6A86"));
}

TEST_F(GetResponse, ProcessingOptionsAndCryptogramWaitToo) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("80A800000B 8309 01 000000001213 0156"), refused("6110"));
    EXPECT_EQ(terminal.send("00C0000010"), accepted("800E 7C00 08010202 10010200 18010401"));
    EXPECT_EQ(terminal.send("80AE800034 000000001213 000000000000 0156 0008006000 0156 250422 03"
                            "1A2B3C4D 161355 4C55524F20434E54202020202020202020202020"),
              refused("6115"));
    const Reply cryptogram = terminal.send("00C0000015");
    EXPECT_EQ(cryptogram.status, "9000");
    EXPECT_EQ(cryptogram.data.substr(0, 10), "8013800003");
}

TEST_F(GetResponse, BlockedApplicationWarnsFirstAndHandsItsInformationOverAfterwards) {
    Profile blocked = profile("get-response");
    blocked.applications.front().blocked = true;
    Card other(blocked);
    CounterTerminal counter(other);
    EXPECT_EQ(counter.select(debit_aid), refused("6283"));
    EXPECT_EQ(counter.send("00C0000000"), refused("6C4E"));
    EXPECT_EQ(counter.send("00C000004E").status, "9000");
}

TEST(DirectCard, HasNothingWaiting) {
    Card card(profile("debit"));
    CounterTerminal terminal(card);
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("00C000004E"), refused("6985"));
}

} // namespace
} // namespace qaven::card_test
