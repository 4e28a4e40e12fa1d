// Serves virtual devices over USB/IP: to hosts that come by TCP, or to this machine's own kernel.
// One thread, one loop.
#pragma once

#include "virtual/plug/fd.h"
#include "virtual/plug/usbip_link.h"
#include "virtual/plug/vhci.h"
#include "virtual/usb/capture.h"
#include "virtual/usb/fault.h"

#include <poll.h>

#include <chrono>
#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace qaven::virtual_plug {

class UsbipServer {
  public:
    struct Settings {
        // With a vhci, devices are plugged into this machine; without, a host has to ask for them.
        std::optional<Vhci> vhci;
        virtual_usb::CaptureFile* capture = nullptr;
        // After a fault has pulled a device out it comes back.
        std::optional<std::chrono::milliseconds> replug_after;
    };

    explicit UsbipServer(Settings settings);

    // Exports a device under the next bus id: 1-1, 1-2, ... It must outlive the server.
    void add(virtual_usb::Device& device, std::vector<virtual_usb::Fault> faults = {});

    // Plugs every device in, the first one last: a libusb host lists that one first.
    void plug_all();

    // A host has come; the stream is its connection. Takes over a non-blocking socket.
    void accept(Fd stream);

    // The cable of the device with this bus id. Throws std::runtime_error with a sentence.
    void plug(const std::string& bus_id);
    void unplug(const std::string& bus_id);
    // One more fault of that device, counted from now; it must be plugged in.
    void add_fault(const std::string& bus_id, const virtual_usb::Fault& fault);

    // A line of text for each device: bus id, ids of vendor and product, where it is.
    [[nodiscard]] std::vector<std::string> status() const;

    // What the loop has to wait for, and until when.
    void add_to(std::vector<pollfd>& waiting) const;
    [[nodiscard]] std::optional<virtual_usb::TimePoint> wake() const;

    // Does what can be done without waiting.
    void serve(virtual_usb::TimePoint now);

  private:
    // A device with its cable.
    struct PortSlot {
        std::string bus_id;
        unsigned number = 0;
        virtual_usb::Device* device = nullptr;
        std::vector<virtual_usb::Fault> faults;
        std::unique_ptr<virtual_usb::Capture> capture;
        std::unique_ptr<virtual_usb::Port> port; // none: unplugged
        std::optional<unsigned> vhci_port;
        std::optional<virtual_usb::TimePoint> replug_at;
        bool imported = false;
    };
    // A host that asks, or that has a device of its own.
    struct Connection {
        Fd stream;
        virtual_usb::Bytes incoming; // of a question
        virtual_usb::Bytes outgoing;
        PortSlot* slot = nullptr;
        std::unique_ptr<UsbipLink> link;
        bool ending = false; // once everything is sent
        bool over = false;
    };

    [[nodiscard]] PortSlot& find(const std::string& bus_id);
    [[nodiscard]] PortSlot* find_plugged(const std::string& bus_id);
    [[nodiscard]] static usbip::ExportedDevice exported(const PortSlot& slot);
    void plug(PortSlot& slot);
    static void import(Connection& connection, PortSlot& slot);
    void pull(PortSlot& slot);
    void replug(virtual_usb::TimePoint now);
    void read(Connection& connection, virtual_usb::TimePoint now);
    void answer_requests(Connection& connection);
    void reply_devlist(Connection& connection) const;
    void reply_import(Connection& connection, const std::string& bus_id);
    void write(Connection& connection);
    void end(Connection& connection);

    Settings settings_;
    std::list<PortSlot> slots_;
    std::list<Connection> connections_;
};

} // namespace qaven::virtual_plug
