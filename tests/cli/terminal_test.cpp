// Texts on a terminal.
#include "tools/qaven/cli/terminal.h"

#include <gtest/gtest.h>

namespace {

using namespace qaven::cli;

TEST(Terminal, IsNotSteeredByACard) {
    EXPECT_EQ(printable("a\x1B[2Jb\n\x7F"), "a?[2Jb??");
    EXPECT_EQ(printable("示例 \xF0\x9F\x8D\xB5"), "示例 \xF0\x9F\x8D\xB5");
}

TEST(Terminal, IsNotSteeredByControlsBeyondAscii) {
    EXPECT_EQ(printable("a\xC2\x9B"
                        "2J"),
              "a?2J");
}

TEST(Terminal, GetsNothingThatIsNoUtf8) {
    for (const char* const text : {"\x9B", "\xC2", "\xC0\x9B", "\xFF", "\xF5\x80\x80\x80"}) {
        EXPECT_EQ(printable(text), std::string(std::string_view(text).size(), '?'));
    }
    for (const char* const text :
         {"\xE0\x82\x9B", "\xED\xA0\x80", "\xF0\x80\x82\x9B", "\xF4\x90\x80\x80", "\xE7\xA4"}) {
        EXPECT_EQ(printable(text), std::string(std::string_view(text).size(), '?'));
    }
}

} // namespace
