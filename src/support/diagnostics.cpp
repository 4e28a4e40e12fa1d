// The sinks behind the progress lines, looked up anew for every line so that a tool can switch
// them at any time.
#include "support/diagnostics.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <string_view>

namespace qaven::diagnostics {

namespace {

struct Sinks {
    std::FILE* progress;
    std::FILE* errors;
};

// Null sinks are silent. Anything but the two other words is the default.
Sinks current_sinks() {
    const char* chosen = std::getenv("QAVEN_DIAGNOSTICS");
    const std::string_view word = chosen == nullptr ? "" : chosen;
    if (word == "off") {
        return {nullptr, nullptr};
    }
    if (word == "stderr") {
        return {stderr, stderr};
    }
    return {stdout, stderr};
}

struct Free {
    void operator()(char* memory) const { std::free(memory); }
};

enum class Ending {
    kNewline, // one is added when the text does not end in one
    kAsIs,
};

void print(std::FILE* sink, const char* format, std::va_list arguments, Ending ending) {
    if (sink == nullptr) {
        return;
    }
    char* formatted = nullptr;
    if (vasprintf(&formatted, format, arguments) < 0) {
        return;
    }
    const std::unique_ptr<char, Free> owner(formatted);
    const bool complete = ending == Ending::kAsIs || std::string_view(formatted).ends_with('\n');
    std::fprintf(sink, "%s%s", formatted, complete ? "" : "\n");
}

} // namespace

void line(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    print(current_sinks().progress, format, arguments, Ending::kNewline);
    va_end(arguments);
}

void text(const char* format, ...) {
    std::va_list arguments;
    va_start(arguments, format);
    print(current_sinks().progress, format, arguments, Ending::kAsIs);
    va_end(arguments);
}

void system_error(const char* message) {
    if (current_sinks().errors != nullptr) {
        std::perror(message);
    }
}

void error_text(const char* message) {
    std::FILE* sink = current_sinks().errors;
    if (sink != nullptr) {
        std::fputs(message, sink);
    }
}

} // namespace qaven::diagnostics
