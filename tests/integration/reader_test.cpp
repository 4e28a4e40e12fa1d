// Where the reader and its card are, and who else wants them.
#include "at_the_counter.h"

#include "console.h"

using namespace qaven::test;

namespace {

// The failed call's answer: a code, a text for the counter's display, and nothing else.
void expect_failure(const CardInformation& answer, int result, const char* text) {
    EXPECT_EQ(answer.result, result);
    EXPECT_EQ(answer.errmsg, gbk(text));
    EXPECT_EQ(answer.resmsg, "");
}

class CardInSlotOne : public AtTheCounter {};

TEST_F(CardInSlotOne, IsFoundThereWhenSlotTwoIsEmpty) {
    const auto answer = read_and_generate();
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(letter_fields(answer.fields)['A'], "6228000100001234565");
    EXPECT_TRUE(issuer_.arqc(answer.arqc.field55).verified);
    EXPECT_EQ(reader_state(1), ReaderState::kHeld);
    EXPECT_EQ(reader_state(2), ReaderState::kFreeNoCard);
}

TEST_F(CardInSlotOne, CompletesItsTransactionThere) {
    const auto arqc = read_and_generate().arqc;
    const auto completion = hand_over(arqc, issuer_.answer(arqc.field55));
    EXPECT_TRUE(issuer_.tc(completion.tc).verified);
    EXPECT_EQ(reader_state(1), ReaderState::kFreeCardOff);
}

TEST_F(CardInSlotOne, GivesItsLog) {
    EXPECT_NE(transaction_log(kDebit).find("TEST KIOSK"), std::string::npos);
    EXPECT_EQ(reader_state(1), ReaderState::kFreeCardOff);
}

class NoCard : public AtTheCounter {};

TEST_F(NoCard, FailsTheReading) {
    expect_failure(read_and_generate(), QAVEN_NO_CARD, "获取IC卡信息失败");
    EXPECT_EQ(reader_state(1), ReaderState::kFreeNoCard);
    EXPECT_EQ(reader_state(2), ReaderState::kFreeNoCard);
}

TEST_F(NoCard, IsFoundOutOnceForAWholeListOfAids) {
    read_and_generate();
    const std::string trace = trace_text();
    EXPECT_EQ(trace.find("ZEB_ICC_GetInfo\n"), trace.rfind("ZEB_ICC_GetInfo\n"));
}

TEST_F(NoCard, LeavesTheArqcStepWithoutValues) {
    const auto arqc = generate_arqc();
    EXPECT_EQ(arqc.application_data, "");
    EXPECT_TRUE(arqc.empty());
    EXPECT_EQ(last_traced("ret"), QAVEN_NO_CARD);
}

TEST_F(NoCard, LeavesTheIssuersAnswerWithoutATaker) {
    const Arqc of_an_earlier_card{"0000098D078A029F37049505", "", ""};
    const auto completion = hand_over(of_an_earlier_card, "910A01020304050607083030");
    EXPECT_EQ(completion.tc, "");
    EXPECT_EQ(last_traced("ret"), QAVEN_BAD_HANDLE);
}

TEST_F(NoCard, LeavesTheLogsUnread) {
    EXPECT_EQ(transaction_log(kDebit), "0");
    EXPECT_EQ(last_traced("ret"), QAVEN_NO_CARD);
    EXPECT_EQ(load_log(kDebit, -1).result, QAVEN_NO_CARD);
    EXPECT_EQ(reader_state(), ReaderState::kFreeNoCard);
}

class NoReader : public AtTheCounter {};

TEST_F(NoReader, LooksLikeACardThatHasNoApplication) {
    expect_failure(read_and_generate(), QAVEN_NO_APPLICATION, "获取IC卡信息失败");
    EXPECT_EQ(reader_state(), ReaderState::kNoReader);
}

TEST_F(NoReader, IsNamedOnStandardError) {
    const auto printed = printed_by([] { get_card_information({}); });
    EXPECT_NE(printed.err.find("Cannot open device\n"), std::string::npos) << printed.err;
}

TEST_F(NoReader, LeavesTheArqcStepWithoutCryptogram) {
    const auto arqc = generate_arqc();
    EXPECT_TRUE(arqc.empty());
    EXPECT_NE(last_traced("ret"), 0);
}

TEST_F(NoReader, LeavesTheLogUnread) {
    EXPECT_EQ(transaction_log(kDebit), "0");
    EXPECT_EQ(load_log(kDebit, -1).text, "");
}

TEST_F(NoReader, CanBeLookedForAgainAndAgain) {
    for (int attempt = 0; attempt < 20; ++attempt) {
        EXPECT_EQ(read_and_generate().result, QAVEN_NO_APPLICATION);
    }
}

class DriverBound : public AtTheCounter {};

TEST_F(DriverBound, MakesWayForTheLibrary) {
    CardInformation answer;
    const auto printed = printed_by([&answer] { answer = read_and_generate(); });
    EXPECT_EQ(answer.result, 0);
    EXPECT_TRUE(issuer_.arqc(answer.arqc.field55).verified);
    EXPECT_NE(printed.out.find("Device Opened\nKernel Driver Active\nKernel Driver Detached!\n"),
              std::string::npos);
}

class HeldByAnotherProgram : public AtTheCounter {};

TEST_F(HeldByAnotherProgram, IsAReaderWhoseCardCannotBeReached) {
    CardInformation answer;
    const auto printed = printed_by([&answer] { answer = read_and_generate(); });
    expect_failure(answer, QAVEN_NO_APPLICATION, "获取IC卡信息失败");
    EXPECT_NE(printed.err.find("Cannot Claim Interface\n"), std::string::npos);
}

TEST_F(HeldByAnotherProgram, IsNoConnection) {
    read_and_generate();
    EXPECT_FALSE(card_answers());
    EXPECT_TRUE(generate_arqc().empty());
    EXPECT_NE(last_traced("ret"), 0);
}

// The other program is another handle of this one.
class ReaderShared : public AtTheCounter {};

TEST_F(ReaderShared, WorksAgainWhenTheOtherProgramIsDone) {
    {
        const OtherProgram other(2);
        ASSERT_TRUE(other.has_interface());
        EXPECT_EQ(read_and_generate().result, QAVEN_NO_APPLICATION);
    }
    const auto answer = read_and_generate();
    EXPECT_EQ(answer.result, 0);
    EXPECT_TRUE(issuer_.arqc(answer.arqc.field55).verified);
}

TEST_F(ReaderShared, KeepsTheOtherProgramOutDuringATransaction) {
    const auto arqc = read_and_generate().arqc;
    EXPECT_EQ(reader_state(), ReaderState::kHeld);
    hand_over(arqc, issuer_.answer(arqc.field55));
    EXPECT_EQ(reader_state(), ReaderState::kFreeCardOff);
}

} // namespace
