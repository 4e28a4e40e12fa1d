// Writes data objects one after the other: the terminal data store, the templates of commands, and
// the lists that a host sends online.
#pragma once

#include "common/tags.h"
#include "engine/data/tlv.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <span>

namespace qaven::tlv {

class Writer {
  public:
    explicit Writer(std::span<std::uint8_t> place) : place_(place) {}

    // Appends tag, one length byte and value. An object that does not fit the place any more, or
    // whose length does not fit one byte, is left out.
    void append(qaven::Tag tag, Bytes value) {
        if (value.size() <= kMaxValue) {
            append_with_length(tag, static_cast<std::uint8_t>(value.size()), value);
        }
    }

    void append(qaven::Tag tag, std::initializer_list<std::uint8_t> value) {
        append(tag, Bytes(value.begin(), value.size()));
    }

    // Appends tag, the given length byte and the value as it is, whatever its own length.
    void append_with_length(qaven::Tag tag, std::uint8_t length, Bytes value) {
        if (tag.size() + 1 + value.size() <= left()) {
            put(tag);
            place_[size_++] = length;
            put(value);
        }
    }

    // Appends whole data objects, tags and lengths included.
    void append_objects(Bytes objects) {
        if (objects.size() <= left()) {
            put(objects);
        }
    }

    Bytes written() const { return place_.first(size_); }

  private:
    static constexpr std::size_t kMaxValue = 255;

    std::size_t left() const { return place_.size() - size_; }

    void put(Bytes bytes) {
        std::ranges::copy(bytes, place_.begin() + static_cast<std::ptrdiff_t>(size_));
        size_ += bytes.size();
    }

    std::span<std::uint8_t> place_;
    std::size_t size_ = 0;
};

} // namespace qaven::tlv
