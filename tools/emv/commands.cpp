// Commands to cards.
#include "tools/emv/commands.h"

#include "tools/emv/status_words.h"
#include "tools/emv/tags.h"
#include "tools/emv/tlv.h"

#include <algorithm>
#include <array>

namespace qaven::emv {

namespace {

constexpr unsigned char kVerify = 0x20;
constexpr unsigned char kPinChange = 0x24;
constexpr unsigned char kSelect = 0xA4;
constexpr unsigned char kGenerateAc = 0xAE;
constexpr unsigned char kReadBinary = 0xB0;
constexpr unsigned char kReadRecord = 0xB2;
constexpr unsigned char kGetData = 0xCA;
constexpr unsigned char kUpdateBinary = 0xD6;
constexpr unsigned char kPutData = 0xDA;
constexpr unsigned char kUpdateRecord = 0xDC;

// EMV Book 3, 6.3.2 and 6.5; ISO/IEC 7816-4, 5.4.2.
constexpr auto kCommands = std::to_array<Command>({
    {0x16, "CARD BLOCK", Payload::kBytes},
    {0x18, "APPLICATION UNBLOCK", Payload::kBytes},
    {0x1E, "APPLICATION BLOCK", Payload::kBytes},
    {kVerify, "VERIFY", Payload::kPin},
    {kPinChange, "PIN CHANGE/UNBLOCK", Payload::kBytes},
    {0x82, "EXTERNAL AUTHENTICATE", Payload::kIssuerAuthentication},
    {0x84, "GET CHALLENGE", Payload::kBytes},
    {0x88, "INTERNAL AUTHENTICATE", Payload::kBytes},
    {kSelect, "SELECT", Payload::kName},
    {0xA8, "GET PROCESSING OPTIONS", Payload::kObjects},
    {kGenerateAc, "GENERATE AC", Payload::kDolValues},
    {kReadBinary, "READ BINARY", Payload::kBytes},
    {kReadRecord, "READ RECORD", Payload::kBytes},
    {0xC0, "GET RESPONSE", Payload::kBytes},
    {kGetData, "GET DATA", Payload::kBytes},
    {kUpdateBinary, "UPDATE BINARY", Payload::kBytes},
    {kPutData, "PUT DATA", Payload::kObjectValue},
    {kUpdateRecord, "UPDATE RECORD", Payload::kObjects},
});

constexpr std::size_t kMacSize = 4;

// Secure messaging as payment cards have it: the data end in a MAC.
bool has_mac(unsigned char cla) {
    return (cla & 0x0FU) == 0x04;
}

bool is_known_class(unsigned char cla) {
    return cla == 0x00 || cla == 0x04 || cla == 0x80 || cla == 0x84;
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

} // namespace

const Command* find_command(unsigned char ins) {
    const auto* const found = std::ranges::find(kCommands, ins, &Command::ins);
    return found != kCommands.end() ? found : nullptr;
}

std::string_view command_name(unsigned char cla, unsigned char ins) {
    const Command* const command = find_command(ins);
    return is_known_class(cla) && command != nullptr ? command->name : std::string_view();
}

CommandParts command_parts(Bytes apdu) {
    const Bytes body = apdu.subspan(kCommandHeader);
    if (body.empty()) {
        return {};
    }
    if (body.size() == 1) {
        return {{}, {}, body[0]};
    }
    CommandParts parts;
    const std::size_t lc = body[0];
    const Bytes rest = body.subspan(1);
    parts.fits = rest.size() == lc || rest.size() == lc + 1;
    if (rest.size() == lc + 1) {
        parts.le = rest.back();
    }
    parts.data = rest.first(std::min(lc, rest.size()));
    if (parts.fits && has_mac(apdu[0]) && lc >= kMacSize) {
        parts.mac = parts.data.last(kMacSize);
        parts.data = parts.data.first(lc - kMacSize);
    }
    return parts;
}

std::uint32_t tag_parameter(Bytes apdu) {
    return apdu[2] * 256U + apdu[3];
}

std::string parameters_text(Bytes apdu) {
    const unsigned char p1 = apdu[2];
    const unsigned char p2 = apdu[3];
    const std::string sfi = "SFI " + std::to_string(p2 >> 3U);
    switch (apdu[1]) {
    case kSelect:
        return std::string((p1 & 0x04U) != 0 ? "by name" : "by file identifier") +
               ((p2 & 0x03U) == 0x02 ? ", next occurrence" : ", first occurrence");
    case kGenerateAc:
        return cryptogram_text(p1);
    case kReadRecord:
    case kUpdateRecord:
        return "record " + std::to_string(p1) + ", " + sfi;
    case kReadBinary:
    case kUpdateBinary:
        return (p1 & 0x80U) != 0
                   ? "SFI " + std::to_string(p1 & 0x1FU) + ", offset " + std::to_string(p2)
                   : "offset " + std::to_string(tag_parameter(apdu));
    case kGetData:
    case kPutData:
        return tag_text(tag_parameter(apdu)) + ' ' + std::string(tag_name(tag_parameter(apdu)));
    case kVerify:
        return p2 == 0x88 ? "enciphered PIN" : p2 == 0x80 ? "plaintext PIN" : "";
    case kPinChange:
        return pin_change_text(p2);
    default:
        return "";
    }
}

bool is_command(Bytes apdu) {
    return apdu.size() >= kCommandHeader && !command_name(apdu[0], apdu[1]).empty() &&
           command_parts(apdu).fits;
}

bool is_response(Bytes apdu) {
    if (apdu.size() < 2) {
        return false;
    }
    const unsigned status = apdu[apdu.size() - 2] * 256U + apdu.back();
    return looks_like_status(status) && is_object_list(apdu.first(apdu.size() - 2));
}

bool carries_pin(Bytes apdu) {
    return apdu.size() > kCommandHeader && is_known_class(apdu[0]) && apdu[1] == kVerify;
}

} // namespace qaven::emv
