// How long the connection to reader and card lives: what each operation finds, leaves and ends.
#include "at_the_counter.h"

#include "console.h"
#include "engine/operation/power_off.h"

#include <array>

using namespace qaven::test;

namespace {

class Session : public AtTheCounter {
  protected:
    static void expect_kept() {
        EXPECT_EQ(reader_state(), ReaderState::kHeld);
        EXPECT_TRUE(card_answers());
    }

    static void expect_ended() {
        EXPECT_EQ(reader_state(), ReaderState::kFreeCardOff);
        EXPECT_EQ(command_result("0084000008"), QAVEN_BAD_HANDLE);
    }
};

// Takes the card through selection and GET PROCESSING OPTIONS over the held connection.
void initiate_by_hand() {
    ASSERT_EQ(command_result("00A4040008A000000333010101"), 0);
    ASSERT_EQ(command_result("80A800000B8309010000000000000156"), 0);
}

TEST_F(Session, EndsWithTheCardInformation) {
    ASSERT_EQ(get_card_information({}).result, 0);
    expect_ended();
}

TEST_F(Session, IsKeptAfterTheArqcOfACardInformationCall) {
    ASSERT_EQ(read_and_generate().result, 0);
    expect_kept();
}

TEST_F(Session, IsKeptAfterTheArqcStepAlone) {
    ASSERT_FALSE(generate_arqc().empty());
    expect_kept();
}

TEST_F(Session, EndsWithTheTc) {
    const auto arqc = generate_arqc();
    EXPECT_TRUE(issuer_.tc(hand_over(arqc, issuer_.answer(arqc.field55)).tc).verified);
    expect_ended();
}

TEST_F(Session, EndsWithADecline) {
    const auto arqc = generate_arqc();
    hand_over(arqc, issuer_.answer(arqc.field55), 1);
    expect_ended();
}

TEST_F(Session, EndsWithASecondGenerateAcThatTheCardRefuses) {
    const auto arqc = generate_arqc();
    Reply referral;
    referral.response_code = "01";
    hand_over(arqc, issuer_.answer(arqc.field55, referral));
    EXPECT_EQ(last_traced("ret"), 0x6A86);
    expect_ended();
}

TEST_F(Session, IsLeftByAReadingThatFails) {
    CardRequest request;
    request.aids = kUnknown;
    ASSERT_EQ(get_card_information(request).result, QAVEN_NO_APPLICATION);
    expect_kept();

    EXPECT_EQ(get_card_information({}).result, 0);
    expect_ended();
}

TEST_F(Session, IsReplacedByTheNextReading) {
    ASSERT_EQ(read_and_generate().result, 0);
    const auto printed = printed_by([] { read_and_generate(); });
    const auto ended = printed.out.find("Released Interface!\nDevice Closed!\n");
    ASSERT_NE(ended, std::string::npos);
    EXPECT_LT(ended, printed.out.find("Device Opened\n"));
    EXPECT_EQ(printed.err, "");
    expect_kept();
}

// What the host did wrong the first time, and the code that the trace shows for it.
struct FalseStart {
    const char* application_data;
    const char* issuer_response;
    int raw;
    int folded;
};

class SessionAfterAFalseStart : public Session {
  protected:
    void expect_second_try_to_succeed(const FalseStart& start) {
        const auto arqc = generate_arqc();
        clear_trace();
        Arqc first = arqc;
        if (start.application_data != nullptr) {
            first.application_data = start.application_data;
        }
        EXPECT_EQ(hand_over(first, start.issuer_response).tc, "");
        EXPECT_EQ(last_traced("iRet"), start.raw);
        EXPECT_EQ(last_traced("ret"), start.folded);
        expect_kept();

        const auto completion = hand_over(arqc, issuer_.answer(arqc.field55));
        const auto verdict = issuer_.tc(completion.tc);
        EXPECT_TRUE(verdict.verified) << verdict.reason;
        expect_ended();
    }
};

TEST_F(SessionAfterAFalseStart, WithoutCdol2SucceedsAtTheSecondTry) {
    expect_second_try_to_succeed({"000000", "910A01020304050607083030", -202, -4});
}

TEST_F(SessionAfterAFalseStart, WithACdol2ThatAsksForTooMuchSucceedsAtTheSecondTry) {
    // 255 bytes of each amount.
    expect_second_try_to_succeed({"0000088D069F02FF9F03FF", "910A01020304050607083030", -205, -4});
}

TEST_F(SessionAfterAFalseStart, WithAnEmptyIssuerResponseSucceedsAtTheSecondTry) {
    expect_second_try_to_succeed({nullptr, "", -205, -4});
}

TEST_F(SessionAfterAFalseStart, WithoutIssuerAuthenticationDataSucceedsAtTheSecondTry) {
    expect_second_try_to_succeed({nullptr, "8A023030", -206, -4});
}

TEST_F(SessionAfterAFalseStart, WithIssuerAuthenticationDataCutShortSucceedsAtTheSecondTry) {
    expect_second_try_to_succeed({nullptr, "91080102030405060708", -206, -4});
}

TEST_F(SessionAfterAFalseStart, IsKeptWhenTheCardDoesNotBelieveTheIssuer) {
    const auto arqc = generate_arqc();
    Reply stranger;
    stranger.genuine_authentication = false;
    hand_over(arqc, issuer_.answer(arqc.field55, stranger));
    EXPECT_EQ(last_traced("ret"), 0x6300);
    expect_kept();

    // The card takes one attempt in a transaction.
    hand_over(arqc, issuer_.answer(arqc.field55));
    EXPECT_EQ(last_traced("ret"), 0x6985);
    expect_kept();
}

TEST_F(Session, IsMissingWhenTheIssuersAnswerComesWithoutOne) {
    const auto arqc = generate_arqc();
    const auto answer = issuer_.answer(arqc.field55);
    ASSERT_NE(hand_over(arqc, answer).tc, "");
    clear_trace();
    EXPECT_EQ(hand_over(arqc, answer).tc, "");
    EXPECT_EQ(last_traced("iRet"), QAVEN_BAD_HANDLE);
    EXPECT_EQ(last_traced("ret"), QAVEN_BAD_HANDLE);
    expect_ended();
}

TEST_F(Session, IsOpenedForTheLogAndEndedAgain) {
    EXPECT_NE(transaction_log(kDebit).find("TEST KIOSK"), std::string::npos);
    expect_ended();
    EXPECT_NE(load_log(kDebit, -1).text.find("TEST BRANCH"), std::string::npos);
    expect_ended();
}

TEST_F(Session, IsEndedAlsoWhenThereIsNoSuchLog) {
    EXPECT_EQ(transaction_log(kUnknown), "0");
    expect_ended();
    EXPECT_EQ(load_log(kUnknown, -1).result, 0x6A82);
    expect_ended();
}

TEST_F(Session, IsUsedByTheLogAndLeft) {
    const auto arqc = generate_arqc();
    const auto printed = printed_by([] {
        transaction_log(kDebit);
        load_log(kDebit, 0);
    });
    EXPECT_EQ(printed.out.find("Device Opened"), std::string::npos);
    expect_kept();

    // The log's selection has ended the card's transaction.
    hand_over(arqc, issuer_.answer(arqc.field55));
    EXPECT_EQ(last_traced("ret"), 0x6985);
}

TEST_F(Session, IsOpenedForApplicationDataOfAnEarlierReading) {
    const auto earlier = generate_arqc(kDebit);
    hand_over(earlier, issuer_.answer(earlier.field55));
    expect_ended();

    int result = -1;
    const auto arqc = generate_arqc_from(earlier.application_data, result);
    EXPECT_EQ(result, 0);
    EXPECT_EQ(arqc.application_data, earlier.application_data);
    EXPECT_TRUE(issuer_.arqc(arqc.field55).verified);
    expect_kept();

    const auto completion = hand_over(arqc, issuer_.answer(arqc.field55));
    EXPECT_TRUE(issuer_.tc(completion.tc).verified);
}

TEST_F(Session, IsUsedAsItStandsForApplicationDataHandedIn) {
    const auto earlier = generate_arqc(kDebit);
    initiate_by_hand();

    int result = -1;
    Arqc arqc;
    const auto printed =
        printed_by([&] { arqc = generate_arqc_from(earlier.application_data, result); });
    EXPECT_EQ(result, 0);
    EXPECT_EQ(printed.out.find("Device Opened"), std::string::npos);
    EXPECT_TRUE(issuer_.arqc(arqc.field55).verified);
    expect_kept();
}

TEST_F(Session, EndsWhenTheCardIsInNoStateForAnArqc) {
    const auto earlier = generate_arqc(kDebit);
    int result = 0;
    // The card has given its first cryptogram and waits for the issuer's answer.
    generate_arqc_from(earlier.application_data, result);
    EXPECT_EQ(result, 0x6A86);
    expect_ended();
}

TEST_F(Session, EndsWhenApplicationDataNameNoApplication) {
    int result = 0;
    generate_arqc_from("0000048C029F37", result);
    EXPECT_EQ(last_traced("iRet"), -204);
    EXPECT_EQ(result, -3);
    expect_ended();
}

TEST_F(Session, EndsWhenApplicationDataAreOfAnotherCard) {
    int result = 0;
    generate_arqc_from("0000104F08A888000333010101", result);
    EXPECT_EQ(result, 0x6A82);
    expect_ended();
}

TEST_F(Session, EndsWhenApplicationDataHoldNoCdol1) {
    int result = 0;
    generate_arqc_from("0000104F08A000000333010101", result);
    EXPECT_EQ(last_traced("iRet"), -204);
    expect_ended();
}

TEST_F(Session, IsNotTouchedByTheCallsThatHaveNoWork) {
    ASSERT_FALSE(generate_arqc().empty());
    std::array<char, 2> zero{'0', '\0'};
    char* const text = zero.data();
    EXPECT_EQ(initDriver(), 0);
    EXPECT_EQ(ZEB_ICC_PowerOff(text, text, text, text, text, text, text, text, text, text), 0);
    setPortAttr(nullptr, 0, 0, 0);
    EXPECT_EQ(deinit(), 0);
    expect_kept();
}

TEST_F(Session, IsNotTouchedByInputThatIsNotUsable) {
    const auto arqc = generate_arqc();
    std::array<char, QAVEN_ERRMSG_SIZE> errmsg{};
    std::array<char, QAVEN_RESMSG_SIZE> resmsg{};
    EXPECT_EQ(QAVEN_ARPC_ExeICScript("{}", resmsg.data(), errmsg.data(), 0, 0), QAVEN_ILLEGAL_DATA);
    expect_kept();
    EXPECT_NE(hand_over(arqc, issuer_.answer(arqc.field55)).tc, "");
}

} // namespace
