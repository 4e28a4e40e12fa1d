// Frames to and from the identity-card reader, in HID reports.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <span>

namespace qaven::idcard {

// usb_device_write for the library's own callers.
int send_reports(std::span<std::uint8_t> data);

// Whether the bytes that came so far are the whole reply.
using Completed = std::function<bool(std::span<std::uint8_t> received)>;

// usb_device_read for the library's own callers; place: kReplyCapacity bytes.
int receive_reports(std::span<std::uint8_t> place, std::size_t& length, const Completed& completed,
                    unsigned int tries);

} // namespace qaven::idcard
