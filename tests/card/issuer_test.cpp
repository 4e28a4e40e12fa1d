// The issuer: its parser, its verdicts on genuine and tampered card data, and its answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "counter_terminal.h"

namespace qaven::card_test {
namespace {

using testing::ElementsAre;
using virtual_issuer::Answer;
using virtual_issuer::CryptogramKind;
using virtual_issuer::Field55;
using virtual_issuer::parse_script_command;
using virtual_issuer::Verdict;

class IssuerOfDebit : public testing::Test {
  protected:
    IssuerOfDebit() {
        terminal.begin(debit_aid);
        request = terminal.field55(terminal.first_cryptogram());
    }
    Verdict judge(const std::string& text, CryptogramKind kind = CryptogramKind::kRequest) const {
        return issuer.verify(Field55::parse(text), kind);
    }
    std::string without(std::uint32_t tag) const {
        const Field55 field = Field55::parse(request);
        std::string text;
        for (const auto& object : field.objects()) {
            if (object.tag != tag) {
                text += virtual_card::to_hex(virtual_card::encode_object(object.tag, object.value));
            }
        }
        return text;
    }
    std::string with_last_bit_flipped(std::uint32_t tag) const {
        const Field55 field = Field55::parse(request);
        std::string text;
        for (auto object : field.objects()) {
            if (object.tag == tag) {
                object.value.back() ^= 0x01;
            }
            text += virtual_card::to_hex(virtual_card::encode_object(object.tag, object.value));
        }
        return text;
    }

    Card card{profile("debit")};
    CounterTerminal terminal{card};
    virtual_issuer::Issuer issuer = issuer_of("debit");
    std::string request;
};

TEST_F(IssuerOfDebit, VerifiesWhatTheCardComputed) {
    const Verdict verdict = judge(request);
    EXPECT_TRUE(verdict.verified);
    EXPECT_EQ(verdict.comparison->received, verdict.comparison->computed);
}

TEST_F(IssuerOfDebit, RefusesWhenAnyCoveredObjectIsTamperedWith) {
    for (const std::uint32_t tag : {0x9F26U, 0x9F10U, 0x9F37U, 0x9F36U, 0x95U, 0x9AU, 0x9CU,
                                    0x9F02U, 0x5F2AU, 0x5F34U, 0x82U, 0x9F1AU, 0x9F03U}) {
        EXPECT_TRUE(virtual_issuer::is_covered(tag));
        EXPECT_FALSE(judge(with_last_bit_flipped(tag)).verified) << std::hex << tag;
    }
}

TEST_F(IssuerOfDebit, RefusesAnotherPan) {
    std::string other = request;
    const std::size_t at = other.find("5A0A6228");
    other.replace(at + 20, 1, other[at + 20] == '0' ? "1" : "0");
    EXPECT_FALSE(judge(other).verified);
}

TEST_F(IssuerOfDebit, RefusesAnotherKindOfCryptogramThanTheCvrNames) {
    std::string as_tc = request;
    as_tc.replace(as_tc.find("9F270180"), 8, "9F270140");
    EXPECT_FALSE(judge(as_tc).verified);
    EXPECT_FALSE(judge(as_tc, CryptogramKind::kTransactionCertificate).verified);
    EXPECT_FALSE(judge(request, CryptogramKind::kTransactionCertificate).verified);
}

TEST_F(IssuerOfDebit, DoesNotNoticeObjectsThatNoCryptogramCovers) {
    for (const std::uint32_t tag : {0x9F13U, 0x9F33U}) {
        EXPECT_FALSE(virtual_issuer::is_covered(tag));
        EXPECT_TRUE(judge(with_last_bit_flipped(tag)).verified) << std::hex << tag;
        EXPECT_TRUE(judge(without(tag)).verified) << std::hex << tag;
    }
}

TEST_F(IssuerOfDebit, SaysWhichObjectIsMissing) {
    EXPECT_EQ(judge(without(0x9F02)).reason, "The card data has no 9F02 (amount authorised).");
    EXPECT_EQ(judge(without(0x5A)).reason, "The card data has no 5A (PAN).");
    for (const std::uint32_t tag : {0x9F26U, 0x9F27U, 0x9F10U, 0x9F37U, 0x9F36U, 0x95U, 0x9AU,
                                    0x9CU, 0x5F2AU, 0x82U, 0x9F1AU, 0x9F03U}) {
        EXPECT_FALSE(judge(without(tag)).verified) << std::hex << tag;
    }
}

TEST_F(IssuerOfDebit, RefusesWithTheKeysOfAnotherIssuer) {
    auto keys = profile("debit").issuer_keys;
    keys.triple_des.cryptogram.front() ^= 0x10;
    EXPECT_FALSE(virtual_issuer::Issuer(keys)
                     .verify(Field55::parse(request), CryptogramKind::kRequest)
                     .verified);
}

TEST_F(IssuerOfDebit, HasNoVerdictForAnAlgorithmWithoutKeys) {
    std::string as_sm4 = request;
    as_sm4.replace(as_sm4.find("9F1008070101") + 20, 2, "04");
    const Verdict verdict = judge(as_sm4);
    EXPECT_FALSE(verdict.verified);
    EXPECT_EQ(verdict.reason, "The issuer has no keys for the algorithm that the card used.");
    EXPECT_FALSE(verdict.comparison.has_value());
    as_sm4.replace(as_sm4.find("9F1008070101") + 20, 2, "02");
    EXPECT_EQ(judge(as_sm4).reason,
              "The issuer application data (9F10) names an unknown algorithm.");
}

TEST_F(IssuerOfDebit, RefusesIssuerDataOfAnotherBuild) {
    std::string other = request;
    other.replace(other.find("9F100807"), 8, "9F100806");
    EXPECT_FALSE(judge(other).verified);
}

TEST_F(IssuerOfDebit, AnswersWithTag91AloneWhenThereIsNoScript) {
    Answer answer;
    answer.arc = {'0', '5'};
    const Bytes response = issuer.answer(Field55::parse(request), answer);
    EXPECT_EQ(response.size(), 12U);
    EXPECT_EQ(virtual_card::to_hex(ByteView(response).first(2)), "910A");
    EXPECT_EQ(virtual_card::to_hex(ByteView(response).last(2)), "3035");
}

TEST_F(IssuerOfDebit, PutsTheScriptIntoTheTemplateAskedFor) {
    Answer answer;
    answer.script_template = 0x71;
    answer.script_identifier = {0x12, 0x34, 0x56, 0x78};
    answer.script = {parse_script_command("put-data=9F79:000000050000"),
                     parse_script_command("plain=00B2010C00")};
    const std::string text =
        virtual_card::to_hex(issuer.answer(Field55::parse(request), answer)).substr(24);
    EXPECT_EQ(text.substr(0, 18), "711F9F180412345678");
    EXPECT_EQ(text.substr(18, 26), "860F04DA9F790A000000050000");
    EXPECT_EQ(text.substr(52), "860500B2010C00") << "without MAC, as it stands";
}

TEST_F(IssuerOfDebit, GivesAWrongArpcOrAWrongMacOnRequest) {
    Answer answer;
    answer.script = {parse_script_command("application-block")};
    const Bytes genuine = issuer.answer(Field55::parse(request), answer);
    answer.genuine_authentication = false;
    EXPECT_NE(issuer.answer(Field55::parse(request), answer), genuine);
    answer.genuine_authentication = true;
    answer.genuine_script_macs = false;
    EXPECT_NE(issuer.answer(Field55::parse(request), answer), genuine);
}

TEST_F(IssuerOfDebit, HasNoAnswerToCardDataThatIsIncomplete) {
    EXPECT_THROW(issuer.answer(Field55::parse(without(0x5A)), {}), std::runtime_error);
    EXPECT_THROW(issuer.answer(Field55::parse(without(0x9F36)), {}), std::runtime_error);
}

TEST(CardData, IsTakenApartObjectByObject) {
    const auto field = Field55::parse("5A0862280001 23456789 9F8101020A0B 5F3400");
    ASSERT_EQ(field.objects().size(), 3U);
    EXPECT_EQ(field.objects()[1].tag, 0x9F8101U);
    EXPECT_EQ(virtual_issuer::tag_text(0x9F8101), "9F8101");
    EXPECT_EQ(*field.find(0x5F34), Bytes{});
    EXPECT_EQ(field.find(0x57), nullptr);
}

TEST(CardData, TakesLongLengths) {
    const auto field = Field55::parse("5A8102 1234 57820001 99");
    EXPECT_EQ(*field.find(0x5A), hex("1234"));
    EXPECT_EQ(*field.find(0x57), hex("99"));
}

TEST(CardData, ThatDoesNotAddUpIsRefused) {
    EXPECT_THROW(Field55::parse(""), std::runtime_error);
    EXPECT_THROW(Field55::parse("5A0"), std::runtime_error) << "half a byte";
    EXPECT_THROW(Field55::parse("5A"), std::runtime_error) << "no length";
    EXPECT_THROW(Field55::parse("9F"), std::runtime_error) << "half a tag";
    EXPECT_THROW(Field55::parse("5A0212"), std::runtime_error) << "half a value";
    EXPECT_THROW(Field55::parse("5A80"), std::runtime_error) << "a length that says nothing";
    EXPECT_THROW(Field55::parse("5A83000001AA"), std::runtime_error) << "a length of three bytes";
    EXPECT_THROW(Field55::parse("9F81828301AA"), std::runtime_error) << "a tag of four bytes";
    EXPECT_THROW(Field55::parse("9C0100 9C0100"), std::runtime_error) << "one object twice";
}

TEST(ScriptCommandText, IsRefusedWhenItCannotBeUnderstood) {
    for (const std::string_view text :
         {"", "no-such-command", "application-block=1", "pin-change=12", "pin-change=12A4",
          "put-data=9F79", "put-data=9F:00", "put-data=9F79:0", "update-record=2:2",
          "update-record=0:1:7000", "update-record=31:1:7000", "update-record=2:x:7000",
          "plain=00B2", "plain=00B2010C01"}) {
        EXPECT_THROW(parse_script_command(text), std::runtime_error) << text;
    }
}

TEST(CardResults, AreToldInWords) {
    EXPECT_EQ(virtual_issuer::describe({0x03, 0xA0, 0x00, 0x00}),
              (std::vector<std::string>{"first cryptogram: ARQC",
                                        "second cryptogram not requested yet"}));
    EXPECT_EQ(virtual_issuer::describe({0x03, 0x68, 0x80, 0x28}),
              (std::vector<std::string>{
                  "first cryptogram: ARQC", "second cryptogram: TC", "issuer authentication failed",
                  "the previous online transaction was not completed",
                  "a script command failed in the previous transaction",
                  "2 script command(s) received in the previous transaction"}));
}

TEST(CardResults, TellAWrongPinFromAVerifiedOne) {
    const auto after_pin = [](const std::string& block) {
        Card card(profile("debit"));
        CounterTerminal terminal(card);
        terminal.begin(debit_aid);
        terminal.send("0020008008" + block);
        const Field55 field = Field55::parse(terminal.field55(terminal.first_cryptogram()));
        const Verdict verdict = issuer_of("debit").verify(field, CryptogramKind::kRequest);
        return virtual_issuer::describe(verdict.comparison.value().cvr);
    };
    const std::vector<std::string> online = {"first cryptogram: ARQC",
                                             "second cryptogram not requested yet"};
    EXPECT_THAT(after_pin("26123456FFFFFFFF"),
                ElementsAre(online[0], online[1], "PIN verified by the card"));
    EXPECT_THAT(after_pin("26111111FFFFFFFF"),
                ElementsAre(online[0], online[1], "PIN verification performed by the card",
                            "PIN was wrong"));
}

} // namespace
} // namespace qaven::card_test
