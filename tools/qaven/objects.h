// Data objects of a host's message (field 55, TC) in words.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

struct HexObject {
    std::string tag;   // hexadecimal digits
    std::string value; // likewise
};

// The objects of a list in hex. What is cut short ends it.
std::vector<HexObject> read_objects(std::string_view hex);

// The value of the first object with this tag.
std::optional<std::string> object_value(const std::vector<HexObject>& objects,
                                        std::string_view tag);

// One line per object, card numbers masked unless they may be shown.
void print_objects(const std::vector<HexObject>& objects, bool show_pan);

// "purchase" for 00; the digits for a type without a name.
std::string type_name(std::string_view digits);

// The digits for a name or for two digits; nothing for anything else.
std::optional<std::string> type_digits(std::string_view text);

// "purchase, cash, ...": the names that types have.
std::string type_names();

} // namespace tool
