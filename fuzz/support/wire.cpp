// The bus of a fuzz input and the libusb functions on top of it.
#include "support/wire.h"

#include "engine/card/session.h"
#include "idcard/icc.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace qaven::fuzz {

namespace {

constexpr std::size_t kPacket = 64;
constexpr std::size_t kHeader = 10;

// Where the length field stands in a reply of the security module.
constexpr std::size_t kReplyLengthAt = 5;

// The largest AFL names 16,065 records, and a card can ask for 256 follow-ups to each command; only
// an input of its own size feeds those. What is above this goes round in a circle.
constexpr unsigned long kMostTransfers = 250'000;

constexpr std::uint8_t kPowerOn = 0x62;
constexpr std::uint8_t kPowerOff = 0x63;
constexpr std::uint8_t kGetSlotStatus = 0x65;
constexpr std::uint8_t kTransferBlock = 0x6F;
constexpr std::uint8_t kDataBlock = 0x80;
constexpr std::uint8_t kSlotStatus = 0x81;

constexpr std::uint8_t kCardActive = 0;
constexpr std::uint8_t kCardAbsent = 2;
constexpr std::uint8_t kTimeExtension = 0x80;

// A card with T=0 and a few historical bytes.
constexpr std::array<std::uint8_t, 9> kAtr{0x3B, 0x65, 0x00, 0x00, 0x20, 0x63, 0xCB, 0x68, 0x00};

// Bytes of the bus stream below this are calls that work.
constexpr std::uint8_t kFirstFault = 0x80;

constexpr std::array kErrors{
    LIBUSB_ERROR_IO,
    LIBUSB_ERROR_NO_DEVICE,
    LIBUSB_ERROR_TIMEOUT,
    LIBUSB_ERROR_PIPE,
    LIBUSB_ERROR_BUSY,
    LIBUSB_ERROR_ACCESS,
    LIBUSB_ERROR_NOT_SUPPORTED,
    LIBUSB_ERROR_OVERFLOW,
    LIBUSB_ERROR_NO_MEM,
    LIBUSB_ERROR_NOT_FOUND,
    LIBUSB_ERROR_INTERRUPTED,
    LIBUSB_ERROR_OTHER,
    LIBUSB_ERROR_INVALID_PARAM,
};

[[noreturn]] void misuse(const char* what) {
    std::fprintf(stderr, "USB: %s\n", what);
    std::abort();
}

void require(bool condition, const char* what) {
    if (!condition) {
        misuse(what);
    }
}

int failed(int code) {
    if (code < 0) {
        errno = ENODEV;
    }
    return code;
}

int code_of(AnswerKind kind) {
    switch (kind) {
    case AnswerKind::kTimeout:
        return LIBUSB_ERROR_TIMEOUT;
    case AnswerKind::kStall:
        return LIBUSB_ERROR_PIPE;
    case AnswerKind::kNoDevice:
        return LIBUSB_ERROR_NO_DEVICE;
    case AnswerKind::kOverflow:
        return LIBUSB_ERROR_OVERFLOW;
    case AnswerKind::kIo:
        return LIBUSB_ERROR_IO;
    default:
        return 0;
    }
}

unsigned big_endian(std::span<const std::uint8_t> two) {
    return static_cast<unsigned>(two[0]) << 8U | two[1];
}

} // namespace

Device bank_card_reader() {
    Device reader;
    reader.vendor = 0x2F7A;
    reader.product = 0x4417;
    reader.interfaces = {
        {.settings = {{.endpoints = {0x81}}}},
        {.settings = {{.endpoints = {0x02, 0x82, 0x83}}}},
        {.settings = {{.endpoints = {0x04, 0x84, 0x85}}}},
    };
    return reader;
}

Device identity_card_reader() {
    Device reader;
    reader.vendor = 0x2F7A;
    reader.product = 0x4463;
    reader.interfaces = {{.settings = {{.endpoints = {0x81}}}}};
    return reader;
}

Wire* Wire::current_ = nullptr;
Wire::LiveCard Wire::live_card_;
Bytes Wire::kept_records_;

void Wire::use(LiveCard card) {
    live_card_ = std::move(card);
}

Bytes Wire::take_records() {
    return std::exchange(kept_records_, {});
}

void Wire::keep_record(std::span<const std::uint8_t> data) {
    kept_records_.push_back(static_cast<std::uint8_t>(AnswerKind::kGood));
    append_long_chunk(kept_records_, data);
}

Wire::Wire(Input& input, Mode mode)
    : Wire(input, mode, {bank_card_reader(), identity_card_reader()}) {}

Wire::Wire(Input& input, Mode mode, std::vector<Device> devices)
    : input_(input), bus_(input.long_chunk()), mode_(mode) {
    require(current_ == nullptr, "two buses at a time");
    current_ = this;
    for (Device& device : devices) {
        devices_.push_back(std::make_unique<Device>(std::move(device)));
    }
}

Wire::~Wire() {
    require(lists_ == 0, "a device list was not freed");
    require(configurations_ == 0, "a configuration descriptor was not freed");
    require(std::ranges::none_of(handles_, [](const auto& handle) { return handle->open; }),
            "a device was left open");
    require(starts_ == 0, "the library was not ended");
    current_ = nullptr;
}

void Wire::connect() {
    undisturbed_ = true;
    require(session::open_with_card() == 0, "no card in a slot that holds one");
    undisturbed_ = false;
}

void Wire::disconnect() {
    undisturbed_ = true;
    next_operation();
    session::end();
    usb_device_close();
    undisturbed_ = false;
    in_.clear();
}

Wire::Record Wire::next_record() {
    if (input_.empty()) {
        return {AnswerKind::kIo, {}};
    }
    const std::uint8_t kind = input_.byte();
    const bool known = kind < static_cast<std::uint8_t>(AnswerKind::kCount);
    return {known ? static_cast<AnswerKind>(kind) : AnswerKind::kGood, input_.long_chunk()};
}

int Wire::bus_code() {
    if (undisturbed_) {
        return 0;
    }
    const std::uint8_t byte = bus_.byte();
    return byte < kFirstFault ? 0 : kErrors[byte % kErrors.size()];
}

void Wire::queue_message(std::uint8_t type, std::uint8_t status, std::size_t length,
                         std::uint8_t sequence, std::span<const std::uint8_t> data) {
    Bytes message(kHeader);
    message[0] = type;
    message[1] = static_cast<std::uint8_t>(length);
    message[2] = static_cast<std::uint8_t>(length >> 8U);
    message[6] = sequence;
    message[7] = status;
    message.insert(message.end(), data.begin(), data.end());
    std::span<const std::uint8_t> rest(message);
    for (; rest.size() >= kPacket; rest = rest.subspan(kPacket)) {
        in_.push_back({0, Input::exact(rest.first(kPacket))});
    }
    in_.push_back({0, Input::exact(rest)});
}

// The reply to power on, power off or slot status.
void Wire::answer_power(std::uint8_t type) {
    const std::uint8_t outcome = undisturbed_ ? std::uint8_t{0} : bus_.byte();
    if (outcome >= kFirstFault) {
        in_.push_back({kErrors[outcome % kErrors.size()], {}});
        return;
    }
    const std::uint8_t status = (outcome & 1U) != 0 ? kCardAbsent : kCardActive;
    if (type == kPowerOn) {
        queue_message(kDataBlock, status, kAtr.size(), last_sequence_, kAtr);
    } else {
        queue_message(kSlotStatus, status, 0, last_sequence_, {});
    }
}

// The next packets of the reader, when none is left.
void Wire::answer_bulk() {
    if (live_card_) {
        answer_live();
        return;
    }
    const bool for_reader =
        last_type_ == kPowerOn || last_type_ == kPowerOff || last_type_ == kGetSlotStatus;
    if (for_reader && (mode_ == Mode::kCard || undisturbed_)) {
        answer_power(last_type_);
        return;
    }
    const Record record = next_record();
    const int code = code_of(record.kind);
    if (code != 0 || mode_ == Mode::kRaw || record.kind == AnswerKind::kPacket) {
        in_.push_back({code, Input::exact(record.data)});
        return;
    }
    const std::size_t size = record.data.size();
    switch (record.kind) {
    case AnswerKind::kSilence:
        in_.push_back({0, {}});
        break;
    case AnswerKind::kLiesAboutLength:
        if (size >= 2) {
            queue_message(kDataBlock, kCardActive, big_endian(record.data), last_sequence_,
                          record.data.subspan(2));
        } else {
            queue_message(kDataBlock, kCardActive, kPacket, last_sequence_, {});
        }
        break;
    case AnswerKind::kOtherSequence:
        queue_message(kDataBlock, kCardActive, size, static_cast<std::uint8_t>(last_sequence_ + 1U),
                      record.data);
        break;
    case AnswerKind::kCardRemoved:
        queue_message(kDataBlock, kCardAbsent, 0, last_sequence_, {});
        break;
    case AnswerKind::kTimeExtension:
        queue_message(kDataBlock, kTimeExtension, 0, last_sequence_, {});
        queue_message(kDataBlock, kCardActive, size, last_sequence_, record.data);
        break;
    default:
        queue_message(kDataBlock, kCardActive, size, last_sequence_, record.data);
        break;
    }
}

void Wire::answer_live() {
    const Bytes response = live_card_(message_);
    if (last_type_ != kTransferBlock) {
        answer_power(last_type_);
        return;
    }
    if (mode_ == Mode::kCard) {
        keep_record(response);
    }
    queue_message(kDataBlock, kCardActive, response.size(), last_sequence_, response);
}

// A reply of the security module in reports: length and checksum around status bytes and data.
void Wire::queue_reply(std::size_t length, std::span<const std::uint8_t> data) {
    Bytes frame{0xAA,
                0xAA,
                0xAA,
                0x96,
                0x69,
                static_cast<std::uint8_t>(length >> 8U),
                static_cast<std::uint8_t>(length)};
    frame.insert(frame.end(), data.begin(), data.end());
    std::uint8_t checksum = 0;
    for (const std::uint8_t byte : std::span(frame).subspan(kReplyLengthAt)) {
        checksum ^= byte;
    }
    frame.push_back(checksum);
    for (std::span<const std::uint8_t> rest(frame); !rest.empty();) {
        const auto report = rest.first(std::min(rest.size(), kPacket));
        in_.push_back({0, Input::exact(report)});
        rest = rest.subspan(report.size());
    }
}

// The next reports of the security module.
void Wire::answer_report() {
    if (live_card_) {
        const Bytes reply = live_card_(message_);
        if (mode_ == Mode::kCard) {
            keep_record(reply);
        }
        queue_reply(reply.size() + 1, reply);
        return;
    }
    const Record record = next_record();
    const int code = code_of(record.kind);
    if (code != 0) {
        in_.push_back({code, {}});
        return;
    }
    if (record.kind == AnswerKind::kSilence && record.data.size() >= 2) {
        // So many polls find nothing.
        in_.resize(big_endian(record.data.first(2)) % 1024U + 1U);
        return;
    }
    if (mode_ == Mode::kRaw || record.kind == AnswerKind::kPacket) {
        in_.push_back({0, Input::exact(record.data)});
        return;
    }
    if (record.kind == AnswerKind::kLiesAboutLength && record.data.size() >= 2) {
        queue_reply(big_endian(record.data), record.data.subspan(2));
        return;
    }
    queue_reply(record.data.size() + 1, record.data);
}

// The bodies of the libusb functions.
struct WireCalls {
    static Wire& bus() {
        require(Wire::current_ != nullptr, "libusb was called outside a Wire");
        return *Wire::current_;
    }

    static void check_started(const libusb_context* context) {
        require(context == nullptr, "a context of its own");
        require(bus().starts_ > 0, "a call while the library is not started");
    }

    static libusb_device_handle& checked(libusb_device_handle* handle) {
        require(handle != nullptr, "a null handle");
        const bool ours = std::ranges::any_of(
            bus().handles_, [&](const auto& other) { return other.get() == handle; });
        require(ours && handle->open, "a closed handle");
        return *handle;
    }

    static int init() {
        const int code = bus().bus_code();
        bus().starts_ += code == 0 ? 1 : 0;
        return failed(code);
    }

    static void exit(const libusb_context* context) {
        check_started(context);
        --bus().starts_;
        require(bus().starts_ > 0 ||
                    std::ranges::none_of(bus().handles_,
                                         [](const auto& handle) { return handle->open; }),
                "the library was ended with a device open");
    }

    static ssize_t get_device_list(const libusb_context* context, libusb_device*** list) {
        check_started(context);
        if (const int code = bus().bus_code(); code != 0) {
            return failed(code);
        }
        const auto& devices = bus().devices_;
        auto* const copied = new libusb_device*[devices.size() + 1]();
        std::ranges::transform(devices, copied, [](const auto& device) { return device.get(); });
        ++bus().lists_;
        *list = copied;
        return static_cast<ssize_t>(devices.size());
    }

    static void free_device_list(libusb_device** list) {
        if (list != nullptr) {
            --bus().lists_;
            delete[] list;
        }
    }

    static int get_device_descriptor(const libusb_device& device,
                                     libusb_device_descriptor& descriptor) {
        if (const int code = bus().bus_code(); code != 0) {
            return failed(code);
        }
        descriptor = {};
        descriptor.idVendor = device.vendor;
        descriptor.idProduct = device.product;
        return 0;
    }

    // A configuration descriptor and what it points to, each array in a block of exactly its size.
    // libusb gives null pointers for arrays of none.
    struct Configuration {
        libusb_config_descriptor descriptor{};
        std::vector<libusb_interface> interfaces;
        std::deque<std::vector<libusb_interface_descriptor>> settings;
        std::deque<std::vector<libusb_endpoint_descriptor>> endpoints;
    };

    static int get_config_descriptor(const libusb_device& device,
                                     libusb_config_descriptor** descriptor) {
        if (const int code = bus().bus_code(); code != 0) {
            return failed(code);
        }
        auto* const configuration = new Configuration;
        configuration->interfaces.resize(device.interfaces.size());
        auto listed = configuration->interfaces.begin();
        for (const Device::Interface& interface : device.interfaces) {
            auto& settings = configuration->settings.emplace_back(interface.settings.size());
            auto described = settings.begin();
            for (const Device::Setting& setting : interface.settings) {
                auto& endpoints = configuration->endpoints.emplace_back(setting.endpoints.size());
                for (std::size_t k = 0; k < endpoints.size(); ++k) {
                    endpoints[k].bEndpointAddress = setting.endpoints[k];
                }
                described->bNumEndpoints = static_cast<std::uint8_t>(endpoints.size());
                described->endpoint = endpoints.empty() ? nullptr : endpoints.data();
                ++described;
            }
            listed->altsetting = settings.empty() ? nullptr : settings.data();
            listed->num_altsetting = static_cast<int>(settings.size());
            ++listed;
        }
        libusb_config_descriptor& whole = configuration->descriptor;
        whole.bNumInterfaces = static_cast<std::uint8_t>(configuration->interfaces.size());
        whole.interface =
            configuration->interfaces.empty() ? nullptr : configuration->interfaces.data();
        ++bus().configurations_;
        // The descriptor is the first member, so its address is the configuration's.
        *descriptor = &whole;
        return 0;
    }

    static void free_config_descriptor(libusb_config_descriptor* descriptor) {
        if (descriptor != nullptr) {
            --bus().configurations_;
            delete reinterpret_cast<Configuration*>(descriptor);
        }
    }

    static libusb_device_handle* open(const libusb_context* context, std::uint16_t vendor,
                                      std::uint16_t product) {
        check_started(context);
        if (bus().bus_code() != 0) {
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
        return nullptr;
    }

    static void close(libusb_device_handle* handle) {
        checked(handle).open = false;
        bus().in_.clear();
    }

    static int kernel_driver_active(libusb_device_handle* handle) {
        checked(handle);
        // Half of the calls that work find a driver.
        const std::uint8_t byte = bus().undisturbed_ ? std::uint8_t{0} : bus().bus_.byte();
        return byte < kFirstFault ? static_cast<int>(byte & 1U)
                                  : failed(kErrors[byte % kErrors.size()]);
    }

    static int detach_kernel_driver(libusb_device_handle* handle) {
        checked(handle);
        return failed(bus().bus_code());
    }

    static int claim_interface(libusb_device_handle* handle, int number) {
        libusb_device_handle& device = checked(handle);
        const int code = bus().bus_code();
        if (code != 0) {
            return failed(code);
        }
        if (number < 0 || static_cast<std::size_t>(number) >= device.device->interfaces.size()) {
            return failed(LIBUSB_ERROR_NOT_FOUND);
        }
        device.claimed.insert(number);
        return 0;
    }

    static int release_interface(libusb_device_handle* handle, int number) {
        libusb_device_handle& device = checked(handle);
        const bool was_claimed = device.claimed.erase(number) == 1;
        const int code = bus().bus_code();
        return failed(code == 0 && !was_claimed ? static_cast<int>(LIBUSB_ERROR_NOT_FOUND) : code);
    }

    static int reset_device(libusb_device_handle* handle) {
        checked(handle);
        return failed(bus().bus_code());
    }

    static void count_transfer() {
        ++bus().transfers_;
        require(bus().transfers_ <= kMostTransfers, "an operation goes round in a circle");
    }

    static bool claimed_endpoint(const libusb_device_handle& handle, std::uint8_t endpoint) {
        const auto& interfaces = handle.device->interfaces;
        return std::ranges::any_of(handle.claimed, [&](int number) {
            const auto& settings = interfaces[static_cast<std::size_t>(number)].settings;
            return std::ranges::any_of(settings, [&](const Device::Setting& setting) {
                return std::ranges::find(setting.endpoints, endpoint) != setting.endpoints.end();
            });
        });
    }

    static int bulk_transfer(libusb_device_handle* handle, std::uint8_t endpoint,
                             std::span<std::uint8_t> data, int& transferred, unsigned timeout) {
        const libusb_device_handle& device = checked(handle);
        require(timeout != 0, "a bulk transfer that may wait for ever");
        count_transfer();
        transferred = 0;
        if (!claimed_endpoint(device, endpoint)) {
            return failed(LIBUSB_ERROR_IO);
        }
        const bool in = (endpoint & LIBUSB_ENDPOINT_IN) != 0;
        return failed(in ? bulk_in(data, transferred) : bulk_out(data, transferred));
    }

    static int bulk_out(std::span<const std::uint8_t> data, int& transferred) {
        Wire& wire = bus();
        if (const int code = wire.bus_code(); code != 0) {
            wire.message_begun_ = false;
            return code;
        }
        // Reading what was sent lets the sanitizer see a length that is too long.
        const Bytes sent = Input::exact(data);
        if (!wire.message_begun_ && sent.size() >= kHeader) {
            wire.last_type_ = sent[0];
            wire.last_sequence_ = sent[6];
            // Whatever the host had not fetched is gone.
            if (wire.mode_ == Wire::Mode::kCard) {
                wire.in_.clear();
            }
            wire.message_.clear();
        }
        wire.message_begun_ = true;
        wire.message_.insert(wire.message_.end(), sent.begin(), sent.end());
        transferred = static_cast<int>(sent.size());
        return 0;
    }

    static int bulk_in(std::span<std::uint8_t> data, int& transferred) {
        Wire& wire = bus();
        wire.message_begun_ = false;
        if (wire.in_.empty()) {
            wire.answer_bulk();
        }
        return receive(data, transferred);
    }

    static int receive(std::span<std::uint8_t> data, int& transferred) {
        Wire& wire = bus();
        const Wire::Packet next = std::move(wire.in_.front());
        wire.in_.pop_front();
        if (Wire::live_card_ && wire.mode_ == Wire::Mode::kRaw && !wire.undisturbed_) {
            Wire::keep_record(next.data);
        }
        const std::size_t count = std::min(next.data.size(), data.size());
        // The whole room that the caller promised must be there.
        std::ranges::fill(data, static_cast<std::uint8_t>(0));
        std::copy_n(next.data.begin(), count, data.begin());
        transferred = static_cast<int>(count);
        return next.code == 0 && next.data.size() > data.size()
                   ? static_cast<int>(LIBUSB_ERROR_OVERFLOW)
                   : next.code;
    }

    static int control_transfer(libusb_device_handle* handle, std::uint8_t type,
                                std::span<std::uint8_t> data) {
        checked(handle);
        count_transfer();
        Wire& wire = bus();
        if ((type & LIBUSB_ENDPOINT_IN) == 0) {
            if (const int code = wire.bus_code(); code != 0) {
                return failed(code);
            }
            wire.in_.clear();
            wire.message_ = Input::exact(data);
            return static_cast<int>(wire.message_.size());
        }
        if (wire.in_.empty()) {
            wire.answer_report();
        }
        int transferred = 0;
        const int code = receive(data, transferred);
        return code == 0 ? transferred : failed(code);
    }
};

} // namespace qaven::fuzz

namespace {

using qaven::fuzz::WireCalls;

std::span<unsigned char> transfer_buffer(unsigned char* data, int length) {
    qaven::fuzz::require(length >= 0, "a transfer of negative length");
    qaven::fuzz::require(data != nullptr || length == 0, "a transfer without a buffer");
    return {data, static_cast<std::size_t>(length)};
}

// 22 April 2019, 16:13:55 UTC.
constexpr std::time_t kNow = 1555949635;

} // namespace

extern "C" {

int LIBUSB_CALL libusb_init(libusb_context** context) {
    qaven::fuzz::require(context == nullptr, "a context of its own");
    return WireCalls::init();
}

void LIBUSB_CALL libusb_exit(libusb_context* context) {
    WireCalls::exit(context);
}

ssize_t LIBUSB_CALL libusb_get_device_list(libusb_context* context, libusb_device*** list) {
    return WireCalls::get_device_list(context, list);
}

void LIBUSB_CALL libusb_free_device_list(libusb_device** list, int /*unreference*/) {
    WireCalls::free_device_list(list);
}

int LIBUSB_CALL libusb_get_device_descriptor(libusb_device* device,
                                             libusb_device_descriptor* descriptor) {
    return WireCalls::get_device_descriptor(*device, *descriptor);
}

int LIBUSB_CALL libusb_get_config_descriptor(libusb_device* device, std::uint8_t /*index*/,
                                             libusb_config_descriptor** descriptor) {
    return WireCalls::get_config_descriptor(*device, descriptor);
}

void LIBUSB_CALL libusb_free_config_descriptor(libusb_config_descriptor* descriptor) {
    WireCalls::free_config_descriptor(descriptor);
}

libusb_device_handle* LIBUSB_CALL libusb_open_device_with_vid_pid(libusb_context* context,
                                                                  std::uint16_t vendor,
                                                                  std::uint16_t product) {
    return WireCalls::open(context, vendor, product);
}

void LIBUSB_CALL libusb_close(libusb_device_handle* handle) {
    WireCalls::close(handle);
}

int LIBUSB_CALL libusb_kernel_driver_active(libusb_device_handle* handle, int /*interface*/) {
    return WireCalls::kernel_driver_active(handle);
}

int LIBUSB_CALL libusb_detach_kernel_driver(libusb_device_handle* handle, int /*interface*/) {
    return WireCalls::detach_kernel_driver(handle);
}

int LIBUSB_CALL libusb_claim_interface(libusb_device_handle* handle, int interface) {
    return WireCalls::claim_interface(handle, interface);
}

int LIBUSB_CALL libusb_release_interface(libusb_device_handle* handle, int interface) {
    return WireCalls::release_interface(handle, interface);
}

int LIBUSB_CALL libusb_reset_device(libusb_device_handle* handle) {
    return WireCalls::reset_device(handle);
}

int LIBUSB_CALL libusb_bulk_transfer(libusb_device_handle* handle, unsigned char endpoint,
                                     unsigned char* data, int length, int* transferred,
                                     unsigned int timeout) {
    int ignored = 0;
    return WireCalls::bulk_transfer(handle, endpoint, transfer_buffer(data, length),
                                    transferred != nullptr ? *transferred : ignored, timeout);
}

int LIBUSB_CALL libusb_control_transfer(libusb_device_handle* handle, std::uint8_t type,
                                        std::uint8_t /*request*/, std::uint16_t /*value*/,
                                        std::uint16_t /*index*/, unsigned char* data,
                                        std::uint16_t length, unsigned int /*timeout*/) {
    return WireCalls::control_transfer(handle, type, transfer_buffer(data, length));
}

// Nothing sleeps here, and the clock stands: dates and the terminal's unpredictable number are the
// same in every run of an input.

int usleep(useconds_t /*duration*/) {
    return 0;
}

std::time_t time(std::time_t* result) noexcept {
    if (result != nullptr) {
        *result = kNow;
    }
    return kNow;
}

} // extern "C"
