// A line that goes both to the progress output and to the trace log.
#include "host/report.h"

#include "support/diagnostics.h"
#include "support/qmlog.h"

#include <cstdarg>
#include <cstdio>
#include <string>

namespace qaven {

namespace {

std::string formatted(const char* format, va_list arguments) {
    va_list counted;
    va_copy(counted, arguments);
    const int length = std::vsnprintf(nullptr, 0, format, counted);
    va_end(counted);
    if (length < 0) {
        return {};
    }
    std::string text(static_cast<std::size_t>(length), '\0');
    std::vsnprintf(text.data(), text.size() + 1, format, arguments); // its zero is the text's own
    return text;
}

} // namespace

void report(const char* format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const std::string text = formatted(format, arguments);
    va_end(arguments);
    diagnostics::line("%s", text.c_str());
    trace::line("%s", text.c_str());
}

} // namespace qaven
