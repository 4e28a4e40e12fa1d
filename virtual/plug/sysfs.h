// A USB device as sysfs and the device nodes show it.
#pragma once

#include "virtual/usb/device.h"

#include <string>
#include <vector>

namespace qaven::virtual_plug {

inline constexpr unsigned kBusNumber = 1;
inline constexpr const char* kControllerPath = "/devices/pci0000:00/0000:00:14.0/usb1";

// The sysfs path of the device in a port of the root hub; ports count from 1.
[[nodiscard]] std::string port_path(std::size_t port);

// The node of the device with this address.
[[nodiscard]] std::string device_node(unsigned number);

// The folders of the device's interfaces, without alternate settings, which have none.
[[nodiscard]] std::vector<std::string> interface_paths(const std::string& path,
                                                       const virtual_usb::Device& device);

// The device and its interfaces in umockdev's textual form.
[[nodiscard]] std::string sysfs_description(const std::string& path, unsigned number,
                                            const virtual_usb::Device& device);

// The root hub: without any device libusb takes the machine for one that has no USB.
class RootHub : public virtual_usb::Device {
  public:
    [[nodiscard]] virtual_usb::Bytes device_descriptor() const override;
    [[nodiscard]] virtual_usb::Bytes configuration_descriptor() const override;
    [[nodiscard]] virtual_usb::Speed speed() const override;
    virtual_usb::Reply control(const virtual_usb::Setup& setup, std::span<const std::uint8_t> data,
                               virtual_usb::TimePoint now) override;
    virtual_usb::Handshake out(std::uint8_t endpoint, std::span<const std::uint8_t> packet,
                               virtual_usb::TimePoint now) override;
    virtual_usb::Reply in(std::uint8_t endpoint, virtual_usb::TimePoint now) override;
    void clear_halt(std::uint8_t endpoint) override;
    void reset() override;
};

} // namespace qaven::virtual_plug
