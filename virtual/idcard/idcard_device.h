// The identity-card reader as a USB device: one HID interface whose 64-byte reports carry SAM-V
// frames over the control endpoint.
#pragma once

#include "virtual/usb/device.h"

#include <cstdint>
#include <memory>
#include <string_view>

namespace qaven::virtual_idcard {

inline constexpr std::uint16_t kVendorId = 0x2F7A;
inline constexpr std::uint16_t kProductId = 0x4463;
inline constexpr std::size_t kReportSize = 64;

// How long the module works on a command; until then reports are zeros.
inline constexpr std::chrono::milliseconds kProcessingTime{25};

// A reader with a card on it: "resident", "foreign", "hmt" (Hong Kong, Macao, Taiwan), or "none"
// for an empty reader. Any other kind: null.
[[nodiscard]] std::unique_ptr<virtual_usb::Device> make_idcard_reader(std::string_view kind);

} // namespace qaven::virtual_idcard
