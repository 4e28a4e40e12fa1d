// ISO 4217 currencies, withdrawn ones included. The terminal data carries numeric codes only, so no
// operation looks here; hosts do.
#pragma once

#include "support/export.h"

// A numeric code held as BCD digits in an integer (0x0840 for "USD") and its three letters.
struct currency_entry {
    int code;         // BCD digits
    const char* name; // zero-terminated
};

// Rows of the table.
constexpr int kCurrencyTableSize = 255;

// The rows, by rising code; there is no terminating one.
QAVEN_API extern const currency_entry gc4217Name[kCurrencyTableSize];
