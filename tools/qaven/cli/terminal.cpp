// Labelled fields, tables and colours.
#include "tools/qaven/cli/terminal.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <poll.h>
#include <unistd.h>

namespace qaven::cli {

namespace {

bool wants_colours() {
    const char* const refusal = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return (refusal == nullptr || *refusal == '\0') && isatty(STDOUT_FILENO) == 1 &&
           terminal != nullptr && std::string_view(terminal) != "dumb";
}

const char* escape_of(Colour colour) {
    switch (colour) {
    case Colour::kBold:
        return "\033[1m";
    case Colour::kGreen:
        return "\033[32m";
    case Colour::kRed:
        return "\033[31m";
    case Colour::kYellow:
        return "\033[33m";
    case Colour::kNone:
        break;
    }
    return "";
}

// The bytes of the first character of UTF-8 (RFC 3629); 0 when the text does not begin with one.
std::size_t character_size(std::string_view text) {
    const auto byte = [text](std::size_t at) {
        return at < text.size() ? static_cast<unsigned char>(text[at]) : 0U;
    };
    if (text.empty() || byte(0) < 0x80) {
        return text.empty() ? 0 : 1;
    }
    const std::size_t size = byte(0) >= 0xF0 ? 4 : byte(0) >= 0xE0 ? 3 : 2;
    const bool lead = byte(0) >= 0xC2 && byte(0) <= 0xF4;
    // No longer form than needed, no half of a pair of UTF-16, nothing beyond the last character.
    const bool second = (byte(0) != 0xE0 || byte(1) >= 0xA0) &&
                        (byte(0) != 0xED || byte(1) < 0xA0) &&
                        (byte(0) != 0xF0 || byte(1) >= 0x90) && (byte(0) != 0xF4 || byte(1) < 0x90);
    const std::string_view rest = text.substr(1, size - 1);
    const bool whole = rest.size() == size - 1 && std::ranges::all_of(rest, [](char character) {
                           return (static_cast<unsigned char>(character) & 0xC0U) == 0x80;
                       });
    return lead && second && whole ? size : 0;
}

// Terminals obey the controls after ASCII too (C1, U+0080 to U+009F).
bool is_control(std::string_view character) {
    const auto first = static_cast<unsigned char>(character.front());
    return character.size() == 1 ? first < 0x20 || first == 0x7F
                                 : first == 0xC2 && static_cast<unsigned char>(character[1]) < 0xA0;
}

std::string_view column_name(std::string_view name) {
    return name.starts_with('>') ? name.substr(1) : name;
}

} // namespace

std::string coloured(Colour colour, std::string_view text) {
    static const bool wanted = wants_colours();
    if (!wanted || colour == Colour::kNone) {
        return std::string(text);
    }
    return escape_of(colour) + std::string(text) + "\033[0m";
}

std::string printable(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const std::size_t size = character_size(text);
        const std::string_view character = text.substr(0, std::max<std::size_t>(size, 1));
        shown += size == 0 || is_control(character) ? "?" : character;
        text.remove_prefix(character.size());
    }
    return shown;
}

void print_field(std::string_view label, std::string_view value, std::size_t width) {
    std::string padded(label);
    padded.resize(std::max(width, padded.size() + 1), ' ');
    std::printf("%s%s\n", padded.c_str(), printable(value).c_str());
}

void print_heading(std::string_view text) {
    std::puts(coloured(Colour::kBold, text).c_str());
}

void print_table(const std::vector<Row>& rows) {
    const Row& names = rows.front();
    std::vector<std::size_t> widths(names.size());
    for (const Row& row : rows) {
        for (std::size_t i = 0; i < names.size(); ++i) {
            widths[i] = std::max(widths[i], column_name(row[i]).size());
        }
    }
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < names.size(); ++i) {
            const std::string cell = printable(&row == &names ? column_name(row[i]) : row[i]);
            const std::string padding(widths[i] - std::min(widths[i], cell.size()), ' ');
            line += i == 0 ? "" : "  ";
            line += names[i].starts_with('>') ? padding + cell : cell + padding;
        }
        line.erase(line.find_last_not_of(' ') + 1);
        std::puts(&row == &names ? coloured(Colour::kBold, line).c_str() : line.c_str());
    }
}

bool output_written() {
    return std::fflush(stdout) == 0 && std::ferror(stdout) == 0;
}

bool output_reader_gone() {
    pollfd output{.fd = STDOUT_FILENO, .events = POLLOUT, .revents = 0};
    return poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

void say_waiting(bool quiet, std::string_view what) {
    if (!quiet) {
        // What was printed before belongs before this line where both go to one place.
        std::fflush(stdout);
        std::fprintf(stderr, "qaven: waiting for %s ...\n", std::string(what).c_str());
    }
}

} // namespace qaven::cli
