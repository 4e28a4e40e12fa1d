// The libusb functions on the virtual port.
#include "port_libusb.h"

#include "tests/support/memory_watch.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <deque>
#include <utility>

#include <sys/syscall.h>
#include <unistd.h>

// The device as libusb lists it; a new one every time it is plugged in.
struct libusb_device {
    unsigned generation = 0;
};

struct libusb_device_handle {
    const libusb_device* device = nullptr;
    std::set<int> claimed;
    bool open = true;
};

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

// A configuration descriptor taken apart, with the memory that libusb's structures point into.
struct Configuration {
    libusb_config_descriptor descriptor{}; // first: the caller's pointer is this object's
    std::deque<std::vector<libusb_endpoint_descriptor>> endpoints;
    std::map<std::uint8_t, std::vector<libusb_interface_descriptor>> settings;
    std::vector<libusb_interface> interfaces;

    explicit Configuration(std::span<const std::uint8_t> bytes) {
        libusb_interface_descriptor* setting = nullptr;
        for (std::size_t at = 0; at + 2 <= bytes.size() && bytes[at] >= 2; at += bytes[at]) {
            const auto one = bytes.subspan(at, std::min<std::size_t>(bytes[at], bytes.size() - at));
            if (one[1] == LIBUSB_DT_INTERFACE && one.size() >= LIBUSB_DT_INTERFACE_SIZE) {
                setting = &settings[one[2]].emplace_back();
                setting->bLength = one[0];
                setting->bDescriptorType = one[1];
                setting->bInterfaceNumber = one[2];
                setting->bAlternateSetting = one[3];
                setting->bInterfaceClass = one[5];
                setting->bInterfaceSubClass = one[6];
                setting->bInterfaceProtocol = one[7];
                endpoints.emplace_back();
            } else if (one[1] == LIBUSB_DT_ENDPOINT && one.size() >= LIBUSB_DT_ENDPOINT_SIZE &&
                       setting != nullptr) {
                libusb_endpoint_descriptor endpoint{};
                endpoint.bLength = one[0];
                endpoint.bDescriptorType = one[1];
                endpoint.bEndpointAddress = one[2];
                endpoint.bmAttributes = one[3];
                endpoint.wMaxPacketSize = little_endian(one, 4);
                endpoint.bInterval = one[6];
                endpoints.back().push_back(endpoint);
                setting->bNumEndpoints = static_cast<std::uint8_t>(endpoints.back().size());
                setting->endpoint = endpoints.back().data();
            }
        }
        for (auto& [number, all] : settings) {
            interfaces.push_back(
                {.altsetting = all.data(), .num_altsetting = static_cast<int>(all.size())});
        }
        if (bytes.size() >= LIBUSB_DT_CONFIG_SIZE) {
            descriptor.bLength = bytes[0];
            descriptor.bDescriptorType = bytes[1];
            descriptor.wTotalLength = little_endian(bytes, 2);
            descriptor.bConfigurationValue = bytes[5];
            descriptor.iConfiguration = bytes[6];
            descriptor.bmAttributes = bytes[7];
            descriptor.MaxPower = bytes[8];
        }
        descriptor.bNumInterfaces = static_cast<std::uint8_t>(interfaces.size());
        descriptor.interface = interfaces.data();
    }
};

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
    if (current_bus != nullptr) {
        std::fputs("two buses at a time\n", stderr);
        std::abort();
    }
    current_bus = this;
    set_clock(now_);
}

Bus::~Bus() {
    current_bus = nullptr;
    shown_clock = 0;
}

Bus& Bus::current() {
    if (current_bus == nullptr) {
        std::fputs("libusb was called without a bus\n", stderr);
        std::abort();
    }
    return *current_bus;
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
    if (listed_ != nullptr) {
        gone_.push_back(std::move(listed_));
    }
    listed_ = std::make_unique<libusb_device>();
    listed_->generation = ++generation_;
    port_.emplace(device_, nullptr, std::move(faults));
    port_->enumerate(now_);
}

void Bus::unplug() {
    if (port_) {
        port_->unplug();
    }
}

bool Bus::plugged() const {
    return port_ && port_->plugged();
}

void Bus::reset() {
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
    for (const auto& handle : handles_) {
        handle->open = false;
        handle->claimed.clear();
    }
    starts_ = 0;
    lists_ = 0;
    configurations_ = 0;
}

Bus::Spent Bus::spent() const {
    return {.time = now_ - begin_, .allowed = allowed_, .transfers = transfers_.size()};
}

Bus::Holdings Bus::held() const {
    Holdings holdings{.starts = starts_, .lists = lists_, .configurations = configurations_};
    for (const auto& handle : handles_) {
        if (handle->open) {
            ++holdings.handles;
            holdings.claims += handle->claimed.size();
        }
    }
    return holdings;
}

// The bodies of the libusb functions.
struct LibusbCalls {
    static Bus& bus() { return Bus::current(); }

    static void misuse(std::string what) { bus().misuses_.push_back(std::move(what)); }

    static void check_started(const std::string& function, const libusb_context* context) {
        if (context != nullptr) {
            misuse(function + " with a context of its own");
        }
        if (bus().starts_ <= 0) {
            misuse(function + " while the library is not started");
        }
    }

    // True if the handle is one that a caller may use.
    static bool check_handle(const std::string& function, const libusb_device_handle* handle) {
        if (handle == nullptr) {
            misuse(function + " with a null handle");
            return false;
        }
        if (!handle->open) {
            misuse(function + " with a closed handle");
            return false;
        }
        return true;
    }

    static bool present(const libusb_device* device) {
        return bus().plugged() && bus().listed_.get() == device;
    }

    static int init(libusb_context** context) {
        if (context != nullptr) {
            misuse("init of a context of its own");
            *context = nullptr;
        }
        ++bus().starts_;
        return LIBUSB_SUCCESS;
    }

    static void exit(const libusb_context* context) {
        check_started("exit", context);
        --bus().starts_;
        if (bus().starts_ == 0 && bus().held().handles > 0) {
            misuse("exit with a device still open");
        }
    }

    static ssize_t get_device_list(const libusb_context* context, libusb_device*** list) {
        check_started("get_device_list", context);
        const std::size_t count = bus().plugged() ? 1 : 0;
        auto* const devices = new libusb_device*[count + 1]();
        if (count > 0) {
            *devices = bus().listed_.get();
        }
        ++bus().lists_;
        *list = devices;
        return static_cast<ssize_t>(count);
    }

    static void free_device_list(libusb_device** list) {
        if (list != nullptr) {
            --bus().lists_;
            delete[] list;
        }
    }

    static int get_device_descriptor(const libusb_device* device,
                                     libusb_device_descriptor& descriptor) {
        // libusb has read it when it listed the device; no need for it to be there still.
        static_cast<void>(device);
        const virtual_usb::Bytes bytes = bus().device_.device_descriptor();
        descriptor = {};
        if (bytes.size() < LIBUSB_DT_DEVICE_SIZE) {
            return LIBUSB_ERROR_IO;
        }
        descriptor.bLength = bytes[0];
        descriptor.bDescriptorType = bytes[1];
        descriptor.bcdUSB = little_endian(bytes, 2);
        descriptor.bDeviceClass = bytes[4];
        descriptor.bDeviceSubClass = bytes[5];
        descriptor.bDeviceProtocol = bytes[6];
        descriptor.bMaxPacketSize0 = bytes[7];
        descriptor.idVendor = little_endian(bytes, 8);
        descriptor.idProduct = little_endian(bytes, 10);
        descriptor.bcdDevice = little_endian(bytes, 12);
        descriptor.iManufacturer = bytes[14];
        descriptor.iProduct = bytes[15];
        descriptor.iSerialNumber = bytes[16];
        descriptor.bNumConfigurations = bytes[17];
        return LIBUSB_SUCCESS;
    }

    static int get_config_descriptor(std::uint8_t index, libusb_config_descriptor** descriptor) {
        if (index != 0) {
            return LIBUSB_ERROR_NOT_FOUND;
        }
        auto configuration =
            std::make_unique<Configuration>(bus().device_.configuration_descriptor());
        ++bus().configurations_;
        *descriptor = &configuration.release()->descriptor;
        return LIBUSB_SUCCESS;
    }

    static void free_config_descriptor(libusb_config_descriptor* descriptor) {
        if (descriptor != nullptr) {
            --bus().configurations_;
            delete reinterpret_cast<Configuration*>(descriptor);
        }
    }

    static libusb_device_handle* open(const libusb_context* context, std::uint16_t vendor,
                                      std::uint16_t product) {
        check_started("open", context);
        libusb_device_descriptor descriptor{};
        if (!bus().plugged() || get_device_descriptor(bus().listed_.get(), descriptor) != 0 ||
            descriptor.idVendor != vendor || descriptor.idProduct != product) {
            return nullptr;
        }
        auto& handle = bus().handles_.emplace_back(std::make_unique<libusb_device_handle>());
        handle->device = bus().listed_.get();
        return handle.get();
    }

    static void close(libusb_device_handle* handle) {
        if (check_handle("close", handle)) {
            handle->open = false;
            handle->claimed.clear();
        }
    }

    // 0, or why nothing can be done with this interface.
    static int interface_obstacle(const std::string& function, const libusb_device_handle* handle,
                                  int number) {
        if (!check_handle(function, handle)) {
            return LIBUSB_ERROR_NO_DEVICE;
        }
        constexpr int usb_max_interfaces = 32;
        if (number < 0 || number >= usb_max_interfaces) {
            return LIBUSB_ERROR_INVALID_PARAM;
        }
        return present(handle->device) ? 0 : LIBUSB_ERROR_NO_DEVICE;
    }

    // No kernel driver is bound to any interface.
    static int kernel_driver_active(const libusb_device_handle* handle, int number) {
        return interface_obstacle("kernel_driver_active", handle, number);
    }

    static int detach_kernel_driver(const libusb_device_handle* handle, int number) {
        const int obstacle = interface_obstacle("detach_kernel_driver", handle, number);
        return obstacle != 0 ? obstacle : static_cast<int>(LIBUSB_ERROR_NOT_FOUND);
    }

    static int claim_interface(libusb_device_handle* handle, int number) {
        if (const int obstacle = interface_obstacle("claim_interface", handle, number);
            obstacle != 0) {
            return obstacle;
        }
        if (!bus().port_->interfaces().contains(static_cast<std::uint8_t>(number))) {
            return LIBUSB_ERROR_NOT_FOUND;
        }
        const bool held_elsewhere = std::ranges::any_of(bus().handles_, [&](const auto& other) {
            return other.get() != handle && other->open && other->device == handle->device &&
                   other->claimed.contains(number);
        });
        if (held_elsewhere) {
            return LIBUSB_ERROR_BUSY;
        }
        handle->claimed.insert(number);
        return LIBUSB_SUCCESS;
    }

    static int release_interface(libusb_device_handle* handle, int number) {
        if (!check_handle("release_interface", handle)) {
            return LIBUSB_ERROR_NO_DEVICE;
        }
        if (!handle->claimed.contains(number)) {
            return LIBUSB_ERROR_NOT_FOUND;
        }
        if (!present(handle->device)) {
            return LIBUSB_ERROR_NO_DEVICE;
        }
        handle->claimed.erase(number);
        return LIBUSB_SUCCESS;
    }

    static int reset_device(libusb_device_handle* handle) {
        if (!check_handle("reset_device", handle) || !present(handle->device)) {
            return LIBUSB_ERROR_NO_DEVICE;
        }
        bus().port_->reset();
        return LIBUSB_SUCCESS;
    }

    static int bulk_transfer(const libusb_device_handle* handle, std::uint8_t endpoint,
                             std::span<std::uint8_t> data, int& transferred, unsigned timeout_ms) {
        const bool in = (endpoint & LIBUSB_ENDPOINT_IN) != 0;
        Urb urb;
        urb.endpoint = endpoint;
        urb.length = data.size();
        Bus::Transfer record;
        record.endpoint = endpoint;
        record.asked = data.size();
        record.timeout_ms = timeout_ms;
        if (!in) {
            urb.data.assign(data.begin(), data.end());
            record.carried = urb.data;
        }
        if (!check_handle("bulk_transfer", handle) || !present(handle->device)) {
            record.result = LIBUSB_ERROR_NO_DEVICE;
        } else if (!claims_interface_of(*handle, endpoint)) {
            record.result = LIBUSB_ERROR_IO;
        } else {
            witness(Bus::Moment::before);
            const auto end = run(std::move(urb), timeout_ms, data);
            record.submitted = true;
            record.result = end.code;
            record.moved = end.moved;
            if (in) {
                const auto received = data.first(std::min(end.moved, data.size()));
                record.carried.assign(received.begin(), received.end());
            }
            transferred = static_cast<int>(end.moved);
        }
        bus().allowed_ += std::chrono::milliseconds(timeout_ms);
        bus().transfers_.push_back(std::move(record));
        return bus().transfers_.back().result;
    }

    static bool claims_interface_of(const libusb_device_handle& handle, std::uint8_t endpoint) {
        const auto interface = bus().port_->interface_of(endpoint);
        return interface && handle.claimed.contains(*interface);
    }

    static int control_transfer(const libusb_device_handle* handle, const Urb& urb,
                                std::span<std::uint8_t> data, unsigned timeout_ms) {
        if (!check_handle("control_transfer", handle) || !present(handle->device)) {
            return LIBUSB_ERROR_NO_DEVICE;
        }
        const auto end = run(urb, timeout_ms, data);
        bus().allowed_ += std::chrono::milliseconds(timeout_ms);
        return end.code < 0 ? end.code : static_cast<int>(end.moved);
    }

    struct End {
        int code;
        std::size_t moved;
    };

    static void witness(Bus::Moment moment) {
        if (bus().witness_) {
            bus().witness_(moment);
        }
    }

    // Submits and waits on the bus's clock.
    static End run(Urb urb, unsigned timeout_ms, std::span<std::uint8_t> data) {
        Bus& self = bus();
        urb.id = self.next_urb_++;
        const auto id = urb.id;
        const bool in = urb.in();
        const bool for_ever = timeout_ms == 0;
        const auto deadline = self.now_ + std::chrono::milliseconds(timeout_ms);
        if (const int refused = self.port_->submit(std::move(urb), self.now_); refused != 0) {
            return {libusb_code(refused), 0};
        }
        if (self.port_->completions().empty()) {
            self.under_way_ = id;
            witness(Bus::Moment::waiting);
        }
        bool timed_out = false;
        while (self.port_->completions().empty()) {
            const auto wake = self.port_->wake();
            if (wake && (for_ever || *wake <= deadline)) {
                self.set_clock(*wake);
                self.port_->advance(self.now_);
                continue;
            }
            if (for_ever) {
                misuse("a transfer that waits for ever");
            } else {
                self.set_clock(deadline);
            }
            timed_out = true;
            self.port_->discard(id);
        }
        self.under_way_.reset();
        const Completion completion = std::move(self.port_->completions().front());
        self.port_->completions().pop_front();
        if (in) {
            std::copy_n(completion.data.begin(), std::min(completion.data.size(), data.size()),
                        data.begin());
        }
        return {timed_out ? static_cast<int>(LIBUSB_ERROR_TIMEOUT) : libusb_code(completion.status),
                completion.actual};
    }
};

} // namespace qaven::sweep

namespace {

using qaven::sweep::LibusbCalls;

// libusb takes lengths as int; a negative one never reaches a device.
std::span<unsigned char> transfer_buffer(unsigned char* data, int length) {
    if (length < 0) {
        LibusbCalls::misuse("a transfer of negative length");
        return {};
    }
    return {data, static_cast<std::size_t>(length)};
}

} // namespace

extern "C" {

int LIBUSB_CALL libusb_init(libusb_context** ctx) {
    const qaven::test::Unwatched work;
    return LibusbCalls::init(ctx);
}

void LIBUSB_CALL libusb_exit(libusb_context* ctx) {
    const qaven::test::Unwatched work;
    LibusbCalls::exit(ctx);
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* ctx, libusb_device*** list) {
    const qaven::test::Unwatched work;
    return LibusbCalls::get_device_list(ctx, list);
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int /*unreference*/) {
    const qaven::test::Unwatched work;
    LibusbCalls::free_device_list(list);
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* device,
                                             libusb_device_descriptor* descriptor) {
    const qaven::test::Unwatched work;
    return LibusbCalls::get_device_descriptor(device, *descriptor);
}

int LIBUSB_CALL libusb_get_config_descriptor(libusb_device* /*device*/, std::uint8_t config_index,
                                             libusb_config_descriptor** config) {
    const qaven::test::Unwatched work;
    return LibusbCalls::get_config_descriptor(config_index, config);
}

void LIBUSB_CALL libusb_free_config_descriptor(libusb_config_descriptor* config) {
    const qaven::test::Unwatched work;
    LibusbCalls::free_config_descriptor(config);
}

libusb_device_handle* LIBUSB_CALL libusb_open_device_with_vid_pid(libusb_context* ctx,
                                                                  std::uint16_t vendor_id,
                                                                  std::uint16_t product_id) {
    const qaven::test::Unwatched work;
    return LibusbCalls::open(ctx, vendor_id, product_id);
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle) {
    const qaven::test::Unwatched work;
    LibusbCalls::close(handle);
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int interface) {
    const qaven::test::Unwatched work;
    return LibusbCalls::kernel_driver_active(handle, interface);
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle* handle, int interface) {
    const qaven::test::Unwatched work;
    return LibusbCalls::detach_kernel_driver(handle, interface);
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int interface) {
    const qaven::test::Unwatched work;
    return LibusbCalls::claim_interface(handle, interface);
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle* handle, int interface) {
    const qaven::test::Unwatched work;
    return LibusbCalls::release_interface(handle, interface);
}

int LIBUSB_CALL libusb_reset_device(libusb_device_handle* handle) {
    return LibusbCalls::reset_device(handle);
}

int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* dev_handle, unsigned char endpoint,
                                     unsigned char* data, int length, int* actual_length,
                                     unsigned int timeout) {
    const qaven::test::Unwatched work;
    int ignored = 0;
    return LibusbCalls::bulk_transfer(dev_handle, endpoint, transfer_buffer(data, length),
                                      actual_length != nullptr ? *actual_length : ignored, timeout);
}

int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, std::uint8_t type,
                                        std::uint8_t request, std::uint16_t value,
                                        std::uint16_t index, unsigned char* data,
                                        std::uint16_t length, unsigned int timeout) {
    const qaven::test::Unwatched work;
    const auto low = [](std::uint16_t number) { return static_cast<std::uint8_t>(number & 0xFFU); };
    const auto high = [](std::uint16_t number) { return static_cast<std::uint8_t>(number >> 8U); };
    const auto buffer = transfer_buffer(data, length);
    qaven::virtual_usb::Urb urb;
    urb.type = qaven::virtual_usb::TransferType::kControl;
    urb.endpoint = type & LIBUSB_ENDPOINT_IN;
    urb.setup = {type,       request,     low(value),  high(value),
                 low(index), high(index), low(length), high(length)};
    urb.length = length;
    if (!urb.in()) {
        urb.data.assign(buffer.begin(), buffer.end());
    }
    return LibusbCalls::control_transfer(handle, urb, buffer, timeout);
}

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
        qaven::sweep::Bus::current().pass(std::chrono::seconds(time->tv_sec) +
                                          qaven::sweep::Duration(time->tv_nsec));
        return 0;
    }
    return static_cast<int>(syscall(SYS_nanosleep, time, left));
}

} // extern "C"
