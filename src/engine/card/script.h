// Issuer scripts: the commands that an issuer sends to its card through the counter.
#pragma once

#include "engine/data/tlv.h"
#include "support/export.h"

// Sends the commands (tag 86) of script (scriptlen bytes, at any depth of templates) one by one and
// stops at the first that the card refuses. *count: commands counted, the failing one included. 0
// when all were accepted; a result of Qm_Icc_EXApdu; -205 for a command that runs past the end of
// the script or is 1 to 4 bytes long (counted, not sent).
QAVEN_API int qmcx_exeicscript(unsigned char* script, int scriptlen, int* count);

namespace qaven::script {

struct Outcome {
    int result;
    int count;
};

Outcome execute(tlv::Bytes script);

} // namespace qaven::script
