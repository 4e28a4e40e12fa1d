// Descriptors and reports of the identity-card reader.
#include "virtual/idcard/idcard_device.h"

#include "virtual/idcard/samv.h"

#include <algorithm>
#include <array>
#include <optional>
#include <utility>

namespace qaven::virtual_idcard {
namespace {

using virtual_usb::Handshake;
using virtual_usb::Reply;
using virtual_usb::Setup;
using virtual_usb::TimePoint;

constexpr std::uint8_t kTheInterface = 0;
// The HID class requires one (HID 1.11, 4.4); nothing ever comes from it.
constexpr std::uint8_t kInterruptIn = 0x81;

// Request type and request in one number, as in the set-up bytes (HID 1.11, 7.1 and 7.2).
constexpr std::uint16_t kGetInterfaceDescriptor = 0x8106;
constexpr std::uint16_t kGetReport = 0xA101;
constexpr std::uint16_t kSetReport = 0x2109;
constexpr std::uint16_t kSetIdle = 0x210A;

constexpr std::uint8_t kDescriptorHid = 0x21;
constexpr std::uint8_t kDescriptorReport = 0x22;
// Report type in the high byte, report identifier 0 in the low one.
constexpr std::uint16_t kInputReport = 0x0100;
constexpr std::uint16_t kOutputReport = 0x0200;

constexpr std::uint8_t low(std::uint16_t value) {
    return static_cast<std::uint8_t>(value & 0xFFU);
}
constexpr std::uint8_t high(std::uint16_t value) {
    return static_cast<std::uint8_t>(value >> 8U);
}

// Vendor-defined (HID 1.11, 6.2.2): one input and one output report of 64 bytes.
constexpr auto kReportDescriptor = std::to_array<std::uint8_t>({
    0x06, 0x00,        0xFF,       // usage page: vendor-defined
    0x09, 0x01,                    // usage 1
    0xA1, 0x01,                    // application collection
    0x15, 0x00,                    // logical minimum 0
    0x26, 0xFF,        0x00,       // logical maximum 255
    0x75, 0x08,                    // eight bits
    0x95, kReportSize,             // as many times
    0x09, 0x01,        0x81, 0x02, // input
    0x09, 0x01,        0x91, 0x02, // output
    0xC0,                          // end of collection
});

// bLength, type, bcdHID 1.11, no country, one report descriptor and its length.
constexpr std::array<std::uint8_t, 9> kHidDescriptor{
    9, kDescriptorHid, 0x11, 0x01, 0, 1, kDescriptorReport, kReportDescriptor.size(), 0};

class IdCardReader : public virtual_usb::Device {
  public:
    explicit IdCardReader(std::optional<IdentityCard> card) : samv_(std::move(card)) {}

    [[nodiscard]] Bytes device_descriptor() const override {
        return {18,
                1, // bLength, bDescriptorType
                0x00,
                0x02, // bcdUSB 2.00
                0,
                0,
                0,
                64, // class per interface, bMaxPacketSize0
                low(kVendorId),
                high(kVendorId), //
                low(kProductId),
                high(kProductId), //
                0x00,
                0x01, // bcdDevice 1.00
                1,
                2,
                0,  // manufacturer, product, no serial number
                1}; // bNumConfigurations
    }

    [[nodiscard]] Bytes configuration_descriptor() const override {
        Bytes bytes{9, 2, 0, 0, 1, 1, 0, 0x80, 100}; // one interface, bus-powered, 200 mA
        const std::array<std::uint8_t, 9> interface { 9, 4, kTheInterface, 0, 1, 0x03, 0, 0, 0 };
        const std::array<std::uint8_t, 7> endpoint{7, 5, kInterruptIn, 3, kReportSize, 0, 10};
        bytes.insert(bytes.end(), interface.begin(), interface.end());
        bytes.insert(bytes.end(), kHidDescriptor.begin(), kHidDescriptor.end());
        bytes.insert(bytes.end(), endpoint.begin(), endpoint.end());
        bytes[2] = static_cast<std::uint8_t>(bytes.size()); // wTotalLength
        return bytes;
    }

    [[nodiscard]] std::string string(std::uint8_t index) const override {
        switch (index) {
        case 1:
            return "qaven";
        case 2:
            return "Virtual Identity Card Reader";
        default:
            return {};
        }
    }

    Reply control(const Setup& setup, std::span<const std::uint8_t> data, TimePoint now) override {
        if (low(setup.index) != kTheInterface) {
            return Reply::stall();
        }
        switch (setup.request_type << 8U | setup.request) {
        case kGetInterfaceDescriptor:
            return descriptor(high(setup.value));
        case kSetIdle:
            return Reply::ack();
        case kSetReport:
            return setup.value == kOutputReport ? take_report(data, now) : Reply::stall();
        case kGetReport:
            return setup.value == kInputReport ? Reply::ack(give_report(now)) : Reply::stall();
        default:
            return Reply::stall();
        }
    }

    Handshake out(std::uint8_t /*endpoint*/, std::span<const std::uint8_t> /*packet*/,
                  TimePoint /*now*/) override {
        return Handshake::kStall;
    }
    Reply in(std::uint8_t /*endpoint*/, TimePoint /*now*/) override { return Reply::nak(); }
    void clear_halt(std::uint8_t /*endpoint*/) override {}

    void reset() override {
        collector_.reset();
        samv_.reset();
        reply_.clear();
    }
    void unplugged() override { reset(); }

  private:
    static Reply descriptor(std::uint8_t type) {
        switch (type) {
        case kDescriptorHid:
            return Reply::ack({kHidDescriptor.begin(), kHidDescriptor.end()});
        case kDescriptorReport:
            return Reply::ack({kReportDescriptor.begin(), kReportDescriptor.end()});
        default:
            return Reply::stall();
        }
    }

    Reply take_report(std::span<const std::uint8_t> report, TimePoint now) {
        if (report.size() > kReportSize) {
            return Reply::stall();
        }
        // What is left of an earlier reply is lost.
        reply_.clear();
        if (const auto frame = collector_.take(report)) {
            reply_ = samv_.execute(*frame);
            ready_ = now + kProcessingTime;
        }
        return Reply::ack();
    }

    // The next piece of the reply; zeros while there is none.
    Bytes give_report(TimePoint now) {
        Bytes report;
        if (now >= ready_) {
            const auto end =
                reply_.begin() +
                static_cast<std::ptrdiff_t>(std::min<std::size_t>(kReportSize, reply_.size()));
            report.assign(reply_.begin(), end);
            reply_.erase(reply_.begin(), end);
        }
        report.resize(kReportSize, 0);
        return report;
    }

    Samv samv_;
    FrameCollector collector_;
    Bytes reply_;
    TimePoint ready_;
};

} // namespace

std::unique_ptr<virtual_usb::Device> make_idcard_reader(std::string_view kind) {
    if (kind == "resident") {
        return std::make_unique<IdCardReader>(resident_card());
    }
    if (kind == "foreign") {
        return std::make_unique<IdCardReader>(foreign_permit());
    }
    if (kind == "hmt") {
        return std::make_unique<IdCardReader>(hmt_permit());
    }
    if (kind == "none") {
        return std::make_unique<IdCardReader>(std::nullopt);
    }
    return nullptr;
}

} // namespace qaven::virtual_idcard
