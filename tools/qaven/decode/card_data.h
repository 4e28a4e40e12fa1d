// Data objects, commands to cards and their responses as lines. They are in one place because each
// may hold the others: an object a script command, a command objects.
#pragma once

#include "tools/emv/hex.h"
#include "tools/qaven/decode/outline.h"

namespace qaven::cli {

// The objects of data, to its end or to where it stops making sense. start: where data begins in
// what the user gave; places are counted from there.
void explain_objects(emv::Bytes data, std::size_t start, Outline& out);

void explain_command(emv::Bytes apdu, Outline& out);
void explain_response(emv::Bytes apdu, Outline& out);

} // namespace qaven::cli
