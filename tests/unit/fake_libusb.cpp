// The fake bus and the libusb functions on top of it.
#include "fake_libusb.h"

#include "memory_watch.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <optional>
#include <utility>

namespace qaven::test {

namespace {

constexpr std::size_t kLargestLine = 64;

template <typename... Values>
std::string formatted(const char* format, Values... values) {
    std::array<char, kLargestLine> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

std::string name_of(const libusb_device& device) {
    return formatted("%04X:%04X", static_cast<unsigned int>(device.vendor),
                     static_cast<unsigned int>(device.product));
}

bool has_endpoint(const libusb_device_handle& handle, std::uint8_t endpoint) {
    for (const int claimed : handle.claimed) {
        const auto index = static_cast<std::size_t>(claimed);
        if (claimed < 0 || index >= handle.device->interfaces.size()) {
            continue;
        }
        for (const auto& setting : handle.device->interfaces[index].settings) {
            if (std::ranges::find(setting, endpoint) != setting.end()) {
                return true;
            }
        }
    }
    return false;
}

} // namespace

FakeDevice ccid_reader() {
    FakeDevice reader;
    reader.vendor = 0x2F7A;
    reader.product = 0x4417;
    reader.interfaces = {
        {.settings = {{0x81}}},
        {.settings = {{0x02, 0x82, 0x83}}},
        {.settings = {{0x04, 0x84, 0x85}}},
    };
    return reader;
}

FakeUsb* FakeUsb::current_ = nullptr;

FakeUsb::FakeUsb() {
    if (current_ != nullptr) {
        ADD_FAILURE() << "two buses at a time";
    }
    current_ = this;
}

FakeUsb::~FakeUsb() {
    if (lists_ != 0) {
        violation("a device list was not freed");
    }
    if (configurations_ != 0) {
        violation("a configuration descriptor was not freed");
    }
    if (open_handles() != 0) {
        violation("a device was left open");
    }
    if (starts_ != 0) {
        violation("the library was not ended");
    }
    for (const std::string& what : violations_) {
        ADD_FAILURE() << "USB: " << what;
    }
    current_ = nullptr;
}

void FakeUsb::plug(FakeDevice device) {
    devices_.push_back(std::make_unique<FakeDevice>(std::move(device)));
}

void FakeUsb::unplug() {
    std::ranges::move(devices_, std::back_inserter(unplugged_));
    devices_.clear();
}

void FakeUsb::answer(std::string_view packet) {
    answer(bytes(packet));
}

void FakeUsb::answer(Bytes packet) {
    in_.push_back({0, std::move(packet)});
}

void FakeUsb::answer_failure(int code, std::string_view partial) {
    in_.push_back({code, bytes(partial)});
}

void FakeUsb::answer_control(std::string_view data) {
    control_in_.push_back(bytes(data));
}

void FakeUsb::fail(Call call, int code) {
    failures_[call].push_back(code);
}

void FakeUsb::fail_bulk(int nth, int code, std::string_view partial) {
    bulk_failures_[bulk_count_ + nth] = {code, bytes(partial)};
}

std::vector<std::string> FakeUsb::transfers() const {
    std::vector<std::string> lines;
    std::ranges::copy_if(log_, std::back_inserter(lines),
                         [](const std::string& line) { return line.starts_with("bulk_"); });
    return lines;
}

std::vector<std::string> FakeUsb::sent() const {
    std::vector<std::string> packets;
    for (const std::string& line : log_) {
        if (line.starts_with("bulk_out")) {
            packets.push_back(line.substr(line.rfind(' ') + 1));
        }
    }
    return packets;
}

int FakeUsb::reads() const {
    return static_cast<int>(std::ranges::count_if(
        log_, [](const std::string& line) { return line.starts_with("bulk_in"); }));
}

int FakeUsb::open_handles() const {
    return static_cast<int>(
        std::ranges::count_if(handles_, [](const auto& handle) { return handle->open; }));
}

void FakeUsb::violation(std::string what) {
    violations_.push_back(std::move(what));
}

std::vector<std::string> FakeUsb::take_violations() {
    return std::exchange(violations_, {});
}

// The bodies of the libusb functions.
struct FakeLibusbCalls {
    // The bus of the running test.
    static FakeUsb& bus() {
        if (FakeUsb::current_ == nullptr) {
            std::fputs("libusb was called in a test without a FakeUsb\n", stderr);
            std::abort();
        }
        return *FakeUsb::current_;
    }

    static void note(std::string line) { bus().log_.push_back(std::move(line)); }

    static int failed(int code) {
        if (code < 0) {
            errno = ENODEV;
        }
        return code;
    }

    // What the test wants the next call of this kind to give.
    static std::optional<int> injected(Call call) {
        std::deque<int>& queue = bus().failures_[call];
        if (queue.empty()) {
            return std::nullopt;
        }
        const int code = queue.front();
        queue.pop_front();
        return failed(code);
    }

    static void check_started(const char* function, const libusb_context* context) {
        if (context != nullptr) {
            bus().violation(std::string(function) + " with a context of its own");
        }
        if (bus().starts_ <= 0) {
            bus().violation(std::string(function) + " while the library is not started");
        }
    }

    // True if the handle is one that a caller may use.
    static bool check_handle(const char* function, const libusb_device_handle* handle) {
        if (handle == nullptr) {
            bus().violation(std::string(function) + " with a null handle");
            return false;
        }
        if (!handle->open) {
            bus().violation(std::string(function) + " with a closed handle");
            return false;
        }
        return true;
    }

    static bool plugged(const libusb_device* device) {
        return std::ranges::any_of(bus().devices_,
                                   [&](const auto& other) { return other.get() == device; });
    }

    static int init() {
        note("init");
        if (const auto code = injected(Call::kInit)) {
            return *code;
        }
        ++bus().starts_;
        return 0;
    }

    static void exit(const libusb_context* context) {
        note("exit");
        check_started("exit", context);
        --bus().starts_;
        if (bus().starts_ == 0 && bus().open_handles() > 0) {
            bus().violation("exit with a device still open");
        }
    }

    static ssize_t get_device_list(const libusb_context* context, libusb_device*** list) {
        note("get_device_list");
        check_started("get_device_list", context);
        if (const auto code = injected(Call::kGetDeviceList)) {
            return *code;
        }
        const auto& devices = bus().devices_;
        auto* copied = new libusb_device*[devices.size() + 1]();
        std::ranges::transform(devices, copied, [](const auto& device) { return device.get(); });
        ++bus().lists_;
        *list = copied;
        return static_cast<ssize_t>(devices.size());
    }

    static void free_device_list(libusb_device** list, int unreference) {
        note(formatted("free_device_list %d", unreference));
        if (list != nullptr) {
            --bus().lists_;
            delete[] list;
        }
    }

    static int get_device_descriptor(const libusb_device& device,
                                     libusb_device_descriptor& descriptor) {
        note("get_device_descriptor " + name_of(device));
        if (device.device_descriptor_result < 0) {
            return failed(device.device_descriptor_result);
        }
        descriptor = {};
        descriptor.idVendor = device.vendor;
        descriptor.idProduct = device.product;
        return 0;
    }

    // A configuration descriptor with everything that it points to.
    struct Configuration {
        libusb_config_descriptor descriptor{};
        std::vector<libusb_interface> interfaces;
        std::deque<std::vector<libusb_interface_descriptor>> settings;
        std::deque<std::vector<libusb_endpoint_descriptor>> endpoints;
    };

    static int get_config_descriptor(const libusb_device& device, int index,
                                     libusb_config_descriptor** descriptor) {
        note("get_config_descriptor " + name_of(device) + formatted(" %d", index));
        if (device.config_descriptor_result < 0) {
            return failed(device.config_descriptor_result);
        }
        auto* configuration = new Configuration;
        for (const FakeDevice::Interface& interface : device.interfaces) {
            auto& settings = configuration->settings.emplace_back();
            for (const std::vector<std::uint8_t>& addresses : interface.settings) {
                auto& endpoints = configuration->endpoints.emplace_back();
                for (const std::uint8_t address : addresses) {
                    libusb_endpoint_descriptor endpoint{};
                    endpoint.bEndpointAddress = address;
                    endpoints.push_back(endpoint);
                }
                libusb_interface_descriptor setting{};
                setting.bNumEndpoints = static_cast<std::uint8_t>(endpoints.size());
                setting.endpoint = endpoints.data();
                settings.push_back(setting);
            }
            libusb_interface listed{};
            listed.altsetting = settings.data();
            listed.num_altsetting = static_cast<int>(settings.size());
            configuration->interfaces.push_back(listed);
        }
        configuration->descriptor.bNumInterfaces =
            static_cast<std::uint8_t>(configuration->interfaces.size());
        configuration->descriptor.interface = configuration->interfaces.data();
        ++bus().configurations_;
        // The descriptor is the first member, so its address is the configuration's.
        *descriptor = &configuration->descriptor;
        return 0;
    }

    static void free_config_descriptor(libusb_config_descriptor* descriptor) {
        note("free_config_descriptor");
        if (descriptor != nullptr) {
            --bus().configurations_;
            delete reinterpret_cast<Configuration*>(descriptor);
        }
    }

    static libusb_device_handle* open(const libusb_context* context, std::uint16_t vendor,
                                      std::uint16_t product) {
        note("open " + formatted("%04X:%04X", static_cast<unsigned int>(vendor),
                                 static_cast<unsigned int>(product)));
        check_started("open", context);
        if (injected(Call::kOpen)) {
            return nullptr;
        }
        for (const auto& device : bus().devices_) {
            if (device->vendor == vendor && device->product == product) {
                auto& handle = bus().handles_.emplace_back(new libusb_device_handle);
                handle->device = device.get();
                handle->open = true;
                return handle.get();
            }
        }
        failed(LIBUSB_ERROR_NO_DEVICE);
        return nullptr;
    }

    static void close(libusb_device_handle* handle) {
        note("close");
        if (!check_handle("close", handle)) {
            return;
        }
        handle->open = false;
        handle->claimed.clear();
        if (bus().on_close) {
            bus().on_close();
        }
    }

    static FakeDevice::Interface* interface_of(const libusb_device_handle& handle, int number) {
        auto& interfaces = handle.device->interfaces;
        const auto index = static_cast<std::size_t>(number);
        return number >= 0 && index < interfaces.size() ? &interfaces[index] : nullptr;
    }

    static int kernel_driver_active(const libusb_device_handle* handle, int number) {
        note(formatted("kernel_driver_active %d", number));
        if (!check_handle("kernel_driver_active", handle)) {
            return failed(LIBUSB_ERROR_NO_DEVICE);
        }
        if (const auto code = injected(Call::kKernelDriverActive)) {
            return *code;
        }
        const FakeDevice::Interface* interface = interface_of(*handle, number);
        return interface != nullptr && interface->kernel_driver ? 1 : 0;
    }

    static int detach_kernel_driver(const libusb_device_handle* handle, int number) {
        note(formatted("detach_kernel_driver %d", number));
        if (!check_handle("detach_kernel_driver", handle)) {
            return failed(LIBUSB_ERROR_NO_DEVICE);
        }
        if (const auto code = injected(Call::kDetachKernelDriver)) {
            return *code;
        }
        FakeDevice::Interface* interface = interface_of(*handle, number);
        if (interface == nullptr || !interface->kernel_driver) {
            return failed(LIBUSB_ERROR_NOT_FOUND);
        }
        interface->kernel_driver = false;
        return 0;
    }

    static int claim_interface(libusb_device_handle* handle, int number) {
        note(formatted("claim_interface %d", number));
        if (!check_handle("claim_interface", handle)) {
            return failed(LIBUSB_ERROR_NO_DEVICE);
        }
        if (const auto code = injected(Call::kClaim)) {
            return *code;
        }
        const FakeDevice::Interface* interface = interface_of(*handle, number);
        if (interface == nullptr) {
            return failed(LIBUSB_ERROR_NOT_FOUND);
        }
        const bool held_elsewhere = std::ranges::any_of(bus().handles_, [&](const auto& other) {
            return other.get() != handle && other->open && other->device == handle->device &&
                   other->claimed.contains(number);
        });
        if (interface->kernel_driver || held_elsewhere) {
            return failed(LIBUSB_ERROR_BUSY);
        }
        handle->claimed.insert(number);
        if (bus().on_claim) {
            bus().on_claim(number);
        }
        return 0;
    }

    static int release_interface(libusb_device_handle* handle, int number) {
        note(formatted("release_interface %d", number));
        if (!check_handle("release_interface", handle)) {
            return failed(LIBUSB_ERROR_NO_DEVICE);
        }
        if (const auto code = injected(Call::kRelease)) {
            return *code;
        }
        return handle->claimed.erase(number) == 1 ? 0 : failed(LIBUSB_ERROR_NOT_FOUND);
    }

    // A device that is reset has forgotten what it was about to say.
    static int reset_device(const libusb_device_handle* handle) {
        note("reset_device");
        if (!check_handle("reset_device", handle)) {
            return failed(LIBUSB_ERROR_NO_DEVICE);
        }
        if (const auto code = injected(Call::kReset)) {
            return *code;
        }
        bus().in_.clear();
        return 0;
    }

    static int bulk_transfer(const libusb_device_handle* handle, std::uint8_t endpoint,
                             std::span<std::uint8_t> data, int& transferred, unsigned int timeout) {
        const bool in = (endpoint & LIBUSB_ENDPOINT_IN) != 0;
        const auto address = static_cast<unsigned int>(endpoint);
        if (in) {
            note(formatted("bulk_in %02X %zu %ums", address, data.size(), timeout));
        } else {
            note(formatted("bulk_out %02X %ums ", address, timeout) + hex(data));
        }
        transferred = 0;
        ++bus().bulk_count_;
        const int result = in ? bulk_in(handle, endpoint, data, transferred)
                              : bulk_out(handle, endpoint, data, transferred);
        if (!in && result == 0 && bus().on_packet) {
            bus().on_packet(data);
        }
        if (!in && result != 0 && bus().on_lost_packet) {
            bus().on_lost_packet();
        }
        return failed(result);
    }

    // The code of a transfer that cannot even begin, or 0.
    static int obstacle(const libusb_device_handle* handle, std::uint8_t endpoint) {
        if (!check_handle("bulk_transfer", handle) || !plugged(handle->device)) {
            return LIBUSB_ERROR_NO_DEVICE;
        }
        return has_endpoint(*handle, endpoint) ? 0 : LIBUSB_ERROR_IO;
    }

    static int bulk_out(const libusb_device_handle* handle, std::uint8_t endpoint,
                        std::span<const std::uint8_t> data, int& transferred) {
        if (const int code = obstacle(handle, endpoint); code != 0) {
            return code;
        }
        if (const auto* failure = bulk_failure()) {
            transferred = static_cast<int>(std::min(failure->data.size(), data.size()));
            return failure->code;
        }
        transferred = static_cast<int>(data.size());
        return 0;
    }

    static int bulk_in(const libusb_device_handle* handle, std::uint8_t endpoint,
                       std::span<std::uint8_t> data, int& transferred) {
        if (const int code = obstacle(handle, endpoint); code != 0) {
            return code;
        }
        if (const auto* failure = bulk_failure()) {
            return receive(failure->code, failure->data, data, transferred);
        }
        if (bus().in_.empty()) {
            return LIBUSB_ERROR_TIMEOUT;
        }
        const FakeUsb::InTransfer next = std::move(bus().in_.front());
        bus().in_.pop_front();
        return receive(next.code, next.data, data, transferred);
    }

    // What the test wants this very transfer to fail with.
    static const FakeUsb::InTransfer* bulk_failure() {
        const auto found = bus().bulk_failures_.find(bus().bulk_count_);
        return found != bus().bulk_failures_.end() ? &found->second : nullptr;
    }

    static int receive(int code, const Bytes& packet, std::span<std::uint8_t> data,
                       int& transferred) {
        const std::size_t count = std::min(packet.size(), data.size());
        std::copy_n(packet.begin(), count, data.begin());
        transferred = static_cast<int>(count);
        return code == 0 && packet.size() > data.size() ? LIBUSB_ERROR_OVERFLOW : code;
    }

    static int control_transfer(const libusb_device_handle* handle, std::uint8_t type,
                                std::uint8_t request, std::uint16_t value, std::uint16_t index,
                                std::span<std::uint8_t> data, unsigned int timeout) {
        const bool in = (type & LIBUSB_ENDPOINT_IN) != 0;
        const std::string setup =
            formatted("%02X %02X %04X %04X", static_cast<unsigned int>(type),
                      static_cast<unsigned int>(request), static_cast<unsigned int>(value),
                      static_cast<unsigned int>(index));
        if (in) {
            note("control_in " + setup + formatted(" %zu %ums", data.size(), timeout));
        } else {
            note("control_out " + setup + formatted(" %ums ", timeout) + hex(data));
        }
        if (!check_handle("control_transfer", handle)) {
            return failed(LIBUSB_ERROR_NO_DEVICE);
        }
        if (!plugged(handle->device)) {
            return failed(LIBUSB_ERROR_NO_DEVICE);
        }
        if (const auto code = injected(Call::kControl)) {
            return *code;
        }
        if (!in) {
            return static_cast<int>(data.size());
        }
        if (bus().control_in_.empty()) {
            std::ranges::fill(data, std::uint8_t{0});
            return static_cast<int>(data.size());
        }
        const Bytes answer = std::move(bus().control_in_.front());
        bus().control_in_.pop_front();
        int transferred = 0;
        const int result = receive(0, answer, data, transferred);
        return result < 0 ? failed(result) : transferred;
    }
};

} // namespace qaven::test

namespace {

using qaven::test::FakeLibusbCalls;

// libusb takes lengths as int; a negative one never reaches a device.
std::span<unsigned char> transfer_buffer(unsigned char* data, int length) {
    if (length < 0) {
        FakeLibusbCalls::bus().violation("a transfer of negative length");
        return {};
    }
    return {data, static_cast<std::size_t>(length)};
}

} // namespace

extern "C" {

int LIBUSB_CALL libusb_init(libusb_context** context) {
    const qaven::test::Unwatched work;
    if (context != nullptr) {
        FakeLibusbCalls::bus().violation("init of a context of its own");
        *context = nullptr;
    }
    return FakeLibusbCalls::init();
}

void LIBUSB_CALL libusb_exit(libusb_context* context) {
    const qaven::test::Unwatched work;
    FakeLibusbCalls::exit(context);
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* context, libusb_device*** list) {
    const qaven::test::Unwatched work;
    return FakeLibusbCalls::get_device_list(context, list);
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int unreference) {
    const qaven::test::Unwatched work;
    FakeLibusbCalls::free_device_list(list, unreference);
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* device,
                                             libusb_device_descriptor* descriptor) {
    const qaven::test::Unwatched work;
    return FakeLibusbCalls::get_device_descriptor(*device, *descriptor);
}

int LIBUSB_CALL libusb_get_config_descriptor(libusb_device* device, std::uint8_t index,
                                             libusb_config_descriptor** descriptor) {
    const qaven::test::Unwatched work;
    return FakeLibusbCalls::get_config_descriptor(*device, index, descriptor);
}

void LIBUSB_CALL libusb_free_config_descriptor(libusb_config_descriptor* descriptor) {
    const qaven::test::Unwatched work;
    FakeLibusbCalls::free_config_descriptor(descriptor);
}

libusb_device_handle* LIBUSB_CALL libusb_open_device_with_vid_pid(libusb_context* context,
                                                                  std::uint16_t vendor,
                                                                  std::uint16_t product) {
    const qaven::test::Unwatched work;
    return FakeLibusbCalls::open(context, vendor, product);
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle) {
    const qaven::test::Unwatched work;
    FakeLibusbCalls::close(handle);
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int interface) {
    const qaven::test::Unwatched work;
    return FakeLibusbCalls::kernel_driver_active(handle, interface);
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle* handle, int interface) {
    const qaven::test::Unwatched work;
    return FakeLibusbCalls::detach_kernel_driver(handle, interface);
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int interface) {
    const qaven::test::Unwatched work;
    return FakeLibusbCalls::claim_interface(handle, interface);
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle* handle, int interface) {
    const qaven::test::Unwatched work;
    return FakeLibusbCalls::release_interface(handle, interface);
}

int LIBUSB_CALL libusb_reset_device(libusb_device_handle* handle) {
    return FakeLibusbCalls::reset_device(handle);
}

int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint,
                                     unsigned char* data, int length, int* transferred,
                                     unsigned int timeout) {
    const qaven::test::Unwatched work;
    int ignored = 0;
    return FakeLibusbCalls::bulk_transfer(handle, endpoint, transfer_buffer(data, length),
                                          transferred != nullptr ? *transferred : ignored, timeout);
}

int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, std::uint8_t type,
                                        std::uint8_t request, std::uint16_t value,
                                        std::uint16_t index, unsigned char* data,
                                        std::uint16_t length, unsigned int timeout) {
    const qaven::test::Unwatched work;
    return FakeLibusbCalls::control_transfer(handle, type, request, value, index,
                                             transfer_buffer(data, length), timeout);
}

} // extern "C"
