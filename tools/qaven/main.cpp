// qaven: the library's operations on the command line. Finds the verb and turns what goes wrong in
// it into a sentence and an exit status.
#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/cli/terminal.h"
#include "tools/qaven/cli/verbs.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

namespace {

using namespace qaven::cli;

struct Verb {
    std::string_view name;
    std::string_view purpose;
    int (*run)(Arguments arguments);
};

constexpr std::array verbs{
    Verb{"info", "what the card in the reader says about itself", info_command},
    Verb{"arqc", "ask the card for an authorisation request (ARQC)", arqc_command},
    Verb{"arpc", "hand an issuer's answer to the card", arpc_command},
    Verb{"log", "the card's log of its transactions", log_command},
    Verb{"loadlog", "the card's log of electronic-cash loads", loadlog_command},
    Verb{"idcard", "read the identity card on the identity-card reader", idcard_command},
    Verb{"decode", "what cards, issuers and the library say, in words", decode_command},
    Verb{"trace", "the library's trace made readable", trace_command},
    Verb{"doctor", "find out why reader or card do not work", doctor_command},
};

constexpr const char* kEpilogue =
    "\n"
    "'qaven VERB --help' lists the options of a verb; qaven(1) is the manual.\n"
    "\n"
    "The library's trace, which holds card numbers, is written only for --trace. Its progress "
    "lines\n"
    "are off; QAVEN_DIAGNOSTICS=stderr shows them.\n"
    "\n"
    "exit status: 0 fine, 1 the operation failed, 2 wrong usage, 3 no reader that could be used,\n"
    "4 no card, 5 the transaction was declined\n";

void print_help() {
    std::fputs("usage: qaven VERB [OPTIONS]\n"
               "       qaven help [VERB] | --help | --version\n\n",
               stdout);
    for (const Verb& verb : verbs) {
        std::printf("  %-9s %s\n", std::string(verb.name).c_str(),
                    std::string(verb.purpose).c_str());
    }
    std::fputs(kEpilogue, stdout);
}

// A sentence on standard error, behind what was printed before.
void print_error(const std::string& command, const std::string& sentence) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s: %s\n", command.c_str(), printable(sentence).c_str());
}

int usage_error(const std::string& command, const std::string& sentence) {
    print_error(command, sentence);
    std::fprintf(stderr, "'%s --help' tells what it takes.\n", command.c_str());
    return kUsage;
}

// The exit status of a command that has done its work: what could not be written has not been said.
int exit_code(const std::string& command, int status) {
    if (output_written()) {
        return status;
    }
    // Whoever reads has seen enough, like head: no more of a failure than for any other program.
    if (output_reader_gone()) {
        std::raise(SIGPIPE);
    }
    print_error(command, kNotWritten);
    return kFailed;
}

int run(const Verb& verb, Arguments arguments) {
    const std::string command = "qaven " + std::string(verb.name);
    try {
        return exit_code(command, verb.run(arguments));
    } catch (const UsageError& error) {
        return usage_error(command, error.what());
    } catch (const Failure& failure) {
        print_error(command, failure.what());
        return failure.status();
    }
}

int choose(Arguments arguments) {
    if (arguments.empty()) {
        return usage_error("qaven", "a verb is missing");
    }
    std::string_view name = arguments.front();
    arguments = arguments.subspan(1);
    if (name == "help" && !arguments.empty()) {
        // "help info" is "info --help".
        static constexpr std::array<std::string_view, 1> help{"--help"};
        name = arguments.front();
        arguments = help;
    }
    if (name == "--help" || name == "-h" || name == "help") {
        print_help();
        return exit_code("qaven", kFine);
    }
    if (name == "--version") {
        std::puts("qaven " QAVEN_VERSION);
        return exit_code("qaven", kFine);
    }
    const auto* const verb = std::ranges::find(verbs, name, &Verb::name);
    if (verb == verbs.end()) {
        return usage_error("qaven", "there is no verb '" + std::string(name) + "'");
    }
    return run(*verb, arguments);
}

// Answers and the library's progress lines would mix on standard output, where the library puts
// them also when the variable has no word that it knows.
void silence_progress_lines() {
    static constexpr const char* name = "QAVEN_DIAGNOSTICS";
    const char* const chosen = std::getenv(name);
    const std::string_view word = chosen == nullptr ? "" : chosen;
    if (word != "stdout" && word != "stderr") {
        setenv(name, "off", 1);
    }
}

// A stream that the caller has closed gets something that can be neither read nor written. Its
// number would go to the next file that is opened, for the trace or the reader, and what is printed
// would go there.
void occupy_closed_streams() {
    for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
        if (fcntl(stream, F_GETFD) < 0) {
            open("/", O_RDONLY | O_DIRECTORY); // takes the lowest free number, this one
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    try {
        occupy_closed_streams();
        silence_progress_lines();
        const std::vector<std::string_view> arguments(std::next(argv, std::min(argc, 1)),
                                                      std::next(argv, argc));
        return choose(arguments);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "qaven: %s\n", error.what());
        return kFailed;
    }
}
