// Texts of cards and hosts, which are GBK, for terminals, which take UTF-8, and back.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace qaven::emv {

// UTF-8. Control characters and bytes that are no GBK are written as \x1B: a card's or a log's text
// must not be able to move the cursor of whoever reads it.
std::string readable(std::string_view gbk);

// The bytes of the first character of a text that is not empty: two or four, of ASCII and of what
// is cut off one.
std::size_t gbk_character_size(std::string_view gbk);

// Without the zeros and blanks that fill a field up.
std::string_view without_filling(std::string_view gbk);

// readable, without what fills the field up, in quotation marks.
std::string in_quotes(std::string_view gbk);

// Nothing for text that is no UTF-8 or has a character that GBK does not have.
std::optional<std::string> to_gbk(std::string_view utf8);

} // namespace qaven::emv
