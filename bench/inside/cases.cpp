// The cases and their data.
#include "cases.h"

#include "card.h"

#include "engine/data/dol.h"
#include "engine/data/terminal_data.h"
#include "engine/data/tlv.h"
#include "engine/data/transaction_data.h"
#include "support/hex.h"
#include "support/utils.h"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

namespace qaven::bench {

namespace {

using Bytes = qaven::WipedBytes;

void demand(bool holds, const char* what) {
    if (!holds) {
        std::fprintf(stderr, "bench: %s\n", what);
        std::exit(EXIT_FAILURE);
    }
}

// A record of 209 bytes: 19 elements in their template.
const Bytes& record() {
    static const Bytes bytes =
        hex::bytes("7081CE5F24032912315F25031901015F280201565F300202205F3401019F0702FF009F08020030"
                   "9F0D05D8608C88009F0E0500100000009F0F05D8689CF8009F420201569F4401029F4A0182"
                   "5A0A6214830123456789012F57136214830123456789012D29122201234567890F"
                   "8E0E0000000000000000420302031F00"
                   "8C1E9F02069F03069F1A0295055F2A029A039C019F37049F21039F4E14DF6901"
                   "8D1A8A029F02069F03069F1A0295055F2A029A039C019F37049F2103"
                   "5F20155A48414E472053414E2F435553544F4D4552202020");
    return bytes;
}

// An FCI of 95 bytes: its issuer's data stand three levels deep.
const Bytes& fci() {
    static const Bytes bytes =
        hex::bytes("6F5D8408A000000333010101A551500A50424F432044656269748701015F2D087A68656E667264"
                   "659F1101019F120A50424F432044656269749F380C9F66049F02069F37045F2A02BF0C149F4D02"
                   "0B0ADF4D020C0A9F0A0700010501020304");
    return bytes;
}

// Eleven entries, 53 bytes.
const Bytes& cdol1() {
    static const Bytes bytes =
        hex::bytes("9F02069F03069F1A0295055F2A029A039C019F37049F21039F4E14DF6901");
    return bytes;
}

constexpr const char* kTransaction = "P012000000001213Q012000000000000R0040156S00820190422T00203"
                                     "U006161355V020MRCH CNT 0001 HARBIN";

void find(const Bytes& data, std::initializer_list<unsigned char> tag, bool there) {
    auto* const bytes = const_cast<unsigned char*>(data.data()); // NOLINT: the signature hosts know
    const unsigned char* const found = qmcx_findtag(tag.begin(), static_cast<int>(tag.size()),
                                                    bytes, static_cast<int>(data.size()));
    demand((found != nullptr) == there, "a search went wrong");
}

std::array<unsigned char, 256> converted() {
    std::array<unsigned char, 256> out{};
    std::string text = kTransaction;
    const int size =
        Qm_ConvertTxData2BCD(out.data(), reinterpret_cast<unsigned char*>(text.data()));
    demand(size == 56, "the conversion went wrong");
    return out;
}

void build_store() {
    static const auto data = converted();
    std::array<unsigned char, 256> store{};
    demand(Qm_PackGpoData(store.data(), data.data()) == 104, "the store went wrong");
}

void build_list() {
    static auto store = terminal_data::pack(converted());
    std::array<unsigned char, 64> values{};
    int length = 0;
    const int result = qmcx_BuildDOL(store.data(), static_cast<int>(store.size()), cdol1().data(),
                                     static_cast<int>(cdol1().size()), values.data(), &length);
    demand(result == 0 && length == 53, "the list went wrong");
}

constexpr std::size_t kKilobyte = 1024;

void to_hex() {
    static Bytes bytes(kKilobyte, 0xA5);
    std::array<unsigned char, 2 * kKilobyte + 1> text{};
    Hex2Asc(text.data(), bytes.data(), kKilobyte);
    demand(text.front() == 'A', "hexadecimal text went wrong");
}

void from_hex() {
    static std::string text(2 * kKilobyte, 'A');
    std::array<unsigned char, kKilobyte> bytes{};
    var_asc2bcd(bytes.data(), reinterpret_cast<unsigned char*>(text.data()), 2 * kKilobyte);
    demand(bytes.front() == 0xAA, "hexadecimal text went wrong");
}

void answer_in_json() {
    static const QuickCard card(4, 1);
    demand(card_information() == 0, "the card information went wrong");
}

constexpr std::array kCases{
    Case{"tag-first",
         [] {
             find(record(), {0x5F, 0x24}, true);
         }},
    Case{"tag-middle",
         [] {
             find(record(), {0x9F, 0x0F}, true);
         }},
    Case{"tag-last",
         [] {
             find(record(), {0x5F, 0x20}, true);
         }},
    Case{"tag-absent",
         [] {
             find(record(), {0x9F, 0x1F}, false);
         }},
    Case{"fci-first", [] { find(fci(), {0x84}, true); }},
    Case{"fci-middle",
         [] {
             find(fci(), {0x9F, 0x11}, true);
         }},
    Case{"fci-last",
         [] {
             find(fci(), {0x9F, 0x0A}, true);
         }},
    Case{"fci-absent",
         [] {
             find(fci(), {0x9F, 0x1F}, false);
         }},
    Case{"list-of-11-entries", build_list},
    Case{"transaction-data", [] { static_cast<void>(converted()); }},
    Case{"terminal-store", build_store},
    Case{"1-kilobyte-to-hex", to_hex},
    Case{"1-kilobyte-from-hex", from_hex},
    Case{"card-information-in-json", answer_in_json},
};

} // namespace

std::span<const Case> cases() {
    return kCases;
}

} // namespace qaven::bench
