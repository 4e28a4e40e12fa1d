// The card data that travels from the counter to the issuer: a flat run of data objects as
// hexadecimal text. The issuer has its own parser for it, which refuses what does not add up.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "virtual/card/tlv.h"

namespace qaven::virtual_issuer {

using virtual_card::Bytes;
using virtual_card::ByteView;
using virtual_card::tag_text;
using virtual_card::TagNumber;

struct ReceivedObject {
    TagNumber tag = 0;
    Bytes value;
};

class Field55 {
  public:
    // Throws std::runtime_error with a sentence that says where the text goes wrong. An object that
    // comes twice is refused too: nobody could say which one the cryptogram is to cover.
    static Field55 parse(std::string_view hex_text);

    const std::vector<ReceivedObject>& objects() const { return objects_; }

    // Null when the object is missing.
    const Bytes* find(TagNumber tag) const;
    // Throws std::runtime_error with a sentence when it is missing or has another size.
    const Bytes& require(TagNumber tag, std::size_t size) const;

  private:
    std::vector<ReceivedObject> objects_;
};

// What the object is called, or "unknown".
std::string_view tag_name(TagNumber tag);

} // namespace qaven::virtual_issuer
