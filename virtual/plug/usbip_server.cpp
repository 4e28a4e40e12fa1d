// Connections, the devices behind them, and what happens when either goes away.
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

constexpr unsigned bus = 1;
constexpr unsigned first_number = 2; // number 1 is the root hub of every bus

constexpr std::size_t read_size = 65536;

// A host that does not fetch its replies is not listened to any more from here on.
constexpr std::size_t most_unsent = std::size_t{1024} * 1024;

constexpr std::size_t most_connections = 64;

} // namespace

UsbipServer::UsbipServer(Settings settings) : settings_(std::move(settings)) {}

void UsbipServer::add(virtual_usb::Device& device, std::vector<virtual_usb::Fault> faults) {
    Place& place = places_.emplace_back();
    place.bus_id = std::to_string(bus) + '-' + std::to_string(places_.size());
    place.number = first_number + static_cast<unsigned>(places_.size()) - 1;
    place.device = &device;
    place.faults = std::move(faults);
}

void UsbipServer::plug_all() {
    std::for_each(places_.rbegin(), places_.rend(), [this](Place& place) { plug(place); });
}

UsbipServer::Place& UsbipServer::find(const std::string& bus_id) {
    const auto found = std::ranges::find(places_, bus_id, &Place::bus_id);
    if (found == places_.end()) {
        throw std::runtime_error("there is no device " + bus_id);
    }
    return *found;
}

UsbipServer::Place* UsbipServer::find_plugged(const std::string& bus_id) {
    const auto found = std::ranges::find(places_, bus_id, &Place::bus_id);
    return found != places_.end() && found->port ? &*found : nullptr;
}

usbip::Offer UsbipServer::offer(const Place& place) {
    return {.bus_id = place.bus_id, .bus = bus, .number = place.number, .device = place.device};
}

void UsbipServer::accept(Fd stream) {
    if (connections_.size() < most_connections) {
        connections_.emplace_back().stream = std::move(stream);
    }
}

void UsbipServer::plug(const std::string& bus_id) {
    Place& place = find(bus_id);
    if (place.port) {
        throw std::runtime_error(bus_id + " is plugged in already");
    }
    plug(place);
}

void UsbipServer::plug(Place& place) {
    std::optional<Vhci::Attachment> attachment;
    if (settings_.vhci) {
        attachment =
            settings_.vhci->attach(usbip::device_id(bus, place.number), place.device->speed());
    }
    place.replug_at.reset();
    if (settings_.capture != nullptr) {
        place.capture = std::make_unique<virtual_usb::Capture>(
            *settings_.capture, static_cast<std::uint16_t>(bus),
            static_cast<std::uint8_t>(place.number));
    }
    // Faults happen once, not again after a replug.
    place.port = std::make_unique<virtual_usb::Port>(*place.device, place.capture.get(),
                                                     std::exchange(place.faults, {}));
    if (attachment) {
        place.vhci_port = attachment->port;
        Connection& connection = connections_.emplace_back();
        connection.stream = std::move(attachment->stream);
        import(connection, place);
    }
}

void UsbipServer::import(Connection& connection, Place& place) {
    place.port->reset();
    place.imported = true;
    connection.place = &place;
    connection.link = std::make_unique<UsbipLink>(*place.port, usbip::device_id(bus, place.number));
}

void UsbipServer::unplug(const std::string& bus_id) {
    Place& place = find(bus_id);
    if (!place.port) {
        throw std::runtime_error(bus_id + " is not plugged in");
    }
    pull(place);
}

void UsbipServer::add_fault(const std::string& bus_id, const virtual_usb::Fault& fault) {
    Place& place = find(bus_id);
    if (!place.port) {
        throw std::runtime_error(bus_id + " is not plugged in");
    }
    place.port->add_fault(fault);
}

// The host learns of it from the end of the connection.
void UsbipServer::pull(Place& place) {
    place.port->unplug();
    for (auto& connection : connections_) {
        if (connection.place == &place) {
            connection.link.reset();
            shutdown(connection.stream.get(), SHUT_RDWR);
            connection.over = true;
            connection.place = nullptr;
        }
    }
    place.port.reset();
    place.vhci_port.reset();
    place.imported = false;
}

// The host went away, or talks nonsense.
void UsbipServer::end(Connection& connection) {
    connection.over = true;
    Place* const place = std::exchange(connection.place, nullptr);
    if (place == nullptr) {
        return;
    }
    connection.link.reset();
    if (settings_.vhci) {
        pull(*place);
    } else {
        place->port->reset();
        place->imported = false;
    }
}

std::vector<std::string> UsbipServer::status() const {
    std::vector<std::string> lines;
    for (const auto& place : places_) {
        const auto descriptor = place.device->device_descriptor();
        const auto id = [&descriptor](std::size_t at) {
            constexpr std::size_t digits_and_end = 5;
            std::array<char, digits_and_end> text{};
            std::snprintf(text.data(), text.size(), "%02X%02X", descriptor.at(at + 1),
                          descriptor.at(at));
            return std::string(text.data());
        };
        std::string where = "unplugged";
        if (place.vhci_port) {
            where = "plugged into port " + std::to_string(*place.vhci_port) + " of vhci-hcd";
        } else if (place.imported) {
            where = "plugged in at a host";
        } else if (place.port) {
            where = "on offer";
        }
        lines.push_back(place.bus_id + ' ' + id(8) + ':' + id(10) + ' ' + where);
    }
    return lines;
}

void UsbipServer::add_to(std::vector<pollfd>& waiting) const {
    for (const auto& connection : connections_) {
        short events = 0;
        if (connection.outgoing.size() < most_unsent && !connection.ending) {
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
    for (const auto& place : places_) {
        const auto port_wakes = place.port ? place.port->wake() : std::nullopt;
        for (const auto& when : {port_wakes, place.replug_at}) {
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
        Place* const place = connection.place;
        if (place != nullptr && place->port && !place->port->plugged()) { // by a fault
            pull(*place);
            if (settings_.replug_after) {
                place->replug_at = now + *settings_.replug_after;
            }
        }
    }
    std::erase_if(connections_, [](const Connection& connection) { return connection.over; });
}

void UsbipServer::replug(TimePoint now) {
    for (auto& place : places_) {
        if (place.replug_at && *place.replug_at <= now) {
            place.replug_at.reset();
            try {
                plug(place);
            } catch (const std::runtime_error& error) {
                std::fprintf(stderr, "the device does not come back: %s\n", error.what());
            }
        }
    }
}

void UsbipServer::read(Connection& connection, TimePoint now) {
    if (connection.ending || connection.outgoing.size() >= most_unsent) {
        return;
    }
    std::array<std::uint8_t, read_size> bytes; // NOLINT(*-member-init): recv fills it
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
        answer_questions(connection);
        if (connection.link) { // what came behind the import is for the device
            sensible = connection.link->receive(std::exchange(connection.incoming, {}), now);
        }
    }
    if (!sensible) {
        end(connection);
    }
}

void UsbipServer::answer_questions(Connection& connection) {
    auto& incoming = connection.incoming;
    while (!connection.link && !connection.ending && incoming.size() >= usbip::question_size) {
        const std::span<const std::uint8_t> bytes = incoming;
        std::size_t taken = usbip::question_size;
        switch (usbip::parse_question(bytes.first<usbip::question_size>())) {
        case usbip::Question::list:
            answer_list(connection);
            break;
        case usbip::Question::import:
            taken += usbip::bus_id_size;
            if (bytes.size() < taken) {
                return;
            }
            answer_import(
                connection,
                usbip::parse_bus_id(bytes.subspan<usbip::question_size, usbip::bus_id_size>()));
            break;
        case usbip::Question::unknown:
            connection.ending = true;
            break;
        }
        incoming.erase(incoming.begin(), incoming.begin() + static_cast<std::ptrdiff_t>(taken));
    }
}

void UsbipServer::answer_list(Connection& connection) const {
    std::vector<usbip::Offer> offers;
    for (const auto& place : places_) {
        if (place.port && !place.imported) {
            offers.push_back(offer(place));
        }
    }
    const auto reply = usbip::list_reply(offers);
    connection.outgoing.insert(connection.outgoing.end(), reply.begin(), reply.end());
}

void UsbipServer::answer_import(Connection& connection, const std::string& bus_id) {
    Place* const place = find_plugged(bus_id);
    const bool busy = place != nullptr && place->imported;
    virtual_usb::Bytes reply;
    if (place == nullptr || busy) {
        reply = usbip::import_refusal(busy ? usbip::Refusal::busy : usbip::Refusal::no_such_device);
        connection.ending = true;
    } else {
        reply = usbip::import_reply(offer(*place));
        import(connection, *place);
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
