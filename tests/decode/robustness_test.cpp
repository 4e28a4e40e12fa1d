// Values that are cut off, and values in which something is different.
#include "samples.h"

#include <gtest/gtest.h>

#include <array>
#include <cstdlib>

using namespace tool::test;

namespace {

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
