// Looking into a slot. The library has no connection of its own at this time.
#include "slots.h"

#include "usb/ccid.h"

#include <algorithm>
#include <array>
#include <span>

namespace tool {

namespace {

constexpr int kReaderVendor = 0x2F7A;
constexpr int kReaderProduct = 0x4417;

constexpr unsigned char kSlotStatusReply = 0x81;
constexpr unsigned char kDataBlockReply = 0x80;
constexpr unsigned char kCardStateMask = 0x03;
constexpr unsigned char kFailedMask = 0x40;

SlotState state_in(std::span<const unsigned char> status) {
    if (status[0] != kSlotStatusReply) {
        return SlotState::kSilent;
    }
    const bool empty = (status[CCID::kStatusByte] & kCardStateMask) == CCID::kNoCardPresent;
    return empty ? SlotState::kEmpty : SlotState::kCard;
}

std::vector<unsigned char> answer_in(std::span<const unsigned char> reply) {
    if (reply[0] != kDataBlockReply || (reply[CCID::kStatusByte] & kFailedMask) != 0) {
        return {};
    }
    const auto length = std::min<std::size_t>(reply[1], CCID::kPacketSize - CCID::kHeaderSize);
    const auto bytes = reply.subspan(CCID::kHeaderSize, length);
    return {bytes.begin(), bytes.end()};
}

} // namespace

Slot look_into_slot(int interface, Look look) {
    // What a reader does not answer stays zero.
    CCID connection{};
    connection.open(kReaderVendor, kReaderProduct, interface);
    Slot slot;
    if (!connection.interface_claimed) {
        connection.close();
        return slot;
    }
    std::array<unsigned char, CCID::kPacketSize> status{};
    connection.GetSlotStatus(status.data());
    slot.state = state_in(status);
    if (slot.state == SlotState::kCard && look == Look::kAnswer) {
        connection.poweron();
        slot.answer_to_reset = answer_in(connection.atr);
        connection.poweroff();
    }
    connection.close();
    return slot;
}

} // namespace tool
