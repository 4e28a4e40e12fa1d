// Data objects out of byte runs, nothing believed: neither tags nor lengths.
#include "tools/emv/tlv.h"

namespace qaven::emv {

namespace {

constexpr unsigned kMoreTagBytes = 0x1F;
constexpr unsigned kConstructed = 0x20;
constexpr unsigned kContinues = 0x80;
constexpr std::size_t kLongestTag = 3;
constexpr std::size_t kLongestLength = 3;

struct Length {
    std::size_t length;
    std::size_t size;
};

std::variant<Length, Fault> read_length(Bytes data, std::size_t at) {
    if (at >= data.size()) {
        return Fault{at, "the data end before the length"};
    }
    const unsigned first = data[at];
    if (first < kContinues) {
        return Length{first, 1};
    }
    const std::size_t count = first & ~kContinues;
    if (count == 0 || count > kLongestLength) {
        return Fault{at, hex(first, 2) + " is no length"};
    }
    if (data.size() - at - 1 < count) {
        return Fault{at, "the data end within the length"};
    }
    std::size_t length = 0;
    for (const unsigned byte : data.subspan(at + 1, count)) {
        length = 256 * length + byte;
    }
    return Length{length, 1 + count};
}

bool fills(Bytes data, int depth) {
    for (std::size_t at = 0; at < data.size();) {
        if (is_filling(data[at])) {
            ++at;
            continue;
        }
        const auto found = read_object(data, at);
        const Object* const object = std::get_if<Object>(&found);
        if (object == nullptr || !object->whole()) {
            return false;
        }
        if (object->constructed && (depth >= kDeepestNesting || !fills(object->value, depth + 1))) {
            return false;
        }
        at += object->size();
    }
    return true;
}

Bytes find(Bytes data, std::uint32_t tag, int depth) {
    for (std::size_t at = 0; at < data.size();) {
        if (is_filling(data[at])) {
            ++at;
            continue;
        }
        const auto found = read_object(data, at);
        const Object* const object = std::get_if<Object>(&found);
        if (object == nullptr) {
            break;
        }
        if (object->tag == tag) {
            return object->value;
        }
        if (object->constructed && depth < kDeepestNesting) {
            if (const Bytes inner = find(object->value, tag, depth + 1); !inner.empty()) {
                return inner;
            }
        }
        at += object->size();
    }
    return {};
}

} // namespace

bool is_filling(unsigned char byte) {
    return byte == 0x00 || byte == 0xFF;
}

std::variant<TagBytes, Fault> read_tag(Bytes data, std::size_t at) {
    if (at >= data.size()) {
        return Fault{at, "the data end where a tag is expected"};
    }
    std::uint32_t tag = data[at];
    std::size_t size = 1;
    bool more = (tag & kMoreTagBytes) == kMoreTagBytes;
    while (more) {
        if (at + size >= data.size()) {
            return Fault{at, "the data end within the tag"};
        }
        if (size == kLongestTag) {
            return Fault{at, "a tag of more than " + std::to_string(kLongestTag) + " bytes"};
        }
        const unsigned byte = data[at + size];
        tag = tag << 8U | byte;
        more = (byte & kContinues) != 0;
        ++size;
    }
    return TagBytes{tag, size};
}

std::variant<Object, Fault> read_object(Bytes data, std::size_t at) {
    const auto tag = read_tag(data, at);
    if (const Fault* const fault = std::get_if<Fault>(&tag)) {
        return *fault;
    }
    const auto& [number, tag_size] = std::get<TagBytes>(tag);
    const auto length = read_length(data, at + tag_size);
    if (const Fault* const fault = std::get_if<Fault>(&length)) {
        return Fault{fault->at, fault->why + " of object " + tag_text(number)};
    }
    const auto& [announced, length_size] = std::get<Length>(length);
    const std::size_t head = tag_size + length_size;
    const Bytes rest = data.subspan(at + head);
    return Object{number,    (data[at] & kConstructed) != 0,
                  at,        head,
                  announced, rest.first(std::min(announced, rest.size()))};
}

bool is_object_list(Bytes data) {
    return fills(data, 0);
}

Bytes find_object(Bytes data, std::uint32_t tag) {
    return find(data, tag, 0);
}

std::string tag_text(std::uint32_t tag) {
    const std::string text = hex(tag, 2);
    return text.size() % 2 == 0 ? text : '0' + text;
}

} // namespace qaven::emv
