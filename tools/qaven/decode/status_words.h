// What a card's status word says.
#pragma once

#include <string>

namespace tool {

// SW1 and SW2 in words; "unknown status word" for one that has no meaning.
std::string status_text(unsigned status);

// SW1 is one that cards use.
bool looks_like_status(unsigned status);

} // namespace tool
