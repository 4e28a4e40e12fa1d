// The trace log, byte for byte.
#include "support/qmlog.h"

#include "console.h"
#include "tests/support/hex.h"
#include "trace_log.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <numeric>
#include <string>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

using qaven::test::TraceLog;
namespace trace = qaven::trace;

namespace {

// 00 01 02 ... as the log shows them.
std::string dump(unsigned int first, unsigned int count) {
    std::string text;
    for (unsigned int byte = first; byte < first + count; ++byte) {
        const std::array one{static_cast<std::uint8_t>(byte)};
        text += qaven::test::hex(one) + " ";
    }
    return text;
}

std::array<unsigned char, 256> counting_bytes() {
    std::array<unsigned char, 256> data{};
    std::iota(data.begin(), data.end(), static_cast<unsigned char>(0));
    return data;
}

class Trace : public testing::Test {
  protected:
    TraceLog log;
    std::array<unsigned char, 256> data = counting_bytes();
};

TEST_F(Trace, TwoLinesFollowEachOther) {
    WriteKsLog("a");
    WriteKsLog("a");
    EXPECT_EQ(log.text(), "a\r\na\r\n");
}

TEST_F(Trace, ThePlainNameWritesTheSameLine) {
    WriteKsLogPlain("a");
    WriteKsLog("b\n");
    WriteKsLogPlain("");
    EXPECT_EQ(log.text(), "a\r\nb\n\r\n\r\n");
}

TEST_F(Trace, ATextIsNotReadAsAFormat) {
    WriteKsLog("100%s %n");
    WriteKsTitleLog("%d", "%x");
    EXPECT_EQ(log.text(), "100%s %n\r\n%d: %x\r\n");
}

TEST_F(Trace, ATitledLineHasAColonAndABlank) {
    WriteKsTitleLog("TxData", "P012000000001213");
    EXPECT_EQ(log.text(), "TxData: P012000000001213\r\n");
}

TEST_F(Trace, AHexDumpEndsWithABlank) {
    std::array<unsigned char, 2> two{0x0A, 0xFF};
    WriteKsLogHex(two.data(), 2);
    EXPECT_EQ(log.text(), "HEX: 0A FF \r\n");
}

TEST_F(Trace, AHexDumpOfOneByte) {
    WriteKsLogHex(data.data(), 1);
    WriteKsTitleLogHex("ATR", data.data(), 1);
    EXPECT_EQ(log.text(), "HEX: 00 \r\nATR(HEX): 00 \r\n");
}

TEST_F(Trace, AHexDumpIsNeverWrapped) {
    WriteKsLogHex(data.data(), 100);
    EXPECT_EQ(log.text(), "HEX: " + dump(0, 100) + "\r\n");
}

TEST_F(Trace, AHexDumpOfNothingIsItsHead) {
    WriteKsLogHex(data.data(), 0);
    WriteKsLogHex(data.data(), -1);
    WriteKsLogHex(nullptr, 3);
    EXPECT_EQ(log.text(), "HEX: \r\nHEX: \r\nHEX: \r\n");
}

TEST_F(Trace, ATitledDumpOfLessThanARowStaysOnTheTitleLine) {
    WriteKsTitleLogHex("ATR", data.data(), 31);
    EXPECT_EQ(log.text(), "ATR(HEX): " + dump(0, 31) + "\r\n");
}

TEST_F(Trace, ATitledDumpOfOneRowStaysOnTheTitleLineAndIsFollowedByABreak) {
    WriteKsTitleLogHex("ATR", data.data(), 32);
    EXPECT_EQ(log.text(), "ATR(HEX): " + dump(0, 32) + " \r\n \r\n");
}

TEST_F(Trace, ALongerTitledDumpStartsOnALineOfItsOwn) {
    WriteKsTitleLogHex("ATR", data.data(), 33);
    EXPECT_EQ(log.text(), "ATR(HEX):  \r\n " + dump(0, 32) + " \r\n " + dump(32, 1) + "\r\n");
}

TEST_F(Trace, ATitledDumpOfTwoRowsEndsWithABreak) {
    WriteKsTitleLogHex("ATR", data.data(), 64);
    EXPECT_EQ(log.text(),
              "ATR(HEX):  \r\n " + dump(0, 32) + " \r\n " + dump(32, 32) + " \r\n \r\n");
}

TEST_F(Trace, ATitledDumpOfNothingIsItsHead) {
    WriteKsTitleLogHex("ATR", data.data(), 0);
    WriteKsTitleLogHex("ATR", data.data(), -5);
    EXPECT_EQ(log.text(), "ATR(HEX): \r\nATR(HEX): \r\n");
}

TEST_F(Trace, AMissingTextIsEmpty) {
    WriteKsLog(nullptr);
    WriteKsTitleLog(nullptr, nullptr);
    EXPECT_EQ(log.text(), "\r\n: \r\n");
}

TEST_F(Trace, TheLogIsAppendedToWhatIsThere) {
    std::ofstream("Qm_ic.log", std::ios::binary) << "yesterday\r\n";
    WriteKsLog("today");
    EXPECT_EQ(log.text(), "yesterday\r\ntoday\r\n");
}

TEST_F(Trace, TheLogLiesInTheWorkingDirectoryOfTheMoment) {
    const std::filesystem::path here = std::filesystem::current_path();
    const std::filesystem::path elsewhere = here / "elsewhere";
    std::filesystem::create_directory(elsewhere);
    std::filesystem::current_path(elsewhere);
    WriteKsLog("there");
    std::filesystem::current_path(here);
    EXPECT_FALSE(log.exists());
    std::ifstream file(elsewhere / "Qm_ic.log", std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
    EXPECT_EQ(text, "there\r\n");
    std::filesystem::remove_all(elsewhere);
}

TEST_F(Trace, ALogThatCannotBeOpenedSwallowsEveryLineSilently) {
    // A directory of the log's name keeps even the superuser from opening it for writing.
    std::filesystem::create_directory("Qm_ic.log");
    const auto printed = qaven::test::printed_by([&] {
        WriteKsLog("a");
        WriteKsLogPlain("a");
        WriteKsTitleLog("a", "a");
        WriteKsLogHex(data.data(), 1);
        WriteKsTitleLogHex("a", data.data(), 1);
    });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
    EXPECT_TRUE(std::filesystem::is_empty("Qm_ic.log"));
    std::filesystem::remove("Qm_ic.log");
}

mode_t mode_of(const char* file) {
    struct stat what {};
    EXPECT_EQ(stat(file, &what), 0);
    return what.st_mode & 07777U;
}

TEST_F(Trace, AHostWithoutStandardInputHasALogToo) {
    const int input = dup(STDIN_FILENO);
    close(STDIN_FILENO); // the log gets its number
    WriteKsLog("a");
    dup2(input, STDIN_FILENO);
    close(input);
    EXPECT_EQ(log.text(), "a\r\n");
}

TEST_F(Trace, ANewLogIsItsOwnersAlone) {
    const mode_t before = umask(0);
    WriteKsLog("a");
    umask(before);
    EXPECT_EQ(mode_of("Qm_ic.log"), 0600U);
}

TEST_F(Trace, AnExistingLogKeepsItsMode) {
    std::ofstream("Qm_ic.log").close();
    ASSERT_EQ(chmod("Qm_ic.log", 0664), 0);
    WriteKsLog("a");
    EXPECT_EQ(mode_of("Qm_ic.log"), 0664U);
    EXPECT_EQ(log.text(), "a\r\n");
}

TEST_F(Trace, APipeIsNotWrittenTo) {
    ASSERT_EQ(mkfifo("Qm_ic.log", 0600), 0);
    WriteKsLog("nobody reads");
    const int reader = open("Qm_ic.log", O_RDONLY | O_NONBLOCK);
    ASSERT_GE(reader, 0);
    WriteKsLog("a");
    char byte = 0;
    EXPECT_EQ(read(reader, &byte, 1), 0); // nothing, and nobody who could still write
    close(reader);
}

TEST_F(Trace, ATerminalTakesTheLines) {
    const int terminal = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(terminal, 0);
    ASSERT_EQ(grantpt(terminal), 0);
    ASSERT_EQ(unlockpt(terminal), 0);
    const int other_end = open(ptsname(terminal), O_RDWR | O_NOCTTY); // else the line is lost
    std::filesystem::create_symlink(ptsname(terminal), "Qm_ic.log");
    WriteKsLog("a");
    std::array<char, 16> shown{};
    EXPECT_GT(read(terminal, shown.data(), shown.size()), 0);
    EXPECT_EQ(shown[0], 'a');
    close(other_end);
    close(terminal);
}

TEST_F(Trace, AFileThatMayNotGrowDoesNotEndTheHost) {
    WriteKsLog("a");
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &before), 0);
    const rlimit small{5, before.rlim_max};
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    WriteKsLog("bcd");
    WriteKsLog("e");
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &before), 0);
    EXPECT_EQ(log.text(), "a\r\nbc");
    WriteKsLog("f");
    EXPECT_EQ(log.text(), "a\r\nbcf\r\n");
}

TEST_F(Trace, TheLogFunctionsLeaveTheScratchLineAlone) {
    trace::line("half-formatted");
    WriteKsLog("a");
    WriteKsTitleLogHex("ATR", data.data(), 40);
    EXPECT_STREQ(DbgLog, "half-formatted");
}

TEST_F(Trace, AFormattedLineGoesThroughTheScratchLine) {
    trace::line("iRet:%d\n", -23);
    EXPECT_EQ(log.text(), "iRet:-23\n\r\n");
    EXPECT_STREQ(DbgLog, "iRet:-23\n");
}

TEST_F(Trace, ALineThatIsTooLongIsCutAtTheScratchLineAndStillEnded) {
    const std::string longest(4095, 'x');
    trace::line("%s", (longest + "yz").c_str());
    EXPECT_EQ(log.text(), longest + "\r\n");
    log.clear();
    trace::line("%s", longest.c_str());
    EXPECT_EQ(log.text(), longest + "\r\n");
}

TEST_F(Trace, TheScratchLineHasRoomFor4096Bytes) {
    EXPECT_EQ(sizeof DbgLog, 4096U);
}

} // namespace
