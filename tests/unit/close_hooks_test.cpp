// Which ways out of the card operations call the close hooks. The hooks do nothing, but tools that
// put functions of their own in their place rely on the calls.
#include "engine/operation/power_off.h"
#include "host_calls.h"
#include "noted_operations.h"
#include "payment_card.h"

#include <gtest/gtest.h>

using namespace qaven::test;

namespace {

constexpr HookCalls kNone{};
constexpr HookCalls kReader{.card = 0, .reader = 1};
constexpr HookCalls kBoth{.card = 1, .reader = 1};

class CloseHooks : public OperationTest {
  protected:
    CloseHooks() { take_hook_calls(); }
};

TEST_F(CloseHooks, OfAReading) {
    GetInfoCall call;
    expect_reading(card, {transaction_record()});
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(take_hook_calls(), kNone);
    card.expect("00A40400 05 A000000333", "6A82");
    EXPECT_EQ(call.run(), -23);
    EXPECT_EQ(take_hook_calls(), kBoth);
}

TEST_F(CloseHooks, OfTheArqcStep) {
    expect_reading(card, {transaction_record()});
    card.expect(generate_arqc_command(), cryptogram_answer("80"));
    card.expect(kGetLastOnlineAtc, "6A88");
    GenArqcCall good;
    EXPECT_EQ(good.run(), 0);
    EXPECT_EQ(take_hook_calls(), kReader);
    expect_reading(card, {object("5A", kPan)});
    GenArqcCall without_cdol1;
    EXPECT_EQ(without_cdol1.run(), -204);
    EXPECT_EQ(take_hook_calls(), kBoth);
}

TEST_F(CloseHooks, OfTheIssuersAnswer) {
    IssuerAnswerCall call;
    EXPECT_EQ(call.run(), -202);
    EXPECT_EQ(take_hook_calls(), kNone) << "the card has not been asked yet";
    connect();
    card.expect("00820000 0A 0102030405060708 3035", "9000");
    card.expect("80AE0000 03 201904", cryptogram_answer("00"));
    call.application_data = application_data_text(object("8D", "9A03"));
    call.response = object("91", "0102030405060708"
                                 "3035");
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(take_hook_calls(), kBoth);
}

TEST_F(CloseHooks, OfTheTransactionLog) {
    TxDetailCall call;
    card.expect("00A40400 05 A000000333", "6A82");
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(take_hook_calls(), kBoth);
    expect_select(card);
    card.expect("80CA9F4F00", "6A88");
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(take_hook_calls(), kReader) << "no log format";
    expect_select(card, kPrefix, object("9F4D", "0B"));
    card.expect("80CA9F4F00", "9F4F02 9A03 9000");
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(take_hook_calls(), kNone) << "a log entry that is too short";
    expect_select(card, kPrefix, object("9F4D", "0B00"));
    card.expect("80CA9F4F00", "9F4F02 9A03 9000");
    EXPECT_EQ(call.run(), 0);
    EXPECT_EQ(take_hook_calls(), kReader);
}

TEST_F(CloseHooks, OfTheLoadLogAndOfPowerOff) {
    AmtLogCall call;
    card.expect("00A40400 08 A000000333010101", "6A82");
    EXPECT_EQ(call.run(), 0x6A82);
    EXPECT_EQ(take_hook_calls(), kBoth);
    ZEB_ICC_PowerOff(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                     nullptr, nullptr);
    EXPECT_EQ(take_hook_calls(), kBoth);
}

} // namespace
