// One port of a host controller with a device in it: transfers (URBs) go in, packets go to the
// device and back, completions come out. This is what a kernel does between a host program and the
// cable; mocked usbfs and USB/IP both stand on it.
//
// Not thread-safe: the owner serialises calls and passes the time.
#pragma once

#include "virtual/usb/device.h"
#include "virtual/usb/fault.h"

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <vector>

namespace qaven::virtual_usb {

// Numbered as Linux numbers the kinds of transfer in its USB captures.
enum class TransferType : std::uint8_t {
    kIsochronous = 0,
    kInterrupt = 1,
    kControl = 2,
    kBulk = 3
};

inline constexpr std::uint8_t kDirectionIn = 0x80;

struct Urb {
    std::uint64_t id = 0; // the submitter's name for it
    TransferType type = TransferType::kBulk;
    std::uint8_t endpoint = 0;                    // address; control: bit 7 as in the request type
    std::array<std::uint8_t, kSetupSize> setup{}; // control only
    Bytes data{};                                 // towards the device
    std::size_t length = 0;                       // room (IN) or number of bytes (OUT)
    bool zero_packet = false;  // OUT: end a transfer of whole packets with an empty one
    bool short_not_ok = false; // IN: a short packet is an error

    [[nodiscard]] bool in() const { return (endpoint & kDirectionIn) != 0; }
};

struct Completion {
    Urb urb;
    int status = 0;         // 0 or a negative errno value
    std::size_t actual = 0; // bytes moved
    Bytes data;             // IN: the bytes
};

// Who listens to the port, as a bus analyser does.
class PortMonitor {
  public:
    PortMonitor() = default;
    PortMonitor(const PortMonitor&) = delete;
    PortMonitor& operator=(const PortMonitor&) = delete;
    PortMonitor(PortMonitor&&) = delete;
    PortMonitor& operator=(PortMonitor&&) = delete;
    virtual ~PortMonitor() = default;

    virtual void submitted(const Urb& urb) = 0;
    virtual void completed(const Completion& completion) = 0;
};

class Port {
  public:
    // The device must outlive the port; a monitor too, if there is one.
    explicit Port(Device& device, PortMonitor* monitor = nullptr, std::vector<Fault> faults = {});

    // Plug in: reset, descriptors read, configuration set, as a host enumerates a device (USB 2.0,
    // 9.1.2).
    void enumerate(TimePoint now);

    // 0, or a negative errno value: -ENODEV after an unplug, -ENOENT for an endpoint the device
    // does not have.
    int submit(Urb urb, TimePoint now);

    // Takes a transfer back: it completes with -ENOENT and what had moved so far. False if it is
    // not (or no longer) in flight. What waited for it moves with the next advance().
    bool discard(std::uint64_t id);

    // Moves what can move.
    void advance(TimePoint now);

    // When advance() should be called again although the host has sent nothing. Includes what has
    // become due since the last call, or the owner would wait for ever.
    [[nodiscard]] std::optional<TimePoint> wake() const;

    // Every transfer in flight completes with -ESHUTDOWN; at a reset, with -ENOENT.
    void unplug();
    [[nodiscard]] bool plugged() const { return plugged_; }

    // One more fault; its count starts with the next bulk transfer.
    void add_fault(Fault fault);

    void reset();
    // Starts the device's endpoints anew, as a reset does (USB 2.0, 9.1.1.5). False if there is no
    // such configuration.
    bool set_configuration(std::uint8_t value);
    // USB 2.0, 9.4.5.
    void clear_halt(std::uint8_t endpoint);
    // Resets the interface's endpoints (USB 2.0, 9.4.10). False if there is no such interface and
    // alternate setting.
    bool set_interface(std::uint8_t interface, std::uint8_t alternate);

    // The interface that has this endpoint.
    [[nodiscard]] std::optional<std::uint8_t> interface_of(std::uint8_t endpoint) const;
    // What kind of transfer this endpoint takes.
    [[nodiscard]] std::optional<TransferType> type_of(std::uint8_t endpoint) const;
    [[nodiscard]] std::set<std::uint8_t> interfaces() const;

    // Completions in the order in which they happened.
    [[nodiscard]] std::deque<Completion>& completions() { return completions_; }

  private:
    struct EndpointInfo {
        std::uint8_t interface = 0;
        TransferType type = TransferType::kBulk;
        std::size_t max_packet = 0;
    };
    struct Transfer {
        Urb urb;
        Bytes received;
        std::size_t sent = 0;
        bool all_sent = false;
        std::optional<Fault> fault;
    };

    void read_configuration();
    void end_transfers(int status);
    std::optional<Fault> fault_for(const Urb& urb);
    bool step(Transfer& transfer, TimePoint now);
    bool step_control(Transfer& transfer, TimePoint now);
    bool step_out(Transfer& transfer, TimePoint now);
    bool step_in(Transfer& transfer, TimePoint now);
    std::optional<Reply> standard_request(const Setup& setup);
    Reply descriptor(const Setup& setup) const;
    bool finish(Transfer& transfer, int status);

    Device& device_;
    PortMonitor* monitor_;
    std::vector<Fault> faults_;
    unsigned bulk_transfers_ = 0;
    TimePoint advanced_; // to there
    bool plugged_ = true;
    std::uint8_t offered_configuration_ = 1;
    std::uint8_t configuration_ = 0;
    std::map<std::uint8_t, EndpointInfo> endpoints_;
    std::set<std::pair<std::uint8_t, std::uint8_t>> settings_; // interface, alternate setting
    std::set<std::uint8_t> halted_;
    std::map<std::uint8_t, TimePoint> late_until_;        // endpoints that move nothing before
    std::map<std::uint8_t, std::deque<Transfer>> queues_; // by endpoint address, control under 0
    std::deque<Completion> completions_;
};

} // namespace qaven::virtual_usb
