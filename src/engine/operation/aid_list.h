// Which AID of a host's list finds an application.
#pragma once

#include "qaven/qaven.h"

#include <cstddef>
#include <string_view>

namespace qaven {

// Does the operation with the AIDs between the bars of the text in turn, until its result is
// another than "no single application"; that is the result.
template <typename Operation>
int for_each_aid(std::string_view aid_list, Operation operation) {
    std::string_view rest = aid_list;
    while (true) {
        const std::size_t bar = rest.find('|');
        const int result = operation(rest.substr(0, bar));
        if (result != QAVEN_NO_APPLICATION || bar == std::string_view::npos) {
            return result;
        }
        rest.remove_prefix(bar + 1);
    }
}

} // namespace qaven
