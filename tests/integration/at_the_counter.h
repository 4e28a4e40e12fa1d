// A host at the counter, for every suite: starts without trace log, leaves no connection behind.
#pragma once

#include "data_objects.h"
#include "host.h"
#include "issuer_desk.h"
#include "reader_state.h"

#include <gtest/gtest.h>

namespace qaven::test {

class AtTheCounter : public testing::Test {
  protected:
    void SetUp() override { clear_trace(); }

    // The ARQC step ends the connection when the application data names no application.
    void TearDown() override {
        int result = 0;
        generate_arqc_from("000000", result);
        EXPECT_NE(result, 0);
    }

    const IssuerDesk issuer_;
};

} // namespace qaven::test
