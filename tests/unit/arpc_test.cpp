// The issuer's answer: authentication, the second cryptogram, the script, the TC list.
#include "engine/operation/arpc.h"

#include "console.h"
#include "engine/card/session.h"
#include "engine/data/terminal_data.h"
#include "engine/operation/issuer_decision.h"
#include "host_calls.h"
#include "payment_card.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <map>

namespace session = qaven::session;

using namespace qaven::test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr std::string_view kArpc = "0102030405060708";
constexpr std::string_view kIdentifier = "9F1804 12345678";
constexpr std::string_view kScriptCommand = "84240000 08 1122334455667788";

// Tag 91 with an authorisation response code of two characters.
std::string authentication(std::string_view arc) {
    return object("91", std::string(kArpc) + text_hex(arc));
}

std::string external_authenticate(std::string_view arc) {
    return "00820000 0A" + std::string(kArpc) + text_hex(arc);
}

// The second GENERATE AC as the example transaction's CDOL2 data makes it: amounts, type and date
// are those of the completed text.
std::string second_generate_ac(std::string_view p1, std::string_view arc) {
    return "80AE" + std::string(p1) + "00 1F" + text_hex(arc) +
           " 000000000000 000000000000 0156 0008006000 0156 201904 33 " + unpredictable_number();
}

class IssuerAnswer : public OperationTest {
  protected:
    void SetUp() override {
        connect();
        call.application_data = transaction_data_text();
    }

    int run(std::string_view response) {
        call.response = hex(bytes(response));
        return call.run();
    }

    // A run that the card authenticates, with its answer to the second GENERATE AC.
    int run_to(std::string_view answer, std::string_view arc = "00", std::string_view p1 = "40",
               std::string_view further_response = "") {
        card.expect(external_authenticate(arc), "9000");
        card.expect(second_generate_ac(p1, arc), answer);
        return run(authentication(arc) + std::string(further_response));
    }

    // A run to a TC without a last online ATC.
    int run_to_tc(std::string_view further_response = "") {
        card.expect(external_authenticate("00"), "9000");
        card.expect(second_generate_ac("40", "00"), cryptogram_answer("40"));
        for (const std::string& script_exchange : script_) {
            const std::size_t separator = script_exchange.find('>');
            card.expect(script_exchange.substr(0, separator),
                        script_exchange.substr(separator + 1));
        }
        script_.clear();
        card.expect(kGetLastOnlineAtc, "6A88");
        return run(authentication("00") + std::string(further_response));
    }

    // The next script command and the card's answer in a run to a TC.
    void expect_script(std::string_view command, std::string_view answer) {
        script_.push_back(std::string(command) + ">" + std::string(answer));
    }

    void expect_ended() {
        EXPECT_FALSE(session::live());
        ASSERT_GE(card.events().size(), 2U);
        EXPECT_EQ(card.events().back(), "close");
        EXPECT_EQ(*(card.events().end() - 2), "power off");
    }

    IssuerAnswerCall call;

  private:
    std::vector<std::string> script_;
};

std::string tc_list(std::string_view card_objects, std::string_view last_online_atc = "",
                    std::string_view iad = "9F1008 0701010399000001") {
    return hex(bytes("9F2608 1122334455667788"
                     "9F2701 40" +
                     std::string(iad) + "9F3704" + unpredictable_number() +
                     "9F3602 0012"
                     "9505 0008006000" +
                     std::string(last_online_atc) +
                     "9A03 201904"
                     "9C01 33"
                     "9F0206 000000000000"
                     "5F2A02 0156" +
                     std::string(card_objects) +
                     "9F1A02 0156"
                     "9F0306 000000000000"
                     "9F3303 20A100"));
}

constexpr std::string_view kCardObjects = "5A0A 6214830123456789012F 5F3401 01 8202 7C00";

// --- the host's status and the response code: what the card is asked for ---

TEST(IssuerDecision, AnApprovingHostsCodeChoosesTheCryptogram) {
    using qaven::arpc::decide;
    using qaven::arpc::OnAac;
    using qaven::cryptogram::Ask;
    for (const std::string_view arc : {"00", "10", "11"}) {
        EXPECT_EQ(decide(0, arc).ask, Ask::kTc) << arc;
        EXPECT_EQ(decide(0, arc).on_aac, OnAac::kReportCommand) << arc;
    }
    for (const std::string_view arc : {"01", "02"}) {
        EXPECT_EQ(decide(0, arc).ask, Ask::kReferral) << arc;
        EXPECT_EQ(decide(0, arc).on_aac, OnAac::kNotATc) << arc;
    }
    for (const std::string_view arc : {"03", "05", "12", "20", "51", "99", "Z3", "Y1", "  "}) {
        EXPECT_EQ(decide(0, arc).ask, Ask::kAac) << arc;
        EXPECT_EQ(decide(0, arc).on_aac, OnAac::kAccepted) << arc;
    }
}

TEST(IssuerDecision, AnyOtherStatusIsADecline) {
    using qaven::arpc::decide;
    for (const int status : {1, -1, 2, 255, 0x7FFFFFFF}) {
        for (const std::string_view arc : {"00", "10", "11", "01", "02", "05"}) {
            EXPECT_EQ(decide(status, arc).ask, qaven::cryptogram::Ask::kAac) << status << arc;
            EXPECT_EQ(decide(status, arc).on_aac, qaven::arpc::OnAac::kDeclined) << status << arc;
        }
    }
}

// --- the whole table, on the card ---

enum class Says { kAac, kTc, kArqc, kReferral, kTcWithoutTemplate, kRefusal, kSilence };

struct Outcome {
    int result = 0;
    std::string error_text{};   // in UTF-8
    bool script_result = false; // as prepared; else empty
    bool tc = false;
};

struct Row {
    std::string_view status;
    std::vector<std::string_view> codes;
    std::string_view p1;
    std::map<Says, Outcome> outcomes;
};

constexpr const char* kNoTcText = " 没有生成TC  \t ";
constexpr const char* kNoTemplateText = " 没有标签80的数据 ";
constexpr const char* kSilenceText = " 等待响应超时     ";

std::vector<Row> table() {
    const std::string untouched(kOld);
    const Outcome no_tc{-203, kNoTcText, true, false};
    const Outcome refused{0x6985, "", true, false};
    const Outcome silent{-7, kSilenceText, true, false};
    const Outcome no_template{-207, kNoTemplateText, true, false};
    const Outcome completed{0, untouched, true, true};
    // A declining host: only an AAC leaves the error text alone.
    const Outcome declined{0, untouched, false, false};
    const Outcome not_declined{0, "", false, false};
    const std::map<Says, Outcome> on_decline{
        {Says::kAac, declined},
        {Says::kTc, not_declined},
        {Says::kArqc, not_declined},
        {Says::kReferral, not_declined},
        {Says::kTcWithoutTemplate, not_declined},
        {Says::kRefusal, {0x6985, "", false, false}},
        {Says::kSilence, {-7, kSilenceText, false, false}},
    };
    std::map<Says, Outcome> approved{
        {Says::kTc, completed},    {Says::kArqc, no_tc},
        {Says::kReferral, no_tc},  {Says::kTcWithoutTemplate, no_template},
        {Says::kRefusal, refused}, {Says::kSilence, silent},
    };
    std::map<Says, Outcome> tc_asked = approved;
    tc_asked[Says::kAac] = {0, "", true, false}; // the command's own result, with its text
    std::map<Says, Outcome> referral_asked = approved;
    referral_asked[Says::kAac] = no_tc;
    std::map<Says, Outcome> aac_asked = approved;
    aac_asked[Says::kAac] = {0, untouched, true, false};
    return {
        {"1", {"00", "10", "11", "01", "02", "05", "Z3"}, "00", on_decline},
        {"-1", {"00", "05"}, "00", on_decline},
        {"42", {"00"}, "00", on_decline},
        {"0", {"00", "10", "11"}, "40", tc_asked},
        {"0", {"01", "02"}, "C0", referral_asked},
        {"0", {"05", "12", "51", "Z3", "\x7F\x20"}, "00", aac_asked},
        // A number that no int holds is still not zero.
        {"4294967296", {"00"}, "00", on_decline},
        // What is no number approves.
        {"", {"00"}, "40", tc_asked},
        {"yes", {"05"}, "00", aac_asked},
    };
}

class IssuerAnswerTable : public IssuerAnswer {
  protected:
    void answer(Says says, std::string_view command) {
        switch (says) {
        case Says::kAac:
            card.expect(command, cryptogram_answer("00"));
            break;
        case Says::kTc:
            card.expect(command, cryptogram_answer("40"));
            break;
        case Says::kArqc:
            card.expect(command, cryptogram_answer("80"));
            break;
        case Says::kReferral:
            card.expect(command, cryptogram_answer("C0"));
            break;
        case Says::kTcWithoutTemplate:
            card.expect(command, "77 02 40 00 9000");
            break;
        case Says::kRefusal:
            card.expect(command, "6985");
            break;
        case Says::kSilence:
            card.expect_silence(command);
            break;
        }
    }

    void run_row(std::string_view status, std::string_view arc, std::string_view p1, Says says,
                 const Outcome& outcome) {
        SCOPED_TRACE(testing::Message() << "status " << status << ", code " << arc << ", answer "
                                        << static_cast<int>(says));
        connect();
        card.expect(external_authenticate(arc), "9000");
        answer(says, second_generate_ac(p1, arc));
        if (outcome.tc) {
            card.expect(kGetLastOnlineAtc, "6A88");
        }
        call.host_status = status;
        call.tc.set(kOld);
        call.script_result.set(kOld);
        call.error_text.set(kOld);
        // The script has an identifier and no commands.
        EXPECT_EQ(run(authentication(arc) + object("72", kIdentifier)), outcome.result);
        EXPECT_EQ(call.error_text.text(), gbk(outcome.error_text));
        const std::string prepared = outcome.tc ? "DF31052012345678" : "DF31050012345678";
        EXPECT_EQ(call.script_result.text(), outcome.script_result ? prepared : "");
        EXPECT_EQ(call.tc.text(), outcome.tc ? tc_list(kCardObjects) : "");
        expect_ended();
        card.verify();
    }
};

TEST_F(IssuerAnswerTable, EveryStatusCodeAndAnswerHasItsOutcome) {
    for (const Row& row : table()) {
        for (const std::string_view arc : row.codes) {
            for (const auto& [says, outcome] : row.outcomes) {
                run_row(row.status, arc, row.p1, says, outcome);
            }
        }
    }
}

// --- declined and refused, in words ---

TEST_F(IssuerAnswer, ADecliningHostGetsAnAacAndTwoEmptyTexts) {
    call.host_status = "1";
    EXPECT_EQ(run_to(cryptogram_answer("00"), "00", "00", object("72", kIdentifier)), 0);
    EXPECT_THAT(card.commands(), ElementsAre(StartsWith("00820000"), StartsWith("80AE0000")));
    EXPECT_EQ(call.tc.text(), "");
    EXPECT_EQ(call.script_result.text(), "");
    EXPECT_EQ(call.error_text.text(), kOld);
}

TEST_F(IssuerAnswer, CodeFiveGetsAnAacAndKeepsThePreparedScriptResult) {
    EXPECT_EQ(run_to(cryptogram_answer("00"), "05", "00", object("72", kIdentifier)), 0);
    EXPECT_EQ(call.script_result.text(), "DF31050012345678");
    EXPECT_EQ(call.tc.text(), "");
}

TEST_F(IssuerAnswer, ATcThatNobodyAskedForIsTaken) {
    card.expect(external_authenticate("05"), "9000");
    card.expect(second_generate_ac("00", "05"), cryptogram_answer("40"));
    card.expect(kGetLastOnlineAtc, "6A88");
    EXPECT_EQ(run(authentication("05")), 0);
    EXPECT_EQ(call.tc.text(), tc_list(kCardObjects));
}

// --- early failures, the connection kept ---

TEST_F(IssuerAnswer, WithoutCdolTwoNothingIsSent) {
    call.application_data = application_data_text(object("5A", kPan));
    EXPECT_EQ(run(authentication("00")), -202);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有找到CDOL2    "));
    EXPECT_EQ(call.script_result.text(), kOld);
    EXPECT_EQ(call.tc.text(), kOld);
    EXPECT_THAT(card.events(), IsEmpty());
    EXPECT_TRUE(session::live());
}

TEST_F(IssuerAnswer, AnEmptyCdolTwoIsEmptyData) {
    call.application_data = application_data_text("8D00");
    EXPECT_EQ(run(authentication("00")), -205);
    EXPECT_EQ(call.error_text.text(), gbk(" 空数据或非法数据 "));
    EXPECT_THAT(card.events(), IsEmpty());
}

TEST_F(IssuerAnswer, ACdolTwoThatEndsInsideAnEntryLacksATag) {
    call.application_data = application_data_text("8D029F02");
    EXPECT_EQ(run(authentication("00")), -204);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有找到标签     "));
    EXPECT_THAT(card.events(), IsEmpty());
    EXPECT_TRUE(session::live());
}

TEST_F(IssuerAnswer, ACdolTwoThatAsksForMoreThanACommandCarriesSendsNothing) {
    call.application_data = application_data_text(object("8D", "9F02FE9A02"));
    EXPECT_EQ(run(authentication("00")), -205);
    EXPECT_THAT(card.events(), IsEmpty());
    EXPECT_TRUE(session::live());
}

TEST_F(IssuerAnswer, ACdol2MayAskFor255Bytes) {
    call.application_data = application_data_text(object("8D", "9F02FE9C01"));
    card.expect(external_authenticate("00"), "9000");
    card.expect("80AE4000 FF" + repeated("00", 254) + "33", "6985");
    EXPECT_EQ(run(authentication("00")), 0x6985);
}

TEST_F(IssuerAnswer, AZeroByteEndsTheSearchForAScript) {
    EXPECT_EQ(run(std::string(kIdentifier) + "0000" + object("72", "")), -206);
    EXPECT_EQ(call.script_result.text(), "");
}

TEST_F(IssuerAnswer, AnEmptyResponseIsEmptyData) {
    EXPECT_EQ(run(""), -205);
    EXPECT_EQ(call.error_text.text(), gbk(" 空数据或非法数据 "));
    EXPECT_EQ(call.script_result.text(), kOld);
    EXPECT_THAT(card.events(), IsEmpty());
    EXPECT_TRUE(session::live());
}

TEST_F(IssuerAnswer, HalfAByteMoreMakesTheResponseEmpty) {
    call.response = authentication("00") + "7";
    EXPECT_EQ(call.run(), -205);
}

TEST_F(IssuerAnswer, AResponseOfMoreDigitsThanAnIssuerSendsCountsAsEmpty) {
    call.response = authentication("00") + repeated("00", 1024 - 12);
    ASSERT_EQ(call.response.size(), 2048U);
    EXPECT_EQ(call.run(), -205);
    EXPECT_THAT(card.events(), IsEmpty());
}

TEST_F(IssuerAnswer, AResponseOfTheLargestSizeIsUsed) {
    EXPECT_EQ(run_to("6985", "00", "40", repeated("00", 1023 - 12)), 0x6985);
    EXPECT_EQ(call.response.size(), 2046U);
}

TEST_F(IssuerAnswer, TheFirstOfSeveralFailuresIsTheResult) {
    call.application_data = application_data_text(object("5A", kPan));
    EXPECT_EQ(run(""), -202) << "no CDOL2, and an empty response";
    call.application_data = application_data_text("8D029F02");
    EXPECT_EQ(run(""), -204) << "a broken CDOL2, and an empty response";
    call.application_data = transaction_data_text();
    EXPECT_EQ(run(""), -205) << "an empty response, which has no tag 91 either";
    EXPECT_THAT(card.events(), IsEmpty());
}

TEST_F(IssuerAnswer, AResponseWithoutTagNinetyOneIsNamedSo) {
    EXPECT_EQ(run(object("72", kIdentifier)), -206);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有标签91的数据 "));
    // The script result has been prepared by then.
    EXPECT_EQ(call.script_result.text(), "DF31050012345678");
    EXPECT_THAT(card.events(), IsEmpty());
    EXPECT_TRUE(session::live());
}

TEST_F(IssuerAnswer, AShortTagNinetyOneIsNone) {
    EXPECT_EQ(run("9109 010203040506070830"), -206);
    EXPECT_EQ(run("9100"), -206);
    EXPECT_EQ(call.script_result.text(), "");
    EXPECT_THAT(card.events(), IsEmpty());
    EXPECT_TRUE(session::live());
}

TEST_F(IssuerAnswer, ALongTagNinetyOneGivesItsFirstTenBytes) {
    card.expect(external_authenticate("00"), "6300");
    EXPECT_EQ(run("910C" + std::string(kArpc) + "3030 AABB"), 0x6300);
}

TEST_F(IssuerAnswer, ARefusedAuthenticationIsTheResultWithoutAText) {
    card.expect(external_authenticate("00"), "6300");
    EXPECT_EQ(run(authentication("00") + object("72", kIdentifier)), 0x6300);
    EXPECT_EQ(call.error_text.text(), kOld);
    EXPECT_EQ(call.script_result.text(), "DF31050012345678");
    EXPECT_EQ(call.tc.text(), kOld);
    EXPECT_THAT(card.events(), ElementsAre(StartsWith("00820000")));
    EXPECT_TRUE(session::live());
}

TEST_F(IssuerAnswer, AResponseThatBreaksOffInsideTagNinetyOneIsFilledWithZeros) {
    card.expect("00820000 0A 0102 0000000000000000", "6300");
    EXPECT_EQ(run("910A 0102"), 0x6300);
}

TEST_F(IssuerAnswer, TheApplicationDataIsCutToEightThousandBytes) {
    const std::string filling = repeated("9A0101", 2665); // 7995 bytes
    call.application_data = application_data_text(filling + object("8D", "9A03") + "00");
    card.expect(external_authenticate("00"), "6300");
    EXPECT_EQ(run(authentication("00")), 0x6300);
    call.application_data = application_data_text(filling + repeated("9B00", 3) + "8D029A03");
    EXPECT_EQ(run(authentication("00")), -202);
}

TEST_F(IssuerAnswer, HexadecimalTextsMayBeInLowerCase) {
    call.application_data = "0000048d029a03";
    card.expect("00820000 0A ABCDEF0405060708 3030", "9000");
    card.expect("80AE4000 03 201904", "6985");
    call.response = "910aabcdef04050607083030";
    EXPECT_EQ(call.run(), 0x6985);
}

TEST_F(IssuerAnswer, AUselessApplicationDataTextHasNoCdolTwo) {
    for (const std::string_view text :
         {"", "0", "-00010", "999999", "0000008D029A03", "0000048D", "000004xyz8D029A03"}) {
        call.application_data = text;
        EXPECT_EQ(run(authentication("00")), -202) << text;
    }
    EXPECT_THAT(card.events(), IsEmpty());
}

// --- terminal data of the second cryptogram ---

TEST_F(IssuerAnswer, WithoutADateAndMerchantTheCompletedTextHasZeros) {
    call.tx_data = "";
    call.application_data = application_data_text(object("8D", "9A03 9F2103 9F4E14 8A02"));
    card.expect(external_authenticate("00"), "9000");
    card.expect("80AE4000 1C 000000 161355 " + repeated("30", 20) + " 3030", "6985");
    EXPECT_EQ(run(authentication("00")), 0x6985);
}

TEST_F(IssuerAnswer, ASixDigitDatePassesUnchanged) {
    call.tx_data = "S006190422U006155840";
    call.application_data = application_data_text(object("8D", "9A03 9F2103"));
    card.expect(external_authenticate("00"), "9000");
    card.expect("80AE4000 06 190422 155840", "6985");
    EXPECT_EQ(run(authentication("00")), 0x6985);
    EXPECT_EQ(hex(std::span(YYMMDD).first(3)), "190422");
}

TEST_F(IssuerAnswer, TheMerchantNameIsTheHosts) {
    call.application_data = application_data_text(object("8D", "9F4E14 DF6901"));
    call.tx_data += "Z00200";
    card.expect(external_authenticate("00"), "9000");
    card.expect("80AE4000 15" + text_hex("LURO CNT 0328") + repeated("00", 7) + "01", "6985");
    EXPECT_EQ(run(authentication("00")), 0x6985);
}

TEST_F(IssuerAnswer, TheResponseCodeIsTheIssuersEvenWhenTheTerminalDataHasOne) {
    call.application_data = application_data_text(object("8D", "8A02"));
    card.expect(external_authenticate("Y3"), "9000");
    card.expect("80AE0000 02" + text_hex("Y3"), cryptogram_answer("00"));
    EXPECT_EQ(run(authentication("Y3")), 0);
}

// --- the TC list ---

TEST_F(IssuerAnswer, TheTcListIsCompleteAndInItsOrder) {
    card.expect(external_authenticate("00"), "9000");
    card.expect(second_generate_ac("40", "00"), cryptogram_answer("40"));
    card.expect(kGetLastOnlineAtc, std::string(kLastOnlineAtc) + "9000");
    EXPECT_EQ(run(authentication("00")), 0);
    EXPECT_EQ(call.tc.text(), tc_list(kCardObjects, kLastOnlineAtc));
    EXPECT_EQ(call.script_result.text(), "");
    EXPECT_EQ(call.error_text.text(), kOld);
    expect_ended();
}

TEST_F(IssuerAnswer, ARefusedLastOnlineAtcIsLeftOut) {
    EXPECT_EQ(run_to_tc(), 0);
    EXPECT_EQ(call.tc.text(), tc_list(kCardObjects));
}

TEST_F(IssuerAnswer, AbsentCardObjectsAreLeftOut) {
    call.application_data = application_data_text(object("8D", kCdol2));
    EXPECT_EQ(run_to_tc(), 0);
    EXPECT_EQ(call.tc.text(), tc_list(""));
}

TEST_F(IssuerAnswer, TheInterchangeProfileIsAlwaysAnnouncedAsTwoBytes) {
    call.application_data = application_data_text(object("8D", kCdol2) + object("82", "5C00AA"));
    EXPECT_EQ(run_to_tc(), 0);
    EXPECT_EQ(call.tc.text(), tc_list("8202 5C00AA"));
}

TEST_F(IssuerAnswer, ACardWithoutIssuerApplicationDataGivesNone) {
    card.expect(external_authenticate("00"), "9000");
    card.expect(second_generate_ac("40", "00"), cryptogram_answer("40", ""));
    card.expect(kGetLastOnlineAtc, "6A88");
    EXPECT_EQ(run(authentication("00")), 0);
    EXPECT_EQ(call.tc.text(), tc_list(kCardObjects, "", ""));
}

TEST_F(IssuerAnswer, TheListCarriesTheNumberThatTheCardWasGiven) {
    EXPECT_EQ(run_to_tc(), 0);
    EXPECT_THAT(call.tc.text(), HasSubstr("9F3704" + hex(std::span(gRnd).first(4))));
    EXPECT_THAT(card.commands()[1], EndsWith(hex(std::span(gRnd).first(4))));
}

// --- issuer scripts ---

TEST_F(IssuerAnswer, AnAcceptedScriptIsReported) {
    expect_script(kScriptCommand, "9000");
    EXPECT_EQ(run_to_tc(object("72", std::string(kIdentifier) + object("86", kScriptCommand))), 0);
    EXPECT_EQ(call.script_result.text(), "DF31052012345678");
    EXPECT_EQ(call.tc.text(), tc_list(kCardObjects));
}

TEST_F(IssuerAnswer, ARefusedScriptIsNoFailure) {
    expect_script("84180000 00", "9000");
    expect_script(kScriptCommand, "6988");
    EXPECT_EQ(
        run_to_tc(object("72", std::string(kIdentifier) + object("86", "84180000 00") +
                                   object("86", kScriptCommand) + object("86", "84160000 00"))),
        0);
    EXPECT_EQ(call.script_result.text(), "DF31051212345678");
    EXPECT_EQ(call.tc.text(), tc_list(kCardObjects));
    EXPECT_EQ(call.error_text.text(), kOld);
}

TEST_F(IssuerAnswer, TheScriptRunsBetweenTheCryptogramAndTheLastOnlineAtc) {
    expect_script(kScriptCommand, "9000");
    EXPECT_EQ(run_to_tc(object("72", object("86", kScriptCommand))), 0);
    EXPECT_THAT(card.commands(),
                ElementsAre(StartsWith("00820000"), StartsWith("80AE4000"),
                            hex(bytes(kScriptCommand)), std::string(kGetLastOnlineAtc)));
    // Without an identifier.
    EXPECT_EQ(call.script_result.text(), "DF31052000000000");
}

TEST_F(IssuerAnswer, OnlyTemplateSeventyTwoRunsWhenBothAreThere) {
    expect_script("84180000 00", "9000");
    EXPECT_EQ(run_to_tc(object("71", object("86", "84160000 00")) +
                        object("72", object("86", "84180000 00"))),
              0);
    EXPECT_EQ(call.script_result.text(), "DF31052000000000");
}

TEST_F(IssuerAnswer, TemplateSeventyOneRunsAfterTheCryptogramToo) {
    expect_script("84160000 00", "9000");
    EXPECT_EQ(run_to_tc(object("71", std::string(kIdentifier) + object("86", "84160000 00"))), 0);
    EXPECT_EQ(call.script_result.text(), "DF31052012345678");
}

TEST_F(IssuerAnswer, WithoutATemplateThereIsNoScriptResult) {
    EXPECT_EQ(run_to_tc(kIdentifier), 0);
    EXPECT_EQ(call.script_result.text(), "");
}

TEST_F(IssuerAnswer, ATemplateBehindAZeroTagRunsWithoutAScriptResult) {
    // The look ahead for a script ends at the zero; the script itself is found behind it.
    expect_script("84180000 00", "9000");
    EXPECT_EQ(run_to_tc("0000" + object("72", object("86", "84180000 00"))), 0);
    EXPECT_EQ(call.script_result.text(), "");
}

TEST_F(IssuerAnswer, ALengthBehind81IsTheResponsesSecondByte) {
    // The second byte is the length of tag 91, so ten bytes of the script count: one command and
    // the head of the next, which runs past the end.
    expect_script("84180000 00", "9000");
    const std::string script = repeated(object("86", "84180000 00"), 20);
    EXPECT_EQ(run_to_tc(object("72", script)), 0);
    EXPECT_EQ(call.script_result.text(), "DF31051200000000");
}

TEST_F(IssuerAnswer, AnEmptyTemplateIsAnAcceptedScript) {
    EXPECT_EQ(run_to_tc("7200"), 0);
    EXPECT_EQ(call.script_result.text(), "DF31052000000000");
}

TEST_F(IssuerAnswer, TheIdentifierMayStandOutsideTheTemplate) {
    EXPECT_EQ(run_to_tc(std::string(kIdentifier) + "7200"), 0);
    EXPECT_EQ(call.script_result.text(), "DF31052012345678");
}

TEST_F(IssuerAnswer, IdentifierBytesFromEightyOnPrintAsEightDigits) {
    EXPECT_EQ(run_to_tc(object("72", "9F1804 9F12347F")), 0);
    EXPECT_EQ(call.script_result.text(), "DF310520"
                                         "FFFFFF9F12347F");
}

TEST_F(IssuerAnswer, TheWidestIdentifierStaysInItsBuffer) {
    EXPECT_EQ(run_to_tc(object("72", "9F1804 80FFFEC0")), 0);
    EXPECT_EQ(call.script_result.text(), "DF310520"
                                         "FFFFFF80FFFFFFFFFFFFFFFEFFFFFFC0");
}

TEST_F(IssuerAnswer, AShortIdentifierIsFilledWithZeros) {
    EXPECT_EQ(run_to_tc(object("72", "9F1802 1234")), 0);
    EXPECT_EQ(call.script_result.text(), "DF31052012340000");
}

TEST_F(IssuerAnswer, ALongIdentifierGivesItsFirstFourBytes) {
    EXPECT_EQ(run_to_tc(object("72", "9F1806 123456789ABC")), 0);
    EXPECT_EQ(call.script_result.text(), "DF31052012345678");
}

TEST_F(IssuerAnswer, TheFailingCommandsPositionIsOneHexDigit) {
    const std::array<std::pair<std::size_t, char>, 6> positions{
        {{1, '1'}, {9, '9'}, {10, 'A'}, {15, 'F'}, {16, 'F'}, {20, 'F'}}};
    for (const auto& [position, digit] : positions) {
        connect();
        std::string script;
        for (std::size_t k = 1; k <= position; ++k) {
            script += object("86", "84180000 00");
            expect_script("84180000 00", k == position ? "6985" : "9000");
        }
        EXPECT_EQ(run_to_tc(short_form_object("72", script)), 0) << position;
        EXPECT_EQ(call.script_result.text(), std::string("DF31051") + digit + "00000000");
        card.verify();
    }
}

TEST_F(IssuerAnswer, ACommandThatRunsPastTheScriptIsCountedAndNotSent) {
    EXPECT_EQ(run_to_tc(object("72", "86 0D 8424000008")), 0);
    EXPECT_EQ(call.script_result.text(), "DF31051100000000");
}

TEST_F(IssuerAnswer, ACommandThatIsTooShortIsCountedAndNotSent) {
    expect_script("84180000 00", "9000");
    EXPECT_EQ(run_to_tc(object("72", object("86", "84180000 00") + object("86", "84240000"))), 0);
    EXPECT_EQ(call.script_result.text(), "DF31051200000000");
}

TEST_F(IssuerAnswer, NoScriptRunsWithoutATc) {
    EXPECT_EQ(run_to(cryptogram_answer("80"), "00", "40",
                     object("72", std::string(kIdentifier) + object("86", kScriptCommand))),
              -203);
    EXPECT_EQ(call.script_result.text(), "DF31050012345678");
}

TEST_F(IssuerAnswer, ALongScriptRunsWhole) {
    std::string script;
    for (int k = 0; k < 3; ++k) {
        script += "86FE 84DA0000F9" + repeated("5A", 0xF9);
        expect_script("84DA0000F9" + repeated("5A", 0xF9), "9000");
    }
    EXPECT_EQ(run_to_tc("72820300" + script), 0);
    EXPECT_EQ(call.script_result.text(), "DF31052000000000");
}

// --- what more a host may do ---

TEST_F(IssuerAnswer, AResponseOfManyDigitsIsUsedWhole) {
    // 300 digits are announced as 250; the script stands behind them.
    expect_script(kScriptCommand, "9000");
    EXPECT_EQ(run_to_tc("9F7F81"
                        "70" +
                        repeated("00", 0x70) + object("72", object("86", kScriptCommand))),
              0);
    EXPECT_EQ(call.script_result.text(), "DF31052000000000");
}

TEST_F(IssuerAnswer, WhatTheHostDoesNotPassIsNotNeeded) {
    EXPECT_EQ(ZEB_ICC_ARPC_ExeICScript(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                       nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                       nullptr, nullptr, nullptr, nullptr, nullptr),
              -202);
    card.expect(external_authenticate("00"), "9000");
    card.expect("80AE4000 03 000000", cryptogram_answer("40"));
    card.expect(kGetLastOnlineAtc, "6A88");
    HostText data(application_data_text(object("8D", "9A03")));
    HostText response(authentication("00") + "7200");
    EXPECT_EQ(ZEB_ICC_ARPC_ExeICScript(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                                       nullptr, nullptr, nullptr, nullptr, data.get(), nullptr,
                                       response.get(), nullptr, nullptr, nullptr, nullptr),
              0);
}

TEST_F(IssuerAnswer, TracesNothingAndPrintsTheCryptogramCommandOnly) {
    card.expect(external_authenticate("00"), "9000");
    card.expect(second_generate_ac("40", "00"), cryptogram_answer("40"));
    card.expect(kGetLastOnlineAtc, "6A88");
    call.response = authentication("00");
    const Printed printed = printed_by([this] { call.run(); });
    EXPECT_EQ(without_link_lines(printed.out), "");
    EXPECT_FALSE(trace.exists());
}

// --- cards that say too much ---

TEST_F(IssuerAnswer, AnObjectThatDoesNotFitIsLeftOut) {
    const std::string iad = repeated("07", 240);
    call.application_data =
        application_data_text(object("8D", "9A03") + short_form_object("5A", repeated("62", 255)) +
                              object("5F34", repeated("11", 100)) + object("82", "5C00"));
    card.expect(external_authenticate("00"), "9000");
    card.expect("80AE4000 03 201904", "80 FB 40 0012" + std::string(kCryptogram) + iad + "9000");
    card.expect(kGetLastOnlineAtc, short_form_object("9F13", repeated("0F", 250)) + "9000");
    EXPECT_EQ(run(authentication("00")), 0);
    // Neither the card's register, which would take the list past 511 bytes, nor its PAN.
    EXPECT_EQ(call.tc.text(),
              tc_list("5F3464" + repeated("11", 100) + "82025C00", "", "9F10F0" + iad));
}

TEST_F(IssuerAnswer, AListOfTheLargestSizeIsWholeAndOneByteMoreCostsItsLastObject) {
    const std::string iad = repeated("07", 240);
    // Without the PAN the list has 319 bytes; two are for its head.
    for (const std::size_t size : {190U, 191U}) {
        connect();
        const std::string pan = short_form_object("5A", repeated("62", size));
        call.application_data = application_data_text(object("8D", "9A03") + pan);
        card.expect(external_authenticate("00"), "9000");
        card.expect("80AE4000 03 201904",
                    "80 FB 40 0012" + std::string(kCryptogram) + iad + "9000");
        card.expect(kGetLastOnlineAtc, "6A88");
        EXPECT_EQ(run(authentication("00")), 0);
        std::string list = tc_list(pan, "", "9F10F0" + iad);
        if (size > 190) {
            list.resize(list.size() - std::string_view("9F330320A100").size());
        }
        EXPECT_EQ(call.tc.text(), list);
        EXPECT_EQ(list.size(), 2U * (size > 190 ? 506U : 511U));
    }
}

} // namespace
