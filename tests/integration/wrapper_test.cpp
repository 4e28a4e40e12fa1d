// Hosts on the C++ header: the same card, reader and issuer, without buffers and JSON text.
#include "at_the_counter.h"

#include "qaven/qaven.hpp"

#include <gtest/gtest.h>

using namespace qaven::test;

namespace {

class Wrapper : public AtTheCounter {
  protected:
    qaven::Library library_;
};

TEST_F(Wrapper, GivesTheFieldsOfACardByTheirLetters) {
    const auto card = library_.read_card({"|A|B|J", kDebit});
    EXPECT_EQ(card.code, QAVEN_OK);
    EXPECT_EQ(card.failure, "");
    const qaven::Fields expected{
        {'A', "6228000100001234565"}, {'B', "TEST/CARDHOLDER"}, {'J', "001"}};
    EXPECT_EQ(card.fields, expected);
    EXPECT_EQ(card.authorisation.arqc, "");
}

TEST_F(Wrapper, TakesACardThroughATransaction) {
    const auto card = library_.read_card({"|A", kDebit, kTransaction, true});
    const auto& request = card.authorisation;
    EXPECT_TRUE(issuer_.arqc(request.arqc).verified);
    EXPECT_EQ(request.field60.size(), 5U);

    Reply reply;
    reply.script = {"put-data=9F78:000000060000"};
    const auto end = library_.complete(
        {kTransaction, request.application_data, issuer_.answer(request.arqc, reply), true});
    EXPECT_TRUE(issuer_.tc(end.tc).verified);
    EXPECT_EQ(end.script_result, "DF31052012345678");
    EXPECT_EQ(library_.read_card({"|K", kDebit}).fields.at('K'), "000000060000");

    const auto log = library_.read_log(kDebit);
    ASSERT_TRUE(log.readable);
    ASSERT_EQ(log.entries.size(), 3U);
    EXPECT_EQ(log.entries.front().at('X'), qaven::data_object(request.arqc, "9F36"));
    EXPECT_EQ(log.entries.front().at('W'), "MRCH CNT 0001");
    EXPECT_EQ(qaven::money(log.entries.front().at('P')), "12.13");
}

TEST_F(Wrapper, HandsARefusalToTheCard) {
    const auto before = library_.read_log(kDebit).entries;
    const auto card = library_.generate_arqc(kTransaction, kDebit).authorisation;
    Reply reply;
    reply.response_code = "05";
    const auto end = library_.complete(
        {kTransaction, card.application_data, issuer_.answer(card.arqc, reply), false});
    EXPECT_EQ(end.tc, "");
    EXPECT_TRUE(issuer_.arqc(card.arqc).verified);
    EXPECT_EQ(library_.read_log(kDebit).entries, before);
}

TEST_F(Wrapper, WritesWhatAHostSaysAsJson) {
    // The second byte of this character is a backslash in GBK.
    const std::string merchant = R"("A\B" )" + gbk("乗");
    const std::string transaction =
        "P012000000000100R0040156S00820190422T00203U006161355V009" + merchant;
    const auto request = library_.generate_arqc(transaction, kDebit).authorisation;
    library_.complete({transaction, request.application_data, issuer_.answer(request.arqc), true});
    EXPECT_EQ(library_.read_log(kDebit).entries.at(0).at('W'), "\"A\\B\" 乗");
}

class WrapperWithoutReader : public AtTheCounter {};

TEST_F(WrapperWithoutReader, TellsInUtf8ThatNothingCouldBeRead) {
    qaven::Library library;
    const auto card = library.read_card({"|A", kDebit, kTransaction, true});
    EXPECT_EQ(card.code, QAVEN_NO_APPLICATION);
    EXPECT_EQ(card.failure, "获取IC卡信息失败");
    EXPECT_TRUE(card.fields.empty());
    EXPECT_EQ(card.authorisation.arqc, "");
    EXPECT_EQ(library.complete({}).tc, "");
}

TEST_F(WrapperWithoutReader, KnowsNoLogFromAnEmptyOne) {
    const auto log = qaven::Library().read_log(kDebit);
    EXPECT_FALSE(log.readable);
    EXPECT_TRUE(log.entries.empty());
}

TEST(WrapperTexts, LengthsOfFieldsCountBytes) {
    const auto groups = qaven::detail::field_groups("B004" + gbk("张三") + "J003001");
    ASSERT_EQ(groups.size(), 1U);
    EXPECT_EQ(groups.front(), (qaven::Fields{{'B', "张三"}, {'J', "001"}}));
}

TEST(WrapperTexts, HaveTheLengthOfTrack2InCharactersBeyondTheDigits) {
    const auto groups = qaven::detail::field_groups("E02/6228000100001D30122J003001");
    ASSERT_EQ(groups.size(), 1U);
    EXPECT_EQ(groups.front(), (qaven::Fields{{'E', "6228000100001D30122"}, {'J', "001"}}));
}

TEST(WrapperTexts, EndWhereTheyAreCutShort) {
    EXPECT_EQ(qaven::detail::field_groups("A005123").at(0).at('A'), "123");
    EXPECT_TRUE(qaven::detail::field_groups("A00").empty());
    EXPECT_EQ(qaven::data_object("9F360200", "9F36"), "00");
    EXPECT_EQ(qaven::data_object("9F36", "9F36"), "");
    EXPECT_EQ(qaven::data_object("", "9F36"), "");
}

TEST(WrapperTexts, ThatAreNotGbkKeepWhatCanBeRead) {
    EXPECT_EQ(qaven::detail::utf8("A\xff"
                                  "B"),
              "A?B");
    EXPECT_EQ(qaven::detail::utf8("A\xc4"), "A?");
}

TEST(WrapperTexts, AreTakenOutOfJsonByteByByte) {
    const std::string json = R"({"a":"\u0003j\"\\\/\n","b" : "", "c":"a"})";
    EXPECT_EQ(qaven::detail::member(json, "a"), "\x03j\"\\/\n");
    EXPECT_EQ(qaven::detail::member(json, "b"), "");
    EXPECT_EQ(qaven::detail::member(json, "c"), "a");
    EXPECT_EQ(qaven::detail::member(json, "d"), "");
    EXPECT_EQ(qaven::detail::member(R"({"a":"cut)", "a"), "cut");
    EXPECT_EQ(qaven::detail::member(R"({"a":"cut\)", "a"), "cut\\");
    EXPECT_EQ(qaven::detail::member(R"({"a":"cut\u00)", "a").size(), 4U);
}

TEST(WrapperTexts, AreWrittenAsJsonByteByByte) {
    EXPECT_EQ(qaven::detail::json_text("a\"\\\n\x1f"), R"("a\"\\\u000a\u001f")");
}

TEST(WrapperMoney, HasDecimals) {
    EXPECT_EQ(qaven::money("000000001213"), "12.13");
    EXPECT_EQ(qaven::money("000000000005"), "0.05");
    EXPECT_EQ(qaven::money("000000000000"), "0.00");
    EXPECT_EQ(qaven::money(""), "0.00");
}

} // namespace
