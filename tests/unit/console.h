// What code prints on standard output and standard error, byte for byte.
#pragma once

#include <functional>
#include <string>

namespace qaven::test {

struct Printed {
    std::string out;
    std::string err;
};

// Runs the action with both streams captured and QAVEN_DIAGNOSTICS set to sink (null: not set). The
// test program runs with the diagnostics off otherwise. Expectations belong behind the call: their
// messages would be captured too.
Printed printed_by(const std::function<void()>& action, const char* sink = nullptr);

} // namespace qaven::test
