// The messages of USB/IP 1.1.1 on the wire: all numbers are big-endian; lengths that the other side
// sends are not yet checked.
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

// The requests of a host that has not imported a device. A request is eight bytes, followed by a
// bus id where it names a device.
inline constexpr std::size_t kRequestSize = 8;
inline constexpr std::size_t kBusIdSize = 32;

enum class Request : std::uint8_t {
    kUnknown, // or of another version
    kList,    // OP_REQ_DEVLIST
    kImport,  // OP_REQ_IMPORT
};

[[nodiscard]] Request parse_request(std::span<const std::uint8_t, kRequestSize> bytes);

// The text in front of the first zero byte.
[[nodiscard]] std::string parse_bus_id(std::span<const std::uint8_t, kBusIdSize> bytes);

// A device that hosts can import.
struct ExportedDevice {
    std::string bus_id;
    unsigned bus = 0;
    unsigned number = 0;
    const virtual_usb::Device* device = nullptr;
};

// How a host names the device that it has imported.
[[nodiscard]] std::uint32_t device_id(unsigned bus, unsigned number);

[[nodiscard]] Bytes devlist_reply(std::span<const ExportedDevice> devices);
[[nodiscard]] Bytes import_reply(const ExportedDevice& exported);

enum class ImportError : std::uint8_t { kBusy = 2, kNoSuchDevice = 4 };
[[nodiscard]] Bytes import_error_reply(ImportError reason);

// The commands for an imported device; the bytes of a write follow the header.
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
    std::uint32_t victim = 0; // seqnum of the transfer to cancel
};

// Nothing if the bytes are no command.
using Command = std::variant<std::monostate, Submit, Unlink>;
[[nodiscard]] Command parse_command(std::span<const std::uint8_t, kHeaderSize> bytes);

// status: 0 or a negative errno value. `data` is empty for a write.
void put_submit_reply(Bytes& out, std::uint32_t seq, int status, std::size_t actual,
                      std::span<const std::uint8_t> data);
void put_unlink_reply(Bytes& out, std::uint32_t seq, int status);

} // namespace qaven::virtual_plug::usbip
