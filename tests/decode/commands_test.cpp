// The two commands as users run them.
#include "program.h"
#include "samples.h"

#include "../temporary_folder.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <thread>

using namespace qaven::cli::test;
using testing::HasSubstr;

namespace {

TEST(DecodeCommand, TakesAValueInPieces) {
    const Ending ending = run({"decode", "9F36", "02", "0004"});
    EXPECT_EQ(ending.status, 0);
    EXPECT_EQ(ending.output,
              "data objects\n  9F36 (2) application transaction counter (ATC): 0004 (4)\n");
    EXPECT_EQ(ending.errors, "");
}

TEST(DecodeCommand, TakesAValueFromStandardInput) {
    const std::string input = "9F36\n  02 0004\n";
    EXPECT_THAT(run({"decode", "-"}, input).output, HasSubstr("0004 (4)"));
    EXPECT_EQ(run({"decode"}, input).output, run({"decode", "-"}, input).output);
}

TEST(DecodeCommand, IsToldWhatTheValueIs) {
    EXPECT_THAT(run({"decode", "--as", "tvr", "0008006000"}).output, HasSubstr("new card"));
    EXPECT_THAT(run({"decode", "--as=tvr", "0008006000"}).output, HasSubstr("new card"));
}

TEST(DecodeCommand, FailsForWhatMakesNoSenseButSaysWhatItUnderstood) {
    const Ending ending = run({"decode", "9F3602000495"});
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(ending.output, HasSubstr("0004 (4)"));
    EXPECT_THAT(ending.output, HasSubstr("! at byte 6"));
}

TEST(DecodeCommand, RefusesWrongUse) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {"decode", "--as"},
             {"decode", "--as", "nothing", "00"},
             {"decode", "--strange", "00"},
             {"decode", "-", "00"},
             {"decode", ""},
             {"trace", "--strange"},
             {"trace", "one", "two"},
         }) {
        const Ending ending = run(arguments);
        EXPECT_EQ(ending.status, 2) << arguments.back();
        EXPECT_EQ(ending.output, "");
        EXPECT_THAT(ending.errors, HasSubstr("--help"));
    }
}

TEST(DecodeCommand, ExplainsItself) {
    const Ending ending = run({"decode", "--help"});
    EXPECT_EQ(ending.status, 0);
    EXPECT_THAT(ending.output, HasSubstr("usage: qaven decode"));
    EXPECT_THAT(ending.output, HasSubstr("cardinfo"));
    for (const char* const problem : {"fixed one", "calendar", "check byte", "64 levels"}) {
        EXPECT_THAT(ending.output, HasSubstr(problem));
    }
    EXPECT_THAT(run({"trace", "--help"}).output, HasSubstr("usage: qaven trace"));
}

TEST(DecodeCommand, ShowsTheNumberWhenAskedTo) {
    EXPECT_FALSE(shows(run({"decode", "5A0A6228000100001234565F"}).output, kAccountNumber));
    EXPECT_TRUE(
        shows(run({"decode", "--show-pan", "5A0A6228000100001234565F"}).output, kAccountNumber));
}

class TraceCommand : public testing::Test {
  protected:
    static void write(const std::string& text, std::ios::openmode mode = std::ios::app) {
        std::ofstream("Qm_ic.log", std::ios::binary | mode) << text;
    }

    qaven::test::WorkingFolder folder_;
};

TEST_F(TraceCommand, ReadsTheLogOfTheWorkingDirectory) {
    write("iRet:0\n\r\n");
    EXPECT_EQ(run({"trace"}).output, "  iRet (result): 0: success\n");
    EXPECT_EQ(run({"trace", "Qm_ic.log"}).output, run({"trace"}).output);
    EXPECT_EQ(run({"trace", "-"}, "iRet:0\n\r\n").output, run({"trace"}).output);
}

TEST_F(TraceCommand, SaysThatThereIsNoLog) {
    const Ending ending = run({"trace"});
    EXPECT_EQ(ending.status, 1);
    EXPECT_THAT(ending.errors, HasSubstr("Qm_ic.log: No such file"));
    EXPECT_EQ(run({"trace", "."}).status, 1);
}

TEST_F(TraceCommand, FollowsALogThatBeginsLater) {
    Program program({"trace", "--follow"});
    write("iRet:0\n\r\n");
    EXPECT_TRUE(program.says("0: success"));
    write("iRet:-7");
    write("\n\r\n");
    EXPECT_TRUE(program.says("-7: the reader did not answer in time"));
    program.interrupt();
    EXPECT_EQ(program.end().status, 0);
}

TEST_F(TraceCommand, FollowsADumpToItsEnd) {
    Program program({"trace", "-f"});
    write("from the card(HEX): 62 83 \r\n");
    EXPECT_TRUE(program.says("application is blocked"));
    program.interrupt();
    EXPECT_EQ(program.end().status, 0);
}

TEST_F(TraceCommand, FollowsALogThatIsEmptiedAndBegunAnew) {
    write("iRet:0\n\r\niRet:0\n\r\n");
    Program program({"trace", "--follow"});
    EXPECT_TRUE(program.says("0: success"));
    write("iRet:-8\n\r\n", std::ios::trunc);
    EXPECT_TRUE(program.says("begins anew"));
    EXPECT_TRUE(program.says("-8: no reader is open"));
    program.interrupt();
    EXPECT_EQ(program.end().status, 0);
}

TEST_F(TraceCommand, FollowsALogThatIsReplaced) {
    write("iRet:0\n\r\n");
    Program program({"trace", "--follow"});
    EXPECT_TRUE(program.says("0: success"));
    std::filesystem::rename("Qm_ic.log", "Qm_ic.log.1");
    write("iRet:-8 \n\r\nthe new one is longer than the old one\r\n");
    EXPECT_TRUE(program.says("begins anew"));
    EXPECT_TRUE(program.says("-8: no reader is open"));
    program.interrupt();
    EXPECT_EQ(program.end().status, 0);
}

TEST_F(TraceCommand, FollowingMasksANumberThatIsWrittenInTwoSteps) {
    Program program({"trace", "--follow"});
    write("valueRet:A0196228000100");
    // Longer than the follower takes to see that nothing more has come.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    write("001234565\n\r\n");
    EXPECT_TRUE(program.says("622800*********4565"));
    EXPECT_FALSE(shows(program.output(), kAccountNumber));
    program.interrupt();
    EXPECT_EQ(program.end().status, 0);
}

} // namespace
