// Which AID of a host's list finds an application.
#pragma once

#include "qaven/qaven.h"
#include "support/utils.h"

#include <list>
#include <string>

namespace qaven {

// Does the operation with the AIDs between the bars of the text in turn, until its result is
// another than "no single application"; that is the result.
template <typename Operation>
int for_each_aid(const char* aid_list, Operation operation) {
    std::list<std::string> aids;
    Split(aid_list, aids, '|');
    int result = QAVEN_NO_CARD;
    for (const std::string& aid : aids) {
        result = operation(aid);
        if (result != QAVEN_NO_APPLICATION) {
            break;
        }
    }
    return result;
}

} // namespace qaven
