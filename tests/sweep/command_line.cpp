// A sweep as a program.
#include "command_line.h"

#include "transaction.h"

#include <cstdlib>
#include <exception>
#include <iostream>
#include <span>
#include <string_view>

namespace qaven::sweep {

int run_program(int argc, char** argv, int (*sweep)(const CommandLine&)) {
    try {
        CommandLine line;
        for (const std::string_view word :
             std::span(argv, static_cast<std::size_t>(argc)).subspan(1)) {
            if (word == "--all") {
                line.thorough = true;
            } else if (word == "--write") {
                line.write = true;
            } else {
                line.words.emplace_back(word);
            }
        }
        const QuietHost host;
        return sweep(line);
    } catch (const std::exception& problem) {
        std::cerr << problem.what() << '\n';
        return EXIT_FAILURE;
    }
}

} // namespace qaven::sweep
