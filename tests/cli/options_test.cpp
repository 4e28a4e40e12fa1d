// A verb's command line.
#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/cli/options.h"

#include <gtest/gtest.h>

namespace {

using namespace qaven::cli;

using Words = std::vector<std::string_view>;

Syntax syntax() {
    return {"fly",
            "[OPTIONS]",
            "Flies.",
            {{"--to", "PLACE", "where to"}, {"--fast", "", "at once"}},
            ""};
}

Options read(const Words& words) {
    return read_options(syntax(), words).value();
}

TEST(Options, TakeTheirValueFromTheNextWordOrBehindAnEqualsSign) {
    EXPECT_EQ(read({"--to", "Rome"}).value("--to"), "Rome");
    EXPECT_EQ(read({"--to=Rome=Roma"}).value("--to"), "Rome=Roma");
    EXPECT_EQ(read({"--to", "--fast"}).value("--to"), "--fast");
    EXPECT_EQ(read({"--to="}).value("--to"), "");
}

TEST(Options, ThatComeAgainAreAllThereTheLastOneFirst) {
    const Options options = read({"--to", "Rome", "--fast", "--to", "Oslo"});
    EXPECT_EQ(options.value("--to"), "Oslo");
    EXPECT_EQ(options.all("--to"), (std::vector<std::string>{"Rome", "Oslo"}));
    EXPECT_TRUE(options.has("--fast"));
}

TEST(Options, ThatAreNotGivenHaveNoValue) {
    const Options options = read({});
    EXPECT_FALSE(options.has("--fast"));
    EXPECT_FALSE(options.value("--to").has_value());
    EXPECT_EQ(options.value_or("--to", "home"), "home");
    EXPECT_TRUE(options.all("--to").empty());
}

TEST(Options, AreRefusedWhenTheVerbDoesNotTakeThem) {
    for (const Words& words : {Words{"--high"}, Words{"Rome"}, Words{"--to"}, Words{"--fast=yes"},
                               Words{"--"}, Words{"-"}}) {
        EXPECT_THROW(read(words), UsageError) << words.front();
    }
}

TEST(Options, AreNotReadWhenHelpIsAskedFor) {
    testing::internal::CaptureStdout();
    EXPECT_FALSE(read_options(syntax(), Words{"--high", "--help"}).has_value());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "usage: qaven fly [OPTIONS]\n\nFlies.\n\n"
                                                      "  --to PLACE            where to\n"
                                                      "  --fast                at once\n"
                                                      "  --help                this text\n");
}

} // namespace
