// The card that computes with SM4 when the terminal offers it.
#include <gtest/gtest.h>

#include "counter_terminal.h"

namespace qaven::card_test {
namespace {

using virtual_issuer::Answer;
using virtual_issuer::CryptogramKind;
using virtual_issuer::Field55;

class SmCard : public testing::Test {
  protected:
    Field55 field(const Reply& cryptogram) { return Field55::parse(terminal.field55(cryptogram)); }

    Card card{profile("sm")};
    CounterTerminal terminal{card};
    virtual_issuer::Issuer issuer = issuer_of("sm");
};

TEST_F(SmCard, ComputesWithSm4WhenTheTerminalSays01) {
    terminal.begin(debit_aid);
    const Reply arqc = terminal.first_cryptogram();
    EXPECT_EQ(arqc.data.substr(40), "04") << "the algorithm byte of the IAD";
    const auto verdict = issuer.verify(field(arqc), CryptogramKind::kRequest);
    EXPECT_TRUE(verdict.verified) << verdict.reason;
    EXPECT_EQ(verdict.comparison->algorithm, virtual_card::Algorithm::kSm4);
}

TEST_F(SmCard, ComputesWith3DesWhenTheTerminalSays00) {
    terminal.data[0xDF69] = "00";
    terminal.begin(debit_aid);
    const Reply arqc = terminal.first_cryptogram();
    EXPECT_EQ(arqc.data.substr(40), "01");
    EXPECT_TRUE(issuer.verify(field(arqc), CryptogramKind::kRequest).verified);
}

TEST_F(SmCard, ComputesWith3DesWhenItHasNoSm4Keys) {
    Profile without_keys = profile("sm");
    without_keys.issuer_keys.sm4.reset();
    Card other(without_keys);
    CounterTerminal at_other(other);
    at_other.begin(debit_aid);
    EXPECT_EQ(at_other.first_cryptogram().data.substr(40), "01");
}

TEST_F(SmCard, CarriesTheWholeTransactionWithSm4) {
    terminal.begin(debit_aid);
    const Reply arqc = terminal.first_cryptogram();
    Answer answer;
    answer.script.push_back(virtual_issuer::parse_script_command("put-data=9F79:000000050000"));
    answer.script.push_back(virtual_issuer::parse_script_command("pin-change=4321"));
    const Bytes response = issuer.answer(field(arqc), answer);
    EXPECT_EQ(terminal.authenticate(response), "9000");
    const Reply tc = terminal.second_cryptogram();
    EXPECT_TRUE(issuer.verify(field(tc), CryptogramKind::kTransactionCertificate).verified);
    EXPECT_EQ(terminal.run_script(response), "9000 9000");
    EXPECT_EQ(terminal.send("80CA9F7900"), accepted("9F7906000000050000"));
    EXPECT_EQ(terminal.send("0020008008 244321FFFFFFFFFF"), accepted());
}

TEST_F(SmCard, RefusesAnAnswerComputedForTheOtherAlgorithm) {
    terminal.begin(debit_aid);
    std::string text = terminal.field55(terminal.first_cryptogram());
    const std::size_t algorithm = text.find("9F1008070101") + 20;
    ASSERT_EQ(text.substr(algorithm, 2), "04");
    text.replace(algorithm, 2, "01");
    EXPECT_EQ(terminal.authenticate(issuer.answer(Field55::parse(text), {})), "6300");
}

} // namespace
} // namespace qaven::card_test
