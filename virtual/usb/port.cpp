// Transfers to packets and back.
#include "virtual/usb/port.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace qaven::virtual_usb {
namespace {

// Descriptor types, standard requests, recipients and features: USB 2.0, 9.4.
constexpr std::uint8_t kDescriptorDevice = 1;
constexpr std::uint8_t kDescriptorConfiguration = 2;
constexpr std::uint8_t kDescriptorString = 3;
constexpr std::uint8_t kDescriptorInterface = 4;
constexpr std::uint8_t kDescriptorEndpoint = 5;

constexpr std::uint8_t kRequestGetStatus = 0;
constexpr std::uint8_t kRequestClearFeature = 1;
constexpr std::uint8_t kRequestSetFeature = 3;
constexpr std::uint8_t kRequestSetAddress = 5;
constexpr std::uint8_t kRequestGetDescriptor = 6;
constexpr std::uint8_t kRequestGetConfiguration = 8;
constexpr std::uint8_t kRequestSetConfiguration = 9;
constexpr std::uint8_t kRequestGetInterface = 10;
constexpr std::uint8_t kRequestSetInterface = 11;

constexpr std::uint8_t kRecipientDevice = 0;
constexpr std::uint8_t kRecipientInterface = 1;
constexpr std::uint8_t kRecipientEndpoint = 2;

constexpr std::uint16_t kFeatureEndpointHalt = 0;

constexpr std::uint16_t kEnglishUs = 0x0409;

constexpr std::uint64_t kEnumerationId = 1;

// bmAttributes of an endpoint descriptor (USB 2.0, 9.6.6).
TransferType transfer_type(std::uint8_t attributes) {
    constexpr std::array kKinds{TransferType::kControl, TransferType::kIsochronous,
                                TransferType::kBulk, TransferType::kInterrupt};
    return kKinds.at(attributes & 0x03U);
}

std::uint8_t queue_key(const Urb& urb) {
    return urb.type == TransferType::kControl ? std::uint8_t{0} : urb.endpoint;
}

void make_garbage(Bytes& bytes) {
    std::uint8_t state = 0xC5;
    for (auto& byte : bytes) {
        state = static_cast<std::uint8_t>(state * 5U + 0x33U);
        byte = static_cast<std::uint8_t>(byte ^ (state | 1U));
    }
}

Urb control_read(std::uint8_t request, std::uint8_t value_high, std::uint16_t length) {
    Urb urb;
    urb.id = kEnumerationId;
    urb.type = TransferType::kControl;
    urb.endpoint = kDirectionIn;
    urb.setup = {kDirectionIn,
                 request,
                 0,
                 value_high,
                 0,
                 0,
                 static_cast<std::uint8_t>(length & 0xFFU),
                 static_cast<std::uint8_t>(length >> 8U)};
    urb.length = length;
    return urb;
}

Urb control_write(std::uint8_t request, std::uint8_t value_low) {
    Urb urb;
    urb.id = kEnumerationId;
    urb.type = TransferType::kControl;
    urb.setup = {0, request, value_low, 0, 0, 0, 0, 0};
    return urb;
}

} // namespace

Port::Port(Device& device, PortMonitor* monitor, std::vector<Fault> faults)
    : device_(device), monitor_(monitor), faults_(std::move(faults)) {
    read_configuration();
}

void Port::read_configuration() {
    const Bytes bytes = device_.configuration_descriptor();
    if (bytes.size() > 5) {
        offered_configuration_ = bytes[5]; // bConfigurationValue
    }
    std::uint8_t interface = 0;
    for (std::size_t at = 0; at + 2 <= bytes.size() && bytes[at] >= 2; at += bytes[at]) {
        const auto one =
            std::span(bytes).subspan(at, std::min<std::size_t>(bytes[at], bytes.size() - at));
        if (one[1] == kDescriptorInterface && one.size() >= 9) {
            interface = one[2];
            settings_.emplace(interface, one[3]);
        } else if (one[1] == kDescriptorEndpoint && one.size() >= 7) {
            endpoints_[one[2]] = {.interface = interface,
                                  .type = transfer_type(one[3]),
                                  .max_packet = static_cast<std::size_t>(one[4]) |
                                                (static_cast<std::size_t>(one[5] & 0x07U) << 8U)};
        }
    }
}

void Port::enumerate(TimePoint now) {
    reset();
    const Bytes configuration = device_.configuration_descriptor();
    const std::array requests{control_read(kRequestGetDescriptor, kDescriptorDevice, 18),
                              control_read(kRequestGetDescriptor, kDescriptorConfiguration, 9),
                              control_read(kRequestGetDescriptor, kDescriptorConfiguration,
                                           static_cast<std::uint16_t>(configuration.size())),
                              control_write(kRequestSetConfiguration, offered_configuration_)};
    for (const auto& request : requests) {
        submit(request, now);
        completions_.pop_back(); // the request's own; what a reset ended stays
    }
}

void Port::add_fault(Fault fault) {
    fault.after += bulk_transfers_;
    faults_.push_back(fault);
}

std::optional<Fault> Port::fault_for(const Urb& urb) {
    if (urb.type != TransferType::kBulk) {
        return std::nullopt;
    }
    const unsigned before = bulk_transfers_++;
    const auto due = std::find_if(faults_.begin(), faults_.end(), [&](const Fault& fault) {
        return fault.after <= before && (urb.in() || !hits_in_only(fault.kind));
    });
    if (due == faults_.end()) {
        return std::nullopt;
    }
    const Fault fault = *due;
    faults_.erase(due);
    return fault;
}

int Port::submit(Urb urb, TimePoint now) {
    if (!plugged_) {
        return -ENODEV;
    }
    if (urb.type != TransferType::kControl && !endpoints_.contains(urb.endpoint)) {
        return -ENOENT;
    }
    if (monitor_ != nullptr) {
        monitor_->submitted(urb);
    }
    Transfer transfer;
    transfer.fault = fault_for(urb);
    if (transfer.fault && transfer.fault->kind == FaultKind::kLate) {
        // The device is late, not the transfer: a host that gives up and tries again does not get
        // the reply sooner.
        late_until_[urb.endpoint] = now + transfer.fault->delay;
    }
    transfer.urb = std::move(urb);
    const bool pulled = transfer.fault && transfer.fault->kind == FaultKind::kUnplug;
    queues_[queue_key(transfer.urb)].push_back(std::move(transfer));
    if (pulled) {
        unplug();
    } else {
        advance(now);
    }
    return 0;
}

bool Port::discard(std::uint64_t id) {
    for (auto& [key, queue] : queues_) {
        const auto found = std::find_if(queue.begin(), queue.end(), [id](const Transfer& transfer) {
            return transfer.urb.id == id;
        });
        if (found != queue.end()) {
            finish(*found, -ENOENT);
            queue.erase(found);
            return true;
        }
    }
    return false;
}

void Port::advance(TimePoint now) {
    advanced_ = std::max(advanced_, now);
    bool moved = true;
    while (moved && plugged_) {
        moved = false;
        for (auto& [key, queue] : queues_) {
            while (!queue.empty() && step(queue.front(), now)) {
                queue.pop_front();
                moved = true;
            }
        }
    }
}

std::optional<TimePoint> Port::wake() const {
    std::optional<TimePoint> earliest;
    const auto consider = [&](TimePoint when) {
        if (when > advanced_ && (!earliest || when < *earliest)) {
            earliest = when;
        }
    };
    bool waiting = false;
    for (const auto& [key, queue] : queues_) {
        if (!queue.empty()) {
            waiting = true;
            if (const auto late = late_until_.find(key); late != late_until_.end()) {
                consider(late->second);
            }
        }
    }
    if (waiting) {
        if (const auto ready = device_.ready_at(advanced_)) {
            consider(*ready);
        }
    }
    return earliest;
}

void Port::unplug() {
    if (!plugged_) {
        return;
    }
    plugged_ = false;
    end_transfers(-ESHUTDOWN);
    device_.unplugged();
}

void Port::end_transfers(int status) {
    for (auto& [key, queue] : queues_) {
        for (auto& transfer : queue) {
            finish(transfer, status);
        }
        queue.clear();
    }
}

void Port::reset() {
    end_transfers(-ENOENT);
    set_configuration(0);
}

bool Port::set_configuration(std::uint8_t value) {
    if (value != 0 && value != offered_configuration_) {
        return false;
    }
    configuration_ = value;
    halted_.clear();
    late_until_.clear();
    device_.reset();
    return true;
}

void Port::clear_halt(std::uint8_t endpoint) {
    halted_.erase(endpoint);
    late_until_.erase(endpoint);
    device_.clear_halt(endpoint);
}

bool Port::set_interface(std::uint8_t interface, std::uint8_t alternate) {
    if (!settings_.contains({interface, alternate})) {
        return false;
    }
    for (const auto& [address, info] : endpoints_) {
        if (info.interface == interface) {
            clear_halt(address);
        }
    }
    return true;
}

std::optional<std::uint8_t> Port::interface_of(std::uint8_t endpoint) const {
    const auto found = endpoints_.find(endpoint);
    if (found == endpoints_.end()) {
        return std::nullopt;
    }
    return found->second.interface;
}

std::optional<TransferType> Port::type_of(std::uint8_t endpoint) const {
    const auto found = endpoints_.find(endpoint);
    if (found == endpoints_.end()) {
        return std::nullopt;
    }
    return found->second.type;
}

std::set<std::uint8_t> Port::interfaces() const {
    std::set<std::uint8_t> numbers;
    for (const auto& [interface, alternate] : settings_) {
        numbers.insert(interface);
    }
    return numbers;
}

bool Port::finish(Transfer& transfer, int status) {
    if (transfer.fault && transfer.fault->kind == FaultKind::kExtension) {
        faults_.push_back(*transfer.fault); // no message began: it is for one of the next transfers
    }
    Completion completion;
    completion.status = status;
    completion.actual = transfer.urb.in() ? transfer.received.size() : transfer.sent;
    completion.data = std::move(transfer.received);
    completion.urb = std::move(transfer.urb);
    if (monitor_ != nullptr) {
        monitor_->completed(completion);
    }
    completions_.push_back(std::move(completion));
    return true;
}

bool Port::step(Transfer& transfer, TimePoint now) {
    if (transfer.fault && transfer.fault->kind == FaultKind::kTimeout) {
        return false;
    }
    if (transfer.urb.type == TransferType::kControl) {
        return step_control(transfer, now);
    }
    if (const auto late = late_until_.find(transfer.urb.endpoint);
        late != late_until_.end() && now < late->second) {
        return false;
    }
    if (transfer.fault && transfer.fault->kind == FaultKind::kHalt) {
        halted_.insert(transfer.urb.endpoint);
    }
    if (halted_.contains(transfer.urb.endpoint) ||
        (transfer.fault && transfer.fault->kind == FaultKind::kStall)) {
        return finish(transfer, -EPIPE);
    }
    return transfer.urb.in() ? step_in(transfer, now) : step_out(transfer, now);
}

bool Port::step_control(Transfer& transfer, TimePoint now) {
    const Setup setup = parse_setup(transfer.urb.setup);
    auto reply = standard_request(setup);
    if (!reply) {
        reply = device_.control(setup, transfer.urb.data, now);
    }
    switch (reply->handshake) {
    case Handshake::kNak:
        return false;
    case Handshake::kStall:
        return finish(transfer, -EPIPE);
    case Handshake::kAck:
        break;
    }
    if (setup.device_to_host()) {
        reply->data.resize(std::min(reply->data.size(), transfer.urb.length));
        transfer.received = std::move(reply->data);
    } else {
        transfer.sent = transfer.urb.data.size();
    }
    return finish(transfer, 0);
}

bool Port::step_out(Transfer& transfer, TimePoint now) {
    const std::size_t max_packet = endpoints_.at(transfer.urb.endpoint).max_packet;
    const std::span<const std::uint8_t> data(transfer.urb.data);
    while (!transfer.all_sent) {
        const auto packet =
            data.subspan(transfer.sent, std::min(max_packet, data.size() - transfer.sent));
        const Handshake handshake = device_.out(transfer.urb.endpoint, packet, now);
        if (handshake == Handshake::kNak) {
            return false;
        }
        if (handshake == Handshake::kStall) {
            halted_.insert(transfer.urb.endpoint);
            return finish(transfer, -EPIPE);
        }
        transfer.sent += packet.size();
        transfer.all_sent = packet.size() < max_packet ||
                            (transfer.sent == data.size() && !transfer.urb.zero_packet);
    }
    return finish(transfer, 0);
}

bool Port::step_in(Transfer& transfer, TimePoint now) {
    const std::size_t max_packet = endpoints_.at(transfer.urb.endpoint).max_packet;
    if (transfer.fault && transfer.fault->kind == FaultKind::kExtension &&
        device_.request_time_extension(transfer.urb.endpoint, now, now + transfer.fault->delay)) {
        transfer.fault.reset();
    }
    while (true) {
        Reply reply = device_.in(transfer.urb.endpoint, now);
        if (reply.handshake == Handshake::kNak) {
            return false;
        }
        if (reply.handshake == Handshake::kStall) {
            halted_.insert(transfer.urb.endpoint);
            return finish(transfer, -EPIPE);
        }
        if (transfer.fault && transfer.fault->kind == FaultKind::kCutShort) {
            reply.data.resize(reply.data.size() / 2);
        }
        if (transfer.fault && transfer.fault->kind == FaultKind::kGarbage) {
            make_garbage(reply.data);
        }
        const std::size_t room = transfer.urb.length - transfer.received.size();
        const bool babble = transfer.fault && transfer.fault->kind == FaultKind::kOverflow;
        const bool short_packet = reply.data.size() < max_packet;
        const bool too_much = reply.data.size() > room;
        reply.data.resize(std::min(reply.data.size(), room));
        transfer.received.insert(transfer.received.end(), reply.data.begin(), reply.data.end());
        if (too_much || babble) {
            return finish(transfer, -EOVERFLOW);
        }
        if (transfer.received.size() == transfer.urb.length) {
            return finish(transfer, 0);
        }
        if (short_packet) {
            return finish(transfer, transfer.urb.short_not_ok ? -EREMOTEIO : 0);
        }
    }
}

std::optional<Reply> Port::standard_request(const Setup& setup) {
    const unsigned kind = (setup.request_type >> 5U) & 0x03U;
    const unsigned recipient = setup.request_type & 0x1FU;
    if (kind != 0) {
        return std::nullopt;
    }
    const auto low = static_cast<std::uint8_t>(setup.value & 0xFFU);
    const auto index = static_cast<std::uint8_t>(setup.index & 0xFFU);
    if (recipient == kRecipientDevice) {
        switch (setup.request) {
        case kRequestGetStatus:
            return Reply::ack({0, 0});
        case kRequestSetAddress:
            return Reply::ack();
        case kRequestGetDescriptor:
            return descriptor(setup);
        case kRequestGetConfiguration:
            return Reply::ack({configuration_});
        case kRequestSetConfiguration:
            return set_configuration(low) ? Reply::ack() : Reply::stall();
        default:
            return Reply::stall();
        }
    }
    if (recipient == kRecipientInterface) {
        switch (setup.request) {
        case kRequestGetStatus:
            return Reply::ack({0, 0});
        case kRequestGetInterface:
            return Reply::ack({0});
        case kRequestSetInterface:
            return set_interface(index, low) ? Reply::ack() : Reply::stall();
        default:
            return std::nullopt;
        }
    }
    if (recipient == kRecipientEndpoint && (endpoints_.contains(index) || (index & 0x0FU) == 0)) {
        switch (setup.request) {
        case kRequestGetStatus:
            return Reply::ack({static_cast<std::uint8_t>(halted_.contains(index) ? 1 : 0), 0});
        case kRequestClearFeature:
            if (setup.value == kFeatureEndpointHalt) {
                clear_halt(index);
                return Reply::ack();
            }
            return Reply::stall();
        case kRequestSetFeature:
            if (setup.value == kFeatureEndpointHalt) {
                halted_.insert(index);
                return Reply::ack();
            }
            return Reply::stall();
        default:
            return Reply::stall();
        }
    }
    return Reply::stall();
}

Reply Port::descriptor(const Setup& setup) const {
    const auto type = static_cast<std::uint8_t>(setup.value >> 8U);
    const auto index = static_cast<std::uint8_t>(setup.value & 0xFFU);
    Bytes bytes;
    if (type == kDescriptorDevice) {
        bytes = device_.device_descriptor();
    } else if (type == kDescriptorConfiguration && index == 0) {
        bytes = device_.configuration_descriptor();
    } else if (type == kDescriptorString && index == 0) {
        bytes = {4, kDescriptorString, kEnglishUs & 0xFFU, kEnglishUs >> 8U};
    } else if (type == kDescriptorString) {
        const std::string text = device_.string(index);
        if (!text.empty()) {
            bytes = {static_cast<std::uint8_t>(2 + 2 * text.size()), kDescriptorString};
            for (const char letter : text) {
                bytes.push_back(static_cast<std::uint8_t>(letter));
                bytes.push_back(0);
            }
        }
    }
    if (bytes.empty()) {
        return Reply::stall();
    }
    bytes.resize(std::min<std::size_t>(bytes.size(), setup.length));
    return Reply::ack(std::move(bytes));
}

} // namespace qaven::virtual_usb
