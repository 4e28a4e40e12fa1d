// `qaven decode`: one value, taken apart.
#include "tools/qaven/cli/verbs.h"

#include "tools/emv/gbk.h"
#include "tools/emv/hex.h"
#include "tools/qaven/decode/decode.h"
#include "tools/qaven/decode/forms.h"
#include "tools/qaven/decode/outline.h"

#include <cstdio>
#include <iostream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

namespace qaven::cli {

using namespace emv;

namespace {

constexpr int kMakesNoSense = 1;
constexpr int kWrongUse = 2;

struct Options {
    const InputForm* form = nullptr;
    bool show_pan = false;
    std::string input;
    bool from_standard_input = false;
    bool has_input = false;
    bool help = false;
};

// A command line that cannot be meant.
class WrongUse : public std::runtime_error {
    using runtime_error::runtime_error;
};

void print_usage(std::ostream& out) {
    out << "usage: qaven decode [--as FORM] [--show-pan] [VALUE... | -]\n"
           "\n"
           "Takes a value apart that a card, an issuer or the library has given, and says in "
           "words\n"
           "what is in it. Without VALUE, or with -, the value comes from standard input; several "
           "are\n"
           "put together, so hex digits may have blanks between them.\n"
           "\n"
           "  --as FORM    what the value is; otherwise that is guessed\n"
           "  --show-pan   show account numbers, track data and identity numbers whole\n"
           "\n"
           "Forms:\n";
    for (const InputForm& form : all_forms()) {
        out << "  " << form.name << std::string(11 - form.name.size(), ' ') << form.what << '\n';
    }
    out << "\n"
           "A line with ! names what makes no sense: bytes that are missing or too many, a wrong\n"
           "length of a data object that has a fixed one, a day that the calendar does not have,\n"
           "a wrong check digit or check byte, JSON nested deeper than 64 levels. Of an unknown\n"
           "value the first 1000 characters are shown.\n"
           "\n"
           "Exit status: 0 the value makes sense to its end, 1 it does not, 2 wrong use.\n";
}

// A value in the wrong place is shown no more than one in the right place.
std::string unread(std::string_view argument) {
    return readable(Privacy(false).guarded(argument));
}

const InputForm& wanted_form(std::string_view name) {
    const InputForm* const form = form_named(name);
    if (form == nullptr) {
        throw WrongUse("no form is called '" + unread(name) + "'");
    }
    return *form;
}

Options read_arguments(std::span<const std::string_view> arguments) {
    constexpr std::string_view kFormIs = "--as=";
    Options options;
    bool only_values = false;
    for (std::size_t at = 0; at < arguments.size(); ++at) {
        const std::string_view argument = arguments[at];
        if (only_values || !argument.starts_with('-')) {
            options.input += (options.has_input ? " " : "") + std::string(argument);
            options.has_input = true;
        } else if (argument == "-") {
            options.from_standard_input = true;
        } else if (argument == "--") {
            only_values = true;
        } else if (argument == "--help" || argument == "-h") {
            options.help = true;
            return options;
        } else if (argument == "--show-pan") {
            options.show_pan = true;
        } else if (argument.starts_with(kFormIs)) {
            options.form = &wanted_form(argument.substr(kFormIs.size()));
        } else if (argument != "--as") {
            throw WrongUse("no option is called '" + unread(argument) + "'");
        } else if (++at == arguments.size()) {
            throw WrongUse("--as needs a form");
        } else {
            options.form = &wanted_form(arguments[at]);
        }
    }
    if (options.from_standard_input && options.has_input) {
        throw WrongUse("a value and - at once");
    }
    return options;
}

int decode_as(Options options) {
    if (!options.has_input) {
        options.input.assign(std::istreambuf_iterator<char>(std::cin), {});
    }
    const std::string text = cleaned_input(options.input);
    if (options.form == nullptr && trimmed(text).empty()) {
        throw WrongUse("there is no value");
    }
    Privacy privacy(options.show_pan);
    Outline out(privacy);
    const bool sound = decode(text, options.form, out);
    std::cout << out.text() << std::flush;
    return sound ? 0 : kMakesNoSense;
}

} // namespace

std::string cleaned_input(std::string_view input) {
    while (!input.empty() && (input.back() == '\n' || input.back() == '\r')) {
        input.remove_suffix(1);
    }
    if (input.size() >= 2 && input.front() == '"' && input.back() == '"') {
        input = input.substr(1, input.size() - 2);
    }
    constexpr std::size_t kEscape = 6;
    std::string text;
    for (std::size_t at = 0; at < input.size();) {
        const std::string_view escape = input.substr(at, kEscape);
        const bool escaped = !input.starts_with('{') && escape.size() == kEscape &&
                             escape.starts_with("\\u00") && digit_value(escape[4]) >= 0 &&
                             digit_value(escape[5]) >= 0;
        text += escaped ? static_cast<char>(16 * digit_value(escape[4]) + digit_value(escape[5]))
                        : input[at];
        at += escaped ? kEscape : 1;
    }
    // Text that is GBK already stays as it is.
    return to_gbk(text).value_or(text);
}

bool decode(std::string_view text, const InputForm* form, Outline& out) {
    out.privacy().learn(text);
    if (form == nullptr) {
        form = guessed_form(text);
    }
    if (form == nullptr) {
        out.problem("at character 0: nothing tells what this is: " + out.excerpt(text));
        return false;
    }
    out.line(std::string(form->what));
    const auto nest = out.nest();
    form->explain(text, out);
    return !out.has_problems();
}

int decode_command(std::span<const std::string_view> arguments) {
    try {
        Options options = read_arguments(arguments);
        if (options.help) {
            print_usage(std::cout);
            return 0;
        }
        return decode_as(std::move(options));
    } catch (const WrongUse& wrong) {
        std::cerr << "qaven decode: " << wrong.what() << "\nTry 'qaven decode --help'.\n";
        return kWrongUse;
    }
}

} // namespace qaven::cli
