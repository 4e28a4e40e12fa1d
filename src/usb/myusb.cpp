// libusb and nothing else: enumeration, one claimed interface, synchronous bulk transfers.
#include "usb/myusb.h"

#include "support/diagnostics.h"
#include "usb/link_state.h"

#include <algorithm>
#include <climits>
#include <cstdint>
#include <span>

namespace diagnostics = qaven::diagnostics;

namespace {

constexpr std::uint16_t low16(int identifier) {
    return static_cast<std::uint16_t>(static_cast<unsigned int>(identifier) & 0xFFFFU);
}

// A negative length becomes one that no transfer takes.
std::span<std::uint8_t> host_bytes(unsigned char* buf, int len) {
    return {buf, static_cast<std::size_t>(len)};
}

void record_endpoints(const libusb_interface_descriptor& setting,
                      std::span<int, Myusb::kMaxEndpoints> row) {
    const auto count = std::min<std::size_t>(setting.bNumEndpoints, row.size());
    const std::span endpoints(setting.endpoint, count);
    for (std::size_t k = 0; k < count; ++k) {
        row[k] = endpoints[k].bEndpointAddress;
    }
}

} // namespace

void Myusb::init(int vid, int pid) {
    vendor_id = vid;
    product_id = pid;
    ctx = nullptr;

    // A connection that is still held, or a start whose reader was never found, has had no close.
    // Ending it here keeps starts and ends of the default context paired over any number of
    // attempts.
    if (handle != nullptr) {
        close();
    } else if (library_started) {
        libusb_exit(ctx);
    }
    library_started = libusb_init(nullptr) >= 0;
    if (!library_started) {
        diagnostics::error_text("failed to initialise libusb\n");
    }

    libusb_device** list = nullptr;
    // libusb dereferences its default context unseen, so a start-up that failed counts as an
    // enumeration that failed.
    const ssize_t count = library_started ? libusb_get_device_list(ctx, &list)
                                          : static_cast<ssize_t>(LIBUSB_ERROR_OTHER);
    if (count < 0) {
        diagnostics::system_error("Get Device Error\n");
        return;
    }
    for (libusb_device* dev : std::span(list, static_cast<std::size_t>(count))) {
        printdev(dev);
    }
    libusb_free_device_list(list, 1);
}

void Myusb::printdev(libusb_device* dev) {
    libusb_device_descriptor device{};
    if (libusb_get_device_descriptor(dev, &device) < 0) {
        diagnostics::line("failed to get device descriptor");
        return;
    }
    libusb_config_descriptor* configuration = nullptr;
    if (libusb_get_config_descriptor(dev, 0, &configuration) < 0 || configuration == nullptr) {
        return;
    }
    if (device.idVendor == vendor_id && device.idProduct == product_id) {
        const auto interfaces =
            std::min<std::size_t>(configuration->bNumInterfaces, kMaxInterfaces);
        const std::span all(configuration->interface, interfaces);
        for (std::size_t i = 0; i < interfaces; ++i) {
            const std::span settings(all[i].altsetting,
                                     static_cast<std::size_t>(std::max(all[i].num_altsetting, 0)));
            for (const libusb_interface_descriptor& setting : settings) {
                record_endpoints(setting, std::span<int, kMaxEndpoints>(endpoint_table[i]));
            }
        }
    }
    libusb_free_config_descriptor(configuration);
}

int Myusb::setInterface(int n) {
    interface_number = n;
    ep_out = 0;
    ep_in = 0;
    if (n >= 0 && n < kMaxInterfaces && endpoint_table[n][0] != 0) {
        // A CCID interface lists its two bulk endpoints first and its interrupt endpoint third. IN
        // addresses carry bit 7, so the larger of the two is IN in whichever order they stand.
        ep_out = std::min(endpoint_table[n][0], endpoint_table[n][1]);
        ep_in = std::max(endpoint_table[n][0], endpoint_table[n][1]);
    }
    diagnostics::text("iccep0 = %d\niccep1 = %d\n", ep_out, ep_in);
    return 0;
}

bool Myusb::give_back() {
    const bool released =
        handle != nullptr && libusb_release_interface(handle, interface_number) == 0;
    if (handle != nullptr) {
        libusb_close(handle);
        handle = nullptr;
    }
    interface_claimed = false;
    return released;
}

int Myusb::open() {
    give_back();
    qaven::link::of(this).disturbed = false;
    handle = library_started
                 ? libusb_open_device_with_vid_pid(ctx, low16(vendor_id), low16(product_id))
                 : nullptr;
    if (handle == nullptr) {
        diagnostics::system_error("Cannot open device\n");
        return -1;
    }
    diagnostics::line("Device Opened");

    if (libusb_kernel_driver_active(handle, interface_number) == 1) {
        diagnostics::line("Kernel Driver Active");
        if (libusb_detach_kernel_driver(handle, interface_number) == 0) {
            diagnostics::line("Kernel Driver Detached!");
        }
    }
    if (libusb_claim_interface(handle, interface_number) < 0) {
        diagnostics::system_error("Cannot Claim Interface\n");
        return -1;
    }
    interface_claimed = true;
    return 0;
}

void Myusb::close() {
    diagnostics::line("%s", give_back() ? "Released Interface!" : "Cannot Released Interface!");
    if (library_started) {
        libusb_exit(ctx);
        library_started = false;
    }
    diagnostics::line("Device Closed!");
}

int Myusb::transfer(int endpoint, std::span<std::uint8_t> bytes, unsigned int timeout_ms) {
    transferred = 0;
    if (handle == nullptr) {
        return kNoHandle;
    }
    if (bytes.size() > INT_MAX) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    auto& link = qaven::link::of(this);
    const int result = transfer_until(qaven::link::deadline_of(this), endpoint, bytes, timeout_ms);
    link.disturbed = link.disturbed || result != 0;
    return result;
}

int Myusb::transfer_until(std::chrono::steady_clock::time_point until, int endpoint,
                          std::span<std::uint8_t> bytes, unsigned int timeout_ms) {
    using std::chrono::steady_clock;
    if (until != steady_clock::time_point{}) {
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(until - steady_clock::now()).count();
        if (left <= 0) {
            return LIBUSB_ERROR_TIMEOUT;
        }
        timeout_ms = static_cast<unsigned int>(std::min<std::int64_t>(timeout_ms, left));
    }
    return libusb_bulk_transfer(handle, static_cast<std::uint8_t>(endpoint), bytes.data(),
                                static_cast<int>(bytes.size()), &transferred, timeout_ms);
}

bool Myusb::reset() const {
    return handle != nullptr && libusb_reset_device(handle) == 0;
}

int Myusb::send(std::span<std::uint8_t> bytes) {
    const int result = transfer(ep_out, bytes, kTransferTimeoutMs);
    diagnostics::line("%s", result == 0 ? "write Successful!" : "write error!");
    return result;
}

int Myusb::receive(std::span<std::uint8_t> place) {
    const int result = transfer(ep_in, place, kTransferTimeoutMs);
    if (result != 0) {
        diagnostics::line("read error!");
        return kReadFailed;
    }
    diagnostics::text("read Successful!\nread-ret = %d, transferred =%d\n", result, transferred);
    return 0;
}

int Myusb::receive(std::span<std::uint8_t> place, int timeout_ms) {
    // libusb reads a time-out of 0 as "for ever"; a host that asks for none or less gets the
    // shortest one there is.
    const auto timeout = static_cast<unsigned int>(std::max(timeout_ms, 1));
    const int result = transfer(ep_in, place, timeout);
    diagnostics::text("%s\nreadtimeout-ret = %d, transferred =%d\n",
                      result == 0 ? "read Successful!" : "read error!", result, transferred);
    return result;
}

int Myusb::write(unsigned char* buf, int len) {
    return send(host_bytes(buf, len));
}

int Myusb::read(unsigned char* buf, int len) {
    return receive(host_bytes(buf, len));
}

int Myusb::readTimeout(unsigned char* buf, int len, int timeout_ms) {
    return receive(host_bytes(buf, len), timeout_ms);
}
