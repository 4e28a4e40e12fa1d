// The card's transaction log and load log as hosts get them.
#include "at_the_counter.h"

using namespace qaven::test;

namespace {

// The shipped debit card's history.
constexpr const char* kAtTheShop =
    "P012000000001250Q012000000000000R0040156S006250302T00200U006101530"
    "V0040156W020TEST SHOP           X0040002";
constexpr const char* kAtTheKiosk =
    "P012000000000990Q012000000000000R0040156S006250301T00200U006091500"
    "V0040156W020TEST KIOSK          X0040001";
constexpr const char* kFirstLoad = "P0049F79Q012000000000000R012000000010000S006250301T006090000"
                                   "U0040156V020TEST BRANCH         W0040001";

// Characters of one record's text, with the formats of this card.
constexpr std::size_t kTransactionSize = 106;
constexpr std::size_t kLoadSize = 100;

class TransactionLog : public AtTheCounter {};

TEST_F(TransactionLog, ListsTheNewestTransactionFirst) {
    EXPECT_EQ(transaction_log(kDebit), std::string("\x02\x6A") + kAtTheShop + kAtTheKiosk);
    EXPECT_EQ(last_traced("ret"), 0);
}

TEST_F(TransactionLog, IsFoundThroughTheDirectoryAndByPrefix) {
    for (const char* const aid : {"", "0", kAnyUnionPay}) {
        EXPECT_NE(transaction_log(aid).find(kAtTheKiosk), std::string::npos) << aid;
    }
}

TEST_F(TransactionLog, IsNotFoundByAStrangeAid) {
    EXPECT_EQ(transaction_log(kUnknown), "0");
    EXPECT_EQ(last_traced("ret"), 0);
}

TEST_F(TransactionLog, TakesAListForOneAid) {
    EXPECT_EQ(transaction_log(kUsualAids), "0");
}

class TransactionLogThatGrows : public AtTheCounter {};

TEST_F(TransactionLogThatGrows, BeginsWithTheTransactionThatWasJustMade) {
    const auto before = transaction_log(kDebit);
    const auto arqc = read_and_generate().arqc;
    ASSERT_NE(hand_over(arqc, issuer_.answer(arqc.field55)).tc, "");

    const auto after = transaction_log(kDebit);
    EXPECT_EQ(after[0], before[0] + 1);
    EXPECT_EQ(after[1], '\x6A');
    EXPECT_EQ(after.substr(2 + kTransactionSize), before.substr(2));
    const auto newest = letter_fields(after.substr(2, kTransactionSize));
    const std::map<char, std::string> expected{
        {'P', "000000001213"},
        {'Q', "000000000000"},
        {'R', "0156"},
        {'S', "190422"},
        {'T', "03"},
        {'U', "161355"},
        {'V', "0156"},
        {'W', "MRCH CNT 0001       "},
        {'X', value_of(read_objects(arqc.field55), "9F36")},
    };
    EXPECT_EQ(newest, expected);
}

TEST_F(TransactionLogThatGrows, KeepsTheTenNewestTransactions) {
    std::string newest;
    for (int transaction = 0; transaction < 11; ++transaction) {
        const auto arqc = read_and_generate().arqc;
        ASSERT_NE(hand_over(arqc, issuer_.answer(arqc.field55)).tc, "");
        newest = value_of(read_objects(arqc.field55), "9F36");
    }
    const auto log = transaction_log(kDebit);
    EXPECT_EQ(log.substr(0, 2), "\x0A\x6A");
    EXPECT_EQ(log.size(), 2U + 10U * kTransactionSize);
    EXPECT_EQ(letter_fields(log.substr(2, kTransactionSize))['X'], newest);
}

class LoadLog : public AtTheCounter {
  protected:
    void load(const std::string& amount) {
        const auto arqc = read_and_generate().arqc;
        Reply reply;
        reply.script = {"put-data=9F79:" + amount};
        ASSERT_EQ(hand_over(arqc, issuer_.answer(arqc.field55, reply)).script_result,
                  "DF31052012345678");
    }
};

TEST_F(LoadLog, ListsTheNewestLoadFirst) {
    load("000000030000");
    const auto all = load_log(kDebit, -1);
    EXPECT_EQ(all.result, 0);
    ASSERT_EQ(all.text.size() % kLoadSize, 0U) << all.text;
    EXPECT_EQ(all.text.substr(all.text.size() - kLoadSize), kFirstLoad);
    const auto newest = letter_fields(all.text.substr(0, kLoadSize));
    EXPECT_EQ(newest.at('P'), "9F79");
    EXPECT_EQ(newest.at('R'), "000000030000");
    EXPECT_EQ(newest.at('S'), "190422");
    EXPECT_EQ(newest.at('V'), "MRCH CNT 0001       ");
}

TEST_F(LoadLog, GivesOneRecordForIndexZeroAndAsManyAsAskedForOtherwise) {
    load("000000030001");
    const auto all = load_log(kDebit, -1).text;
    EXPECT_EQ(load_log(kDebit, 0).text, all.substr(0, kLoadSize));
    EXPECT_EQ(load_log(kDebit, 1).text, all.substr(0, kLoadSize));
    EXPECT_EQ(load_log(kDebit, 2).text, all.substr(0, 2 * kLoadSize));
    EXPECT_EQ(load_log(kDebit, 10).text, all);
}

TEST_F(LoadLog, IsRefusedForIndexEleven) {
    const auto refused = load_log(kDebit, 11);
    EXPECT_EQ(refused.result, QAVEN_NO_LOAD_LOG);
    EXPECT_EQ(refused.text, "");
}

TEST_F(LoadLog, IsNotFoundByAStrangeAid) {
    EXPECT_EQ(load_log(kUnknown, -1).result, 0x6A82);
}

} // namespace
