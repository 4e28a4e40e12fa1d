// The messages of USB/IP 1.1.1 as they travel: all numbers big-endian, everything that the other
// side says about lengths still unchecked.
#pragma once

#include "virtual/usb/device.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace qaven::virtual_plug::usbip {

using virtual_usb::Bytes;

// What a host asks before a device is its own. A question is eight bytes, and a bus id behind it
// where it names a device.
inline constexpr std::size_t kQuestionSize = 8;
inline constexpr std::size_t kBusIdSize = 32;

enum class Question : std::uint8_t {
    kUnknown, // or of another version
    kList,    // which devices are there?
    kImport,  // give me this one
};

[[nodiscard]] Question parse_question(std::span<const std::uint8_t, kQuestionSize> bytes);

// The text in front of the first zero byte.
[[nodiscard]] std::string parse_bus_id(std::span<const std::uint8_t, kBusIdSize> bytes);

// A device on offer.
struct Offer {
    std::string bus_id;
    unsigned bus = 0;
    unsigned number = 0;
    const virtual_usb::Device* device = nullptr;
};

// How a host names the device that it has imported.
[[nodiscard]] std::uint32_t device_id(unsigned bus, unsigned number);

[[nodiscard]] Bytes list_reply(std::span<const Offer> offers);
[[nodiscard]] Bytes import_reply(const Offer& offer);

enum class Refusal : std::uint8_t { kBusy = 2, kNoSuchDevice = 4 };
[[nodiscard]] Bytes import_refusal(Refusal reason);

// What a host sends to a device that is its own; the bytes of a write follow the header.
inline constexpr std::size_t kHeaderSize = 48;

inline constexpr std::uint32_t kFlagShortNotOk = 0x0001;
inline constexpr std::uint32_t kFlagZeroPacket = 0x0040;

struct Submit {
    std::uint32_t seq = 0;
    std::uint32_t device = 0;
    bool in = false;
    std::uint32_t endpoint = 0; // number without direction
    std::uint32_t flags = 0;
    std::uint32_t length = 0;
    std::uint32_t packets = 0; // isochronous; 0 or all ones for every other transfer
    std::array<std::uint8_t, virtual_usb::kSetupSize> setup{};
};

struct Unlink {
    std::uint32_t seq = 0;
    std::uint32_t device = 0;
    std::uint32_t victim = 0; // the transfer that is to be taken back
};

// Nothing if the bytes are no command.
using Command = std::variant<std::monostate, Submit, Unlink>;
[[nodiscard]] Command parse_command(std::span<const std::uint8_t, kHeaderSize> bytes);

// status: 0 or a negative errno value. `data` is empty for a write.
void put_submit_reply(Bytes& out, std::uint32_t seq, int status, std::size_t actual,
                      std::span<const std::uint8_t> data);
void put_unlink_reply(Bytes& out, std::uint32_t seq, int status);

} // namespace qaven::virtual_plug::usbip
