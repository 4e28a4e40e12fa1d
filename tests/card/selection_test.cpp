// Selection: directories, full and partial names, next occurrence, blocked cards and applications.
#include <gtest/gtest.h>

#include "counter_terminal.h"

namespace qaven::card_test {
namespace {

constexpr std::string_view pse_name = "315041592E5359532E4444463031";

TEST(Selection, OfThePaymentSystemEnvironmentNamesItsDirectoryFile) {
    Card card(profile("debit"));
    CounterTerminal terminal(card);
    EXPECT_EQ(
        terminal.select(pse_name),
        accepted("6F20 840E 315041592E5359532E4444463031 A50E 880101 5F2D047A68656E 9F110101"));
}

TEST(Selection, OfACardWithoutPaymentSystemEnvironmentFindsNone) {
    Card card(profile("no-pse"));
    CounterTerminal terminal(card);
    EXPECT_EQ(terminal.select(pse_name), refused("6A82"));
    EXPECT_EQ(terminal.select(debit_aid).status, "9000");
}

TEST(Selection, ByFullNameGivesTheControlInformation) {
    Card card(profile("debit"));
    CounterTerminal terminal(card);
    EXPECT_EQ(terminal.select(debit_aid),
              accepted("6F4C 8408A000000333010101 A540"
                       "500A50424F43204445424954 870101 9F38099F7A019F02065F2A02"
                       "5F2D047A68656E 9F110101 9F120A54455354204445424954"
                       "BF0C0A 9F4D020B0A DF4D020C0A"));
}

TEST(Selection, ByPartialNameGivesTheFullNameBack) {
    Card card(profile("two-applications"));
    CounterTerminal terminal(card);
    const Reply reply = terminal.select("A000000333");
    EXPECT_EQ(reply.status, "9000");
    EXPECT_EQ(reply.data.substr(4, 20), "8408A000000333010101");
}

TEST(Selection, OfTheNextOccurrenceWalksThroughTheApplicationsOnce) {
    Card card(profile("two-applications"));
    CounterTerminal terminal(card);
    EXPECT_EQ(terminal.select("A000000333").status, "9000");
    const Reply next = terminal.send("00A4040205 A000000333");
    EXPECT_EQ(next.status, "9000");
    EXPECT_EQ(next.data.substr(4, 20), "8408A000000333010102");
    EXPECT_EQ(terminal.send("00A4040205 A000000333"), refused("6A82"));
}

TEST(Selection, OfTheNextOccurrenceNeedsAFirstOneOfTheSameName) {
    Card card(profile("two-applications"));
    CounterTerminal terminal(card);
    EXPECT_EQ(terminal.send("00A4040205 A000000333"), refused("6A82"));
    EXPECT_EQ(terminal.select(debit_aid).status, "9000");
    EXPECT_EQ(terminal.send("00A4040205 A000000333"), refused("6A82"));
}

TEST(Selection, ByALongerNameThanAnyApplicationHasFindsNone) {
    Card card(profile("debit"));
    CounterTerminal terminal(card);
    EXPECT_EQ(terminal.select("A00000033301010199"), refused("6A82"));
}

TEST(Selection, ThatFindsNothingLeavesTheApplicationSelected) {
    Card card(profile("debit"));
    CounterTerminal terminal(card);
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.select("B0"), refused("6A82"));
    EXPECT_EQ(terminal.first_cryptogram().status, "9000");
}

TEST(Selection, RefusesOtherWaysThanByName) {
    Card card(profile("debit"));
    CounterTerminal terminal(card);
    EXPECT_EQ(terminal.send("00A4000002 3F00"), refused("6A86"));
    EXPECT_EQ(terminal.send("00A4040305 A000000333"), refused("6A86"));
    EXPECT_EQ(terminal.send("00A4040011 A000000333010101A000000333010101A0"), refused("6700"));
}

TEST(Selection, OfABlockedApplicationWarnsAndTheNextOneWorks) {
    Card card(profile("blocked"));
    CounterTerminal terminal(card);
    const Reply first = terminal.select("A000000333");
    EXPECT_EQ(first.status, "6283");
    EXPECT_EQ(first.data.substr(4, 20), "8408A000000333010101");
    EXPECT_EQ(terminal.send("00C0000000"), refused("6985")) << "nothing is waiting";
    EXPECT_EQ(terminal.send("00A4040205 A000000333").status, "9000");
}

TEST(Selection, OnABlockedCardIsRefusedForEveryName) {
    Card card(profile("card-blocked"));
    CounterTerminal terminal(card);
    EXPECT_EQ(terminal.select(pse_name), refused("6A81"));
    EXPECT_EQ(terminal.select(debit_aid), refused("6A81"));
}

TEST(Directory, HasOneRecordForEachApplication) {
    Card card(profile("two-applications"));
    CounterTerminal terminal(card);
    terminal.select(pse_name);
    EXPECT_EQ(terminal.send("00B2010C00"),
              accepted("701B 6119 4F08A000000333010101 500A50424F43204445424954 870101"));
    EXPECT_EQ(terminal.send("00B2020C00"),
              accepted("701C 611A 4F08A000000333010102 500B50424F4320435245444954 870102"));
    EXPECT_EQ(terminal.send("00B2030C00"), refused("6A83"));
    EXPECT_EQ(terminal.send("00B2011400"), refused("6A82"));
}

// The blocked application is named too: a host that goes by the directory meets it first.
TEST(Directory, NamesBlockedApplications) {
    Card card(profile("blocked"));
    Card both(profile("two-applications"));
    CounterTerminal terminal(card);
    CounterTerminal model(both);
    terminal.select(pse_name);
    model.select(pse_name);
    for (const std::string_view record : {"00B2010C00", "00B2020C00", "00B2030C00"}) {
        EXPECT_EQ(terminal.send(record), model.send(record)) << record;
    }
}

TEST(Directory, CanNameAnotherDirectory) {
    Card card(profile("ddf"));
    CounterTerminal terminal(card);
    terminal.select(pse_name);
    EXPECT_EQ(terminal.send("00B2010C00"), accepted("700F 610D 9D0B514156454E2E4444463032"));
    EXPECT_EQ(terminal.select("514156454E2E4444463032"),
              accepted("6F12 840B514156454E2E4444463032 A503880102"));
    EXPECT_EQ(terminal.send("00B2011400").data.substr(0, 28), "701C611A4F08A000000333010102");
}

TEST(Directory, ComesBeforeApplicationsWhenANameFitsBoth) {
    Profile with_both = profile("debit");
    with_both.directories.front().name = "\xA0";
    Card card(with_both);
    CounterTerminal terminal(card);
    EXPECT_EQ(terminal.select("A0").data.substr(0, 10), "6F138401A0");
    EXPECT_EQ(terminal.send("00A4040201 A0").data.substr(4, 20), "8408A000000333010101");
}

} // namespace
} // namespace qaven::card_test
