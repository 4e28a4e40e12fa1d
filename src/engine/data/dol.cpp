// Reading data object lists and filling them by the format of each tag.
#include "engine/data/dol.h"

#include "engine/data/tag_table.h"
#include "qaven/qaven.h"

#include <algorithm>
#include <array>
#include <cstdint>

namespace qaven::dol {

namespace {

using tlv::Bytes;

// An entry's size is reported in one byte, and its tag is handed out with a zero behind it.
constexpr std::size_t kMaxEntrySize = 255;

// Places in the list.
struct Entry {
    tlv::Tag tag;
    std::size_t end; // 0: no entry
    std::size_t requested;
};

inline Entry entry_at(Bytes list, std::size_t at) {
    const tlv::Tag tag = tlv::read_tag<tlv::Extent::kBounded>(list, at);
    const tlv::Length length = tag ? tlv::read_length(list, tag.end) : tlv::Length{};
    const bool fits = length && length.end - at <= kMaxEntrySize;
    return {tag, fits ? length.end : 0, length.value};
}

// The result for a list that begins with no entry: 0, or -204 where the length behind a tag is
// missing.
int failure(Bytes list, const tlv::Tag& tag) {
    if (!tag || tlv::read_length(list, tag.end)) {
        return 0;
    }
    // A list that ends inside a two-byte length has no entry; inside any other it is bad.
    const bool two_byte = tag.end < list.size() && list[tag.end] == tlv::kTwoByteLength;
    return two_byte ? 0 : static_cast<int>(QAVEN_NO_TAG);
}

enum class Format : int {
    kUnknown = 0,
    kNumeric = 'n',
    kCompressedNumeric = 'c',
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

// The data objects that answer a list. Those that a search passes are noted for the entries that
// follow: the data are walked once for the whole list, and no further than it asks. Only a search
// for a tag whose note another tag has taken begins again.
template <tlv::Extent extent>
class Objects {
  public:
    // Clearing the notes would take longer than most searches; only taken ones are read.
    // NOLINTNEXTLINE(cppcoreguidelines-pro-type-member-init)
    explicit Objects(Bytes data) : data_(data) {}

    // The length field of the first object of a tag that has a format; none when there is no such
    // object.
    tlv::Length find(tlv::TagNumber wanted) {
        const std::size_t note = note_of(wanted);
        const bool taken = (taken_ & mark(note)) != 0;
        // Cards mostly ask in the order in which terminals have their data.
        if (taken && tags_[note] == wanted) [[unlikely]] {
            return lengths_[note];
        }
        std::size_t at = taken ? 0 : walked_;
        while (true) {
            const tlv::Tag tag = tlv::read_tag<extent>(data_, at);
            const auto length = tag ? tlv::read_length(data_, tag.end) : tlv::Length{};
            // Behind an object that cannot be read there is nothing to find.
            if (!length) [[unlikely]] {
                walked_ = at;
                return length;
            }
            at = tlv::next_object(data_, at, length);
            take_note(tag.number, length);
            if (tag.number == wanted) {
                walked_ = std::max(walked_, at);
                return length;
            }
        }
    }

  private:
    static constexpr std::size_t kNotes = 64;

    // No two tags of a terminal data store share a note.
    static constexpr std::size_t note_of(tlv::TagNumber tag) {
        return (tag + (tag >> 8U)) % kNotes;
    }

    static constexpr std::uint64_t mark(std::size_t note) { return std::uint64_t{1} << note; }

    void take_note(tlv::TagNumber tag, const tlv::Length& length) {
        const std::size_t note = note_of(tag);
        if ((taken_ & mark(note)) == 0) {
            taken_ |= mark(note);
            tags_[note] = tag;
            lengths_[note] = length;
        }
    }

    Bytes data_;
    std::size_t walked_ = 0; // bytes of the data whose objects have been passed
    std::uint64_t taken_ = 0;
    std::array<tlv::TagNumber, kNotes> tags_;
    std::array<tlv::Length, kNotes> lengths_;
};

// Writes the whole field: the value, cut or with zeros behind it.
void put(Bytes value, std::span<unsigned char> field) {
    const std::size_t size = std::min(value.size(), field.size());
    std::copy_n(value.begin(), size, field.begin());
    std::ranges::fill(field.subspan(size), static_cast<unsigned char>(0));
}

// Puts a value into the field that the card asks for. A value that the data cut short counts with
// its declared length, the missing bytes as zeros.
void fit(std::span<unsigned char> field, Bytes value, std::size_t declared, Format format) {
    if (declared > field.size()) {
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

template <tlv::Extent extent>
Built build_from(Bytes data, Bytes list, std::span<unsigned char> out) {
    Objects<extent> objects(data);
    std::span<unsigned char> rest = out;
    int result = 0;
    std::size_t at = 0;
    while (at < list.size()) {
        const Entry entry = entry_at(list, at);
        if (entry.end == 0) {
            result = QAVEN_NO_TAG;
            break;
        }
        if (entry.requested > rest.size()) {
            result = QAVEN_EMPTY_DATA;
            break;
        }
        at = entry.end;
        const auto field = rest.first(entry.requested);
        rest = rest.subspan(entry.requested);
        // What has no format, long tags and those with a zero byte among them, is answered by
        // zeros.
        const auto format = static_cast<Format>(kFormatLetters[entry.tag.number]);
        const bool answered = format != Format::kUnknown;
        const auto length = answered ? objects.find(entry.tag.number) : tlv::Length{};
        if (length) [[likely]] {
            const std::size_t left = data.size() - length.end;
            const bool fits = length.value == field.size() && length.value <= left;
            if (fits) [[likely]] {
                std::copy_n(data.subspan(length.end).begin(), field.size(), field.begin());
            } else {
                fit(field, tlv::clipped(data, length.end, length.value), length.value, format);
            }
        } else {
            put({}, field);
        }
    }
    return {result, out.size() - rest.size()};
}

} // namespace

Built build(Bytes data, Bytes list, std::span<unsigned char> out, tlv::Extent extent) {
    if (list.empty()) {
        return {QAVEN_EMPTY_DATA, 0};
    }
    return extent == tlv::Extent::kBounded
               ? build_from<tlv::Extent::kBounded>(data, list, out)
               : build_from<tlv::Extent::kZeroTerminated>(data, list, out);
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
    const tlv::Bytes list = host_bytes(dol, dollen);
    const auto entry = dol::entry_at(list, 0);
    if (entry.end == 0) {
        return dol::failure(list, entry.tag);
    }
    const auto end = std::ranges::copy(list.first(entry.tag.end), tagout).out;
    *end = 0;
    *lenout = static_cast<int>(entry.requested);
    return static_cast<int>(entry.end);
}

int qmcx_findtaginDOL(const unsigned char* tag, int taglen, const unsigned char* dol, int dollen) {
    const tlv::Bytes wanted = host_bytes(tag, taglen);
    tlv::Bytes list = host_bytes(dol, dollen);
    while (const std::size_t size = tlv::tag_size(list)) {
        // A tag that matches counts also where the list ends before its length.
        if (std::ranges::equal(wanted, list.first(size))) {
            return 0;
        }
        const std::size_t entry_size = dol::entry_at(list, 0).end;
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
