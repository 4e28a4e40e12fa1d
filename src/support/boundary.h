// The edge of the library: what happens inside an exported function stays inside.
#pragma once

#include <utility>

namespace qaven {

// Runs the body of an exported function. Memory that cannot be had is the only exception the
// library meets; it becomes the given result.
template <typename Body, typename Result>
Result guarded(Result on_exception, Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (...) {
        return on_exception;
    }
}

// A host that passes no text at all means an empty one.
constexpr const char* text_or_empty(const char* text) {
    return text != nullptr ? text : "";
}

} // namespace qaven
