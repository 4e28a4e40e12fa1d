// Values that are lists or compounds with a layout of their own.
#pragma once

#include "decode/outline.h"
#include "tools/emv/hex.h"

namespace tool {

void explain_file_locator(Bytes value, Outline& out);

// Entries of four bytes whose files and records can exist.
bool is_file_locator(Bytes value);

void explain_verification_methods(Bytes value, Outline& out);

// Amounts, then methods and conditions that are known.
bool is_method_list(Bytes value);

void explain_verification_results(Bytes value, Outline& out);

// ARPC and authorisation response code.
void explain_issuer_authentication(Bytes value, Outline& out);

// These two, and a response code that is known.
bool is_pboc_issuer_authentication(Bytes value);

// AIP and AFL, or CID, ATC, cryptogram and IAD: the answers to GET PROCESSING OPTIONS and to
// GENERATE AC.
void explain_response_format_1(Bytes value, Outline& out);
bool is_response_format_1(Bytes value);

} // namespace tool
