// Data objects out of byte runs, nothing believed: neither tags nor lengths.
#pragma once

#include "tools/emv/hex.h"

#include <string>
#include <variant>

namespace qaven::emv {

struct Object {
    std::uint32_t tag;
    bool constructed;
    std::size_t at;     // of its tag in the data
    std::size_t head;   // bytes of tag and length
    std::size_t length; // as announced
    Bytes value;        // what of it is there

    bool whole() const { return value.size() == length; }
    std::size_t size() const { return head + value.size(); }
};

// Where data stops making sense, and why.
struct Fault {
    std::size_t at;
    std::string why;
};

struct TagBytes {
    std::uint32_t tag;
    std::size_t size;
};

std::variant<TagBytes, Fault> read_tag(Bytes data, std::size_t at);
std::variant<Object, Fault> read_object(Bytes data, std::size_t at);

// A run of objects that fill data to its end, templates looked into; bytes 00 and FF between them
// are filling.
bool is_object_list(Bytes data);

bool is_filling(unsigned char byte);

// The value of the first object with this tag, templates looked into; empty when there is none.
Bytes find_object(Bytes data, std::uint32_t tag);

// The depth that no card reaches.
constexpr int kDeepestNesting = 16;

// Two digits of a tag's bytes, as many as it has: 9F02, 5A.
std::string tag_text(std::uint32_t tag);

} // namespace qaven::emv
