// The forms that an input can have: told by its looks, or named by the user.
#pragma once

#include "tools/qaven/decode/outline.h"

#include <span>
#include <string_view>

namespace qaven::cli {

struct InputForm {
    std::string_view name; // as the user writes it
    std::string_view what;
    void (*explain)(std::string_view text, Outline& out);
};

std::span<const InputForm> all_forms();

// Null for a name that is none.
const InputForm* form_named(std::string_view name);

// Null when nothing tells what the text could be.
const InputForm* guessed_form(std::string_view text);

// Whether text is one object after the other up to its end, some of them known: what a hexadecimal
// text in a trace has to be before it is taken apart.
const InputForm* form_of_bytes(std::span<const unsigned char> bytes);

} // namespace qaven::cli
