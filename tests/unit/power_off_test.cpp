// A host's request to end a card session: nothing is left to do.
#include "engine/operation/power_off.h"

#include "console.h"
#include "engine/card/session.h"
#include "host_calls.h"
#include "payment_card.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

using namespace qaven::test;
using testing::IsEmpty;

namespace {

int power_off() {
    HostText number("3");
    HostText text("no number");
    return ZEB_ICC_PowerOff(number.get(), text.get(), number.get(), text.get(), number.get(),
                            text.get(), text.get(), number.get(), text.get(), text.get());
}

class PowerOff : public OperationTest {};

TEST_F(PowerOff, IsZeroTwiceInARowAndWithoutASession) {
    EXPECT_EQ(power_off(), 0);
    EXPECT_EQ(power_off(), 0);
    EXPECT_THAT(usb.log(), IsEmpty());
}

TEST_F(PowerOff, LeavesReaderAndCardAsTheyAre) {
    connect();
    EXPECT_EQ(power_off(), 0);
    EXPECT_EQ(power_off(), 0);
    EXPECT_THAT(usb.log(), IsEmpty());
    EXPECT_TRUE(qaven::session::live());
    EXPECT_TRUE(card.powered());
}

TEST_F(PowerOff, PrintsAndTracesNothing) {
    const Printed printed = printed_by([] { power_off(); });
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
    EXPECT_FALSE(trace.exists());
}

TEST_F(PowerOff, WhatTheHostDoesNotPassIsNotNeeded) {
    EXPECT_EQ(ZEB_ICC_PowerOff(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr),
              0);
}

} // namespace
