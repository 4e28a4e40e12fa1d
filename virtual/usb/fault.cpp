// Reading the text form of a fault.
#include "virtual/usb/fault.h"

#include "virtual/usb/number.h"

#include <array>
#include <stdexcept>
#include <string>
#include <utility>

namespace qaven::virtual_usb {
namespace {

using namespace std::string_view_literals;

// Long enough to be seen, short enough for a host that waits some seconds.
constexpr std::chrono::milliseconds default_delay{500};

constexpr std::array kinds{
    std::pair{"timeout"sv, FaultKind::timeout},     std::pair{"stall"sv, FaultKind::stall},
    std::pair{"halt"sv, FaultKind::halt},           std::pair{"unplug"sv, FaultKind::unplug},
    std::pair{"overflow"sv, FaultKind::overflow},   std::pair{"short"sv, FaultKind::cut_short},
    std::pair{"garbage"sv, FaultKind::garbage},     std::pair{"late"sv, FaultKind::late},
    std::pair{"extension"sv, FaultKind::extension},
};

[[noreturn]] void refuse(std::string_view text) {
    throw std::invalid_argument("'" + std::string(text) +
                                "' is no fault: it reads after=N:KIND, KIND being timeout, stall, "
                                "halt, unplug, overflow, short, garbage, late, late=MS, "
                                "extension or extension=MS");
}

unsigned number(std::string_view digits, std::string_view whole) {
    const auto value = parse_number(digits);
    if (!value) {
        refuse(whole);
    }
    return *value;
}

} // namespace

bool hits_in_only(FaultKind kind) {
    return kind == FaultKind::overflow || kind == FaultKind::cut_short ||
           kind == FaultKind::garbage || kind == FaultKind::extension;
}

Fault parse_fault(std::string_view text) {
    constexpr auto prefix = "after="sv;
    const auto colon = text.find(':');
    if (!text.starts_with(prefix) || colon == std::string_view::npos) {
        refuse(text);
    }
    Fault fault{.after = number(text.substr(prefix.size(), colon - prefix.size()), text),
                .kind = FaultKind::timeout,
                .delay = default_delay};
    auto name = text.substr(colon + 1);
    const auto equals = name.find('=');
    if (equals != std::string_view::npos) {
        fault.delay = std::chrono::milliseconds(number(name.substr(equals + 1), text));
        name = name.substr(0, equals);
    }
    for (const auto& [kind_name, kind] : kinds) {
        const bool takes_time = kind == FaultKind::late || kind == FaultKind::extension;
        if (name == kind_name && (equals == std::string_view::npos || takes_time)) {
            fault.kind = kind;
            return fault;
        }
    }
    refuse(text);
}

} // namespace qaven::virtual_usb
