// What is measured inside the library: each case is one call of a function on data as cards and
// hosts have it.
#pragma once

#include <span>

namespace qaven::bench {

struct Case {
    const char* name;
    void (*run)();
};

std::span<const Case> cases();

} // namespace qaven::bench
