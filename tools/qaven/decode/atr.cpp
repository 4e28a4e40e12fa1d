// The answer to reset.
#include "tools/qaven/decode/atr.h"

#include "tools/emv/code_words.h"
#include "tools/emv/gbk.h"
#include "tools/emv/status_words.h"
#include "tools/emv/values.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <numeric>

namespace qaven::cli {

using namespace emv;

namespace {

constexpr unsigned char kDirect = 0x3B;
constexpr unsigned char kInverse = 0x3F;

constexpr std::array<int, 16> kClockRates{372, 372, 558, 744,  1116, 1488, 1860, 0,
                                          0,   512, 768, 1024, 1536, 2048, 0,    0};
constexpr std::array<int, 16> kBaudRates{0, 1, 2, 4, 8, 16, 32, 64, 12, 20, 0, 0, 0, 0, 0, 0};

// One group of interface bytes: TAi to TDi, as far as they are there.
struct Group {
    std::array<std::optional<unsigned char>, 4> bytes;
};

struct Atr {
    std::vector<Group> groups;
    std::size_t historical_at = 0;
    std::size_t historical_size = 0;
    bool has_check_byte = false;
    // Where the bytes ended too early.
    std::optional<std::size_t> cut_at;

    std::size_t size() const { return historical_at + historical_size + (has_check_byte ? 1 : 0); }
};

// A card has no more groups than this; each is announced by the one before it.
constexpr std::size_t kMostGroups = 8;

Atr parse(Bytes atr) {
    Atr result;
    if (atr.size() < 2) {
        result.cut_at = atr.size();
        return result;
    }
    result.historical_size = atr[1] & 0x0FU;
    unsigned announced = atr[1] >> 4U;
    std::size_t at = 2;
    while (announced != 0 && result.groups.size() < kMostGroups && !result.cut_at) {
        Group group;
        for (unsigned k = 0; k < 4; ++k) {
            if ((announced >> k & 1U) == 0) {
                continue;
            }
            if (at >= atr.size()) {
                result.cut_at = at;
                break;
            }
            group.bytes.at(k) = atr[at++];
        }
        announced = group.bytes[3] ? *group.bytes[3] >> 4U : 0;
        result.has_check_byte =
            result.has_check_byte || (group.bytes[3] && (*group.bytes[3] & 0x0FU) != 0);
        result.groups.push_back(group);
    }
    result.historical_at = at;
    if (!result.cut_at && result.size() > atr.size()) {
        result.cut_at = atr.size();
    }
    return result;
}

// The default clock of readers.
constexpr std::int64_t kClock = 3'570'000;

// What one etu lasts: clock / baud cycles.
struct Rates {
    std::int64_t clock = kClockRates[0];
    std::int64_t baud = 1;
};

Rates rates_of(const Atr& atr) {
    if (atr.groups.empty() || !atr.groups[0].bytes[0]) {
        return {};
    }
    const Rates rates{kClockRates.at(*atr.groups[0].bytes[0] >> 4U),
                      kBaudRates.at(*atr.groups[0].bytes[0] & 0x0FU)};
    return rates.clock == 0 || rates.baud == 0 ? Rates() : rates;
}

std::string milliseconds(std::int64_t cycles, std::int64_t baud = 1) {
    const std::int64_t hundredths = (cycles * 100'000 / baud + kClock / 2) / kClock;
    return std::to_string(hundredths / 100) + '.' + std::to_string(hundredths / 10 % 10) +
           std::to_string(hundredths % 10) + " ms";
}

std::string etu_text(std::int64_t count, const Rates& rates) {
    return std::to_string(count) + " etu, " + milliseconds(count * rates.clock, rates.baud);
}

std::string rates_text(unsigned char ta1) {
    const int clock = kClockRates.at(ta1 >> 4U);
    const int baud = kBaudRates.at(ta1 & 0x0FU);
    if (clock == 0 || baud == 0) {
        return "reserved rates";
    }
    return "clock rate " + std::to_string(clock) + ", baud rate " + std::to_string(baud) + ": " +
           std::to_string(clock / baud) + " clock cycles a bit";
}

// Between the beginnings of two characters to the card (ISO/IEC 7816-3, 8.3).
std::string guard_text(unsigned char tc1, unsigned protocol, const Rates& rates) {
    constexpr int kUsual = 12;
    if (tc1 == 0xFF) {
        return "shortest guard time: " + etu_text(protocol == 1 ? kUsual - 1 : kUsual, rates);
    }
    return "extra guard time " + std::to_string(tc1) + ": " + etu_text(kUsual + tc1, rates);
}

// ISO/IEC 7816-3, 10.2.
std::string work_waiting_text(unsigned char tc2, const Rates& rates) {
    const std::string head = "waiting time (T=0) " + std::to_string(tc2);
    return tc2 == 0 ? head + ": reserved"
                    : head + ": " + etu_text(std::int64_t{960} * tc2 * rates.baud, rates);
}

// ISO/IEC 7816-3, 11.4.3.
std::string block_waiting_text(unsigned char tb3, const Rates& rates) {
    constexpr unsigned kLongest = 9;
    const unsigned block = tb3 >> 4U;
    const unsigned character = tb3 & 0x0FU;
    return "block waiting time " + std::to_string(block) + ": " +
           (block > kLongest
                ? "reserved"
                : milliseconds(11 * rates.clock + rates.baud * (std::int64_t{960} * 372 << block),
                               rates.baud)) +
           "; character waiting time " + std::to_string(character) + ": " +
           etu_text(11 + (std::int64_t{1} << character), rates);
}

std::string specific_text(unsigned char ta2) {
    return "protocol T=" + std::to_string(ta2 & 0x0FU) + " and no other" +
           ((ta2 & 0x10U) != 0 ? ", rates not those of TA1" : "");
}

std::string block_protocol_text(std::size_t which, unsigned char byte, const Rates& rates) {
    if (which == 0) {
        return "longest block to the card: " + std::to_string(byte);
    }
    if (which == 1) {
        return block_waiting_text(byte, rates);
    }
    return std::string((byte & 1U) != 0 ? "CRC" : "LRC") + " as error detection";
}

// number: of the group, from 1; protocol: of the group before it, for the first one its own.
std::string interface_text(std::size_t number, std::size_t which, unsigned char byte,
                           unsigned protocol, const Rates& rates) {
    if (which == 3) {
        return "protocol T=" + std::to_string(byte & 0x0FU);
    }
    if (number == 1) {
        return which == 0   ? rates_text(byte)
               : which == 1 ? (byte == 0 ? "VPP not connected" : "programming voltage (VPP)")
                            : guard_text(byte, protocol, rates);
    }
    if (number == 2) {
        return which == 0   ? specific_text(byte)
               : which == 1 ? "programming voltage (VPP)"
                            : work_waiting_text(byte, rates);
    }
    if (protocol == 1) {
        return block_protocol_text(which, byte, rates);
    }
    if (protocol == 15) {
        return which == 0 ? "clock stop and supply voltages" : "standard or proprietary use";
    }
    return "of protocol T=" + std::to_string(protocol);
}

void explain_groups(const Atr& atr, Outline& out) {
    const Rates rates = rates_of(atr);
    unsigned protocol = 0;
    for (std::size_t k = 0; k < atr.groups.size(); ++k) {
        const Group& group = atr.groups[k];
        const unsigned own = group.bytes[3] ? *group.bytes[3] & 0x0FU : protocol;
        for (std::size_t which = 0; which < group.bytes.size(); ++which) {
            if (const auto byte = group.bytes.at(which)) {
                out.line(std::string("T") + "ABCD"[which] + std::to_string(k + 1) + ' ' +
                         hex(*byte, 2) + ": " +
                         interface_text(k + 1, which, *byte, k == 0 ? own : protocol, rates));
            }
        }
        protocol = own;
    }
    if (atr.groups.empty() || !atr.groups[0].bytes[3]) {
        out.line("no TD1: protocol T=0");
    }
}

// ISO/IEC 7816-4, 7.4.10.
std::string life_cycle_text(unsigned char status) {
    const std::string_view words = status == 0                   ? "not given"
                                   : status == 1                 ? "creation"
                                   : status == 3                 ? "initialisation"
                                   : status == 4 || status == 6  ? "deactivated"
                                   : status == 5 || status == 7  ? "activated"
                                   : status >= 12 && status < 16 ? "terminated"
                                                                 : "proprietary or reserved";
    return "life cycle " + hex(status, 2) + " (" + std::string(words) + ')';
}

std::string card_status_text(Bytes value) {
    std::string text = "status indicator: ";
    if (value.size() % 2 == 1) {
        text += life_cycle_text(value[0]);
        value = value.subspan(1);
    }
    if (value.size() == 2) {
        const unsigned status = value[0] * 256U + value[1];
        text += (text.ends_with(' ') ? "" : ", ") + hex(status, 4) + " (" +
                (status == 0 ? "not given" : status_text(status)) + ')';
    }
    return text;
}

std::string historical_object_text(unsigned tag, Bytes value, Privacy& privacy) {
    constexpr std::array<std::string_view, 9> kNames{
        "reserved",          "country code",        "issuer identification number",
        "card service data", "initial access data", "card issuer's data",
        "pre-issuing data",  "card capabilities",   "status indicator"};
    constexpr unsigned kCountry = 1;
    constexpr unsigned kStatus = 8;
    if (tag == kStatus && !value.empty() && value.size() <= 3) {
        return card_status_text(value);
    }
    std::string text = std::string(tag < kNames.size() ? kNames.at(tag) : "unknown object") + ": ";
    const std::string digits = hex(value);
    if (value.empty()) {
        return text + "empty";
    }
    return text + (tag == kCountry && digits.size() == 4
                       ? country_text(std::string_view(digits).substr(0, 3))
                       : value_text(Form::kBytes, value, "", privacy));
}

// COMPACT-TLV. start: in the answer.
void explain_historical_objects(Bytes data, std::size_t start, Outline& out) {
    for (std::size_t at = 0; at < data.size();) {
        const unsigned head = data[at];
        const std::size_t size = head & 0x0FU;
        if (size > data.size() - at - 1) {
            out.problem("at byte " + std::to_string(start + at) + ": object " + hex(head, 2) +
                        " is longer than the historical bytes");
            return;
        }
        out.line(hex(head, 2) + ' ' +
                 historical_object_text(head >> 4U, data.subspan(at + 1, size), out.privacy()));
        at += 1 + size;
    }
}

// start: in the answer (ISO/IEC 7816-4, 8.1.1).
void explain_historical(Bytes historical, std::size_t start, Outline& out) {
    constexpr unsigned kStatusBehind = 0x00;
    constexpr unsigned kDirectory = 0x10;
    constexpr unsigned kObjects = 0x80;
    constexpr std::size_t kStatus = 3;
    const unsigned category = historical[0];
    const bool has_objects = category == kObjects || category == kStatusBehind;
    if (!has_objects && category != kDirectory) {
        out.line("historical bytes " + hex(historical) + ' ' +
                 in_quotes(characters_of(historical)));
        return;
    }
    out.told("historical bytes " + hex(historical));
    const auto nest = out.nest();
    Bytes objects = historical.subspan(1);
    if (category == kDirectory) {
        out.line("category 10: DIR data reference " + hex(objects));
        return;
    }
    out.line("category " + hex(category, 2) + ": COMPACT-TLV objects" +
             (category == kStatusBehind ? ", status indicator behind them" : ""));
    if (category == kStatusBehind && objects.size() < kStatus) {
        out.problem("at byte " + std::to_string(start + historical.size()) +
                    ": the status indicator has 3 bytes");
        return;
    }
    const Bytes status = category == kStatusBehind ? objects.last(kStatus) : Bytes();
    explain_historical_objects(objects.first(objects.size() - status.size()), start + 1, out);
    if (!status.empty()) {
        out.line(card_status_text(status));
    }
}

} // namespace

bool is_atr(Bytes atr) {
    if (atr.size() < 2 || (atr[0] != kDirect && atr[0] != kInverse)) {
        return false;
    }
    const Atr parsed = parse(atr);
    return !parsed.cut_at && parsed.size() == atr.size();
}

void explain_atr(Bytes atr, Outline& out) {
    if (atr.empty()) {
        out.problem("an answer to reset has 2 bytes at least");
        return;
    }
    if (atr[0] != kDirect && atr[0] != kInverse) {
        out.problem("at byte 0: an answer to reset begins with 3B or 3F, not with " +
                    hex(atr[0], 2));
        return;
    }
    out.line("TS " + hex(atr[0], 2) + ": " + (atr[0] == kDirect ? "direct" : "inverse") +
             " convention");
    const Atr parsed = parse(atr);
    if (atr.size() > 1) {
        out.line("T0 " + hex(atr[1], 2) + ": " + std::to_string(parsed.historical_size) +
                 " historical bytes");
        explain_groups(parsed, out);
    }
    const Bytes behind = atr.subspan(std::min(parsed.historical_at, atr.size()));
    const Bytes historical = behind.first(std::min(parsed.historical_size, behind.size()));
    if (!historical.empty() && parsed.historical_at != 0) {
        if (historical.size() == parsed.historical_size) {
            explain_historical(historical, parsed.historical_at, out);
        } else {
            out.line("historical bytes " + hex(historical) + ' ' +
                     in_quotes(characters_of(historical)));
        }
    }
    if (parsed.cut_at && parsed.has_check_byte && *parsed.cut_at + 1 == parsed.size()) {
        out.problem("at byte " + std::to_string(*parsed.cut_at) +
                    ": the check byte (TCK) is missing; only an answer with T=0 alone has none");
        return;
    }
    if (parsed.cut_at) {
        out.problem("at byte " + std::to_string(*parsed.cut_at) + ": the answer ends too early");
        return;
    }
    if (parsed.has_check_byte) {
        const unsigned sum = std::accumulate(
            atr.begin() + 1, atr.begin() + static_cast<long>(parsed.size()), 0U, std::bit_xor<>{});
        const std::string check_byte = "TCK " + hex(atr[parsed.size() - 1], 2);
        if (sum == 0) {
            out.line(check_byte + ": the check byte is right");
        } else {
            out.problem(check_byte + ": the check byte is wrong");
        }
    }
    if (atr.size() > parsed.size()) {
        out.problem("at byte " + std::to_string(parsed.size()) +
                    ": behind the end of the answer: " + hex(atr.subspan(parsed.size())));
    }
}

} // namespace qaven::cli
