// A USB device as the cable shows it: descriptors, one control transfer at a time, one packet at a
// time on the other endpoints. Whoever plays the host controller (mocked usbfs, USB/IP) drives it
// through virtual_usb::Port; the device knows neither transfers nor who listens.
//
// A device is driven from one thread at a time and has no clock: the caller passes `now`, and
// ready_at() tells when the device will have data.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace qaven::virtual_usb {

using Bytes = std::vector<std::uint8_t>;
using Clock = std::chrono::steady_clock;
using TimePoint = Clock::time_point;

// Numbered as Linux numbers the speed of a port.
enum class Speed : std::uint8_t { kLow = 1, kFull = 2, kHigh = 3 };

// The eight bytes that begin a control transfer (USB 2.0, 9.3).
struct Setup {
    std::uint8_t request_type = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
    std::uint16_t length = 0;

    [[nodiscard]] bool device_to_host() const { return (request_type & 0x80U) != 0; }
};

inline constexpr std::size_t kSetupSize = 8;

// The set-up bytes as they travel, multi-byte fields little-endian.
[[nodiscard]] Setup parse_setup(std::span<const std::uint8_t, kSetupSize> bytes);

// USB 2.0, 8.4.5.
enum class Handshake : std::uint8_t {
    kAck,   // taken, or here is data
    kNak,   // nothing yet; ask again (see ready_at)
    kStall, // refused; a bulk or interrupt endpoint stays halted until clear_halt
};

// What an IN packet or a control transfer brings.
struct Reply {
    Handshake handshake = Handshake::kNak;
    Bytes data; // with ack only; empty is a zero-length packet, or a control write accepted

    [[nodiscard]] static Reply ack(Bytes bytes = {}) {
        return {.handshake = Handshake::kAck, .data = std::move(bytes)};
    }
    [[nodiscard]] static Reply nak() { return {.handshake = Handshake::kNak, .data = {}}; }
    [[nodiscard]] static Reply stall() { return {.handshake = Handshake::kStall, .data = {}}; }
};

class Device {
  public:
    Device() = default;
    Device(const Device&) = delete;
    Device& operator=(const Device&) = delete;
    Device(Device&&) = delete;
    Device& operator=(Device&&) = delete;
    virtual ~Device() = default;

    // 18 bytes (USB 2.0, 9.6.1).
    [[nodiscard]] virtual Bytes device_descriptor() const = 0;

    // The one configuration with all its interfaces, wTotalLength bytes (USB 2.0, 9.6.3).
    [[nodiscard]] virtual Bytes configuration_descriptor() const = 0;

    // Text of a string descriptor (USB 2.0, 9.6.7; index 1 and up); empty where there is none.
    [[nodiscard]] virtual std::string string(std::uint8_t index) const {
        static_cast<void>(index);
        return {};
    }

    [[nodiscard]] virtual Speed speed() const { return Speed::kFull; }

    // A control transfer that the descriptors do not answer: class and vendor requests, and
    // standard requests to an interface such as GET_DESCRIPTOR of a HID report. `data` holds the
    // host's bytes of a control write. A reply longer than setup.length is cut by the port.
    virtual Reply control(const Setup& setup, std::span<const std::uint8_t> data,
                          TimePoint now) = 0;

    // One packet from the host, at most wMaxPacketSize bytes, possibly none. `endpoint` is the
    // endpoint's address (OUT: 0x01 ... 0x0F).
    virtual Handshake out(std::uint8_t endpoint, std::span<const std::uint8_t> packet,
                          TimePoint now) = 0;

    // The host asks for one packet. `endpoint` is the address with bit 7 set (IN).
    virtual Reply in(std::uint8_t endpoint, TimePoint now) = 0;

    // The device asks for more time for the message that comes next on this IN endpoint, which then
    // comes at `reply_at`. False if none is about to come, or one has begun.
    virtual bool request_time_extension(std::uint8_t endpoint, TimePoint now, TimePoint reply_at) {
        static_cast<void>(endpoint);
        static_cast<void>(now);
        static_cast<void>(reply_at);
        return false;
    }

    // The host cleared a halt: the endpoint answers again and has forgotten half a message.
    virtual void clear_halt(std::uint8_t endpoint) = 0;

    // Port reset, a configuration set, and every (re)connection to the bus: nothing that was sent
    // or waited to be read is left.
    virtual void reset() = 0;

    // The cable was pulled: power is gone.
    virtual void unplugged() {}

    // The next moment after `now` at which an endpoint that answers nak will have something without
    // being sent anything first; nothing: only the host can change that.
    [[nodiscard]] virtual std::optional<TimePoint> ready_at(TimePoint now) const {
        static_cast<void>(now);
        return std::nullopt;
    }
};

} // namespace qaven::virtual_usb
