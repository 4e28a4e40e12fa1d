// How libFuzzer changes the inputs of the targets on a Wire: it knows the parts of such an input,
// so that a longer answer does not make nonsense of all that follow, and the shapes of a card's
// answer: data objects with their lengths, and a status word at the end.
#include "support/input.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <optional>
#include <random>
#include <vector>

// The names are the fuzzer's.
extern "C" std::size_t LLVMFuzzerMutate(std::uint8_t* data, std::size_t size, std::size_t max_size);
extern "C" std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size,
                                               std::size_t max_size, unsigned int seed);
extern "C" std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* first, std::size_t first_size,
                                                 const std::uint8_t* second,
                                                 std::size_t second_size, std::uint8_t* out,
                                                 std::size_t max_out_size, unsigned int seed);

namespace {

using qaven::fuzz::append_long_chunk;
using qaven::fuzz::Bytes;
using qaven::fuzz::Input;

struct Record {
    std::uint8_t kind = 0;
    Bytes data;
};

struct Parts {
    Bytes host;
    Bytes bus;
    std::vector<Record> records;
};

Parts parts_of(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Parts parts;
    parts.host = Input::exact(input.long_chunk());
    parts.bus = Input::exact(input.long_chunk());
    while (!input.empty()) {
        const std::uint8_t kind = input.byte();
        parts.records.push_back({kind, Input::exact(input.long_chunk())});
    }
    return parts;
}

std::size_t write_parts(const Parts& parts, std::uint8_t* data, std::size_t max_size) {
    Bytes whole;
    append_long_chunk(whole, parts.host);
    append_long_chunk(whole, parts.bus);
    for (const Record& record : parts.records) {
        whole.push_back(record.kind);
        append_long_chunk(whole, record.data);
    }
    const std::size_t size = std::min(whole.size(), max_size);
    std::copy_n(whole.begin(), size, data);
    return size;
}

// The length bytes that parsers trip over.
constexpr std::array<std::uint8_t, 10> kOddLengths{0x00, 0x01, 0x7F, 0x80, 0x81,
                                                   0x82, 0x83, 0x84, 0xFE, 0xFF};

constexpr std::array<std::uint16_t, 20> kStatusWords{
    0x9000, 0x6100, 0x61FF, 0x6110, 0x6200, 0x6283, 0x6300, 0x63C0, 0x6700, 0x6982,
    0x6985, 0x6A81, 0x6A82, 0x6A83, 0x6A88, 0x6C00, 0x6C10, 0x6D00, 0x0000, 0x9100};

constexpr std::size_t kGrowth = 48;
constexpr std::size_t kStatusSize = 2;

class Mutator {
  public:
    explicit Mutator(unsigned seed) : random_(seed) {}

    void mutate(Parts& parts) {
        const std::size_t choice = below(20);
        if (choice < 3) {
            freely(parts.host);
        } else if (choice < 5) {
            freely(parts.bus);
        } else if (choice < 9 || parts.records.empty()) {
            rearrange(parts.records);
        } else {
            change(parts.records[below(parts.records.size())]);
        }
    }

    // The records of one up to some place, those of the other from some place on.
    Parts cross(const Parts& first, const Parts& second) {
        Parts child;
        child.host = below(2) == 0 ? first.host : second.host;
        child.bus = below(2) == 0 ? first.bus : second.bus;
        const std::size_t left = below(first.records.size() + 1);
        const std::size_t right = std::min(below(2) == 0 ? left : below(second.records.size() + 1),
                                           second.records.size());
        child.records.assign(first.records.begin(),
                             first.records.begin() + static_cast<std::ptrdiff_t>(left));
        child.records.insert(child.records.end(),
                             second.records.begin() + static_cast<std::ptrdiff_t>(right),
                             second.records.end());
        return child;
    }

    std::size_t below(std::size_t limit) { return limit == 0 ? 0 : random_() % limit; }

  private:
    static void freely(Bytes& bytes) {
        const std::size_t size = bytes.size();
        bytes.resize(size + kGrowth);
        bytes.resize(LLVMFuzzerMutate(bytes.data(), size, bytes.size()));
    }

    void rearrange(std::vector<Record>& records) {
        if (records.empty()) {
            records.push_back({0, {0x90, 0x00}});
            return;
        }
        const std::size_t at = below(records.size());
        const std::size_t other = below(records.size());
        const auto place = records.begin() + static_cast<std::ptrdiff_t>(at);
        switch (below(6)) {
        case 0:
            records.erase(place);
            break;
        case 1: {
            const Record copy = records[other];
            records.insert(place, copy);
            break;
        }
        case 2:
            std::swap(records[at], records[other]);
            break;
        case 3:
            records[at].data = Bytes(records[other].data);
            break;
        case 4:
            place->kind = static_cast<std::uint8_t>(below(14));
            break;
        default:
            records.insert(place, {0, status_word()});
            break;
        }
    }

    Bytes status_word() {
        const std::uint16_t word = kStatusWords[below(kStatusWords.size())];
        return {static_cast<std::uint8_t>(word >> 8U), static_cast<std::uint8_t>(word)};
    }

    void change(Record& record) {
        Bytes& data = record.data;
        const bool has_status = data.size() >= kStatusSize;
        switch (has_status ? below(8) : 0) {
        case 0:
            freely(data);
            break;
        case 1:
            // Another status word.
            data.resize(data.size() - kStatusSize);
            for (const std::uint8_t byte : status_word()) {
                data.push_back(byte);
            }
            break;
        case 2:
        case 3: {
            // The data alone, whatever that does to the lengths around it.
            const Bytes status(data.end() - kStatusSize, data.end());
            data.resize(data.size() - kStatusSize);
            freely(data);
            data.insert(data.end(), status.begin(), status.end());
            break;
        }
        case 4:
            data.resize(below(data.size() + 1));
            break;
        default:
            change_object(data);
            break;
        }
    }

    // One data object in the nest: where its tag, length field and value stand.
    struct Object {
        std::size_t tag = 0;
        std::size_t length = 0;
        std::size_t value = 0;
        std::size_t end = 0;
        std::vector<std::size_t> parents;
    };

    static bool is_constructed(std::uint8_t tag) { return (tag & 0x20U) != 0; }

    static std::optional<Object> object_at(const Bytes& data, std::size_t at, std::size_t end) {
        Object object;
        object.tag = at;
        const bool long_tag = at < end && (data[at] & 0x1FU) == 0x1F;
        object.length = at + (long_tag ? 2 : 1);
        if (object.length >= end) {
            return std::nullopt;
        }
        const std::uint8_t first = data[object.length];
        std::size_t size = first;
        object.value = object.length + 1;
        if (first == 0x81 && object.value < end) {
            size = data[object.value];
            ++object.value;
        }
        if (size > end - object.value) {
            return std::nullopt;
        }
        object.end = object.value + size;
        return object;
    }

    static void collect(const Bytes& data, std::size_t begin, std::size_t end,
                        const std::vector<std::size_t>& parents, std::vector<Object>& found) {
        constexpr std::size_t kDeepest = 8;
        while (begin < end) {
            auto object = object_at(data, begin, end);
            if (!object) {
                return;
            }
            object->parents = parents;
            const Object copy = *object;
            found.push_back(copy);
            if (is_constructed(data[begin]) && parents.size() < kDeepest) {
                std::vector<std::size_t> inner = parents;
                inner.push_back(copy.length);
                collect(data, copy.value, copy.end, inner, found);
            }
            begin = copy.end;
        }
    }

    void change_object(Bytes& data) {
        std::vector<Object> objects;
        collect(data, 0, data.size() - kStatusSize, {}, objects);
        if (objects.empty()) {
            freely(data);
            return;
        }
        const Object& object = objects[below(objects.size())];
        const auto at = [&](std::size_t index) {
            return data.begin() + static_cast<std::ptrdiff_t>(index);
        };
        const Bytes whole(at(object.tag), at(object.end));
        const Bytes value(at(object.value), at(object.end));
        switch (below(5)) {
        case 0:
            data[object.length] = kOddLengths[below(kOddLengths.size())];
            break;
        case 1:
            replace(data, object, object.tag, {});
            break;
        case 2: {
            Bytes twice(whole);
            twice.insert(twice.end(), whole.begin(), whole.end());
            replace(data, object, object.tag, twice);
            break;
        }
        default: {
            // Another value, its own length field and those around it put right.
            Bytes changed(value);
            freely(changed);
            Bytes rebuilt(at(object.tag), at(object.length));
            if (changed.size() > 0x7F) {
                rebuilt.push_back(0x81);
            }
            rebuilt.push_back(static_cast<std::uint8_t>(changed.size()));
            rebuilt.insert(rebuilt.end(), changed.begin(), changed.end());
            replace(data, object, object.tag, rebuilt);
            break;
        }
        }
    }

    // Puts other bytes in an object's place and adds the difference to the lengths around it.
    static void replace(Bytes& data, const Object& object, std::size_t begin, const Bytes& by) {
        const std::size_t old_size = object.end - begin;
        for (const std::size_t parent : object.parents) {
            const std::size_t field = data[parent] == 0x81 ? parent + 1 : parent;
            data[field] = static_cast<std::uint8_t>(data[field] + by.size() - old_size);
        }
        const auto first = data.begin() + static_cast<std::ptrdiff_t>(begin);
        const auto last = data.begin() + static_cast<std::ptrdiff_t>(object.end);
        Bytes changed(data.begin(), first);
        changed.insert(changed.end(), by.begin(), by.end());
        changed.insert(changed.end(), last, data.end());
        data = std::move(changed);
    }

    std::minstd_rand random_;
};

} // namespace

std::size_t LLVMFuzzerCustomMutator(std::uint8_t* data, std::size_t size, std::size_t max_size,
                                    unsigned int seed) {
    Mutator mutator(seed);
    // Now and then without any regard for the parts.
    if (mutator.below(16) == 0) {
        return LLVMFuzzerMutate(data, size, max_size);
    }
    Parts parts = parts_of(data, size);
    const std::size_t changes = 1 + mutator.below(3);
    for (std::size_t k = 0; k < changes; ++k) {
        mutator.mutate(parts);
    }
    return write_parts(parts, data, max_size);
}

std::size_t LLVMFuzzerCustomCrossOver(const std::uint8_t* first, std::size_t first_size,
                                      const std::uint8_t* second, std::size_t second_size,
                                      std::uint8_t* out, std::size_t max_out_size,
                                      unsigned int seed) {
    Mutator mutator(seed);
    return write_parts(mutator.cross(parts_of(first, first_size), parts_of(second, second_size)),
                       out, max_out_size);
}
