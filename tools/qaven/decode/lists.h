// Values that are lists or compounds with a layout of their own.
#pragma once

#include "tools/emv/hex.h"
#include "tools/qaven/decode/outline.h"

namespace qaven::cli {

void explain_afl(emv::Bytes value, Outline& out);

// Entries of four bytes whose files and records can exist.
bool is_afl(emv::Bytes value);

void explain_cvm_list(emv::Bytes value, Outline& out);

// Amounts, then methods and conditions that are known.
bool is_cvm_list(emv::Bytes value);

void explain_cvm_results(emv::Bytes value, Outline& out);

// ARPC and authorisation response code.
void explain_issuer_authentication(emv::Bytes value, Outline& out);

// These two, and a response code that is known.
bool is_pboc_issuer_authentication(emv::Bytes value);

// AIP and AFL, or CID, ATC, cryptogram and IAD: the answers to GET PROCESSING OPTIONS and to
// GENERATE AC.
void explain_response_format_1(emv::Bytes value, Outline& out);
bool is_response_format_1(emv::Bytes value);

} // namespace qaven::cli
