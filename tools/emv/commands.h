// Commands to cards (ISO/IEC 7816-4, 5.1): their names, their parts, what their parameters say.
#pragma once

#include "tools/emv/hex.h"

#include <optional>
#include <string>
#include <string_view>

namespace qaven::emv {

// CLA, INS, P1, P2.
constexpr std::size_t kCommandHeader = 4;

enum class Payload {
    kBytes,
    kDolValues, // of CDOL1 or CDOL2
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

// Null for an instruction that is not known.
const Command* find_command(unsigned char ins);

// "SELECT", "GET DATA" ...; "" for an instruction or a class that is not known.
std::string_view command_name(unsigned char cla, unsigned char ins);

struct CommandParts {
    Bytes data;                 // without the MAC
    Bytes mac;                  // of secure messaging
    std::optional<unsigned> le; // 0 stands for 256
    bool fits = true;           // Lc is right
};

// apdu: the header at least.
CommandParts command_parts(Bytes apdu);

// What CLA, INS, P1 and P2 ask for; "" when there is nothing to say.
std::string parameters_text(Bytes apdu);

// The tag in P1 and P2.
std::uint32_t tag_parameter(Bytes apdu);

// A command that cards know, whose length fits its bytes.
bool is_command(Bytes apdu);

// Data that end in a status word, or a status word alone.
bool is_response(Bytes apdu);

// A command with a PIN in it that everybody could read.
bool carries_pin(Bytes apdu);

} // namespace qaven::emv
