// How a device is plugged in: who holds its interfaces, what goes wrong, who records.
#pragma once

#include "virtual/usb/capture.h"
#include "virtual/usb/fault.h"

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace qaven::virtual_plug {

struct PlugSettings {
    // Kernel driver bound to `interfaces` when the device appears; empty: none.
    std::string driver;
    // Another program holds `interfaces` and does not let go.
    bool held = false;
    std::vector<std::uint8_t> interfaces;
    std::vector<virtual_usb::Fault> faults;
    virtual_usb::CaptureFile* capture = nullptr;
    // After an unplug the device comes back under a new address.
    std::optional<std::chrono::milliseconds> replug_after;
};

} // namespace qaven::virtual_plug
