// The launcher's command line, and where it finds profiles.
#include "../temporary_folder.h"
#include "virtual/card/find_profile.h"
#include "virtual/plug/options.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

using namespace qaven::virtual_plug;
using qaven::virtual_card::find_profile;

namespace {

Options parse(std::initializer_list<const char*> words) {
    return parse_options(std::span(words.begin(), words.size()));
}

TEST(CommandLine, AloneRunsTheCommandWithACardInSlotTwo) {
    const auto options = parse({"run", "--", "host", "--slot", "1"});
    EXPECT_EQ(options.slot, 2U);
    EXPECT_EQ(options.profile, "debit");
    EXPECT_EQ(options.command, (std::vector<std::string>{"host", "--slot", "1"}));
}

TEST(CommandLine, TakesValuesBesideOrBehindAnEqualsSign) {
    const auto options = parse({"run", "--slot", "none", "--speed=9600", "--fault=after=3:late=40",
                                "--fault", "after=9:unplug", "--replug-after", "50", "--", "host"});
    EXPECT_EQ(options.slot, 0U);
    EXPECT_EQ(options.baud, 9600U);
    ASSERT_EQ(options.faults.size(), 2U);
    EXPECT_EQ(options.faults[0].delay, std::chrono::milliseconds(40));
    EXPECT_EQ(options.faults[1].after, 9U);
    EXPECT_EQ(options.replug_after, std::chrono::milliseconds(50));
}

TEST(CommandLine, KnowsItsFlags) {
    const auto options =
        parse({"run", "--hold", "--strict", "--second", "--no-reader", "--", "host"});
    EXPECT_TRUE(options.held);
    EXPECT_TRUE(options.strict);
    EXPECT_TRUE(options.second_reader);
    EXPECT_TRUE(options.no_reader);
}

TEST(CommandLine, WithoutSenseIsRefused) {
    EXPECT_THROW(parse({}), UsageError);
    EXPECT_THROW(parse({"walk", "--", "host"}), UsageError);
    EXPECT_THROW(parse({"run"}), UsageError);
    EXPECT_THROW(parse({"run", "--"}), UsageError);
    EXPECT_THROW(parse({"run", "host"}), UsageError);
    EXPECT_THROW(parse({"run", "--slot"}), UsageError);
    EXPECT_THROW(parse({"run", "--slot", "3", "--", "host"}), UsageError);
    EXPECT_THROW(parse({"run", "--speed", "fast", "--", "host"}), UsageError);
    EXPECT_THROW(parse({"run", "--fault", "after=1:fire", "--", "host"}), UsageError);
}

TEST(CommandLine, ServesHostsOfThisMachineUnlessToldOtherwise) {
    const auto options = parse({"usbip", "--slot", "1"});
    EXPECT_TRUE(options.usbip);
    EXPECT_FALSE(options.attach);
    EXPECT_EQ(options.listen.host, "127.0.0.1");
    EXPECT_EQ(options.listen.port, 3240U);
    EXPECT_EQ(options.slot, 1U);
    EXPECT_FALSE(parse({"run", "--", "host"}).usbip);
}

TEST(CommandLine, ServesWhereItIsTold) {
    EXPECT_TRUE(parse({"usbip", "--attach"}).attach);
    const auto options = parse({"usbip", "--listen", "0.0.0.0:13240"});
    EXPECT_EQ(options.listen.host, "0.0.0.0");
    EXPECT_EQ(options.listen.port, 13240U);
    EXPECT_EQ(parse({"usbip", "--listen=[::1]:0"}).listen.host, "::1");
}

TEST(CommandLine, OfAServerWithoutSenseIsRefused) {
    EXPECT_THROW(parse({"usbip", "--", "host"}), UsageError);
    EXPECT_THROW(parse({"usbip", "--driver", "ccid"}), UsageError);
    EXPECT_THROW(parse({"usbip", "--driver=ccid"}), UsageError);
    EXPECT_THROW(parse({"usbip", "--hold"}), UsageError);
    EXPECT_THROW(parse({"usbip", "--attach", "--listen", "127.0.0.1:1"}), UsageError);
    EXPECT_THROW(parse({"run", "--attach", "--", "host"}), UsageError);
    EXPECT_THROW(parse({"run", "--listen", "127.0.0.1:1", "--", "host"}), UsageError);
    for (const auto* const address : {"", "3240", ":3240", "127.0.0.1:", "127.0.0.1:x",
                                      "127.0.0.1:65536", "127.0.0.1:-1", "[]:1"}) {
        EXPECT_THROW(parse({"usbip", "--listen", address}), UsageError) << address;
    }
}

TEST(CommandLine, HelpNamesEveryOption) {
    EXPECT_TRUE(parse({"run", "--help"}).help);
    EXPECT_TRUE(parse({"--help"}).help);
    for (const auto* const option :
         {"--slot", "--profile", "--other-card", "--driver", "--hold", "--no-reader", "--second",
          "--strict", "--pcap", "--fault", "--replug-after", "--remove-card-after", "--speed",
          "--save", "--idcard", "--listen", "--attach"}) {
        EXPECT_NE(usage_text().find(option), std::string::npos) << option;
    }
}

class Profiles : public testing::Test {
  protected:
    void SetUp() override { std::ofstream(folder / "mine.json") << "{}"; }
    void TearDown() override { unsetenv("QAVEN_PROFILE_DIR"); }

    // The sentence with which a name is refused.
    static std::string complaint(const std::string& name) {
        try {
            return "found " + find_profile(name).string();
        } catch (const std::runtime_error& error) {
            return error.what();
        }
    }

    const qaven::test::TemporaryFolder temporary;
    const std::filesystem::path folder = temporary.path();
};

TEST_F(Profiles, AreFoundByNameInTheFolderOfTheEnvironment) {
    setenv("QAVEN_PROFILE_DIR", folder.c_str(), 1);
    EXPECT_EQ(find_profile("mine"), folder / "mine.json");
    EXPECT_THROW(static_cast<void>(find_profile("debit")), std::runtime_error);
}

TEST_F(Profiles, AreFoundByPath) {
    EXPECT_EQ(find_profile((folder / "mine.json").string()), folder / "mine.json");
    EXPECT_THROW(static_cast<void>(find_profile((folder / "other.json").string())),
                 std::runtime_error);
}

TEST_F(Profiles, ShippedOnesAreFoundByName) {
    EXPECT_TRUE(std::filesystem::exists(find_profile("debit")));
    EXPECT_EQ(find_profile("debit.json"), find_profile("debit"));
}

TEST_F(Profiles, AreNotHiddenByAFolderOfTheirName) {
    const auto before = std::filesystem::current_path();
    std::filesystem::create_directory(folder / "debit");
    std::filesystem::current_path(folder);
    EXPECT_NE(find_profile("debit"), "debit");
    EXPECT_EQ(find_profile("mine.json"), "mine.json");
    std::filesystem::current_path(before);
}

TEST_F(Profiles, ThatAreNotThereAreToldWithTheReasonOrThePlace) {
    setenv("QAVEN_PROFILE_DIR", folder.c_str(), 1);
    EXPECT_EQ(complaint("other"),
              "there is no card profile 'other' (looked in " + folder.string() + ")");
    const std::string path = (folder / "other.json").string();
    EXPECT_EQ(complaint(path), "Profile " + path + " cannot be read: No such file or directory.");
}

} // namespace
