// The TLV lists that a host sends online: field-55 data with the ARQC, and the TC list. One writer
// builds both.
#pragma once

#include "common/tags.h"
#include "engine/data/tlv.h"
#include "support/wiped.h"

#include <cstddef>
#include <initializer_list>

namespace qaven {

class TlvList {
  public:
    // A host's text buffer of 1024 characters takes this many bytes in hex.
    static constexpr std::size_t kMaxSize = 511;

    // Appends tag, one length byte and value. An object that would take the list past its size, or
    // whose length does not fit one byte, is left out.
    void append(Tag tag, tlv::Bytes value);
    void append(Tag tag, std::initializer_list<unsigned char> value);

    // Appends tag, the given length byte and the value as it is, whatever its own length.
    void append_with_length(Tag tag, unsigned char length, tlv::Bytes value);

    // Appends a whole data object as a card returned it, tag and length included.
    void append_object(tlv::Bytes object);

    std::size_t size() const { return bytes_.size(); }

    // The list as upper-case hexadecimal text.
    WipedText text() const;

  private:
    WipedBytes bytes_;
};

} // namespace qaven
