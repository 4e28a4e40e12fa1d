// Stands between the wrappers and the card operations, where the linker puts it, and notes what the
// operations are called with: positions that they do not read show nowhere else.
#pragma once

#include <string>
#include <vector>

namespace qaven::test {

// The texts that the latest card operation was called with, from position 1 to its last input.
// Positions without a text stand as "(none)".
const std::vector<std::string>& noted_texts();

} // namespace qaven::test
