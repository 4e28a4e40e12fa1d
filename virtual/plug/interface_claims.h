// Who holds which interface of a device: a kernel driver, a host program through usbfs, or nobody.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

namespace qaven::virtual_plug {

// An open file of the device's node.
using ClientId = std::uint64_t;

class InterfaceClaims {
  public:
    void add_interface(std::uint8_t interface);

    // A kernel driver that binds to the interface now, and again whenever it is let in.
    void bind(std::uint8_t interface, const std::string& driver);

    // Results are 0 or a negative errno value, as usbfs returns them.
    int claim(ClientId client, std::uint8_t interface);
    int release(ClientId client, std::uint8_t interface);
    int disconnect_driver(std::uint8_t interface);
    // 1 when a driver binds, 0 when there is none that wants the interface.
    int connect_driver(std::uint8_t interface);

    // The driver that usbfs names: a kernel driver, or "usbfs" while a client holds the interface.
    [[nodiscard]] std::optional<std::string> driver(std::uint8_t interface) const;

    // The client that holds the interface.
    [[nodiscard]] std::optional<ClientId> holder(std::uint8_t interface) const;

    [[nodiscard]] bool any_claimed() const;

    // The client closed its file.
    void forget(ClientId client);

  private:
    struct Holder {
        std::string own_driver; // binds when it may
        bool driver_bound = false;
        std::optional<ClientId> client;
    };

    std::map<std::uint8_t, Holder> interfaces_;
};

} // namespace qaven::virtual_plug
