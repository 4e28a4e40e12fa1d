// Reading data object lists and filling them by the format of each tag.
#include "engine/dol.h"

#include "engine/tag_table.h"
#include "qaven/qaven.h"

#include <algorithm>
#include <optional>

namespace qaven::dol {

namespace {

using tlv::Bytes;

constexpr unsigned char kTwoByteLength = 0x82;

// An entry's size is reported in one byte, and its tag is handed out with a zero behind it.
constexpr std::size_t kMaxEntrySize = 255;

struct Entry {
    Bytes tag;
    std::size_t requested;
    std::size_t size; // bytes of the entry in the list
};

struct ParsedEntry {
    int failure = 0; // or -204, when there is no entry
    std::optional<Entry> entry;
};

ParsedEntry parse_entry(Bytes list) {
    const auto tag_size = tlv::tag_size(list);
    if (!tag_size) {
        return {0, std::nullopt};
    }
    const Bytes field = list.subspan(*tag_size);
    const auto length = tlv::read_length(field);
    if (!length) {
        // A list that ends inside a two-byte length has no entry; inside any other it is bad.
        const bool two_byte = !field.empty() && field[0] == kTwoByteLength;
        return {two_byte ? 0 : static_cast<int>(QAVEN_NO_TAG), std::nullopt};
    }
    const std::size_t size = *tag_size + length->field;
    if (size > kMaxEntrySize) {
        return {0, std::nullopt};
    }
    return {0, Entry{list.first(*tag_size), length->value, size}};
}

enum class Format : int {
    kUnknown = 0,
    kNumeric = 'n',
    kCompressedNumeric = 'c',
    kTemplate = 't',
};

Format format_of(Bytes tag, Bytes table) {
    std::size_t at = 0;
    while (at < table.size()) {
        const auto size = tlv::tag_size(table.subspan(at));
        if (!size || at + *size >= table.size()) {
            return Format::kUnknown;
        }
        if (std::ranges::equal(tag, table.subspan(at, *size))) {
            return static_cast<Format>(table[at + *size]);
        }
        at += *size + 1;
    }
    return Format::kUnknown;
}

// The tag as a zero-terminated constant: a zero byte inside it ends it, and what is left of such a
// tag names nothing.
Bytes terminated_tag(Bytes tag) {
    const auto zero = std::ranges::find(tag, static_cast<unsigned char>(0));
    return tag.first(static_cast<std::size_t>(zero - tag.begin()));
}

std::optional<Bytes> stored_value(Bytes tag, Bytes data, tlv::Extent extent,
                                  std::size_t& declared) {
    const auto at = tlv::find(tag, data, extent);
    if (!at) {
        return std::nullopt;
    }
    const std::size_t field = *at + tag.size();
    const auto length = tlv::read_length(tlv::clipped(data, field, data.size()));
    if (!length) {
        return std::nullopt;
    }
    declared = length->value;
    return tlv::clipped(data, field + length->field, length->value);
}

void place(Bytes value, std::size_t from, std::span<unsigned char> field) {
    std::ranges::copy(tlv::clipped(value, from, field.size()), field.begin());
}

// Puts the stored value into the zeroed field that the card asks for. A value that the data cuts
// short counts with its declared length, the missing bytes as zeros.
void fill(std::span<unsigned char> field, Bytes value, std::size_t declared, Format format) {
    if (format == Format::kUnknown || format == Format::kTemplate) {
        return;
    }
    if (declared >= field.size()) {
        // Numeric values lose leading digits, all others trailing bytes.
        const std::size_t from = format == Format::kNumeric ? declared - field.size() : 0;
        place(value, from, field);
        return;
    }
    if (format == Format::kNumeric) {
        place(value, 0, field.subspan(field.size() - declared));
        return;
    }
    if (format == Format::kCompressedNumeric) {
        std::ranges::fill(field.subspan(declared), static_cast<unsigned char>(0xFF));
    }
    place(value, 0, field.first(declared));
}

} // namespace

Built build(Bytes data, Bytes list, std::span<unsigned char> out, tlv::Extent extent) {
    Built built{0, 0};
    if (list.empty()) {
        return {QAVEN_EMPTY_DATA, 0};
    }
    while (!list.empty()) {
        const auto parsed = parse_entry(list);
        if (!parsed.entry) {
            built.result = QAVEN_NO_TAG;
            return built;
        }
        const Entry& entry = *parsed.entry;
        list = list.subspan(entry.size);
        if (entry.requested > out.size() - built.length) {
            built.result = QAVEN_EMPTY_DATA;
            return built;
        }
        const auto field = out.subspan(built.length, entry.requested);
        std::ranges::fill(field, static_cast<unsigned char>(0));
        std::size_t declared = 0;
        const Bytes tag = terminated_tag(entry.tag);
        if (const auto value = stored_value(tag, data, extent, declared)) {
            fill(field, *value, declared, format_of(tag, gcTagName));
        }
        built.length += entry.requested;
    }
    return built;
}

} // namespace qaven::dol

namespace dol = qaven::dol;
namespace tlv = qaven::tlv;

namespace {

tlv::Bytes host_bytes(const unsigned char* bytes, int length) {
    return bytes != nullptr && length > 0 ? tlv::Bytes(bytes, static_cast<std::size_t>(length))
                                          : tlv::Bytes();
}

} // namespace

int qmcx_GetTagType(const unsigned char* tag, int taglen, const unsigned char* table,
                    int tablelen) {
    return static_cast<int>(dol::format_of(host_bytes(tag, taglen), host_bytes(table, tablelen)));
}

int qmcx_GetTaginDOL(const unsigned char* dol, int dollen, unsigned char* tagout, int* lenout) {
    const auto parsed = dol::parse_entry(host_bytes(dol, dollen));
    if (!parsed.entry) {
        return parsed.failure;
    }
    const auto end = std::ranges::copy(parsed.entry->tag, tagout).out;
    *end = 0;
    *lenout = static_cast<int>(parsed.entry->requested);
    return static_cast<int>(parsed.entry->size);
}

int qmcx_findtaginDOL(const unsigned char* tag, int taglen, const unsigned char* dol, int dollen) {
    const tlv::Bytes wanted = host_bytes(tag, taglen);
    tlv::Bytes list = host_bytes(dol, dollen);
    while (const auto size = tlv::tag_size(list)) {
        // A tag that matches counts also where the list ends before its length.
        if (std::ranges::equal(wanted, list.first(*size))) {
            return 0;
        }
        const auto parsed = dol::parse_entry(list);
        if (!parsed.entry) {
            break;
        }
        list = list.subspan(parsed.entry->size);
    }
    return QAVEN_NO_TAG;
}

int qmcx_BuildDOL(unsigned char* data, int datalen, const unsigned char* dol, int dollen,
                  unsigned char* out, int* outlen) {
    // A host's buffer holds what its list asks for, so the sum of the list is its size.
    const tlv::Bytes list = host_bytes(dol, dollen);
    std::size_t sum = 0;
    for (tlv::Bytes rest = list; !rest.empty();) {
        const auto parsed = dol::parse_entry(rest);
        if (!parsed.entry) {
            break;
        }
        sum += parsed.entry->requested;
        rest = rest.subspan(parsed.entry->size);
    }
    const tlv::HostBuffer values = tlv::host_buffer(data, datalen);
    const auto built = dol::build(values.bytes, list, std::span(out, sum), values.extent);
    *outlen = static_cast<int>(built.length);
    return built.result;
}
