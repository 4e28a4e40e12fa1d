// An imported device: commands come in as a stream of bytes, transfers go to
// the device's port, and replies go out as a stream of bytes.
#pragma once

#include "virtual/plug/usbip_message.h"
#include "virtual/usb/port.h"

#include <cstdint>
#include <set>
#include <span>

namespace qaven::virtual_plug {

class UsbipLink {
  public:
    // The longest write that is taken: what a Linux host program may have in flight in all.
    static constexpr std::uint32_t kLongestTransfer = 16 * 1024 * 1024;
    // Transfers in flight at a time.
    static constexpr std::size_t kMostTransfers = 4096;

    // The port must outlive the link. `device` is how the host names it.
    UsbipLink(virtual_usb::Port& port, std::uint32_t device);
    UsbipLink(const UsbipLink&) = delete;
    UsbipLink& operator=(const UsbipLink&) = delete;
    UsbipLink(UsbipLink&&) = delete;
    UsbipLink& operator=(UsbipLink&&) = delete;
    // Cancels what is in flight.
    ~UsbipLink();

    // Bytes from the host. False when they are no message: the start of the next one is then
    // unknown.
    [[nodiscard]] bool receive(std::span<const std::uint8_t> bytes, virtual_usb::TimePoint now);

    // Moves what can move, and appends the replies there are to `out`.
    void advance(virtual_usb::TimePoint now, virtual_usb::Bytes& out);

  private:
    bool submit(const usbip::Submit& command, std::span<const std::uint8_t> data,
                virtual_usb::TimePoint now);
    void unlink(const usbip::Unlink& command);
    void collect();

    virtual_usb::Port& port_;
    std::uint32_t device_;
    virtual_usb::Bytes incoming_;
    virtual_usb::Bytes outgoing_;
    std::set<std::uint64_t> reads_;  // in flight, by the host's number
    std::set<std::uint64_t> writes_; // likewise
};

} // namespace qaven::virtual_plug
