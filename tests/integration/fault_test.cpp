// Things that go wrong in the middle of a transaction. Whatever the step, the host is told, and the
// next transaction works.
#include "at_the_counter.h"

#include <chrono>
#include <cstdlib>
#include <fstream>
#include <thread>

using namespace qaven::test;
using namespace std::chrono_literals;

namespace {

class Fault : public AtTheCounter {
  protected:
    // Card information, ARQC, issuer's answer, TC; false as soon as a step has nothing to show.
    bool whole_transaction() {
        const auto answer = read_and_generate();
        if (answer.result != 0) {
            EXPECT_EQ(answer.resmsg, "");
            EXPECT_NE(answer.errmsg, "");
            return false;
        }
        EXPECT_TRUE(issuer_.arqc(answer.arqc.field55).verified);
        clear_trace();
        const auto completion = hand_over(answer.arqc, issuer_.answer(answer.arqc.field55));
        if (completion.tc.empty()) {
            EXPECT_NE(last_traced("ret"), 0);
            return false;
        }
        EXPECT_TRUE(issuer_.tc(completion.tc).verified);
        return true;
    }

    static bool reader_appears() {
        for (int attempt = 0; attempt < 200; ++attempt) {
            if (reader_state() != ReaderState::kNoReader) {
                return true;
            }
            std::this_thread::sleep_for(10ms);
        }
        return false;
    }
};

class ReaderPulledOut : public Fault {
  protected:
    // On a real kernel the virtual reader takes orders from a FIFO. Under the launcher it comes
    // back by itself.
    static void ask_for_the_reader() {
        if (const char* const hand = std::getenv("QAVEN_READER_HAND")) {
            std::ofstream(hand) << "plug\n";
        }
    }
};

TEST_F(ReaderPulledOut, AndPutBackWorksAgain) {
    EXPECT_FALSE(whole_transaction());
    ask_for_the_reader();
    ASSERT_TRUE(reader_appears());
    EXPECT_TRUE(whole_transaction());
}

class IssuersAnswerStalled : public Fault {};

TEST_F(IssuersAnswerStalled, OnItsWayToTheCardArrivesAtTheSecondTry) {
    const auto arqc = generate_arqc(kDebit);
    const auto answer = issuer_.answer(arqc.field55);
    EXPECT_EQ(hand_over(arqc, answer).tc, "");
    EXPECT_EQ(last_traced("ret"), -9); // libusb's code for a stall
    EXPECT_TRUE(issuer_.tc(hand_over(arqc, answer).tc).verified);
}

class CardChangedInOneCall : public Fault {};

// The counter would show one customer's number, and the other one would pay.
TEST_F(CardChangedInOneCall, GivesNeitherInformationNorArqc) {
    CardRequest request;
    request.arqc = "true";
    const auto changed = get_card_information(request);
    EXPECT_EQ(changed.result, QAVEN_NO_CARD);
    EXPECT_EQ(changed.resmsg, "");
    EXPECT_EQ(changed.errmsg, gbk("获取ARQC失败"));
    const auto next = get_card_information(request);
    EXPECT_EQ(next.result, QAVEN_OK);
    EXPECT_EQ(letter_fields(next.fields).at('A'), "6228000200006545");
}

class CardTakenOut : public Fault {};

TEST_F(CardTakenOut, IsNoCardTheNextTime) {
    EXPECT_FALSE(whole_transaction());
    const auto answer = read_and_generate();
    EXPECT_EQ(answer.result, QAVEN_NO_CARD);
    EXPECT_EQ(reader_state(), ReaderState::kFreeNoCard);
}

} // namespace
