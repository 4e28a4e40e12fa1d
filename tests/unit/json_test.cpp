// The JSON entry points and the driver lifecycle, as the C interface gives them.
#include "qaven/qaven.h"

#include "console.h"
#include "engine/card/session.h"
#include "host_calls.h"
#include "payment_card.h"

#include <cjson/cJSON.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdlib>
#include <memory>

namespace session = qaven::session;

using namespace qaven::test;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

constexpr std::string_view kSlotLine = "81 00 00 00 00 00 01 00 00 00 \n";
constexpr const char* kIllegalData = " 数据非法         ";
constexpr const char* kInfoFailed = "获取IC卡信息失败";
constexpr const char* kArqcFailed = "获取ARQC失败";

// A text as a JSON value has it.
std::string escaped(std::string_view text) {
    std::string json;
    for (const char ch : text) {
        switch (ch) {
        case '"':
            json += "\\\"";
            break;
        case '\n':
            json += "\\n";
            break;
        case '\t':
            json += "\\t";
            break;
        case '\\':
            json += "\\\\";
            break;
        default:
            json += ch;
            break;
        }
    }
    return json;
}

// A formatted object of text members.
std::string formatted(std::initializer_list<std::pair<std::string, std::string>> members) {
    std::string json = "{";
    for (const auto& [key, value] : members) {
        json += json == "{" ? "\n" : ",\n";
        json.append("\t\"").append(key).append("\":\t\"").append(value).append("\"");
    }
    return json + "\n}";
}

std::string info_input(std::string_view read_arqc, std::string_view aid_list = "A000000333",
                       std::string_view tag_list = "|A|J") {
    return R"({"TagList":")" + std::string(tag_list) + R"(","AIDList":")" + std::string(aid_list) +
           R"(","aryInput":")" + std::string(kTxData) + R"(","isReadArqc":")" +
           std::string(read_arqc) + "\"}";
}

std::string arqc_input(std::string_view aid_list = "A000000333") {
    return R"({"aryInput":")" + std::string(kTxData) + R"(","AIDList":")" + std::string(aid_list) +
           "\"}";
}

std::string answer_input(std::string_view application_data, std::string_view response,
                         std::string_view status = "0") {
    return R"({"Txdata":")" + std::string(kTxData) + R"(","LpAppData":")" +
           std::string(application_data) + R"(","ARPC":")" + std::string(response) +
           R"(","Status":)" + std::string(status) + "}";
}

std::string log_input(std::string_view aid = "A000000333") {
    return R"({"AIDList":")" + std::string(aid) + "\"}";
}

class Json : public OperationTest {
  protected:
    void expect_arqc() {
        expect_reading(card, {transaction_record()});
        card.expect(generate_arqc_command(), cryptogram_answer("80"));
        card.expect(kGetLastOnlineAtc, "6A88");
    }

    // The field-55 data of that.
    static std::string field55() {
        return "9F26081122334455667788"
               "9F270180"
               "9F10080701010399000001"
               "9F3704" +
               unpredictable_number() +
               "9F36020012"
               "95050008006000"
               "9F13020000"
               "9A03190422"
               "9C0103"
               "9F0206000000001213"
               "5F2A020156"
               "5A0A6214830123456789012F"
               "5F340101"
               "82027C00"
               "9F1A020156"
               "9F0306000000000000"
               "9F330320A100";
    }

    static std::string arqc_object() {
        return formatted({{"LpAppData", transaction_data_text()},
                          {"ARQC", field55()},
                          {"Field60", "`\\u0003001"}});
    }

    JsonCall call;
};

class JsonWithoutCard : public OperationTest {
  protected:
    JsonWithoutCard() : OperationTest(ScriptedCard::kNoSlot) {}

    JsonCall call;
};

// --- the lifecycle ---

TEST(DriverLifecycle, DoesNothingAndSucceeds) {
    EXPECT_EQ(initDriver(), 0);
    EXPECT_EQ(initDriver(), 0);
    setPortAttr(nullptr, 9600, 8, 1);
    EXPECT_EQ(deinit(), 0);
    EXPECT_EQ(deinit(), 0);
}

// --- card information ---

TEST_F(Json, CardInformationWithoutTheArqcStep) {
    expect_reading(card, {transaction_record()});
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("false")), 0);
    EXPECT_EQ(call.resmsg.text(),
              formatted({{"IcInfo", "A0196214830123456789012J003001"}, {"IcARQC", ""}}));
    EXPECT_EQ(call.errmsg.text(), kOld);
    EXPECT_FALSE(session::live());
}

TEST_F(Json, CardInformationWithTheArqcStep) {
    expect_reading(card, {transaction_record()});
    expect_arqc();
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("true")), 0);
    EXPECT_EQ(call.resmsg.text(), formatted({{"IcInfo", "A0196214830123456789012J003001"},
                                             {"IcARQC", escaped(arqc_object())}}));
    EXPECT_EQ(call.errmsg.text(), kOld);
    EXPECT_TRUE(session::live());
    EXPECT_TRUE(card.powered());
}

TEST_F(Json, TheArqcStepRunsForTwoSpellingsOnly) {
    for (const std::string_view spelling : {"true", "True"}) {
        expect_reading(card, {transaction_record()});
        expect_arqc();
        EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input(spelling)), 0) << spelling;
        EXPECT_THAT(call.resmsg.text(), HasSubstr("LpAppData")) << spelling;
    }
    for (const std::string_view spelling :
         {"TRUE", "1", "", "yes", "false", "tRue", "true ", " true", "True1"}) {
        expect_reading(card, {transaction_record()});
        EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input(spelling)), 0) << spelling;
        EXPECT_THAT(call.resmsg.text(), EndsWith("\"IcARQC\":\t\"\"\n}")) << spelling;
    }
}

TEST_F(Json, TheCommonAidListTriesThePrefixFirst) {
    expect_reading(card, {transaction_record()});
    EXPECT_EQ(
        call.run(QAVEN_getICCardInfo, info_input("false", "|A000000333010101|A000000333010102")),
        0);
    EXPECT_EQ(card.commands().front(), "00A4040005A000000333");
}

TEST_F(Json, AFailedReadingLeavesTheAnswerAloneAndFillsTheErrorText) {
    card.expect("00A40400 05 A000000333", "6A82");
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("true")), -23);
    EXPECT_EQ(call.resmsg.text(), kOld);
    EXPECT_EQ(call.errmsg.text(), gbk(kInfoFailed));
    // A later success does not clear it.
    expect_reading(card, {transaction_record()});
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("false")), 0);
    EXPECT_EQ(call.errmsg.text(), gbk(kInfoFailed));
    EXPECT_THAT(trace.text(), EndsWith("errmsg:" + gbk(kInfoFailed) + "\n\r\nret:0\n\r\n"));
}

TEST_F(JsonWithoutCard, IsMinusOne) {
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("true")), -1);
    EXPECT_EQ(call.resmsg.text(), kOld);
    EXPECT_EQ(call.errmsg.text(), gbk(kInfoFailed));
}

TEST_F(Json, AFailedArqcStepLeavesTheAnswerAloneAndFillsTheErrorText) {
    expect_reading(card, {transaction_record()});
    expect_reading(card, {transaction_record()});
    card.expect(generate_arqc_command(), cryptogram_answer("00"));
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("true")), -3);
    EXPECT_EQ(call.resmsg.text(), kOld);
    EXPECT_EQ(call.errmsg.text(), gbk(kArqcFailed));
    EXPECT_THAT(trace.text(), EndsWith("iRet:-203\n\r\n" + gbk("-获取ARQC失败-") + "\n\r\n"));
    EXPECT_FALSE(session::live());
}

TEST_F(Json, AnArqcOfAnotherCardThanTheOneReadIsNoAnswer) {
    const std::string other =
        object("70", object("5A", "6214830123456789020F") + object("8C", kCdol1));
    expect_reading(card, {transaction_record()});
    expect_reading(card, {other});
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("true")), -1);
    EXPECT_EQ(call.resmsg.text(), kOld);
    EXPECT_EQ(call.errmsg.text(), gbk(kArqcFailed));
    EXPECT_THAT(trace.text(), EndsWith("iRet:-1\n\r\n" + gbk("-获取ARQC失败-") + "\n\r\n"));
    EXPECT_FALSE(session::live());
    // The other card's turn comes with a call of its own.
    expect_reading(card, {other});
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("false")), 0);
    EXPECT_THAT(call.resmsg.text(), HasSubstr("A0196214830123456789020"));
}

// What two readings of the ARQC step's call found, each without a record of the card.
struct TwoReadings {
    const char* name;
    std::string first;
    std::string second;
    bool of_one_card;
    bool loses_a_record = false; // the second one
};

class JsonTwoReadings : public Json, public testing::WithParamInterface<TwoReadings> {};

TEST_P(JsonTwoReadings, AreOfOneCardWhenTheirNumbersSaySo) {
    expect_reading(card, {object("70", GetParam().first + object("8C", kCdol1))});
    expect_select(card);
    expect_options(card, GetParam().loses_a_record ? 2 : 1);
    expect_records(card, {object("70", GetParam().second + object("8C", kCdol1))});
    if (GetParam().loses_a_record) {
        card.expect("00B2020C00", "90");
    }
    if (GetParam().of_one_card) {
        card.expect(generate_arqc_command(), cryptogram_answer("80"));
        card.expect(kGetLastOnlineAtc, "6A88");
    }
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("true")), GetParam().of_one_card ? 0 : -1);
}

std::vector<TwoReadings> two_readings() {
    const std::string number = object("5A", "6214830123456789012F");
    const std::string track2 = object("57", "6214830123456789012D2512220123");
    const std::string other_number = object("5A", "6214830123456789020F");
    const std::string other_track2 = object("57", "6214830123456789020D2512220123");
    return {{"TheSame", number + track2, number + track2, true},
            {"AnotherTrack2", track2, other_track2, false},
            {"AnotherTrack2AfterTheNumber", number + track2, number + other_track2, false},
            {"TheNumberOfTrack2", track2, number, true},
            {"AnotherNumberThanThatOfTrack2", track2, other_number, false},
            {"AnotherTrack2ThanThatOfTheNumber", number, other_track2, false},
            {"ANumberAndNone", number, "", true},
            {"ANumberAndALostRecord", number, "", false, true},
            {"NoneAndANumber", "", number, true},
            {"NoneAndANumberWithALostRecord", "", number, false, true},
            {"AnEmptyNumberAndANumber", object("5A", ""), number, true},
            {"ANumberAndAnEmptyNumber", number, object("5A", ""), false},
            {"None", "", "", true},
            {"NoneAndALostRecord", "", "", true, true}};
}

INSTANTIATE_TEST_SUITE_P(, JsonTwoReadings, testing::ValuesIn(two_readings()),
                         [](const auto& readings) { return readings.param.name; });

TEST_F(Json, CodesOfCardAndReaderPassThrough) {
    expect_select(card);
    card.expect("80A80000 02 8300", "6985");
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("false")), 0x6985);
    expect_select(card);
    card.expect_silence("80A80000 02 8300");
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("false")), -7);
}

TEST_F(Json, CardInformationTracesItsLines) {
    expect_reading(card, {transaction_record()});
    call.errmsg.set("");
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("false")), 0);
    EXPECT_EQ(trace.text(), gbk("------QAVEN_getICCardInfo------\n\r\n"
                                "TagList:|A|J\n\r\n"
                                "AIDList:A000000333\n\r\n"
                                "aryInput:" +
                                std::string(kTxData) +
                                "\n\r\n"
                                "isReadArqc:false\n\r\n"
                                "getICCardInfo\n\r\n"
                                "ReaderNameStr:KS  KS4417QX-R 0\n\r\n"
                                "ZEB_ICC_GetInfo\n\r\n"
                                "--- 取卡信息 ---\r\n\r\n"
                                "--- 应用选择 ---\r\n\r\n"
                                "ZEB_ICC_GetInfo ReaderNameStr:KS  KS4417QX-R 0\n\r\n"
                                "TagList:|A|J\n\r\n"
                                "iRet:0\n\r\n"
                                "valueRet:A0196214830123456789012J003001\n\r\n"
                                "111\r\n"
                                "resmsg:" +
                                call.resmsg.text() +
                                "\n\r\n"
                                "errmsg:\n\r\n"
                                "ret:0\n\r\n"));
}

TEST_F(Json, TheArqcStepInsideIsTracedBehindTheMark) {
    expect_reading(card, {transaction_record()});
    expect_arqc();
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("True")), 0);
    const std::string text = trace.text();
    EXPECT_THAT(text, HasSubstr("\n111\r\n"
                                "-ReadArqc-\r\n"
                                "------genARQC------\n\r\n"
                                "ReaderNameStr:123\n\r\n"
                                "aryInput:" +
                                std::string(kTxData) +
                                "\n\r\n"
                                "AIDList:A000000333\n\r\n"));
    EXPECT_THAT(text, EndsWith("Field60:5\n\r\n"
                               "iRet:0\n\r\n"
                               "resmsg:" +
                               call.resmsg.text() +
                               "\n\r\n"
                               "errmsg:old\n\r\n"
                               "ret:0\n\r\n"));
}

TEST_F(Json, CardInformationPrintsItsLines) {
    expect_reading(card, {transaction_record()});
    expect_arqc();
    const Printed printed =
        printed_by([this] { call.run(QAVEN_getICCardInfo, info_input("true")); });
    EXPECT_EQ(without_link_lines(printed.out),
              "------QAVEN_getICCardInfo------\n"
              "TagList:|A|J\n"
              "AIDList:A000000333\n"
              "aryInput:" +
                  std::string(kTxData) +
                  "\n"
                  "isReadArqc:true\n"
                  "getICCardInfo\n"
                  "ReaderNameStr:KS  KS4417QX-R 0\n"
                  "ZEB_ICC_GetInfo\n" +
                  std::string(kSlotLine) +
                  "ZEB_ICC_GetInfo ReaderNameStr:KS  KS4417QX-R 0\n"
                  "TagList:|A|J\n"
                  "iRet:0\n"
                  "-ReadArqc-\n"
                  "------genARQC------\n"
                  "ReaderNameStr:123\n"
                  "aryInput:" +
                  std::string(kTxData) +
                  "\n"
                  "AIDList:A000000333\n"
                  "ZEB_ICC_GetInfo\n" +
                  std::string(kSlotLine) + "lpic:" + transaction_data_text() +
                  "\n"
                  "ARQC:" +
                  field55() +
                  "\n"
                  "Field60:`\x03"
                  "001\n"
                  "iRet:0\n"
                  "-LpAppData:" +
                  transaction_data_text() +
                  "\n"
                  "-ARQC:" +
                  field55() + "\n");
    EXPECT_THAT(printed.out, EndsWith("\n"));
    EXPECT_EQ(printed.err, "");
}

TEST_F(Json, AFailedReadingPrintsAndTracesItsText) {
    card.expect("00A40400 05 A000000333", "6A82");
    const Printed printed =
        printed_by([this] { call.run(QAVEN_getICCardInfo, info_input("true")); });
    EXPECT_THAT(printed.out, EndsWith("iRet:-23\n" + gbk(kInfoFailed) + "\n"));
    EXPECT_THAT(trace.text(), EndsWith("iRet:-23\n\r\n" + gbk(kInfoFailed) + "\r\n"));
}

TEST_F(Json, AFailedArqcStepPrintsItsTextAndCode) {
    expect_reading(card, {transaction_record()});
    card.expect("00A40400 05 A000000333", "6A82");
    const Printed printed =
        printed_by([this] { call.run(QAVEN_getICCardInfo, info_input("true")); });
    EXPECT_THAT(printed.out, EndsWith("iRet:-23\n" + gbk(kArqcFailed) + "\nmret:-23\n"));
}

TEST_F(Json, AnErrorTextThatTheHostNeverClearedIsTracedNoFurtherThanItsBuffer) {
    expect_reading(card, {transaction_record()});
    call.errmsg = HostText(repeated("e", QAVEN_ERRMSG_SIZE - 1));
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("false")), 0);
    EXPECT_THAT(trace.text(), HasSubstr("\nerrmsg:" + repeated("e", 18) + "\n\r\n"));
    expect_reading(card, {transaction_record()});
    // What stands behind the documented size is none of the library's.
    call.errmsg = HostText(repeated("f", 40));
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("false")), 0);
    EXPECT_THAT(trace.text(), HasSubstr("\nerrmsg:" + repeated("f", 18) + "\n\r\n"));
}

TEST_F(Json, TestReadsTheCardWithItsFixedInput) {
    // The prefix, then both AIDs; the terminal's date and time are the input's.
    expect_reading(card, {transaction_record()});
    for (const std::string_view refused : {"80CA9F7900", "80CA9F7700", "80CA9F7800"}) {
        card.expect(refused, "6A88");
    }
    // The ARQC step's empty field means the directory.
    expect_directory(card);
    expect_options(card, 1);
    expect_records(card, {transaction_record()});
    card.expect("80AE8000 20 000000000000 000000000000 0156 0008006000 0156 330201 33 " +
                    unpredictable_number() + " 155840",
                cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    int anything = 0;
    EXPECT_EQ(::Test(&anything, call.resmsg.get(), call.errmsg.get(), 0, 0), 0);
    EXPECT_THAT(call.resmsg.text(),
                StartsWith("{\n\t\"IcInfo\":\t\"A0196214830123456789012B000C000D000E000G000H000I000"
                           "J003001K000L000M000N000O000\",\n\t\"IcARQC\":\t\"{\\n\\t"));
    EXPECT_THAT(trace.text(), StartsWith("------QAVEN_getICCardInfo------\n\r\n"
                                         "TagList:|A|B|C|D|E|G|H|I|J|K|L|M|N|O\n\r\n"
                                         "AIDList:|A000000333010101|A888000333010101\n\r\n"
                                         "aryInput:S006330201U006155840\n\r\n"
                                         "isReadArqc:true\n\r\n"));
}

TEST_F(JsonWithoutCard, TestFailsAsTheReadingDoes) {
    EXPECT_EQ(::Test(nullptr, call.resmsg.get(), call.errmsg.get(), 0, 0), -1);
    EXPECT_EQ(call.resmsg.text(), kOld);
    EXPECT_EQ(call.errmsg.text(), gbk(kInfoFailed));
    EXPECT_EQ(::Test(nullptr, nullptr, nullptr, 0, 0), -16);
}

// --- the ARQC step ---

TEST_F(Json, TheArqcStepAnswersWithThreeTexts) {
    expect_arqc();
    EXPECT_EQ(call.run(QAVEN_genARQC, arqc_input()), 0);
    EXPECT_EQ(call.resmsg.text(), arqc_object());
    EXPECT_EQ(call.errmsg.text(), kOld);
    EXPECT_TRUE(session::live());
}

TEST_F(Json, AFailedArqcStepIsZeroAndAnswersWithWhatThereIs) {
    card.expect("00A40400 05 A000000333", "6A82");
    EXPECT_EQ(call.run(QAVEN_genARQC, arqc_input()), 0);
    EXPECT_EQ(call.resmsg.text(),
              formatted({{"LpAppData", "000000"}, {"ARQC", ""}, {"Field60", ""}}));
    EXPECT_EQ(call.errmsg.text(), kOld);
    EXPECT_THAT(trace.text(), EndsWith("ret:-23\n\r\n"));

    expect_reading(card, {transaction_record()});
    card.expect(generate_arqc_command(), "6985");
    EXPECT_EQ(call.run(QAVEN_genARQC, arqc_input()), 0);
    EXPECT_EQ(call.resmsg.text(),
              formatted({{"LpAppData", transaction_data_text()}, {"ARQC", ""}, {"Field60", ""}}));
    EXPECT_THAT(trace.text(), EndsWith("ret:27013\n\r\n"));
}

TEST_F(JsonWithoutCard, TheArqcStepIsZeroAndAnswersWithEmptyTexts) {
    EXPECT_EQ(call.run(QAVEN_genARQC, arqc_input()), 0);
    EXPECT_EQ(call.resmsg.text(), formatted({{"LpAppData", ""}, {"ARQC", ""}, {"Field60", ""}}));
    EXPECT_THAT(trace.text(), EndsWith("ret:-1\n\r\n"));
}

TEST_F(Json, TheArqcStepTracesItsLines) {
    expect_arqc();
    EXPECT_EQ(call.run(QAVEN_genARQC, arqc_input()), 0);
    const std::string text = trace.text();
    // The transaction data stands under the tag list's label.
    EXPECT_THAT(text, StartsWith("------QAVEN_genARQC------\n\r\n"
                                 "TagList:" +
                                 std::string(kTxData) +
                                 "\n\r\n"
                                 "AIDList:A000000333\n\r\n"
                                 "------genARQC------\n\r\n"
                                 "ReaderNameStr:KS  KS4417QX-R 0\n\r\n"));
    EXPECT_THAT(text, EndsWith("iRet:0\n\r\n"
                               "resmsg:" +
                               call.resmsg.text() +
                               "\n\r\n"
                               "ret:0\n\r\n"));
}

TEST_F(Json, TheArqcStepPrintsItsLines) {
    card.expect("00A40400 05 A000000333", "6A82");
    const Printed printed = printed_by([this] { call.run(QAVEN_genARQC, arqc_input()); });
    EXPECT_EQ(without_link_lines(printed.out), "------QAVEN_genARQC------\n"
                                               "TagList:" +
                                                   std::string(kTxData) +
                                                   "\n"
                                                   "AIDList:A000000333\n"
                                                   "------genARQC------\n"
                                                   "ReaderNameStr:KS  KS4417QX-R 0\n"
                                                   "aryInput:" +
                                                   std::string(kTxData) +
                                                   "\n"
                                                   "AIDList:A000000333\n"
                                                   "ZEB_ICC_GetInfo\n" +
                                                   std::string(kSlotLine) +
                                                   "lpic:000000\n"
                                                   "ARQC:\n"
                                                   "Field60:\n"
                                                   "iRet:-23\n");
}

// --- the issuer's answer ---

constexpr std::string_view kResponse = "910A01020304050607083030";

class JsonIssuerAnswer : public Json {
  protected:
    void SetUp() override { connect(); }

    const std::string data = application_data_text(object("8D", "9A03"));
};

TEST_F(JsonIssuerAnswer, AnswersWithScriptResultAndTc) {
    card.expect("00820000 0A 0102030405060708 3030", "9000");
    card.expect("80AE4000 03 201904", cryptogram_answer("40", ""));
    card.expect("84240000 00", "9000");
    card.expect(kGetLastOnlineAtc, "6A88");
    const std::string response =
        std::string(kResponse) + object("72", "9F180412345678" + object("86", "8424000000"));
    EXPECT_EQ(call.run(QAVEN_ARPC_ExeICScript, answer_input(data, response)), 0);
    EXPECT_EQ(call.resmsg.text(), formatted({{"Scriptresult", "DF31052012345678"},
                                             {"TC", "9F26081122334455667788"
                                                    "9F270140"
                                                    "9F3704" +
                                                        unpredictable_number() +
                                                        "9F36020012"
                                                        "95050008006000"
                                                        "9A03201904"
                                                        "9C0133"
                                                        "9F0206000000000000"
                                                        "5F2A020156"
                                                        "9F1A020156"
                                                        "9F0306000000000000"
                                                        "9F330320A100"}}));
    EXPECT_EQ(call.errmsg.text(), kOld);
    EXPECT_FALSE(session::live());
}

TEST_F(JsonIssuerAnswer, AFailureIsZeroAndAnswersWithEmptyTexts) {
    EXPECT_EQ(call.run(QAVEN_ARPC_ExeICScript, answer_input("", "")), 0);
    EXPECT_EQ(call.resmsg.text(), formatted({{"Scriptresult", ""}, {"TC", ""}}));
    EXPECT_EQ(call.errmsg.text(), kOld);
    EXPECT_THAT(trace.text(), EndsWith("ret:-4\n\r\n"));
}

TEST_F(JsonIssuerAnswer, ADecliningStatusAsksForAnAac) {
    for (const std::string_view status : {"1", "-1", "5", "1e3"}) {
        connect();
        card.expect("00820000 0A 0102030405060708 3030", "9000");
        card.expect("80AE0000 03 201904", cryptogram_answer("00"));
        EXPECT_EQ(call.run(QAVEN_ARPC_ExeICScript, answer_input(data, kResponse, status)), 0);
        EXPECT_EQ(call.resmsg.text(), formatted({{"Scriptresult", ""}, {"TC", ""}}));
        card.verify();
    }
}

TEST_F(JsonIssuerAnswer, AStatusIsAnyWholeNumberOf32Bits) {
    for (const std::string_view status : {"2147483647", "-2147483648", "7.0", "0.0", "-0"}) {
        EXPECT_EQ(call.run(QAVEN_ARPC_ExeICScript, answer_input("", "", status)), 0) << status;
    }
}

TEST_F(JsonIssuerAnswer, TracesItsLines) {
    EXPECT_EQ(call.run(QAVEN_ARPC_ExeICScript, answer_input("000000", kResponse, "3")), 0);
    EXPECT_EQ(trace.text(), "------QAVEN_ARPC_ExeICScript------\r\n"
                            "Txdata_string:" +
                                std::string(kTxData) +
                                "\n\r\n"
                                "LpAppData_string:000000\n\r\n"
                                "ARPC_string:" +
                                std::string(kResponse) +
                                "\n\r\n"
                                "status:3\n\r\n"
                                "------ARPC_ExeICScript------\n\r\n"
                                "Txdata:" +
                                std::string(kTxData) +
                                "\n\r\n"
                                "lpic:000000\n\r\n"
                                "ARPC:" +
                                std::string(kResponse) +
                                "\n\r\n"
                                "status:3\n\r\n"
                                "gac2:\n\r\n"
                                "scriptresult:\n\r\n"
                                "iRet:-202\n\r\n"
                                "resmsg:{\n\t\"Scriptresult\":\t\"\",\n\t\"TC\":\t\"\"\n}\n\r\n"
                                "ret:-4\n\r\n");
}

TEST_F(JsonIssuerAnswer, PrintsItsLines) {
    const Printed printed = printed_by(
        [this] { call.run(QAVEN_ARPC_ExeICScript, answer_input("000000", kResponse, "3")); });
    EXPECT_EQ(printed.out, "------QAVEN_ARPC_ExeICScript------\n"
                           "Txdata:" +
                               std::string(kTxData) +
                               "\n"
                               "LpAppData:000000\n"
                               "ARPC:" +
                               std::string(kResponse) +
                               "\n"
                               "Status:3\n"
                               "------ARPC_ExeICScript------\n"
                               "Txdata:" +
                               std::string(kTxData) +
                               "\n"
                               "lpic:000000\n"
                               "ARPC:" +
                               std::string(kResponse) +
                               "\n"
                               "status:3\n"
                               "gac2:\n"
                               "scriptresult:\n"
                               "iRet:-202\n");
}

// --- the transaction log ---

TEST_F(Json, TheTransactionLogIsOneText) {
    expect_select(card, kPrefix, object("9F4D", "0B01"));
    card.expect("80CA9F4F00", "9F4F02 9A03 9000");
    card.expect("00B2015C00", "190422 9000");
    EXPECT_EQ(call.run(QAVEN_GetTxDetail, log_input()), 0);
    EXPECT_EQ(call.resmsg.text(),
              formatted({{"TxDtailRet", "\\u0001*P000Q000R000S006190422T000U000V000W000X000"}}));
    EXPECT_EQ(call.errmsg.text(), kOld);
    EXPECT_FALSE(session::live());
}

TEST_F(Json, ACardWithoutALogAnswersWithZero) {
    card.expect("00A404000E 315041592E5359532E4444463031", "6A82");
    EXPECT_EQ(call.run(QAVEN_GetTxDetail, log_input("")), 0);
    EXPECT_EQ(call.resmsg.text(), formatted({{"TxDtailRet", "0"}}));
}

TEST_F(JsonWithoutCard, TheTransactionLogIsZeroAndTracesItsCode) {
    EXPECT_EQ(call.run(QAVEN_GetTxDetail, log_input()), 0);
    EXPECT_EQ(call.resmsg.text(), formatted({{"TxDtailRet", "0"}}));
    EXPECT_EQ(trace.text(), "------QAVEN_GetTxDetail------\n\r\n"
                            "AIDList:A000000333\n\r\n"
                            "--GetTxDetail--\n\r\n"
                            "AIDList:A000000333\n\r\n"
                            "TxDtailRet:0\n\r\n"
                            "iret:-1\n\r\n"
                            "resmsg:{\n\t\"TxDtailRet\":\t\"0\"\n}\n\r\n"
                            "ret:-1\n\r\n");
}

TEST_F(Json, TheTransactionLogPrintsItsLines) {
    connect();
    card.expect("00A40400 05 A000000333", "6A82");
    const Printed printed = printed_by([this] { call.run(QAVEN_GetTxDetail, log_input()); });
    EXPECT_EQ(without_link_lines(printed.out), "------QAVEN_GetTxDetail------\n"
                                               "AIDList:A000000333\n"
                                               "--GetTxDetail--\n"
                                               "AIDList:A000000333\n"
                                               "TxDtailRet:0\n"
                                               "iret:0\n");
}

// --- input that is not usable ---

struct Entry {
    const char* name;
    JsonCall::EntryPoint function;
    std::vector<std::string> texts; // keys in the order in which they are read
    std::string number;             // the key of a number, if there is one
};

const std::array kEntries{
    Entry{
        "getICCardInfo", QAVEN_getICCardInfo, {"TagList", "AIDList", "aryInput", "isReadArqc"}, ""},
    Entry{"genARQC", QAVEN_genARQC, {"aryInput", "AIDList"}, ""},
    Entry{"ARPC_ExeICScript", QAVEN_ARPC_ExeICScript, {"Txdata", "LpAppData", "ARPC"}, "Status"},
    Entry{"GetTxDetail", QAVEN_GetTxDetail, {"AIDList"}, ""},
};

// A well-formed input but for one key, which has the given value (none: it is missing).
std::string spoiled(const Entry& entry, const std::string& spoiled_key, std::string_view value) {
    std::string json;
    const auto add = [&](const std::string& key, std::string_view good) {
        const std::string_view shown = key == spoiled_key ? value : good;
        if (!shown.empty()) {
            json += (json.empty() ? "{" : ",") + ('"' + key + "\":") + std::string(shown);
        }
    };
    for (const std::string& key : entry.texts) {
        add(key, "\"0\"");
    }
    if (!entry.number.empty()) {
        add(entry.number, "0");
    }
    return json.empty() ? "{}" : json + "}";
}

class JsonInput : public Json {
  protected:
    void expect_refused(const Entry& entry, const char* json) {
        SCOPED_TRACE(testing::Message() << entry.name << ": " << (json != nullptr ? json : "null"));
        trace.clear();
        call.resmsg.set(kOld);
        call.errmsg.set(kOld);
        const Printed printed = printed_by(
            [&] { result = entry.function(json, call.resmsg.get(), call.errmsg.get(), 10, 10); });
        EXPECT_EQ(result, -16);
        EXPECT_EQ(call.resmsg.text(), kOld);
        EXPECT_EQ(call.errmsg.text(), gbk(kIllegalData));
        EXPECT_EQ(printed.out, "");
        EXPECT_THAT(usb.log(), IsEmpty());
        // One line.
        EXPECT_THAT(trace.text(), EndsWith("\r\n"));
        EXPECT_EQ(trace.text().find("\r\n"), trace.text().size() - 2);
    }

    int result = 0;
};

TEST_F(JsonInput, TextThatIsNoJsonObjectIsRefused) {
    for (const Entry& entry : kEntries) {
        for (const char* json :
             {"", " ", "{", "}", "no JSON", "[]", R"([{"AIDList":"0"}])", "1", R"("AIDList")",
              "null", "true", R"({"AIDList":)", "{AIDList:0}", R"({"AIDList":"0")", "\xFF\xFE"}) {
            expect_refused(entry, json);
        }
    }
}

TEST_F(JsonInput, NoTextAtAllIsRefused) {
    for (const Entry& entry : kEntries) {
        expect_refused(entry, nullptr);
    }
}

TEST_F(JsonInput, AMissingKeyIsRefusedAndNamed) {
    for (const Entry& entry : kEntries) {
        for (const std::string& key : entry.texts) {
            expect_refused(entry, spoiled(entry, key, "").c_str());
            EXPECT_THAT(trace.text(), HasSubstr('"' + key + '"'));
        }
    }
    const Entry& answer = kEntries[2];
    expect_refused(answer, spoiled(answer, "Status", "").c_str());
    EXPECT_THAT(trace.text(), HasSubstr("\"Status\""));
}

TEST_F(JsonInput, AValueOfTheWrongTypeIsRefusedAndNamed) {
    for (const Entry& entry : kEntries) {
        for (const std::string& key : entry.texts) {
            for (const char* value : {"0", "null", "true", "[]", "{}", "[\"0\"]"}) {
                expect_refused(entry, spoiled(entry, key, value).c_str());
                EXPECT_THAT(trace.text(), HasSubstr('"' + key + '"'));
            }
        }
    }
    const Entry& answer = kEntries[2];
    for (const char* value : {"\"0\"", "null", "false", "[]", "{}", "0.9", "-0.5", "1e-3",
                              "2147483648", "-2147483649", "1e300", "-1e300"}) {
        expect_refused(answer, spoiled(answer, "Status", value).c_str());
        EXPECT_THAT(trace.text(), HasSubstr("\"Status\""));
    }
}

TEST_F(JsonInput, OfSeveralKeysTheFirstIsNamed) {
    for (const Entry& entry : kEntries) {
        expect_refused(entry, "{}");
        EXPECT_THAT(trace.text(), HasSubstr('"' + entry.texts.front() + '"'));
    }
}

TEST_F(JsonInput, MissingBuffersAreRefusedWithoutAWrite) {
    for (const Entry& entry : kEntries) {
        const std::string json = spoiled(entry, "", "");
        EXPECT_EQ(entry.function(json.c_str(), nullptr, call.errmsg.get(), 0, 0), -16);
        EXPECT_EQ(entry.function(json.c_str(), call.resmsg.get(), nullptr, 0, 0), -16);
        EXPECT_EQ(entry.function(json.c_str(), nullptr, nullptr, 0, 0), -16);
        EXPECT_EQ(entry.function(nullptr, nullptr, nullptr, 0, 0), -16);
    }
    EXPECT_EQ(call.resmsg.text(), kOld);
    EXPECT_EQ(call.errmsg.text(), kOld);
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(JsonInput, FurtherKeysAndAnyOrderAreAccepted) {
    card.expect("00A40400 05 A000000333", "6A82");
    EXPECT_EQ(
        call.run(QAVEN_GetTxDetail, R"( { "more" : [1, {"x": null}], "AIDList" : "A000000333" } )"),
        0);
    EXPECT_EQ(call.resmsg.text(), formatted({{"TxDtailRet", "0"}}));
}

// --- memory that runs out ---

// Lets one allocation of cJSON fail for as long as it lives.
class JsonMemory {
  public:
    explicit JsonMemory(std::size_t failing) {
        left = failing;
        cJSON_Hooks hooks{allocate, std::free};
        cJSON_InitHooks(&hooks);
    }
    ~JsonMemory() { cJSON_InitHooks(nullptr); }
    JsonMemory(const JsonMemory&) = delete;
    JsonMemory& operator=(const JsonMemory&) = delete;

    static bool ran_out() { return left == 0; }

  private:
    static void* allocate(std::size_t size) {
        if (left > 0 && --left == 0) {
            return nullptr;
        }
        return std::malloc(size);
    }

    static std::size_t left;
};

std::size_t JsonMemory::left = 0;

// Every allocation of reading the input and of making the answer fails once.
TEST_F(Json, AnAnswerIsWholeOrNotThere) {
    const auto ended = [this](std::size_t failing) {
        expect_reading(card, {transaction_record()});
        expect_arqc();
        call.resmsg.set(kOld);
        call.errmsg.set(kOld);
        const JsonMemory memory(failing);
        const int result = call.run(QAVEN_getICCardInfo, info_input("true"));
        if (!JsonMemory::ran_out()) {
            EXPECT_EQ(result, 0);
            return true;
        }
        EXPECT_EQ(result, -16) << failing;
        EXPECT_EQ(call.resmsg.text(), kOld) << failing;
        EXPECT_EQ(call.errmsg.text(), gbk(kIllegalData)) << failing;
        EXPECT_FALSE(session::live()) << failing;
        card.take_violations(); // what the card was not asked any more
        return false;
    };
    std::size_t failing = 1;
    while (!ended(failing)) {
        ++failing;
    }
    EXPECT_GT(failing, 20U);
}

TEST_F(Json, AnArqcThatTheHostDoesNotGetEndsTheSession) {
    // The input takes nine allocations; the tenth is the answer's first.
    expect_arqc();
    {
        const JsonMemory memory(10);
        EXPECT_EQ(call.run(QAVEN_genARQC, arqc_input()), -16);
    }
    EXPECT_EQ(call.resmsg.text(), kOld);
    EXPECT_FALSE(session::live());
    EXPECT_FALSE(card.powered());
}

// --- answers of any size ---

TEST_F(Json, ControlBytesOfACardAreEscapedWithinTheBuffer) {
    const std::string control = repeated("01", 255);
    std::vector<std::string> records;
    for (const std::string_view tag : {"9F61", "9F1F", "DF20", "DF21", "DF22", "DF23"}) {
        records.push_back(short_form_object(tag, control));
    }
    records.push_back(short_form_object("5F20", control));
    expect_reading(card, records);
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("false", "A000000333", "BDFLMNO")), 0);
    std::string information;
    for (const char letter : {'B', 'D', 'F', 'L', 'M', 'N', 'O'}) {
        information += letter + std::string("255") + repeated("\\u0001", 255);
    }
    EXPECT_EQ(call.resmsg.text(), formatted({{"IcInfo", information}, {"IcARQC", ""}}));
}

TEST_F(Json, ALogOfControlBytesIsEscapedWithinTheBuffer) {
    expect_select(card, kPrefix, object("9F4D", "0B07"));
    card.expect("80CA9F4F00", "9F4F03 9F4EFA 9000");
    for (int number = 1; number <= 7; ++number) {
        card.expect("00B20" + std::to_string(number) + "5C00", repeated("1F", 250) + "9000");
    }
    EXPECT_EQ(call.run(QAVEN_GetTxDetail, log_input()), 0);
    const std::string record =
        "P000Q000R000S000T000U000V000W250" + repeated("\\u001f", 250) + "X000";
    EXPECT_EQ(call.resmsg.text(),
              formatted({{"TxDtailRet", "\\u0007\\u001e" + repeated(record, 7)}}));
}

TEST_F(Json, TheLargestAnswersOfBothStepsFit) {
    const std::string large = repeated("9A0101", 333);
    std::vector<std::string> records{object("8C", "9A03") + object("5F34", "01"), large, large};
    for (const std::string_view tag : {"5F20", "9F61", "9F1F", "DF20", "DF21", "DF22", "DF23"}) {
        records.push_back(short_form_object(tag, repeated("01", 255)));
    }
    expect_reading(card, records);
    expect_reading(card, records);
    card.expect("80AE8000 03 190422", cryptogram_answer("80", repeated("07", 100)));
    card.expect(kGetLastOnlineAtc, short_form_object("9F13", repeated("0F", 250)) + "9000");
    EXPECT_EQ(call.run(QAVEN_getICCardInfo, info_input("true", "A000000333", "BDFLMNO")), 0);
    EXPECT_GT(call.resmsg.text().size(), 7U * 255U * 6U + 2U * 2017U + 2U * 400U);

    // The whole answer is a JSON text, and its inner one too.
    struct Deleter {
        void operator()(cJSON* tree) const { cJSON_Delete(tree); }
    };
    const std::unique_ptr<cJSON, Deleter> answer(cJSON_Parse(call.resmsg.text().c_str()));
    ASSERT_NE(answer, nullptr);
    EXPECT_THAT(cJSON_GetObjectItem(answer.get(), "IcInfo")->valuestring,
                EndsWith("O255" + repeated("\x01", 255)));
    const std::unique_ptr<cJSON, Deleter> inner(
        cJSON_Parse(cJSON_GetObjectItem(answer.get(), "IcARQC")->valuestring));
    ASSERT_NE(inner, nullptr);
    // The records of control bytes do not fit behind the others.
    EXPECT_THAT(cJSON_GetObjectItem(inner.get(), "LpAppData")->valuestring, StartsWith("002017"));
    EXPECT_THAT(cJSON_GetObjectItem(inner.get(), "ARQC")->valuestring,
                HasSubstr("9F13FA" + repeated("0F", 250) + "9A03190422"));
}

TEST_F(Json, ALongAnswerIsCutInTheTraceLineOnly) {
    const std::string large = repeated("9A0101", 333);
    expect_reading(card, {large, large, repeated("9A0101", 11)});
    EXPECT_EQ(call.run(QAVEN_genARQC, arqc_input()), 0);
    EXPECT_THAT(trace.text(),
                HasSubstr("\r\nresmsg:" + call.resmsg.text().substr(0, 4095 - 7) + "\r\nret:-3\n"));
}

} // namespace
