// What the host's answer makes of the transaction: which cryptogram the card is asked for at the
// second GENERATE AC, and what an AAC then means.
#pragma once

#include "engine/operation/cryptogram.h"

#include <string_view>

namespace qaven::arpc {

// What becomes of an AAC that the card answers with.
enum class OnAac {
    kDeclined,      // the host declined: outputs empty; an AAC is success, anything else the
                    // command's result
    kReportCommand, // a TC was asked for: the command's result, with its text
    kNotATc,        // no shortcut: judged like any cryptogram that is not a TC
    kAccepted,      // an AAC was asked for: success, the script result stays as prepared
};

struct Decision {
    cryptogram::Ask ask;
    OnAac on_aac;
};

// host_status 0 means approved; arc: authorisation response code, two characters.
Decision decide(int host_status, std::string_view arc);

} // namespace qaven::arpc
