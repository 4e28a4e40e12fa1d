// Depth-first search over BER-TLV data, and the value behind a tag.
#include "engine/data/tlv.h"

#include "qaven/qaven.h"

#include <algorithm>

namespace qaven::tlv {

namespace {

constexpr std::size_t kMaxValue = 256;

// The length field at the given place, as it counts for the copy of a value.
Length length_at(Bytes data, std::size_t field) {
    Length length = read_length(data, field);
    if (length && data[field] == kOneByteLength) {
        // A length of the form 81 LL is taken from the second byte of the whole searched buffer,
        // not from the byte behind the 81: the lengths that hosts know come from there.
        length.value = data[1];
    }
    return length;
}

template <Extent extent>
std::optional<std::size_t> find_in(Bytes wanted, Bytes data) {
    // Tags with a number are told apart by it, all others by their bytes.
    const Tag whole = read_tag<extent>(wanted, 0);
    const TagNumber number = whole.end == wanted.size() ? whole.number : TagNumber{0};
    std::size_t at = 0;
    while (true) {
        const Tag tag = read_tag<extent>(data, at);
        if (!tag) {
            return std::nullopt;
        }
        if (tag.number == number &&
            (number != 0 || std::ranges::equal(wanted, data.subspan(at, tag.end - at)))) {
            return at;
        }
        const Length length = read_length(data, tag.end);
        if (!length) {
            return std::nullopt;
        }
        at = next_object(data, at, length);
    }
}

Length find_length(Bytes tag, Bytes data, Extent extent) {
    const auto at = find(tag, data, extent);
    return at ? length_at(data, *at + tag.size()) : Length{};
}

void copy_value(Bytes data, std::size_t offset, std::span<unsigned char> out) {
    const Bytes present = clipped(data, offset, out.size());
    const auto rest = std::ranges::copy(present, out.begin()).out;
    std::fill(rest, out.end(), static_cast<unsigned char>(0));
}

} // namespace

HostBuffer host_buffer(const unsigned char* buf, int buflen) {
    if (buf == nullptr || buflen < 0) {
        return {{}, Extent::kBounded};
    }
    if (buflen == 0) {
        return {{buf, kUnknownSize}, Extent::kZeroTerminated};
    }
    return {{buf, static_cast<std::size_t>(buflen)}, Extent::kBounded};
}

std::optional<std::size_t> find(Bytes tag, Bytes data, Extent extent) {
    return extent == Extent::kBounded ? find_in<Extent::kBounded>(tag, data)
                                      : find_in<Extent::kZeroTerminated>(tag, data);
}

std::optional<std::size_t> extract(Bytes tag, Bytes data, std::span<unsigned char> out,
                                   Extent extent) {
    const Length length = find_length(tag, data, extent);
    if (!length) {
        return std::nullopt;
    }
    const std::size_t taken = std::min(length.value, out.size());
    copy_value(data, length.end, out.first(taken));
    return taken;
}

std::optional<WipedBytes> value_of(Bytes tag, Bytes data) {
    WipedBytes value(kMaxValue);
    const auto length = extract(tag, data, value);
    if (!length) {
        return std::nullopt;
    }
    value.resize(*length);
    return value;
}

} // namespace qaven::tlv

namespace tlv = qaven::tlv;

namespace {

tlv::Bytes host_tag(const unsigned char* tag, int taglen) {
    return taglen > 0 ? tlv::Bytes(tag, static_cast<std::size_t>(taglen)) : tlv::Bytes();
}

// Tags of a tag list have one byte or two, never more.
std::size_t list_tag_size(unsigned char first) {
    return tlv::starts_multi_byte_tag(first) ? 2 : 1;
}

} // namespace

unsigned char* qmcx_findtag(const unsigned char* tag, int taglen, unsigned char* buf, int buflen) {
    const tlv::HostBuffer buffer = tlv::host_buffer(buf, buflen);
    const auto at = tlv::find(host_tag(tag, taglen), buffer.bytes, buffer.extent);
    return at ? buf + *at : nullptr;
}

int qmcx_gettagvalue(const unsigned char* tag, int taglen, unsigned char* buf, int buflen,
                     unsigned char* out, int* outlen) {
    const tlv::HostBuffer buffer = tlv::host_buffer(buf, buflen);
    const auto length = tlv::find_length(host_tag(tag, taglen), buffer.bytes, buffer.extent);
    if (!length) {
        return QAVEN_NO_TAG;
    }
    tlv::copy_value(buffer.bytes, length.end, std::span(out, length.value));
    *outlen = static_cast<int>(length.value);
    return 0;
}

int qmcx_findapptag(unsigned char* buf, int buflen, unsigned char* taglist, int taglistlen) {
    const tlv::HostBuffer buffer = tlv::host_buffer(buf, buflen);
    std::span list(taglist, static_cast<std::size_t>(std::max(taglistlen, 0)));
    std::size_t at = 0;
    while (at < list.size() && list_tag_size(list[at]) <= list.size() - at) {
        const auto tag = list.subspan(at, list_tag_size(list[at]));
        if (!tlv::find(tag, buffer.bytes, buffer.extent)) {
            at += tag.size();
            continue;
        }
        const auto after = list.subspan(at + tag.size());
        std::ranges::copy(after, tag.begin());
        list = list.first(list.size() - tag.size());
    }
    return static_cast<int>(list.size());
}

int qmcx_GetTagData(int pos, const unsigned char* buf, unsigned char* out, unsigned char* outlen) {
    const tlv::Length length = tlv::read_length({buf + pos, tlv::kUnknownSize}, 0);
    // The length is reported in one byte: of a two-byte one only the low byte counts.
    const auto taken = static_cast<unsigned char>(length.value);
    std::copy_n(buf + pos + length.end, taken, out);
    *outlen = taken;
    return 0;
}

int qm_GetTL(unsigned char* tagout, unsigned char* taglenout, const unsigned char* in,
             int /*len*/) {
    const std::size_t size = tlv::log_tag_size(in[0]);
    std::copy_n(in, size, tagout);
    *taglenout = static_cast<unsigned char>(size);
    return static_cast<int>(size + 1);
}
