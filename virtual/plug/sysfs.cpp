// Paths, numbers and attributes of USB devices on Linux.
#include "virtual/plug/sysfs.h"

#include <cstdio>
#include <string_view>

namespace qaven::virtual_plug {
namespace {

using virtual_usb::Bytes;
using virtual_usb::Handshake;
using virtual_usb::Reply;
using virtual_usb::Setup;
using virtual_usb::Speed;
using virtual_usb::TimePoint;

constexpr unsigned usb_major = 189;
constexpr unsigned devices_per_bus = 128;

std::string hex(std::span<const std::uint8_t> bytes) {
    constexpr auto digits = std::string_view("0123456789ABCDEF");
    std::string text;
    for (const auto byte : bytes) {
        text += digits[byte >> 4U];
        text += digits[byte & 0x0FU];
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
    case virtual_usb::Speed::low:
        return "1.5";
    case virtual_usb::Speed::high:
        return "480";
    default:
        return "12";
    }
}

} // namespace

std::string port_path(std::size_t port) {
    return format("%s/%u-%zu", controller_path, bus_number, port);
}

std::string device_node(unsigned number) {
    return format("/dev/bus/usb/%03u/%03u", bus_number, number);
}

std::string sysfs_description(const std::string& path, unsigned number,
                              const virtual_usb::Device& device) {
    const Bytes descriptor = device.device_descriptor();
    const Bytes configuration = device.configuration_descriptor();
    const auto word = [&descriptor](std::size_t at) {
        return static_cast<unsigned>(descriptor.at(at)) |
               (static_cast<unsigned>(descriptor.at(at + 1)) << 8U);
    };
    const unsigned minor = (bus_number - 1) * devices_per_bus + number - 1;
    Bytes descriptors = descriptor;
    descriptors.insert(descriptors.end(), configuration.begin(), configuration.end());

    std::string text = "P: " + path + "\n";
    text += "E: DEVNAME=" + device_node(number) + "\n";
    text += "E: DEVTYPE=usb_device\nE: SUBSYSTEM=usb\n";
    text += format("E: BUSNUM=%03u\nE: DEVNUM=%03u\n", bus_number, number);
    text += format("E: MAJOR=%u\nE: MINOR=%u\n", usb_major, minor);
    text += format("E: PRODUCT=%x/%x/%x\n", word(8), word(10), word(12));
    text += format("A: busnum=%u\\n\nA: devnum=%u\\n\n", bus_number, number);
    text += format("A: dev=%u:%u\\n\n", usb_major, minor);
    text += format("A: speed=%s\\n\n", speed_text(device.speed()));
    text += "A: bConfigurationValue=1\\n\n";
    text += format("A: idVendor=%04x\\n\nA: idProduct=%04x\\n\n", word(8), word(10));
    text += "H: descriptors=" + hex(descriptors) + "\n";
    return text;
}

Bytes RootHub::device_descriptor() const {
    return {18, 1, 0x00, 0x02, 9, 0, 1, 64, 0x6B, 0x1D, 0x02, 0x00, 0x01, 0x06, 0, 0, 0, 1};
}

Bytes RootHub::configuration_descriptor() const {
    return {9, 2, 25, 0, 1, 1, 0, 0xE0, 0, 9, 4, 0, 0, 1, 9, 0, 0, 0, 7, 5, 0x81, 3, 4, 0, 12};
}

Speed RootHub::speed() const {
    return Speed::high;
}

Reply RootHub::control(const Setup& /*setup*/, std::span<const std::uint8_t> /*data*/,
                       TimePoint /*now*/) {
    return Reply::stall();
}

Handshake RootHub::out(std::uint8_t /*endpoint*/, std::span<const std::uint8_t> /*packet*/,
                       TimePoint /*now*/) {
    return Handshake::stall;
}

Reply RootHub::in(std::uint8_t /*endpoint*/, TimePoint /*now*/) {
    return Reply::nak();
}

void RootHub::clear_halt(std::uint8_t /*endpoint*/) {}

void RootHub::reset() {}

} // namespace qaven::virtual_plug
