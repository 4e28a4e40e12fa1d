// Commands to transfers, completions to replies.
#include "virtual/plug/usbip_link.h"

#include <algorithm>
#include <cerrno>
#include <utility>

namespace qaven::virtual_plug {
namespace {

using virtual_usb::Completion;
using virtual_usb::TimePoint;
using virtual_usb::TransferType;
using virtual_usb::Urb;

constexpr std::uint32_t kHighestEndpoint = 15;
constexpr std::uint32_t kNotIsochronous = 0xFFFFFFFF;

// Whether a device can be asked for this at all. The reader has no isochronous endpoints.
bool makes_sense(const usbip::Submit& command) {
    return command.endpoint <= kHighestEndpoint && command.length <= UsbipLink::kLongestTransfer &&
           (command.packets == 0 || command.packets == kNotIsochronous);
}

// The direction that the set-up bytes and the header tell must be the same; a transfer without data
// goes either way.
bool directions_agree(const usbip::Submit& command, const virtual_usb::Setup& setup) {
    return setup.length == 0 || setup.device_to_host() == command.in;
}

} // namespace

UsbipLink::UsbipLink(virtual_usb::Port& port, std::uint32_t device)
    : port_(port), device_(device) {}

UsbipLink::~UsbipLink() {
    for (const auto* const group : {&reads_, &writes_}) {
        for (const auto seq : *group) {
            port_.discard(seq);
        }
    }
    port_.completions().clear();
}

bool UsbipLink::receive(std::span<const std::uint8_t> bytes, TimePoint now) {
    incoming_.insert(incoming_.end(), bytes.begin(), bytes.end());
    std::span<const std::uint8_t> rest = incoming_;
    while (rest.size() >= usbip::kHeaderSize) {
        const auto command = usbip::parse_command(rest.first<usbip::kHeaderSize>());
        if (const auto* const one = std::get_if<usbip::Submit>(&command)) {
            if (one->device != device_ || !makes_sense(*one)) {
                return false;
            }
            const std::size_t following = one->in ? 0 : one->length;
            if (rest.size() - usbip::kHeaderSize < following) {
                break;
            }
            if (!submit(*one, rest.subspan(usbip::kHeaderSize, following), now)) {
                return false;
            }
            rest = rest.subspan(usbip::kHeaderSize + following);
        } else if (const auto* const other = std::get_if<usbip::Unlink>(&command)) {
            if (other->device != device_) {
                return false;
            }
            unlink(*other);
            rest = rest.subspan(usbip::kHeaderSize);
        } else {
            return false;
        }
    }
    const auto consumed = static_cast<std::ptrdiff_t>(incoming_.size() - rest.size());
    incoming_.erase(incoming_.begin(), incoming_.begin() + consumed);
    return true;
}

bool UsbipLink::submit(const usbip::Submit& command, std::span<const std::uint8_t> data,
                       TimePoint now) {
    if (reads_.contains(command.seq) || writes_.contains(command.seq) ||
        reads_.size() + writes_.size() >= kMostTransfers) {
        return false;
    }
    Urb urb;
    urb.id = command.seq;
    urb.length = command.length;
    urb.zero_packet = (command.flags & usbip::kFlagZeroPacket) != 0;
    urb.short_not_ok = (command.flags & usbip::kFlagShortNotOk) != 0;
    if (command.endpoint == 0) {
        const auto setup = virtual_usb::parse_setup(command.setup);
        if (!directions_agree(command, setup)) {
            usbip::put_submit_reply(outgoing_, command.seq, -EPIPE, 0, {});
            return true;
        }
        urb.type = TransferType::kControl;
        urb.setup = command.setup;
        urb.endpoint = setup.request_type & virtual_usb::kDirectionIn;
        urb.length = std::min<std::size_t>(urb.length, setup.length);
        data = data.first(std::min(data.size(), urb.length));
    } else {
        urb.endpoint = static_cast<std::uint8_t>(command.endpoint |
                                                 (command.in ? virtual_usb::kDirectionIn : 0U));
        urb.type = port_.type_of(urb.endpoint).value_or(TransferType::kBulk);
    }
    urb.data.assign(data.begin(), data.end());
    (command.in ? reads_ : writes_).insert(command.seq);
    const int result = port_.submit(std::move(urb), now);
    if (result != 0) {
        (command.in ? reads_ : writes_).erase(command.seq);
        usbip::put_submit_reply(outgoing_, command.seq, result, 0, {});
    }
    collect();
    return true;
}

void UsbipLink::unlink(const usbip::Unlink& command) {
    const bool read = reads_.contains(command.victim);
    if ((!read && !writes_.contains(command.victim)) || !port_.discard(command.victim)) {
        usbip::put_unlink_reply(outgoing_, command.seq, 0); // it is complete, and replied to
        return;
    }
    auto& finished = port_.completions();
    const Completion taken_back = std::move(finished.back());
    finished.pop_back();
    reads_.erase(command.victim);
    writes_.erase(command.victim);
    // A reply to the unlinking alone would lose the bytes of a read that had moved already.
    if (read && !taken_back.data.empty()) {
        usbip::put_submit_reply(outgoing_, command.victim, -ECONNRESET, taken_back.data.size(),
                                taken_back.data);
        usbip::put_unlink_reply(outgoing_, command.seq, 0);
    } else {
        usbip::put_unlink_reply(outgoing_, command.seq, -ECONNRESET);
    }
}

void UsbipLink::advance(TimePoint now, virtual_usb::Bytes& out) {
    port_.advance(now);
    collect();
    out.insert(out.end(), outgoing_.begin(), outgoing_.end());
    outgoing_.clear();
}

void UsbipLink::collect() {
    auto& finished = port_.completions();
    for (; !finished.empty(); finished.pop_front()) {
        const Completion& one = finished.front();
        const auto seq = static_cast<std::uint32_t>(one.urb.id);
        if (reads_.erase(seq) != 0) {
            usbip::put_submit_reply(outgoing_, seq, one.status, one.data.size(), one.data);
        } else if (writes_.erase(seq) != 0) {
            usbip::put_submit_reply(outgoing_, seq, one.status, one.actual, {});
        }
    }
}

} // namespace qaven::virtual_plug
