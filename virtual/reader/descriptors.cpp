// Descriptor bytes, field by field (USB 2.0, 9.6; HID 1.11, 6.2; CCID 1.1, 5.1).
#include "virtual/reader/descriptors.h"

#include <array>
#include <initializer_list>

namespace qaven::virtual_reader {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::uint8_t kClassHid = 0x03;
constexpr std::uint8_t kClassSmartCard = 0x0B;
constexpr std::uint8_t kTransferBulk = 2;
constexpr std::uint8_t kTransferInterrupt = 3;

constexpr std::uint8_t low(std::uint32_t value) {
    return static_cast<std::uint8_t>(value & 0xFFU);
}
constexpr std::uint8_t high(std::uint32_t value) {
    return low(value >> 8U);
}

// A vendor-specific keypad (HID 1.11, 6.2.2): one input report and one output report of eight
// bytes.
constexpr auto kKeypadReport = std::to_array<std::uint8_t>({
    0x06, 0x00, 0xFF,       // usage page: vendor-defined
    0x09, 0x01,             // usage 1
    0xA1, 0x01,             // application collection
    0x15, 0x00,             // logical minimum 0
    0x26, 0xFF, 0x00,       // logical maximum 255
    0x75, 0x08,             // eight bits
    0x95, 0x08,             // eight times
    0x09, 0x01, 0x81, 0x02, // input
    0x09, 0x01, 0x91, 0x02, // output
    0xC0,                   // end of collection
});

// The smart card device class descriptor (CCID 1.1, 5.1).
constexpr std::array<std::uint8_t, 54> kCcidClassDescriptor{
    54,
    0x21, // bLength, bDescriptorType
    0x10,
    0x01, // bcdCCID 1.10
    0,    // bMaxSlotIndex: one slot per interface
    0x07, // bVoltageSupport: 5 V, 3 V, 1.8 V
    0x01,
    0x00,
    0x00,
    0x00, // dwProtocols: T=0
    0xA0,
    0x0F,
    0x00,
    0x00, // dwDefaultClock: 4 MHz
    0xA0,
    0x0F,
    0x00,
    0x00, // dwMaximumClock
    0,    // bNumClockSupported: automatic
    0x01,
    0x2A,
    0x00,
    0x00, // dwDataRate: 4 MHz / 372
    0x16,
    0x40,
    0x05,
    0x00, // dwMaxDataRate
    0,    // bNumDataRatesSupported: automatic
    0xFE,
    0x00,
    0x00,
    0x00, // dwMaxIFSD
    0x00,
    0x00,
    0x00,
    0x00, // dwSynchProtocols
    0x00,
    0x00,
    0x00,
    0x00, // dwMechanical
    0xBE,
    0x04,
    0x02,
    0x00,                       // dwFeatures: all automatic, short APDU level
    low(kMaxCcidMessageLength), // dwMaxCCIDMessageLength
    high(kMaxCcidMessageLength),
    0x00,
    0x00, //
    0xFF,
    0xFF, // bClassGetResponse, bClassEnvelope: echo
    0x00,
    0x00, // wLcdLayout: no display
    0,    // bPINSupport
    1,    // bMaxCCIDBusySlots
};

void append(Bytes& to, std::initializer_list<std::uint8_t> bytes) {
    to.insert(to.end(), bytes.begin(), bytes.end());
}

void append_endpoint(Bytes& to, std::uint8_t address, std::uint8_t attributes, std::uint8_t size,
                     std::uint8_t interval) {
    append(to, {7, 5, address, attributes, size, 0, interval});
}

void append_ccid(Bytes& to, const CcidInterface& interface) {
    append(to, {9, 4, interface.number, 0, 3, kClassSmartCard, 0, 0, 0});
    to.insert(to.end(), kCcidClassDescriptor.begin(), kCcidClassDescriptor.end());
    append_endpoint(to, interface.bulk_out, kTransferBulk, kBulkPacketSize, 0);
    append_endpoint(to, interface.bulk_in, kTransferBulk, kBulkPacketSize, 0);
    append_endpoint(to, interface.interrupt_in, kTransferInterrupt, kInterruptPacketSize, 16);
}

} // namespace

Bytes device_descriptor() {
    return {
        18,
        1, // bLength, bDescriptorType
        0x00,
        0x02, // bcdUSB 2.00
        0,
        0,
        0,  // class per interface
        64, // bMaxPacketSize0
        low(kVendorId),
        high(kVendorId), //
        low(kProductId),
        high(kProductId), //
        0x00,
        0x01, // bcdDevice 1.00
        1,
        2,
        0, // iManufacturer, iProduct, no serial number
        1, // bNumConfigurations
    };
}

Bytes configuration_descriptor() {
    Bytes bytes{9, 2, 0, 0, 3, 1, 0, 0x80, 100}; // three interfaces, bus-powered, 200 mA
    append(bytes, {9, 4, kKeypadInterface, 0, 1, kClassHid, 0, 0, 0});
    const Bytes hid = keypad_hid_descriptor();
    bytes.insert(bytes.end(), hid.begin(), hid.end());
    append_endpoint(bytes, kKeypadInterruptIn, kTransferInterrupt, kInterruptPacketSize, 10);
    append_ccid(bytes, kSlot1);
    append_ccid(bytes, kSlot2);
    bytes[2] = low(static_cast<std::uint32_t>(bytes.size()));
    bytes[3] = high(static_cast<std::uint32_t>(bytes.size()));
    return bytes;
}

Bytes keypad_hid_descriptor() {
    // bLength, type, bcdHID 1.11, no country, one report descriptor and its length.
    return {9, 0x21, 0x11, 0x01, 0, 1, 0x22, low(kKeypadReport.size()), 0};
}

Bytes keypad_report_descriptor() {
    return {kKeypadReport.begin(), kKeypadReport.end()};
}

} // namespace qaven::virtual_reader
