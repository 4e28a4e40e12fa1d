// Feeds a host's transaction data string to everything that walks, completes, normalises and
// converts it, and to the terminal data store; and texts and bytes of any shape to the conversions.
// Input: which of the two, a number, text or bytes.
#include "engine/data/transaction_data.h"

#include "engine/data/terminal_data.h"
#include "engine/operation/card_info.h"
#include "support/demand.h"
#include "support/guarded.h"
#include "support/input.h"
#include "support/utils.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <list>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace transaction_data = qaven::transaction_data;
using qaven::fuzz::Bytes;
using qaven::fuzz::demand;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;

// A zero-terminated text as the exported functions take it, in a block of its size.
class Text {
  public:
    explicit Text(std::span<const std::uint8_t> piece) : characters_(Input::text(piece)) {}

    char* get() { return characters_.data(); }
    unsigned char* bytes() { return reinterpret_cast<unsigned char*>(get()); }
    [[nodiscard]] std::size_t size() const { return characters_.size() - 1; }

  private:
    std::vector<char> characters_;
};

template <std::size_t size>
void zero(Guarded<unsigned char, size>& buffer) {
    std::memset(buffer.data(), 0, size);
}

void scan(Text& text, int number) {
    // The scanners know the end by a count alone.
    const Bytes exact = Input::exact({text.bytes(), text.size()});
    const char* const start = reinterpret_cast<const char*>(exact.data());
    const int size = static_cast<int>(exact.size());
    for (const char letter : {'P', 'S', 'V', 'Z', '\0'}) {
        int length = 0;
        const char* const record = getTag(start, size, letter, &length);
        if (record != nullptr) {
            demand(record >= start && record + 4 + length <= start + size, "a record in the text");
            demand(*record == letter && length >= 0 && length <= 999, "the letter asked for");
        }
        getTag(start, size, letter, nullptr);
    }
    const int digits = std::min(number % 32, size);
    getLen(start, digits);
}

void complete(Text& text) {
    for (const auto completion : {GetTransData, ARPCGetTransData}) {
        Guarded<unsigned char, 92> out;
        zero(out);
        demand(completion(text.bytes(), out) == 0, "always 0");
        const auto* const written = reinterpret_cast<const char*>(out.data());
        demand(std::memcmp(written, "P012000000000000Q012000000000000R0040156S006", 44) == 0 &&
                   std::memcmp(written + 50, "T00233U006", 10) == 0 &&
                   std::memcmp(written + 66, "V020", 4) == 0,
               "seven records in 90 characters");
    }
}

void normalise(Text& text) {
    Guarded<char, 2200> out;
    parseTxData(text.get(), out);
    out.must_be_text();
}

// The store out of a converted list. What a list says about its lengths need not be true (the
// length byte of a long merchant name is the low one), so there are zeros as far as any of them
// reaches.
void pack(const Bytes& converted) {
    constexpr std::size_t kAnyReach = 65'535 + 4;
    static Bytes list;
    list.resize(std::max(list.size(), converted.size() + kAnyReach));
    std::ranges::copy(converted, list.begin());
    // As many bytes as the longest merchant name takes.
    Guarded<unsigned char, qaven::terminal_data::kStoreSize + 108> store;
    demand(Qm_PackGpoData(store, list.data()) == static_cast<int>(qaven::terminal_data::kStoreSize),
           "a store has one size");
    std::fill_n(list.begin(), converted.size(), std::uint8_t{0});
    // Inside the engine the list ends where its buffer does.
    const auto packed = qaven::terminal_data::pack(converted);
    demand(packed.back() == 0 && packed.front() == 0x9F, "a terminated store");
}

void convert(Text& text) {
    for (const auto conversion : {Qm_ConvertTxData2BCD, oldQm_ConvertTxData2BCD}) {
        Bytes out(text.size());
        const int written = conversion(out.data(), text.bytes());
        demand(written >= 0 && static_cast<std::size_t>(written) <= out.size(),
               "never longer than the text");
        out.resize(static_cast<std::size_t>(written));
        pack(Input::exact(out));
    }
    for (const std::size_t capacity : {std::size_t{0}, std::size_t{20}, std::size_t{1024}}) {
        Bytes out(capacity);
        demand(transaction_data::convert({text.get(), text.size()}, out) <= capacity,
               "stops before the end of its place");
    }
}

void pack_characters(Text& text, int number) {
    const auto size = static_cast<int>(text.size());
    Bytes packed((text.size() + 1) / 2 + 1);
    Qm_AscToBcd(packed.data(), text.bytes(), size, static_cast<unsigned>(number % 2));

    Bytes even = Input::exact({text.bytes(), text.size()});
    even.resize(even.size() + even.size() % 2);
    even.shrink_to_fit();
    Bytes pairs(even.size() / 2);
    Qm_AsciiToHex(even.data(), pairs.data(), size);
    var_packTwo2One_30(pairs.data(), even.data(), size);
    var_asc2bcd(pairs.data(), even.data(), static_cast<unsigned>(even.size()));
    if (!pairs.empty()) {
        demand(asc2bcd(even.data()) == pairs[0], "one pair is read like many");
    }

    Bytes terminated(text.size() / 2 + 1);
    int length = -1;
    Qm_halftochar(text.get(), reinterpret_cast<char*>(terminated.data()), &length);
    demand(length == (size % 2 != 0 ? 0 : size / 2), "an odd text packs to nothing");
}

void unpack_bytes(const Bytes& bytes) {
    Bytes in = bytes;
    Bytes characters(2 * in.size());
    var_bcd2asc(characters.data(), in.data(), static_cast<unsigned>(in.size()));
    Bytes text(2 * in.size() + 1);
    Hex2Asc(text.data(), in.data(), static_cast<long>(in.size()));
    demand(std::equal(characters.begin(), characters.end(), text.begin()) && text.back() == 0,
           "the same digits, terminated");
    Bytes back(in.size());
    var_asc2bcd(back.data(), characters.data(), static_cast<unsigned>(characters.size()));
    demand(back == bytes, "what is unpacked packs to itself");
    CalLRC(in.data(), static_cast<int>(in.size()));
    for (const unsigned char byte : in) {
        Guarded<unsigned char, 2> pair;
        bcd2asc(pair, byte);
        unpackOne2Two_30(pair, byte);
        Guarded<char, 3> half;
        Qm_chartohalf(byte, half);
        half.must_be_text();
    }
    if (in.size() >= 4) {
        Guarded<unsigned char, 4> number;
        Int2ReverseHex(number, ReverseHex2Int(in.data()));
        demand(std::equal(in.begin(), in.begin() + 4, number.data()), "32 bits and back");
    }
}

void trim(Text& text) {
    Bytes out(text.size() + 1);
    const int kept = TrimStr(out.data(), text.bytes());
    demand(kept >= 0 && static_cast<std::size_t>(kept) <= text.size(), "trimming takes away");
    Text both({text.bytes(), text.size()});
    Trim(both.bytes());
    demand(std::strlen(both.get()) <= text.size(), "trimming takes away");
}

void split(Text& text, int number) {
    std::list<std::string> fields;
    const int count = Split(text.get(), fields, number == 0 ? '|' : static_cast<char>(number));
    demand(count >= 1 && fields.size() == static_cast<std::size_t>(count), "one field at least");
}

void name_tags(Text& text) {
    Bytes tags(2 * text.size());
    const int size = Qm_ConvertFlag(text.get(), static_cast<int>(text.size()), tags.data());
    demand(size >= 0 && static_cast<std::size_t>(size) <= tags.size(), "two bytes for a letter");
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    const unsigned way = input.below(2);
    const int number = input.byte();
    const Bytes rest = Input::exact(input.rest());
    Text text(rest);
    if (way == 0) {
        scan(text, number);
        complete(text);
        normalise(text);
        convert(text);
        pack(rest);
        return 0;
    }
    pack_characters(text, number);
    unpack_bytes(rest);
    trim(text);
    split(text, number);
    name_tags(text);
    return 0;
}
