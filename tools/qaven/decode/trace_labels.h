// The lines that the library writes into its trace.
#pragma once

#include "tools/qaven/decode/outline.h"

#include <string_view>

namespace qaven::cli {

// A line that begins with a label; the rest is a value.
struct TraceLabel {
    std::string_view label; // GBK, as it stands in the log
    std::string_view what;
    void (*explain)(std::string_view value, Outline& out);
};

// Null when the line begins with none of them.
const TraceLabel* find_label(std::string_view line);

// A line that says what is done now.
struct TraceStep {
    std::string_view line; // GBK, without blanks at its ends
    std::string_view what;
    bool is_entry_point;
};

const TraceStep* find_step(std::string_view line);

} // namespace qaven::cli
