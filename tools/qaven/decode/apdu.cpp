// Commands to cards and their answers.
#include "decode/apdu.h"

#include "decode/aid.h"
#include "decode/bits.h"
#include "decode/lists.h"
#include "tools/emv/status_words.h"
#include "decode/tags.h"
#include "tools/emv/gbk.h"
#include "decode/tlv.h"
#include "decode/tlv_tree.h"
#include "decode/values.h"

#include <algorithm>
#include <array>

namespace tool {

namespace {

enum class Payload {
    kBytes,
    kName,
    kObjects,
    kObjectValue, // of the tag in P1 and P2
    kPin,
    kIssuerAuthentication,
};

struct Command {
    unsigned char ins;
    std::string_view name;
    Payload payload;
};

constexpr unsigned char kGenerateCryptogram = 0xAE;

constexpr auto kCommands = std::to_array<Command>({
    {0x16, "CARD BLOCK", Payload::kBytes},
    {0x18, "APPLICATION UNBLOCK", Payload::kBytes},
    {0x1E, "APPLICATION BLOCK", Payload::kBytes},
    {0x20, "VERIFY", Payload::kPin},
    {0x24, "PIN CHANGE/UNBLOCK", Payload::kBytes},
    {0x82, "EXTERNAL AUTHENTICATE", Payload::kIssuerAuthentication},
    {0x84, "GET CHALLENGE", Payload::kBytes},
    {0x88, "INTERNAL AUTHENTICATE", Payload::kBytes},
    {0xA4, "SELECT", Payload::kName},
    {0xA8, "GET PROCESSING OPTIONS", Payload::kObjects},
    {kGenerateCryptogram, "GENERATE AC", Payload::kBytes},
    {0xB0, "READ BINARY", Payload::kBytes},
    {0xB2, "READ RECORD", Payload::kBytes},
    {0xC0, "GET RESPONSE", Payload::kBytes},
    {0xCA, "GET DATA", Payload::kBytes},
    {0xD6, "UPDATE BINARY", Payload::kBytes},
    {0xDA, "PUT DATA", Payload::kObjectValue},
    {0xDC, "UPDATE RECORD", Payload::kObjects},
});

constexpr std::size_t kHead = 4;
constexpr std::size_t kMacSize = 4;

const Command* find_command(unsigned char ins) {
    const auto* const found = std::ranges::find(kCommands, ins, &Command::ins);
    return found != kCommands.end() ? found : nullptr;
}

// Secure messaging as payment cards have it: the data end in a MAC.
bool has_mac(unsigned char cla) {
    return (cla & 0x0FU) == 0x04;
}

bool is_known_class(unsigned char cla) {
    return cla == 0x00 || cla == 0x04 || cla == 0x80 || cla == 0x84;
}

struct Parts {
    Bytes data;
    std::optional<unsigned> expected; // Le
    bool fits = true;
};

Parts parts_of(Bytes apdu) {
    const Bytes body = apdu.subspan(kHead);
    if (body.empty()) {
        return {};
    }
    if (body.size() == 1) {
        return {{}, body[0], true};
    }
    const std::size_t announced = body[0];
    const Bytes rest = body.subspan(1);
    if (rest.size() < announced) {
        return {rest, std::nullopt, false};
    }
    if (rest.size() == announced + 1) {
        return {rest.first(announced), rest.back(), true};
    }
    return {rest.first(announced), std::nullopt, rest.size() == announced};
}

std::string cryptogram_text(unsigned char p1) {
    switch (p1 & 0xC0U) {
    case 0x00:
        return "asks for an AAC (decline)";
    case 0x40:
        return "asks for a TC (approve)";
    case 0x80:
        return "asks for an ARQC (go online)";
    default:
        return "reserved cryptogram type";
    }
}

std::string pin_change_text(unsigned char p2) {
    switch (p2) {
    case 0x00:
        return "unblocks the PIN";
    case 0x01:
        return "changes the PIN, which the cardholder names";
    case 0x02:
        return "changes the PIN";
    default:
        return "";
    }
}

std::string parameters_text(Bytes apdu) {
    const unsigned char p1 = apdu[2];
    const unsigned char p2 = apdu[3];
    const unsigned tag = p1 * 256U + p2;
    const std::string sfi = "SFI " + std::to_string(p2 >> 3U);
    switch (apdu[1]) {
    case 0xA4:
        return std::string((p1 & 0x04U) != 0 ? "by name" : "by file identifier") +
               ((p2 & 0x03U) == 0x02 ? ", next occurrence" : ", first occurrence");
    case kGenerateCryptogram:
        return cryptogram_text(p1);
    case 0xB2:
    case 0xDC:
        return "record " + std::to_string(p1) + ", " + sfi;
    case 0xB0:
    case 0xD6:
        return (p1 & 0x80U) != 0
                   ? "SFI " + std::to_string(p1 & 0x1FU) + ", offset " + std::to_string(p2)
                   : "offset " + std::to_string(tag);
    case 0xCA:
    case 0xDA:
        return tag_text(p1 == 0 ? p2 : tag) + ' ' + std::string(tag_name(p1 == 0 ? p2 : tag));
    case 0x20:
        return p2 == 0x88 ? "enciphered PIN" : p2 == 0x80 ? "plaintext PIN" : "";
    case 0x24:
        return pin_change_text(p2);
    default:
        return "";
    }
}

void explain_payload(const Command& command, Bytes apdu, Bytes data, Outline& out) {
    switch (command.payload) {
    case Payload::kPin:
        out.line("data: PIN block, never shown");
        return;
    case Payload::kName:
        out.line("name: " + aid_text(data), is_registered(data));
        return;
    case Payload::kIssuerAuthentication:
        explain_issuer_authentication(data, out);
        return;
    case Payload::kObjects:
        if (is_object_list(data)) {
            explain_objects(data, 0, out);
            return;
        }
        break;
    case Payload::kObjectValue: {
        const unsigned tag = apdu[2] == 0 ? apdu[3] : apdu[2] * 256U + apdu[3];
        out.line("value: " + value_text(tag_form(tag), data, "", out.privacy()));
        return;
    }
    case Payload::kBytes:
        break;
    }
    // What CDOL1 and CDOL2 ask for: amounts, codes, dates, one after the other.
    out.line("data: " + hex(data), command.ins == kGenerateCryptogram);
}

} // namespace

bool is_command(Bytes apdu) {
    return apdu.size() >= kHead && is_known_class(apdu[0]) && find_command(apdu[1]) != nullptr &&
           parts_of(apdu).fits;
}

bool is_response(Bytes apdu) {
    if (apdu.size() < 2) {
        return false;
    }
    const unsigned status = apdu[apdu.size() - 2] * 256U + apdu.back();
    return looks_like_status(status) && is_object_list(apdu.first(apdu.size() - 2));
}

std::string_view command_name(unsigned char cla, unsigned char ins) {
    const Command* const command = find_command(ins);
    return is_known_class(cla) && command != nullptr ? command->name : std::string_view();
}

bool carries_pin(Bytes apdu) {
    if (apdu.size() <= kHead || !is_known_class(apdu[0])) {
        return false;
    }
    const Command* const command = find_command(apdu[1]);
    return command != nullptr && command->payload == Payload::kPin;
}

void explain_command(Bytes apdu, Outline& out) {
    if (apdu.size() < kHead) {
        out.problem("a command has 4 bytes at least, " + std::to_string(apdu.size()) + " are here");
        return;
    }
    const std::string_view name = command_name(apdu[0], apdu[1]);
    const std::string parameters = parameters_text(apdu);
    out.line(hex(apdu.first(kHead)) + ' ' + (name.empty() ? "unknown command" : std::string(name)) +
             (parameters.empty() || name.empty() ? "" : ": " + parameters));
    const auto nest = out.nest();
    Parts parts = parts_of(apdu);
    if (!parts.fits) {
        out.problem("at byte 4: " + std::to_string(apdu[kHead]) + " bytes of data are announced, " +
                    std::to_string(apdu.size() - kHead - 1) + " follow");
        return;
    }
    Bytes mac;
    if (has_mac(apdu[0]) && parts.data.size() >= kMacSize) {
        mac = parts.data.last(kMacSize);
        parts.data = parts.data.first(parts.data.size() - kMacSize);
    }
    const Command* const command = find_command(apdu[1]);
    out.privacy().learn(parts.data);
    if (!parts.data.empty() && command != nullptr) {
        explain_payload(*command, apdu, parts.data, out);
    } else if (!parts.data.empty()) {
        out.line("data: " + hex(parts.data));
    }
    if (!mac.empty()) {
        out.line("MAC: " + hex(mac));
    }
    if (parts.expected) {
        out.line("Le: " + (*parts.expected == 0 ? "all there is, 256 bytes at most"
                                                : std::to_string(*parts.expected) + " bytes"));
    }
}

void explain_response(Bytes apdu, Outline& out) {
    if (apdu.size() < 2) {
        out.problem("a response ends in a status word of 2 bytes");
        return;
    }
    const Bytes data = apdu.first(apdu.size() - 2);
    if (!data.empty()) {
        if (is_object_list(data)) {
            explain_objects(data, 0, out);
        } else {
            out.privacy().learn(data);
            // What is taken for the status word may be the end of a number.
            const std::string shown = out.privacy().guarded(hex(apdu));
            out.line("data: " + shown.substr(0, 2 * data.size()));
        }
    }
    out.line(status_line(apdu[apdu.size() - 2] * 256U + apdu.back()));
}

} // namespace tool
