// Feeds card data of any shape, a tag and a list of tags to the functions that find data objects
// and take their values out; and data that keeps the rules of a zero-terminated list to their
// unbounded forms. Input: tag, tag list, form, data.
#include "engine/data/tlv.h"

#include "engine/data/application_data.h"
#include "qaven/qaven.h"
#include "support/demand.h"
#include "support/guarded.h"
#include "support/input.h"

#include <algorithm>
#include <array>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace tlv = qaven::tlv;
using qaven::fuzz::Bytes;
using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;

constexpr int kUntouched = -1;
constexpr std::size_t kMaxDeclared = 65535;

// The engine's capacities for one value, and the odd ones.
constexpr std::array<std::size_t, 6> kCapacities{0, 1, 10, 128, 256, 1024};

int int_size(const Bytes& bytes) {
    return static_cast<int>(bytes.size());
}

void find(const Bytes& tag, Bytes& data, int buflen) {
    const unsigned char* const found = qmcx_findtag(tag.data(), int_size(tag), data.data(), buflen);
    if (found == nullptr) {
        return;
    }
    const auto at = static_cast<std::size_t>(found - data.data());
    demand(at < data.size() && tag.size() <= data.size() - at, "a found tag lies in the data");
    demand(std::equal(tag.begin(), tag.end(), found), "a found tag is the wanted one");
}

// Twice: into more room than any value needs, then into exactly as much as the first call declared.
void take_value(const Bytes& tag, Bytes& data, int buflen) {
    static std::array<unsigned char, kMaxDeclared> ample{};
    int declared = kUntouched;
    const int result =
        qmcx_gettagvalue(tag.data(), int_size(tag), data.data(), buflen, ample.data(), &declared);
    if (result != 0) {
        demand(result == QAVEN_NO_TAG && declared == kUntouched, "no tag, nothing written");
        return;
    }
    demand(declared >= 0 && declared <= static_cast<int>(kMaxDeclared), "a length is two bytes");
    Bytes exact(static_cast<std::size_t>(declared));
    int again = kUntouched;
    qmcx_gettagvalue(tag.data(), int_size(tag), data.data(), buflen, exact.data(), &again);
    demand(again == declared, "the same value has the same length");
    demand(std::ranges::equal(exact, std::span(ample).first(exact.size())), "the same bytes");
}

void find_missing(const Bytes& list, Bytes& data, int buflen) {
    Bytes missing = list;
    const int left = qmcx_findapptag(data.data(), buflen, missing.data(), int_size(missing));
    demand(left >= 0 && left <= int_size(list), "a list of missing tags only shrinks");
    Bytes again(missing.begin(), missing.begin() + left);
    demand(qmcx_findapptag(data.data(), buflen, again.data(), left) == left,
           "what is missing stays missing");
}

// Inside the engine every walk knows where its buffer ends, zero-terminated lists included.
void extract(const Bytes& tag, const Bytes& data) {
    for (const tlv::Extent extent : {tlv::Extent::kBounded, tlv::Extent::kZeroTerminated}) {
        for (const std::size_t capacity : kCapacities) {
            Bytes out(capacity);
            const auto length = tlv::extract(tag, data, out, extent);
            demand(length.value_or(0) <= capacity, "a value is cut to its place");
        }
    }
}

// The value behind a length field, in a block that ends where the value does.
void take_value_at(std::size_t position, const Bytes& data) {
    Bytes block = data;
    block.resize(std::max(block.size(), position + 3));
    const std::size_t field = block[position] == 0x82 ? 3 : block[position] == 0x81 ? 2 : 1;
    const std::size_t length = block[position + field - 1];
    block.resize(position + field + length);
    const Bytes exact = Input::exact(block);
    Guarded<unsigned char, 256> out;
    unsigned char reported = 0;
    demand(qmcx_GetTagData(static_cast<int>(position), exact.data(), out, &reported) == 0,
           "always 0");
    demand(reported == length, "the length is the field's low byte");
}

void take_log_tag(const Bytes& data) {
    if (data.empty() || (data.size() < 2 && data[0] % 2 != 0)) {
        return;
    }
    const Bytes exact = Input::exact(std::span(data).first(data[0] % 2 != 0 ? 2 : 1));
    Guarded<unsigned char, 2> tag;
    unsigned char size = 0;
    const int read = qm_GetTL(tag, &size, exact.data(), int_size(exact));
    demand(size == exact.size() && read == size + 1, "a tag and its length byte");
}

// Data objects whose lengths are those of their values, and a zero behind the last. A template's
// length may say anything in one byte: the walk goes through its objects whatever it says.
Bytes zero_terminated_list(Input& input) {
    Bytes list;
    while (!input.empty()) {
        const std::uint8_t first = input.byte();
        if (first == 0x00 || first == 0xFF) {
            continue;
        }
        list.push_back(first);
        if ((first & 0x1FU) == 0x1FU) {
            list.push_back(input.byte());
        }
        const unsigned form = input.below(3);
        std::span<const std::uint8_t> value;
        std::uint8_t length = input.byte();
        if ((first & 0x20U) == 0) {
            value = input.take(length);
            length = static_cast<std::uint8_t>(value.size());
        }
        if (form == 2) {
            list.insert(list.end(), {0x82, 0x00});
        } else if (form == 1 || length == 0x81 || length == 0x82) {
            list.push_back(0x81);
        }
        list.push_back(length);
        list.insert(list.end(), value.begin(), value.end());
    }
    list.push_back(0x00);
    return list;
}

void search_list(const Bytes& tag, const Bytes& tags, Bytes list) {
    list.shrink_to_fit();
    find(tag, list, 0);
    find_missing(tags, list, 0);
    // A length of the form 81 LL is that of the list's second byte, so a value may reach as far
    // behind its own end.
    list.resize(list.size() + 255);
    take_value(tag, list, 0);
}

void search_text(const Bytes& tag, const Bytes& data) {
    const std::vector<char> text = Input::text(data);
    const auto application_data = qaven::application_data::parse(text.data());
    extract(tag, Bytes(application_data.begin(), application_data.end()));
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const Bytes tag = Input::exact(input.take(input.below(5)));
    const Bytes tags = Input::exact(input.take(input.below(32)));
    switch (input.below(4)) {
    case 0:
        search_list(tag, tags, zero_terminated_list(input));
        break;
    case 1:
        take_value_at(input.below(32), Input::exact(input.rest()));
        break;
    case 2:
        search_text(tag, Input::exact(input.rest()));
        break;
    default: {
        Bytes card_data = Input::exact(input.rest());
        extract(tag, card_data);
        take_log_tag(card_data);
        if (!card_data.empty()) {
            find(tag, card_data, int_size(card_data));
            take_value(tag, card_data, int_size(card_data));
            find_missing(tags, card_data, int_size(card_data));
        }
        break;
    }
    }
    return 0;
}
