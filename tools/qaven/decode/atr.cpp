// The answer to reset.
#include "decode/atr.h"

#include "decode/text.h"

#include <algorithm>
#include <array>
#include <functional>
#include <numeric>

namespace tool {

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

std::string rates_text(unsigned char ta1) {
    const int clock = kClockRates.at(ta1 >> 4U);
    const int baud = kBaudRates.at(ta1 & 0x0FU);
    if (clock == 0 || baud == 0) {
        return "reserved rates";
    }
    return "clock rate " + std::to_string(clock) + ", baud rate " + std::to_string(baud) + ": " +
           std::to_string(clock / baud) + " clock cycles a bit";
}

std::string guard_text(unsigned char tc1) {
    return tc1 == 0xFF ? "shortest guard time" : "extra guard time " + std::to_string(tc1);
}

std::string specific_text(unsigned char ta2) {
    return "protocol T=" + std::to_string(ta2 & 0x0FU) + " and no other" +
           ((ta2 & 0x10U) != 0 ? ", rates not those of TA1" : "");
}

std::string block_protocol_text(std::size_t which, unsigned char byte) {
    if (which == 0) {
        return "longest block to the card: " + std::to_string(byte);
    }
    if (which == 1) {
        return "block waiting time " + std::to_string(byte >> 4U) + ", character waiting time " +
               std::to_string(byte & 0x0FU);
    }
    return std::string((byte & 1U) != 0 ? "CRC" : "LRC") + " as error detection";
}

// number: of the group, from 1; protocol: of the group before it.
std::string interface_text(std::size_t number, std::size_t which, unsigned char byte,
                           unsigned protocol) {
    if (which == 3) {
        return "protocol T=" + std::to_string(byte & 0x0FU);
    }
    if (number == 1) {
        return which == 0   ? rates_text(byte)
               : which == 1 ? (byte == 0 ? "VPP not connected" : "programming voltage (VPP)")
                            : guard_text(byte);
    }
    if (number == 2) {
        return which == 0   ? specific_text(byte)
               : which == 1 ? "programming voltage (VPP)"
                            : "waiting time (T=0) " + std::to_string(byte);
    }
    if (protocol == 1) {
        return block_protocol_text(which, byte);
    }
    if (protocol == 15) {
        return which == 0 ? "clock stop and supply voltages" : "standard or proprietary use";
    }
    return "of protocol T=" + std::to_string(protocol);
}

void explain_groups(const Atr& atr, Outline& out) {
    unsigned protocol = 0;
    for (std::size_t k = 0; k < atr.groups.size(); ++k) {
        const Group& group = atr.groups[k];
        for (std::size_t which = 0; which < group.bytes.size(); ++which) {
            if (const auto byte = group.bytes.at(which)) {
                out.line(std::string("T") + "ABCD"[which] + std::to_string(k + 1) + ' ' +
                         hex(*byte, 2) + ": " + interface_text(k + 1, which, *byte, protocol));
            }
        }
        protocol = group.bytes[3] ? *group.bytes[3] & 0x0FU : protocol;
    }
    if (atr.groups.empty() || !atr.groups[0].bytes[3]) {
        out.line("no TD1: protocol T=0");
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
        out.line("historical bytes " + hex(historical) + ' ' +
                 in_quotes(characters_of(historical)));
    }
    if (parsed.cut_at) {
        out.problem("at byte " + std::to_string(*parsed.cut_at) + ": the answer ends too early");
        return;
    }
    if (parsed.has_check_byte) {
        const unsigned sum = std::accumulate(
            atr.begin() + 1, atr.begin() + static_cast<long>(parsed.size()), 0U, std::bit_xor<>{});
        out.line("TCK " + hex(atr[parsed.size() - 1], 2) +
                 (sum == 0 ? ": the check byte is right" : ": the check byte is wrong"));
    }
    if (atr.size() > parsed.size()) {
        out.problem("at byte " + std::to_string(parsed.size()) +
                    ": behind the end of the answer: " + hex(atr.subspan(parsed.size())));
    }
}

} // namespace tool
