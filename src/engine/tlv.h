// Finding data objects in card responses: depth first through every template, first match wins.
//
// Exported functions take raw buffers; a buflen of 0 means a zero-terminated list without a known
// length (the walk ends at a tag byte 00 or FF, and a tag has at most two bytes).
#pragma once

#include "support/export.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

// The first occurrence of tag (taglen bytes) in buf (buflen bytes): a pointer to its first byte
// inside buf, or null.
QAVEN_API unsigned char* qmcx_findtag(const unsigned char* tag, int taglen, unsigned char* buf,
                                      int buflen);

// Copies the value of tag to out and its declared length to *outlen. 0, or -204 when tag is not in
// buf (nothing is written then). out must hold the declared length (up to 65,535 bytes); where the
// buffer ends before the value does, zeros stand for the rest.
QAVEN_API int qmcx_gettagvalue(const unsigned char* tag, int taglen, unsigned char* buf, int buflen,
                               unsigned char* out, int* outlen);

// Removes from taglist (taglistlen bytes of tags, one or two bytes each) every tag that occurs in
// buf; returns what is left of taglistlen: the tags still missing from the data.
QAVEN_API int qmcx_findapptag(unsigned char* buf, int buflen, unsigned char* taglist,
                              int taglistlen);

// Copies the value behind the length field at buf[pos] to out (256 bytes) and its length to
// *outlen. buf must hold length field and value. Always 0.
QAVEN_API int qmcx_GetTagData(int pos, const unsigned char* buf, unsigned char* out,
                              unsigned char* outlen);

// Reads one tag of a log format at in (2 bytes): copies it to tagout (2 bytes), its byte count to
// *taglenout; returns that count plus one, the tag and its length byte. len is not used.
QAVEN_API int qm_GetTL(unsigned char* tagout, unsigned char* taglenout, const unsigned char* in,
                       int len);

namespace qaven::tlv {

using Bytes = std::span<const unsigned char>;

// Stands for the size of a list that is known only to end with a zero byte.
constexpr std::size_t kUnknownSize = PTRDIFF_MAX;

// How a walk over data objects ends.
enum class Extent {
    kBounded,        // at the end of the buffer; 00 is a tag like any other
    kZeroTerminated, // at a tag byte 00 or FF, or at the end of the buffer
};

// A raw buffer as the exported functions take it.
struct HostBuffer {
    Bytes bytes;
    Extent extent;
};

constexpr unsigned char kPadding = 0xFF;
constexpr unsigned char kEndOfList = 0x00;
constexpr unsigned char kConstructed = 0x20;
constexpr unsigned char kMultiByteTag = 0x1F;
constexpr unsigned char kTagContinues = 0x80;
constexpr unsigned char kOneByteLength = 0x81;
constexpr unsigned char kTwoByteLength = 0x82;

constexpr bool starts_multi_byte_tag(unsigned char first) {
    return (first & kMultiByteTag) == kMultiByteTag;
}

HostBuffer host_buffer(const unsigned char* buf, int buflen);

// What a walk does at every data object is inline.

// The byte count of the tag at the start of data; 0 for padding (FF) or a tag that runs past the
// end.
inline std::size_t tag_size(Bytes data, Extent extent = Extent::kBounded) {
    const bool terminated = extent == Extent::kZeroTerminated;
    if (data.empty() || data[0] == kPadding || (terminated && data[0] == kEndOfList)) {
        return 0;
    }
    if (!starts_multi_byte_tag(data[0])) {
        return 1;
    }
    for (std::size_t at = 1; at < data.size(); ++at) {
        // In a zero-terminated list the second byte always ends the tag.
        if (terminated) {
            return at + 1;
        }
        if (data[at] == kPadding) {
            return 0;
        }
        if ((data[at] & kTagContinues) == 0) {
            return at + 1;
        }
    }
    return 0;
}

struct Length {
    std::size_t value; // what the field says
    std::size_t field; // bytes of the field itself: 1, 2 (81 LL) or 3 (82 HH LL)
};

// The length field at the start of data; nothing when data ends inside it.
inline std::optional<Length> read_length(Bytes data) {
    if (data.empty()) {
        return std::nullopt;
    }
    // No other long form exists here: 80, 83 and 84 are the lengths 128, 131 and 132.
    if (data[0] == kTwoByteLength) {
        if (data.size() < 3) {
            return std::nullopt;
        }
        return Length{static_cast<std::size_t>(data[1]) << 8U | data[2], 3};
    }
    if (data[0] == kOneByteLength) {
        if (data.size() < 2) {
            return std::nullopt;
        }
        return Length{data[1], 2};
    }
    return Length{data[0], 1};
}

// From the object at the start of data, whose tag has tag_size bytes, to the next one in depth
// first order; nothing when its length field cannot be read.
inline std::optional<std::size_t> step(Bytes data, std::size_t tag_size) {
    const auto length = read_length(data.subspan(tag_size));
    if (!length) {
        return std::nullopt;
    }
    const bool constructed = (data[0] & kConstructed) != 0;
    return tag_size + length->field + (constructed ? 0 : length->value);
}

// Nearly all tags have one byte or two, and most of the two-byte ones begin with the same.
inline bool same_tag(Bytes tag, Bytes other) {
    return tag.size() == other.size() && tag.back() == other.back() &&
           tag.front() == other.front() && (tag.size() <= 2 || std::ranges::equal(tag, other));
}

// Where tag stands in data.
std::optional<std::size_t> find(Bytes tag, Bytes data, Extent extent = Extent::kBounded);

// Copies the value of tag into out, cut to out's size and zero-filled where data ends before the
// value does; gives the length, cut likewise. Nothing when tag is not there.
std::optional<std::size_t> extract(Bytes tag, Bytes data, std::span<unsigned char> out,
                                   Extent extent = Extent::kBounded);

// The part of data that a value of the given length at the given place has.
inline Bytes clipped(Bytes data, std::size_t offset, std::size_t length) {
    const std::size_t from = std::min(offset, data.size());
    return data.subspan(from, std::min(length, data.size() - from));
}

} // namespace qaven::tlv
