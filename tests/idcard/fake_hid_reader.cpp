// libusb's symbols (and usleep), defined in the test executable so that they come before the
// libraries'.
#include "fake_hid_reader.h"

#include <libusb.h>

#include <algorithm>
#include <cstdio>
#include <span>
#include <unistd.h>

namespace idcard_test {

namespace {
constexpr std::size_t report_size = 64;
constexpr unsigned direction_in = 0x80;

libusb_device_handle* handle() {
    static char device = 0;
    return reinterpret_cast<libusb_device_handle*>(&device);
}

int note(const std::string& call, int result) {
    reader().calls.push_back(call);
    return result;
}

std::string with_number(const char* call, int number) {
    return std::string(call) + ' ' + std::to_string(number);
}

Bytes bytes_of(std::span<const unsigned char> data) {
    return {data.begin(), data.end()};
}

void expect_own_handle(const libusb_device_handle* device) {
    if (device != handle()) {
        reader().calls.emplace_back("a foreign handle");
    }
}
} // namespace

FakeHidReader& reader() {
    static FakeHidReader the_reader;
    return the_reader;
}

void FakeHidReader::answer(const Bytes& reply) {
    for (std::size_t at = 0; at < reply.size(); at += report_size) {
        const auto first = reply.begin() + static_cast<std::ptrdiff_t>(at);
        const auto count = std::min(report_size, reply.size() - at);
        input_reports.emplace_back(first, first + static_cast<std::ptrdiff_t>(count));
    }
}

std::vector<Bytes> FakeHidReader::sent() const {
    std::vector<Bytes> reports;
    for (const ControlTransfer& transfer : transfers) {
        if ((transfer.request_type & direction_in) == 0) {
            reports.push_back(transfer.data);
        }
    }
    return reports;
}

std::size_t FakeHidReader::reports_asked_for() const {
    return static_cast<std::size_t>(
        std::ranges::count_if(transfers, [](const ControlTransfer& transfer) {
            return (transfer.request_type & direction_in) != 0;
        }));
}

} // namespace idcard_test

using namespace idcard_test;

extern "C" {

int libusb_init(libusb_context** ctx) {
    return note(ctx == nullptr ? "init" : "init of a context", reader().init_result);
}

void libusb_exit(libusb_context* ctx) {
    note(ctx == nullptr ? "exit" : "exit of a context", 0);
}

libusb_device_handle* libusb_open_device_with_vid_pid(libusb_context* ctx, uint16_t vendor_id,
                                                      uint16_t product_id) {
    char call[32];
    std::snprintf(call, sizeof call, "open %04x:%04x%s", vendor_id, product_id,
                  ctx == nullptr ? "" : " of a context");
    note(call, 0);
    return reader().attached ? handle() : nullptr;
}

void libusb_close(libusb_device_handle* dev_handle) {
    expect_own_handle(dev_handle);
    note("close", 0);
}

int libusb_kernel_driver_active(libusb_device_handle* dev, int interface_number) {
    expect_own_handle(dev);
    return note(with_number("driver?", interface_number), reader().driver_active_result);
}

int libusb_detach_kernel_driver(libusb_device_handle* dev, int interface_number) {
    expect_own_handle(dev);
    return note(with_number("detach", interface_number), reader().detach_result);
}

int libusb_claim_interface(libusb_device_handle* dev, int interface_number) {
    expect_own_handle(dev);
    return note(with_number("claim", interface_number), reader().claim_result);
}

int libusb_release_interface(libusb_device_handle* dev, int interface_number) {
    expect_own_handle(dev);
    return note(with_number("release", interface_number), 0);
}

int libusb_control_transfer(libusb_device_handle* dev_handle, uint8_t request_type, uint8_t request,
                            uint16_t value, uint16_t index, unsigned char* data, uint16_t length,
                            unsigned int timeout) {
    expect_own_handle(dev_handle);
    const bool in = (request_type & direction_in) != 0;
    const std::size_t number = reader().transfers.size();
    reader().transfers.push_back({request_type, request, value, index, length, timeout,
                                  in ? Bytes{} : bytes_of({data, length})});
    if (const auto failure = reader().failures_at.find(number);
        failure != reader().failures_at.end()) {
        return failure->second;
    }
    Bytes report(length, 0);
    if (!in) {
        return length;
    }
    if (!reader().input_reports.empty()) {
        report = reader().input_reports.front();
        reader().input_reports.pop_front();
    }
    std::ranges::copy(report, data);
    return static_cast<int>(report.size());
}

int usleep(useconds_t useconds) {
    reader().pauses_us.push_back(useconds);
    return 0;
}

} // extern "C"
