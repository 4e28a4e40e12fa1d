// The fields of USB/IP messages to bytes and back (Linux, Documentation/usb/usbip_protocol.rst).
#include "virtual/plug/usbip_message.h"

#include <algorithm>
#include <string_view>

namespace qaven::virtual_plug::usbip {
namespace {

constexpr std::uint16_t kVersion = 0x0111;
constexpr std::uint16_t kOpReqDevlist = 0x8005;
constexpr std::uint16_t kOpRepDevlist = 0x0005;
constexpr std::uint16_t kOpReqImport = 0x8003;
constexpr std::uint16_t kOpRepImport = 0x0003;

constexpr std::uint32_t kUsbipCmdSubmit = 1;
constexpr std::uint32_t kUsbipCmdUnlink = 2;
constexpr std::uint32_t kUsbipRetSubmit = 3;
constexpr std::uint32_t kUsbipRetUnlink = 4;

constexpr std::uint32_t kDirectionIn = 1;

constexpr std::size_t kPathSize = 256;

constexpr std::uint8_t kDescriptorInterface = 4;

std::uint32_t word_at(std::span<const std::uint8_t> bytes, std::size_t at) {
    std::uint32_t value = 0;
    for (const auto byte : bytes.subspan(at, 4)) {
        value = value << 8U | byte;
    }
    return value;
}

std::uint32_t half_at(std::span<const std::uint8_t> bytes, std::size_t at) {
    return static_cast<std::uint32_t>(bytes[at]) << 8U | bytes[at + 1];
}

void put_half(Bytes& out, unsigned value) {
    out.push_back(static_cast<std::uint8_t>(value >> 8U & 0xFFU));
    out.push_back(static_cast<std::uint8_t>(value & 0xFFU));
}

void put_word(Bytes& out, std::uint32_t value) {
    put_half(out, value >> 16U);
    put_half(out, value);
}

void put_text(Bytes& out, std::string_view text, std::size_t size) {
    const auto taken = text.substr(0, size - 1);
    out.insert(out.end(), taken.begin(), taken.end());
    out.insert(out.end(), size - taken.size(), 0);
}

// The numbers of a USB descriptor are little-endian.
unsigned descriptor_half(const Bytes& descriptor, std::size_t at) {
    return static_cast<unsigned>(descriptor.at(at)) | static_cast<unsigned>(descriptor.at(at + 1))
                                                          << 8U;
}

void put_reply_head(Bytes& out, std::uint16_t code, std::uint32_t status) {
    put_half(out, kVersion);
    put_half(out, code);
    put_word(out, status);
}

void put_device(Bytes& out, const ExportedDevice& exported) {
    const Bytes device = exported.device->device_descriptor();
    const Bytes configuration = exported.device->configuration_descriptor();
    put_text(out, "/sys/devices/virtual/usb/" + exported.bus_id, kPathSize);
    put_text(out, exported.bus_id, kBusIdSize);
    put_word(out, exported.bus);
    put_word(out, exported.number);
    put_word(out, static_cast<std::uint32_t>(exported.device->speed()));
    put_half(out, descriptor_half(device, 8));                     // idVendor
    put_half(out, descriptor_half(device, 10));                    // idProduct
    put_half(out, descriptor_half(device, 12));                    // bcdDevice
    out.insert(out.end(), device.begin() + 4, device.begin() + 7); // class, subclass, protocol
    out.push_back(configuration.at(5));                            // bConfigurationValue
    out.push_back(device.at(17));                                  // bNumConfigurations
    out.push_back(configuration.at(4));                            // bNumInterfaces
}

// Class, subclass and protocol of each interface.
void put_interfaces(Bytes& out, const Bytes& configuration) {
    for (std::size_t at = 0; at + 2 <= configuration.size() && configuration[at] >= 2;
         at += configuration[at]) {
        if (configuration[at + 1] == kDescriptorInterface && at + 9 <= configuration.size()) {
            const auto classes = std::span(configuration).subspan(at + 5, 3);
            out.insert(out.end(), classes.begin(), classes.end());
            out.push_back(0);
        }
    }
}

void put_head(Bytes& out, std::uint32_t command, std::uint32_t seq) {
    put_word(out, command);
    put_word(out, seq);
    out.insert(out.end(), 12, 0); // replies have no device, direction and endpoint
}

} // namespace

Request parse_request(std::span<const std::uint8_t, kRequestSize> bytes) {
    if (half_at(bytes, 0) != kVersion) {
        return Request::kUnknown;
    }
    switch (half_at(bytes, 2)) {
    case kOpReqDevlist:
        return Request::kList;
    case kOpReqImport:
        return Request::kImport;
    default:
        return Request::kUnknown;
    }
}

std::string parse_bus_id(std::span<const std::uint8_t, kBusIdSize> bytes) {
    return {bytes.begin(), std::find(bytes.begin(), bytes.end(), 0)};
}

std::uint32_t device_id(unsigned bus, unsigned number) {
    return bus << 16U | number;
}

Bytes devlist_reply(std::span<const ExportedDevice> devices) {
    Bytes out;
    put_reply_head(out, kOpRepDevlist, 0);
    put_word(out, static_cast<std::uint32_t>(devices.size()));
    for (const auto& exported : devices) {
        put_device(out, exported);
        put_interfaces(out, exported.device->configuration_descriptor());
    }
    return out;
}

Bytes import_reply(const ExportedDevice& exported) {
    Bytes out;
    put_reply_head(out, kOpRepImport, 0);
    put_device(out, exported);
    return out;
}

Bytes import_error_reply(ImportError reason) {
    Bytes out;
    put_reply_head(out, kOpRepImport, static_cast<std::uint32_t>(reason));
    return out;
}

Command parse_command(std::span<const std::uint8_t, kHeaderSize> bytes) {
    switch (word_at(bytes, 0)) {
    case kUsbipCmdSubmit: {
        Submit submit{.seq = word_at(bytes, 4),
                      .device = word_at(bytes, 8),
                      .in = word_at(bytes, 12) == kDirectionIn,
                      .endpoint = word_at(bytes, 16),
                      .flags = word_at(bytes, 20),
                      .length = word_at(bytes, 24),
                      .packets = word_at(bytes, 32)};
        std::copy_n(bytes.begin() + 40, virtual_usb::kSetupSize, submit.setup.begin());
        return submit;
    }
    case kUsbipCmdUnlink:
        return Unlink{
            .seq = word_at(bytes, 4), .device = word_at(bytes, 8), .victim = word_at(bytes, 20)};
    default:
        return {};
    }
}

void put_submit_reply(Bytes& out, std::uint32_t seq, int status, std::size_t actual,
                      std::span<const std::uint8_t> data) {
    put_head(out, kUsbipRetSubmit, seq);
    put_word(out, static_cast<std::uint32_t>(status));
    put_word(out, static_cast<std::uint32_t>(actual));
    out.insert(out.end(), 20, 0); // start frame, packets, errors (isochronous), padding
    out.insert(out.end(), data.begin(), data.end());
}

void put_unlink_reply(Bytes& out, std::uint32_t seq, int status) {
    put_head(out, kUsbipRetUnlink, seq);
    put_word(out, static_cast<std::uint32_t>(status));
    out.insert(out.end(), 24, 0);
}

} // namespace qaven::virtual_plug::usbip
