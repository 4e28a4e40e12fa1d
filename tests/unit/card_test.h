// Ground for tests of everything above the reader link: a fake bus, a reader with a scripted card
// that is powered already, and an empty trace log.
#pragma once

#include "scripted_card.h"
#include "tests/support/fake_usb.h"
#include "trace_log.h"

#include <gtest/gtest.h>

namespace qaven::test {

class CardTest : public testing::Test {
  protected:
    void SetUp() override { ASSERT_EQ(card.connect(), 0); }

    // The reader object outlives the test, the bus does not.
    void TearDown() override { card.disconnect(); }

    FakeUsb usb;
    ScriptedCard card{usb};
    TraceLog trace;
};

} // namespace qaven::test
