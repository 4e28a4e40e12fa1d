// Data objects as a card writes them (tag, length, value: EMV Book 3, annex B) and the data object
// lists in which it asks the terminal for values (tag, length: EMV Book 3, 5.4).
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "common/tags.h"
#include "virtual/card/bytes.h"

namespace qaven::virtual_card {

// A tag as the number that its bytes make: 5A, 9F02, DF69. A profile may have any.
using TagNumber = std::uint32_t;

Bytes tag_bytes(TagNumber tag);

// As hexadecimal text.
std::string tag_text(TagNumber tag);

// The whole object; the length takes the shortest form that holds it.
Bytes encode_object(TagNumber tag, ByteView value);

struct DolEntry {
    TagNumber tag = 0;
    std::size_t length = 0;
};

// Reads a data object list; nothing when it ends inside an entry.
std::optional<std::vector<DolEntry>> parse_dol(ByteView list);

std::size_t dol_value_size(const std::vector<DolEntry>& list);

// The value of the first object with this tag, searched through templates at any depth. Nothing
// when it is not there or an object in front of it does not fit.
std::optional<Bytes> find_object(ByteView bytes, TagNumber tag);

// True when the bytes are exactly one object of this tag.
bool is_one_object(TagNumber tag, ByteView bytes);

} // namespace qaven::virtual_card
