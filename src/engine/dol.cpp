// Reading data object lists and filling them by the format of each tag.
#include "engine/dol.h"

#include "engine/tag_table.h"
#include "qaven/qaven.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <optional>

namespace qaven::dol {

namespace {

using tlv::Bytes;

constexpr unsigned char kTwoByteLength = 0x82;

// An entry's size is reported in one byte, and its tag is handed out with a zero behind it.
constexpr std::size_t kMaxEntrySize = 255;

struct Entry {
    Bytes tag;
    std::size_t requested = 0;
    std::size_t size = 0; // bytes of the entry in the list; 0 when there is none
    int failure = 0;      // or -204, when there is none
};

Entry parse_entry(Bytes list) {
    Entry entry;
    const std::size_t tag_size = tlv::tag_size(list);
    if (tag_size == 0) {
        return entry;
    }
    const Bytes field = list.subspan(tag_size);
    const auto length = tlv::read_length(field);
    if (!length) {
        // A list that ends inside a two-byte length has no entry; inside any other it is bad.
        const bool two_byte = !field.empty() && field[0] == kTwoByteLength;
        entry.failure = two_byte ? 0 : QAVEN_NO_TAG;
        return entry;
    }
    const std::size_t size = tag_size + length->field;
    if (size <= kMaxEntrySize) {
        entry.tag = list.first(tag_size);
        entry.requested = length->value;
        entry.size = size;
    }
    return entry;
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
        const std::size_t size = tlv::tag_size(table.subspan(at));
        if (size == 0 || at + size >= table.size()) {
            return Format::kUnknown;
        }
        if (std::ranges::equal(tag, table.subspan(at, size))) {
            return static_cast<Format>(table[at + size]);
        }
        at += size + 1;
    }
    return Format::kUnknown;
}

// The tag as a zero-terminated constant: a zero byte inside it ends it, and what is left of such a
// tag names nothing.
Bytes terminated_tag(Bytes tag) {
    const auto zero = std::ranges::find(tag, static_cast<unsigned char>(0));
    return tag.first(static_cast<std::size_t>(zero - tag.begin()));
}

// The data objects that answer a list. Those that a search passes are noted for the entries that
// follow: the data are walked once for the whole list, and no further than it asks.
class Objects {
  public:
    Objects(Bytes data, tlv::Extent extent) : data_(data), extent_(extent) {}

    // From the length field of the first object of the tag on; empty when there is none.
    Bytes find(Bytes tag) {
        if (tag.empty() || tag.size() > kMaxTagSize) {
            return search(0, tag);
        }
        const Key wanted = key(tag);
        for (std::size_t n = 0; n < noted_; ++n) {
            if (keys_[n] == wanted) {
                return from(length_fields_[n]);
            }
        }
        while (noted_ < kMaxNoted && walked_ < data_.size()) {
            const Bytes rest = data_.subspan(walked_);
            const std::size_t size = tlv::tag_size(rest, extent_);
            const std::size_t length_field = walked_ + size;
            const auto step = size != 0 ? tlv::step(rest, size) : std::nullopt;
            // Behind an object that cannot be read there is nothing to find.
            walked_ = step ? walked_ + *step : data_.size();
            if (size == 0 || size > kMaxTagSize) {
                continue;
            }
            keys_[noted_] = key(rest.first(size));
            length_fields_[noted_] = length_field;
            if (keys_[noted_++] == wanted) {
                return from(length_field);
            }
        }
        return search(walked_, tag);
    }

  private:
    // The tags that terminals have a value for have one byte or two, and a terminal's store has
    // fewer objects than are noted.
    using Key = std::uint16_t;
    static constexpr std::size_t kMaxTagSize = 2;
    static constexpr std::size_t kMaxNoted = 16;

    static Key key(Bytes tag) {
        return static_cast<Key>(tag.size() == 1 ? tag[0] : tag[0] << 8U | tag[1]);
    }

    Bytes from(std::size_t at) const { return tlv::clipped(data_, at, data_.size()); }

    Bytes search(std::size_t start, Bytes tag) const {
        const Bytes rest = from(start);
        const auto at = tag.empty() ? std::nullopt : tlv::find(tag, rest, extent_);
        return at ? rest.subspan(*at + tag.size()) : Bytes();
    }

    Bytes data_;
    tlv::Extent extent_;
    std::size_t walked_ = 0; // bytes of the data whose objects are noted
    std::size_t noted_ = 0;
    std::array<Key, kMaxNoted> keys_{};
    std::array<std::size_t, kMaxNoted> length_fields_{};
};

// Writes the whole field: the value, cut or with zeros behind it.
void put(Bytes value, std::span<unsigned char> field) {
    const Bytes fitting = tlv::clipped(value, 0, field.size());
    std::ranges::copy(fitting, field.begin());
    std::ranges::fill(field.subspan(fitting.size()), static_cast<unsigned char>(0));
}

// Puts a value into the field that the card asks for. A value that the data cut short counts with
// its declared length, the missing bytes as zeros.
void fill(std::span<unsigned char> field, Bytes value, std::size_t declared, Format format) {
    if (format == Format::kUnknown || format == Format::kTemplate) {
        put({}, field);
    } else if (declared >= field.size()) {
        // Numeric values lose leading digits, all others trailing bytes.
        const std::size_t first = format == Format::kNumeric ? declared - field.size() : 0;
        put(tlv::clipped(value, first, field.size()), field);
    } else if (format == Format::kNumeric) {
        const std::size_t leading = field.size() - declared;
        put({}, field.first(leading));
        put(value, field.subspan(leading));
    } else {
        const bool padded = format == Format::kCompressedNumeric;
        put(value, field.first(declared));
        std::ranges::fill(field.subspan(declared),
                          static_cast<unsigned char>(padded ? 0xFF : 0x00));
    }
}

} // namespace

Built build(Bytes data, Bytes list, std::span<unsigned char> out, tlv::Extent extent) {
    Built built{0, 0};
    if (list.empty()) {
        return {QAVEN_EMPTY_DATA, 0};
    }
    Objects objects(data, extent);
    while (!list.empty()) {
        const Entry entry = parse_entry(list);
        if (entry.size == 0) {
            built.result = QAVEN_NO_TAG;
            return built;
        }
        list = list.subspan(entry.size);
        if (entry.requested > out.size() - built.length) {
            built.result = QAVEN_EMPTY_DATA;
            return built;
        }
        const auto field = out.subspan(built.length, entry.requested);
        const Bytes tag = terminated_tag(entry.tag);
        const Bytes object = objects.find(tag);
        if (const auto length = tlv::read_length(object)) {
            fill(field, tlv::clipped(object, length->field, length->value), length->value,
                 static_cast<Format>(format_letter(tag)));
        } else {
            put({}, field);
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
    const auto entry = dol::parse_entry(host_bytes(dol, dollen));
    if (entry.size == 0) {
        return entry.failure;
    }
    const auto end = std::ranges::copy(entry.tag, tagout).out;
    *end = 0;
    *lenout = static_cast<int>(entry.requested);
    return static_cast<int>(entry.size);
}

int qmcx_findtaginDOL(const unsigned char* tag, int taglen, const unsigned char* dol, int dollen) {
    const tlv::Bytes wanted = host_bytes(tag, taglen);
    tlv::Bytes list = host_bytes(dol, dollen);
    while (const std::size_t size = tlv::tag_size(list)) {
        // A tag that matches counts also where the list ends before its length.
        if (std::ranges::equal(wanted, list.first(size))) {
            return 0;
        }
        const std::size_t entry_size = dol::parse_entry(list).size;
        if (entry_size == 0) {
            break;
        }
        list = list.subspan(entry_size);
    }
    return QAVEN_NO_TAG;
}

int qmcx_BuildDOL(unsigned char* data, int datalen, const unsigned char* dol, int dollen,
                  unsigned char* out, int* outlen) {
    // A host's buffer holds what its list asks for.
    const tlv::HostBuffer values = tlv::host_buffer(data, datalen);
    const auto built = dol::build(values.bytes, host_bytes(dol, dollen),
                                  std::span(out, tlv::kUnknownSize), values.extent);
    *outlen = static_cast<int>(built.length);
    return built.result;
}
