// What an issuer may answer.
#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/issuer.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>

namespace {

using namespace qaven::cli;

constexpr const char* kApproval = "910A01020304050607083030";

TEST(IssuersAnswer, IsAResponseCodeAndAResponse) {
    const IssuerAnswer answer = parse_issuer_answer("05 910a01020304050607083035 \r");
    EXPECT_EQ(answer.response_code, "05");
    EXPECT_EQ(answer.response, "910A01020304050607083035");
    EXPECT_FALSE(answer.approved());
}

TEST(IssuersAnswer, MayHaveItsResponseCodeInTagNinetyOneOnly) {
    const IssuerAnswer answer = parse_issuer_answer(kApproval);
    EXPECT_EQ(answer.response_code, "00");
    EXPECT_EQ(answer.response, kApproval);
    EXPECT_TRUE(answer.approved());
}

TEST(IssuersAnswer, ApprovesWithZeroTenAndEleven) {
    for (const char* const code : {"00", "10", "11"}) {
        EXPECT_TRUE(parse_issuer_answer(code + std::string(" 9100")).approved()) << code;
    }
    for (const char* const code : {"01", "05", "51", "Z3"}) {
        EXPECT_FALSE(parse_issuer_answer(code + std::string(" 9100")).approved()) << code;
    }
}

TEST(IssuersAnswer, IsNothingElse) {
    for (const char* const line :
         {"", "00", "000 9100", "00 91X0", "00 910", "9108010203040506070830", "00 9100 9100",
          "come back tomorrow", "72009100"}) {
        EXPECT_THROW(parse_issuer_answer(line), Failure) << line;
    }
}

TEST(IssuersAnswer, IsNotCutShortInTagNinetyOne) {
    for (const char* const line :
         {"00 91", "00 910A", "00 910A0102030405060708", "910A010203040506070830", "00 9181",
          "00 91820A", "00 72039F1801910A0102030405060708", "00 8A02303091"}) {
        EXPECT_THROW(parse_issuer_answer(line), Failure) << line;
    }
}

TEST(IssuersAnswer, MayHaveTagNinetyOneBehindALongTemplate) {
    const std::string script = "728180" + std::string(256, '0');
    EXPECT_EQ(parse_issuer_answer(script + kApproval).response_code, "00");
    EXPECT_EQ(parse_issuer_answer("05 " + script + kApproval).response, script + kApproval);
    EXPECT_THROW(parse_issuer_answer("05 " + script + "910A"), Failure);
    // What follows it is the library's to judge.
    EXPECT_TRUE(parse_issuer_answer(std::string("00 ") + kApproval + "72").approved());
}

TEST(IssuersCommand, GetsTheRequestAndPrintsTheAnswer) {
    const std::string command = "read request && test $request = 9F2608 && echo 00 " +
                                std::string(kApproval) + " && echo more";
    EXPECT_EQ(ask_issuer(command, "9F2608").response, kApproval);
}

TEST(IssuersCommand, NeedNotReadTheRequest) {
    EXPECT_EQ(ask_issuer(std::string("exec <&-; echo ") + kApproval, "9F2608").response, kApproval);
}

TEST(IssuersCommand, MayLeaveSomethingBehindThatKeepsThePipe) {
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(ask_issuer(std::string("echo ") + kApproval + "; sleep 20 2>&- &", "").response,
              kApproval);
    EXPECT_LT(std::chrono::steady_clock::now() - before, std::chrono::seconds(10));
}

TEST(IssuersCommand, MayPrintMoreThanItsLine) {
    const std::string line = std::string("echo ") + kApproval;
    EXPECT_EQ(ask_issuer(line + "; seq 20000", "").response, kApproval);
    EXPECT_EQ(ask_issuer(line + "; exec yes", "").response, kApproval);
    EXPECT_THROW(ask_issuer(line + "; seq 20000; exit 1", ""), Failure);
}

TEST(IssuersCommand, PrintsALineOfSomeLengthAtMost) {
    const auto refusal = testing::ThrowsMessage<Failure>(testing::HasSubstr("longer than"));
    EXPECT_THAT([] { ask_issuer("yes | tr -d '\\n'", ""); }, refusal);
    const std::string head = std::string("printf '") + kApproval + "%0";
    const std::size_t rest = kLongestLine - std::string_view(kApproval).size();
    EXPECT_NO_THROW(ask_issuer(head + std::to_string(rest) + "d\\n' 0", ""));
    EXPECT_THAT([&] { ask_issuer(head + std::to_string(rest + 2) + "d\\n' 0", ""); }, refusal);
}

TEST(IssuersCommand, MayFail) {
    EXPECT_THROW(ask_issuer("echo 00 9100; exit 1", ""), Failure);
    EXPECT_THROW(ask_issuer("kill -9 $$", ""), Failure);
    EXPECT_THROW(ask_issuer("true", ""), Failure);
}

} // namespace
