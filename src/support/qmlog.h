// The trace log "./Qm_ic.log": what the library was asked and what it answered, for people at the
// counter and in support. Best effort: every call opens the file, appends and closes it, so a crash
// loses nothing already written; a file that cannot be opened silently swallows the line, as does
// what is neither a file nor a character device. A new file is its owner's alone.
//
// Usable from C (the four plain functions) and from C++.
#pragma once

#include "support/export.h"

#ifdef __cplusplus
#include <cstddef>
#include <string_view>
extern "C" {
#else
#include <stddef.h>
#endif

// "title: text\r\n".
QAVEN_API void WriteKsTitleLog(const char* title, const char* text);

// "HEX: " and len bytes as "%02X ", then "\r\n"; no wrapping. data holds len bytes.
QAVEN_API void WriteKsLogHex(unsigned char* data, int len);

// "title(HEX): " and len bytes as "%02X " in rows of 32, then "\r\n". data holds len bytes.
QAVEN_API void WriteKsTitleLogHex(const char* title, unsigned char* data, int len);

// The scratch line that every layer formats a trace line into before writing it. One caller at a
// time; the log functions themselves never touch it.
#define QAVEN_DBGLOG_SIZE 4096

#ifndef __cplusplus
// "text\r\n". C hosts reach the log by this plain name.
QAVEN_API void WriteKsLog(const char* text);
extern char DbgLog[QAVEN_DBGLOG_SIZE];
#else
} // extern "C"

// "text\r\n", under the C++ name.
QAVEN_API void WriteKsLog(const char* text);

// The same line under the plain name that C hosts call. C++ cannot declare two functions that
// differ in linkage alone, so C++ code reaches the plain export by this name.
extern "C" QAVEN_API void WriteKsLogPlain(const char* text) __asm__("WriteKsLog");

// The scratch line, see QAVEN_DBGLOG_SIZE.
extern "C" QAVEN_API char DbgLog[QAVEN_DBGLOG_SIZE];

namespace qaven::trace {

// "text\r\n", as it stands.
void write(std::string_view text);

// The same with a line that is formatted into DbgLog and cut at its size.
[[gnu::format(printf, 1, 2)]] void line(const char* format, ...);

} // namespace qaven::trace
#endif
