// A sweep as a program.
#pragma once

#include <string>
#include <vector>

namespace qaven::sweep {

struct CommandLine {
    bool thorough = false;          // --all: every case, not a sample
    bool write = false;             // --write: what comes out is the expected result from now on
    std::vector<std::string> words; // which one case to explain
};

// Runs the sweep with the library's progress lines off; a failure is told on standard error.
int run_program(int argc, char** argv, int (*sweep)(const CommandLine&));

} // namespace qaven::sweep
