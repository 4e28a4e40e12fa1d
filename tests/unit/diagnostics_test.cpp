// Where the progress lines go.
#include "support/diagnostics.h"

#include "console.h"

#include <gtest/gtest.h>

#include <cerrno>

using qaven::test::Printed;
using qaven::test::printed_by;
namespace diagnostics = qaven::diagnostics;

namespace {

void print_one_of_each() {
    diagnostics::line("Device %s", "Opened");
    diagnostics::line("read-ret = %d\n", 0);
    diagnostics::text("%02x ", 0x81U);
    diagnostics::error_text("failed to initialise libusb\n");
    errno = ENODEV;
    diagnostics::system_error("Cannot open device\n");
}

constexpr const char* kProgress = "Device Opened\nread-ret = 0\n81 ";
constexpr const char* kErrors =
    "failed to initialise libusb\nCannot open device\n: No such device\n";

TEST(Diagnostics, ProgressGoesToStandardOutputAndErrorsToStandardError) {
    const Printed printed = printed_by(print_one_of_each);
    EXPECT_EQ(printed.out, kProgress);
    EXPECT_EQ(printed.err, kErrors);
}

TEST(Diagnostics, TheSwitchNamesTheDefault) {
    const Printed printed = printed_by(print_one_of_each, "stdout");
    EXPECT_EQ(printed.out, kProgress);
    EXPECT_EQ(printed.err, kErrors);
}

TEST(Diagnostics, AnUnknownWordIsTheDefault) {
    for (const char* word : {"", "OFF", "on", "stdout "}) {
        const Printed printed = printed_by(print_one_of_each, word);
        EXPECT_EQ(printed.out, kProgress) << word;
        EXPECT_EQ(printed.err, kErrors) << word;
    }
}

TEST(Diagnostics, CanAllGoToStandardError) {
    const Printed printed = printed_by(print_one_of_each, "stderr");
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, std::string(kProgress) + kErrors);
}

TEST(Diagnostics, CanBeSilenced) {
    const Printed printed = printed_by(print_one_of_each, "off");
    EXPECT_EQ(printed.out, "");
    EXPECT_EQ(printed.err, "");
}

TEST(Diagnostics, ALineEndsWithExactlyOneNewline) {
    EXPECT_EQ(printed_by([] { diagnostics::line("%s", ""); }).out, "\n");
    EXPECT_EQ(printed_by([] { diagnostics::line("%s", "a\n"); }).out, "a\n");
    EXPECT_EQ(printed_by([] { diagnostics::line("%s", "a\n\n"); }).out, "a\n\n");
}

TEST(Diagnostics, ALongLineIsPrintedWhole) {
    // Up to 255 characters are formatted without an allocation.
    for (const std::size_t length : {254U, 255U, 256U, 257U, 40000U}) {
        const std::string answer(length, 'x');
        EXPECT_EQ(printed_by([&] { diagnostics::line("%s", answer.c_str()); }).out, answer + "\n");
        EXPECT_EQ(printed_by([&] { diagnostics::line("%s\n", answer.c_str()); }).out,
                  answer + "\n");
        EXPECT_EQ(printed_by([&] { diagnostics::text("%s", answer.c_str()); }).out, answer);
    }
}

} // namespace
