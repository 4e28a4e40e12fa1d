// What of a card or ID number not everybody may see.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// The first six and the last four characters of a card or ID number, the others as asterisks; all
// of them when it is too short for that. Of a track 2 nothing after the separator is shown.
std::string masked_number(std::string_view number);
std::string masked_track2(std::string_view track2, char separator);

} // namespace tool
