// libusb's functions on the bus that is there.
#include "tests/support/libusb_stand_in.h"

#include "tests/support/memory_watch.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <iterator>
#include <utility>

namespace qaven::test {

namespace {
using Handle = std::unique_ptr<libusb_device_handle>;
}

// What libusb keeps.
struct LibusbState {
    LibusbStandIn& back_end;
    std::vector<std::unique_ptr<libusb_device>> devices{};
    std::vector<Handle> handles{};
    std::vector<Handle> closed{}; // kept, so that no other handle gets their address
    int starts = 0;
    int lists = 0;
    int configurations = 0;
};

namespace {

constexpr int kVendor = 0x2F7A;

LibusbState* current = nullptr;

[[noreturn]] void stop(const std::string& what) {
    std::fprintf(stderr, "USB: %s\n", what.c_str());
    std::abort();
}

LibusbState& bus() {
    if (current == nullptr) {
        stop("libusb was called without a bus");
    }
    return *current;
}

LibusbStandIn& back_end() {
    return bus().back_end;
}

template <typename... Values>
std::string formatted(const char* format, Values... values) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), format, values...);
    return text.data();
}

std::string name_of(unsigned vendor, unsigned product) {
    return formatted("%04X:%04X", vendor, product);
}

std::string name_of(const libusb_device& device) {
    return name_of(device.vendor, device.product);
}

bool has_endpoint(const libusb_device_handle& handle, std::uint8_t endpoint) {
    return std::ranges::any_of(handle.claimed, [&](int number) {
        const auto& interface = handle.device->interfaces[static_cast<std::size_t>(number)];
        return std::ranges::any_of(interface.settings, [&](const auto& setting) {
            return std::ranges::find(setting, endpoint) != setting.end();
        });
    });
}

libusb_device::Interface* interface_of(const libusb_device_handle& handle, int number) {
    auto& interfaces = handle.device->interfaces;
    const auto index = static_cast<std::size_t>(number);
    return index < interfaces.size() ? &interfaces[index] : nullptr;
}

// A configuration descriptor and what it points to, each array in a block of exactly its size.
// libusb gives null pointers for arrays of none.
struct Configuration {
    libusb_config_descriptor descriptor{}; // first: the caller's pointer is this object's
    std::vector<libusb_interface> interfaces;
    std::deque<std::vector<libusb_interface_descriptor>> settings;
    std::deque<std::vector<libusb_endpoint_descriptor>> endpoints;

    explicit Configuration(const libusb_device& device) : interfaces(device.interfaces.size()) {
        auto listed = interfaces.begin();
        for (const libusb_device::Interface& interface : device.interfaces) {
            auto& described = settings.emplace_back(interface.settings.size());
            auto one = described.begin();
            for (const std::vector<std::uint8_t>& addresses : interface.settings) {
                auto& all = endpoints.emplace_back(addresses.size());
                for (std::size_t k = 0; k < addresses.size(); ++k) {
                    all[k].bEndpointAddress = addresses[k];
                }
                one->bNumEndpoints = static_cast<std::uint8_t>(all.size());
                one->endpoint = all.empty() ? nullptr : all.data();
                ++one;
            }
            listed->altsetting = described.empty() ? nullptr : described.data();
            listed->num_altsetting = static_cast<int>(described.size());
            ++listed;
        }
        descriptor.bNumInterfaces = static_cast<std::uint8_t>(interfaces.size());
        descriptor.interface = interfaces.empty() ? nullptr : interfaces.data();
    }
};

int failed(int code) {
    if (code < 0) {
        errno = ENODEV;
    }
    return code;
}

void check_started(const std::string& function, const libusb_context* context) {
    if (context != nullptr) {
        back_end().misuse(function + " with a context of its own");
    }
    if (bus().starts <= 0) {
        back_end().misuse(function + " while the library is not started");
    }
}

// True if the handle is one that a caller may use.
bool check_handle(const std::string& function, const libusb_device_handle* handle) {
    if (handle == nullptr) {
        back_end().misuse(function + " with a null handle");
        return false;
    }
    const bool open = std::ranges::find(bus().handles, handle, &Handle::get) != bus().handles.end();
    if (!open) {
        back_end().misuse(function + " with a closed handle");
    }
    return open;
}

// The code that ends a call about an interface before its own work, or nothing.
std::optional<int> interface_obstacle(Call call, const std::string& function,
                                      const libusb_device_handle* handle, int number) {
    back_end().called(function + formatted(" %d", number));
    if (!check_handle(function, handle)) {
        return LIBUSB_ERROR_NO_DEVICE;
    }
    if (const auto code = back_end().outcome(call)) {
        return code;
    }
    constexpr int kInterfaces = 32;
    if (number < 0 || number >= kInterfaces) {
        return LIBUSB_ERROR_INVALID_PARAM;
    }
    return handle->device->plugged ? std::nullopt : std::optional<int>(LIBUSB_ERROR_NO_DEVICE);
}

// libusb takes lengths as int.
std::span<unsigned char> buffer(unsigned char* data, int length) {
    if (length < 0 || (data == nullptr && length > 0)) {
        back_end().misuse(length < 0 ? "a transfer of negative length"
                                     : "a transfer without a buffer");
        return {};
    }
    return {data, static_cast<std::size_t>(length)};
}

} // namespace

libusb_device ccid_reader() {
    return {.vendor = kVendor,
            .product = 0x4417,
            .interfaces = {
                {.settings = {{0x81}}},
                {.settings = {{0x02, 0x82, 0x83}}},
                {.settings = {{0x04, 0x84, 0x85}}},
            }};
}

libusb_device identity_card_reader() {
    return {.vendor = kVendor, .product = 0x4463, .interfaces = {{.settings = {{0x81}}}}};
}

int Transfer::deliver(int code, std::span<const std::uint8_t> answer) {
    moved = std::min(answer.size(), data.size());
    std::copy_n(answer.begin(), moved, data.begin());
    return code == 0 && answer.size() > data.size() ? static_cast<int>(LIBUSB_ERROR_OVERFLOW)
                                                    : code;
}

LibusbStandIn::LibusbStandIn() : state_(new LibusbState{*this}) {
    if (current != nullptr) {
        stop("two buses at a time");
    }
    current = state_.get();
}

LibusbStandIn::~LibusbStandIn() {
    current = nullptr;
}

void LibusbStandIn::plug(libusb_device device) {
    state_->devices.push_back(std::make_unique<libusb_device>(std::move(device)));
}

void LibusbStandIn::unplug() {
    for (const auto& device : state_->devices) {
        device->plugged = false;
    }
}

LibusbStandIn::Holdings LibusbStandIn::held() const {
    Holdings holdings{.starts = state_->starts,
                      .handles = state_->handles.size(),
                      .lists = state_->lists,
                      .configurations = state_->configurations};
    for (const auto& handle : state_->handles) {
        holdings.claims += handle->claimed.size();
    }
    return holdings;
}

void LibusbStandIn::misuse(const std::string& what) {
    stop(what);
}

void LibusbStandIn::require_all_given_back() {
    const Holdings holdings = held();
    if (holdings.lists != 0) {
        misuse("a device list was not freed");
    }
    if (holdings.configurations != 0) {
        misuse("a configuration descriptor was not freed");
    }
    if (holdings.handles != 0) {
        misuse("a device was left open");
    }
    if (holdings.starts != 0) {
        misuse("the library was not ended");
    }
}

void LibusbStandIn::take_all_back() {
    std::ranges::move(state_->handles, std::back_inserter(state_->closed));
    state_->handles.clear();
    state_->starts = 0;
    state_->lists = 0;
    state_->configurations = 0;
}

} // namespace qaven::test

using namespace qaven::test;

extern "C" {

int LIBUSB_CALL libusb_init(libusb_context** context) {
    const Unwatched work;
    if (context != nullptr) {
        back_end().misuse("init of a context of its own");
        *context = nullptr;
    }
    back_end().called("init");
    if (const auto code = back_end().outcome(Call::kInit)) {
        return failed(*code);
    }
    ++bus().starts;
    return 0;
}

void LIBUSB_CALL libusb_exit(libusb_context* context) {
    const Unwatched work;
    back_end().called("exit");
    check_started("exit", context);
    --bus().starts;
    if (bus().starts == 0 && back_end().held().handles > 0) {
        back_end().misuse("exit with a device still open");
    }
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* context, libusb_device*** list) {
    const Unwatched work;
    back_end().called("get_device_list");
    check_started("get_device_list", context);
    if (const auto code = back_end().outcome(Call::kGetDeviceList)) {
        return failed(*code);
    }
    auto* const listed = new libusb_device*[bus().devices.size() + 1]();
    ssize_t count = 0;
    for (const auto& device : bus().devices) {
        if (device->plugged) {
            listed[count++] = device.get();
        }
    }
    ++bus().lists;
    *list = listed;
    return count;
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int unreference) {
    const Unwatched work;
    back_end().called(formatted("free_device_list %d", unreference));
    if (list != nullptr) {
        --bus().lists;
        delete[] list;
    }
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* device,
                                             libusb_device_descriptor* descriptor) {
    const Unwatched work;
    back_end().called("get_device_descriptor " + name_of(*device));
    if (const auto code = back_end().outcome(Call::kGetDeviceDescriptor)) {
        return failed(*code);
    }
    if (device->device_descriptor_result < 0) {
        return failed(device->device_descriptor_result);
    }
    *descriptor = {};
    descriptor->idVendor = device->vendor;
    descriptor->idProduct = device->product;
    return 0;
}

int LIBUSB_CALL libusb_get_config_descriptor(libusb_device* device, std::uint8_t index,
                                             libusb_config_descriptor** descriptor) {
    const Unwatched work;
    const int number = index;
    back_end().called("get_config_descriptor " + name_of(*device) + formatted(" %d", number));
    if (const auto code = back_end().outcome(Call::kGetConfigDescriptor)) {
        return failed(*code);
    }
    if (device->config_descriptor_result < 0) {
        return failed(device->config_descriptor_result);
    }
    if (number != 0) {
        return failed(LIBUSB_ERROR_NOT_FOUND);
    }
    ++bus().configurations;
    *descriptor = &(new Configuration(*device))->descriptor;
    return 0;
}

void LIBUSB_CALL libusb_free_config_descriptor(libusb_config_descriptor* descriptor) {
    const Unwatched work;
    back_end().called("free_config_descriptor");
    if (descriptor != nullptr) {
        --bus().configurations;
        delete reinterpret_cast<Configuration*>(descriptor);
    }
}

libusb_device_handle* LIBUSB_CALL libusb_open_device_with_vid_pid(libusb_context* context,
                                                                  std::uint16_t vendor,
                                                                  std::uint16_t product) {
    const Unwatched work;
    back_end().called("open " + name_of(vendor, product));
    check_started("open", context);
    if (const auto code = back_end().outcome(Call::kOpen)) {
        failed(*code);
        return nullptr;
    }
    for (const auto& device : bus().devices) {
        if (device->plugged && device->vendor == vendor && device->product == product) {
            auto& handle = bus().handles.emplace_back(std::make_unique<libusb_device_handle>());
            handle->device = device.get();
            return handle.get();
        }
    }
    failed(LIBUSB_ERROR_NO_DEVICE);
    return nullptr;
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle) {
    const Unwatched work;
    back_end().called("close");
    if (check_handle("close", handle)) {
        const auto open = std::ranges::find(bus().handles, handle, &Handle::get);
        bus().closed.push_back(std::move(*open));
        bus().handles.erase(open);
        back_end().closed();
    }
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int number) {
    const Unwatched work;
    if (const auto code =
            interface_obstacle(Call::kKernelDriverActive, "kernel_driver_active", handle, number)) {
        return failed(*code);
    }
    const auto* const interface = interface_of(*handle, number);
    return interface != nullptr && interface->kernel_driver ? 1 : 0;
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle* handle, int number) {
    const Unwatched work;
    if (const auto code =
            interface_obstacle(Call::kDetachKernelDriver, "detach_kernel_driver", handle, number)) {
        return failed(*code);
    }
    auto* const interface = interface_of(*handle, number);
    if (interface == nullptr || !interface->kernel_driver) {
        return failed(LIBUSB_ERROR_NOT_FOUND);
    }
    interface->kernel_driver = false;
    return 0;
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int number) {
    const Unwatched work;
    if (const auto code = interface_obstacle(Call::kClaim, "claim_interface", handle, number)) {
        return failed(*code);
    }
    const auto* const interface = interface_of(*handle, number);
    if (interface == nullptr) {
        return failed(LIBUSB_ERROR_NOT_FOUND);
    }
    const bool held_elsewhere = std::ranges::any_of(bus().handles, [&](const auto& other) {
        return other.get() != handle && other->device == handle->device &&
               other->claimed.contains(number);
    });
    if (interface->kernel_driver || held_elsewhere) {
        return failed(LIBUSB_ERROR_BUSY);
    }
    handle->claimed.insert(number);
    back_end().claimed(number);
    return 0;
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle* handle, int number) {
    const Unwatched work;
    if (const auto code = interface_obstacle(Call::kRelease, "release_interface", handle, number)) {
        return failed(*code);
    }
    return handle->claimed.erase(number) == 1 ? 0 : failed(LIBUSB_ERROR_NOT_FOUND);
}

int LIBUSB_CALL libusb_reset_device(libusb_device_handle* handle) {
    const Unwatched work;
    back_end().called("reset_device");
    if (!check_handle("reset_device", handle)) {
        return failed(LIBUSB_ERROR_NO_DEVICE);
    }
    if (const auto code = back_end().outcome(Call::kReset)) {
        return failed(*code);
    }
    if (!handle->device->plugged) {
        return failed(LIBUSB_ERROR_NO_DEVICE);
    }
    back_end().reset();
    return 0;
}

int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint,
                                     unsigned char* data, int length, int* transferred,
                                     unsigned int timeout) {
    const Unwatched work;
    Transfer transfer{.endpoint = endpoint, .data = buffer(data, length), .timeout_ms = timeout};
    if (timeout == 0) {
        back_end().misuse("a bulk transfer that may wait for ever");
    }
    if (!check_handle("bulk_transfer", handle) || !handle->device->plugged) {
        transfer.obstacle = LIBUSB_ERROR_NO_DEVICE;
    } else if (!has_endpoint(*handle, endpoint)) {
        transfer.obstacle = LIBUSB_ERROR_IO;
    } else {
        transfer.device = handle->device;
    }
    const int code = back_end().bulk_transfer(transfer);
    if (transferred != nullptr) {
        *transferred = static_cast<int>(transfer.moved);
    }
    return failed(code);
}

int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, std::uint8_t type,
                                        std::uint8_t request, std::uint16_t value,
                                        std::uint16_t index, unsigned char* data,
                                        std::uint16_t length, unsigned int timeout) {
    const Unwatched work;
    ControlTransfer transfer{{.endpoint = static_cast<std::uint8_t>(type & LIBUSB_ENDPOINT_IN),
                              .data = buffer(data, length),
                              .timeout_ms = timeout},
                             type,
                             request,
                             value,
                             index};
    if (!check_handle("control_transfer", handle) || !handle->device->plugged) {
        transfer.obstacle = LIBUSB_ERROR_NO_DEVICE;
    }
    const int code = back_end().control_transfer(transfer);
    return code == 0 ? static_cast<int>(transfer.moved) : failed(code);
}

} // extern "C"
