// The main job with the debit card in slot 2: card information, ARQC, the issuer's answer, TC.
#include "at_the_counter.h"

#include "host/lorim_pboc.h"

#include <array>

using namespace qaven::test;

namespace {

class DebitCard : public AtTheCounter {};

// Objects of the field-55 text that are the same in every transaction of this card at this counter.
const std::vector<ReadObject> kCertainOfField55{
    {"9F27", "80"},
    {"95", "0008006000"},
    {"9A", "190422"},
    {"9C", "03"},
    {"9F02", "000000001213"},
    {"5F2A", "0156"},
    {"5A", "6228000100001234565F"},
    {"5F34", "01"},
    {"82", "7C00"},
    {"9F1A", "0156"},
    {"9F03", "000000000000"},
    {"9F33", "20A100"},
    {"9F63", "30303031303030300000000000000000"},
};

std::vector<std::string> tags_of(const std::vector<ReadObject>& objects) {
    std::vector<std::string> tags;
    tags.reserve(objects.size());
    for (const ReadObject& object : objects) {
        tags.push_back(object.tag);
    }
    return tags;
}

TEST_F(DebitCard, GivesItsCardInformationFieldByField) {
    const auto answer = get_card_information({});
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.errmsg, "");
    EXPECT_EQ(answer.fields, "A0196228000100001234565"
                             "B015TEST/CARDHOLDER"
                             "C00200"
                             "D018110101199001010000"
                             "E0376228000100001234565=30122201234567890"
                             "F0160220000000000000"
                             "G012000000010000"
                             "H012000000100000"
                             "I006301231"
                             "J003001"
                             "K012000000050000"
                             "L009TEST BANK"
                             "M011TEST BRANCH"
                             "N012TEST COUNTER"
                             "O009TEST CARD");
    EXPECT_FALSE(answer.arqc_asked_for);
}

TEST_F(DebitCard, GivesTheFieldsInTableOrderWhateverTheListSays) {
    CardRequest request;
    request.letters = "J|B|A";
    EXPECT_EQ(get_card_information(request).fields,
              "A0196228000100001234565B015TEST/CARDHOLDERJ003001");
}

TEST_F(DebitCard, AnswersInTheJsonThatHostsKnow) {
    CardRequest request;
    request.letters = "J";
    EXPECT_EQ(get_card_information(request).resmsg,
              "{\n\t\"IcInfo\":\t\"J003001\",\n\t\"IcARQC\":\t\"\"\n}");
}

TEST_F(DebitCard, GivesAnArqcThatItsIssuerVerifies) {
    const auto answer = read_and_generate();
    ASSERT_EQ(answer.result, 0);
    ASSERT_TRUE(answer.arqc_asked_for);
    const auto verdict = issuer_.arqc(answer.arqc.field55);
    EXPECT_TRUE(verdict.verified) << verdict.reason;
}

TEST_F(DebitCard, GivesAnArqcForTrueWithASmallAndWithALargeInitialOnly) {
    for (const auto& [word, asked] : std::map<std::string, bool>{{"true", true},
                                                                 {"True", true},
                                                                 {"TRUE", false},
                                                                 {"1", false},
                                                                 {"false", false},
                                                                 {"", false}}) {
        CardRequest request;
        request.arqc = word;
        const auto answer = get_card_information(request);
        EXPECT_EQ(answer.result, 0) << word;
        EXPECT_EQ(answer.arqc_asked_for, asked) << word;
        EXPECT_EQ(issuer_
                      .arqc(answer.arqc.field55.empty() ? "9F2701"
                                                          "00"
                                                        : answer.arqc.field55)
                      .verified,
                  asked)
            << word;
    }
}

TEST_F(DebitCard, GivesField55ObjectByObject) {
    const auto field55 = read_objects(read_and_generate().arqc.field55);
    EXPECT_EQ(tags_of(field55),
              (std::vector<std::string>{"9F26", "9F27", "9F10", "9F37", "9F36", "95", "9F13", "9A",
                                        "9C", "9F02", "5F2A", "5A", "5F34", "82", "9F1A", "9F03",
                                        "9F33", "9F63"}));
    for (const ReadObject& certain : kCertainOfField55) {
        EXPECT_EQ(value_of(field55, certain.tag), certain.value) << certain.tag;
    }
    EXPECT_EQ(value_of(field55, "9F26").size(), 16U);
    EXPECT_EQ(value_of(field55, "9F10").size(), 16U);
    EXPECT_EQ(value_of(field55, "9F37").size(), 8U);
    EXPECT_EQ(value_of(field55, "9F36").size(), 4U);
    EXPECT_EQ(value_of(field55, "9F13").size(), 4U);
}

TEST_F(DebitCard, GivesTheCardSequenceNumberField) {
    EXPECT_EQ(read_and_generate().arqc.field60, "\x60\x03"
                                                "001");
}

TEST_F(DebitCard, GivesItsApplicationDataWithAidAndProfileInFront) {
    const auto text = read_and_generate(kDebit).arqc.application_data;
    const auto data = read_objects(text.substr(6));
    EXPECT_EQ(static_cast<std::size_t>(std::stoi(text.substr(0, 6))), (text.size() - 6) / 2);
    ASSERT_EQ(data.size(), 10U);
    EXPECT_EQ(data[0], (ReadObject{"4F", kDebit}));
    EXPECT_EQ(data[1], (ReadObject{"82", "7C00"}));
    for (std::size_t record = 2; record < data.size(); ++record) {
        EXPECT_EQ(data[record].tag, "70");
    }
    const auto with_cdols = read_objects(data[4].value);
    EXPECT_EQ(value_of(with_cdols, "8D"), "8A029F02069F03069F1A0295055F2A029A039C019F37049F2103");
}

TEST_F(DebitCard, GivesAnotherArqcForASecondTransactionInARow) {
    const auto first = read_and_generate();
    const auto second = read_and_generate();
    ASSERT_EQ(second.result, 0);
    EXPECT_TRUE(issuer_.arqc(first.arqc.field55).verified);
    EXPECT_TRUE(issuer_.arqc(second.arqc.field55).verified);
    EXPECT_NE(value_of(read_objects(first.arqc.field55), "9F36"),
              value_of(read_objects(second.arqc.field55), "9F36"));
}

TEST_F(DebitCard, GivesAnArqcWithoutACardInformationCallBefore) {
    const auto arqc = generate_arqc();
    EXPECT_TRUE(issuer_.arqc(arqc.field55).verified);
    EXPECT_EQ(last_traced("ret"), 0);
}

TEST_F(DebitCard, TakesDefaultsForAnEmptyTransaction) {
    const auto arqc = generate_arqc(kUsualAids, "");
    const auto field55 = read_objects(arqc.field55);
    EXPECT_TRUE(issuer_.arqc(arqc.field55).verified);
    EXPECT_EQ(value_of(field55, "9C"), "33");
    EXPECT_EQ(value_of(field55, "9F02"), "000000000000");
    EXPECT_EQ(value_of(field55, "9F03"), "000000000000");
}

TEST_F(DebitCard, IsUnmaskedByItsIssuerWhenTheAmountWasTamperedWith) {
    std::string field55 = read_and_generate().arqc.field55;
    const auto amount = field55.find("9F0206000000001213");
    ASSERT_NE(amount, std::string::npos);
    field55.replace(amount, 18, "9F0206000000009999");
    const auto verdict = issuer_.arqc(field55);
    EXPECT_FALSE(verdict.verified);
    ASSERT_TRUE(verdict.comparison);
    EXPECT_NE(verdict.comparison->received, verdict.comparison->computed);
}

TEST_F(DebitCard, CompletesATransactionWithATcThatItsIssuerVerifies) {
    const auto arqc = read_and_generate().arqc;
    const auto completion = hand_over(arqc, issuer_.answer(arqc.field55));
    const auto verdict = issuer_.tc(completion.tc);
    EXPECT_TRUE(verdict.verified) << verdict.reason;
    EXPECT_EQ(completion.script_result, "");
    EXPECT_EQ(last_traced("ret"), 0);
}

TEST_F(DebitCard, GivesTheTcObjectByObject) {
    const auto arqc = read_and_generate().arqc;
    const auto tc = read_objects(hand_over(arqc, issuer_.answer(arqc.field55)).tc);
    EXPECT_EQ(tags_of(tc), (std::vector<std::string>{"9F26", "9F27", "9F10", "9F37", "9F36", "95",
                                                     "9F13", "9A", "9C", "9F02", "5F2A", "5A",
                                                     "5F34", "82", "9F1A", "9F03", "9F33"}));
    const auto counter = value_of(read_objects(arqc.field55), "9F36");
    for (const ReadObject& certain : std::vector<ReadObject>{
             {"9F27", "40"},
             {"9F36", counter},
             {"95", "0008006000"},
             {"9F13", counter}, // the issuer was reached in this transaction
             {"9A", "201904"},  // the first six digits of the host's date
             {"9C", "33"},
             {"9F02", "000000000000"},
             {"5F2A", "0156"},
             {"5A", "6228000100001234565F"},
             {"5F34", "01"},
             {"82", "7C00"},
             {"9F1A", "0156"},
             {"9F03", "000000000000"},
             {"9F33", "20A100"},
         }) {
        EXPECT_EQ(value_of(tc, certain.tag), certain.value) << certain.tag;
    }
}

TEST_F(DebitCard, IsUnmaskedByItsIssuerWhenTheTcWasTamperedWith) {
    const auto arqc = read_and_generate().arqc;
    std::string tc = hand_over(arqc, issuer_.answer(arqc.field55)).tc;
    const auto type = tc.find("9C0133");
    ASSERT_NE(type, std::string::npos);
    tc.replace(type, 6, "9C0100");
    EXPECT_FALSE(issuer_.tc(tc).verified);
}

TEST_F(DebitCard, GivesAnArqcThatIsNoTcAndATcThatIsNoArqc) {
    const auto arqc = read_and_generate().arqc;
    const auto completion = hand_over(arqc, issuer_.answer(arqc.field55));
    EXPECT_FALSE(issuer_.tc(arqc.field55).verified);
    EXPECT_FALSE(issuer_.arqc(completion.tc).verified);
}

TEST_F(DebitCard, DoesNotAcceptAStrangersAnswer) {
    const auto arqc = read_and_generate().arqc;
    Reply stranger;
    stranger.genuine_authentication = false;
    const auto completion = hand_over(arqc, issuer_.answer(arqc.field55, stranger));
    EXPECT_EQ(completion.tc, "");
    EXPECT_EQ(last_traced("ret"), 0x6300);
}

TEST_F(DebitCard, IsFoundThroughItsDirectoryAndByItsAid) {
    for (const char* const aids : {"0", "0000", kAnyUnionPay, kDebit, ""}) {
        CardRequest request;
        request.aids = aids;
        request.letters = "A";
        const auto answer = get_card_information(request);
        EXPECT_EQ(answer.result, 0) << aids;
        EXPECT_EQ(answer.fields, "A0196228000100001234565") << aids;
    }
}

TEST_F(DebitCard, NamesTheAidByWhichItWasFound) {
    // An AID of the host's stands as the host gave it, also when it is a prefix only.
    for (const auto& [aids, named] :
         std::map<std::string, std::string>{{"0", kDebit}, {kAnyUnionPay, kAnyUnionPay}}) {
        const auto arqc = generate_arqc(aids);
        ASSERT_FALSE(arqc.empty()) << aids;
        EXPECT_EQ(value_of(read_objects(arqc.application_data.substr(6)), "4F"), named);
    }
}

TEST_F(DebitCard, IsFoundByTheSecondAidWhenTheFirstSelectsNothing) {
    CardRequest request;
    request.aids = std::string(kUnknown) + "|" + kDebit;
    request.letters = "J";
    EXPECT_EQ(get_card_information(request).fields, "J003001");

    EXPECT_TRUE(issuer_.arqc(generate_arqc(request.aids).field55).verified);
}

TEST_F(DebitCard, IsNotFoundByStrangeAids) {
    CardRequest request;
    request.aids = std::string(kUnknown) + "|" + kCredit;
    const auto answer = get_card_information(request);
    EXPECT_EQ(answer.result, QAVEN_NO_APPLICATION);
    EXPECT_EQ(answer.errmsg, gbk("获取IC卡信息失败"));
    EXPECT_EQ(answer.resmsg, "");
    EXPECT_EQ(traced_numbers("iRet"), std::vector<int>{QAVEN_NO_APPLICATION});

    const auto arqc = generate_arqc(request.aids);
    EXPECT_TRUE(arqc.empty());
    EXPECT_EQ(last_traced("ret"), QAVEN_NO_APPLICATION);
}

TEST_F(DebitCard, AnswersTheFixedTestCall) {
    std::array<char, QAVEN_RESMSG_SIZE> resmsg{};
    std::array<char, QAVEN_ERRMSG_SIZE> errmsg{};
    EXPECT_EQ(initDriver(), 0);
    EXPECT_EQ(::Test(nullptr, resmsg.data(), errmsg.data(), 0, 0), 0);
    EXPECT_EQ(deinit(), 0);
    const std::string text = resmsg.data();
    EXPECT_NE(text.find("E0376228"), std::string::npos);
    EXPECT_EQ(text.find("F016"), std::string::npos) << "letter F is not in the fixed input";
    EXPECT_NE(text.find("9F2701"
                        "80"),
              std::string::npos);
}

TEST_F(DebitCard, IsRefusedNothingByAHostWithBadInput) {
    std::array<char, QAVEN_RESMSG_SIZE> resmsg{};
    for (const auto entry_point :
         {QAVEN_getICCardInfo, QAVEN_genARQC, QAVEN_ARPC_ExeICScript, QAVEN_GetTxDetail}) {
        for (const char* const input : {"", "{", "[]", "{}", R"({"AIDList":1})"}) {
            std::array<char, QAVEN_ERRMSG_SIZE> errmsg{};
            EXPECT_EQ(entry_point(input, resmsg.data(), errmsg.data(), 0, 0), QAVEN_ILLEGAL_DATA)
                << input;
            EXPECT_EQ(std::string(errmsg.data()), gbk(" 数据非法         ")) << input;
        }
    }
    EXPECT_EQ(resmsg[0], '\0');
}

} // namespace
