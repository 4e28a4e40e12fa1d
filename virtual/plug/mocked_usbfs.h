// Plugs virtual devices into a mocked /dev/bus/usb and /sys that an unmodified libusb works on. The
// process and the host program must run under umockdev's preload library.
#pragma once

#include "virtual/plug/plug_settings.h"
#include "virtual/usb/device.h"

#include <memory>

namespace qaven::virtual_plug {

class MockedUsbfs {
  public:
    // Makes an empty test bed with a root hub. Throws std::runtime_error outside a mock
    // environment.
    MockedUsbfs();
    MockedUsbfs(const MockedUsbfs&) = delete;
    MockedUsbfs& operator=(const MockedUsbfs&) = delete;
    MockedUsbfs(MockedUsbfs&&) = delete;
    MockedUsbfs& operator=(MockedUsbfs&&) = delete;
    ~MockedUsbfs();

    // The device goes into the next free port of the root hub; it must outlive this object.
    void plug(virtual_usb::Device& device, const PlugSettings& settings);

  private:
    class Hub;
    std::unique_ptr<Hub> hub_;
};

} // namespace qaven::virtual_plug
