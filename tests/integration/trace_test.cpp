// The trace log of a whole transaction, byte for byte. Clock, and with it the unpredictable number,
// stand still; the card is fresh, so its cryptograms are the same in every run.
#include "at_the_counter.h"

#include "fixed_clock.h"
#include "recorded.h"

using namespace qaven::test;

namespace {

class Trace : public AtTheCounter {
  protected:
    static void expect_trace(const std::string& name) {
        expect_recorded(trace_text(), name);
        clear_trace();
    }
};

TEST_F(Trace, OfAWholeTransactionIsTheCommittedOne) {
    const FixedClock clock(2026, 1, 2, 3, 4, 5);

    CardRequest request;
    request.transaction = "P012000000001213V003ABC";
    request.arqc = "true";
    const auto arqc = get_card_information(request).arqc;
    expect_trace("card-information-and-arqc.trace");
    const auto field55 = read_objects(arqc.field55);
    EXPECT_EQ(value_of(field55, "9A"), "260102");
    EXPECT_TRUE(issuer_.arqc(arqc.field55).verified);

    Reply reply;
    reply.script = {"put-data=9F79:000000020000"};
    const auto completion = hand_over(arqc, issuer_.answer(arqc.field55, reply));
    expect_trace("issuer-answer.trace");
    EXPECT_TRUE(issuer_.tc(completion.tc).verified);

    transaction_log(kDebit);
    expect_trace("transaction-log.trace");
}

class TraceOfAFailure : public AtTheCounter {};

TEST_F(TraceOfAFailure, NamesTheInputThatIsNotUsable) {
    std::string errmsg(QAVEN_ERRMSG_SIZE, '\0');
    std::string resmsg(QAVEN_RESMSG_SIZE, '\0');
    EXPECT_EQ(QAVEN_GetTxDetail(R"({"AID":""})", resmsg.data(), errmsg.data(), 0, 0),
              QAVEN_ILLEGAL_DATA);
    const auto lines = lines_of(trace_text());
    ASSERT_EQ(lines.size(), 1U);
    EXPECT_NE(lines[0].find("AIDList"), std::string::npos) << lines[0];
}

TEST_F(TraceOfAFailure, EndsWithTheTextThatTheHostShows) {
    CardRequest request;
    request.aids = kUnknown;
    ASSERT_NE(get_card_information(request).result, 0);
    const std::string end = "iRet:-23\n\r\n" + gbk("获取IC卡信息失败") + "\r\n";
    const std::string traced = trace_text();
    EXPECT_EQ(traced.substr(traced.size() - end.size()), end);
}

} // namespace
