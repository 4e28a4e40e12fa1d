// The command qaven-issuer, run as a process.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <string>

#include <sys/wait.h>

#include "counter_terminal.h"
#include "virtual/card/json.h"

namespace qaven::card_test {
namespace {

using testing::EndsWith;
using testing::HasSubstr;

struct Outcome {
    int exit_status = -1;
    std::string output;
};

// Standard error comes with the output.
Outcome run_issuer(const std::string& arguments, const std::string& redirections = "2>&1") {
    const std::string command =
        std::string(QAVEN_ISSUER_COMMAND) + " " + arguments + " " + redirections;
    Outcome outcome;
    // NOLINTNEXTLINE(cert-env33-c): the whole command line is the test's own
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
        return outcome;
    }
    std::array<char, 512> chunk{};
    while (fgets(chunk.data(), static_cast<int>(chunk.size()), pipe) != nullptr) {
        outcome.output += chunk.data();
    }
    const int status = pclose(pipe);
    outcome.exit_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return outcome;
}

class IssuerCommand : public testing::Test {
  protected:
    IssuerCommand() {
        terminal.begin(debit_aid);
        request = terminal.field55(terminal.first_cryptogram());
    }
    const std::string profile_option = " --profile " + profile_file("debit").string();

    Card card{profile("debit")};
    CounterTerminal terminal{card};
    std::string request;
};

TEST_F(IssuerCommand, ListsTheObjectsAndVerifiesAGenuineCryptogram) {
    const Outcome outcome = run_issuer("verify --arqc " + request + profile_option);
    EXPECT_EQ(outcome.exit_status, 0);
    EXPECT_THAT(outcome.output, HasSubstr("* 9F02  000000001213  amount authorised\n"));
    EXPECT_THAT(outcome.output, HasSubstr("  9F33  20A100  terminal capabilities\n"));
    EXPECT_THAT(outcome.output, HasSubstr("first cryptogram: ARQC"));
    EXPECT_THAT(outcome.output, HasSubstr("\nVERIFIED. "));
}

TEST_F(IssuerCommand, DoesNotVerifyATamperedAmount) {
    std::string tampered = request;
    tampered.replace(tampered.find("9F0206000000001213"), 18, "9F0206000000009999");
    const Outcome outcome = run_issuer("verify --arqc " + tampered + profile_option);
    EXPECT_EQ(outcome.exit_status, 1);
    EXPECT_THAT(outcome.output, HasSubstr("\nNOT VERIFIED. "));
}

TEST_F(IssuerCommand, GivesTheVerdictAsJsonToo) {
    const Outcome outcome = run_issuer("verify --json --arqc " + request + profile_option);
    EXPECT_EQ(outcome.exit_status, 0);
    const virtual_card::JsonTree tree(cJSON_Parse(outcome.output.c_str()));
    ASSERT_TRUE(tree);
    EXPECT_TRUE(cJSON_IsTrue(cJSON_GetObjectItem(tree.get(), "verified")));
    EXPECT_STREQ(cJSON_GetStringValue(cJSON_GetObjectItem(tree.get(), "algorithm")), "3DES");
    EXPECT_EQ(cJSON_GetArraySize(cJSON_GetObjectItem(tree.get(), "objects")), 17);
}

TEST_F(IssuerCommand, AnswersSoThatTheCardGivesATcAndTakesTheScript) {
    const Outcome outcome =
        run_issuer("answer --arc 00 --script put-data=9F79:000000050000 --script "
                   "pin-unblock --script-id 12345678 --arqc " +
                   request + profile_option);
    ASSERT_EQ(outcome.exit_status, 0) << outcome.output;
    const Bytes response = hex(outcome.output.substr(0, outcome.output.size() - 1));
    EXPECT_EQ(terminal.authenticate(response), "9000");
    const std::string tc = terminal.field55(terminal.second_cryptogram());
    EXPECT_EQ(terminal.run_script(response), "9000 9000");
    const Outcome verdict = run_issuer("verify-tc --tc " + tc + profile_option);
    EXPECT_EQ(verdict.exit_status, 0) << verdict.output;
    EXPECT_THAT(verdict.output, HasSubstr("second cryptogram: TC"));
}

TEST_F(IssuerCommand, AnswersWithAWrongArpcOnRequest) {
    const Outcome outcome = run_issuer("answer --wrong-arpc --arqc " + request + profile_option);
    EXPECT_EQ(terminal.authenticate(hex(outcome.output.substr(0, 24))), "6300");
}

TEST_F(IssuerCommand, ExplainsItselfWhenItIsUsedWrongly) {
    EXPECT_EQ(run_issuer("--help").exit_status, 0);
    for (const std::string& arguments :
         {std::string(), std::string("sign"), "verify" + profile_option,
          "verify --arqc" + profile_option, "verify --tc 00" + profile_option,
          "verify --arqc 9C0100 --arc 00" + profile_option,
          "answer --arc 5 --arqc " + request + profile_option,
          "answer --template 73 --arqc " + request + profile_option,
          "answer --script-id 12 --arqc " + request + profile_option}) {
        const Outcome outcome = run_issuer(arguments);
        EXPECT_EQ(outcome.exit_status, 2) << arguments;
        EXPECT_THAT(outcome.output, EndsWith(".\nTry 'qaven-issuer --help'.\n")) << arguments;
        EXPECT_EQ(std::ranges::count(outcome.output, '\n'), 2) << arguments;
    }
}

TEST_F(IssuerCommand, HasNoVerdictOnWhatItCannotRead) {
    EXPECT_EQ(run_issuer("verify --arqc 9F02" + profile_option).exit_status, 2);
    EXPECT_EQ(run_issuer("answer --script dance --arqc " + request + profile_option).exit_status,
              2);
}

TEST_F(IssuerCommand, TakesAShippedProfileByItsName) {
    for (const std::string name : {"debit", "debit.json"}) {
        const Outcome outcome = run_issuer("verify --profile " + name + " --arqc " + request);
        EXPECT_EQ(outcome.exit_status, 0) << outcome.output;
    }
}

TEST_F(IssuerCommand, SaysWhyAProfileCannotBeRead) {
    const auto said = [this](const std::string& name) {
        const Outcome outcome = run_issuer("verify --profile " + name + " --arqc " + request);
        EXPECT_EQ(outcome.exit_status, 2) << name;
        return outcome.output;
    };
    EXPECT_EQ(said("/nonexistent.json"),
              "Profile /nonexistent.json cannot be read: No such file or directory.\n");
    EXPECT_EQ(said(QAVEN_PROFILES), "Profile " QAVEN_PROFILES " cannot be read: Is a directory.\n");
    EXPECT_THAT(said("nobody"), HasSubstr("there is no card profile 'nobody' (looked in /"));
}

TEST_F(IssuerCommand, DoesNotPassWhenNobodyGotItsAnswer) {
    for (const std::string& arguments :
         {std::string("--help"), "verify --arqc " + request + profile_option,
          "answer --arqc " + request + profile_option}) {
        for (const std::string redirections : {"2>&1 >/dev/full", "2>&1 >&-"}) {
            const Outcome outcome = run_issuer(arguments, redirections);
            EXPECT_EQ(outcome.exit_status, 1) << arguments << redirections;
            EXPECT_EQ(outcome.output, "cannot write to standard output\n") << arguments;
        }
    }
}

} // namespace
} // namespace qaven::card_test
