// The sinks behind the progress lines, looked up anew for every line so that a tool can switch
// them at any time.
#include "support/diagnostics.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
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

enum class Ending {
    kNewline, // one is added when the text does not end in one
    kAsIs,
};

void print(std::FILE* sink, const char* format, std::va_list arguments, Ending ending) {
    if (sink == nullptr) {
        return;
    }
    // A transfer prints lines of a few words; only a host's long texts are worth an allocation.
    std::array<char, 256> short_text{};
    std::unique_ptr<char[]> long_text;
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(short_text.data(), short_text.size(), format, arguments);
    std::string_view text = short_text.data();
    if (length >= static_cast<int>(short_text.size())) {
        const std::size_t size = static_cast<std::size_t>(length) + 1;
        long_text.reset(new (std::nothrow) char[size]);
        if (long_text) {
            std::vsnprintf(long_text.get(), size, format, again);
            text = long_text.get();
        }
    }
    va_end(again);
    const bool complete = ending == Ending::kAsIs || text.ends_with('\n');
    std::fprintf(sink, "%.*s%s", static_cast<int>(text.size()), text.data(), complete ? "" : "\n");
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
