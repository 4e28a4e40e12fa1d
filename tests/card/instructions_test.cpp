// What the card says to commands that it does not know, that are out of order or of a wrong shape.
#include <gtest/gtest.h>

#include "counter_terminal.h"

namespace qaven::card_test {
namespace {

class Instructions : public testing::Test {
  protected:
    Card card{profile("debit")};
    CounterTerminal terminal{card};
};

TEST_F(Instructions, AnswerToResetIsTheOneOfTheProfile) {
    EXPECT_EQ(virtual_card::to_hex(card.power_on()), "3B670000514156454E3031");
}

TEST_F(Instructions, UnknownClassIsRefused) {
    EXPECT_EQ(terminal.send("90A4040000"), refused("6E00"));
    EXPECT_EQ(terminal.send("FFCA000000"), refused("6E00"));
}

TEST_F(Instructions, KnownInstructionOfAnotherClassIsRefusedForItsClass) {
    EXPECT_EQ(terminal.send("80B2010C00"), refused("6E00"));
    EXPECT_EQ(terminal.send("001E000004 01020304"), refused("6E00"));
}

TEST_F(Instructions, UnknownInstructionIsRefused) {
    EXPECT_EQ(terminal.send("0070000000"), refused("6D00"));
    EXPECT_EQ(terminal.send("0022000004 01020304"), refused("6D00"));
}

TEST_F(Instructions, CommandOfWrongLengthIsRefused) {
    EXPECT_EQ(terminal.send("00A404"), refused("6700")) << "no whole header";
    EXPECT_EQ(terminal.send("00A40400"), refused("6700")) << "no name";
    EXPECT_EQ(terminal.send("00A4040005 A00000"), refused("6700")) << "cut short";
    EXPECT_EQ(terminal.send("00A4040005 A000000333 00"), terminal.send("00A4040005 A000000333"))
        << "an Le behind the data is allowed";
    EXPECT_EQ(terminal.send("00A4040005 A000000333 0000"), refused("6700")) << "too long";
    EXPECT_EQ(terminal.send("00B2010C02 0102"), refused("6700")) << "data where none belong";
}

TEST_F(Instructions, EverythingButSelectionAndChallengeNeedsASelectedApplication) {
    EXPECT_EQ(terminal.send("00B2010C00"), refused("6985"));
    EXPECT_EQ(terminal.send("00B0950000"), refused("6985"));
    EXPECT_EQ(terminal.send("80CA9F3600"), refused("6985"));
    EXPECT_EQ(terminal.send("80A8000002 8300"), refused("6985"));
    EXPECT_EQ(terminal.send("80AE800001 00"), refused("6985"));
    EXPECT_EQ(terminal.send("008200000A 00000000000000003030"), refused("6985"));
    EXPECT_EQ(terminal.send("0088000004 01020304"), refused("6985"));
    EXPECT_EQ(terminal.send("0020008008 26123456FFFFFFFF"), refused("6985"));
    EXPECT_EQ(terminal.send("841E000004 01020304"), refused("6985"));
    EXPECT_EQ(terminal.send("0084000008").status, "9000");
}

TEST_F(Instructions, PowerOffForgetsTheSelection) {
    terminal.begin(debit_aid);
    card.power_off();
    card.power_on();
    EXPECT_EQ(terminal.send("80CA9F3600"), refused("6985"));
}

TEST_F(Instructions, CardWithoutPowerTakesNoCommand) {
    card.power_off();
    EXPECT_THROW(card.transmit(hex("0084000008")), std::logic_error);
}

TEST_F(Instructions, ProcessingOptionsGiveAipAndFileLocator) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("80A800000B 8309 01 000000001213 0156"),
              accepted("800E 7C00 08010202 10010200 18010401"));
    EXPECT_EQ(terminal.send("80CA9F3600"), accepted("9F36020003")) << "counted";
}

TEST_F(Instructions, ProcessingOptionsWithoutPdolTakeAnEmptyTemplate) {
    Card credit(profile("credit"));
    CounterTerminal counter(credit);
    counter.select(credit_aid);
    EXPECT_EQ(counter.send("80A8000002 8300"), accepted("800E 7C00 08010202 10010200 18010401"));
}

TEST_F(Instructions, ProcessingOptionsAreGivenOnceForEachSelection) {
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.send("80A800000B 8309 01 000000001213 0156"), refused("6985"));
    EXPECT_EQ(terminal.begin(debit_aid).status, "9000");
}

TEST_F(Instructions, ProcessingOptionsWithDataThatDoesNotFitThePdolAreRefused) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("80A8000002 8300"), refused("6700"));
    EXPECT_EQ(terminal.send("80A8000003 830901"), refused("6700"));
    EXPECT_EQ(terminal.send("80A800000B 8409 01 000000001213 0156"), refused("6A80"));
    EXPECT_EQ(terminal.send("80A801000B 8309 01 000000001213 0156"), refused("6A86"));
    EXPECT_EQ(terminal.send("80CA9F3600"), accepted("9F36020002")) << "not counted";
}

TEST_F(Instructions, ProcessingOptionsInFormat2StandInTheirOwnTemplate) {
    Card other(profile("format-2"));
    CounterTerminal counter(other);
    EXPECT_EQ(counter.begin(debit_aid), accepted("7712 82027C00 940C 08010202 10010200 18010401"));
}

TEST_F(Instructions, CounterThatHasRunOutEndsTheLifeOfTheApplication) {
    Profile worn = profile("debit");
    worn.applications.front().atc = 0xFFFE;
    Card old_card(worn);
    CounterTerminal counter(old_card);
    EXPECT_EQ(counter.begin(debit_aid).status, "9000");
    EXPECT_EQ(counter.begin(debit_aid), refused("6985"));
    EXPECT_EQ(counter.send("80CA9F3600"), accepted("9F3602FFFF"));
}

} // namespace
} // namespace qaven::card_test
