// Paths, numbers and attributes of USB devices on Linux.
#include "virtual/plug/sysfs.h"

#include <cstdio>
#include <initializer_list>
#include <string_view>
#include <utility>

namespace qaven::virtual_plug {
namespace {

using virtual_usb::Bytes;
using virtual_usb::Handshake;
using virtual_usb::Reply;
using virtual_usb::Setup;
using virtual_usb::Speed;
using virtual_usb::TimePoint;

constexpr unsigned kUsbMajor = 189;
constexpr unsigned kDevicesPerBus = 128;
constexpr unsigned kRootHubPorts = 8;

std::string hex(std::span<const std::uint8_t> bytes) {
    constexpr auto kDigits = std::string_view("0123456789ABCDEF");
    std::string text;
    for (const auto byte : bytes) {
        text += kDigits[byte >> 4U];
        text += kDigits[byte & 0x0FU];
    }
    return text;
}

template <typename... Values>
std::string format(const char* pattern, Values... values) {
    const int size = std::snprintf(nullptr, 0, pattern, values...);
    std::string text(static_cast<std::size_t>(size), '\0');
    std::snprintf(text.data(), text.size() + 1, pattern, values...);
    return text;
}

const char* speed_text(virtual_usb::Speed speed) {
    switch (speed) {
    case virtual_usb::Speed::kLow:
        return "1.5";
    case virtual_usb::Speed::kHigh:
        return "480";
    default:
        return "12";
    }
}

unsigned word(std::span<const std::uint8_t> descriptor, std::size_t at) {
    return static_cast<unsigned>(descriptor[at]) | static_cast<unsigned>(descriptor[at + 1]) << 8U;
}

std::string attribute(const char* name, const std::string& value) {
    return std::string("A: ") + name + '=' + value + "\\n\n";
}

// Attributes of these names, two hexadecimal digits each, for the bytes from there on.
std::string byte_attributes(std::initializer_list<const char*> names,
                            std::span<const std::uint8_t> bytes) {
    std::string text;
    for (const char* const name : names) {
        text += attribute(name, format("%02x", bytes.front()));
        bytes = bytes.subspan(1);
    }
    return text;
}

// The interface descriptors of a configuration, the first alternate settings.
std::vector<Bytes> interfaces(std::span<const std::uint8_t> configuration) {
    constexpr std::uint8_t kTypeInterface = 4;
    std::vector<Bytes> found;
    while (configuration.size() >= 2 && configuration[0] >= 2 &&
           configuration[0] <= configuration.size()) {
        const auto one = configuration.first(configuration[0]);
        if (one[1] == kTypeInterface && one.size() >= 9 && one[3] == 0) {
            found.emplace_back(one.begin(), one.end());
        }
        configuration = configuration.subspan(one.size());
    }
    return found;
}

// 1-1:1.2 below 1-1, 1-0:1.0 below usb1.
std::string interface_path(const std::string& path, unsigned configuration, unsigned interface) {
    const std::string name = path.substr(path.rfind('/') + 1);
    return path + '/' + (path == kControllerPath ? format("%u-0", kBusNumber) : name) +
           format(":%u.%u", configuration, interface);
}

std::string interface_description(const std::string& path, std::span<const std::uint8_t> device,
                                  std::span<const std::uint8_t> interface) {
    std::string text = "\nP: " + path + "\nE: DEVTYPE=usb_interface\nE: SUBSYSTEM=usb\n";
    text += format("E: PRODUCT=%x/%x/%x\n", word(device, 8), word(device, 10), word(device, 12));
    text += format("E: TYPE=%u/%u/%u\n", device[4], device[5], device[6]);
    text += format("E: INTERFACE=%u/%u/%u\n", interface[5], interface[6], interface[7]);
    const std::string alias =
        format("usb:v%04Xp%04Xd%04Xdc%02Xdsc%02Xdp%02X", word(device, 8), word(device, 10),
               word(device, 12), device[4], device[5], device[6]) +
        format("ic%02Xisc%02Xip%02Xin%02X", interface[5], interface[6], interface[7], interface[2]);
    text += "E: MODALIAS=" + alias + '\n' + attribute("modalias", alias);
    text += attribute("bAlternateSetting", format("%2u", interface[3]));
    text += byte_attributes({"bInterfaceNumber"}, interface.subspan(2));
    text += byte_attributes(
        {"bNumEndpoints", "bInterfaceClass", "bInterfaceSubClass", "bInterfaceProtocol"},
        interface.subspan(4));
    return text;
}

} // namespace

std::string port_path(std::size_t port) {
    return format("%s/%u-%zu", kControllerPath, kBusNumber, port);
}

std::string device_node(unsigned number) {
    return format("/dev/bus/usb/%03u/%03u", kBusNumber, number);
}

std::vector<std::string> interface_paths(const std::string& path,
                                         const virtual_usb::Device& device) {
    const Bytes configuration = device.configuration_descriptor();
    std::vector<std::string> paths;
    for (const auto& interface : interfaces(configuration)) {
        paths.push_back(interface_path(path, configuration.at(5), interface[2]));
    }
    return paths;
}

std::string sysfs_description(const std::string& path, unsigned number,
                              const virtual_usb::Device& device) {
    const Bytes descriptor = device.device_descriptor();
    const Bytes configuration = device.configuration_descriptor();
    const unsigned minor = (kBusNumber - 1) * kDevicesPerBus + number - 1;
    Bytes descriptors = descriptor;
    descriptors.insert(descriptors.end(), configuration.begin(), configuration.end());

    std::string text = "P: " + path + "\n";
    text += "E: DEVNAME=" + device_node(number) + "\n";
    text += "E: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\n";
    text += format("E: BUSNUM=%03u\nE: DEVNUM=%03u\n", kBusNumber, number);
    text += format("E: MAJOR=%u\nE: MINOR=%u\n", kUsbMajor, minor);
    text += format("E: PRODUCT=%x/%x/%x\n", word(descriptor, 8), word(descriptor, 10),
                   word(descriptor, 12));
    text += format("E: TYPE=%u/%u/%u\n", descriptor[4], descriptor[5], descriptor[6]);
    text += format("A: busnum=%u\\n\nA: devnum=%u\\n\n", kBusNumber, number);
    text += format("A: dev=%u:%u\\n\n", kUsbMajor, minor);
    text += format("A: speed=%s\\n\n", speed_text(device.speed()));
    text += format("A: version=%2x.%02x\\n\n", descriptor[3], descriptor[2]);
    text += byte_attributes({"bDeviceClass", "bDeviceSubClass", "bDeviceProtocol"},
                            std::span(descriptor).subspan(4));
    text += format("A: bMaxPacketSize0=%u\\n\n", descriptor[7]);
    text += format("A: idVendor=%04x\\n\nA: idProduct=%04x\\n\nA: bcdDevice=%04x\\n\n",
                   word(descriptor, 8), word(descriptor, 10), word(descriptor, 12));
    text += format("A: bNumConfigurations=%u\\n\n", descriptor[17]);
    text += format("A: bNumInterfaces=%2u\\n\n", configuration.at(4));
    text += format("A: bConfigurationValue=%u\\n\n", configuration.at(5));
    text += format("A: bmAttributes=%2x\\n\n", configuration.at(7));
    text += format("A: bMaxPower=%umA\\n\n", 2U * configuration.at(8));
    text += "A: configuration=\n";
    text += format("A: maxchild=%u\\n\n", path == kControllerPath ? kRootHubPorts : 0U);
    text += "A: rx_lanes=1\\n\nA: tx_lanes=1\\n\n";
    for (const auto& [name, index] :
         {std::pair{"manufacturer", descriptor[14]}, std::pair{"product", descriptor[15]},
          std::pair{"serial", descriptor[16]}}) {
        if (index != 0) {
            text += attribute(name, device.string(index));
        }
    }
    text += "H: descriptors=" + hex(descriptors) + "\n";
    for (const auto& interface : interfaces(configuration)) {
        text += interface_description(interface_path(path, configuration.at(5), interface[2]),
                                      descriptor, interface);
    }
    return text;
}

Bytes RootHub::device_descriptor() const {
    return {18, 1, 0x00, 0x02, 9, 0, 1, 64, 0x6B, 0x1D, 0x02, 0x00, 0x01, 0x06, 0, 0, 0, 1};
}

Bytes RootHub::configuration_descriptor() const {
    return {9, 2, 25, 0, 1, 1, 0, 0xE0, 0, 9, 4, 0, 0, 1, 9, 0, 0, 0, 7, 5, 0x81, 3, 4, 0, 12};
}

Speed RootHub::speed() const {
    return Speed::kHigh;
}

Reply RootHub::control(const Setup& /*setup*/, std::span<const std::uint8_t> /*data*/,
                       TimePoint /*now*/) {
    return Reply::stall();
}

Handshake RootHub::out(std::uint8_t /*endpoint*/, std::span<const std::uint8_t> /*packet*/,
                       TimePoint /*now*/) {
    return Handshake::kStall;
}

Reply RootHub::in(std::uint8_t /*endpoint*/, TimePoint /*now*/) {
    return Reply::nak();
}

void RootHub::clear_halt(std::uint8_t /*endpoint*/) {}

void RootHub::reset() {}

} // namespace qaven::virtual_plug
