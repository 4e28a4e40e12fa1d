// Reading data object lists and filling them by the format of each tag.
#include "engine/dol.h"

#include "engine/tag_table.h"
#include "qaven/qaven.h"

#include <algorithm>
#include <array>
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
    const std::size_t tag_size = tlv::tag_size(list);
    if (tag_size == 0) {
        return {0, std::nullopt};
    }
    const Bytes field = list.subspan(tag_size);
    const auto length = tlv::read_length(field);
    if (!length) {
        // A list that ends inside a two-byte length has no entry; inside any other it is bad.
        const bool two_byte = !field.empty() && field[0] == kTwoByteLength;
        return {two_byte ? 0 : static_cast<int>(QAVEN_NO_TAG), std::nullopt};
    }
    const std::size_t size = tag_size + length->field;
    if (size > kMaxEntrySize) {
        return {0, std::nullopt};
    }
    return {0, Entry{list.first(tag_size), length->value, size}};
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

// A data object that answers an entry.
struct Stored {
    Bytes value;          // cut where the data ends
    std::size_t declared; // length by its length field
};

// The data objects that answer a list, found without a walk for each of its entries. The first ones
// are noted by their tags; a terminal's store has fewer than that.
class Index {
  public:
    Index(Bytes data, tlv::Extent extent) : data_(data), extent_(extent) {
        for (std::size_t noted = 0; noted < kMaxNoted && noted_ < data.size(); ++noted) {
            const Bytes rest = data.subspan(noted_);
            const std::size_t size = tlv::tag_size(rest, extent);
            const auto step = size != 0 ? tlv::step(rest, size) : std::nullopt;
            // Behind an object that cannot be read there is nothing to find.
            noted_ = step ? noted_ + *step : data.size();
            if (step) {
                note(rest.first(size));
            }
        }
    }

    std::optional<Stored> find(Bytes tag) const {
        if (tag.empty()) {
            return std::nullopt;
        }
        const Bytes noted = slots_[slot(tag)];
        if (!noted.empty()) {
            return stored(static_cast<std::size_t>(noted.data() - data_.data()) + tag.size());
        }
        if (noted_ < data_.size()) {
            if (const auto at = tlv::find(tag, data_.subspan(noted_), extent_)) {
                return stored(noted_ + *at + tag.size());
            }
        }
        return std::nullopt;
    }

  private:
    static constexpr std::size_t kMaxNoted = 16;
    static constexpr std::size_t kSlots = 32;

    // The tag's place in slots_: where it is, or would be.
    std::size_t slot(Bytes tag) const {
        std::size_t at = tag.back() % kSlots;
        while (!slots_[at].empty() && !tlv::same_tag(slots_[at], tag)) {
            at = (at + 1) % kSlots;
        }
        return at;
    }

    // The first object of a tag counts.
    void note(Bytes tag) {
        Bytes& place = slots_[slot(tag)];
        if (place.empty()) {
            place = tag;
        }
    }

    std::optional<Stored> stored(std::size_t field) const {
        const auto length = tlv::read_length(tlv::clipped(data_, field, data_.size()));
        if (!length) {
            return std::nullopt;
        }
        return Stored{tlv::clipped(data_, field + length->field, length->value), length->value};
    }

    Bytes data_;
    tlv::Extent extent_;
    std::size_t noted_ = 0; // bytes of the data whose objects are noted
    std::array<Bytes, kSlots> slots_{};
};

void place(Bytes value, std::size_t from, std::span<unsigned char> field) {
    std::ranges::copy(tlv::clipped(value, from, field.size()), field.begin());
}

// Puts the stored value into the zeroed field that the card asks for. A value that the data cuts
// short counts with its declared length, the missing bytes as zeros.
void fill(std::span<unsigned char> field, const Stored& stored, Format format) {
    if (format == Format::kUnknown || format == Format::kTemplate) {
        return;
    }
    if (stored.declared >= field.size()) {
        // Numeric values lose leading digits, all others trailing bytes.
        const std::size_t from = format == Format::kNumeric ? stored.declared - field.size() : 0;
        place(stored.value, from, field);
        return;
    }
    if (format == Format::kNumeric) {
        place(stored.value, 0, field.subspan(field.size() - stored.declared));
        return;
    }
    if (format == Format::kCompressedNumeric) {
        std::ranges::fill(field.subspan(stored.declared), static_cast<unsigned char>(0xFF));
    }
    place(stored.value, 0, field.first(stored.declared));
}

} // namespace

Built build(Bytes data, Bytes list, std::span<unsigned char> out, tlv::Extent extent) {
    Built built{0, 0};
    if (list.empty()) {
        return {QAVEN_EMPTY_DATA, 0};
    }
    const Index index(data, extent);
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
        const Bytes tag = terminated_tag(entry.tag);
        if (const auto stored = index.find(tag)) {
            fill(field, *stored, static_cast<Format>(format_letter(tag)));
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
    while (const std::size_t size = tlv::tag_size(list)) {
        // A tag that matches counts also where the list ends before its length.
        if (std::ranges::equal(wanted, list.first(size))) {
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
    // A host's buffer holds what its list asks for.
    const tlv::HostBuffer values = tlv::host_buffer(data, datalen);
    const auto built = dol::build(values.bytes, host_bytes(dol, dollen),
                                  std::span(out, tlv::kUnknownSize), values.extent);
    *outlen = static_cast<int>(built.length);
    return built.result;
}
