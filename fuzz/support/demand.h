// What a target demands of the library beyond not crashing.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace qaven::fuzz {

// Stops the program, as the sanitizers do, when what a function promises does not hold.
inline void demand(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "broken promise: %s\n", what);
        std::abort();
    }
}

} // namespace qaven::fuzz
