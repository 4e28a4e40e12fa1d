// Faults on request: what goes wrong with which transfer, so that a host can walk its own error
// paths.
#pragma once

#include <chrono>
#include <cstdint>
#include <string_view>

namespace qaven::virtual_usb {

enum class FaultKind : std::uint8_t {
    kTimeout,   // nothing moves until the host gives up
    kStall,     // this one transfer is stalled
    kHalt,      // stalled, and the endpoint stays so until the host clears it
    kUnplug,    // the device leaves the bus
    kOverflow,  // the device sends more than the host's buffer takes (IN)
    kCutShort,  // half of the answer's bytes (IN)
    kGarbage,   // as many bytes, all of them wrong (IN)
    kLate,      // the endpoint moves nothing for a while, and goes on then
    kExtension, // the device asks for more time, and answers after a while (IN)
};

struct Fault {
    unsigned after = 0; // bulk transfers that go well first
    FaultKind kind = FaultKind::kTimeout;
    std::chrono::milliseconds delay{0};
};

// True if the fault can only hit a transfer towards the host.
[[nodiscard]] bool hits_in_only(FaultKind kind);

// Reads "after=N:KIND" with KIND timeout, stall, halt, unplug, overflow, short, garbage, late,
// late=MS, extension or extension=MS. Throws std::invalid_argument with a sentence.
[[nodiscard]] Fault parse_fault(std::string_view text);

} // namespace qaven::virtual_usb
