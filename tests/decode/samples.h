// Values as cards, issuers and the library gave them.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace qaven::cli::test {

// The cardholder of the shipped debit card.
constexpr const char* kAccountNumber = "6228000100001234565";
constexpr const char* kShorterNumber = "6228000200006545";
constexpr const char* kIdentityNumber = "110101199001010000";

struct Sample {
    std::string name;
    std::string text;
    std::string form; // "" to let it be guessed
};

// How tests name it.
void PrintTo(const Sample& sample, std::ostream* out);

// The files NAME.txt and NAME.as-FORM.txt.
std::vector<Sample> samples();

// One file of the samples, whole.
std::string sample_file(const std::string& name);

// What decode prints about a value.
std::string decoded(const std::string& text, const std::string& form = "", bool show_pan = false);

// What trace prints about a log.
std::string traced(const std::string& log, bool show_pan = false);

// Whether text shows so many digits of the number in a row, or more, in whatever form: as digits,
// as hex of the characters, with blanks and line ends between.
bool shows(const std::string& text, const std::string& number, std::size_t too_many = 9);

} // namespace qaven::cli::test
