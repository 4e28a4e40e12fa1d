// The results that stand for memory that cannot be had, of the functions that are no operations.
#include "card_test.h"
#include "console.h"
#include "engine/card/reading.h"
#include "engine/card/script.h"
#include "engine/card/selection.h"
#include "engine/operation/card_info.h"
#include "support/diagnostics.h"
#include "tests/support/memory_watch.h"
#include "usb/ccid.h"

#include <gtest/gtest.h>

#include <array>
#include <string>

using qaven::test::Bytes;
using qaven::test::bytes;
using qaven::test::CardTest;
using qaven::test::FailingAllocation;

namespace {

constexpr int kIllegalData = -16;
constexpr int kEmptyData = -205;

class MemoryShortage : public CardTest {
  protected:
    // The result of a function whose first allocation fails.
    template <typename Function>
    static int result_of(Function function) {
        const FailingAllocation memory(1);
        const int result = function();
        EXPECT_TRUE(memory.failed());
        return result;
    }

    std::array<unsigned char, 1024> out{};
    std::array<unsigned char, 1024> more{};
    unsigned char short_length = 0;
    int length = 0;
};

TEST_F(MemoryShortage, ALetterThenNamesNoTag) {
    EXPECT_EQ(result_of([&] { return Qm_ConvertFlag("A", 1, out.data()); }), 0);
}

TEST_F(MemoryShortage, NoApplicationIsSelectedThen) {
    Bytes aid = bytes("A000000333");
    flist selected{};
    card.expect("00A4040005 A000000333", "6F07 8405A000000333 9000");
    EXPECT_EQ(result_of([&] { return qmcx_AidAppSelect(1, aid.data(), 5, &selected); }), 0);

    Bytes name = bytes("315041592E5359532E4444463031");
    alist candidates{};
    const auto first_record = [this] {
        card.expect("00B2010C00", "7009 6107 4F05A000000333 9000");
    };
    card.expect("00A404000E 315041592E5359532E4444463031", "6F03 880101 9000");
    first_record();
    EXPECT_EQ(result_of([&] { return qmcx_PseAppSelect(name.data(), 14, &candidates); }), 0);

    Bytes fci = bytes("6F03 880101");
    first_record();
    EXPECT_EQ(result_of([&] { return qmcx_checkADF(fci.data(), 5, &candidates); }), 0);
}

TEST_F(MemoryShortage, NoProcessingOptionsAreHandedOutThen) {
    Bytes fci = bytes("6F00");
    Bytes terminal_data = bytes("9A03190422");
    card.expect("80A8000002 8300", "8006 7C00 08010100 9000");
    EXPECT_EQ(result_of([&] {
                  return qmcx_GetProcOptions(fci.data(), 2, terminal_data.data(), 5, out.data(),
                                             &short_length, more.data(), &short_length);
              }),
              kEmptyData);
}

TEST_F(MemoryShortage, WhatAFileCouldNotBeKeptForIsNotHandedOut) {
    Bytes afl = bytes("08010100");
    card.expect("00B2010C00", "7003 5A0162 9000");
    EXPECT_EQ(result_of([&] {
                  return qmcx_GetAppData(afl.data(), 4, nullptr, 0, out.data(), &length,
                                         more.data(), &length);
              }),
              0);
    EXPECT_EQ(length, 0);
}

TEST_F(MemoryShortage, AScriptThenEndsWithoutData) {
    Bytes script = bytes("8605 00B2010C00");
    EXPECT_EQ(result_of([&] {
                  return qmcx_exeicscript(script.data(), static_cast<int>(script.size()), &length);
              }),
              kEmptyData);
}

TEST_F(MemoryShortage, AMessageThatCannotBeBuiltIsNotSent) {
    CCID slot{};
    Bytes apdu = bytes("00B2010C00");
    EXPECT_EQ(result_of([&] { return slot.write(apdu.data(), 5); }), kIllegalData);
}

TEST_F(MemoryShortage, ALongProgressLineIsCut) {
    const std::string text(300, 'a');
    const auto printed = qaven::test::printed_by([&] {
        const FailingAllocation memory(1);
        qaven::diagnostics::text("%s", text.c_str());
        EXPECT_TRUE(memory.failed());
    });
    EXPECT_EQ(printed.out, text.substr(0, 255));
}

} // namespace
