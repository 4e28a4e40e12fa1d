// Text from a card: letter-coded fields, Chinese in the cards' own encoding, and what of it not
// everybody may see.
#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tool {

// A letter-coded text (letter, three-digit length, value, and so on) as records: a letter that
// comes again begins the next one. What is cut short ends the text.
using LetterFields = std::map<char, std::string>;
std::vector<LetterFields> letter_records(std::string_view text);

// GBK, of which ASCII is a part, to UTF-8, without the blanks at its end. Bytes that are no text
// become question marks.
std::string to_utf8(std::string_view gbk);

// UTF-8 to GBK. Throws UsageError for what has no such form.
std::string to_gbk(std::string_view utf8);

// The first six and the last four characters of a card or ID number, the others as asterisks; all
// of them when it is too short for that. Of a track 2 nothing behind the separator is shown.
std::string masked_number(std::string_view number);
std::string masked_track2(std::string_view track2, char separator);

} // namespace tool
