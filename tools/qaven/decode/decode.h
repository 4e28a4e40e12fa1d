// Taking one value apart, without the command around it.
#pragma once

#include "tools/qaven/decode/forms.h"
#include "tools/qaven/decode/outline.h"

#include <string>
#include <string_view>

namespace qaven::cli {

// What people paste: without the quotation marks and line ends around it, escapes of JSON as the
// bytes they stand for, Chinese text as GBK.
std::string cleaned_input(std::string_view input);

// Explains text as the form, or as what it looks like. False when it does not make sense to its
// end.
bool decode(std::string_view text, const InputForm* form, Outline& out);

} // namespace qaven::cli
