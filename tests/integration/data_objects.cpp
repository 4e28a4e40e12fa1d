// ASN1_get_object over card data.
#include "data_objects.h"

#include "virtual/card/bytes.h"

#include <gtest/gtest.h>
#include <openssl/asn1.h>

#include <algorithm>
#include <ostream>
#include <span>

namespace qaven::test {

namespace {

constexpr int kUnreadable = 0x80;

} // namespace

std::ostream& operator<<(std::ostream& out, const ReadObject& object) {
    return out << object.tag << " " << object.value;
}

std::vector<ReadObject> read_objects(std::string_view hex) {
    std::vector<ReadObject> objects;
    const auto bytes = virtual_card::from_hex(hex);
    if (!bytes) {
        ADD_FAILURE() << "no hex text: " << hex;
        return objects;
    }
    std::span<const unsigned char> rest(*bytes);
    while (!rest.empty()) {
        const unsigned char* at = rest.data();
        long length = 0;
        int number = 0;
        int object_class = 0;
        const int form =
            ASN1_get_object(&at, &length, &number, &object_class, static_cast<long>(rest.size()));
        if ((form & kUnreadable) != 0) {
            ADD_FAILURE() << "no list of data objects: " << hex;
            return objects;
        }
        const auto head = static_cast<std::size_t>(at - rest.data());
        const auto size = static_cast<std::size_t>(length);
        // The length takes one byte below 80, else one more for each byte of it.
        const std::size_t length_bytes = length < 0x80 ? 1 : length < 0x100 ? 2 : 3;
        objects.push_back({virtual_card::to_hex(rest.first(head - length_bytes)),
                           virtual_card::to_hex(rest.subspan(head, size))});
        rest = rest.subspan(head + size);
    }
    return objects;
}

std::string value_of(const std::vector<ReadObject>& objects, std::string_view tag) {
    const auto found = std::ranges::find(objects, tag, &ReadObject::tag);
    return found == objects.end() ? std::string() : found->value;
}

} // namespace qaven::test
