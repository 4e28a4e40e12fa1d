// Endpoints to slots and back.
#include "virtual/reader/reader.h"

#include <algorithm>
#include <utility>

namespace qaven::virtual_reader {
namespace {

using virtual_usb::Handshake;
using virtual_usb::Reply;
using virtual_usb::Setup;
using virtual_usb::TimePoint;

// RDR_to_PC_NotifySlotChange (CCID 1.1, 6.3.1).
constexpr std::uint8_t kNotifySlotChange = 0x50;

// bmSlotICCState of slot 0: a card is there, and that is news.
constexpr std::uint8_t kSlotCardPresent = 0x01;
constexpr std::uint8_t kSlotChanged = 0x02;

constexpr std::uint8_t kRequestGetDescriptor = 6;
// HID 1.11, 7.1.
constexpr std::uint8_t kDescriptorHid = 0x21;
constexpr std::uint8_t kDescriptorHidReport = 0x22;

// HID 1.11, 7.2.
constexpr std::uint8_t kHidGetReport = 0x01;
constexpr std::uint8_t kHidSetReport = 0x09;
constexpr std::uint8_t kHidSetIdle = 0x0A;

// CCID 1.1, 5.3.1.
constexpr std::uint8_t kCcidAbort = 0x01;

// A host that only sends and never reads gets NAK once this many packets wait for it.
constexpr std::size_t kMostQueuedPackets = 64;

} // namespace

Reader::Reader(virtual_card::Icc* card_1, virtual_card::Icc* card_2, const Behaviour& behaviour)
    : slots_{
          {{.interface = kSlot1, .slot = Slot(card_1, behaviour), .assembler = {}, .bulk_in = {}},
           {.interface = kSlot2,
            .slot = Slot(card_2, behaviour),
            .assembler = {},
            .bulk_in = {}}}} {
    power_up();
}

void Reader::insert_card(unsigned slot, virtual_card::Icc& card) {
    SlotEndpoints& endpoints = slots_.at(slot - 1);
    endpoints.slot.insert_card(card);
    endpoints.check_card();
}

void Reader::remove_card(unsigned slot) {
    SlotEndpoints& endpoints = slots_.at(slot - 1);
    endpoints.slot.remove_card();
    endpoints.check_card();
}

bool Reader::card_present(unsigned slot) const {
    return slots_.at(slot - 1).slot.card_present();
}

virtual_usb::Bytes Reader::device_descriptor() const {
    return virtual_reader::device_descriptor();
}

virtual_usb::Bytes Reader::configuration_descriptor() const {
    return virtual_reader::configuration_descriptor();
}

std::string Reader::string(std::uint8_t index) const {
    switch (index) {
    case 1:
        return "qaven";
    case 2:
        return "Virtual Card Reader";
    default:
        return {};
    }
}

Reader::SlotEndpoints* Reader::find_slot(std::uint8_t endpoint) {
    const auto found =
        std::find_if(slots_.begin(), slots_.end(), [endpoint](const SlotEndpoints& endpoints) {
            return endpoints.interface.bulk_out == endpoint ||
                   endpoints.interface.bulk_in == endpoint ||
                   endpoints.interface.interrupt_in == endpoint;
        });
    return found == slots_.end() ? nullptr : &*found;
}

Reply Reader::control(const Setup& setup, std::span<const std::uint8_t> data, TimePoint now) {
    static_cast<void>(data);
    static_cast<void>(now);
    constexpr std::uint8_t kClassToInterface = 0x21;
    constexpr std::uint8_t kClassFromInterface = 0xA1;
    constexpr std::uint8_t kStandardFromInterface = 0x81;
    const std::uint8_t interface = setup.index & 0xFFU;
    if (interface == kKeypadInterface) {
        if (setup.request_type == kStandardFromInterface &&
            setup.request == kRequestGetDescriptor) {
            switch (setup.value >> 8U) {
            case kDescriptorHid:
                return Reply::ack(keypad_hid_descriptor());
            case kDescriptorHidReport:
                return Reply::ack(keypad_report_descriptor());
            default:
                return Reply::stall();
            }
        }
        if (setup.request_type == kClassFromInterface && setup.request == kHidGetReport) {
            return Reply::ack(Bytes(kInterruptPacketSize, 0)); // no key pressed
        }
        if (setup.request_type == kClassToInterface &&
            (setup.request == kHidSetReport || setup.request == kHidSetIdle)) {
            return Reply::ack();
        }
        return Reply::stall();
    }
    // Nothing is ever in progress when the host comes to abort it.
    if (setup.request_type == kClassToInterface && setup.request == kCcidAbort) {
        return Reply::ack();
    }
    return Reply::stall();
}

Handshake Reader::out(std::uint8_t endpoint, std::span<const std::uint8_t> packet, TimePoint now) {
    SlotEndpoints* const endpoints = find_slot(endpoint);
    if (endpoints == nullptr || endpoint != endpoints->interface.bulk_out) {
        return Handshake::kStall;
    }
    if (endpoints->bulk_in.size() >= kMostQueuedPackets) {
        return Handshake::kNak;
    }
    if (const auto message = endpoints->assembler.packet(packet)) {
        if (const auto answer = endpoints->slot.answer(*message)) {
            bool first = true;
            for (auto& piece : to_packets(answer->message)) {
                endpoints->bulk_in.push_back({.packet = std::move(piece),
                                              .ready = now + answer->delay,
                                              .starts_message = std::exchange(first, false)});
            }
        }
        endpoints->check_card();
    }
    return Handshake::kAck;
}

Reply Reader::in(std::uint8_t endpoint, TimePoint now) {
    SlotEndpoints* const endpoints = find_slot(endpoint);
    if (endpoints == nullptr) {
        return Reply::nak(); // the keypad: no key is ever pressed
    }
    if (endpoint == endpoints->interface.interrupt_in) {
        if (!endpoints->card_changed) {
            return Reply::nak();
        }
        endpoints->card_changed = false;
        const std::uint8_t state =
            kSlotChanged | (endpoints->card_known ? kSlotCardPresent : std::uint8_t{0});
        return Reply::ack({kNotifySlotChange, state});
    }
    if (endpoints->bulk_in.empty() || endpoints->bulk_in.front().ready > now) {
        return Reply::nak();
    }
    Reply reply = Reply::ack(std::move(endpoints->bulk_in.front().packet));
    endpoints->bulk_in.pop_front();
    return reply;
}

bool Reader::request_time_extension(std::uint8_t endpoint, TimePoint now, TimePoint reply_at) {
    constexpr std::uint8_t kTimeExtension = 0x80; // bmCommandStatus 2 (CCID 1.1, 6.2.6)
    constexpr std::uint8_t kWaitingTimes = 1;
    SlotEndpoints* const endpoints = find_slot(endpoint);
    if (endpoints == nullptr || endpoint != endpoints->interface.bulk_in ||
        endpoints->bulk_in.empty() || !endpoints->bulk_in.front().starts_message) {
        return false;
    }
    const Bytes& reply = endpoints->bulk_in.front().packet;
    const Bytes request{reply[0], 0, 0, 0, 0, reply[5], reply[6], kTimeExtension, kWaitingTimes, 0};
    for (auto& outgoing : endpoints->bulk_in) {
        outgoing.ready = std::max(outgoing.ready, reply_at);
    }
    endpoints->bulk_in.push_front({.packet = request, .ready = now, .starts_message = true});
    return true;
}

void Reader::clear_halt(std::uint8_t endpoint) {
    SlotEndpoints* const endpoints = find_slot(endpoint);
    if (endpoints == nullptr) {
        return;
    }
    if (endpoint == endpoints->interface.bulk_out) {
        endpoints->assembler.clear();
    } else if (endpoint == endpoints->interface.bulk_in) {
        endpoints->bulk_in.clear();
    }
}

void Reader::reset() {
    power_up();
}

void Reader::power_up() {
    for (auto& endpoints : slots_) {
        endpoints.power_up();
    }
}

void Reader::unplugged() {
    for (auto& endpoints : slots_) {
        endpoints.slot.power_off();
    }
}

std::optional<TimePoint> Reader::ready_at(TimePoint now) const {
    std::optional<TimePoint> earliest;
    for (const auto& endpoints : slots_) {
        if (endpoints.bulk_in.empty() || endpoints.bulk_in.front().ready <= now) {
            continue;
        }
        if (!earliest || endpoints.bulk_in.front().ready < *earliest) {
            earliest = endpoints.bulk_in.front().ready;
        }
    }
    return earliest;
}

void Reader::SlotEndpoints::power_up() {
    assembler.clear();
    bulk_in.clear();
    slot.power_off();
    card_known = slot.card_present();
    card_changed = card_known;
}

void Reader::SlotEndpoints::check_card() {
    if (card_known != slot.card_present()) {
        card_known = slot.card_present();
        card_changed = true;
    }
}

} // namespace qaven::virtual_reader
