// Other cards than the debit card of the book.
#include "at_the_counter.h"

using namespace qaven::test;

namespace {

constexpr const char* kThroughDirectory = "0";

std::string card_number(const std::string& aids) {
    CardRequest request;
    request.aids = aids;
    request.letters = "A";
    const auto answer = get_card_information(request);
    EXPECT_EQ(answer.result, 0) << aids;
    return letter_fields(answer.fields)['A'];
}

constexpr const char* kDebitNumber = "6228000100001234565";
constexpr const char* kCreditNumber = "6228000200006545";

class OneOfTheseCards : public AtTheCounter {
  protected:
    // From card information to a TC that the issuer verifies.
    static void expect_whole_transaction(const IssuerDesk& issuer, const std::string& aids) {
        const auto answer = read_and_generate(aids);
        ASSERT_EQ(answer.result, 0);
        const auto verdict = issuer.arqc(answer.arqc.field55);
        EXPECT_TRUE(verdict.verified) << verdict.reason;
        const auto completion = hand_over(answer.arqc, issuer.answer(answer.arqc.field55));
        const auto tc = issuer.tc(completion.tc);
        EXPECT_TRUE(tc.verified) << tc.reason;
    }

    static void expect_no_application(const std::string& aids) {
        CardRequest request;
        request.aids = aids;
        const auto answer = get_card_information(request);
        EXPECT_EQ(answer.result, QAVEN_NO_APPLICATION) << aids;
        EXPECT_EQ(answer.errmsg, gbk("获取IC卡信息失败")) << aids;
    }
};

class CreditCard : public OneOfTheseCards {};

TEST_F(CreditCard, IsFoundByTheUsualAids) {
    expect_whole_transaction(IssuerDesk("credit"), kUsualAids);
}

TEST_F(CreditCard, HasNoElectronicCash) {
    CardRequest request;
    request.letters = "AGHIK";
    EXPECT_EQ(get_card_information(request).fields,
              std::string("A016") + kCreditNumber + "G000H000I006291130K000");
}

TEST_F(CreditCard, HasNoLoadLog) {
    EXPECT_EQ(load_log(kCredit, -1).result, QAVEN_NO_LOAD_LOG);
}

class CardWithoutDirectory : public OneOfTheseCards {};

TEST_F(CardWithoutDirectory, IsFoundByAid) {
    EXPECT_EQ(card_number(kUsualAids), kDebitNumber);
    expect_whole_transaction(IssuerDesk("no-pse"), kDebit);
}

TEST_F(CardWithoutDirectory, IsNoErrorWhenTheDirectoryIsAskedFor) {
    CardRequest request;
    request.aids = kThroughDirectory;
    const auto answer = get_card_information(request);
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.fields, "");
}

// In the ARQC step an empty AID stands for the directory, and a card without one ends the list.
TEST_F(CardWithoutDirectory, GivesNoArqcForAListThatBeginsWithAnEmptyAid) {
    for (const char* const aids : {kThroughDirectory, kUsualAids}) {
        const auto answer = read_and_generate(aids);
        EXPECT_EQ(answer.result, QAVEN_NO_CRYPTOGRAM) << aids;
        EXPECT_EQ(answer.errmsg, gbk("获取ARQC失败")) << aids;
        EXPECT_EQ(answer.resmsg, "") << aids;
        EXPECT_EQ(reader_state(), ReaderState::kFreeCardOff) << aids;
    }
}

TEST_F(CardWithoutDirectory, GivesItsLogByAidOnly) {
    EXPECT_EQ(transaction_log(kThroughDirectory), "0");
    EXPECT_NE(transaction_log(kDebit).find("TEST KIOSK"), std::string::npos);
}

class CardWithTwoApplications : public OneOfTheseCards {};

TEST_F(CardWithTwoApplications, GivesTheOneThatIsNamed) {
    EXPECT_EQ(card_number(kDebit), kDebitNumber);
    EXPECT_EQ(card_number(kCredit), kCreditNumber);
}

TEST_F(CardWithTwoApplications, GivesItsFirstOneForAPrefixAndForTheDirectory) {
    EXPECT_EQ(card_number(kUsualAids), kDebitNumber);
    EXPECT_EQ(card_number(kAnyUnionPay), kDebitNumber);
    EXPECT_EQ(card_number(kThroughDirectory), kDebitNumber);
}

TEST_F(CardWithTwoApplications, CompletesATransactionWithEither) {
    const IssuerDesk issuer("two-applications");
    expect_whole_transaction(issuer, kDebit);
    expect_whole_transaction(issuer, kCredit);
}

class CardWithItsDebitApplicationBlocked : public OneOfTheseCards {};

TEST_F(CardWithItsDebitApplicationBlocked, GivesItsCreditApplicationAtTheThirdAttempt) {
    EXPECT_EQ(card_number(kUsualAids), kCreditNumber);

    const auto aids = std::string(kAnyUnionPay) + "|" + kDebit + "|" + kCredit;
    const auto answer = read_and_generate(aids);
    ASSERT_EQ(answer.result, 0);
    EXPECT_EQ(letter_fields(answer.fields)['A'], kCreditNumber);
    EXPECT_TRUE(IssuerDesk("blocked").arqc(answer.arqc.field55).verified);
}

TEST_F(CardWithItsDebitApplicationBlocked, GivesNothingToWhoKnowsDebitOnly) {
    expect_no_application(kDebit);
    expect_no_application(kAnyUnionPay);
}

TEST_F(CardWithItsDebitApplicationBlocked, SaysWhyThroughTheDirectory) {
    CardRequest request;
    request.aids = kThroughDirectory;
    const auto answer = get_card_information(request);
    EXPECT_EQ(answer.result, 0x6985);
    EXPECT_EQ(answer.errmsg, gbk("获取IC卡信息失败"));
}

class CardBlockedForGood : public OneOfTheseCards {};

TEST_F(CardBlockedForGood, HasNoApplicationAndNoLog) {
    expect_no_application(kUsualAids);
    EXPECT_EQ(transaction_log(kDebit), "0");
    EXPECT_EQ(load_log(kDebit, 0).result, 0x6A81);
}

class CardThatWaitsForGetResponse : public OneOfTheseCards {};

TEST_F(CardThatWaitsForGetResponse, CompletesATransaction) {
    expect_whole_transaction(IssuerDesk("get-response"), kUsualAids);
}

TEST_F(CardThatWaitsForGetResponse, IsReadLikeAnyOther) {
    CardRequest request;
    request.aids = kThroughDirectory;
    EXPECT_EQ(letter_fields(get_card_information(request).fields)['G'], "000000010000");
    EXPECT_NE(transaction_log(kDebit).find("TEST KIOSK"), std::string::npos);
    EXPECT_NE(load_log(kDebit, -1).text.find("TEST BRANCH"), std::string::npos);
}

TEST_F(CardThatWaitsForGetResponse, RunsAScript) {
    const auto arqc = read_and_generate().arqc;
    Reply reply;
    reply.script = {"put-data=9F79:000000020000"};
    EXPECT_EQ(hand_over(arqc, issuer_.answer(arqc.field55, reply)).script_result,
              "DF31052012345678");
}

class CardWithDirectoryInDirectory : public OneOfTheseCards {};

TEST_F(CardWithDirectoryInDirectory, IsFoundThroughBoth) {
    EXPECT_EQ(card_number(kThroughDirectory), kCreditNumber);
    expect_whole_transaction(IssuerDesk("ddf"), kThroughDirectory);
}

class CardOfFormatTwo : public OneOfTheseCards {};

TEST_F(CardOfFormatTwo, IsRefused) {
    const auto answer = get_card_information({});
    EXPECT_EQ(answer.result, -1);
    EXPECT_EQ(answer.errmsg, gbk("获取IC卡信息失败"));
    EXPECT_EQ(answer.resmsg, "");
}

class CryptogramOfFormatTwo : public OneOfTheseCards {};

TEST_F(CryptogramOfFormatTwo, IsRefusedAfterTheCardInformation) {
    const auto answer = read_and_generate();
    EXPECT_EQ(last_traced("iRet"), -204);
    EXPECT_EQ(answer.result, QAVEN_NO_CRYPTOGRAM);
    EXPECT_EQ(answer.errmsg, gbk("获取ARQC失败"));
    EXPECT_EQ(reader_state(), ReaderState::kFreeCardOff);
}

class CardThatDeclines : public OneOfTheseCards {};

TEST_F(CardThatDeclines, GivesCardInformationButNoArqc) {
    EXPECT_EQ(card_number(kUsualAids), kDebitNumber);
    const auto answer = read_and_generate();
    EXPECT_EQ(last_traced("iRet"), -203);
    EXPECT_EQ(answer.result, QAVEN_NO_CRYPTOGRAM);
    EXPECT_EQ(answer.errmsg, gbk("获取ARQC失败"));
    EXPECT_NE(trace_text().find(gbk("产生ARQC失败（密文不为0x80)! temp返回是00\n")),
              std::string::npos);
    EXPECT_EQ(reader_state(), ReaderState::kFreeCardOff);
}

TEST_F(CardThatDeclines, LeavesTheArqcStepWithItsDataOnly) {
    const auto arqc = generate_arqc();
    EXPECT_TRUE(arqc.empty());
    EXPECT_NE(arqc.application_data.find(kDebitNumber), std::string::npos);
    EXPECT_EQ(last_traced("ret"), QAVEN_NO_CRYPTOGRAM);
}

class CardWithSmAlgorithms : public OneOfTheseCards {
  protected:
    const IssuerDesk sm_issuer_{"sm"};

    qaven::virtual_card::Algorithm algorithm_for(const std::string& transaction) {
        const auto verdict = sm_issuer_.arqc(generate_arqc(kDebit, transaction).field55);
        EXPECT_TRUE(verdict.verified) << verdict.reason;
        return verdict.comparison.value().algorithm;
    }
};

TEST_F(CardWithSmAlgorithms, ComputesWithThemUnlessTheHostSaysNo) {
    using qaven::virtual_card::Algorithm;
    EXPECT_EQ(algorithm_for(kTransaction), Algorithm::kSm4);
    EXPECT_EQ(algorithm_for("P012000000001213Z00201"), Algorithm::kSm4);
    EXPECT_EQ(algorithm_for("P012000000001213Z00200"), Algorithm::kTripleDes);
}

TEST_F(CardWithSmAlgorithms, CompletesATransaction) {
    expect_whole_transaction(sm_issuer_, kUsualAids);
}

} // namespace
