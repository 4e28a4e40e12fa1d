// Finding data objects in card responses: depth first through every template, first match wins.
//
// Exported functions take raw buffers; a buflen of 0 means a zero-terminated list without a known
// length (the walk ends at a tag byte 00 or FF, and a tag has at most two bytes).
#pragma once

#include "support/export.h"

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

HostBuffer host_buffer(const unsigned char* buf, int buflen);

// The byte count of the tag at the start of data; nothing for padding (FF) or a tag that runs past
// the end.
std::optional<std::size_t> tag_size(Bytes data, Extent extent = Extent::kBounded);

struct Length {
    std::size_t value; // what the field says
    std::size_t field; // bytes of the field itself: 1, 2 (81 LL) or 3 (82 HH LL)
};

// The length field at the start of data; nothing when data ends inside it.
std::optional<Length> read_length(Bytes data);

// Where tag stands in data.
std::optional<std::size_t> find(Bytes tag, Bytes data, Extent extent = Extent::kBounded);

// Copies the value of tag into out, cut to out's size and zero-filled where data ends before the
// value does; gives the length, cut likewise. Nothing when tag is not there.
std::optional<std::size_t> extract(Bytes tag, Bytes data, std::span<unsigned char> out,
                                   Extent extent = Extent::kBounded);

// The part of data that a value of the given length at the given place has.
Bytes clipped(Bytes data, std::size_t offset, std::size_t length);

} // namespace qaven::tlv
