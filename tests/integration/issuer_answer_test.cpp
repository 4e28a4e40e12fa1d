// What the issuer answers, and what the card makes of it.
#include "at_the_counter.h"

#include "virtual/card/cryptogram_input.h"

using namespace qaven::test;

namespace {

class IssuerAnswer : public AtTheCounter {
  protected:
    Completion complete(const Reply& reply, int status = 0) {
        const auto arqc = generate_arqc();
        clear_trace();
        return hand_over(arqc, issuer_.answer(arqc.field55, reply), status);
    }

    void expect_tc(const Completion& completion) {
        const auto verdict = issuer_.tc(completion.tc);
        EXPECT_TRUE(verdict.verified) << verdict.reason;
        EXPECT_EQ(last_traced("ret"), 0);
    }

    static std::string log_entries() { return transaction_log(kDebit).substr(0, 1); }
};

TEST_F(IssuerAnswer, ApprovedGetsATc) {
    for (const char* const code : {"00", "10", "11"}) {
        Reply reply;
        reply.response_code = code;
        expect_tc(complete(reply));
    }
}

TEST_F(IssuerAnswer, DeclinedByTheHostGetsNoTcAndNoLogEntry) {
    const auto before = log_entries();
    Reply reply;
    reply.script = {"put-data=9F79:000000070000"};
    const auto completion = complete(reply, 1);
    EXPECT_EQ(completion.tc, "");
    EXPECT_EQ(completion.script_result, "");
    EXPECT_EQ(last_traced("ret"), 0);
    EXPECT_EQ(log_entries(), before);
}

TEST_F(IssuerAnswer, DeclinedByItsResponseCodeGetsNoTcAndRunsNoScript) {
    const auto before = log_entries();
    Reply reply;
    reply.response_code = "05";
    reply.script = {"put-data=9F79:000000070000"};
    const auto completion = complete(reply);
    EXPECT_EQ(completion.tc, "");
    EXPECT_EQ(completion.script_result, "DF31050012345678");
    EXPECT_EQ(last_traced("ret"), 0);
    EXPECT_EQ(log_entries(), before);
}

TEST_F(IssuerAnswer, WithAReferralAsksTheCardForSomethingThatItRefuses) {
    for (const char* const code : {"01", "02"}) {
        Reply reply;
        reply.response_code = code;
        EXPECT_EQ(complete(reply).tc, "");
        EXPECT_EQ(last_traced("ret"), 0x6A86);
    }
}

TEST_F(IssuerAnswer, ThatTheCardDidNotBelieveIsToldOfInTheNextArqc) {
    Reply stranger;
    stranger.genuine_authentication = false;
    complete(stranger);
    const auto verdict = issuer_.arqc(read_and_generate().arqc.field55);
    EXPECT_TRUE(verdict.verified);
    namespace cvr = qaven::virtual_card::cvr;
    EXPECT_NE(verdict.comparison.value().cvr[cvr::kHistoryByte] & cvr::kLastOnlineNotCompleted, 0);
}

class IssuerScript : public IssuerAnswer {
  protected:
    static std::string cash_balance() {
        CardRequest request;
        request.letters = "G";
        return letter_fields(get_card_information(request).fields)['G'];
    }

    static Reply with_script(std::vector<std::string> commands) {
        Reply reply;
        reply.script = std::move(commands);
        return reply;
    }

    // A command that the card refuses: it carries no MAC.
    static constexpr const char* kRefused = "plain=841800000411223344";
};

TEST_F(IssuerScript, AcceptedIsReportedAndHasItsEffect) {
    const auto completion = complete(with_script({"put-data=9F79:000000020001"}));
    expect_tc(completion);
    EXPECT_EQ(completion.script_result, "DF31052012345678");
    EXPECT_EQ(cash_balance(), "000000020001");
}

TEST_F(IssuerScript, OfSeveralCommandsRunsThemAll) {
    const auto completion =
        complete(with_script({"put-data=9F77:000000500000", "put-data=9F78:000000060000",
                              "put-data=9F79:000000020002"}));
    EXPECT_EQ(completion.script_result, "DF31052012345678");
    CardRequest request;
    request.letters = "GHK";
    EXPECT_EQ(get_card_information(request).fields,
              "G012000000020002H012000000500000K012000000060000");
}

TEST_F(IssuerScript, RefusedAtItsSecondCommandStopsThere) {
    const auto completion = complete(
        with_script({"put-data=9F79:000000020003", kRefused, "put-data=9F79:000000020004"}));
    expect_tc(completion);
    EXPECT_EQ(completion.script_result, "DF31051212345678");
    EXPECT_EQ(cash_balance(), "000000020003");
}

TEST_F(IssuerScript, RefusedAtItsSixteenthCommandIsReportedAsTheFifteenth) {
    std::vector<std::string> commands(15, "put-data=9F79:000000020005");
    commands.emplace_back(kRefused);
    EXPECT_EQ(complete(with_script(commands)).script_result, "DF31051F12345678");
}

TEST_F(IssuerScript, WithWrongMacsIsRefusedAtOnce) {
    Reply reply = with_script({"put-data=9F79:000000020006"});
    reply.genuine_script_macs = false;
    const auto completion = complete(reply);
    expect_tc(completion);
    EXPECT_EQ(completion.script_result, "DF31051112345678");
    EXPECT_NE(cash_balance(), "000000020006");
}

TEST_F(IssuerScript, InTemplate71RunsToo) {
    Reply reply = with_script({"put-data=9F79:000000020007"});
    reply.script_template = 0x71;
    EXPECT_EQ(complete(reply).script_result, "DF31052012345678");
    EXPECT_EQ(cash_balance(), "000000020007");
}

TEST_F(IssuerScript, InTemplate71StandsBackForTheOneInTemplate72) {
    const auto arqc = generate_arqc();
    Reply reply = with_script({"put-data=9F77:000000900000"});
    reply.script_template = 0x71;
    const std::string with_71 = issuer_.answer(arqc.field55, reply);
    reply = with_script({"put-data=9F79:000000020008"});
    const std::string with_72 = issuer_.answer(arqc.field55, reply);
    const std::string authentication_data = with_72.substr(0, 24);
    ASSERT_EQ(with_71.substr(0, 24), authentication_data);

    const auto completion = hand_over(arqc, with_71 + with_72.substr(24));
    EXPECT_EQ(completion.script_result, "DF31052012345678");
    CardRequest request;
    request.letters = "GH";
    const auto limits = letter_fields(get_card_information(request).fields);
    EXPECT_EQ(limits.at('G'), "000000020008");
    EXPECT_NE(limits.at('H'), "000000900000");
}

TEST_F(IssuerScript, MayEndItsCommandsWithAnLeByte) {
    const auto arqc = generate_arqc();
    const std::string response =
        issuer_.answer(arqc.field55, with_script({"put-data=9F79:000000020009"}));
    // 72 18: 9F18 with four bytes, then 86 0F and the command.
    const std::string command = response.substr(response.size() - 30);
    ASSERT_EQ(response.substr(24, 22), "72189F180412345678860F");
    ASSERT_EQ(command.substr(0, 10), "04DA9F790A");

    const auto completion =
        hand_over(arqc, response.substr(0, 24) + "72199F1804123456788610" + command + "00");
    EXPECT_EQ(completion.script_result, "DF31052012345678");
    EXPECT_EQ(cash_balance(), "000000020009");
}

TEST_F(IssuerScript, WithoutIdentifierIsReportedUnderZeros) {
    const auto arqc = generate_arqc();
    const std::string response =
        issuer_.answer(arqc.field55, with_script({"put-data=9F79:000000020010"}));
    const auto completion = hand_over(arqc, response.substr(0, 24) + "7211860F" +
                                                response.substr(response.size() - 30));
    EXPECT_EQ(completion.script_result, "DF31052000000000");
    EXPECT_EQ(cash_balance(), "000000020010");
}

TEST_F(IssuerScript, WithIdentifierBytesFrom80OnIsReportedWithThemWidened) {
    Reply reply = with_script({"put-data=9F79:000000020011"});
    reply.script_identifier = {0x9F, 0x18, 0x7F, 0x80};
    EXPECT_EQ(complete(reply).script_result, "DF310520FFFFFF9F187FFFFFFF80");
}

TEST_F(IssuerScript, ThatHoldsNoCommandIsReportedAsRun) {
    const auto arqc = generate_arqc();
    const std::string response = issuer_.answer(arqc.field55);
    EXPECT_EQ(hand_over(arqc, response + "72079F180400000009").script_result, "DF31052000000009");
}

TEST_F(IssuerScript, RewritesARecord) {
    // Template 70 with the cardholder's name alone.
    const auto completion = complete(with_script({"update-record=1:1:700B5F20084E45572F4E414D45"}));
    EXPECT_EQ(completion.script_result, "DF31052012345678");
    CardRequest request;
    request.letters = "BE";
    EXPECT_EQ(get_card_information(request).fields, "B008NEW/NAMEE000");
}

TEST_F(IssuerScript, IsToldOfInTheNextArqc) {
    complete(with_script({"put-data=9F79:000000020012", kRefused}));
    const auto field55 = read_objects(read_and_generate().arqc.field55);
    // The last byte of the CVR: commands of the transaction before, and whether one was refused.
    EXPECT_EQ(value_of(field55, "9F10").substr(12, 2), "28");
}

class ApplicationBlockedByScript : public IssuerScript {};

TEST_F(ApplicationBlockedByScript, IsFoundByNobodyAnyMore) {
    ASSERT_EQ(complete(with_script({"application-block"})).script_result, "DF31052012345678");
    EXPECT_EQ(get_card_information({}).result, QAVEN_NO_APPLICATION);
}

class CardBlockedByScript : public IssuerScript {};

TEST_F(CardBlockedByScript, ShowsNeitherApplicationNorDirectory) {
    ASSERT_EQ(complete(with_script({"card-block"})).script_result, "DF31052012345678");
    EXPECT_EQ(get_card_information({}).result, QAVEN_NO_APPLICATION);
    EXPECT_EQ(command_result("00A404000E315041592E5359532E4444463031"), 0x6A81);
}

} // namespace
