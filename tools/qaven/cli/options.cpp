// Reading a verb's command line, and its help.
#include "tools/qaven/cli/options.h"

#include "tools/qaven/cli/exit_status.h"

#include <algorithm>
#include <cstdio>
#include <ranges>

namespace qaven::cli {

namespace {

constexpr Option kHelp{"--help", "", "this text"};
constexpr std::size_t kHelpColumn = 24;

void print_option(const Option& option) {
    std::string line = "  " + std::string(option.name);
    if (!option.value.empty()) {
        line += " " + std::string(option.value);
    }
    // A description begins beside its option if there is room.
    if (line.size() + 2 > kHelpColumn) {
        line += "\n";
        line.append(kHelpColumn, ' ');
    } else {
        line.resize(kHelpColumn, ' ');
    }
    for (const char character : option.help) {
        line += character;
        if (character == '\n') {
            line.append(kHelpColumn, ' ');
        }
    }
    std::puts(line.c_str());
}

void print_help(const Syntax& syntax) {
    const std::string usage(syntax.usage);
    std::printf("usage: qaven %s%s%s\n\n%s\n\n", std::string(syntax.verb).c_str(),
                usage.empty() ? "" : " ", usage.c_str(), std::string(syntax.purpose).c_str());
    for (const Option& option : syntax.options) {
        print_option(option);
    }
    print_option(kHelp);
    if (!syntax.notes.empty()) {
        std::printf("\n%s\n", std::string(syntax.notes).c_str());
    }
}

bool asks_for_help(std::string_view argument) {
    return argument == kHelp.name || argument == "-h";
}

} // namespace

std::optional<std::string> Options::value(std::string_view name) const {
    const auto given = given_.find(name);
    return given == given_.end() ? std::nullopt : std::optional(given->second.back());
}

std::string Options::value_or(std::string_view name, std::string_view otherwise) const {
    return value(name).value_or(std::string(otherwise));
}

std::vector<std::string> Options::all(std::string_view name) const {
    const auto given = given_.find(name);
    return given == given_.end() ? std::vector<std::string>() : given->second;
}

std::optional<Options> read_options(const Syntax& syntax, Arguments arguments) {
    if (std::ranges::any_of(arguments, asks_for_help)) {
        print_help(syntax);
        return std::nullopt;
    }
    Options options;
    for (std::size_t i = 0; i < arguments.size(); ++i) {
        const std::string_view argument = arguments[i];
        const std::size_t equals = argument.find('=');
        const std::string name(argument.substr(0, equals));
        const auto option = std::ranges::find(syntax.options, name, &Option::name);
        if (option == syntax.options.end()) {
            throw UsageError("it takes no '" + std::string(argument) + "'");
        }
        if (option->value.empty()) {
            if (equals != std::string_view::npos) {
                throw UsageError(name + " takes no value");
            }
            options.given_[name].emplace_back();
        } else if (equals != std::string_view::npos) {
            options.given_[name].emplace_back(argument.substr(equals + 1));
        } else if (++i < arguments.size()) {
            options.given_[name].emplace_back(arguments[i]);
        } else {
            throw UsageError(name + " needs a value: " + std::string(option->value));
        }
    }
    return options;
}

} // namespace qaven::cli
