// Building the TLV lists that a host sends online.
#include "engine/data/tlv_list.h"

#include "support/hex.h"

namespace qaven {

namespace {

constexpr std::size_t kMaxValue = 255;

} // namespace

void TlvList::append(Tag tag, tlv::Bytes value) {
    if (value.size() <= kMaxValue) {
        append_with_length(tag, static_cast<unsigned char>(value.size()), value);
    }
}

void TlvList::append(Tag tag, std::initializer_list<unsigned char> value) {
    append(tag, tlv::Bytes(value.begin(), value.size()));
}

void TlvList::append_with_length(Tag tag, unsigned char length, tlv::Bytes value) {
    WipedBytes object(tag.bytes().begin(), tag.bytes().end());
    object.push_back(length);
    object.insert(object.end(), value.begin(), value.end());
    append_object(object);
}

void TlvList::append_object(tlv::Bytes object) {
    if (object.size() <= kMaxSize - bytes_.size()) {
        bytes_.insert(bytes_.end(), object.begin(), object.end());
    }
}

WipedText TlvList::text() const {
    return hex::text(bytes_);
}

} // namespace qaven
