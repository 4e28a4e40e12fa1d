// Values that are cut off, and values in which something is different.
#include "samples.h"

#include "tools/emv/hex.h"
#include "tools/qaven/decode/forms.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstdlib>

using namespace qaven::cli::test;

namespace {

using namespace qaven::cli;
using namespace qaven::emv;

// A number with a wrong digit in it is no account number any more, but a telling part of one.
// Shorter runs of digits could be anything.
constexpr std::size_t kTelling = 13;

// What a byte of a text is replaced by: digits, letters, what ends things, what is no text at all.
constexpr std::array kReplacements{'0', '9', 'A', 'F',  'P',    '=',   ':',
                                   '"', '{', ' ', '\n', '\x1F', '\xFF'};

// From one of so many places to the next that is tried. Some thousand places, fewer in instrumented
// programs, which are slower by more than ten times; each replacement has its turn in them. Every
// place with QAVEN_EVERY_PLACE in the environment, as `./run sweep` sets it.
std::size_t step_among(std::size_t places) {
#ifdef __SANITIZE_ADDRESS__
    constexpr std::size_t kTried = 300;
#else
    constexpr std::size_t kTried = 1000;
#endif
    if (std::getenv("QAVEN_EVERY_PLACE") != nullptr) {
        return 1;
    }
    const std::size_t step = places / kTried + 1;
    return step % kReplacements.size() == 0 ? step + 1 : step;
}

std::string in_pairs(const std::string& digits) {
    std::string pairs;
    for (std::size_t at = 0; at < digits.size(); at += 2) {
        pairs += digits.substr(at, 2) + ' ';
    }
    return pairs;
}

class Spoilt : public testing::TestWithParam<Sample> {
  protected:
    // Something is said about everything, and never the cardholder's number.
    static void expect_discreet(const std::string& text, const std::string& form) {
        const std::string said = decoded(text, form);
        EXPECT_FALSE(said.empty()) << text;
        EXPECT_FALSE(shows(said, kAccountNumber, kTelling)) << text << '\n' << said;
    }
};

TEST_P(Spoilt, CutOffAnywhere) {
    const Sample& sample = GetParam();
    const std::size_t step = step_among(sample.text.size());
    for (std::size_t size = 1; size < sample.text.size(); size += step) {
        expect_discreet(sample.text.substr(0, size), sample.form);
    }
}

TEST_P(Spoilt, WithAnyCharacterReplaced) {
    const Sample& sample = GetParam();
    const std::size_t places = sample.text.size() * kReplacements.size();
    for (std::size_t k = 0; k < places; k += step_among(places)) {
        std::string text = sample.text;
        text[k / kReplacements.size()] = kReplacements[k % kReplacements.size()];
        expect_discreet(text, sample.form);
    }
}

INSTANTIATE_TEST_SUITE_P(Samples, Spoilt, testing::ValuesIn(samples()), [](const auto& instance) {
    std::string name = instance.param.name;
    std::erase(name, '-');
    return name;
});

// What hosts log and people paste: the numbers in every form, each with nothing beside it that
// would tell what the number is when its own tag, letter or key is spoilt.
const std::vector<std::string>& real_texts() {
    static const std::vector<std::string> texts = [] {
        const std::string number = kAccountNumber;
        const std::string shorter = kShorterNumber;
        const std::string identity = kIdentityNumber;
        const std::string record = "7015"
                                   "5A0A6228000100001234565F"
                                   "5F24033012315F340101";
        const std::string holder = "70189F6112" + hex(bytes_of(identity)) + "9F620100";
        std::vector<std::string> all{
            number,
            "A019" + number + "B015TEST/CARDHOLDERC00200D018" + identity + "I006301231",
            "A016" + shorter + "J003001",
            R"({"IcInfo":"A019)" + number + R"(B003ABC","IcARQC":"","errmsg":""})",
            R"({"IcInfo": "D018)" + identity + R"(A016)" + shorter + R"(", "LpAppData": ""})",
            "resmsg:{\n\t\"IcInfo\":\t\"A019" + number + "\",\n\t\"IcARQC\":\t\"\"\n}\r\n",
            "valueRet:A019" + number + "C00200D018" + identity + "\r\n\r\n",
            record,
            holder,
            "5A086228000200006545"
            "5F340101"
            "9F360200049A03190422",
            "57136228000100001234565D30122201234567890F",
            "E030" + number + "=3012220123B003ABC",
            "LpAppData:000012"
            "5A0A6228000100001234565F",
            "9F2608D2F6E9DCD5CC9617"
            "9F0206000000001213"
            "5A0A6228000100001234565F"
            "820279009F3602001A",
            "00DC0114175A0A6228000100001234565F"
            "5F2403301231"
            "5F340101",
            "80A800000C830A6228000100001234565F",
            "the clerk typed " + number + " at 20260102030405",
            "card 6228 0001 0000 1234 565, born " + identity,
            "from the card(HEX): " + in_pairs(record + "9000") + "\r\n",
            "from the card(HEX): " + in_pairs(holder + "9000") + "\r\n",
            "to the card(HEX): " + in_pairs("00DC0114175A0A6228000100001234565F5F2403301231") +
                "\r\n",
            "HEX: " + in_pairs("5A0A6228000100001234565F5F340101") + "\n",
            "text(HEX): " + in_pairs(hex(bytes_of("A019" + number + "B003ABC"))) + "\r\n",
        };
        for (const Sample& sample : samples()) {
            all.push_back(sample.text);
        }
        return all;
    }();
    return texts;
}

// The same sequence in every run and with every library.
class Dice {
  public:
    explicit Dice(std::uint32_t seed) : state_(seed) {}

    std::size_t below(std::size_t limit) {
        state_ = state_ * 6364136223846793005U + 1442695040888963407U;
        return static_cast<std::size_t>(state_ >> 33U) % limit;
    }

  private:
    std::uint64_t state_;
};

// A line end within a number makes two lines of a log, neither of which has a number.
std::string on_one_line(std::string text) {
    std::ranges::replace(text, '\n', ';');
    return text;
}

std::string damaged(std::string text, Dice& dice) {
    for (std::size_t count = 1 + dice.below(3); count > 0 && !text.empty(); --count) {
        const std::size_t at = dice.below(text.size());
        const char drawn = kReplacements.at(dice.below(kReplacements.size()));
        const char character = on_one_line({drawn})[0];
        switch (dice.below(6)) {
        case 0:
            text.erase(at, 1);
            break;
        case 1:
            text.insert(at, 1, character);
            break;
        case 2:
            text.erase(at);
            break;
        case 3:
            text.erase(0, at);
            break;
        case 4:
            text.insert(at, on_one_line(text.substr(dice.below(text.size()), dice.below(40))));
            break;
        default:
            text[at] = character;
        }
    }
    return text;
}

TEST(DamagedText, ShowsNoTellingPartOfANumber) {
    Dice dice(20261121);
    constexpr std::size_t kRounds = 50'000;
    const std::size_t rounds = kRounds / step_among(kRounds);
    for (std::size_t round = 0; round < rounds; ++round) {
        const std::string text = damaged(real_texts().at(dice.below(real_texts().size())), dice);
        const std::string form(all_forms()[dice.below(all_forms().size())].name);
        for (const std::string number : {kAccountNumber, kShorterNumber, kIdentityNumber}) {
            for (const std::string& said : {decoded(text), decoded(text, form), traced(text)}) {
                ASSERT_FALSE(shows(said, number, kTelling))
                    << number << " in " << round << " as " << form << '\n'
                    << text << '\n'
                    << said;
            }
        }
    }
}

TEST(SpoiltTrace, CutOffAnywhere) {
    const std::string log = sample_file("transaction.trace");
    for (std::size_t size = 0; size < log.size(); size += 97 * step_among(log.size())) {
        EXPECT_FALSE(shows(traced(log.substr(0, size)), kAccountNumber)) << size;
    }
}

TEST(SpoiltTrace, WithAnyByteReplaced) {
    const std::string log = sample_file("transaction.trace");
    for (std::size_t at = 0; at < log.size(); at += 131 * step_among(log.size())) {
        for (const char replacement : {'9', '\n', '\xFF'}) {
            std::string text = log;
            text[at] = replacement;
            EXPECT_FALSE(shows(traced(text), kAccountNumber, kTelling))
                << at << ' ' << int{replacement};
        }
    }
}

} // namespace
