// `qaven decode`: one value, taken apart.
#include "decode/commands.h"

#include "decode/bytes.h"
#include "decode/decode.h"
#include "decode/forms.h"
#include "decode/outline.h"
#include "decode/text.h"

#include <cstdio>
#include <iostream>
#include <iterator>
#include <optional>
#include <string>

namespace tool {

namespace {

constexpr int kMakesNoSense = 1;
constexpr int kWrongUse = 2;

struct Options {
    const InputForm* form = nullptr;
    bool show_pan = false;
    std::string input;
    bool from_standard_input = false;
    bool has_input = false;
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
           "Exit status: 0 the value makes sense to its end, 1 it does not, 2 wrong use.\n";
}

int refuse(std::string_view why) {
    std::cerr << "qaven decode: " << why << "\nTry 'qaven decode --help'.\n";
    return kWrongUse;
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
    return as_gbk(text);
}

bool decode(std::string_view text, const InputForm* form, Outline& out) {
    out.privacy().learn(text);
    if (form == nullptr) {
        form = guessed_form(text);
    }
    if (form == nullptr) {
        out.problem("at character 0: nothing tells what this is: " +
                    in_quotes(out.privacy().guarded(text)));
        return false;
    }
    out.line(std::string(form->what));
    const auto nest = out.nest();
    form->explain(text, out);
    return !out.has_problems();
}

int decode_command(std::span<const std::string_view> arguments) {
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
            print_usage(std::cout);
            return 0;
        } else if (argument == "--show-pan") {
            options.show_pan = true;
        } else if (argument == "--as" || argument.starts_with("--as=")) {
            if (argument == "--as" && ++at == arguments.size()) {
                return refuse("--as needs a form");
            }
            const std::string_view name = argument == "--as" ? arguments[at] : argument.substr(5);
            options.form = form_named(name);
            if (options.form == nullptr) {
                return refuse("no form is called '" + readable(name) + "'");
            }
        } else {
            return refuse("no option is called '" + readable(argument) + "'");
        }
    }
    if (options.from_standard_input && options.has_input) {
        return refuse("a value and - at once");
    }
    if (!options.has_input) {
        options.input.assign(std::istreambuf_iterator<char>(std::cin), {});
    }

    const std::string text = cleaned_input(options.input);
    if (options.form == nullptr && trimmed(text).empty()) {
        return refuse("there is no value");
    }
    Privacy privacy(options.show_pan);
    Outline out(privacy);
    const bool sound = decode(text, options.form, out);
    std::cout << out.text() << std::flush;
    return sound ? 0 : kMakesNoSense;
}

} // namespace tool
