// Data objects in hex: a request for the issuer (field 55), a TC, application data.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace qaven::cli {

// The value of the first object with this tag, in hex; "" when there is none.
std::string object_value(std::string_view objects, std::uint32_t tag);

// The column in which the names of objects are.
inline constexpr std::size_t kObjectColumn = 46;

// One line per object, card numbers masked unless they may be shown. What is cut short ends the
// list.
void print_objects(std::string_view objects, bool show_pan);

} // namespace qaven::cli
