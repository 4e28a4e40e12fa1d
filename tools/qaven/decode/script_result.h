// What became of an issuer script.
#pragma once

#include "tools/emv/hex.h"
#include "tools/qaven/decode/outline.h"

namespace qaven::cli {

// The five bytes of DF31: result, script identifier.
void explain_script_result(emv::Bytes value, Outline& out);

// The library's text of them, in which a byte of the identifier from 80 on has eight digits.
void explain_script_result_text(std::string_view text, Outline& out);

} // namespace qaven::cli
