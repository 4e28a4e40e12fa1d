// libusb for programs without one: every function of it that the library calls, on a bus whose
// devices a back end plays. The programs are linked with this in libusb's place.
//
// A LibusbStandIn is the bus for as long as it lives, one at a time. The functions keep what libusb
// keeps: devices, handles, claims, how often the library was started, lists and descriptors that
// are not freed. What a call or a transfer comes to is the back end's, which derives from it.
//
// Results are those of libusb on Linux: a device that left is LIBUSB_ERROR_NO_DEVICE, an interface
// held through another handle or by a kernel driver LIBUSB_ERROR_BUSY, a transfer to an endpoint
// that no claimed interface has LIBUSB_ERROR_IO. A call that fails sets errno to ENODEV, so what
// perror prints is the same everywhere.
//
// What no caller of libusb may do is a misuse: a null or closed handle, a context that is not the
// default one, a call before init or after the last exit, an exit with a device open, a transfer
// without a buffer or of negative length, a bulk transfer that may wait for ever.
#pragma once

#include <libusb.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
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

    bool plugged = true;
};

// One opened device.
struct libusb_device_handle {
    libusb_device* device = nullptr;
    std::set<int> claimed;
};

namespace qaven::test {

// The reader of the bank-card path: interface 0 has an interrupt endpoint, interfaces 1 and 2 are
// the two slots (02/82 and 04/84, each followed by an interrupt endpoint).
libusb_device ccid_reader();

// The identity-card reader, whose reports go over the control endpoint.
libusb_device identity_card_reader();

// The calls that can fail for no other reason than that the bus does.
enum class Call {
    kInit,
    kGetDeviceList,
    kGetDeviceDescriptor,
    kGetConfigDescriptor,
    kOpen, // gives no handle, whatever the code
    kKernelDriverActive,
    kDetachKernelDriver,
    kClaim,
    kRelease,
    kReset,
};

struct Transfer {
    std::uint8_t endpoint = 0; // of a control transfer: its direction
    std::span<std::uint8_t> data;
    unsigned timeout_ms = 0;
    int obstacle = 0;                      // the libusb code with which it ends before it begins
    const libusb_device* device = nullptr; // of a bulk transfer without an obstacle
    std::size_t moved = 0;

    bool in() const { return (endpoint & LIBUSB_ENDPOINT_IN) != 0; }

    // Puts an answer where the caller wants it. Gives the code, or that of an answer that is too
    // long.
    int deliver(int code, std::span<const std::uint8_t> answer);
};

struct ControlTransfer : Transfer {
    std::uint8_t type = 0;
    std::uint8_t request = 0;
    std::uint16_t value = 0;
    std::uint16_t index = 0;
};

struct LibusbState;

class LibusbStandIn {
  public:
    virtual ~LibusbStandIn();
    LibusbStandIn(const LibusbStandIn&) = delete;
    LibusbStandIn& operator=(const LibusbStandIn&) = delete;
    LibusbStandIn(LibusbStandIn&&) = delete;
    LibusbStandIn& operator=(LibusbStandIn&&) = delete;

    // Adds a device after those already there.
    void plug(libusb_device device);

    // Takes all devices away. Handles on them stay and are of no use any more.
    void unplug();

    // What the caller has of libusb and has not given back.
    struct Holdings {
        int starts = 0;
        std::size_t handles = 0;
        std::size_t claims = 0;
        int lists = 0;
        int configurations = 0;

        bool operator==(const Holdings&) const = default;
    };
    Holdings held() const;

    // --- what a back end says ---

    // The code, also a positive one, that this call ends with; nothing when it takes its course.
    virtual std::optional<int> outcome(Call /*call*/) { return std::nullopt; }

    // Every transfer, also one with an obstacle. Gives the libusb code, and says in `moved` how
    // many bytes went over.
    virtual int bulk_transfer(Transfer& transfer) = 0;
    virtual int control_transfer(ControlTransfer& transfer) = 0;

    // Every call but the transfers, as its name and arguments: "claim_interface 2".
    virtual void called(const std::string& /*line*/) {}

    // What has succeeded.
    virtual void claimed(int /*interface*/) {}
    virtual void closed() {}
    virtual void reset() {}

    // Ends the program, unless the back end does something else.
    virtual void misuse(const std::string& what);

  protected:
    LibusbStandIn();

    // It is a misuse to hold anything now.
    void require_all_given_back();

    // What the kernel does when the host's process ends.
    void take_all_back();

  private:
    std::unique_ptr<LibusbState> state_;
};

} // namespace qaven::test
