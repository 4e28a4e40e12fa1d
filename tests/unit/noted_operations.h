// Stands between the wrappers and the card operations, where the linker puts it, and notes what the
// operations are called with: positions that they do not read show nowhere else. Likewise between
// the operations and the close hooks, which do nothing that could be seen, and between the commands
// and their exchange.
#pragma once

#include <string>
#include <vector>

namespace qaven::test {

// The texts that the latest card operation was called with, from position 1 to its last input.
// Positions without a text stand as "(none)".
const std::vector<std::string>& noted_texts();

// The waiting hint of the latest exchange, which the exchange does not use.
int noted_wait();

// How often the close hooks for card and reader have been called since this was last asked.
struct HookCalls {
    int card = 0;
    int reader = 0;

    bool operator==(const HookCalls&) const = default;
};
HookCalls take_hook_calls();

} // namespace qaven::test
