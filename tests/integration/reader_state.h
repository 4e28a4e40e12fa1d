// What another program on the same machine sees of the reader: whether somebody holds the slot's
// interface, and if nobody does, whether the card in it has power.
#pragma once

#include <iosfwd>

struct libusb_context;
struct libusb_device_handle;

namespace qaven::test {

enum class ReaderState {
    kHeld,            // the interface cannot be claimed
    kFreeCardPowered, // it can, and the card in the slot has power
    kFreeCardOff,     // it can, and the card in the slot has none
    kFreeNoCard,      // it can, and the slot is empty
    kNoReader,        // there is no reader on the bus
};

std::ostream& operator<<(std::ostream& out, ReaderState state);

// Asks over a USB context of its own. slot: the interface number, 1 or 2.
ReaderState reader_state(int slot = 2);

// Holds a slot's interface as another program would, for as long as it lives.
class OtherProgram {
  public:
    explicit OtherProgram(int slot);
    ~OtherProgram();
    OtherProgram(const OtherProgram&) = delete;
    OtherProgram& operator=(const OtherProgram&) = delete;

    bool has_reader() const { return handle_ != nullptr; }
    bool has_interface() const { return claimed_; }

    // CCID GetSlotStatus: bStatus of the answer, or -1 when none came.
    int slot_status();

  private:
    static libusb_context* started();

    libusb_context* context_ = nullptr;
    libusb_device_handle* handle_ = nullptr;
    int slot_;
    bool claimed_ = false;
};

} // namespace qaven::test
