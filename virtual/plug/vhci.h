// The USB ports of Linux's vhci-hcd module: a device that is reached through a socket is plugged in
// there.
#pragma once

#include "virtual/plug/fd.h"
#include "virtual/usb/device.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string_view>

namespace qaven::virtual_plug {

// The first port for a full-speed device that nothing is plugged into, from the text of the
// module's file "status".
[[nodiscard]] std::optional<unsigned> free_port(std::string_view status);

class Vhci {
  public:
    // Where the module shows itself in sysfs.
    explicit Vhci(std::filesystem::path folder = "/sys/devices/platform/vhci_hcd.0")
        : folder_(std::move(folder)) {}

    struct Attachment {
        unsigned port = 0;
        Fd stream; // the device's end; closed: unplugged
    };

    // Plugs a device in. Throws std::runtime_error when there is no module, no free port or no
    // permission.
    [[nodiscard]] Attachment attach(std::uint32_t device, virtual_usb::Speed speed) const;

  private:
    std::filesystem::path folder_;
};

} // namespace qaven::virtual_plug
