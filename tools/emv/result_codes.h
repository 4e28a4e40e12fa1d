// The library's results in words.
#pragma once

#include <string>

namespace qaven::emv {

// What a result of an entry point or a card operation means: 0, a small negative code, or a status
// word of the card.
std::string result_words(int result);

// The same after the number, as a trace has it: "-7: the reader did not answer in time".
std::string result_text(int result);

} // namespace qaven::emv
