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

} // namespace tool
