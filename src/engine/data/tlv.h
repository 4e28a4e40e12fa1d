// Finding data objects in card responses: depth first through every template, first match wins.
//
// Exported functions take raw buffers; a buflen of 0 means a zero-terminated list without a known
// length (the walk ends at a tag byte 00 or FF, and a tag has at most two bytes).
#pragma once

#include "support/export.h"
#include "support/wiped.h"

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

// Stands for the size of a host's buffer that only the host, or the buffer's content, knows.
constexpr std::size_t kUnknownSize = PTRDIFF_MAX;

// How a walk over data objects ends.
enum class Extent {
    kBounded,        // at the end of the buffer; 00 is a tag like any other
    kZeroTerminated, // at a tag byte 00 or FF, or at the end of the buffer
};

// A raw buffer as the exported functions take it, or one of the engine's own.
struct HostBuffer {
    Bytes bytes;
    Extent extent = Extent::kBounded;
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

// What a walk does at every data object is inline, and goes by places in the data.

// A tag of one or two bytes as a number. The first byte of two-byte tags has three bits of its own
// and five ones. Longer tags, which no table of this library knows, are 0 like the tag 00.
using TagNumber = std::uint16_t;
constexpr std::size_t kTagNumbers = 0x900;

struct Tag {
    std::size_t end; // behind it; 0 when there is none
    TagNumber number;

    explicit constexpr operator bool() const { return end != 0; }
};

constexpr TagNumber two_byte_number(unsigned first, unsigned second) {
    return static_cast<TagNumber>(0x100U + ((first & 0xE0U) << 3U) + second);
}

// The tag at the given place; none at padding (FF), at the end of the list, and where a tag runs
// past the end of the buffer.
template <Extent extent>
constexpr Tag read_tag(Bytes data, std::size_t at) {
    constexpr bool terminated = extent == Extent::kZeroTerminated;
    if (at >= data.size()) [[unlikely]] {
        return {};
    }
    const unsigned char first = data[at];
    if (first == kPadding || (terminated && first == kEndOfList)) [[unlikely]] {
        return {};
    }
    if (!starts_multi_byte_tag(first)) {
        return {at + 1, first};
    }
    if (++at >= data.size()) [[unlikely]] {
        return {};
    }
    // In a zero-terminated list the second byte always ends the tag.
    if (terminated || (data[at] & kTagContinues) == 0) [[likely]] {
        return {at + 1, two_byte_number(first, data[at])};
    }
    while (at < data.size() && data[at] != kPadding) {
        if ((data[at++] & kTagContinues) == 0) {
            return {at, 0};
        }
    }
    return {};
}

// The byte count of the tag at the start of data; 0 when there is none.
inline std::size_t tag_size(Bytes data) {
    return read_tag<Extent::kBounded>(data, 0).end;
}

struct Length {
    std::size_t end; // behind its field of 1, 2 (81 LL) or 3 bytes (82 HH LL); 0 when there is none
    std::size_t value;

    explicit constexpr operator bool() const { return end != 0; }
};

// The length field at the given place; none when data ends inside it.
constexpr Length read_length(Bytes data, std::size_t at) {
    if (at >= data.size()) [[unlikely]] {
        return {};
    }
    // No other long form exists here: 80, 83 and 84 are the lengths 128, 131 and 132.
    if (data[at] == kTwoByteLength) [[unlikely]] {
        if (data.size() - at < 3) {
            return {};
        }
        return {at + 3, static_cast<std::size_t>(data[at + 1]) << 8U | data[at + 2]};
    }
    if (data[at] == kOneByteLength) [[unlikely]] {
        if (data.size() - at < 2) {
            return {};
        }
        return {at + 2, data[at + 1]};
    }
    return {at + 1, data[at]};
}

// Where the object behind the one at the given place begins, in depth first order.
constexpr std::size_t next_object(Bytes data, std::size_t at, const Length& length) {
    if ((data[at] & kConstructed) != 0) [[unlikely]] {
        return length.end;
    }
    return length.end + length.value;
}

// Where tag stands in data.
std::optional<std::size_t> find(Bytes tag, Bytes data, Extent extent = Extent::kBounded);

// Copies the value of tag into out, cut to out's size and zero-filled where data ends before the
// value does; gives the length, cut likewise. Nothing when tag is not there.
std::optional<std::size_t> extract(Bytes tag, Bytes data, std::span<unsigned char> out,
                                   Extent extent = Extent::kBounded);

// The value of tag, at most 256 bytes, zero-filled likewise; nothing when tag is not there.
std::optional<WipedBytes> value_of(Bytes tag, Bytes data);

// The byte count of a tag in a card's log format, by its first byte: the two-byte tags there (9F,
// 5F) begin with an odd one, the one-byte tags (9A, 9C) with an even one.
constexpr std::size_t log_tag_size(std::uint8_t first) {
    return (first & 1U) != 0 ? 2 : 1;
}

// The part of data that a value of the given length at the given place has.
inline Bytes clipped(Bytes data, std::size_t offset, std::size_t length) {
    const std::size_t from = std::min(offset, data.size());
    return data.subspan(from, std::min(length, data.size() - from));
}

} // namespace qaven::tlv
