// The transaction of the card: first and second cryptogram, issuer authentication, log and history.
#include <gtest/gtest.h>

#include "counter_terminal.h"

namespace qaven::card_test {
namespace {

using virtual_issuer::Answer;
using virtual_issuer::CryptogramKind;
using virtual_issuer::Field55;
using virtual_issuer::Issuer;
using virtual_issuer::Verdict;

// Where things stand in the text of a format 1 answer: 80 13, CID, ATC, cryptogram, IAD.
std::string cid(const Reply& reply) {
    return reply.data.substr(4, 2);
}
std::string counter(const Reply& reply) {
    return reply.data.substr(6, 4);
}
std::string iad(const Reply& reply) {
    return reply.data.substr(26);
}

class Cryptograms : public testing::Test {
  protected:
    Bytes answer_to(const Reply& request, const Answer& answer = {}) {
        return issuer.answer(Field55::parse(terminal.field55(request)), answer);
    }
    Verdict verdict_on(const Reply& cryptogram, CryptogramKind kind) {
        return issuer.verify(Field55::parse(terminal.field55(cryptogram)), kind);
    }
    // A whole approved transaction.
    void complete_one() {
        terminal.begin(debit_aid);
        terminal.authenticate(answer_to(terminal.first_cryptogram()));
        terminal.second_cryptogram();
    }

    Card card{profile("debit")};
    CounterTerminal terminal{card};
    Issuer issuer = issuer_of("debit");
};

TEST_F(Cryptograms, FirstOneIsAnArqcThatTheIssuerVerifies) {
    terminal.begin(debit_aid);
    const Reply arqc = terminal.first_cryptogram();
    EXPECT_EQ(arqc.status, "9000");
    EXPECT_EQ(cid(arqc), "80");
    EXPECT_EQ(counter(arqc), "0003");
    EXPECT_EQ(iad(arqc), "0701"
                         "01"
                         "03A00000"
                         "01");
    EXPECT_TRUE(verdict_on(arqc, CryptogramKind::kRequest).verified);
}

// The PAN, its sequence number, the counter and every object are fixed here, so the cryptogram is.
TEST_F(Cryptograms, SameDataGivesTheSameCryptogramOnTwoCards) {
    terminal.begin(debit_aid);
    Card twin(profile("debit"));
    CounterTerminal other(twin);
    other.begin(debit_aid);
    EXPECT_EQ(terminal.first_cryptogram(), other.first_cryptogram());
}

TEST_F(Cryptograms, EveryCoveredObjectChangesTheCryptogram) {
    terminal.begin(debit_aid);
    const Reply reference = terminal.first_cryptogram();
    const std::map<TagNumber, std::string> changes{
        {0x9F02, "000000001214"}, {0x9F03, "000000000001"}, {0x9F1A, "0840"}, {0x95, "0008006001"},
        {0x5F2A, "0840"},         {0x9A, "250423"},         {0x9C, "00"},     {0x9F37, "1A2B3C4E"}};
    for (const auto& [tag, value] : changes) {
        Card twin(profile("debit"));
        CounterTerminal other(twin);
        other.data[tag] = value;
        other.begin(debit_aid);
        EXPECT_NE(other.first_cryptogram().data, reference.data) << std::hex << tag;
    }
}

TEST_F(Cryptograms, RequestForATcIsSentOnline) {
    terminal.begin(debit_aid);
    EXPECT_EQ(cid(terminal.first_cryptogram("40")), "80");
}

TEST_F(Cryptograms, RequestForAnAacEndsTheTransaction) {
    terminal.begin(debit_aid);
    const Reply aac = terminal.first_cryptogram("00");
    EXPECT_EQ(cid(aac), "00");
    EXPECT_EQ(iad(aac), "070101"
                        "03800000"
                        "01");
    EXPECT_EQ(terminal.first_cryptogram(), refused("6985"));
    EXPECT_EQ(terminal.send("008200000A 00000000000000003030"), refused("6985"));
}

TEST_F(Cryptograms, CardThatDeclinesGivesAnAacToEveryRequest) {
    Profile declining = profile("debit");
    declining.applications.front().declines = true;
    Card other(declining);
    CounterTerminal at_other(other);
    at_other.begin(debit_aid);
    EXPECT_EQ(cid(at_other.first_cryptogram()), "00");
}

TEST_F(Cryptograms, NeedProcessingOptionsFirst) {
    terminal.begin(debit_aid);
    const Reply before = terminal.first_cryptogram();
    ASSERT_EQ(before.status, "9000");
    terminal.select(debit_aid);
    EXPECT_EQ(terminal.first_cryptogram(), refused("6985"));
}

TEST_F(Cryptograms, AreRefusedForOtherParametersAndLengths) {
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.first_cryptogram("C0"), refused("6A86"));
    EXPECT_EQ(terminal.first_cryptogram("90"), refused("6A86"));
    EXPECT_EQ(terminal.send("80AE800004 01020304"), refused("6700"));
    EXPECT_EQ(terminal.first_cryptogram().status, "9000") << "none of this ends the transaction";
    EXPECT_EQ(terminal.second_cryptogram("C0"), refused("6A86"));
    EXPECT_EQ(terminal.second_cryptogram("80"), refused("6A86"));
    EXPECT_EQ(terminal.send("80AE400004 01020304"), refused("6700"));
}

TEST_F(Cryptograms, AreRefusedWithoutDataObjectListOrPan) {
    for (const TagNumber missing : {TagNumber{0x8C}, TagNumber{0x5A}}) {
        Profile incomplete = profile("debit");
        for (auto& record : incomplete.applications.front().records) {
            std::erase_if(record.objects,
                          [&](const auto& object) { return object.tag == missing; });
            record.content = virtual_card::encode_record(record.objects);
        }
        Card other(incomplete);
        CounterTerminal at_other(other);
        at_other.begin(debit_aid);
        EXPECT_EQ(at_other.send("80AE800001 00"), refused("6985"));
    }
}

TEST_F(Cryptograms, InFormat2StandInObjectsOfTheirOwn) {
    Card other(profile("format-2"));
    CounterTerminal at_other(other);
    at_other.begin(debit_aid);
    const Reply arqc = at_other.send(
        "80AE800034 000000001213 000000000000 0156 0008006000 0156 250422 03 1A2B3C4D 161355"
        "4C55524F20434E54202020202020202020202020");
    EXPECT_EQ(arqc.status, "9000");
    EXPECT_EQ(arqc.data.substr(0, 28), "771F9F2701809F360200039F2608");
    EXPECT_EQ(arqc.data.substr(44), "9F1008"
                                    "070101"
                                    "03A00000"
                                    "01");
    terminal.begin(debit_aid);
    EXPECT_EQ(arqc.data.substr(28, 16), terminal.first_cryptogram().data.substr(10, 16));
}

TEST_F(Cryptograms, IssuerAuthenticationOpensTheWayToATcThatTheIssuerVerifies) {
    terminal.begin(debit_aid);
    const Reply arqc = terminal.first_cryptogram();
    EXPECT_EQ(terminal.authenticate(answer_to(arqc)), "9000");
    const Reply tc = terminal.second_cryptogram();
    EXPECT_EQ(tc.status, "9000");
    EXPECT_EQ(cid(tc), "40");
    EXPECT_EQ(counter(tc), "0003");
    EXPECT_EQ(iad(tc), "070101"
                       "03600000"
                       "01");
    EXPECT_TRUE(verdict_on(tc, CryptogramKind::kTransactionCertificate).verified);
    EXPECT_FALSE(verdict_on(tc, CryptogramKind::kRequest).verified);
    EXPECT_EQ(terminal.second_cryptogram(), refused("6985")) << "the transaction is over";
}

// A counter completes the transaction with a date, type and amounts of its own.
TEST_F(Cryptograms, TcCoversWhatTheSecondRequestSaid) {
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.authenticate(answer_to(terminal.first_cryptogram())), "9000");
    terminal.data[0x9F02] = "000000000000";
    terminal.data[0x9A] = "202504";
    terminal.data[0x9C] = "33";
    terminal.data[0x9F37] = "55667788";
    EXPECT_TRUE(
        verdict_on(terminal.second_cryptogram(), CryptogramKind::kTransactionCertificate).verified);
}

TEST_F(Cryptograms, WrongIssuerAuthenticationIsRefusedAndHasNoSecondTry) {
    terminal.begin(debit_aid);
    const Reply arqc = terminal.first_cryptogram();
    Answer wrong;
    wrong.genuine_authentication = false;
    EXPECT_EQ(terminal.authenticate(answer_to(arqc, wrong)), "6300");
    EXPECT_EQ(terminal.authenticate(answer_to(arqc)), "6985");
    const Reply aac = terminal.second_cryptogram("40");
    EXPECT_EQ(cid(aac), "00") << "no TC without its issuer";
    EXPECT_EQ(iad(aac), "070101"
                        "03280000"
                        "01");
}

TEST_F(Cryptograms, IssuerAuthenticationFailsForAnotherResponseCodeThanTheOneUnderTheArpc) {
    terminal.begin(debit_aid);
    Bytes answer = answer_to(terminal.first_cryptogram());
    answer.back() = '5';
    EXPECT_EQ(terminal.authenticate(answer), "6300");
}

TEST_F(Cryptograms, IssuerAuthenticationIsPossibleOnceAfterAnArqc) {
    EXPECT_EQ(terminal.send("008200000A 00000000000000003030"), refused("6985"));
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.send("008200000A 00000000000000003030"), refused("6985"));
    const Bytes answer = answer_to(terminal.first_cryptogram());
    EXPECT_EQ(terminal.send("0082000009 000000000000000030"), refused("6700"));
    EXPECT_EQ(terminal.send("008201000A 00000000000000003030"), refused("6A86"));
    EXPECT_EQ(terminal.authenticate(answer), "9000");
    EXPECT_EQ(terminal.authenticate(answer), "6985");
}

TEST_F(Cryptograms, WithoutIssuerAuthenticationThereIsAnAac) {
    terminal.begin(debit_aid);
    terminal.first_cryptogram();
    EXPECT_EQ(cid(terminal.second_cryptogram("40")), "00");
}

TEST_F(Cryptograms, CardThatDoesNotInsistOnItsIssuerGivesATcWithoutAuthentication) {
    Profile lenient = profile("debit");
    lenient.applications.front().issuer_authentication_mandatory = false;
    Card other(lenient);
    CounterTerminal at_other(other);
    at_other.begin(debit_aid);
    at_other.first_cryptogram();
    EXPECT_EQ(cid(at_other.second_cryptogram("40")), "40");
}

TEST_F(Cryptograms, DeclinedByTheHostThereIsAnAacAlsoAfterAuthentication) {
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.authenticate(answer_to(terminal.first_cryptogram())), "9000");
    const Reply aac = terminal.second_cryptogram("00");
    EXPECT_EQ(cid(aac), "00");
    EXPECT_EQ(iad(aac), "070101"
                        "03200000"
                        "01");
}

TEST_F(Cryptograms, TerminalThatCouldNotGoOnlineIsRememberedInTheCvr) {
    terminal.begin(debit_aid);
    terminal.first_cryptogram();
    terminal.data[0x8A] = "5A33";
    EXPECT_EQ(iad(terminal.second_cryptogram("00")), "070101"
                                                     "03210000"
                                                     "01");
}

TEST_F(Cryptograms, OnlyATcIsLoggedNewestFirstWithWhatTheFirstRequestSaid) {
    terminal.begin(debit_aid);
    EXPECT_EQ(terminal.authenticate(answer_to(terminal.first_cryptogram())), "9000");
    terminal.data[0x9F02] = "000000000000";
    terminal.second_cryptogram();
    EXPECT_EQ(terminal.send("00B2015C00"),
              accepted("250422 161355 000000001213 000000000000 0156 0156"
                       "4C55524F20434E54202020202020202020202020 03 0003"));
    EXPECT_EQ(terminal.send("00B2025C00").data.substr(0, 6), "250302") << "the one before";

    terminal.begin(debit_aid);
    terminal.first_cryptogram();
    terminal.second_cryptogram("00");
    EXPECT_EQ(terminal.send("00B2015C00").data.substr(86), "0003") << "an AAC leaves no entry";
}

TEST_F(Cryptograms, LogForgetsItsOldestRecordWhenItIsFull) {
    for (int transaction = 0; transaction < 9; ++transaction) {
        complete_one();
    }
    EXPECT_EQ(terminal.send("00B2015C00").data.substr(86), "000B");
    EXPECT_EQ(terminal.send("00B20A5C00").data.substr(86), "0002");
    EXPECT_EQ(terminal.send("00B20B5C00"), refused("6A83"));
}

TEST_F(Cryptograms, LastOnlineCounterFollowsTheTransactionThatTheIssuerAnswered) {
    complete_one();
    EXPECT_EQ(terminal.send("80CA9F1300"), accepted("9F13020003"));
    terminal.begin(debit_aid);
    terminal.first_cryptogram();
    terminal.second_cryptogram("00");
    EXPECT_EQ(terminal.send("80CA9F1300"), accepted("9F13020003")) << "nobody answered this one";
    EXPECT_EQ(terminal.send("80CA9F3600"), accepted("9F36020004"));
}

TEST_F(Cryptograms, TransactionThatWasBrokenOffShowsInTheNextOneAndNoLonger) {
    terminal.begin(debit_aid);
    terminal.first_cryptogram();
    card.power_off();
    card.power_on();
    terminal.begin(debit_aid);
    const Reply next = terminal.first_cryptogram();
    EXPECT_EQ(iad(next), "070101"
                         "03A08000"
                         "01");
    terminal.authenticate(answer_to(next));
    EXPECT_EQ(iad(terminal.second_cryptogram()), "070101"
                                                 "03608000"
                                                 "01");
    terminal.begin(debit_aid);
    EXPECT_EQ(iad(terminal.first_cryptogram()), "070101"
                                                "03A00000"
                                                "01");
}

TEST_F(Cryptograms, FailedAndMissingIssuerAuthenticationShowInTheNextTransaction) {
    terminal.begin(debit_aid);
    Answer wrong;
    wrong.genuine_authentication = false;
    terminal.authenticate(answer_to(terminal.first_cryptogram(), wrong));
    terminal.second_cryptogram();
    terminal.begin(debit_aid);
    EXPECT_EQ(iad(terminal.first_cryptogram()), "070101"
                                                "03A00800"
                                                "01");
    terminal.second_cryptogram("00");
    terminal.begin(debit_aid);
    EXPECT_EQ(iad(terminal.first_cryptogram()), "070101"
                                                "03A00400"
                                                "01");
}

TEST_F(Cryptograms, NewCardSaysSo) {
    Card credit(profile("credit"));
    CounterTerminal at_credit(credit);
    at_credit.begin(credit_aid);
    const Reply arqc = at_credit.first_cryptogram();
    EXPECT_EQ(iad(arqc), "070101"
                         "03A01000"
                         "01");
    EXPECT_TRUE(issuer_of("credit")
                    .verify(Field55::parse(at_credit.field55(arqc)), CryptogramKind::kRequest)
                    .verified);
}

TEST_F(Cryptograms, PinShowsInTheCvr) {
    terminal.begin(debit_aid);
    terminal.send("0020008008 26123456FFFFFFFF");
    EXPECT_EQ(iad(terminal.first_cryptogram()), "070101"
                                                "03A40000"
                                                "01");
    terminal.begin(debit_aid);
    for (int attempt = 0; attempt < 3; ++attempt) {
        terminal.send("0020008008 26111111FFFFFFFF");
    }
    EXPECT_EQ(iad(terminal.first_cryptogram()), "070101"
                                                "03A6C000"
                                                "01")
        << "verified, wrong, no tries left, and the transaction before was broken off";
}

TEST_F(Cryptograms, BlockedApplicationGivesNothingButAacs) {
    Card blocked(profile("blocked"));
    CounterTerminal at_blocked(blocked);
    at_blocked.begin(debit_aid);
    EXPECT_EQ(cid(at_blocked.first_cryptogram()), "00");
}

} // namespace
} // namespace qaven::card_test
