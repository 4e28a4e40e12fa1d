// Codes of the card operations, their GBK descriptions, and the folding into the host's codes.
#pragma once

#include "support/export.h"

#include <span>
#include <string_view>

// One row of the table: a negative code and its zero-terminated GBK text, laid out with blanks for
// a fixed-width display (18 bytes; the text of -203 has 15).
struct err_entry {
    int code;         // negative, as a card operation returns it
    const char* text; // GBK
};

// Ends with code 0 and a null text.
QAVEN_API extern const err_entry err_code_decsript[];

// The description of code: a pointer into the table, or "" for 0 and codes without a row.
QAVEN_API const char* Qm_ErrGetDesc(int code);

// Copies the description of code, blanks and terminating zero included, into dst (19 bytes) and
// returns dst.
QAVEN_API char* Qm_GetLastErrDesc(int code, char* dst);

// The host's code for a card operation's code; codes without a mapping pass through.
QAVEN_API int transErr(int code);

namespace qaven::errors {

std::string_view description(int code);

// Writes the description of code into a host's buffer of QAVEN_ERRMSG_SIZE bytes, if it gave one.
void describe(int code, std::span<char> error_text);

int folded(int code);

} // namespace qaven::errors
