// The ARQC step: field-55 data, field 60, what is missing and what is refused, trace lines.
#include "engine/operation/arqc.h"

#include "console.h"
#include "engine/card/session.h"
#include "engine/data/terminal_data.h"
#include "engine/data/tlv_writer.h"
#include "host_calls.h"
#include "payment_card.h"
#include "tests/support/hex.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <optional>

namespace session = qaven::session;

using namespace qaven::test;
using testing::ElementsAre;
using testing::EndsWith;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;
using testing::StartsWith;

namespace {

// Most tests hand in the data of an earlier reading, so that only the cryptogram commands remain.
class Arqc : public OperationTest {
  protected:
    void SetUp() override { connect(); }

    // One run on application data of these objects, with the card's answers to GENERATE AC and to
    // GET DATA (none: it is never asked).
    int run(std::string_view objects, std::string_view answer,
            std::optional<std::string_view> last_online_atc = "6A88") {
        card.expect(command.empty() ? generate_arqc_command() : command, answer);
        if (last_online_atc) {
            card.expect(kGetLastOnlineAtc, *last_online_atc);
        }
        call.application_data.set(application_data_text(objects));
        const int result = call.run();
        if (result != 0) {
            EXPECT_FALSE(session::live());
        }
        return result;
    }

    // The card knows the second AID of the host's list, is read by it and gives its cryptogram.
    void expect_second_aid_to_select() {
        card.expect("00A40400 05 A000000333", "6A82");
        expect_select(card, kAid);
        expect_options(card, 1);
        expect_records(card, {transaction_record()});
        card.expect(generate_arqc_command(), cryptogram_answer("80"));
        card.expect(kGetLastOnlineAtc, "6A88");
    }

    // The data objects of a list in order, "tag length value" without blanks.
    std::string list() const { return call.arqc.text(); }

    // The list of a card with these objects behind CDOL1, without what leads every list.
    std::string card_part(std::string_view objects) {
        EXPECT_EQ(run(object("8C", kCdol1) + std::string(objects), cryptogram_answer("80")), 0);
        const std::string head = "5F2A020156";
        return list().substr(list().find(head) + head.size());
    }

    GenArqcCall call;
    std::string command; // GENERATE AC, when it is not that of kTxData
};

constexpr std::string_view kTail = "9F1A020156"
                                   "9F0306000000000000"
                                   "9F330320A100";
constexpr std::string_view kNoAip = "82027C00";

// --- the list ---

TEST_F(Arqc, TheListIsCompleteAndInItsOrder) {
    const std::string data = object("4F", kAid) + object("82", "5C00") +
                             object("70", object("5A", kPan) + object("5F34", "01") +
                                              object("8C", kCdol1) + object("9F63", "30313032"));
    EXPECT_EQ(run(data, cryptogram_answer("80"), std::string(kLastOnlineAtc) + "9000"), 0);
    EXPECT_EQ(list(), "9F26081122334455667788"
                      "9F270180"
                      "9F10080701010399000001"
                      "9F3704" +
                          unpredictable_number() +
                          "9F36020012"
                          "95050008006000"
                          "9F1302000F"
                          "9A03190422"
                          "9C0103"
                          "9F0206000000001213"
                          "5F2A020156"
                          "5A0A6214830123456789012F"
                          "5F340101"
                          "82025C00"
                          "9F1A020156"
                          "9F0306000000000000"
                          "9F330320A100"
                          "9F630430313032");
    EXPECT_EQ(call.arqc_length.text(), "119");
    EXPECT_EQ(list().size(), 2U * 119U);
    EXPECT_EQ(call.field60.text(), "\x60\x03"
                                   "001");
    EXPECT_EQ(call.error_text.text(), kOld);
    EXPECT_EQ(call.cell, '?');
}

TEST_F(Arqc, TheHandedInTextStaysAsItIs) {
    EXPECT_EQ(run(transaction_data_hex(), cryptogram_answer("80")), 0);
    EXPECT_EQ(call.application_data.text(), transaction_data_text());
}

TEST_F(Arqc, AnEmptyTransactionGivesDefaultsAndTheCurrentDate) {
    call.tx_data = "";
    command = "80AE8000 20 000000000000 000000000000 0156 0008006000 0156 190422 33 " +
              unpredictable_number() + " 161355";
    EXPECT_EQ(run(object("8C", kCdol1), cryptogram_answer("80")), 0);
    EXPECT_THAT(list(), HasSubstr("9A03190422"
                                  "9C0133"
                                  "9F0206000000000000"
                                  "5F2A020156"));
    EXPECT_THAT(list(), HasSubstr("9F0306000000000000"));
}

TEST_F(Arqc, AShortTransactionGivesItsDateAndTime) {
    call.tx_data = "S006330201U006155840";
    command = "80AE8000 20 000000000000 000000000000 0156 0008006000 0156 330201 33 " +
              unpredictable_number() + " 155840";
    EXPECT_EQ(run(object("8C", kCdol1), cryptogram_answer("80")), 0);
    EXPECT_THAT(list(), HasSubstr("9A03330201"
                                  "9C0133"));
}

TEST_F(Arqc, TheCurrencyOfTheListIsFixedWhateverTheHostSays) {
    call.tx_data = "R0040840";
    command = "80AE8000 20 000000000000 000000000000 0156 0008006000 0840 190422 33 " +
              unpredictable_number() + " 161355";
    EXPECT_EQ(run(object("8C", kCdol1), cryptogram_answer("80")), 0);
    EXPECT_THAT(list(), HasSubstr("5F2A020156"));
    EXPECT_THAT(list(), Not(HasSubstr("0840")));
}

TEST_F(Arqc, TheOtherAmountIsTheHosts) {
    call.tx_data = "Q012000000000099";
    command = "80AE8000 20 000000000000 000000000099 0156 0008006000 0156 190422 33 " +
              unpredictable_number() + " 161355";
    EXPECT_EQ(run(object("8C", kCdol1), cryptogram_answer("80")), 0);
    EXPECT_THAT(list(), HasSubstr("9F0306000000000099"));
    EXPECT_THAT(list(), HasSubstr("9F0206000000000000"));
}

TEST_F(Arqc, TheUnpredictableNumberIsTheOneThatTheCardWasGiven) {
    EXPECT_EQ(run(transaction_data_hex(), cryptogram_answer("80")), 0);
    // 5 bytes of header and 25 of data stand before it.
    constexpr std::size_t kBefore = 5 + 25;
    const std::string sent = card.commands().front().substr(2 * kBefore, 8);
    EXPECT_THAT(list(), HasSubstr("9F3704" + sent));
    EXPECT_EQ(hex(std::span(gRnd).first(4)), sent);
}

TEST_F(Arqc, ACardWithoutIssuerApplicationDataGivesNone) {
    EXPECT_EQ(run(transaction_data_hex(), cryptogram_answer("80", "")), 0);
    EXPECT_THAT(list(), StartsWith("9F26081122334455667788"
                                   "9F270180"
                                   "9F3704"));
    EXPECT_THAT(trace.text(), Not(HasSubstr(gbk("发卡行应用数据"))));
}

TEST_F(Arqc, OneByteOfIssuerApplicationDataIsTaken) {
    EXPECT_EQ(run(transaction_data_hex(), cryptogram_answer("80", "07")), 0);
    EXPECT_THAT(list(), HasSubstr("9F270180"
                                  "9F100107"
                                  "9F3704"));
}

TEST_F(Arqc, TheCryptogramInformationDataIsTakenWhole) {
    EXPECT_EQ(run(transaction_data_hex(), cryptogram_answer("A9")), 0);
    EXPECT_THAT(list(), HasSubstr("9F2701A9"));
}

TEST_F(Arqc, TheLastOnlineAtcIsCopiedAsTheCardReturnsIt) {
    EXPECT_EQ(run(transaction_data_hex(), cryptogram_answer("80"), "DF55 03 010203 9000"), 0);
    EXPECT_THAT(list(), HasSubstr("95050008006000"
                                  "DF5503010203"
                                  "9A03"));
    EXPECT_THAT(trace.text(), Not(HasSubstr(gbk("终端验证结果"))));
}

TEST_F(Arqc, ARefusedLastOnlineAtcIsZero) {
    EXPECT_EQ(run(transaction_data_hex(), cryptogram_answer("80"), "6A88"), 0);
    EXPECT_THAT(list(), HasSubstr("95050008006000"
                                  "9F13020000"
                                  "9A03"));
    EXPECT_THAT(trace.text(), HasSubstr("\r\n" + gbk("终端验证结果") + "\r\n"));
}

TEST_F(Arqc, AbsentCardObjectsAreLeftOut) {
    EXPECT_EQ(card_part(""), std::string(kNoAip) + std::string(kTail));
    EXPECT_EQ(call.field60.text(), kOld);
}

TEST_F(Arqc, TheInterchangeProfileIsAlwaysAnnouncedAsTwoBytes) {
    EXPECT_EQ(card_part(object("82", "7C00AA")), "82027C00AA" + std::string(kTail));
    card.clear_events();
    EXPECT_EQ(card_part(object("82", "5C")), "82025C" + std::string(kTail));
}

TEST_F(Arqc, TheSequenceNumberBuildsFieldSixty) {
    EXPECT_EQ(card_part(object("5F34", "FF")),
              "5F3401FF" + std::string(kNoAip) + std::string(kTail));
    EXPECT_EQ(call.field60.text(), "\x60\x03"
                                   "0ff");
    EXPECT_EQ(card_part(object("5F34", "1A2B")),
              "5F34021A2B" + std::string(kNoAip) + std::string(kTail));
    EXPECT_EQ(call.field60.text(), "\x60\x03"
                                   "01a");
}

TEST_F(Arqc, AnEmptySequenceNumberIsZeroInField60) {
    EXPECT_EQ(card_part(object("5F34", "")), "5F3400" + std::string(kNoAip) + std::string(kTail));
    EXPECT_EQ(call.field60.text(), "\x60\x03"
                                   "000");
}

TEST_F(Arqc, AListOfLessThanAHundredBytesHasItsLengthInThreeDigits) {
    EXPECT_EQ(run(object("8C", kCdol1), cryptogram_answer("80", "")), 0);
    EXPECT_EQ(list().size(), 2U * 85U);
    EXPECT_EQ(call.arqc_length.text(), "085");
}

TEST_F(Arqc, HandedInDigitsMayBeSmall) {
    card.expect("80AE8000 03 190422", cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    call.application_data.set("000008"
                              "8c029a03"
                              "5f3401af");
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(list(), HasSubstr("5F3401AF"));
}

TEST(OnlineList, AValueOf255BytesIsTheLongest) {
    const Bytes longest = bytes(repeated("9A", 255));
    const Bytes too_long = bytes(repeated("9A", 256));
    std::array<unsigned char, 511> place{};
    qaven::tlv::Writer list(place);
    list.append(qaven::Tag{0x57}, longest);
    list.append(qaven::Tag{0x58}, too_long);
    EXPECT_EQ(hex(list.written()), "57FF" + hex(longest));
}

TEST_F(Arqc, TheCardIsGivenTheHostsTextAndTheLogTheCompletedOne) {
    EXPECT_EQ(run(transaction_data_hex(), cryptogram_answer("80")), 0);
    EXPECT_THAT(
        trace.text(),
        HasSubstr(gbk("补全的交易数据：tmptransdata:P012000000000000Q012000000000000R0040156"
                      "S006190422T00233U006161355V020LURO CNT 0328")));
}

// --- reading first ---

TEST_F(Arqc, AnEmptyTextMeansThatTheCardIsRead) {
    expect_reading(card, {transaction_record()});
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.application_data.text(), transaction_data_text());
    EXPECT_EQ(call.field60.text(), "\x60\x03"
                                   "001");
}

TEST_F(Arqc, EveryAidIsTriedUntilOneSelects) {
    expect_second_aid_to_select();
    call.aid_list = "A000000333|A000000333010101|A000000333010102";
    EXPECT_EQ(call.run(), 0);
    EXPECT_THAT(call.application_data.text(), HasSubstr("4F08A000000333010101"));
}

TEST_F(Arqc, EveryAidIsTriedWhateverTheSelectionMode) {
    for (const char* const mode : {"0", "", "no number"}) {
        expect_second_aid_to_select();
        call.aid_list = "A000000333|A000000333010101";
        call.selection_mode = mode;
        call.application_data.set("");
        EXPECT_EQ(call.run(), 0) << mode;
    }
}

TEST_F(Arqc, AnEmptyFieldOfTheListSelectsThroughTheDirectory) {
    expect_directory(card);
    expect_options(card, 1);
    expect_records(card, {transaction_record()});
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    call.aid_list = "|A000000333010102";
    EXPECT_EQ(call.run(), 0);
}

TEST_F(Arqc, ACodeOtherThanMinusTwentyThreeEndsTheList) {
    expect_select(card);
    card.expect("80A80000 02 8300", object("77", object("82", "7C00")) + "9000");
    call.aid_list = "A000000333|A000000333010102";
    EXPECT_EQ(call.run(), -1);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有配置参数     "));
}

TEST_F(Arqc, WithoutAnyApplicationTheLastResultStands) {
    card.expect("00A40400 05 A000000333", "6A82");
    card.expect("00A40400 05 A000000334", "6A82");
    call.aid_list = "A000000333|A000000334";
    EXPECT_EQ(call.run(), -23);
    EXPECT_EQ(call.error_text.text(), "");
    EXPECT_EQ(call.arqc.text(), kOld);
    EXPECT_EQ(call.application_data.text(), "000000");
}

TEST_F(Arqc, ACardWithoutADirectoryHasNoCdol) {
    // The reading step's result is the count of its applications, 0, so the step goes on.
    card.expect("00A404000E 315041592E5359532E4444463031", "6A82");
    call.aid_list = "";
    EXPECT_EQ(call.run(), -204);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有找到标签     "));
    EXPECT_FALSE(session::live());
}

// --- failures ---

TEST_F(Arqc, WithoutCdolNothingIsSent) {
    call.application_data.set(application_data_text(object("5A", kPan)));
    EXPECT_EQ(call.run(), -204);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有找到标签     "));
    EXPECT_THAT(card.commands(), IsEmpty());
    EXPECT_THAT(trace.text(), EndsWith("ireturn:-204\n\r\n"));
    EXPECT_THAT(card.events(), ElementsAre("power off", "close"));
    EXPECT_EQ(call.arqc.text(), kOld);
    EXPECT_EQ(call.arqc_length.text(), kOld);
}

TEST_F(Arqc, AnEmptyCdolIsEmptyData) {
    call.application_data.set(application_data_text("8C00"));
    EXPECT_EQ(call.run(), -205);
    EXPECT_EQ(call.error_text.text(), gbk(" 空数据或非法数据 "));
    EXPECT_THAT(card.commands(), IsEmpty());
    EXPECT_THAT(trace.text(), EndsWith("CDOL1:0\n\r\nCDOL1len:0\n\r\nireturn:-205\n\r\n"));
}

TEST_F(Arqc, ACdolThatEndsInsideAnEntryLacksATag) {
    call.application_data.set(application_data_text(object("8C", "9F02069F")));
    EXPECT_EQ(call.run(), -204);
    EXPECT_THAT(trace.text(), EndsWith("ireturn:-204\n\r\n"));
    EXPECT_THAT(card.commands(), IsEmpty());
}

TEST_F(Arqc, ACdolThatAsksForMoreThanACommandCarriesSendsNothing) {
    call.application_data.set(application_data_text(object("8C", "9F02FE9A02")));
    EXPECT_EQ(call.run(), -205);
    EXPECT_THAT(card.commands(), IsEmpty());
    EXPECT_FALSE(session::live());
}

TEST_F(Arqc, ACdolThatAsksForAllThatACommandCarriesIsAnswered) {
    // The amount is right-aligned in its 252 bytes.
    command = "80AE8000FF" + repeated("00", 246) + "000000001213" + "190422";
    EXPECT_EQ(run(object("8C", "9F02FC9A03"), cryptogram_answer("80")), 0);
}

TEST_F(Arqc, ARefusedCommandIsTheResult) {
    EXPECT_EQ(run(transaction_data_hex(), "6985", std::nullopt), 0x6985);
    EXPECT_EQ(call.error_text.text(), "");
    EXPECT_THAT(trace.text(), EndsWith("qmcx_GenerateAC ireturn:27013\n\r\n"));
    EXPECT_EQ(call.arqc.text(), kOld);
}

TEST_F(Arqc, AReaderThatFallsSilentIsTheResult) {
    card.expect_silence(generate_arqc_command());
    call.application_data.set(transaction_data_text());
    EXPECT_EQ(call.run(), LIBUSB_ERROR_TIMEOUT);
    EXPECT_EQ(call.error_text.text(), gbk(" 等待响应超时     "));
    EXPECT_THAT(trace.text(), EndsWith("qmcx_GenerateAC ireturn:-7\n\r\n"));
    EXPECT_FALSE(session::live());
}

TEST_F(Arqc, AnyOtherCryptogramIsNoneThatWasAskedFor) {
    const std::array<std::pair<std::string_view, std::string>, 3> kinds{
        {{"00", "00"}, {"41", "40"}, {"C8", "C0"}}};
    for (const auto& [cid, masked] : kinds) {
        connect();
        trace.clear();
        call.error_text.set(kOld);
        EXPECT_EQ(run(transaction_data_hex(), cryptogram_answer(cid), std::nullopt), -203);
        EXPECT_EQ(call.error_text.text(), gbk(" 没有生成TC  \t "));
        EXPECT_THAT(trace.text(),
                    EndsWith("qmcx_GenerateAC ireturn:0\n\r\n" +
                             gbk("产生ARQC失败（密文不为0x80)! temp返回是") + masked + "\n\r\n"));
        EXPECT_EQ(call.arqc.text(), kOld);
        EXPECT_EQ(call.field60.text(), kOld);
    }
}

TEST_F(Arqc, AResponseOfFormatTwoIsRefused) {
    // Its third byte is the first one of tag 9F27, which reads as an ARQC; template 80 is missing.
    EXPECT_EQ(run(transaction_data_hex(),
                  object("77", "9F270180 9F36020012 9F26081122334455667788") + "9000",
                  std::nullopt),
              -204);
    EXPECT_EQ(call.error_text.text(), gbk(" 没有找到标签     "));
    EXPECT_THAT(trace.text(), EndsWith("ErrMsg:" + gbk(" 没有找到标签     ") + "\n\r\n"));
    // One whose third byte reads as a TC.
    connect();
    EXPECT_EQ(run(transaction_data_hex(), object("77", "5F360100 9F270180") + "9000", std::nullopt),
              -203);
}

TEST_F(Arqc, AnEmptyResponseIsNoCryptogram) {
    EXPECT_EQ(run(transaction_data_hex(), "9000", std::nullopt), -203);
    EXPECT_THAT(trace.text(), HasSubstr(gbk("temp返回是") + "00\n"));
}

TEST_F(Arqc, AResponseThatIsTooShortIsReadAsZeros) {
    EXPECT_EQ(run(transaction_data_hex(), "80 04 80 0012 11 9000"), 0);
    EXPECT_THAT(list(), StartsWith("9F26081100000000000000"
                                   "9F270180"
                                   "9F3704"));
    EXPECT_THAT(list(), HasSubstr("9F36020012"));
}

TEST_F(Arqc, WhatTheHostDoesNotPassIsNotNeeded) {
    card.expect("80AE8000 03 190422", cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    HostText data(application_data_text(object("8C", "9A03") + object("5F34", "01")));
    EXPECT_EQ(ZEB_ICC_GenARQC(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                              nullptr, nullptr, nullptr, nullptr, data.get(), nullptr, nullptr,
                              nullptr, nullptr, nullptr),
              0);
}

// --- the application data text ---

TEST_F(Arqc, ACountThatExceedsTheDigitsIsCutToThem) {
    card.expect("80AE8000 03 190422", cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    call.application_data.set("009999" + object("8C", "9A03") + object("5F34", "02"));
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.field60.text(), "\x60\x03"
                                   "002");
    EXPECT_THAT(trace.text(), HasSubstr("\r\nappdatalen:8\n\r\nappdata:8\n\r\n"));
}

TEST_F(Arqc, ACountBelowTheDigitsCutsThem) {
    card.expect("80AE8000 03 190422", cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    call.application_data.set("000004" + object("8C", "9A03") + object("5F34", "02"));
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(call.field60.text(), kOld);
}

TEST_F(Arqc, AUselessApplicationDataTextHasNoCdol) {
    for (const std::string_view text :
         {"0", "-00010",
          "-0000"
          "18C029A03",
          "zzzzzz", "000004", "0000048C", "000004xyz8C029A03", "999999",
          "000000"
          "8C029A03"}) {
        connect();
        call.application_data.set(text);
        EXPECT_EQ(call.run(), -204) << text;
    }
    EXPECT_THAT(card.commands(), IsEmpty());
}

// --- trace lines ---

TEST_F(Arqc, TracesEveryStep) {
    const std::string record = transaction_record();
    expect_reading(card, {record});
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, std::string(kLastOnlineAtc) + "9000");
    EXPECT_EQ(call.run(), 0);
    const std::string data(kTxData);
    // The merchant's 13 characters and the first of the zeros behind them.
    const std::string completed = "P012000000000000Q012000000000000R0040156S006190422T00233"
                                  "U006161355V020LURO CNT 0328";
    EXPECT_EQ(trace.text(), gbk("\r\n --- GenARQC---\r\n\r\n"
                                "输入的查询数据[ASCII]：lpicappdata:\n\r\n"
                                "输入的交易数据[ASCII]TxData:" +
                                data +
                                "\n\r\n"
                                "ZEB_ICC_GetInfo\n\r\n"
                                "--- 取卡信息 ---\r\n\r\n"
                                "--- 应用选择 ---\r\n\r\n"
                                "\r\n --- GetTransData---\r\n\r\n"
                                "补全的交易数据：tmptransdata:" +
                                completed +
                                "\n\r\n"
                                "\r\n --- 查找CDOL1之前的读应用返回数据---\r\n\r\n"
                                "appdatalen:" +
                                std::to_string(transaction_data_hex().size() / 2) +
                                "\n\r\n"
                                "appdata:" +
                                std::to_string(transaction_data_hex().size() / 2) +
                                "\n\r\n"
                                "CDOL1:24\n\r\n"
                                "CDOL1len:24\n\r\n"
                                "DOL:32\n\r\n"
                                "DOLlen:32\n\r\n"
                                "qmcx_GenerateAC ireturn:0\n\r\n"
                                "发卡行应用数据\r\n"
                                "卡产品标识 qmcx_gettagvalue ireturn:-204\n\r\n"
                                "\nARQC长度:ARQCLen=" +
                                call.arqc_length.text() +
                                "\n\r\n"
                                "icARQClen:icARQClen=" +
                                std::to_string(list().size()) +
                                "\n\r\n"
                                "ARQC数据:ARQC=" +
                                list() + "\n\r\n"));
}

TEST_F(Arqc, TracesEveryDefault) {
    call.tx_data = "";
    command = "80AE8000 03 190422";
    EXPECT_EQ(run(object("8C", "9A03") + object("9F63", "31"), cryptogram_answer("80", "")), 0);
    const std::string text = trace.text();
    EXPECT_THAT(text, HasSubstr(gbk("qmcx_GenerateAC ireturn:0\n\r\n"
                                    "终端验证结果\r\n"
                                    "交易类型\r\n"
                                    "授权金额\r\n"
                                    "卡产品标识 qmcx_gettagvalue ireturn:0\n\r\n"
                                    "\nARQC长度:ARQCLen=")));
}

TEST_F(Arqc, TracesTheHandedInData) {
    EXPECT_EQ(run(transaction_data_hex(), cryptogram_answer("80")), 0);
    EXPECT_THAT(trace.text(), StartsWith(gbk("\r\n --- GenARQC---\r\n\r\n"
                                             "输入的查询数据[ASCII]：lpicappdata:" +
                                             transaction_data_text() +
                                             "\n\r\n输入的交易数据[ASCII]TxData:P0120000")));
}

TEST_F(Arqc, PrintsTheCryptogramCommandOnly) {
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    call.application_data.set(transaction_data_text());
    const Printed printed = printed_by([this] { call.run(); });
    EXPECT_EQ(without_link_lines(printed.out), "");
    EXPECT_THAT(printed.out, StartsWith("i come\n"));
    EXPECT_THAT(printed.out, HasSubstr("i comeback\n"));
}

// --- cards and hosts that say too much ---

TEST_F(Arqc, AnObjectThatDoesNotFitIsLeftOut) {
    // 240 bytes of issuer application data, a PAN of 255 bytes: together past 511.
    const std::string iad = repeated("07", 240);
    const std::string data = object("8C", "9A03") + short_form_object("5A", repeated("62", 255)) +
                             object("5F34", "01") + object("9F63", repeated("31", 100)) +
                             object("82", "5C00");
    command = "80AE8000 03 190422";
    EXPECT_EQ(run(data, "80 FB 80 0012" + std::string(kCryptogram) + iad + "9000"), 0);
    EXPECT_THAT(list(), HasSubstr("9F10F0" + iad + "9F3704"));
    EXPECT_THAT(list(), Not(HasSubstr("5AFF")));
    EXPECT_THAT(list(), HasSubstr("5F2A020156"
                                  "5F340101"
                                  "82025C00"));
    EXPECT_THAT(list(), EndsWith("9F6364" + repeated("31", 100)));
    EXPECT_LE(list().size(), 2U * 511U);
    EXPECT_EQ(call.arqc_length.text(), std::to_string(list().size() / 2));
}

TEST_F(Arqc, AListOfTheLargestSizeIsWhole) {
    command = "80AE8000 03 190422";
    // Without 9F63 the list has 326 bytes; three are for its head.
    const std::string iad = repeated("07", 238);
    const std::string answer = "80 F9 80 0012" + std::string(kCryptogram) + iad + "9000";
    for (const std::size_t size : {182U, 183U}) {
        connect();
        EXPECT_EQ(
            run(object("8C", "9A03") + short_form_object("9F63", repeated("31", size)), answer), 0);
        const bool fits = size == 182;
        EXPECT_EQ(call.arqc_length.text(), fits ? "511" : "326");
        EXPECT_EQ(list().size(), 2U * (fits ? 511U : 326U));
    }
}

TEST_F(Arqc, AValueOfTwoHundredFiftySixBytesHasNoLengthByteAndIsLeftOut) {
    command = "80AE8000 03 190422";
    EXPECT_EQ(run(object("8C", "9A03") + "5A820100" + repeated("62", 256), cryptogram_answer("80")),
              0);
    EXPECT_THAT(list(), HasSubstr("5F2A020156" + std::string(kNoAip)));
}

TEST_F(Arqc, ALongTransactionStringIsCutToItsBuffer) {
    call.tx_data = "V900" + repeated("A", 900) + repeated("I00211", 500) + "P012000000001213V999" +
                   repeated("B", 5000);
    command = "80AE8000 14 " + repeated("41", 20);
    EXPECT_EQ(run(object("8C", "9F4E14"), cryptogram_answer("80")), 0);
    // The amount stands behind the 1024 bytes that are converted.
    EXPECT_THAT(list(), HasSubstr("9F0206000000000000"));
}

TEST_F(Arqc, ALongTraceLineIsCutAndStillEnded) {
    call.tx_data = "I999" + repeated("1", 6000);
    command = "80AE8000 03 190422";
    EXPECT_EQ(run(object("8C", "9A03"), cryptogram_answer("80")), 0);
    const std::string start = gbk("输入的交易数据[ASCII]TxData:I999");
    const std::string line = start + repeated("1", 4095 - start.size()) + "\r\n";
    EXPECT_THAT(trace.text(), HasSubstr("\n\r\n" + line + "\r\n --- GetTransData---\r\n"));
}

TEST_F(Arqc, AVeryLongAidListIsTried) {
    const int count = 40;
    for (int k = 0; k < count; ++k) {
        card.expect("00A40400 10" + repeated("A1", 16), "6A82");
    }
    call.aid_list = repeated("A1", 300);
    for (int k = 1; k < count; ++k) {
        call.aid_list += "|" + repeated("A1", 300);
    }
    EXPECT_EQ(call.run(), -23);
}

} // namespace
