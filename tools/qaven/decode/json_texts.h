// The texts around data objects: application data, the card sequence number field, whole JSON.
#pragma once

#include "tools/qaven/decode/outline.h"

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::cli {

// Six digits that count the bytes, then the bytes in hex.
bool is_application_data(std::string_view text);
void explain_application_data(std::string_view text, Outline& out);

// Data objects in hex, with nothing around them.
void explain_objects_text(std::string_view text, Outline& out);

// The characters ` and 03, then the number.
void explain_sequence_field(std::string_view text, Outline& out);

// A member of what a host gives or gets.
struct Member {
    std::string key;
    std::string value; // of a text, its bytes; of anything else, its JSON
    bool text;
};

// The members of a JSON object; nothing when text is none. Bytes of a text stay as they are, GBK or
// not, and an escape stands for one byte.
std::optional<std::vector<Member>> json_members(std::string_view text);

// A key of the host interface.
struct Key {
    std::string_view key;
    std::string_view what;
    void (*explain)(std::string_view, Outline&);
    bool number = false; // the library takes a number there, a text everywhere else
};

// Null for a key that the library does not know.
const Key* find_key(std::string_view key);

void explain_json(std::string_view text, Outline& out);

} // namespace qaven::cli
