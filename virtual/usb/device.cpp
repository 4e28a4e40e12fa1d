// The set-up bytes of a control transfer.
#include "virtual/usb/device.h"

namespace qaven::virtual_usb {

Setup parse_setup(std::span<const std::uint8_t, kSetupSize> bytes) {
    const auto word = [&bytes](std::size_t at) {
        return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8U));
    };
    return {.request_type = bytes[0],
            .request = bytes[1],
            .value = word(2),
            .index = word(4),
            .length = word(6)};
}

} // namespace qaven::virtual_usb
