// The reader by libusb alone: what a program without the library would do.
#pragma once

#include <libusb.h>

namespace qaven::bench {

// The second slot's interface, claimed.
class BareReader {
  public:
    BareReader();
    BareReader(const BareReader&) = delete;
    BareReader& operator=(const BareReader&) = delete;
    BareReader(BareReader&&) = delete;
    BareReader& operator=(BareReader&&) = delete;
    ~BareReader();

    [[nodiscard]] libusb_device_handle* handle() const { return handle_; }

    void power_on();
    void status();
    void power_off();

  private:
    void command(unsigned char type);

    libusb_context* context_;
    libusb_device_handle* handle_;
    unsigned char sequence_ = 0;
};

} // namespace qaven::bench
