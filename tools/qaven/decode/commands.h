// `qaven decode` and `qaven trace`: what cards, issuers and the library say, in words.
#pragma once

#include <span>
#include <string_view>

namespace tool {

// Each prints to standard output, complains to standard error and returns an exit status: 0, 1 for
// input that does not make sense to its end, 2 for a wrong use.
int decode_command(std::span<const std::string_view> arguments);
int trace_command(std::span<const std::string_view> arguments);

} // namespace tool
