// A USB bus whose answers and failures a test writes down beforehand.
//
// A FakeUsb is the bus for as long as it lives, one at a time. A test plugs devices into it, says
// what the bulk endpoints answer and which calls fail, runs the library, and reads what was called:
//
//     FakeUsb usb;
//     usb.plug(ccid_reader());
//     usb.answer("80 02000000 00 00 00 00 00 9000");       // the next IN packet
//     usb.fail(Call::kClaim, LIBUSB_ERROR_BUSY);            // the next claim
//     usb.fail_bulk(3, LIBUSB_ERROR_TIMEOUT, "8005");       // the third bulk transfer from here
//     ... the library's calls ...
//     EXPECT_THAT(usb.log(), ElementsAre("init", "get_device_list", ...));
//
// The log has one line per call, with the arguments as the library gave them:
//
//     init                                  exit
//     get_device_list                       free_device_list 1
//     get_device_descriptor 2F7A:4417       get_config_descriptor 2F7A:4417 0
//     free_config_descriptor                open 2F7A:4417
//     kernel_driver_active 2                detach_kernel_driver 2
//     claim_interface 2                     release_interface 2
//     reset_device                          close
//     bulk_out 04 10000ms 62000000000000000000         endpoint, time-out, bytes
//     bulk_in 84 64 10000ms                            endpoint, length asked for, time-out
//     control_out 21 09 0200 0000 0ms AABB...          type, request, value, index, time-out, bytes
//     control_in A1 01 0100 0000 64 0ms                ... length asked for, time-out
//
// A misuse of libusb is a violation and fails the test when the FakeUsb goes, and so does what is
// not given back by then. An IN transfer without a queued packet fails with LIBUSB_ERROR_TIMEOUT.
#pragma once

#include "tests/support/hex.h"
#include "tests/support/libusb_stand_in.h"

#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qaven::test {

using FakeDevice = libusb_device;

class FakeUsb final : public LibusbStandIn {
  public:
    FakeUsb() = default;
    ~FakeUsb() override;
    FakeUsb(const FakeUsb&) = delete;
    FakeUsb& operator=(const FakeUsb&) = delete;
    FakeUsb(FakeUsb&&) = delete;
    FakeUsb& operator=(FakeUsb&&) = delete;

    // --- what it answers ---

    // Queues one IN packet; "" is a zero-length one.
    void answer(std::string_view packet);
    void answer(Bytes packet);

    // Queues a failing IN transfer that still delivers the partial data.
    void answer_failure(int code, std::string_view partial = "");

    // What a control transfer that reads gives, in turn; zeros when nothing is queued.
    void answer_control(Bytes data);

    // The next call of this kind gives the code, also a positive one; several are used in turn.
    void fail(Call call, int code);

    // The nth bulk transfer from here on, in either direction, fails with the code. An OUT transfer
    // has sent as many bytes as partial has, an IN transfer delivers partial.
    void fail_bulk(int nth, int code, std::string_view partial = "");

    // The nth control transfer from here on, in either direction, fails with the code.
    void fail_control(int nth, int code);

    // Called for every OUT packet that arrived or failed, every claimed interface, every closed
    // handle.
    std::function<void(std::span<const std::uint8_t> packet)> on_packet;
    std::function<void()> on_lost_packet;
    std::function<void(int interface)> on_claim;
    std::function<void()> on_close;

    // --- what the library did ---

    const std::vector<std::string>& log() const { return log_; }

    // The lines of the log that are transfers.
    std::vector<std::string> transfers() const;

    // What OUT transfers carried, in hexadecimal.
    std::vector<std::string> sent() const;

    // The number of IN transfers asked for.
    int reads() const;

    void clear_log() { log_.clear(); }

    // How many starts of the library no exit has answered yet; how many handles are open.
    int starts() const { return held().starts; }
    int open_handles() const { return static_cast<int>(held().handles); }

    // IN packets that nobody has fetched.
    std::size_t unread() const { return in_.size(); }

    // Something that must not happen: fails the test when the FakeUsb goes, not before, because
    // the standard streams may be captured now.
    void violation(std::string what);

    // The violations so far, which are forgotten by this.
    std::vector<std::string> take_violations();

  private:
    struct InTransfer {
        int code = 0;
        Bytes data;
    };

    std::optional<int> outcome(Call call) override;
    int bulk_transfer(Transfer& transfer) override;
    int control_transfer(ControlTransfer& transfer) override;
    void called(const std::string& line) override { log_.push_back(line); }
    void claimed(int interface) override;
    void closed() override;
    void reset() override { in_.clear(); }
    void misuse(const std::string& what) override { violation(what); }

    int transfer_out(Transfer& transfer) const;
    int transfer_in(Transfer& transfer);
    const InTransfer* bulk_failure() const;

    std::map<Call, std::deque<int>> failures_;
    std::map<int, InTransfer> bulk_failures_;
    std::map<int, int> control_failures_;
    std::deque<InTransfer> in_;
    std::deque<Bytes> control_in_;
    std::vector<std::string> log_;
    std::vector<std::string> violations_;
    int bulk_count_ = 0;
    int control_count_ = 0;
};

} // namespace qaven::test
