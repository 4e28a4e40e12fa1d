// A line that goes both to the progress output and to the trace log, as most of the host layer's
// do.
#pragma once

namespace qaven {

// Prints the formatted line and traces it; the printed one has its newline once, the traced one is
// followed by CR LF.
[[gnu::format(printf, 1, 2)]] void report(const char* format, ...);

} // namespace qaven
