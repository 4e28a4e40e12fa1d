// Values whose bits have meanings of their own.
#include "tools/qaven/decode/bits.h"

#include <algorithm>
#include <array>
#include <bit>

namespace qaven::cli {

using namespace emv;

namespace {

constexpr Bits flag(std::size_t byte, int bit, std::string_view words) {
    const auto mask = static_cast<unsigned char>(1U << static_cast<unsigned>(bit - 1));
    return {byte, mask, mask, words};
}

constexpr std::array kAip{
    flag(1, 7, "static data authentication (SDA) is supported"),
    flag(1, 6, "dynamic data authentication (DDA) is supported"),
    flag(1, 5, "cardholder verification is supported"),
    flag(1, 4, "terminal risk management is to be performed"),
    flag(1, 3, "issuer authentication by EXTERNAL AUTHENTICATE is supported"),
    flag(1, 2, "cardholder verification on the device is supported"),
    flag(1, 1, "combined data authentication (CDA) is supported"),
    flag(2, 8, "contactless: EMV mode is supported (Visa and PBOC: magnetic-stripe mode)"),
};

constexpr std::array kTvr{
    flag(1, 8, "offline data authentication was not performed"),
    flag(1, 7, "static data authentication failed"),
    flag(1, 6, "card data are missing"),
    flag(1, 5, "the card is on the terminal's exception list"),
    flag(1, 4, "dynamic data authentication failed"),
    flag(1, 3, "combined data authentication failed"),
    flag(1, 2, "static data authentication was selected"),
    flag(2, 8, "card and terminal have different application versions"),
    flag(2, 7, "the application has expired"),
    flag(2, 6, "the application is not effective yet"),
    flag(2, 5, "the requested service is not allowed for the card product"),
    flag(2, 4, "new card"),
    flag(3, 8, "cardholder verification was not successful"),
    flag(3, 7, "a cardholder verification method is not recognised"),
    flag(3, 6, "PIN try limit exceeded"),
    flag(3, 5, "PIN entry required, but the PIN pad is absent or does not work"),
    flag(3, 4, "PIN entry required, PIN pad present, but no PIN was entered"),
    flag(3, 3, "PIN was entered for online verification"),
    flag(4, 8, "the amount exceeds the floor limit"),
    flag(4, 7, "lower consecutive offline limit exceeded"),
    flag(4, 6, "upper consecutive offline limit exceeded"),
    flag(4, 5, "selected at random for online processing"),
    flag(4, 4, "the merchant forced the transaction online"),
    flag(5, 8, "the default TDOL was used"),
    flag(5, 7, "issuer authentication failed"),
    flag(5, 6, "script processing failed before the final GENERATE AC"),
    flag(5, 5, "script processing failed after the final GENERATE AC"),
};

constexpr std::array kTsi{
    flag(1, 8, "offline data authentication was performed"),
    flag(1, 7, "cardholder verification was performed"),
    flag(1, 6, "card risk management was performed"),
    flag(1, 5, "issuer authentication was performed"),
    flag(1, 4, "terminal risk management was performed"),
    flag(1, 3, "script processing was performed"),
};

constexpr std::array kAuc{
    flag(1, 8, "valid for domestic cash"),
    flag(1, 7, "valid for international cash"),
    flag(1, 6, "valid for domestic goods"),
    flag(1, 5, "valid for international goods"),
    flag(1, 4, "valid for domestic services"),
    flag(1, 3, "valid for international services"),
    flag(1, 2, "valid at cash machines"),
    flag(1, 1, "valid at terminals other than cash machines"),
    flag(2, 8, "domestic cashback is allowed"),
    flag(2, 7, "international cashback is allowed"),
};

constexpr std::array kTerminalCapabilities{
    flag(1, 8, "manual key entry"),
    flag(1, 7, "magnetic stripe"),
    flag(1, 6, "IC card with contacts"),
    flag(2, 8, "plaintext PIN, verified by the card"),
    flag(2, 7, "enciphered PIN, verified online"),
    flag(2, 6, "signature on paper"),
    flag(2, 5, "enciphered PIN, verified by the card"),
    flag(2, 4, "no cardholder verification required"),
    flag(2, 1, "cardholder's identity document"),
    flag(3, 8, "static data authentication (SDA)"),
    flag(3, 7, "dynamic data authentication (DDA)"),
    flag(3, 6, "card capture"),
    flag(3, 4, "combined data authentication (CDA)"),
};

constexpr std::array kAdditionalTerminalCapabilities{
    flag(1, 8, "cash"),
    flag(1, 7, "goods"),
    flag(1, 6, "services"),
    flag(1, 5, "cashback"),
    flag(1, 4, "inquiry"),
    flag(1, 3, "transfer"),
    flag(1, 2, "payment"),
    flag(1, 1, "administrative"),
    flag(2, 8, "cash deposit"),
    flag(3, 8, "numeric keys"),
    flag(3, 7, "alphabetic and special keys"),
    flag(3, 6, "command keys"),
    flag(3, 5, "function keys"),
    flag(4, 8, "print for the attendant"),
    flag(4, 7, "print for the cardholder"),
    flag(4, 6, "display for the attendant"),
    flag(4, 5, "display for the cardholder"),
    flag(4, 2, "code table 10"),
    flag(4, 1, "code table 9"),
    flag(5, 8, "code table 8"),
    flag(5, 7, "code table 7"),
    flag(5, 6, "code table 6"),
    flag(5, 5, "code table 5"),
    flag(5, 4, "code table 4"),
    flag(5, 3, "code table 3"),
    flag(5, 2, "code table 2"),
    flag(5, 1, "code table 1"),
};

constexpr std::array kTtq{
    flag(1, 8, "contactless magnetic-stripe mode is supported"),
    flag(1, 7, "contactless full debit/credit is supported"),
    flag(1, 6, "contactless quick debit/credit is supported"),
    flag(1, 5, "contact debit/credit is supported"),
    flag(1, 4, "the terminal is offline only"),
    flag(1, 3, "online PIN is supported"),
    flag(1, 2, "signature is supported"),
    flag(2, 8, "an online cryptogram is required"),
    flag(2, 7, "cardholder verification is required"),
    flag(4, 8, "fDDA version 01 is supported"),
};

// Two bits and more that are one field have a line for each value.
constexpr std::array kCid{
    Bits{1, 0xC0, 0x00, "AAC: the card declines"},
    Bits{1, 0xC0, 0x40, "TC: the card approves"},
    Bits{1, 0xC0, 0x80, "ARQC: the card asks for an online authorisation"},
    Bits{1, 0xC0, 0xC0, "reserved cryptogram type (earlier: AAR, referral)"},
    flag(1, 4, "an advice message is required"),
    Bits{1, 0x07, 0x01, "reason: service not allowed"},
    Bits{1, 0x07, 0x02, "reason: PIN try limit exceeded"},
    Bits{1, 0x07, 0x03, "reason: issuer authentication failed"},
    Bits{1, 0x07, 0x04, "reason: reserved value 4"},
    Bits{1, 0x07, 0x05, "reason: reserved value 5"},
    Bits{1, 0x07, 0x06, "reason: reserved value 6"},
    Bits{1, 0x07, 0x07, "reason: reserved value 7"},
};

// Byte 1 is the length of the others.
constexpr std::array kCvr{
    Bits{2, 0xC0, 0x00, "second GENERATE AC: AAC"},
    Bits{2, 0xC0, 0x40, "second GENERATE AC: TC"},
    Bits{2, 0xC0, 0x80, "second GENERATE AC: not requested"},
    Bits{2, 0xC0, 0xC0, "second GENERATE AC: reserved value"},
    Bits{2, 0x30, 0x00, "first GENERATE AC: AAC"},
    Bits{2, 0x30, 0x10, "first GENERATE AC: TC"},
    Bits{2, 0x30, 0x20, "first GENERATE AC: ARQC"},
    Bits{2, 0x30, 0x30, "first GENERATE AC: reserved value"},
    flag(2, 4, "issuer authentication was performed and failed"),
    flag(2, 3, "offline PIN verification was performed"),
    flag(2, 2, "offline PIN verification failed"),
    flag(2, 1, "the terminal could not go online"),
    flag(3, 8, "the last online transaction was not completed"),
    flag(3, 7, "PIN try limit exceeded"),
    flag(3, 6, "a limit of the card on frequent use was exceeded"),
    flag(3, 5, "new card"),
    flag(3, 4, "issuer authentication failed in the last online transaction"),
    flag(3, 3, "issuer authentication was not performed after the last online authorisation"),
    flag(3, 2, "the card has blocked the application, PIN tries being used up"),
    flag(3, 1, "static data authentication failed in the last transaction, which was declined"),
    flag(4, 4, "issuer script processing failed"),
    flag(4, 3, "dynamic data authentication failed in the last transaction, which was declined"),
    flag(4, 2, "dynamic data authentication was performed"),
};

constexpr std::size_t kScriptCountByte = 4;
constexpr unsigned char kScriptCountMask = 0xF0;

// The bits of one byte that some line of the table is about.
unsigned char known_bits(std::span<const Bits> table, std::size_t byte) {
    unsigned char known = 0;
    for (const Bits& bits : table) {
        if (bits.byte == byte) {
            known = static_cast<unsigned char>(known | bits.mask);
        }
    }
    return known;
}

void explain_byte(std::span<const Bits> table, std::size_t byte, unsigned char value,
                  Outline& out) {
    const auto strange = static_cast<unsigned char>(value & ~known_bits(table, byte));
    for (unsigned mask = 0x80; mask != 0; mask >>= 1U) {
        for (const Bits& bits : table) {
            if (bits.byte == byte && std::bit_floor(bits.mask) == mask &&
                (value & bits.mask) == bits.value) {
                out.line(bits_place(byte, bits.mask) + ": " + std::string(bits.words));
            }
        }
        if ((strange & mask) != 0) {
            out.line(bits_place(byte, static_cast<unsigned char>(mask)) + ": reserved, but set");
        }
    }
}

struct Named {
    unsigned char value;
    std::string_view name;
};

constexpr std::array kAlgorithms{
    Named{0x01, "3DES"},
    Named{0x02, "AES"},
    Named{0x04, "SM4"},
};

std::string algorithm_name(unsigned char value) {
    const auto* const found = std::ranges::find(kAlgorithms, value, &Named::value);
    return found != kAlgorithms.end() ? std::string(found->name) : "unknown";
}

// Of issuer application data: key index, version and card verification results, and their length.
constexpr std::size_t kFixed = 7;

} // namespace

std::string bits_place(std::size_t byte, unsigned char mask) {
    const int highest = 8 - std::countl_zero(mask);
    const int lowest = std::countr_zero(mask) + 1;
    const std::string place = "byte " + std::to_string(byte) + " bit";
    return highest == lowest
               ? place + " " + std::to_string(highest)
               : place + "s " + std::to_string(highest) + "-" + std::to_string(lowest);
}

void explain_bits(std::span<const Bits> table, Bytes value, Outline& out) {
    bool says_something = false;
    for (std::size_t at = 0; at < value.size(); ++at) {
        says_something = says_something || value[at] != 0;
        explain_byte(table, at + 1, value[at], out);
    }
    if (!says_something &&
        std::ranges::none_of(table, [](const Bits& b) { return b.value == 0; })) {
        out.line("no bit is set");
    }
}

void explain_aip(Bytes value, Outline& out) {
    explain_bits(kAip, value, out);
}

void explain_tvr(Bytes value, Outline& out) {
    explain_bits(kTvr, value, out);
}

void explain_tsi(Bytes value, Outline& out) {
    explain_bits(kTsi, value, out);
}

void explain_auc(Bytes value, Outline& out) {
    explain_bits(kAuc, value, out);
}

void explain_terminal_capabilities(Bytes value, Outline& out) {
    explain_bits(kTerminalCapabilities, value, out);
}

void explain_additional_terminal_capabilities(Bytes value, Outline& out) {
    explain_bits(kAdditionalTerminalCapabilities, value, out);
}

void explain_ttq(Bytes value, Outline& out) {
    explain_bits(kTtq, value, out);
}

void explain_cid(Bytes value, Outline& out) {
    explain_bits(kCid, value, out);
}

void explain_cvr(Bytes value, Outline& out) {
    if (value.size() == 3) {
        std::array<unsigned char, 4> whole{3, value[0], value[1], value[2]};
        explain_cvr(whole, out);
        return;
    }
    if (value.size() != 4 || value[0] != 3) {
        out.problem("card verification results have 3 bytes, or 03 and 3 bytes");
    }
    for (std::size_t at = 1; at < std::min(value.size(), std::size_t{4}); ++at) {
        const auto byte = at + 1;
        const auto bits = at + 1 == kScriptCountByte
                              ? static_cast<unsigned char>(value[at] & ~kScriptCountMask)
                              : value[at];
        if (byte == kScriptCountByte && (value[at] & kScriptCountMask) != 0) {
            out.line(bits_place(byte, kScriptCountMask) +
                     ": issuer script commands received: " + std::to_string(value[at] >> 4U));
        }
        explain_byte(kCvr, byte, bits, out);
    }
}

bool is_pboc_iad(Bytes value) {
    return value.size() > kFixed && value[0] >= kFixed && value.size() > value[0] && value[3] == 3;
}

void explain_iad(Bytes value, Outline& out) {
    if (!is_pboc_iad(value)) {
        out.line("not in the form of a PBOC card");
        return;
    }
    out.line("derivation key index: " + std::to_string(value[1]));
    out.line("cryptogram version: " + std::to_string(value[2]));
    out.line("card verification results (CVR): " + hex(value.subspan(3, 4)));
    {
        const auto nest = out.nest();
        explain_cvr(value.subspan(3, 4), out);
    }
    out.line("algorithm: " + hex(value[7], 2) + " " + algorithm_name(value[7]));
    const Bytes rest = value.subspan(kFixed + 1);
    if (!rest.empty()) {
        out.told("issuer discretionary data: " + hex(rest));
    }
}

} // namespace qaven::cli
