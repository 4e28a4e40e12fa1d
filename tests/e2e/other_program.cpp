// Another program at the reader: holds a slot's interface until its standard input ends.
//
// usage: qaven-e2e-other-program SLOT      says "held" when it has the interface
#include "reader_state.h"

#include <cstdio>
#include <cstdlib>
#include <span>
#include <string>

int main(int argc, char** argv) {
    const std::span<char* const> arguments(argv, static_cast<std::size_t>(argc));
    if (arguments.size() != 2) {
        std::fputs("usage: qaven-e2e-other-program SLOT\n", stderr);
        return 2;
    }
    const qaven::test::OtherProgram other(std::stoi(arguments[1]));
    if (!other.has_interface()) {
        std::puts("not held");
        return EXIT_FAILURE;
    }
    std::puts("held");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return EXIT_SUCCESS;
}
