// Commands to cards and their answers.
#pragma once

#include "decode/outline.h"
#include "tools/emv/hex.h"

#include <string>

namespace tool {

// A command that cards know, whose length fits its bytes.
bool is_command(Bytes apdu);

// Data that end in a status word, or a status word alone.
bool is_response(Bytes apdu);

// "SELECT", "GET DATA" ...; "" for an instruction that is not known.
std::string_view command_name(unsigned char cla, unsigned char ins);

// A command with a PIN in it that everybody could read.
bool carries_pin(Bytes apdu);

void explain_command(Bytes apdu, Outline& out);
void explain_response(Bytes apdu, Outline& out);

} // namespace tool
