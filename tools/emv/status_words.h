// What a card's status word says.
#pragma once

#include <string>

namespace qaven::emv {

// SW1 and SW2 in words; "unknown status word" for one that has no meaning.
std::string status_text(unsigned status);

// The digits and the words: "6A82 the file or application is not found".
std::string status_line(unsigned status);

// SW1 is one that cards use.
bool looks_like_status(unsigned status);

} // namespace qaven::emv
