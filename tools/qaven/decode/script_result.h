// What became of an issuer script.
#pragma once

#include "decode/outline.h"
#include "tools/emv/hex.h"

namespace tool {

// The five bytes of DF31: result, script identifier.
void explain_script_result(Bytes value, Outline& out);

// The library's text of them, in which a byte of the identifier from 80 on has eight digits.
void explain_script_result_text(std::string_view text, Outline& out);

} // namespace tool
