// A USB bus without hardware: every libusb function that the library calls, as a fake that the test
// program is linked with in libusb's place.
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
// What no caller of libusb may do is a violation and fails the test when the FakeUsb goes: a call
// with a null or closed handle, with a context that is not the default one, before init or after
// the last exit, an exit too many or with a device still open; a list or descriptor never freed, a
// device left open or the library not ended when the test is over.
// Otherwise the fake behaves like libusb on Linux: a transfer to an endpoint that no claimed
// interface has fails with LIBUSB_ERROR_IO, an IN transfer without a queued packet with
// LIBUSB_ERROR_TIMEOUT, a claim by a second handle with LIBUSB_ERROR_BUSY. A call that fails sets
// errno to ENODEV, so what perror prints is the same everywhere.
#pragma once

#include "hex.h"

#include <libusb.h>

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <vector>

// One device as the bus lists it.
struct libusb_device {
    struct Interface {
        // The endpoint addresses of each alternate setting.
        std::vector<std::vector<std::uint8_t>> settings;
        bool kernel_driver = false;
    };

    std::uint16_t vendor = 0;
    std::uint16_t product = 0;
    std::vector<Interface> interfaces;

    // libusb codes of reading the two descriptors.
    int device_descriptor_result = 0;
    int config_descriptor_result = 0;
};

// One opened device.
struct libusb_device_handle {
    libusb_device* device = nullptr;
    std::set<int> claimed;
    bool open = false;
};

namespace qaven::test {

using FakeDevice = libusb_device;

// The reader of the bank-card path: interface 0 has an interrupt endpoint, interfaces 1 and 2 are
// the two slots (02/82 and 04/84, each with an interrupt endpoint behind them).
FakeDevice ccid_reader();

enum class Call {
    kInit,
    kGetDeviceList,
    kOpen, // gives no handle, whatever the code
    kKernelDriverActive,
    kDetachKernelDriver,
    kClaim,
    kRelease,
    kReset,
    kControl,
};

class FakeUsb {
  public:
    FakeUsb();
    ~FakeUsb();
    FakeUsb(const FakeUsb&) = delete;
    FakeUsb& operator=(const FakeUsb&) = delete;

    // --- what is on the bus ---

    // Adds a device behind those already there.
    void plug(FakeDevice device);

    // Takes all devices away. Handles on them stay and fail every transfer with
    // LIBUSB_ERROR_NO_DEVICE.
    void unplug();

    // --- what it answers ---

    // Queues one IN packet; "" is a zero-length one.
    void answer(std::string_view packet);
    void answer(Bytes packet);

    // Queues a failing IN transfer that still delivers the partial data.
    void answer_failure(int code, std::string_view partial = "");

    // What a control transfer that reads gives, in turn; zeros when nothing is queued.
    void answer_control(std::string_view data);

    // The next call of this kind gives the code, also a positive one; several are used in turn.
    void fail(Call call, int code);

    // The nth bulk transfer from here on, in either direction, fails with the code. An OUT transfer
    // has sent as many bytes as partial has, an IN transfer delivers partial.
    void fail_bulk(int nth, int code, std::string_view partial = "");

    // Called for every OUT packet that arrived or failed, every claimed interface, every closed
    // handle.
    std::function<void(std::span<const std::uint8_t> packet)> on_packet;
    std::function<void()> on_lost_packet;
    std::function<void(int interface)> on_claim;
    std::function<void()> on_close;

    // --- what the library did ---

    const std::vector<std::string>& log() const { return log_; }

    // The lines of the log that are bulk transfers.
    std::vector<std::string> transfers() const;

    // The OUT packets in hexadecimal.
    std::vector<std::string> sent() const;

    // The number of IN transfers asked for.
    int reads() const;

    void clear_log() { log_.clear(); }

    // How many starts of the library no exit has answered yet; how many handles are open.
    int starts() const { return starts_; }
    int open_handles() const;

    // IN packets that nobody has fetched.
    std::size_t unread() const { return in_.size(); }

    // Something that must not happen: fails the test when the FakeUsb goes, not before, because
    // the standard streams may be captured now.
    void violation(std::string what);

    // The violations so far, which are forgotten by this.
    std::vector<std::string> take_violations();

  private:
    friend struct FakeLibusbCalls;

    struct InTransfer {
        int code = 0;
        Bytes data;
    };

    static FakeUsb* current_;

    std::vector<std::unique_ptr<FakeDevice>> devices_;
    std::vector<std::unique_ptr<FakeDevice>> unplugged_;
    std::vector<std::unique_ptr<libusb_device_handle>> handles_;
    std::map<Call, std::deque<int>> failures_;
    std::map<int, InTransfer> bulk_failures_;
    std::deque<InTransfer> in_;
    std::deque<Bytes> control_in_;
    std::vector<std::string> log_;
    std::vector<std::string> violations_;
    int bulk_count_ = 0;
    int starts_ = 0;
    int lists_ = 0;
    int configurations_ = 0;
};

} // namespace qaven::test
