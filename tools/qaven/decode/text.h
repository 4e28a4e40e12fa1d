// Texts of cards and hosts, which are GBK, made fit for a terminal, which takes UTF-8.
#pragma once

#include <string>
#include <string_view>

namespace tool {

// UTF-8. Control characters and bytes that are no GBK are written as \x1B: a card's or a log's text
// must not be able to move the cursor of whoever reads it.
std::string readable(std::string_view gbk);

// readable, without the zeros and blanks that fill a field up, in quotation marks.
std::string in_quotes(std::string_view gbk);

// UTF-8 that a person has pasted, as the GBK that the lengths in it were counted in. Text that is
// no UTF-8, or has no GBK form, stays as it is.
std::string as_gbk(std::string_view text);

} // namespace tool
