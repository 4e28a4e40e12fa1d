// Records, transparent files, data objects, challenge and PIN.
#include <gtest/gtest.h>

#include "counter_terminal.h"

namespace qaven::card_test {
namespace {

class Files : public testing::Test {
  protected:
    Card card{profile("debit")};
    CounterTerminal terminal{card};
};

TEST_F(Files, RecordsHoldTheCardholderData) {
    terminal.begin(debit_aid);
    EXPECT_EQ(
        terminal.send("00B2010C00"),
        accepted("703A 5713 6228000100001234565D30122201234567890F"
                 "5F200F 544553542F43415244484F4C444552 9F1F10 30323230303030303030303030303030"));
    EXPECT_EQ(terminal.send("00B2020C00"),
              accepted("703E 5F2503240101 5F2403301231 9F0702FF00 5A0A 6228000100001234565F"
                       "5F340101 5F28020156 5F30020220 9F6310 30303031303030300000000000000000"));
    EXPECT_EQ(terminal.send("00B2021400"),
              accepted("704E 9F6112 313130313031313939303031303130303030 9F620100"
                       "DF2009 544553542042414E4B DF210B 54455354204252414E4348"
                       "DF220C 5445535420434F554E544552 DF2309 544553542043415244"));
}

TEST_F(Files, RecordsOfTheFileLocatorCanBeReadOnceProcessingOptionsAreGiven) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("00B2010C00"), refused("6985"));
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.send("00B2010C00").status, "9000");
}

TEST_F(Files, RecordThatIsNotThereIsRefused) {
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.send("00B2030C00"), refused("6A83"));
    EXPECT_EQ(terminal.send("00B2000C00"), refused("6A83"));
    EXPECT_EQ(terminal.send("00B2012C00"), refused("6A82")) << "no such file";
    EXPECT_EQ(terminal.send("00B2010D00"), refused("6A86")) << "another way of reading";
    EXPECT_EQ(terminal.send("00B201AC00"), refused("6981")) << "a file without records";
}

TEST_F(Files, ExpectedLengthShorterThanTheRecordIsCorrected) {
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.send("00B2010C10"), refused("6C3C"));
    EXPECT_EQ(terminal.send("00B2010C3C").status, "9000");
}

TEST_F(Files, DataObjectsComeWithTagAndLength) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("80CA9F1300"), accepted("9F13020002"));
    EXPECT_EQ(terminal.send("80CA9F1700"), accepted("9F170103"));
    EXPECT_EQ(terminal.send("80CA9F3600"), accepted("9F36020002"));
    EXPECT_EQ(terminal.send("80CA9F4F00"),
              accepted("9F4F19 9A039F21039F02069F03069F1A025F2A029F4E149C019F3602"));
    EXPECT_EQ(terminal.send("80CA9F7700"), accepted("9F7706000000100000"));
    EXPECT_EQ(terminal.send("80CA9F7800"), accepted("9F7806000000050000"));
    EXPECT_EQ(terminal.send("80CA9F7900"), accepted("9F7906000000010000"));
    EXPECT_EQ(terminal.send("80CADF4F00"), accepted("DF4F0E 9A039F21039F1A029F4E149F3602"));
}

TEST_F(Files, DataObjectsThatTheCardDoesNotHaveAreNotFound) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("80CA9F5100"), refused("6A88"));
    Card credit(profile("credit"));
    CounterTerminal counter(credit);
    counter.select(credit_aid);
    EXPECT_EQ(counter.send("80CA9F7900"), refused("6A88")) << "no electronic cash";
    EXPECT_EQ(counter.send("80CADF4F00"), refused("6A88")) << "no load log";
}

TEST_F(Files, LogsAreReadNewestFirstWithoutProcessingOptions) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("00B2015C00"),
              accepted("250302 101530 000000001250 000000000000 0156 0156"
                       "544553542053484F500000000000000000000000 00 0002"));
    EXPECT_EQ(terminal.send("00B2025C00").data.substr(0, 6), "250301");
    EXPECT_EQ(terminal.send("00B2035C00"), refused("6A83"));
    EXPECT_EQ(terminal.send("00B2016400"),
              accepted("9F79 000000000000 000000010000 250301 090000 0156"
                       "54455354204252414E4348000000000000000000 0001"));
    EXPECT_EQ(terminal.send("00B2026400"), refused("6A83"));
}

TEST_F(Files, TransparentFileIsReadWithTheExactLength) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("00B0950000"), refused("6C21"));
    EXPECT_EQ(terminal.send("00B0950021"),
              accepted("514156454E205445535420434152442C205452414E53504152454E542046494C45"));
    EXPECT_EQ(terminal.send("00B0951C05"), accepted("2046494C45"));
    EXPECT_EQ(terminal.send("00B0951C00"), refused("6C05"));
    EXPECT_EQ(terminal.send("00B0950005"), accepted("514156454E"));
    EXPECT_EQ(terminal.send("00B0952100"), refused("6B00")) << "behind the end";
    EXPECT_EQ(terminal.send("00B0840000"), refused("6A82")) << "no such file";
    EXPECT_EQ(terminal.send("00B0810000"), refused("6981")) << "a file of records";
    EXPECT_EQ(terminal.send("00B0000000"), refused("6986")) << "no current file";
    EXPECT_EQ(terminal.send("00B09500"), refused("6700")) << "no expected length";
}

TEST_F(Files, TransparentFileOf256BytesAndMoreIsReadInOnePieceOf256) {
    Profile with_long_file = profile("debit");
    with_long_file.applications.front().binary_files.front().content = Bytes(300, 0x5A);
    Card other(with_long_file);
    CounterTerminal counter(other);
    counter.select(debit_aid);
    EXPECT_EQ(counter.send("00B0950000").data.size(), 512U);
}

TEST_F(Files, ChallengeHasTheLengthAskedForAndIsNeverTheSame) {
    const Reply first = terminal.send("0084000008");
    const Reply second = terminal.send("0084000008");
    EXPECT_EQ(first.data.size(), 16U);
    EXPECT_NE(first.data, second.data);
    EXPECT_EQ(terminal.send("0084000004").data.size(), 8U);
    EXPECT_EQ(terminal.send("0084000000").data.size(), 16U) << "eight bytes unless told otherwise";
    EXPECT_EQ(terminal.send("0084010008"), refused("6A86"));
}

TEST_F(Files, RightPinIsAcceptedAndRestoresTheTries) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("0020008008 26111111FFFFFFFF"), refused("63C2"));
    EXPECT_EQ(terminal.send("80CA9F1700"), accepted("9F170102"));
    EXPECT_EQ(terminal.send("0020008008 26123456FFFFFFFF"), accepted());
    EXPECT_EQ(terminal.send("80CA9F1700"), accepted("9F170103"));
}

TEST_F(Files, PinIsBlockedWhenTheTriesAreUsedUpAlsoForTheRightOne) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("0020008008 26111111FFFFFFFF"), refused("63C2"));
    EXPECT_EQ(terminal.send("0020008008 26111111FFFFFFFF"), refused("63C1"));
    EXPECT_EQ(terminal.send("0020008008 26111111FFFFFFFF"), refused("63C0"));
    EXPECT_EQ(terminal.send("0020008008 26123456FFFFFFFF"), refused("6983"));
}

TEST_F(Files, PinCommandThatIsCutShortUsesUpNoTry) {
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.send("00200080 08 261234"), refused("6700"));
    EXPECT_EQ(terminal.send("0020008003 261234"), refused("6700"));
    EXPECT_EQ(terminal.send("0020000008 26123456FFFFFFFF"), refused("6A86"));
    EXPECT_EQ(terminal.send("80CA9F1700"), accepted("9F170103"));
}

TEST_F(Files, CardWithoutPinVerifiesNone) {
    Profile without_pin = profile("debit");
    without_pin.pin.reset();
    Card other(without_pin);
    CounterTerminal counter(other);
    counter.select(debit_aid);
    EXPECT_EQ(counter.send("0020008008 26123456FFFFFFFF"), refused("6985"));
    EXPECT_EQ(counter.send("80CA9F1700"), refused("6A88"));
}

} // namespace
} // namespace qaven::card_test
