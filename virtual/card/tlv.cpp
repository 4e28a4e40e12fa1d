// Data objects and data object lists of the virtual card.
#include "virtual/card/tlv.h"

#include <numeric>

namespace qaven::virtual_card {

namespace {

// EMV Book 3, annex B1 and B2.
constexpr std::uint8_t kMoreTagBytes = 0x1F;
constexpr std::uint8_t kConstructedBit = 0x20;
constexpr std::uint8_t kContinuationBit = 0x80;
constexpr std::size_t kLongestTag = 3;

struct Field {
    std::uint32_t value = 0;
    std::size_t size = 0;
};

std::optional<Field> read_tag(ByteView bytes) {
    if (bytes.empty()) {
        return std::nullopt;
    }
    Field tag{bytes[0], 1};
    if ((bytes[0] & kMoreTagBytes) != kMoreTagBytes) {
        return tag;
    }
    while (tag.size < bytes.size() && tag.size < kLongestTag) {
        const std::uint8_t byte = bytes[tag.size];
        tag.value = (tag.value << 8U) | byte;
        ++tag.size;
        if ((byte & kContinuationBit) == 0) {
            return tag;
        }
    }
    return std::nullopt;
}

std::optional<Field> read_length(ByteView bytes) {
    if (bytes.empty()) {
        return std::nullopt;
    }
    if (bytes[0] < 0x80) {
        return Field{bytes[0], 1};
    }
    const std::size_t count = bytes[0] & 0x7FU;
    if (count == 0 || count > 2 || bytes.size() < 1 + count) {
        return std::nullopt;
    }
    Field length{0, 1 + count};
    for (const std::uint8_t byte : bytes.subspan(1, count)) {
        length.value = (length.value << 8U) | byte;
    }
    return length;
}

} // namespace

Bytes tag_bytes(TagNumber tag) {
    Bytes bytes;
    for (const unsigned shift : {16U, 8U, 0U}) {
        const auto byte = static_cast<std::uint8_t>(tag >> shift);
        if (byte != 0 || !bytes.empty() || shift == 0) {
            bytes.push_back(byte);
        }
    }
    return bytes;
}

std::string tag_text(TagNumber tag) {
    return to_hex(tag_bytes(tag));
}

Bytes encode_object(TagNumber tag, ByteView value) {
    Bytes object = tag_bytes(tag);
    const std::size_t length = value.size();
    if (length > 0xFF) {
        object.push_back(0x82);
        object.push_back(static_cast<std::uint8_t>(length >> 8U));
    } else if (length > 0x7F) {
        object.push_back(0x81);
    }
    object.push_back(static_cast<std::uint8_t>(length));
    append(object, value);
    return object;
}

std::optional<std::vector<DolEntry>> parse_dol(ByteView list) {
    std::vector<DolEntry> entries;
    while (!list.empty()) {
        const auto tag = read_tag(list);
        if (!tag) {
            return std::nullopt;
        }
        const auto length = read_length(list.subspan(tag->size));
        if (!length) {
            return std::nullopt;
        }
        entries.push_back({tag->value, length->value});
        list = list.subspan(tag->size + length->size);
    }
    return entries;
}

std::size_t dol_value_size(const std::vector<DolEntry>& list) {
    return std::accumulate(
        list.begin(), list.end(), std::size_t{0},
        [](std::size_t sum, const DolEntry& entry) { return sum + entry.length; });
}

std::optional<Bytes> find_object(ByteView bytes, TagNumber tag) {
    while (!bytes.empty()) {
        const bool constructed = (bytes[0] & kConstructedBit) != 0;
        const auto found = read_tag(bytes);
        const auto length = found ? read_length(bytes.subspan(found->size)) : std::nullopt;
        if (!length || found->size + length->size + length->value > bytes.size()) {
            return std::nullopt;
        }
        const std::size_t value_at = found->size + length->size;
        const ByteView value = bytes.subspan(value_at, length->value);
        if (found->value == tag) {
            return Bytes(value.begin(), value.end());
        }
        bytes = bytes.subspan(constructed ? value_at : value_at + length->value);
    }
    return std::nullopt;
}

bool is_one_object(TagNumber tag, ByteView bytes) {
    const auto found = read_tag(bytes);
    if (!found || found->value != tag) {
        return false;
    }
    const auto length = read_length(bytes.subspan(found->size));
    return length && found->size + length->size + length->value == bytes.size();
}

} // namespace qaven::virtual_card
