// A second program at the reader, by libusb alone.
#include "reader_state.h"

#include <libusb.h>

#include <array>
#include <ostream>

namespace qaven::test {

namespace {

constexpr std::uint16_t kVendor = 0x2F7A;
constexpr std::uint16_t kProduct = 0x4417;
constexpr unsigned kTimeoutMs = 2000;

constexpr int kCardPowered = 0;
constexpr int kCardOff = 1;

} // namespace

std::ostream& operator<<(std::ostream& out, ReaderState state) {
    switch (state) {
    case ReaderState::kHeld:
        return out << "reader held";
    case ReaderState::kFreeCardPowered:
        return out << "reader free, card powered";
    case ReaderState::kFreeCardOff:
        return out << "reader free, card without power";
    case ReaderState::kFreeNoCard:
        return out << "reader free, no card";
    case ReaderState::kNoReader:
        return out << "no reader";
    }
    return out;
}

OtherProgram::OtherProgram(int slot)
    : context_(started()), handle_(libusb_open_device_with_vid_pid(context_, kVendor, kProduct)),
      slot_(slot), claimed_(handle_ != nullptr && libusb_claim_interface(handle_, slot_) == 0) {}

libusb_context* OtherProgram::started() {
    libusb_context* context = nullptr;
    libusb_init(&context);
    return context;
}

OtherProgram::~OtherProgram() {
    if (claimed_) {
        libusb_release_interface(handle_, slot_);
    }
    if (handle_ != nullptr) {
        libusb_close(handle_);
    }
    libusb_exit(context_);
}

int OtherProgram::slot_status() {
    // The slots' bulk endpoints are 02/82 and 04/84.
    const auto out = static_cast<unsigned char>(2 * slot_);
    const auto in = static_cast<unsigned char>(0x80 + 2 * slot_);
    std::array<unsigned char, 10> question{0x65};
    std::array<unsigned char, 64> answer{};
    int moved = 0;
    if (libusb_bulk_transfer(handle_, out, question.data(), question.size(), &moved, kTimeoutMs) !=
            0 ||
        libusb_bulk_transfer(handle_, in, answer.data(), answer.size(), &moved, kTimeoutMs) != 0 ||
        moved < 10 || answer[0] != 0x81) {
        return -1;
    }
    return answer[7] & 0x03;
}

ReaderState reader_state(int slot) {
    OtherProgram other(slot);
    if (!other.has_reader()) {
        return ReaderState::kNoReader;
    }
    if (!other.has_interface()) {
        return ReaderState::kHeld;
    }
    switch (other.slot_status()) {
    case kCardPowered:
        return ReaderState::kFreeCardPowered;
    case kCardOff:
        return ReaderState::kFreeCardOff;
    default:
        return ReaderState::kFreeNoCard;
    }
}

} // namespace qaven::test
