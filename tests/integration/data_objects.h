// Lists of data objects taken apart by OpenSSL's reader of basic encoding rules, which knows
// nothing of cards.
#pragma once

#include <iosfwd>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::test {

// Tag and value in upper-case hex.
struct ReadObject {
    std::string tag;
    std::string value;

    bool operator==(const ReadObject&) const = default;
};

std::ostream& operator<<(std::ostream& out, const ReadObject& object);

// The objects of a hex text in order, templates not opened. A test failure for bytes that are no
// list of objects.
std::vector<ReadObject> read_objects(std::string_view hex);

// The value of the first object with this tag; "" when there is none.
std::string value_of(const std::vector<ReadObject>& objects, std::string_view tag);

} // namespace qaven::test
