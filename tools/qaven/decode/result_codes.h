// The library's results in words.
#pragma once

#include <string>

namespace tool {

// Of an entry point or a card operation: 0, a small negative code, or a status word.
std::string result_text(int result);

} // namespace tool
