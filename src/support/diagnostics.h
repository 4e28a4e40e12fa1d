// The progress lines on standard output and standard error that accompany every step. People read
// them on a counter's console; command-line tools silence or redirect them with the environment
// variable QAVEN_DIAGNOSTICS: "stdout" (the default: progress on standard output, system errors on
// standard error), "stderr" (everything on standard error), "off".
#pragma once

namespace qaven::diagnostics {

// One progress line; a newline is added when the formatted text does not end in one.
[[gnu::format(printf, 1, 2)]] void line(const char* format, ...);

// Text as it stands, without a newline added: the pieces of one line.
[[gnu::format(printf, 1, 2)]] void text(const char* format, ...);

// perror: "message: " and the text of errno, on standard error.
void system_error(const char* message);

// Text as it stands on standard error.
void error_text(const char* message);

} // namespace qaven::diagnostics
