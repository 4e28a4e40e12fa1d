// Where a trace comes from: a file, a file that grows, standard input.
#pragma once

#include <functional>
#include <string>
#include <string_view>

namespace qaven::cli {

struct TraceSink {
    std::function<void(std::string_view)> piece;
    // Nothing has come for a while.
    std::function<void()> pause;
    // The file was replaced or emptied; what comes now is from its beginning.
    std::function<void()> restart;
};

// False when the file cannot be read; errno says why.
bool read_trace(const std::string& path, const TraceSink& sink);

void read_standard_input(const TraceSink& sink);

// Reads on until SIGINT. The file need not be there yet, and may be emptied or replaced.
void follow_trace(const std::string& path, const TraceSink& sink);

} // namespace qaven::cli
