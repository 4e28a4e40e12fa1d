// Feeds a card's data object list and the data that answers it to the functions that read and fill
// such lists. Input: tag, list, form of the data, data.
#include "engine/data/dol.h"

#include "engine/data/tag_table.h"
#include "qaven/qaven.h"
#include "support/demand.h"
#include "support/guarded.h"
#include "support/input.h"

#include <algorithm>
#include <array>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using qaven::fuzz::Bytes;
using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;

// The engine's own capacities: PDOL, CDOL1 and CDOL2; and a place that any list outgrows.
constexpr std::array<std::size_t, 3> kCapacities{253, 255, 1};

constexpr std::size_t kLargestBlock = 70'000;

int int_size(std::span<const unsigned char> bytes) {
    return static_cast<int>(bytes.size());
}

bool is_result(int result) {
    return result == 0 || result == QAVEN_NO_TAG || result == QAVEN_EMPTY_DATA;
}

// Reads the list as a host does that sizes its buffer by it: the sum of the lengths up to the first
// entry that cannot be read.
std::size_t requested(const Bytes& list) {
    std::size_t sum = 0;
    Guarded<unsigned char, 256> tag;
    for (std::span<const unsigned char> rest = list; !rest.empty();) {
        int length = 0;
        const int consumed = qmcx_GetTaginDOL(rest.data(), int_size(rest), tag, &length);
        demand(consumed == QAVEN_NO_TAG || (consumed >= 0 && consumed <= 255), "0, -204 or a size");
        if (consumed <= 0) {
            break;
        }
        demand(consumed <= int_size(rest), "an entry lies in the list");
        demand(length >= 0 && length <= 65535, "a length is two bytes");
        sum += static_cast<std::size_t>(length);
        rest = rest.subspan(static_cast<std::size_t>(consumed));
    }
    return sum;
}

void look_up(const Bytes& tag, const Bytes& list) {
    const int letter = qmcx_GetTagType(tag.data(), int_size(tag), gcTagName, kTagTableSize);
    demand(letter == 0 || (letter >= 'a' && letter <= 'v'), "a format letter or none");
    // The list stands for a table of any shape.
    qmcx_GetTagType(tag.data(), int_size(tag), list.data(), int_size(list));
    const int found = qmcx_findtaginDOL(tag.data(), int_size(tag), list.data(), int_size(list));
    demand(found == 0 || found == QAVEN_NO_TAG, "asked for or not");
}

// datalen 0: the data is a zero-terminated list.
void build(const Bytes& list, Bytes& data, int datalen) {
    const std::size_t sum = requested(list);
    if (sum > kLargestBlock) {
        return;
    }
    Bytes out(sum);
    int length = -1;
    const int result =
        qmcx_BuildDOL(data.data(), datalen, list.data(), int_size(list), out.data(), &length);
    demand(is_result(result), "a documented result");
    demand(length >= 0 && static_cast<std::size_t>(length) == sum, "each entry gives its length");
}

void build_in_engine(const Bytes& list, const Bytes& data) {
    for (const auto extent : {qaven::tlv::Extent::kBounded, qaven::tlv::Extent::kZeroTerminated}) {
        for (const std::size_t capacity : kCapacities) {
            Bytes out(capacity);
            const auto built = qaven::dol::build(data, list, out, extent);
            demand(is_result(built.result) && built.length <= capacity, "stays in its place");
        }
    }
}

// Primitive objects of short length and a zero behind the last, as the terminal data store is.
Bytes store_of(Input& input) {
    Bytes store;
    while (!input.empty()) {
        const std::uint8_t first = input.byte();
        if (first == 0x00 || first == 0xFF || (first & 0x20U) != 0) {
            continue;
        }
        store.push_back(first);
        if ((first & 0x1FU) == 0x1FU) {
            store.push_back(input.byte());
        }
        const auto value = input.take(input.below(128));
        store.push_back(static_cast<std::uint8_t>(value.size()));
        store.insert(store.end(), value.begin(), value.end());
    }
    store.push_back(0x00);
    store.shrink_to_fit();
    return store;
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const Bytes tag = Input::exact(input.take(input.below(5)));
    const Bytes list = Input::exact(input.long_chunk());
    look_up(tag, list);
    if (input.below(2) == 0) {
        Bytes store = store_of(input);
        build(list, store, 0);
        build_in_engine(list, store);
        return 0;
    }
    Bytes card_data = Input::exact(input.rest());
    if (!card_data.empty()) {
        build(list, card_data, int_size(card_data));
    }
    build_in_engine(list, card_data);
    return 0;
}
