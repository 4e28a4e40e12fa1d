// Data object lists: what a card asks for (tags and lengths), and the value string that answers it.
#pragma once

#include "engine/data/tlv.h"
#include "support/export.h"

#include <cstddef>
#include <span>

// The format letter of tag (taglen bytes) in table (tablelen bytes, laid out as gcTagName), or 0.
QAVEN_API int qmcx_GetTagType(const unsigned char* tag, int taglen, const unsigned char* table,
                              int tablelen);

// Parses the entry at the start of dol (dollen bytes): copies its tag and a zero byte to tagout
// (256 bytes), the requested length to *lenout. Returns the bytes consumed (2..255); 0 or -204 for
// an entry that cannot be read.
QAVEN_API int qmcx_GetTaginDOL(const unsigned char* dol, int dollen, unsigned char* tagout,
                               int* lenout);

// 0 when dol (dollen bytes) asks for tag (taglen bytes), else -204.
QAVEN_API int qmcx_findtaginDOL(const unsigned char* tag, int taglen, const unsigned char* dol,
                                int dollen);

// Fills out with the value string for dol (dollen bytes) from the TLV data (datalen bytes, 0 for a
// zero-terminated list) and sets *outlen. out must hold the sum of the requested lengths. 0; -205
// when dol is null or empty; -204 when an entry cannot be read (the values before it stand in out).
QAVEN_API int qmcx_BuildDOL(unsigned char* data, int datalen, const unsigned char* dol, int dollen,
                            unsigned char* out, int* outlen);

namespace qaven::dol {

struct Built {
    int result;         // 0, -204 or -205
    std::size_t length; // bytes of the value string
};

// The value string for list from the data objects in data. A list that asks for more than out holds
// ends with -205.
Built build(tlv::Bytes data, tlv::Bytes list, std::span<unsigned char> out,
            tlv::Extent extent = tlv::Extent::kBounded);

} // namespace qaven::dol
