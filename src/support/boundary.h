// The edge of the library: what happens inside an exported function stays inside.
#pragma once

#include <atomic>
#include <utility>

namespace qaven {

// How often memory could not be had. The result that stands for it is often that of a card, too.
inline std::atomic<unsigned> memory_shortages{0};

// Runs the body of an exported function. Memory that cannot be had is the only exception the
// library meets; it becomes the given result.
template <typename Body, typename Result>
Result guarded(Result on_exception, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        ++memory_shortages;
        return on_exception;
    }
}

} // namespace qaven
