// The two commands as a program: `qaven-decode decode ...`, `qaven-decode trace ...`.
#include "decode/commands.h"

#include <iostream>
#include <vector>

int main(int argc, char** argv) {
    const auto words = std::span(argv, static_cast<std::size_t>(argc)).subspan(1);
    const std::vector<std::string_view> arguments(words.begin(), words.end());
    const auto rest = std::span(arguments).subspan(arguments.empty() ? 0 : 1);
    if (!arguments.empty() && arguments[0] == "decode") {
        return tool::decode_command(rest);
    }
    if (!arguments.empty() && arguments[0] == "trace") {
        return tool::trace_command(rest);
    }
    std::cerr << "usage: qaven-decode decode|trace ...\n";
    return 2;
}
