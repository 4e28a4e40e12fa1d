// HID reports to and from the identity-card reader. Both directions go over the control endpoint;
// the reader's interrupt endpoint never carries a reply.
#include "idcard/hid_transport.h"

#include "idcard/icc.h"
#include "support/diagnostics.h"

#include <libusb.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <unistd.h>

namespace qaven::idcard {

namespace {

constexpr std::uint16_t kReaderVendor = 0x2F7A;
constexpr std::uint16_t kReaderProduct = 0x4463;
constexpr int kReaderInterface = 0;

// Class requests to and from an interface.
constexpr std::uint8_t kToInterface = 0x21;
constexpr std::uint8_t kFromInterface = 0xA1;
constexpr std::uint8_t kGetReport = 0x01;
constexpr std::uint8_t kSetReport = 0x09;
// Report type in the high byte, report identifier 0 in the low one.
constexpr std::uint16_t kInputReport = 0x0100;
constexpr std::uint16_t kOutputReport = 0x0200;
constexpr unsigned int kNoTimeLimit = 0;

constexpr unsigned int kDefaultTries = 500;
constexpr useconds_t kPollPauseUs = 10'000;

using Report = std::span<std::uint8_t, kReportSize>;

libusb_device_handle* dev_handle = nullptr;
bool library_started = false;

int transfer_report(std::uint8_t request_type, std::uint8_t request, std::uint16_t value,
                    Report report) {
    if (dev_handle == nullptr) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    const int result =
        libusb_control_transfer(dev_handle, request_type, request, value, kReaderInterface,
                                report.data(), kReportSize, kNoTimeLimit);
    return std::min(result, 0);
}

int set_report(Report report) {
    const int result = transfer_report(kToInterface, kSetReport, kOutputReport, report);
    if (result < 0) {
        diagnostics::line("set report failed ");
    }
    return result;
}

// A report that arrives short ends in zeros.
int get_report(Report report) {
    std::ranges::fill(report, static_cast<std::uint8_t>(0));
    return transfer_report(kFromInterface, kGetReport, kInputReport, report);
}

// The reader answers with zeros while the security module still works on the command.
bool is_ready(Report report) {
    return std::ranges::any_of(report, [](std::uint8_t byte) { return byte != 0; });
}

int poll_report(Report report, unsigned int tries) {
    for (unsigned int i = 0; i < tries; ++i) {
        const int result = get_report(report);
        if (result < 0) {
            // The line of dots on the console ends here.
            diagnostics::line("\nget report failed ");
            return result;
        }
        if (is_ready(report)) {
            return 0;
        }
        diagnostics::error_text(".");
        usleep(kPollPauseUs);
    }
    return 0;
}

void close() {
    if (dev_handle != nullptr) {
        libusb_release_interface(dev_handle, kReaderInterface);
        libusb_close(dev_handle);
        dev_handle = nullptr;
    }
    if (library_started) {
        // libusb counts its users: an end without a start would take it from the bank-card path.
        libusb_exit(nullptr);
        library_started = false;
    }
}

int open() {
    if (library_started) {
        close();
    }

    int result = libusb_init(nullptr);
    if (result < 0) {
        diagnostics::line("initialise libusb failed ");
        return result;
    }
    library_started = true;

    dev_handle = libusb_open_device_with_vid_pid(nullptr, kReaderVendor, kReaderProduct);
    if (dev_handle == nullptr) {
        // The result stays that of the start-up: front ends go on and fail at their first transfer.
        diagnostics::line("open device failed ");
        return result;
    }

    if (libusb_kernel_driver_active(dev_handle, kReaderInterface) == 1) {
        diagnostics::line("Kernel Driver Active");
        if (libusb_detach_kernel_driver(dev_handle, kReaderInterface) == 0) {
            diagnostics::line("Kernel Driver Detached!");
        }
    }

    result = libusb_claim_interface(dev_handle, kReaderInterface);
    if (result < 0) {
        diagnostics::line("Claim Interface failed!");
        return result;
    }
    return 0;
}

} // namespace

int send_reports(std::span<std::uint8_t> data) {
    std::span<std::uint8_t> rest = data;
    while (rest.size() > kReportSize) {
        if (const int result = set_report(rest.first<kReportSize>()); result < 0) {
            return result;
        }
        rest = rest.subspan(kReportSize);
    }
    std::array<std::uint8_t, kReportSize> last{};
    std::ranges::copy(rest, last.begin());
    return set_report(last);
}

int receive_reports(std::span<std::uint8_t> place, std::size_t& length, const Completed& completed,
                    unsigned int tries) {
    std::array<std::uint8_t, kReportSize> first{};
    if (const int result = poll_report(first, tries == 0 ? kDefaultTries : tries); result < 0) {
        return result;
    }
    std::ranges::copy(first, place.begin());
    length = kReportSize;

    while (!completed(place.first(length))) {
        const int result = length < kReplyCapacity
                               ? get_report(place.subspan(length).first<kReportSize>())
                               : static_cast<int>(LIBUSB_ERROR_OVERFLOW);
        if (result < 0) {
            diagnostics::line("get report failed ");
            return result;
        }
        length += kReportSize;
    }
    return 0;
}

} // namespace qaven::idcard

namespace idcard = qaven::idcard;

int usb_device_open() {
    return idcard::open();
}

int usb_device_close() {
    idcard::close();
    return 0;
}

int usb_device_write(unsigned char* data, unsigned long len) {
    if (data == nullptr && len > 0) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return idcard::send_reports({data, len});
}

int usb_device_read(unsigned char* buf, unsigned long* len,
                    int (*completed)(unsigned char*, unsigned long), unsigned int tries) {
    if (buf == nullptr || len == nullptr || completed == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    std::size_t length = 0;
    const int result = idcard::receive_reports(
        {buf, idcard::kReplyCapacity}, length,
        [completed](std::span<std::uint8_t> received) {
            return completed(received.data(), received.size()) != 0;
        },
        tries);
    if (length > 0) {
        *len = length;
    }
    return result;
}

int dump_recv_completed(unsigned char* /*buf*/, unsigned long /*len*/) {
    return 1;
}
