// What is said about the commands that a card gets and about its answers.
#include "golden.h"
#include "samples.h"

#include "support/qmlog.h"
#include "tools/emv/hex.h"

#include "../temporary_folder.h"

#include "virtual/card/card_factory.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <iterator>

using namespace qaven::cli::test;
using testing::HasSubstr;

namespace {

using namespace qaven::emv;

// The dialogue of a transaction, an authentication and a script that are wrong included: wrong ones
// are the same in every run.
constexpr const char* kDialogue[] = {
    "00A404000E315041592E5359532E444446303100",
    "00B2010C00",
    "00A4040008A000000333010101",
    "00A4040008A000000333010102",
    "00A4040008A000000333010101",
    "80A800000B8309010000000000120156",
    "00B2010C00",
    "00B2020C00",
    "00B2011400",
    "00B2021400",
    "80CA9F3600",
    "80CA9F7900",
    "0020008008241234FFFFFFFFFF",
    ("80AE800034000000001213000000000000015600080060000156190422339F8E7D6C161355"
     "4D52434820434E54203030303100000000000000"),
    "008200000A11223344556677883030",
    ("80AE400022303000000000121300000000000001560008006000015619042233"
     "9F8E7D6C161355"),
    "04DA9F780A0000000600003019E8B9",
    "00B2015C00",
    "80CA9F4F00",
    "00FF000000",
};

class CardDialogue : public testing::Test {
  protected:
    // Traced as a host would that wants to know what went over the line.
    static void hold() {
        const auto card =
            qaven::virtual_card::make_card(std::string(QAVEN_PROFILES) + "/debit.json");
        dump("ATR", card->power_on());
        for (const char* const digits : kDialogue) {
            const auto command = from_hex(digits).bytes;
            dump("to the card", command);
            dump("from the card", card->transmit(command));
        }
    }

    static std::string log() {
        std::ifstream file("Qm_ic.log", std::ios::binary);
        return {std::istreambuf_iterator<char>(file), {}};
    }

  private:
    static void dump(const char* title, std::vector<unsigned char> bytes) {
        WriteKsTitleLogHex(title, bytes.data(), static_cast<int>(bytes.size()));
    }

    qaven::test::WorkingFolder folder_;
};

TEST_F(CardDialogue, IsToldAsCommitted) {
    hold();
    expect_committed("card-dialogue", traced(log()));
}

TEST_F(CardDialogue, ShowsNeitherTheNumbersNorThePin) {
    hold();
    ASSERT_TRUE(shows(log(), kAccountNumber));
    const std::string text = traced(log());
    EXPECT_FALSE(shows(text, kAccountNumber));
    EXPECT_FALSE(shows(text, kIdentityNumber));
    EXPECT_EQ(text.find("241234FF"), std::string::npos);
    EXPECT_THAT(text, HasSubstr("00200080 VERIFY: plaintext PIN"));
}

} // namespace
