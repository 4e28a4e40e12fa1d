// Plugs virtual devices into a mocked /dev/bus/usb and /sys that an unmodified libusb works on. The
// process and the host program must run under umockdev's preload library.
#pragma once

#include "virtual/usb/capture.h"
#include "virtual/usb/device.h"
#include "virtual/usb/fault.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace qaven::virtual_plug {

struct PlugSettings {
    // Kernel driver bound to `interfaces` when the device appears; empty: none.
    std::string driver;
    // Another program holds `interfaces` and does not let go.
    bool held = false;
    std::vector<std::uint8_t> interfaces;
    std::vector<virtual_usb::Fault> faults;
    virtual_usb::CaptureFile* capture = nullptr;
    // After an unplug the device comes back under a new address.
    std::optional<std::chrono::milliseconds> replug_after;
};

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
