// `qaven trace`: the library's trace log, made readable.
#include "tools/qaven/cli/verbs.h"

#include "tools/emv/gbk.h"
#include "tools/emv/privacy.h"
#include "tools/qaven/decode/trace_printer.h"
#include "tools/qaven/decode/trace_reader.h"
#include "tools/qaven/decode/trace_source.h"

#include <cerrno>
#include <cstring>
#include <iostream>
#include <optional>
#include <string>

namespace qaven::cli {

using namespace emv;

namespace {

constexpr int kUnreadable = 1;
constexpr int kWrongUse = 2;

constexpr std::string_view kDefaultFile = "Qm_ic.log";

constexpr std::string_view kUsage =
    "usage: qaven trace [--follow] [--show-pan] [FILE | -]\n"
    "\n"
    "Prints the library's trace log (default: Qm_ic.log in the working directory; -: standard\n"
    "input) in UTF-8, with the values in it taken apart. A value that the library traces more "
    "than\n"
    "once in a call is explained once.\n"
    "\n"
    "  -f, --follow   go on with what is written later, until interrupted; the file need not be\n"
    "                 there yet, and may be emptied or replaced\n"
    "  --show-pan     show account numbers, track data and identity numbers whole\n"
    "\n"
    "Exit status: 0, 1 the file cannot be read, 2 wrong use.\n";

int refuse(const std::string& why) {
    std::cerr << "qaven trace: " << why << "\nTry 'qaven trace --help'.\n";
    return kWrongUse;
}

} // namespace

int trace_command(std::span<const std::string_view> arguments) {
    bool follow = false;
    bool show_pan = false;
    bool only_files = false;
    std::optional<std::string> file;
    for (const std::string_view argument : arguments) {
        if (only_files || !argument.starts_with('-') || argument == "-") {
            if (file) {
                return refuse("more than one file");
            }
            file = argument;
        } else if (argument == "--") {
            only_files = true;
        } else if (argument == "--help" || argument == "-h") {
            std::cout << kUsage;
            return 0;
        } else if (argument == "--follow" || argument == "-f") {
            follow = true;
        } else if (argument == "--show-pan") {
            show_pan = true;
        } else {
            return refuse("no option is called '" + readable(Privacy(false).guarded(argument)) +
                          "'");
        }
    }

    Privacy privacy(show_pan);
    TracePrinter printer(privacy);
    TraceReader reader;
    const auto print = [&] {
        while (const auto entry = reader.next()) {
            std::cout << printer.text(*entry);
        }
        std::cout.flush();
    };
    const TraceSink sink{
        [&](std::string_view piece) {
            reader.feed(piece);
            print();
        },
        [&] {
            reader.pause();
            print();
        },
        [&] {
            reader.restart();
            std::cout << "\n(the trace begins anew)\n";
        },
    };

    const std::string path = file.value_or(std::string(kDefaultFile));
    if (path == "-") {
        read_standard_input(sink);
    } else if (follow) {
        follow_trace(path, sink);
    } else if (!read_trace(path, sink)) {
        std::cerr << "qaven trace: " << path << ": " << std::strerror(errno) << '\n';
        return kUnreadable;
    }
    reader.finish();
    print();
    return 0;
}

} // namespace qaven::cli
