// The string-parameter wrappers: what they hand on, what they say, how they fold codes.
#include "host/lorim_pboc.h"

#include "console.h"
#include "engine/card/session.h"
#include "host_calls.h"
#include "noted_operations.h"
#include "payment_card.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <list>

namespace session = qaven::session;

using namespace qaven::test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::StartsWith;

namespace {

constexpr std::string_view kReader = "KS  KS4417QX-R 0";
constexpr std::string_view kSlotLine = "81 00 00 00 00 00 01 00 00 00 \n";

// A trace log's text: every line is followed by CR LF.
std::string traced(std::initializer_list<std::string> lines) {
    std::string text;
    for (const std::string& line : lines) {
        text += line + "\r\n";
    }
    return text;
}

std::string reading_trace() {
    return gbk("ZEB_ICC_GetInfo\n\r\n--- 取卡信息 ---\r\n\r\n--- 应用选择 ---\r\n\r\n");
}

class Wrappers : public OperationTest {
  protected:
    int card_information(std::string_view tag_list, std::string_view aid_list) {
        HostText reader(kReader);
        HostText tags(tag_list);
        HostText aids(aid_list);
        return getICCardInfo(reader.get(), tags.get(), aids.get(), info.get());
    }

    int arqc_step(std::string_view tx_data, std::string_view aid_list) {
        HostText reader(kReader);
        HostText data(tx_data);
        HostText aids(aid_list);
        return genARQC(reader.get(), data.get(), aids.get(), lpic.get(), arqc.get(), field60.get());
    }

    int issuer_answer(std::string_view application_data, std::string_view response, int status) {
        HostText data(kTxData);
        HostText card_data(application_data);
        HostText arpc(response);
        return ARPC_ExeICScript(data.get(), card_data.get(), arpc.get(), status,
                                script_result.get(), tc.get());
    }

    int transaction_log(std::string_view aid) {
        HostText reader("");
        HostText aid_text(aid);
        return GetTxDetail(reader.get(), aid_text.get(), detail.get());
    }

    void expect_nothing_selected(std::string_view aid) {
        const std::string length = hex(Bytes{static_cast<std::uint8_t>(aid.size() / 2)});
        card.expect("00A40400" + length + std::string(aid), "6A82");
    }

    HostText info{QAVEN_USERINFO_SIZE, kOld};
    HostText lpic{QAVEN_APPDATA_SIZE, ""};
    HostText arqc{QAVEN_ARQC_SIZE, ""};
    HostText field60{QAVEN_FIELD60_SIZE, ""};
    HostText script_result{QAVEN_SCRIPT_RESULT_SIZE, kOld};
    HostText tc{QAVEN_TC_SIZE, kOld};
    HostText detail{QAVEN_TXDETAIL_SIZE, ""};
};

class WrappersWithoutCard : public OperationTest {
  protected:
    WrappersWithoutCard() : OperationTest(ScriptedCard::kNoSlot) {}
};

// --- card information ---

TEST_F(Wrappers, CardInformationComesFromTheOperation) {
    expect_reading(card, {transaction_record()});
    EXPECT_EQ(card_information("|A|J", "A000000333"), 0);
    EXPECT_EQ(info.text(), "A0196214830123456789012J003001");
    EXPECT_FALSE(session::live());
}

TEST_F(Wrappers, TheDataOfALargeCardHaveABufferOfTheirOwn) {
    expect_reading(card, {repeated("9A0101", 333), repeated("9A0101", 333), transaction_record()});
    EXPECT_EQ(card_information("|A", "A000000333"), 0);
    EXPECT_EQ(info.text(), "A0196214830123456789012");
}

TEST_F(Wrappers, AnEmptyAidListIsOneAttemptWithTheUnionPayPrefix) {
    expect_nothing_selected("A000000333");
    EXPECT_EQ(card_information("A", ""), -23);
    EXPECT_THAT(card.commands(), ElementsAre("00A4040005A000000333"));
    EXPECT_EQ(info.text(), kOld);
}

TEST_F(Wrappers, ALeadingSeparatorTriesThePrefixFirst) {
    expect_reading(card, {transaction_record()});
    EXPECT_EQ(card_information("A", "|A000000333010101|A000000333010102"), 0);
    EXPECT_EQ(card.commands().front(), "00A4040005A000000333");
}

TEST_F(Wrappers, TheNextAidIsTriedOnlyWhenOneSelectsNoSingleApplication) {
    expect_nothing_selected("A000000333");
    expect_nothing_selected("A000000333010101");
    expect_nothing_selected("A000000333010102");
    EXPECT_EQ(card_information("A", "|A000000333010101|A000000333010102"), -23);
    card.verify();

    expect_nothing_selected("A000000333");
    expect_select(card, kAid);
    card.expect("80A80000 02 8300", "6985");
    EXPECT_EQ(card_information("A", "|A000000333010101|A000000333010102"), 0x6985);
}

TEST_F(Wrappers, ATrailingSeparatorTriesThePrefixLast) {
    expect_nothing_selected("A000000333010101");
    expect_reading(card, {transaction_record()});
    EXPECT_EQ(card_information("A", "A000000333010101|"), 0);
    EXPECT_EQ(info.text(), "A0196214830123456789012");
}

TEST_F(Wrappers, EmptyFieldsBetweenSeparatorsTryThePrefixAgain) {
    expect_nothing_selected("A000000333010101");
    expect_nothing_selected("A000000333");
    expect_nothing_selected("A000000333010102");
    EXPECT_EQ(card_information("A", "A000000333010101||A000000333010102"), -23);
}

TEST_F(Wrappers, FieldsAreNotTrimmed) {
    // A blank in front makes another AID of it: no hexadecimal digit, and half a digit too many.
    card.expect("00A40400 05 ??????????", "6A82");
    EXPECT_EQ(card_information("A", " A000000333"), -23);
}

TEST_F(Wrappers, ACardWithoutADirectoryIsZeroAndWritesNothing) {
    card.expect("00A404000E 315041592E5359532E4444463031", "6A82");
    EXPECT_EQ(card_information("A", "0"), 0);
    EXPECT_EQ(info.text(), kOld);
}

TEST_F(Wrappers, CardInformationTracesItsLines) {
    expect_nothing_selected("A000000333");
    EXPECT_EQ(card_information("|A|B", ""), -23);
    EXPECT_EQ(trace.text(), traced({"getICCardInfo\n", "ReaderNameStr:KS  KS4417QX-R 0\n"}) +
                                reading_trace() +
                                traced({"ZEB_ICC_GetInfo ReaderNameStr:KS  KS4417QX-R 0\n",
                                        "TagList:|A|B\n", "iRet:-23\n"}));
}

TEST_F(Wrappers, CardInformationPrintsTheSameLines) {
    expect_nothing_selected("A000000333");
    const Printed printed = printed_by([this] { card_information("|A|B", ""); });
    EXPECT_EQ(without_link_lines(printed.out),
              "getICCardInfo\n"
              "ReaderNameStr:KS  KS4417QX-R 0\n"
              "ZEB_ICC_GetInfo\n" +
                  std::string(kSlotLine) +
                  "ZEB_ICC_GetInfo ReaderNameStr:KS  KS4417QX-R 0\n"
                  "TagList:|A|B\n"
                  "iRet:-23\n");
}

TEST_F(WrappersWithoutCard, NoCardIsMinusOne) {
    HostText info(QAVEN_USERINFO_SIZE, kOld);
    EXPECT_EQ(getICCardInfo("", "A", "|A000000333010101", info.get()), -1);
    EXPECT_THAT(trace.text(), EndsWith("iRet:-1\n\r\n"));
    // No further AID is tried.
    EXPECT_EQ(std::ranges::count(card.events(), "claim 2"), 1);
}

// --- the ARQC step ---

TEST_F(Wrappers, TheArqcStepReadsTheCardAndFillsThreeTexts) {
    expect_reading(card, {transaction_record()});
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    EXPECT_EQ(arqc_step(kTxData, "A000000333"), 0);
    EXPECT_EQ(lpic.text(), transaction_data_text());
    EXPECT_THAT(arqc.text(), StartsWith("9F26081122334455667788"));
    EXPECT_EQ(field60.text(), "\x60\x03"
                              "001");
    EXPECT_TRUE(session::live());
}

TEST_F(Wrappers, TheArqcStepTakesHandedInData) {
    connect();
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    lpic.set(transaction_data_text());
    EXPECT_EQ(arqc_step(kTxData, "A000000333"), 0);
    EXPECT_EQ(lpic.text(), transaction_data_text());
}

TEST_F(Wrappers, TheAidListOfTheArqcStepIsSplitByTheOperation) {
    // Its empty field means the directory, not the prefix.
    card.expect("00A404000E 315041592E5359532E4444463031", "6A82");
    EXPECT_EQ(arqc_step(kTxData, "|A000000333"), -3);
    EXPECT_THAT(trace.text(), HasSubstr("\nAIDList:|A000000333\n\r\n"));
    EXPECT_THAT(trace.text(), EndsWith("iRet:-204\n\r\n"));
}

TEST_F(Wrappers, TheArqcStepTracesItsLines) {
    expect_reading(card, {transaction_record()});
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    EXPECT_EQ(arqc_step(kTxData, "A000000333"), 0);
    const std::string text = trace.text();
    EXPECT_THAT(text,
                StartsWith(traced({"------genARQC------\n", "ReaderNameStr:KS  KS4417QX-R 0\n",
                                   "aryInput:" + std::string(kTxData) + "\n",
                                   "AIDList:A000000333\n", "\r\n --- GenARQC---\r\n"})));
    EXPECT_THAT(text, EndsWith("ARQC=" + arqc.text() + "\n\r\n" +
                               traced({"lpic:" + transaction_data_text() + "\n",
                                       "ARQC:" + arqc.text() + "\n", "Field60:5\n", "iRet:0\n"})));
}

TEST_F(Wrappers, TheArqcStepPrintsTheSameLinesButFieldSixtyAsText) {
    expect_reading(card, {transaction_record()});
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    const Printed printed = printed_by([this] { arqc_step(kTxData, "A000000333"); });
    EXPECT_EQ(without_link_lines(printed.out), "------genARQC------\n"
                                               "ReaderNameStr:KS  KS4417QX-R 0\n"
                                               "aryInput:" +
                                                   std::string(kTxData) +
                                                   "\n"
                                                   "AIDList:A000000333\n"
                                                   "ZEB_ICC_GetInfo\n" +
                                                   std::string(kSlotLine) +
                                                   "lpic:" + transaction_data_text() +
                                                   "\n"
                                                   "ARQC:" +
                                                   arqc.text() +
                                                   "\n"
                                                   "Field60:\x60\x03"
                                                   "001\n"
                                                   "iRet:0\n");
}

TEST_F(Wrappers, AMissingObjectOrCryptogramIsMinusThreeForTheHost) {
    connect();
    lpic.set(application_data_text(object("5A", kPan)));
    EXPECT_EQ(arqc_step(kTxData, ""), -3); // -204
    EXPECT_THAT(trace.text(), EndsWith("iRet:-204\n\r\n"));
    connect();
    card.expect(generate_arqc_command(), cryptogram_answer("00"));
    lpic.set(transaction_data_text());
    EXPECT_EQ(arqc_step(kTxData, ""), -3); // -203
    EXPECT_THAT(trace.text(), EndsWith("iRet:-203\n\r\n"));
}

TEST_F(Wrappers, EmptyDataIsMinusFourForTheHost) {
    connect();
    lpic.set(application_data_text("8C00"));
    EXPECT_EQ(arqc_step(kTxData, ""), -4); // -205
    EXPECT_THAT(trace.text(), EndsWith("iRet:-205\n\r\n"));
}

// --- the issuer's answer ---

constexpr std::string_view kResponse = "910A01020304050607083030";

TEST_F(Wrappers, TheIssuersAnswerFillsBothTexts) {
    connect();
    card.expect("00820000 0A 0102030405060708 3030", "9000");
    card.expect("80AE4000 03 201904", cryptogram_answer("40"));
    card.expect(kGetLastOnlineAtc, "6A88");
    const std::string data = application_data_text(object("8D", "9A03"));
    const std::string response = std::string(kResponse) + "72079F180412345678";
    EXPECT_EQ(issuer_answer(data, response, 0), 0);
    EXPECT_EQ(script_result.text(), "DF31052012345678");
    EXPECT_THAT(tc.text(), StartsWith("9F26081122334455667788"
                                      "9F270140"));
    EXPECT_EQ(trace.text(),
              traced({"------ARPC_ExeICScript------\n", "Txdata:" + std::string(kTxData) + "\n",
                      "lpic:" + data + "\n", "ARPC:" + response + "\n", "status:0\n",
                      "gac2:" + tc.text() + "\n", "scriptresult:" + script_result.text() + "\n",
                      "iRet:0\n"}));
}

TEST_F(Wrappers, TheIssuersAnswerPrintsTheSameLines) {
    connect();
    card.expect("00820000 0A 0102030405060708 3030", "9000");
    card.expect("80AE0000 03 201904", cryptogram_answer("00"));
    const std::string data = application_data_text(object("8D", "9A03"));
    const Printed printed = printed_by([&] { issuer_answer(data, kResponse, -7); });
    EXPECT_EQ(without_link_lines(printed.out), "------ARPC_ExeICScript------\n"
                                               "Txdata:" +
                                                   std::string(kTxData) + "\nlpic:" + data +
                                                   "\nARPC:" + std::string(kResponse) +
                                                   "\nstatus:-7\n"
                                                   "gac2:\n"
                                                   "scriptresult:\n"
                                                   "iRet:0\n");
}

TEST_F(Wrappers, TheStatusReachesTheDecision) {
    for (const int status : {1, -1, 2147483647, -2147483647 - 1}) {
        connect();
        card.expect("00820000 0A 0102030405060708 3030", "9000");
        card.expect("80AE0000 03 201904", cryptogram_answer("00"));
        EXPECT_EQ(issuer_answer(application_data_text(object("8D", "9A03")), kResponse, status), 0);
    }
}

TEST_F(Wrappers, AResponseOfThreeHundredDigitsIsUsedWhole) {
    connect();
    card.expect("00820000 0A 0102030405060708 3030", "6300");
    // Tag 91 stands behind the 250th digit.
    const std::string response = object("9F7F", repeated("00", 0x79)) + std::string(kResponse);
    const std::string filled = response + repeated("00", (300 - response.size()) / 2);
    ASSERT_EQ(filled.size(), 300U);
    ASSERT_EQ(filled.find(kResponse), 248U);
    EXPECT_EQ(issuer_answer(application_data_text(object("8D", "9A03")), filled, 0), 0x6300);
}

TEST_F(Wrappers, CodesOfTheIssuersAnswerAreFolded) {
    connect();
    EXPECT_EQ(issuer_answer("000000", kResponse, 0), -4); // -202
    EXPECT_THAT(trace.text(), EndsWith("iRet:-202\n\r\n"));
    const std::string data = application_data_text(object("8D", "9A03"));
    EXPECT_EQ(issuer_answer(data, "", 0), -4); // -205
    EXPECT_THAT(trace.text(), EndsWith("iRet:-205\n\r\n"));
    EXPECT_EQ(issuer_answer(data, "7200", 0), -4); // -206
    EXPECT_THAT(trace.text(), EndsWith("iRet:-206\n\r\n"));
    card.expect("00820000 0A 0102030405060708 3030", "9000");
    card.expect("80AE4000 03 201904", cryptogram_answer("80"));
    EXPECT_EQ(issuer_answer(data, kResponse, 0), -3); // -203
    EXPECT_THAT(trace.text(), EndsWith("iRet:-203\n\r\n"));
    connect();
    card.expect("00820000 0A 0102030405060708 3030", "9000");
    card.expect("80AE4000 03 201904", "77 02 40 00 9000");
    EXPECT_EQ(issuer_answer(data, kResponse, 0), -207); // stays
    EXPECT_THAT(trace.text(), EndsWith("iRet:-207\n\r\n"));
    // Without a connection.
    EXPECT_EQ(issuer_answer(data, kResponse, 0), -8);
}

// --- the transaction log ---

TEST_F(Wrappers, TheTransactionLogFillsItsText) {
    expect_select(card, kPrefix, object("9F4D", "0B01"));
    card.expect("80CA9F4F00", "9F4F02 9A03 9000");
    card.expect("00B2015C00", "190422 9000");
    EXPECT_EQ(transaction_log("A000000333"), 0);
    const std::string text = "\x01\x2A"
                             "P000Q000R000S006190422T000U000V000W000X000";
    EXPECT_EQ(detail.text(), text);
    EXPECT_EQ(trace.text(), traced({"--GetTxDetail--\n", "AIDList:A000000333\n",
                                    "TxDtailRet:" + text + "\n", "iret:0\n"}));
    EXPECT_FALSE(session::live());
}

TEST_F(Wrappers, TheTransactionLogPrintsTheSameLines) {
    connect();
    expect_nothing_selected("A000000333");
    const Printed printed = printed_by([this] { transaction_log("A000000333"); });
    EXPECT_EQ(without_link_lines(printed.out), "--GetTxDetail--\n"
                                               "AIDList:A000000333\n"
                                               "TxDtailRet:0\n"
                                               "iret:0\n");
}

TEST_F(WrappersWithoutCard, TheTransactionLogOfNoCardIsMinusOne) {
    HostText detail(QAVEN_TXDETAIL_SIZE, "");
    EXPECT_EQ(GetTxDetail("", "A000000333", detail.get()), -1);
    EXPECT_EQ(detail.text(), "0");
    EXPECT_THAT(trace.text(), EndsWith("TxDtailRet:0\n\r\niret:-1\n\r\n"));
}

// --- how the operations are called ---

TEST_F(Wrappers, CardInformationIsCalledWithReaderSlotLettersAndOneAid) {
    expect_nothing_selected("A000000333");
    expect_nothing_selected("A000000333010101");
    EXPECT_EQ(card_information("|A|B", "|A000000333010101"), -23);
    EXPECT_THAT(noted_texts(),
                ElementsAre("", "", kReader, "", "", "", "", "", "3", "|A|B", "A000000333010101"));
}

TEST_F(Wrappers, TheArqcStepIsCalledWithTheWholeAidList) {
    expect_nothing_selected("A000000333");
    expect_nothing_selected("A000000333010101");
    EXPECT_EQ(arqc_step(kTxData, "A000000333|A000000333010101"), -23);
    EXPECT_THAT(noted_texts(), ElementsAre("", "", kReader, "", "", "", "", "", "3", kTxData,
                                           "A000000333|A000000333010101", ""));
}

TEST_F(Wrappers, TheIssuersAnswerIsCalledWithLengthAndStatusInDecimal) {
    connect();
    EXPECT_EQ(issuer_answer("000000", kResponse, -1), -4);
    EXPECT_THAT(noted_texts(), ElementsAre("", "", "", "", "", "", "", "", "3", kTxData, "000000",
                                           "24", kResponse, "-1"));
}

TEST_F(Wrappers, AResponseIsAnnouncedWithTwoHundredFiftyDigitsAtMost) {
    connect();
    const std::array<std::pair<std::size_t, std::string_view>, 5> announced{
        {{0, "0"}, {249, "249"}, {250, "250"}, {251, "250"}, {300, "250"}}};
    for (const auto& [digits, length] : announced) {
        EXPECT_EQ(issuer_answer("000000", repeated("0", digits), 0), -4);
        EXPECT_EQ(noted_texts().at(11), length) << digits;
    }
}

TEST_F(Wrappers, TheTransactionLogIsCalledWithTheAidAsItIs) {
    connect();
    card.expect("00A404000E 315041592E5359532E4444463031", "6A82");
    HostText aid("0|A000000333");
    EXPECT_EQ(GetTxDetail(std::string(kReader).c_str(), aid.get(), detail.get()), 0);
    EXPECT_THAT(noted_texts(),
                ElementsAre("", "", kReader, "", "", "", "", "", "3", "0|A000000333"));
}

// --- what hosts may leave out ---

TEST_F(Wrappers, MissingTextsAreEmptyOnes) {
    expect_nothing_selected("A000000333");
    EXPECT_EQ(getICCardInfo(nullptr, nullptr, nullptr, nullptr), -23);
    card.expect("00A404000E 315041592E5359532E4444463031", "6A82");
    EXPECT_EQ(genARQC(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), -3);
    EXPECT_EQ(ARPC_ExeICScript(nullptr, nullptr, nullptr, 0, nullptr, nullptr), -4);
    card.expect("00A404000E 315041592E5359532E4444463031", "6A82");
    EXPECT_EQ(GetTxDetail(nullptr, nullptr, nullptr), 0);
}

TEST_F(Wrappers, ALongInputIsCutInTheTraceLineOnly) {
    connect();
    card.expect("80AE8000 03 190422", cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    lpic.set(application_data_text(object("8C", "9A03")));
    const std::string input = "S00820190422I999" + repeated("1", 6000);
    const std::string printed = printed_by([&] { arqc_step(input, ""); }).out;
    EXPECT_THAT(printed, HasSubstr("\naryInput:" + input + "\n"));
    const std::string line = "aryInput:" + input;
    EXPECT_THAT(trace.text(), HasSubstr("\r\n" + line.substr(0, 4095) + "\r\nAIDList:\n\r\n"));
}

TEST_F(Wrappers, PercentSignsInAHostsTextAreText) {
    expect_nothing_selected("A000000333");
    HostText info_text(QAVEN_USERINFO_SIZE, "");
    EXPECT_EQ(getICCardInfo("%s%n", "%d", "", info_text.get()), -23);
    EXPECT_THAT(trace.text(), StartsWith(traced({"getICCardInfo\n", "ReaderNameStr:%s%n\n"})));
    EXPECT_THAT(trace.text(), EndsWith(traced({"TagList:%d\n", "iRet:-23\n"})));
}

// --- splitting ---

TEST(SplitIntoFields, KeepsEmptyFields) {
    std::list<std::string> fields;
    EXPECT_EQ(Split("a||b|", fields, '|'), 4);
    EXPECT_THAT(fields, ElementsAre("a", "", "b", ""));
}

TEST(SplitIntoFields, AppendsToTheList) {
    std::list<std::string> fields{"first"};
    EXPECT_EQ(Split("", fields, '|'), 1);
    EXPECT_EQ(Split("|x ", fields, '|'), 2);
    EXPECT_THAT(fields, ElementsAre("first", "", "", "x "));
}

} // namespace
