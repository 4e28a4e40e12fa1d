// Feeds devices with any descriptors to the enumeration, and uses whatever endpoints were found.
// Input: devices and calls (one chunk), then what a Wire in raw mode takes.
#include "support/demand.h"
#include "support/guarded.h"
#include "support/wire.h"
#include "usb/ccid.h"

#include <algorithm>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

using qaven::fuzz::demand;
using qaven::fuzz::Device;
using qaven::fuzz::Guarded;
using qaven::fuzz::Input;
using qaven::fuzz::Wire;

constexpr int kVendor = 0x2F7A;
constexpr int kProduct = 0x4417;

// What libusb takes from a configuration at most.
constexpr unsigned kMostInterfaces = 32;
constexpr unsigned kMostEndpoints = 32;
constexpr unsigned kMostSettings = 128;

std::vector<std::uint8_t> setting(Input& script) {
    const auto addresses = script.take(script.below(kMostEndpoints + 1));
    return {addresses.begin(), addresses.end()};
}

Device device(Input& script) {
    Device device;
    const unsigned identity = script.below(8);
    device.vendor = identity == 7 ? 0x1D6B : kVendor;
    device.product = identity == 6 ? 0x4463 : kProduct;
    for (unsigned count = script.below(kMostInterfaces + 1); count > 0; --count) {
        Device::Interface interface;
        // One setting is the usual number.
        unsigned settings = script.below(kMostSettings + 1);
        settings = settings < 0x40 ? 1 : settings - 0x40;
        while (settings > 0) {
            interface.settings.push_back(setting(script));
            --settings;
        }
        device.interfaces.push_back(std::move(interface));
    }
    return device;
}

void check(const Myusb& reader) {
    demand(reader.ep_in >= 0 && reader.ep_in <= 0xFF && reader.ep_out >= 0 &&
               reader.ep_out <= reader.ep_in,
           "of the two endpoints the smaller address is OUT");
}

void use(CCID& reader, int interface) {
    reader.open(kVendor, kProduct, interface);
    check(reader);
    Guarded<unsigned char, CCID::kPacketSize> status;
    reader.poweron();
    reader.GetSlotStatus(status.data());
    reader.setInterface(interface + 1);
    check(reader);
    reader.poweroff();
}

} // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Input input(data, size);
    Input script(input.long_chunk());
    std::vector<Device> devices;
    for (unsigned count = script.below(5); count > 0; --count) {
        devices.push_back(device(script));
    }
    Wire wire(input, Wire::Mode::kRaw, std::move(devices));
    CCID reader{};
    do {
        wire.next_operation();
        use(reader, static_cast<int>(script.below(14)) - 1);
    } while (!script.empty());
    reader.close();
    return 0;
}
