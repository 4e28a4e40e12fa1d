// Transfers on the virtual port, and the clock that they move.
#include "port_libusb.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

namespace qaven::sweep {

namespace {

using virtual_usb::Completion;
using virtual_usb::Urb;

Bus* current_bus = nullptr;

// Of the current bus, in nanoseconds; 0 without one.
std::atomic<std::int64_t> shown_clock = 0;

// A clock that has run for a while: nothing is earlier than the first moment.
constexpr std::chrono::hours clock_start{1};

// What the calendar says when the clock stands at zero.
constexpr std::chrono::seconds calendar_start{1'790'000'000};

timespec as_timespec(Duration time) {
    const auto whole = std::chrono::duration_cast<std::chrono::seconds>(time);
    timespec result{};
    result.tv_sec = whole.count();
    result.tv_nsec = (time - whole).count();
    return result;
}

std::uint16_t little_endian(std::span<const std::uint8_t> bytes, std::size_t at) {
    return static_cast<std::uint16_t>(bytes[at] | (bytes[at + 1] << 8U));
}

// The device of these descriptors, as libusb lists it.
libusb_device listed(const virtual_usb::Device& device) {
    const virtual_usb::Bytes identity = device.device_descriptor();
    libusb_device result;
    result.vendor = little_endian(identity, 8);
    result.product = little_endian(identity, 10);
    const virtual_usb::Bytes bytes = device.configuration_descriptor();
    libusb_device::Interface* interface = nullptr;
    for (std::size_t at = 0; at < bytes.size(); at += bytes[at]) {
        const std::size_t number = bytes[at + 2]; // of an endpoint: its address
        if (bytes[at + 1] == LIBUSB_DT_INTERFACE) {
            result.interfaces.resize(std::max(result.interfaces.size(), number + 1));
            interface = &result.interfaces[number];
            interface->settings.emplace_back();
        } else if (bytes[at + 1] == LIBUSB_DT_ENDPOINT) {
            interface->settings.back().push_back(static_cast<std::uint8_t>(number));
        }
    }
    return result;
}

// How libusb reports the end of a URB that the kernel completed.
int libusb_code(int status) {
    switch (status) {
    case 0:
    case -EREMOTEIO:
        return LIBUSB_SUCCESS;
    case -EPIPE:
        return LIBUSB_ERROR_PIPE;
    case -EOVERFLOW:
        return LIBUSB_ERROR_OVERFLOW;
    case -ENODEV:
    case -ESHUTDOWN:
        return LIBUSB_ERROR_NO_DEVICE;
    default:
        return LIBUSB_ERROR_IO;
    }
}

} // namespace

Bus::Bus(virtual_usb::Device& device)
    : device_(device), now_(virtual_usb::TimePoint{} + clock_start), begin_(now_) {
    current_bus = this;
    set_clock(now_);
}

Bus::~Bus() {
    current_bus = nullptr;
    shown_clock = 0;
}

std::optional<Duration> bus_clock() {
    const Duration shown{shown_clock};
    return shown.count() == 0 ? std::nullopt : std::optional(shown);
}

void Bus::set_clock(virtual_usb::TimePoint now) {
    now_ = now;
    shown_clock = Duration(now.time_since_epoch()).count();
}

void Bus::plug(std::vector<virtual_usb::Fault> faults) {
    unplug();
    LibusbStandIn::plug(listed(device_));
    port_.emplace(device_, nullptr, std::move(faults));
    port_->enumerate(now_);
}

void Bus::unplug() {
    if (port_) {
        port_->unplug();
    }
    LibusbStandIn::unplug();
}

bool Bus::plugged() const {
    return port_ && port_->plugged();
}

void Bus::reset_port() {
    if (plugged()) {
        port_->enumerate(now_);
    }
}

void Bus::pass(Duration time) {
    set_clock(now_ + time);
}

void Bus::end_process() {
    if (under_way_) {
        port_->discard(*under_way_);
        under_way_.reset();
    }
    if (port_) {
        port_->completions().clear();
    }
    take_all_back();
}

Bus::Spent Bus::spent() const {
    return {.time = now_ - begin_, .allowed = allowed_, .transfers = transfers_.size()};
}

void Bus::witness(Moment moment) const {
    if (witness_) {
        witness_(moment);
    }
}

int Bus::bulk_transfer(test::Transfer& transfer) {
    Transfer record;
    record.endpoint = transfer.endpoint;
    record.asked = transfer.data.size();
    record.timeout_ms = transfer.timeout_ms;
    if (!transfer.in()) {
        record.carried.assign(transfer.data.begin(), transfer.data.end());
    }
    record.result = transfer.obstacle;
    if (transfer.obstacle == 0) {
        witness(Moment::before);
    }
    // The witness may have put another device in this one's place.
    if (transfer.obstacle == 0 && !transfer.device->plugged) {
        record.result = LIBUSB_ERROR_NO_DEVICE;
    } else if (transfer.obstacle == 0) {
        Urb urb;
        urb.endpoint = transfer.endpoint;
        urb.data = record.carried;
        record.result = run(std::move(urb), transfer);
        record.submitted = true;
        record.moved = transfer.moved;
        if (transfer.in()) {
            const auto received =
                transfer.data.first(std::min(transfer.moved, transfer.data.size()));
            record.carried.assign(received.begin(), received.end());
        }
    }
    allowed_ += std::chrono::milliseconds(transfer.timeout_ms);
    transfers_.push_back(std::move(record));
    return transfers_.back().result;
}

int Bus::control_transfer(test::ControlTransfer& transfer) {
    if (transfer.obstacle != 0) {
        return transfer.obstacle;
    }
    const auto low = [](std::size_t number) { return static_cast<std::uint8_t>(number & 0xFFU); };
    const auto high = [](std::size_t number) { return static_cast<std::uint8_t>(number >> 8U); };
    const std::size_t length = transfer.data.size();
    Urb urb;
    urb.type = virtual_usb::TransferType::kControl;
    urb.endpoint = transfer.endpoint;
    urb.setup = {transfer.type,        transfer.request,    low(transfer.value),
                 high(transfer.value), low(transfer.index), high(transfer.index),
                 low(length),          high(length)};
    if (!transfer.in()) {
        urb.data.assign(transfer.data.begin(), transfer.data.end());
    }
    allowed_ += std::chrono::milliseconds(transfer.timeout_ms);
    return run(std::move(urb), transfer);
}

// Submits and waits on the bus's clock.
int Bus::run(Urb urb, test::Transfer& transfer) {
    urb.id = next_urb_++;
    urb.length = transfer.data.size();
    const auto id = urb.id;
    const bool for_ever = transfer.timeout_ms == 0;
    const auto deadline = now_ + std::chrono::milliseconds(transfer.timeout_ms);
    if (const int refused = port_->submit(std::move(urb), now_); refused != 0) {
        return libusb_code(refused);
    }
    if (port_->completions().empty()) {
        under_way_ = id;
        witness(Moment::waiting);
    }
    bool timed_out = false;
    while (port_->completions().empty()) {
        const auto wake = port_->wake();
        if (wake && (for_ever || *wake <= deadline)) {
            set_clock(*wake);
            port_->advance(now_);
            continue;
        }
        if (for_ever) {
            misuse("a transfer that waits for ever");
        } else {
            set_clock(deadline);
        }
        timed_out = true;
        port_->discard(id);
    }
    under_way_.reset();
    const Completion completion = std::move(port_->completions().front());
    port_->completions().pop_front();
    if (!plugged()) {
        LibusbStandIn::unplug();
    }
    if (transfer.in()) {
        transfer.deliver(0, completion.data);
    }
    transfer.moved = completion.actual;
    return timed_out ? static_cast<int>(LIBUSB_ERROR_TIMEOUT) : libusb_code(completion.status);
}

} // namespace qaven::sweep

extern "C" {

// The process's clocks while a bus is there: its own, so that a deadline of the library passes
// without anybody waiting, and the date moves on with it.
int clock_gettime(clockid_t clock, timespec* time) noexcept {
    const auto counted = qaven::sweep::bus_clock();
    if (counted && clock == CLOCK_MONOTONIC) {
        *time = qaven::sweep::as_timespec(*counted);
        return 0;
    }
    if (counted && clock == CLOCK_REALTIME) {
        *time = qaven::sweep::as_timespec(qaven::sweep::calendar_start + *counted);
        return 0;
    }
    return static_cast<int>(syscall(SYS_clock_gettime, clock, time));
}

int nanosleep(const timespec* time, timespec* left) {
    if (qaven::sweep::bus_clock()) {
        qaven::sweep::current_bus->pass(std::chrono::seconds(time->tv_sec) +
                                        qaven::sweep::Duration(time->tv_nsec));
        return 0;
    }
    return static_cast<int>(syscall(SYS_nanosleep, time, left));
}

} // extern "C"
