// Ten bytes out, one packet in.
#include "bare_reader.h"

#include <array>
#include <stdexcept>

namespace qaven::bench {
namespace {

constexpr std::uint16_t vendor = 0x2F7A;
constexpr std::uint16_t product = 0x4417;
constexpr int interface_of_slot_2 = 2;
constexpr unsigned char endpoint_out = 0x04;
constexpr unsigned char endpoint_in = 0x84;
constexpr unsigned timeout_ms = 2000;
constexpr std::size_t packet = 64;
constexpr std::size_t header = 10;
constexpr std::size_t sequence_byte = 6;

constexpr unsigned char message_power_on = 0x62;
constexpr unsigned char message_power_off = 0x63;
constexpr unsigned char message_slot_status = 0x65;

void expect_success(int result) {
    if (result != 0) {
        throw std::runtime_error(libusb_error_name(result));
    }
}

libusb_context* started_libusb() {
    libusb_context* context = nullptr;
    expect_success(libusb_init(&context));
    return context;
}

libusb_device_handle* opened_reader(libusb_context* context) {
    libusb_device_handle* const handle = libusb_open_device_with_vid_pid(context, vendor, product);
    if (handle == nullptr) {
        throw std::runtime_error("libusb finds no reader that it may open");
    }
    return handle;
}

} // namespace

BareReader::BareReader() : context_(started_libusb()), handle_(opened_reader(context_)) {
    expect_success(libusb_claim_interface(handle_, interface_of_slot_2));
}

BareReader::~BareReader() {
    libusb_release_interface(handle_, interface_of_slot_2);
    libusb_close(handle_);
    libusb_exit(context_);
}

void BareReader::power_on() {
    command(message_power_on);
}

void BareReader::status() {
    command(message_slot_status);
}

void BareReader::power_off() {
    command(message_power_off);
}

void BareReader::command(unsigned char type) {
    std::array<unsigned char, header> message{type};
    message[sequence_byte] = sequence_++;
    std::array<unsigned char, packet> reply{};
    int moved = 0;
    expect_success(libusb_bulk_transfer(handle_, endpoint_out, message.data(),
                                        static_cast<int>(message.size()), &moved, timeout_ms));
    expect_success(libusb_bulk_transfer(handle_, endpoint_in, reply.data(),
                                        static_cast<int>(reply.size()), &moved, timeout_ms));
}

} // namespace qaven::bench
