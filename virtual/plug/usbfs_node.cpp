// usbfs as libusb knows it, answered over umockdev's ioctl emulation.
#include "virtual/plug/usbfs_node.h"

#include "virtual/plug/sysfs.h"

#include <linux/usb/ch9.h>
#include <linux/usbdevice_fs.h>
#include <sys/ioctl.h>

#include <algorithm>
#include <cerrno>

namespace qaven::virtual_plug {
namespace {

using virtual_usb::Bytes;
using virtual_usb::Clock;
using virtual_usb::TimePoint;
using virtual_usb::TransferType;
using virtual_usb::Urb;

// Holds what another program holds; open files count up from 1.
constexpr ClientId kForeignClient = 0;

constexpr std::chrono::milliseconds kReleaseGrace{100};

void complete_ioctl(UMockdevIoctlClient* client, long result) {
    if (result < 0) {
        umockdev_ioctl_client_complete(client, -1, static_cast<gint>(-result));
    } else {
        umockdev_ioctl_client_complete(client, result, 0);
    }
}

std::unique_ptr<virtual_usb::Capture> make_capture(const PlugSettings& settings, unsigned number) {
    if (settings.capture == nullptr) {
        return nullptr;
    }
    return std::make_unique<virtual_usb::Capture>(*settings.capture,
                                                  static_cast<std::uint16_t>(kBusNumber),
                                                  static_cast<std::uint8_t>(number));
}

// The interface that has to be claimed for a control transfer, if any.
std::optional<std::uint8_t> required_interface(const virtual_usb::Setup& setup) {
    const bool vendor = (setup.request_type & USB_TYPE_MASK) == USB_TYPE_VENDOR;
    if (vendor || (setup.request_type & USB_RECIP_MASK) != USB_RECIP_INTERFACE) {
        return std::nullopt;
    }
    return static_cast<std::uint8_t>(setup.index & 0xFFU);
}

// The kernel's structure as the port takes it; nothing if it makes no sense.
std::optional<Urb> to_urb(const usbdevfs_urb& raw, std::span<const std::uint8_t> memory) {
    Urb urb;
    urb.endpoint = raw.endpoint;
    urb.zero_packet = (raw.flags & USBDEVFS_URB_ZERO_PACKET) != 0;
    urb.short_not_ok = (raw.flags & USBDEVFS_URB_SHORT_NOT_OK) != 0;
    switch (raw.type) {
    case USBDEVFS_URB_TYPE_BULK:
        urb.type = TransferType::kBulk;
        break;
    case USBDEVFS_URB_TYPE_INTERRUPT:
        urb.type = TransferType::kInterrupt;
        break;
    case USBDEVFS_URB_TYPE_CONTROL: {
        if (memory.size() < virtual_usb::kSetupSize) {
            return std::nullopt;
        }
        urb.type = TransferType::kControl;
        std::copy_n(memory.begin(), virtual_usb::kSetupSize, urb.setup.begin());
        memory = memory.subspan(virtual_usb::kSetupSize);
        const auto setup = virtual_usb::parse_setup(urb.setup);
        if (setup.length > memory.size()) {
            return std::nullopt;
        }
        memory = memory.first(setup.length);
        urb.endpoint = setup.request_type & virtual_usb::kDirectionIn;
        break;
    }
    default:
        return std::nullopt;
    }
    urb.length = memory.size();
    if (!urb.in()) {
        urb.data.assign(memory.begin(), memory.end());
    }
    return urb;
}

} // namespace

UsbfsNode::UsbfsNode(virtual_usb::Device& device, const PlugSettings& settings, unsigned number,
                     const std::string& path)
    : fifo_(path), capture_(make_capture(settings, number)),
      port_(device, capture_.get(), settings.faults), number_(number),
      last_client_(kForeignClient) {
    for (const auto interface : port_.interfaces()) {
        claims_.add_interface(interface);
    }
    for (const auto interface : settings.interfaces) {
        if (!settings.driver.empty()) {
            claims_.bind(interface, settings.driver);
        }
        if (settings.held) {
            claims_.claim(kForeignClient, interface);
        }
    }
    port_.enumerate(Clock::now());
}

ClientId UsbfsNode::add_client() {
    const ClientId id = ++last_client_;
    clients_.try_emplace(id);
    return id;
}

void UsbfsNode::remove_client(ClientId id) {
    if (clients_.erase(id) == 0) {
        return;
    }
    claims_.forget(id);
    for (auto it = submissions_.begin(); it != submissions_.end();) {
        const auto current = it++;
        if (current->second.client == id) {
            port_.discard(current->first);
        }
    }
    advance(Clock::now());
}

void UsbfsNode::advance(TimePoint now) {
    port_.advance(now);
    deliver_completions();
}

std::optional<TimePoint> UsbfsNode::wake() const {
    auto earliest = port_.wake();
    for (const auto& one : waiting_claims_) {
        if (!earliest || one.deadline < *earliest) {
            earliest = one.deadline;
        }
    }
    return earliest;
}

void UsbfsNode::handle(ClientId id, UMockdevIoctlClient* client) {
    const auto request =
        static_cast<std::uint32_t>(umockdev_ioctl_client_get_request(client) & 0xFFFFFFFFU);
    const auto result = answer(id, client, umockdev_ioctl_client_get_arg(client), request);
    advance(Clock::now());
    if (result) {
        complete_ioctl(client, *result);
    }
}

std::optional<long> UsbfsNode::answer(ClientId id, UMockdevIoctlClient* client,
                                      UMockdevIoctlData* arg, std::uint32_t request) {
    switch (request) {
    case USBDEVFS_REAPURB:
    case USBDEVFS_REAPURBNDELAY:
        return reap_or_wait(id, client, arg, request == USBDEVFS_REAPURB);
    case USBDEVFS_CLAIMINTERFACE:
        return port_.plugged() ? claim(id, client, arg) : -ENODEV;
    default:
        return port_.plugged() ? perform(id, arg, request) : -ENODEV;
    }
}

std::optional<long> UsbfsNode::reap_or_wait(ClientId id, UMockdevIoctlClient* client,
                                            UMockdevIoctlData* arg, bool may_wait) {
    Client& own = clients_[id];
    if (reap(own, arg)) {
        return 0;
    }
    // Only what was under way when the device went could still be collected.
    if (!port_.plugged()) {
        return -ENODEV;
    }
    if (!may_wait) {
        return -EAGAIN;
    }
    own.waiting_reap = ClientRef::share(client);
    return std::nullopt;
}

std::optional<long> UsbfsNode::claim(ClientId id, UMockdevIoctlClient* client,
                                     UMockdevIoctlData* arg) {
    unsigned number = 0;
    if (!load(arg, number)) {
        return -EFAULT;
    }
    const std::uint8_t interface = number & 0xFFU;
    const int result = claims_.claim(id, interface);
    const auto holder = claims_.holder(interface);
    if (result != -EBUSY || !holder || *holder == kForeignClient) {
        return result;
    }
    waiting_claims_.push_back({.client = id,
                               .interface = interface,
                               .waiting = ClientRef::share(client),
                               .deadline = Clock::now() + kReleaseGrace});
    return std::nullopt;
}

long UsbfsNode::perform(ClientId id, UMockdevIoctlData* arg, std::uint32_t request) {
    switch (request) {
    case USBDEVFS_GET_CAPABILITIES:
        return capabilities(arg);
    case USBDEVFS_RELEASEINTERFACE:
    case USBDEVFS_SETCONFIGURATION:
    case USBDEVFS_CLEAR_HALT:
    case USBDEVFS_RESETEP: {
        unsigned number = 0;
        return load(arg, number) ? perform_on_number(id, number, request) : -EFAULT;
    }
    case USBDEVFS_SETINTERFACE:
        return set_interface(id, arg);
    case USBDEVFS_RESET:
        port_.enumerate(Clock::now()); // the configuration is set again
        return 0;
    case USBDEVFS_GETDRIVER:
        return driver_name(arg);
    case USBDEVFS_IOCTL:
        return driver_ioctl(arg);
    case USBDEVFS_DISCONNECT_CLAIM:
        return disconnect_and_claim(id, arg);
    case USBDEVFS_SUBMITURB:
        return submit(id, arg);
    case USBDEVFS_DISCARDURB: {
        // The argument is no pointer to something but the URB's address itself.
        gulong address = 0;
        std::memcpy(&address, arg->data, sizeof address);
        return discard(id, address);
    }
    default:
        return -ENOTTY;
    }
}

long UsbfsNode::perform_on_number(ClientId id, unsigned number, std::uint32_t request) {
    const std::uint8_t low = number & 0xFFU;
    switch (request) {
    case USBDEVFS_RELEASEINTERFACE:
        return claims_.release(id, low);
    case USBDEVFS_SETCONFIGURATION:
        if (claims_.any_claimed()) {
            return -EBUSY;
        }
        return port_.set_configuration(low) ? 0 : -EINVAL;
    default: // CLEAR_HALT; RESETEP alone sets the host's side back, which has no state here
        if (!port_.interface_of(low)) {
            return -ENOENT;
        }
        if (request == USBDEVFS_CLEAR_HALT) {
            port_.clear_halt(low);
        }
        return 0;
    }
}

long UsbfsNode::capabilities(UMockdevIoctlData* arg) {
    const DataRef block = resolve(arg, 0, sizeof(std::uint32_t));
    if (!block) {
        return -EFAULT;
    }
    store_value<std::uint32_t>(block.get(), 0,
                               USBDEVFS_CAP_ZERO_PACKET | USBDEVFS_CAP_BULK_CONTINUATION |
                                   USBDEVFS_CAP_NO_PACKET_SIZE_LIM |
                                   USBDEVFS_CAP_BULK_SCATTER_GATHER |
                                   USBDEVFS_CAP_REAP_AFTER_DISCONNECT);
    return 0;
}

long UsbfsNode::set_interface(ClientId id, UMockdevIoctlData* arg) {
    usbdevfs_setinterface setting{};
    if (!load(arg, setting)) {
        return -EFAULT;
    }
    const std::uint8_t interface = setting.interface & 0xFFU;
    const int claimed = claims_.claim(id, interface);
    if (claimed != 0) {
        return claimed;
    }
    return port_.set_interface(interface, setting.altsetting & 0xFFU) ? 0 : -EINVAL;
}

long UsbfsNode::driver_name(UMockdevIoctlData* arg) {
    const DataRef block = resolve(arg, 0, sizeof(usbdevfs_getdriver));
    if (!block) {
        return -EFAULT;
    }
    usbdevfs_getdriver query{};
    std::memcpy(&query, block.get()->data, sizeof query);
    const auto name = claims_.driver(static_cast<std::uint8_t>(query.interface & 0xFFU));
    if (!name) {
        return -ENODATA;
    }
    Bytes text(name->begin(), name->end());
    text.resize(std::min<std::size_t>(text.size(), USBDEVFS_MAXDRIVERNAME));
    text.push_back(0);
    store(block.get(), offsetof(usbdevfs_getdriver, driver), text);
    return 0;
}

long UsbfsNode::driver_ioctl(UMockdevIoctlData* arg) {
    usbdevfs_ioctl command{};
    if (!load(arg, command)) {
        return -EFAULT;
    }
    const auto interface = static_cast<std::uint8_t>(command.ifno);
    switch (static_cast<unsigned>(command.ioctl_code)) {
    case USBDEVFS_DISCONNECT:
        return claims_.disconnect_driver(interface);
    case USBDEVFS_CONNECT:
        return claims_.connect_driver(interface);
    default:
        return -ENOTTY;
    }
}

long UsbfsNode::disconnect_and_claim(ClientId id, UMockdevIoctlData* arg) {
    usbdevfs_disconnect_claim command{};
    if (!load(arg, command)) {
        return -EFAULT;
    }
    const auto interface = static_cast<std::uint8_t>(command.interface & 0xFFU);
    if (const auto name = claims_.driver(interface)) {
        command.driver[sizeof command.driver - 1] = '\0';
        const bool named = *name == command.driver;
        if ((command.flags & USBDEVFS_DISCONNECT_CLAIM_IF_DRIVER) != 0 && !named) {
            return -EBUSY;
        }
        if ((command.flags & USBDEVFS_DISCONNECT_CLAIM_EXCEPT_DRIVER) != 0 && named) {
            return -EBUSY;
        }
        claims_.disconnect_driver(interface);
    }
    return claims_.claim(id, interface);
}

long UsbfsNode::submit(ClientId id, UMockdevIoctlData* arg) {
    Submission submission;
    submission.client = id;
    submission.urb = resolve(arg, 0, sizeof(usbdevfs_urb));
    if (!submission.urb) {
        return -EFAULT;
    }
    // (a flexible array at the end of the structure keeps it from being copied)
    const auto& raw = *reinterpret_cast<const usbdevfs_urb*>(submission.urb.get()->data);
    submission.address = submission.urb.get()->client_addr;
    if (raw.buffer_length < 0) {
        return -EINVAL;
    }
    const auto length = static_cast<std::size_t>(raw.buffer_length);
    std::span<const std::uint8_t> memory;
    if (length > 0) {
        submission.buffer = resolve(submission.urb.get(), offsetof(usbdevfs_urb, buffer), length);
        if (!submission.buffer) {
            return -EFAULT;
        }
        memory = {submission.buffer.get()->data, length};
    }
    auto urb = to_urb(raw, memory);
    if (!urb) {
        return -EINVAL;
    }
    std::optional<std::uint8_t> interface;
    if (urb->type == TransferType::kControl) {
        interface = required_interface(virtual_usb::parse_setup(urb->setup));
    } else {
        interface = port_.interface_of(urb->endpoint);
        if (!interface) {
            return -ENOENT;
        }
    }
    // usbfs claims in silence for a program that did not.
    if (interface) {
        const int claimed = claims_.claim(id, *interface);
        if (claimed != 0) {
            return claimed;
        }
    }
    urb->id = ++last_urb_;
    const std::uint64_t number = urb->id;
    submissions_.emplace(number, std::move(submission));
    const int result = port_.submit(std::move(*urb), Clock::now());
    if (result != 0) {
        submissions_.erase(number);
    }
    return result;
}

long UsbfsNode::discard(ClientId id, gulong address) {
    for (const auto& [number, submission] : submissions_) {
        if (submission.client == id && submission.address == address) {
            return port_.discard(number) ? 0 : -EINVAL;
        }
    }
    return -EINVAL;
}

bool UsbfsNode::reap(Client& client, UMockdevIoctlData* arg) {
    if (client.done.empty()) {
        return false;
    }
    const auto [submission, completion] = std::move(client.done.front());
    client.done.pop_front();
    UMockdevIoctlData* const urb = submission.urb.get();
    store_value<int>(urb, offsetof(usbdevfs_urb, status), completion.status);
    store_value<int>(urb, offsetof(usbdevfs_urb, actual_length),
                     static_cast<int>(completion.actual));
    if (submission.buffer) {
        const std::size_t offset =
            completion.urb.type == TransferType::kControl ? virtual_usb::kSetupSize : 0;
        store(submission.buffer.get(), offset, completion.data);
    }
    const DataRef place = resolve(arg, 0, sizeof(void*));
    umockdev_ioctl_data_set_ptr(place.get(), 0, urb);
    return true;
}

// Hands finished transfers to those who submitted them; the node is writable while there are any.
void UsbfsNode::deliver_completions() {
    auto& finished = port_.completions();
    for (; !finished.empty(); finished.pop_front()) {
        auto submission = submissions_.extract(finished.front().urb.id);
        if (submission.empty()) {
            continue;
        }
        const auto client = clients_.find(submission.mapped().client);
        if (client != clients_.end()) {
            client->second.done.emplace_back(std::move(submission.mapped()),
                                             std::move(finished.front()));
        }
    }
    bool something = false;
    for (auto& [id, client] : clients_) {
        if (client.waiting_reap && (!client.done.empty() || !port_.plugged())) {
            const bool reaped =
                reap(client, umockdev_ioctl_client_get_arg(client.waiting_reap.get()));
            complete(std::move(client.waiting_reap), reaped ? 0 : -ENODEV);
        }
        something = something || !client.done.empty();
    }
    fifo_.set_writable(something);
    retry_claims();
}

void UsbfsNode::retry_claims() {
    auto all = std::exchange(waiting_claims_, {});
    for (auto& one : all) {
        const int result = claims_.claim(one.client, one.interface);
        if (!port_.plugged()) {
            complete(std::move(one.waiting), -ENODEV);
        } else if (result != -EBUSY || Clock::now() >= one.deadline) {
            complete(std::move(one.waiting), result);
        } else {
            waiting_claims_.push_back(std::move(one));
        }
    }
}

void UsbfsNode::complete(ClientRef client, long result) {
    complete_ioctl(client.get(), result);
    released_.push_back(std::move(client));
}

} // namespace qaven::virtual_plug
