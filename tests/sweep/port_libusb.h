// libusb without a kernel and without waiting, on a port of the virtual host controller.
//
// The bus has a clock of its own, which moves only while a transfer waits, and then straight to the
// moment at which the device has something to say or the transfer's time-out is over: a reader that
// never answers costs microseconds, and what a host would have waited is known exactly.
//
// The clocks of the process are this one while a Bus is there, and sleeping moves it.
//
// A Bus is the only one for as long as it lives:
//
//     virtual_reader::Reader reader(nullptr, card.get());
//     Bus bus(reader);
//     bus.plug({virtual_usb::parse_fault("after=12:timeout")});
//     ... the library's calls ...
//     bus.spent().time                                      // 10 s, and nobody waited
//     EXPECT_THAT(bus.misuses(), IsEmpty());
//
// Results are those of libusb on Linux: a stalled endpoint is LIBUSB_ERROR_PIPE, a reader that left
// LIBUSB_ERROR_NO_DEVICE, one that sends more than was asked for LIBUSB_ERROR_OVERFLOW; a transfer
// that ends early leaves what had moved until then.
#pragma once

#include "tests/support/libusb_stand_in.h"
#include "virtual/usb/port.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qaven::sweep {

using Duration = std::chrono::nanoseconds;

// The time on the clock of the bus that is there; nothing without a bus. Any thread may ask.
std::optional<Duration> bus_clock();

class Bus final : public test::LibusbStandIn {
  public:
    // A device that is not plugged in yet; it outlives the bus.
    explicit Bus(virtual_usb::Device& device);
    ~Bus() override;
    Bus(const Bus&) = delete;
    Bus& operator=(const Bus&) = delete;
    Bus(Bus&&) = delete;
    Bus& operator=(Bus&&) = delete;

    // Puts the device into the port, where it is reset and enumerated. Handles of an earlier time
    // stay dead. Faults count the bulk transfers from here on.
    void plug(std::vector<virtual_usb::Fault> faults = {});
    void unplug();
    [[nodiscard]] bool plugged() const;

    // What somebody else does to the reader: a port reset under the handles that are open.
    void reset_port();

    // Time in which nobody transfers anything.
    void pass(Duration time);

    // The host's process is gone: the kernel takes back its transfer, its claims and its handles.
    void end_process();

    // Is called for every bulk transfer that reaches the port: before it does, and again when it
    // has to wait. It may leave by longjmp after end_process().
    enum class Moment { before, waiting };
    using Witness = std::function<void(Moment)>;
    void watch(Witness witness) { witness_ = std::move(witness); }

    // One bulk transfer that the library asked for.
    struct Transfer {
        std::uint8_t endpoint = 0;
        std::size_t asked = 0;
        std::size_t moved = 0;
        unsigned timeout_ms = 0;
        int result = 0;             // a libusb code
        bool submitted = false;     // reached the port, so that a fault could have hit it
        virtual_usb::Bytes carried; // OUT: all that it was to carry; IN: what came

        [[nodiscard]] bool in() const { return (endpoint & LIBUSB_ENDPOINT_IN) != 0; }
    };
    [[nodiscard]] const std::vector<Transfer>& transfers() const { return transfers_; }

    // Since the bus is there: what passed on its clock, what the time-outs of all transfers
    // together would have allowed, and how many transfers there were.
    struct Spent {
        Duration time{0};
        Duration allowed{0};
        std::size_t transfers = 0;
    };
    [[nodiscard]] Spent spent() const;

    // One sentence each.
    [[nodiscard]] const std::vector<std::string>& misuses() const { return misuses_; }

  private:
    int bulk_transfer(test::Transfer& transfer) override;
    int control_transfer(test::ControlTransfer& transfer) override;
    void reset() override { port_->reset(); }
    void misuse(const std::string& what) override { misuses_.push_back(what); }

    int run(virtual_usb::Urb urb, test::Transfer& transfer);
    void witness(Moment moment) const;
    void set_clock(virtual_usb::TimePoint now);

    virtual_usb::Device& device_;
    std::optional<virtual_usb::Port> port_;
    virtual_usb::TimePoint now_;
    virtual_usb::TimePoint begin_;
    Duration allowed_{0};
    std::uint64_t next_urb_ = 1;
    std::optional<std::uint64_t> under_way_;
    Witness witness_;
    std::vector<Transfer> transfers_;
    std::vector<std::string> misuses_;
};

} // namespace qaven::sweep
