// The sinks behind the progress lines, looked up anew for every line so that a tool can switch
// them at any time.
#include "support/diagnostics.h"

#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <span>
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
    std::span<char> room = short_text;
    std::va_list again;
    va_copy(again, arguments);
    int length = std::vsnprintf(room.data(), room.size(), format, arguments);
    if (length >= static_cast<int>(room.size())) {
        const std::size_t size = static_cast<std::size_t>(length) + 1;
        long_text.reset(new (std::nothrow) char[size]);
        if (long_text) {
            room = {long_text.get(), size};
            length = std::vsnprintf(room.data(), room.size(), format, again);
        }
    }
    va_end(again);
    // Without memory for it a long text is cut.
    std::size_t size = std::min(static_cast<std::size_t>(std::max(length, 0)), room.size() - 1);
    if (ending == Ending::kNewline && (size == 0 || room[size - 1] != '\n')) {
        room[size++] = '\n'; // where the terminating zero was
    }
    std::fwrite(room.data(), 1, size, sink);
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
