// The card operations that run inside a JSON call. The linker hands their calls from the host layer
// to this file first (--wrap), which notes code and error text.
#pragma once

#include "transaction.h"

#include <vector>

namespace qaven::sweep {

// What ran since the last call of this function.
std::vector<Operation> take_operations();

// GBK bytes as UTF-8, without the blanks at both ends that a fixed-width display wants.
std::string from_gbk(std::string_view text);

// A text and its zero in a block of their size, so that the address sanitizer sees who reads behind
// it.
inline std::vector<char> in_its_block(std::string_view text) {
    std::vector<char> block(text.size() + 1);
    std::ranges::copy(text, block.begin());
    return block;
}

} // namespace qaven::sweep
