// The error-text parameter of the card operations.
#pragma once

#include "host/err.h"

namespace qaven {

// Describes code in the host's buffer (19 bytes), if it gave one.
inline void describe(int code, char* error_text) {
    if (error_text != nullptr) {
        Qm_GetLastErrDesc(code, error_text);
    }
}

} // namespace qaven
