// HID reports to and from the identity-card reader. Both directions go over the control endpoint;
// the reader's interrupt endpoint never carries a reply.
#include "idcard/icc.h"
#include "support/diagnostics.h"

#include <libusb.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <span>
#include <unistd.h>

namespace diagnostics = qaven::diagnostics;
using qaven::idcard::reply_capacity;
using qaven::idcard::report_size;

namespace {

constexpr std::uint16_t reader_vendor = 0x2F7A;
constexpr std::uint16_t reader_product = 0x4463;
constexpr int reader_interface = 0;

// Class requests to and from an interface.
constexpr std::uint8_t to_interface = 0x21;
constexpr std::uint8_t from_interface = 0xA1;
constexpr std::uint8_t request_get_report = 0x01;
constexpr std::uint8_t request_set_report = 0x09;
// Report type in the high byte, report identifier 0 in the low one.
constexpr std::uint16_t input_report = 0x0100;
constexpr std::uint16_t output_report = 0x0200;
constexpr unsigned int no_time_limit = 0;

constexpr unsigned int default_tries = 500;
constexpr useconds_t poll_pause_us = 10'000;

using Report = std::span<unsigned char, report_size>;

libusb_device_handle* dev_handle = nullptr;
bool library_started = false;

int transfer_report(std::uint8_t request_type, std::uint8_t request, std::uint16_t value,
                    Report report) {
    if (dev_handle == nullptr) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    const int result =
        libusb_control_transfer(dev_handle, request_type, request, value, reader_interface,
                                report.data(), report_size, no_time_limit);
    return std::min(result, 0);
}

int set_report(Report report) {
    const int result = transfer_report(to_interface, request_set_report, output_report, report);
    if (result < 0) {
        diagnostics::line("set report failed ");
    }
    return result;
}

// A report that arrives short ends in zeros.
int get_report(Report report) {
    std::ranges::fill(report, static_cast<unsigned char>(0));
    return transfer_report(from_interface, request_get_report, input_report, report);
}

// The reader answers with zeros while the security module still works on the command.
bool is_ready(Report report) {
    return std::ranges::any_of(report, [](unsigned char byte) { return byte != 0; });
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
        usleep(poll_pause_us);
    }
    return 0;
}

} // namespace

int usb_device_open() {
    if (library_started) {
        usb_device_close();
    }

    int result = libusb_init(nullptr);
    if (result < 0) {
        diagnostics::line("initialise libusb failed ");
        return result;
    }
    library_started = true;

    dev_handle = libusb_open_device_with_vid_pid(nullptr, reader_vendor, reader_product);
    if (dev_handle == nullptr) {
        // The result stays that of the start-up: front ends go on and fail at their first transfer.
        diagnostics::line("open device failed ");
        return result;
    }

    if (libusb_kernel_driver_active(dev_handle, reader_interface) == 1) {
        diagnostics::line("Kernel Driver Active");
        if (libusb_detach_kernel_driver(dev_handle, reader_interface) == 0) {
            diagnostics::line("Kernel Driver Detached!");
        }
    }

    result = libusb_claim_interface(dev_handle, reader_interface);
    if (result < 0) {
        diagnostics::line("Claim Interface failed!");
        return result;
    }
    return 0;
}

int usb_device_close() {
    if (dev_handle != nullptr) {
        libusb_release_interface(dev_handle, reader_interface);
        libusb_close(dev_handle);
        dev_handle = nullptr;
    }
    if (library_started) {
        // libusb counts its users: an end without a start would take it from the bank-card path.
        libusb_exit(nullptr);
        library_started = false;
    }
    return 0;
}

int usb_device_write(unsigned char* data, unsigned long len) {
    if (data == nullptr && len > 0) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    std::span<unsigned char> rest(data, len);
    while (rest.size() > report_size) {
        if (const int result = set_report(rest.first<report_size>()); result < 0) {
            return result;
        }
        rest = rest.subspan(report_size);
    }
    std::array<unsigned char, report_size> last{};
    std::ranges::copy(rest, last.begin());
    return set_report(last);
}

int usb_device_read(unsigned char* buf, unsigned long* len,
                    int (*completed)(unsigned char*, unsigned long), unsigned int tries) {
    if (buf == nullptr || len == nullptr || completed == nullptr) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }

    std::array<unsigned char, report_size> first{};
    if (const int result = poll_report(first, tries == 0 ? default_tries : tries); result < 0) {
        return result;
    }
    std::ranges::copy(first, buf);
    *len = report_size;

    while (completed(buf, *len) == 0) {
        const int result = *len < reply_capacity ? get_report(Report(buf + *len, report_size))
                                                 : static_cast<int>(LIBUSB_ERROR_OVERFLOW);
        if (result < 0) {
            diagnostics::line("get report failed ");
            return result;
        }
        *len += report_size;
    }
    return 0;
}

int dump_recv_completed(unsigned char* /*buf*/, unsigned long /*len*/) {
    return 1;
}
