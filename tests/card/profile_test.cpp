// Profile files: the shipped ones, bad ones, and saving.
#include <gtest/gtest.h>

#include <fstream>
#include <functional>
#include <memory>
#include <sstream>

#include "../temporary_folder.h"
#include "counter_terminal.h"
#include "virtual/card/card_factory.h"

namespace qaven::card_test {
namespace {

namespace card = virtual_card;
namespace fs = std::filesystem;

std::vector<fs::path> shipped_profiles() {
    std::vector<fs::path> files;
    for (const auto& entry : fs::directory_iterator(QAVEN_PROFILES)) {
        if (entry.path().extension() == ".json") {
            files.push_back(entry.path());
        }
    }
    return files;
}

std::string read_file(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

class TemporaryFile {
  public:
    explicit TemporaryFile(const std::string& text = "") {
        std::ofstream(path_, std::ios::binary) << text;
    }
    const fs::path& path() const { return path_; }

  private:
    test::TemporaryFolder folder_;
    fs::path path_ = folder_.path() / "profile.json";
};

// The sentence with which a profile is refused.
std::string complaint(const std::string& text) {
    const TemporaryFile file(text);
    try {
        card::make_card(file.path());
    } catch (const std::runtime_error& error) {
        const std::string sentence = error.what();
        const std::string start = "Profile " + file.path().string() + " ";
        return sentence.starts_with(start) ? sentence.substr(start.size()) : sentence;
    }
    return "accepted";
}

// The debit profile with one piece of text replaced.
std::string debit_with(const std::string& piece, const std::string& replacement) {
    std::string text = read_file(profile_file("debit"));
    const std::size_t at = text.find(piece);
    if (at == std::string::npos) {
        throw std::invalid_argument("not in the profile: " + piece);
    }
    return text.replace(at, piece.size(), replacement);
}

TEST(ShippedProfiles, AreTheOnesThatTheManualNames) {
    std::vector<std::string> names;
    for (const fs::path& file : shipped_profiles()) {
        names.push_back(file.stem().string());
    }
    std::sort(names.begin(), names.end());
    EXPECT_EQ(names, (std::vector<std::string>{"blocked", "card-blocked", "credit", "ddf", "debit",
                                               "format-2", "get-response", "no-pse", "sm",
                                               "two-applications"}));
}

TEST(ShippedProfiles, AllMakeACardThatAnswersToReset) {
    for (const fs::path& file : shipped_profiles()) {
        EXPECT_FALSE(card::make_card(file)->power_on().empty()) << file;
    }
}

// The reader takes 63 bytes of a command without loss.
TEST(ShippedProfiles, AskForNoMoreThanOneCommandOf63BytesCarries) {
    constexpr std::size_t longest_command = 63;
    constexpr std::size_t kHeaderSize = 5;
    constexpr std::size_t template_size = 2;
    for (const fs::path& file : shipped_profiles()) {
        for (const auto& application : card::load_profile(file).applications) {
            const auto data = card::personal_data(application.records);
            ASSERT_FALSE(data.cdol1.empty()) << file;
            ASSERT_FALSE(data.cdol2.empty()) << file;
            EXPECT_LE(kHeaderSize + card::dol_value_size(data.cdol1), longest_command) << file;
            EXPECT_LE(kHeaderSize + card::dol_value_size(data.cdol2), longest_command) << file;
            EXPECT_LE(kHeaderSize + template_size +
                          card::dol_value_size(card::parse_dol(application.pdol).value()),
                      longest_command)
                << file;
        }
    }
}

TEST(ShippedProfiles, AllowThePanOf19DigitsToBeSeenWithItsFilling) {
    const auto records = profile("debit").applications.front().records;
    EXPECT_EQ(card::personal_data(records).pan_digits, "6228000100001234565");
}

TEST(SavedCard, ThatDidNothingIsTheSameProfile) {
    for (const fs::path& file : shipped_profiles()) {
        const TemporaryFile first;
        const TemporaryFile second;
        card::save_card(*card::make_card(file), first.path());
        card::save_card(*card::make_card(first.path()), second.path());
        EXPECT_EQ(read_file(first.path()), read_file(second.path())) << file;
        // What a card tells about itself is the same before and after.
        const auto original = card::make_card(file);
        const auto restored = card::make_card(first.path());
        CounterTerminal at_original(*original);
        CounterTerminal at_restored(*restored);
        for (const std::string_view name :
             {std::string_view("315041592E5359532E4444463031"), debit_aid, credit_aid}) {
            EXPECT_EQ(at_original.select(name), at_restored.select(name)) << file;
        }
    }
}

TEST(SavedCard, IsNotWrittenWhereThereIsNoFolder) {
    const auto card = card::make_card(profile_file("debit"));
    EXPECT_THROW(card::save_card(*card, "/nonexistent/card.json"), std::runtime_error);
}

TEST(SavedCard, CannotBeMadeFromACardOfAnotherMake) {
    class Foreign : public card::Icc {
      public:
        Bytes power_on() override { return {}; }
        void power_off() override {}
        Bytes transmit(std::span<const std::uint8_t> /*command*/) override { return {}; }
    };
    const TemporaryFile file;
    EXPECT_THROW(card::save_card(Foreign(), file.path()), std::runtime_error);
}

TEST(BadProfile, IsRefusedWithASentence) {
    EXPECT_EQ(complaint("no json"), "is not JSON.");
    EXPECT_EQ(complaint("[]"), "cannot be used. The profile has to be a JSON object.");
    EXPECT_EQ(complaint("{}"), "cannot be used. The profile: \"description\" is missing.");
    EXPECT_THROW(card::make_card("/nonexistent.json"), std::runtime_error);
}

// A profile of an earlier release.
TEST(EarlierProfile, IsReadWithANoteOfEachNewName) {
    std::string text = read_file(profile_file("format-2"));
    std::string notes;
    const auto rename = [&](const std::string& place, const std::string& name,
                            const std::string& earlier) {
        const std::string entry = "\"" + name + "\":";
        ASSERT_NE(text.find(entry), std::string::npos) << name;
        text.replace(text.find(entry), entry.size(), "\"" + earlier + "\":");
        notes += "note: " + place + ": \"" + earlier + "\" is now called \"" + name + "\".\n";
    };
    rename("The profile", "atr", "answer_to_reset");
    const std::string application = "The profile, applications 1";
    rename(application, "aip", "interchange_profile");
    rename(application, "afl", "file_locator");
    rename(application, "gpo_format", "processing_options_format");
    rename(application, "generate_ac_format", "cryptogram_format");
    rename(application, "atc", "transaction_counter");
    rename(application, "last_online_atc", "last_online_counter");

    const TemporaryFile earlier(text);
    const TemporaryFile saved;
    testing::internal::CaptureStderr();
    const auto card = card::make_card(earlier.path());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), notes);

    card::save_card(*card, saved.path());
    const auto shipped = card::make_card(profile_file("format-2"));
    const TemporaryFile of_shipped;
    card::save_card(*shipped, of_shipped.path());
    EXPECT_EQ(read_file(saved.path()), read_file(of_shipped.path()));
}

TEST(BadProfile, HasAnEntryUnderItsEarlierNameToo) {
    EXPECT_EQ(complaint(debit_with("\"afl\":", "\"file_locator\": \"\", \"afl\":")),
              "cannot be used. The profile, applications 1: \"file_locator\" is the earlier name "
              "of \"afl\", which is there too.");
}

TEST(BadProfile, NamesThePlaceOfTheMistake) {
    EXPECT_EQ(complaint(debit_with("\"aid\": \"A000000333010101\"", "\"aid\": \"A0000\"")),
              "cannot be used. The profile, applications 1: \"aid\" has to be hexadecimal text.");
    EXPECT_EQ(complaint(debit_with("\"aid\": \"A000000333010101\"", "\"aid\": 5")),
              "cannot be used. The profile, applications 1: \"aid\" has to be hexadecimal text.");
    EXPECT_EQ(complaint(debit_with("\"aid\": \"A000000333010101\"", "\"aid\": \"\"")),
              "cannot be used. The profile, applications 1: \"aid\" has to be 1 to 16 bytes long.");
    EXPECT_EQ(complaint(debit_with("\"sfi\": 11", "\"sfi\": 31")),
              "cannot be used. The profile, applications 1, transaction_log: \"sfi\" has to be a "
              "whole number from 0 to 30.");
    EXPECT_EQ(complaint(debit_with("\"sfi\": 11", "\"sfi\": 0")),
              "cannot be used. The profile, applications 1, transaction_log: \"sfi\" has to be a "
              "number from 1 to 30.");
    EXPECT_EQ(complaint(debit_with("\"blocked\": false", "\"blocked\": \"no\"")),
              "cannot be used. The profile, applications 1: \"blocked\" has to be true or false.");
    EXPECT_EQ(complaint(debit_with("\"card_blocked\"", "\"cardblocked\"")),
              "cannot be used. The profile: \"cardblocked\" is an unknown entry.");
    EXPECT_EQ(complaint(debit_with("\"direct\"", "\"t1\"")),
              "cannot be used. The profile: \"transmission\" has to be \"direct\" or "
              "\"get-response\".");
    EXPECT_EQ(complaint(debit_with("\"digits\": \"123456\"", "\"digits\": \"12\"")),
              "cannot be used. The profile, pin: \"digits\" has to be 4 to 12 digits.");
    EXPECT_EQ(complaint(debit_with("\"digits\": \"123456\"", "\"digits\": \"12X4\"")),
              "cannot be used. The profile, pin: \"digits\" has to be 4 to 12 digits.");
    EXPECT_EQ(complaint(debit_with("\"aip\": \"7C00\"", "\"aip\": \"7C\"")),
              "cannot be used. The profile, applications 1: \"aip\" has to be 2 "
              "bytes long.");
    EXPECT_EQ(complaint(debit_with("9F7A01 9F0206 5F2A02", "9F7A01 9F02")),
              "cannot be used. The profile, applications 1: \"pdol\" has to be a list of tags and "
              "lengths.");
}

TEST(BadProfile, IsOneWhoseCdolLeavesOutWhatTheCryptogramCovers) {
    EXPECT_EQ(complaint(debit_with("9C01 9F3704 9F2103 9F4E14", "9C01 9F2103 9F4E14")),
              "cannot be used. CDOL1 (8C) has to ask for 9F37 with 4 bytes, which the cryptogram "
              "covers.");
}

TEST(BadProfile, IsOneWhoseKeyOrDdolCannotSign) {
    EXPECT_EQ(complaint(debit_with("\"9F3704\"", "\"9F3702\"")),
              "cannot be used. DDOL (9F49) has to ask for 9F37 with 4 bytes, which the signature "
              "covers.");
    const std::string modulus =
        virtual_card::to_hex(profile("debit").applications[0].icc_key->modulus);
    for (const std::string& wrong : {modulus.substr(0, 126), "7F" + modulus.substr(2),
                                     modulus + modulus + modulus.substr(0, 112)}) {
        EXPECT_EQ(
            complaint(debit_with(modulus, wrong)),
            "cannot be used. The profile, applications 1, icc_key: \"modulus\" has to be 64 to "
            "247 bytes long, the first one 80 or more.");
    }
}

TEST(BadProfile, IsOneWhosePanIsNotDigits) {
    EXPECT_EQ(complaint(debit_with("\"6228000100001234565F\"", "\"62280001000012345AFF\"")),
              "cannot be used. The PAN (5A) has to be digits, filled up with F.");
}

} // namespace
} // namespace qaven::card_test
