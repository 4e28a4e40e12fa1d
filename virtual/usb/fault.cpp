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
constexpr std::chrono::milliseconds kDefaultDelay{500};

constexpr std::array kKinds{
    std::pair{"timeout"sv, FaultKind::kTimeout},     std::pair{"stall"sv, FaultKind::kStall},
    std::pair{"halt"sv, FaultKind::kHalt},           std::pair{"unplug"sv, FaultKind::kUnplug},
    std::pair{"overflow"sv, FaultKind::kOverflow},   std::pair{"short"sv, FaultKind::kCutShort},
    std::pair{"garbage"sv, FaultKind::kGarbage},     std::pair{"late"sv, FaultKind::kLate},
    std::pair{"extension"sv, FaultKind::kExtension},
};

[[noreturn]] void refuse(std::string_view text) {
    throw std::invalid_argument("'" + std::string(text) +
                                "' is no fault: expected after=N:KIND with KIND timeout, stall, "
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
    return kind == FaultKind::kOverflow || kind == FaultKind::kCutShort ||
           kind == FaultKind::kGarbage || kind == FaultKind::kExtension;
}

Fault parse_fault(std::string_view text) {
    constexpr auto kPrefix = "after="sv;
    const auto colon = text.find(':');
    if (!text.starts_with(kPrefix) || colon == std::string_view::npos) {
        refuse(text);
    }
    Fault fault{.after = number(text.substr(kPrefix.size(), colon - kPrefix.size()), text),
                .kind = FaultKind::kTimeout,
                .delay = kDefaultDelay};
    auto name = text.substr(colon + 1);
    const auto equals = name.find('=');
    if (equals != std::string_view::npos) {
        fault.delay = std::chrono::milliseconds(number(name.substr(equals + 1), text));
        name = name.substr(0, equals);
    }
    for (const auto& [kind_name, kind] : kKinds) {
        const bool takes_time = kind == FaultKind::kLate || kind == FaultKind::kExtension;
        if (name == kind_name && (equals == std::string_view::npos || takes_time)) {
            fault.kind = kind;
            return fault;
        }
    }
    refuse(text);
}

} // namespace qaven::virtual_usb
