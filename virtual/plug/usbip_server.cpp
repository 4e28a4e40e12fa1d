// Connections, their devices, and what happens when either goes away.
#include "virtual/plug/usbip_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <stdexcept>
#include <utility>

namespace qaven::virtual_plug {
namespace {

using virtual_usb::TimePoint;

constexpr unsigned kBus = 1;
constexpr unsigned kFirstNumber = 2; // number 1 is the root hub of every bus

constexpr std::size_t kReadSize = 65536;

// A host that does not fetch its replies is not listened to any more from here on.
constexpr std::size_t kMostUnsent = std::size_t{1024} * 1024;

constexpr std::size_t kMostConnections = 64;

} // namespace

UsbipServer::UsbipServer(Settings settings) : settings_(std::move(settings)) {}

void UsbipServer::add(virtual_usb::Device& device, std::vector<virtual_usb::Fault> faults) {
    PortSlot& slot = slots_.emplace_back();
    slot.bus_id = std::to_string(kBus) + '-' + std::to_string(slots_.size());
    slot.number = kFirstNumber + static_cast<unsigned>(slots_.size()) - 1;
    slot.device = &device;
    slot.faults = std::move(faults);
}

void UsbipServer::plug_all() {
    std::for_each(slots_.rbegin(), slots_.rend(), [this](PortSlot& slot) { plug(slot); });
}

UsbipServer::PortSlot& UsbipServer::find(const std::string& bus_id) {
    const auto found = std::ranges::find(slots_, bus_id, &PortSlot::bus_id);
    if (found == slots_.end()) {
        throw std::runtime_error("there is no device " + bus_id);
    }
    return *found;
}

UsbipServer::PortSlot* UsbipServer::find_plugged(const std::string& bus_id) {
    const auto found = std::ranges::find(slots_, bus_id, &PortSlot::bus_id);
    return found != slots_.end() && found->port ? &*found : nullptr;
}

usbip::ExportedDevice UsbipServer::exported(const PortSlot& slot) {
    return {.bus_id = slot.bus_id, .bus = kBus, .number = slot.number, .device = slot.device};
}

void UsbipServer::accept(Fd stream) {
    if (connections_.size() < kMostConnections) {
        connections_.emplace_back().stream = std::move(stream);
    }
}

void UsbipServer::plug(const std::string& bus_id) {
    PortSlot& slot = find(bus_id);
    if (slot.port) {
        throw std::runtime_error(bus_id + " is already plugged in");
    }
    plug(slot);
}

void UsbipServer::plug(PortSlot& slot) {
    std::optional<Vhci::Attachment> attachment;
    if (settings_.vhci) {
        attachment =
            settings_.vhci->attach(usbip::device_id(kBus, slot.number), slot.device->speed());
    }
    slot.replug_at.reset();
    if (settings_.capture != nullptr) {
        slot.capture = std::make_unique<virtual_usb::Capture>(
            *settings_.capture, static_cast<std::uint16_t>(kBus),
            static_cast<std::uint8_t>(slot.number));
    }
    // Faults happen once, not again after a replug.
    slot.port = std::make_unique<virtual_usb::Port>(*slot.device, slot.capture.get(),
                                                    std::exchange(slot.faults, {}));
    if (attachment) {
        slot.vhci_port = attachment->port;
        Connection& connection = connections_.emplace_back();
        connection.stream = std::move(attachment->stream);
        import(connection, slot);
    }
}

void UsbipServer::import(Connection& connection, PortSlot& slot) {
    slot.port->reset();
    slot.imported = true;
    connection.slot = &slot;
    connection.link = std::make_unique<UsbipLink>(*slot.port, usbip::device_id(kBus, slot.number));
}

void UsbipServer::unplug(const std::string& bus_id) {
    PortSlot& slot = find(bus_id);
    if (!slot.port) {
        throw std::runtime_error(bus_id + " is not plugged in");
    }
    pull(slot);
}

void UsbipServer::add_fault(const std::string& bus_id, const virtual_usb::Fault& fault) {
    PortSlot& slot = find(bus_id);
    if (!slot.port) {
        throw std::runtime_error(bus_id + " is not plugged in");
    }
    slot.port->add_fault(fault);
}

// The host learns of it from the end of the connection.
void UsbipServer::pull(PortSlot& slot) {
    slot.port->unplug();
    for (auto& connection : connections_) {
        if (connection.slot == &slot) {
            connection.link.reset();
            shutdown(connection.stream.get(), SHUT_RDWR);
            connection.over = true;
            connection.slot = nullptr;
        }
    }
    slot.port.reset();
    slot.vhci_port.reset();
    slot.imported = false;
}

// The host went away, or talks nonsense.
void UsbipServer::end(Connection& connection) {
    connection.over = true;
    PortSlot* const slot = std::exchange(connection.slot, nullptr);
    if (slot == nullptr) {
        return;
    }
    connection.link.reset();
    if (settings_.vhci) {
        pull(*slot);
    } else {
        slot->port->reset();
        slot->imported = false;
    }
}

std::vector<std::string> UsbipServer::status() const {
    std::vector<std::string> lines;
    for (const auto& slot : slots_) {
        const auto descriptor = slot.device->device_descriptor();
        const auto id = [&descriptor](std::size_t at) {
            constexpr std::size_t kDigitsAndEnd = 5;
            std::array<char, kDigitsAndEnd> text{};
            std::snprintf(text.data(), text.size(), "%02X%02X", descriptor.at(at + 1),
                          descriptor.at(at));
            return std::string(text.data());
        };
        std::string where = "unplugged";
        if (slot.vhci_port) {
            where = "plugged into port " + std::to_string(*slot.vhci_port) + " of vhci-hcd";
        } else if (slot.imported) {
            where = "plugged in at a host";
        } else if (slot.port) {
            where = "on offer";
        }
        lines.push_back(slot.bus_id + ' ' + id(8) + ':' + id(10) + ' ' + where);
    }
    return lines;
}

void UsbipServer::add_to(std::vector<pollfd>& waiting) const {
    for (const auto& connection : connections_) {
        short events = 0;
        if (connection.outgoing.size() < kMostUnsent && !connection.ending) {
            events |= POLLIN;
        }
        if (!connection.outgoing.empty()) {
            events |= POLLOUT;
        }
        waiting.push_back({.fd = connection.stream.get(), .events = events, .revents = 0});
    }
}

std::optional<TimePoint> UsbipServer::wake() const {
    std::optional<TimePoint> earliest;
    for (const auto& slot : slots_) {
        const auto port_wakes = slot.port ? slot.port->wake() : std::nullopt;
        for (const auto& when : {port_wakes, slot.replug_at}) {
            if (when && (!earliest || *when < *earliest)) {
                earliest = when;
            }
        }
    }
    return earliest;
}

void UsbipServer::serve(TimePoint now) {
    replug(now);
    for (auto& connection : connections_) {
        if (!connection.over) {
            read(connection, now);
        }
        if (connection.link) {
            connection.link->advance(now, connection.outgoing);
        }
        if (!connection.over) {
            write(connection);
        }
        PortSlot* const slot = connection.slot;
        if (slot != nullptr && slot->port && !slot->port->plugged()) { // by a fault
            pull(*slot);
            if (settings_.replug_after) {
                slot->replug_at = now + *settings_.replug_after;
            }
        }
    }
    std::erase_if(connections_, [](const Connection& connection) { return connection.over; });
}

void UsbipServer::replug(TimePoint now) {
    for (auto& slot : slots_) {
        if (slot.replug_at && *slot.replug_at <= now) {
            slot.replug_at.reset();
            try {
                plug(slot);
            } catch (const std::runtime_error& error) {
                std::fprintf(stderr, "cannot plug the device in again: %s\n", error.what());
            }
        }
    }
}

void UsbipServer::read(Connection& connection, TimePoint now) {
    if (connection.ending || connection.outgoing.size() >= kMostUnsent) {
        return;
    }
    std::array<std::uint8_t, kReadSize> bytes; // NOLINT(*-member-init): recv fills it
    const auto count = recv(connection.stream.get(), bytes.data(), bytes.size(), MSG_DONTWAIT);
    if (count < 0 && (errno == EAGAIN || errno == EINTR)) {
        return;
    }
    if (count <= 0) {
        end(connection);
        return;
    }
    const auto news = std::span<const std::uint8_t>(bytes).first(static_cast<std::size_t>(count));
    bool sensible = true;
    if (connection.link) {
        sensible = connection.link->receive(news, now);
    } else {
        connection.incoming.insert(connection.incoming.end(), news.begin(), news.end());
        answer_requests(connection);
        if (connection.link) { // what follows the import is for the device
            sensible = connection.link->receive(std::exchange(connection.incoming, {}), now);
        }
    }
    if (!sensible) {
        end(connection);
    }
}

void UsbipServer::answer_requests(Connection& connection) {
    auto& incoming = connection.incoming;
    while (!connection.link && !connection.ending && incoming.size() >= usbip::kRequestSize) {
        const std::span<const std::uint8_t> bytes = incoming;
        std::size_t taken = usbip::kRequestSize;
        switch (usbip::parse_request(bytes.first<usbip::kRequestSize>())) {
        case usbip::Request::kList:
            reply_devlist(connection);
            break;
        case usbip::Request::kImport:
            taken += usbip::kBusIdSize;
            if (bytes.size() < taken) {
                return;
            }
            reply_import(connection, usbip::parse_bus_id(
                                         bytes.subspan<usbip::kRequestSize, usbip::kBusIdSize>()));
            break;
        case usbip::Request::kUnknown:
            connection.ending = true;
            break;
        }
        incoming.erase(incoming.begin(), incoming.begin() + static_cast<std::ptrdiff_t>(taken));
    }
}

void UsbipServer::reply_devlist(Connection& connection) const {
    std::vector<usbip::ExportedDevice> devices;
    for (const auto& slot : slots_) {
        if (slot.port && !slot.imported) {
            devices.push_back(exported(slot));
        }
    }
    const auto reply = usbip::devlist_reply(devices);
    connection.outgoing.insert(connection.outgoing.end(), reply.begin(), reply.end());
}

void UsbipServer::reply_import(Connection& connection, const std::string& bus_id) {
    PortSlot* const slot = find_plugged(bus_id);
    const bool busy = slot != nullptr && slot->imported;
    virtual_usb::Bytes reply;
    if (slot == nullptr || busy) {
        reply = usbip::import_error_reply(busy ? usbip::ImportError::kBusy
                                               : usbip::ImportError::kNoSuchDevice);
        connection.ending = true;
    } else {
        reply = usbip::import_reply(exported(*slot));
        import(connection, *slot);
    }
    connection.outgoing.insert(connection.outgoing.end(), reply.begin(), reply.end());
}

void UsbipServer::write(Connection& connection) {
    auto& outgoing = connection.outgoing;
    if (!outgoing.empty()) {
        const auto count = send(connection.stream.get(), outgoing.data(), outgoing.size(),
                                MSG_DONTWAIT | MSG_NOSIGNAL);
        if (count < 0 && errno != EAGAIN && errno != EINTR) {
            end(connection);
            return;
        }
        outgoing.erase(outgoing.begin(), outgoing.begin() + std::max<ssize_t>(count, 0));
    }
    connection.over = connection.ending && outgoing.empty();
}

} // namespace qaven::virtual_plug
