// Looking at the bus.
#include "tools/qaven/bus.h"

#include "tools/qaven/cli/exit_status.h"
#include "tools/qaven/slots.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <span>

namespace qaven::cli {

namespace {

constexpr std::uint16_t kVendor = 0x2F7A;

constexpr const char* kSeeDoctor = "; 'qaven doctor' looks closer";

Interface probe_interface(libusb_device_handle* handle, int number) {
    Interface interface { number };
    if (libusb_kernel_driver_active(handle, number) == 1) {
        interface.holder = Holder::kDriver;
        return interface;
    }
    interface.error = libusb_claim_interface(handle, number);
    if (interface.error == 0) {
        libusb_release_interface(handle, number);
    } else {
        interface.holder =
            interface.error == LIBUSB_ERROR_BUSY ? Holder::kProgram : Holder::kUnknown;
    }
    return interface;
}

Reader probe_device(libusb_device* device, const ReaderKind& kind) {
    Reader reader{
        libusb_get_bus_number(device), libusb_get_device_address(device), Access::kOpen, 0, {}};
    libusb_device_handle* handle = nullptr;
    reader.error = libusb_open(device, &handle);
    if (reader.error != 0) {
        reader.access = reader.error == LIBUSB_ERROR_ACCESS ? Access::kDenied : Access::kFailed;
        return reader;
    }
    for (const int number : kind.interfaces) {
        reader.interfaces.push_back(probe_interface(handle, number));
    }
    libusb_close(handle);
    return reader;
}

bool held(const Reader& reader) {
    return std::ranges::any_of(reader.interfaces, [](const Interface& interface) {
        return interface.holder == Holder::kProgram;
    });
}

[[noreturn]] void refuse(const std::string& sentence) {
    throw Failure(kNoReader, sentence + kSeeDoctor);
}

} // namespace

std::string Reader::node() const {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "/dev/bus/usb/%03d/%03d", bus, address);
    return text.data();
}

Bus::Bus() : error_(libusb_init(&context_)) {}

Bus::~Bus() {
    if (error_ == 0) {
        libusb_exit(context_);
    }
}

std::vector<Reader> Bus::readers(const ReaderKind& kind) const {
    std::vector<Reader> found;
    libusb_device** list = nullptr;
    const ssize_t count = error_ == 0 ? libusb_get_device_list(context_, &list) : 0;
    for (libusb_device* device :
         std::span(list, static_cast<std::size_t>(std::max<ssize_t>(count, 0)))) {
        libusb_device_descriptor descriptor{};
        if (libusb_get_device_descriptor(device, &descriptor) == 0 &&
            descriptor.idVendor == kVendor && descriptor.idProduct == kind.product) {
            found.push_back(probe_device(device, kind));
        }
    }
    if (list != nullptr) {
        libusb_free_device_list(list, 1);
    }
    return found;
}

std::string require_reader(const ReaderKind& kind) {
    const Bus bus;
    if (bus.error() != 0) {
        refuse(std::string("libusb cannot start: ") + libusb_strerror(bus.error()));
    }
    const std::vector<Reader> readers = bus.readers(kind);
    const std::string name = std::string(kind.name) + " (" + kind.identifiers + ")";
    if (readers.empty()) {
        refuse("no " + name + " is connected");
    }
    // The library opens the first one.
    const Reader& reader = readers.front();
    if (reader.access != Access::kOpen) {
        refuse("the " + name + " cannot be opened: " + libusb_strerror(reader.error));
    }
    if (held(reader)) {
        refuse("another program holds the " + name);
    }
    return reader.node();
}

bool slots_are_empty() {
    return std::ranges::all_of(kCardReader.interfaces, [](int interface) {
        return query_slot(interface, SlotQuery::kStatus).state == SlotState::kEmpty;
    });
}

std::string require_card() {
    std::string reader = require_reader(kCardReader);
    if (slots_are_empty()) {
        throw Failure(kNoCard, "the reader holds no card");
    }
    return reader;
}

} // namespace qaven::cli
