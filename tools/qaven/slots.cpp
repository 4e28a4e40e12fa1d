// Looking into a slot. The library has no connection of its own at this time.
#include "tools/qaven/slots.h"

#include "usb/ccid.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <optional>
#include <span>

namespace qaven::cli {

namespace {

constexpr int kReaderVendor = 0x2F7A;
constexpr int kReaderProduct = 0x4417;

constexpr unsigned char kSlotStatusReply = 0x81;
constexpr unsigned char kDataBlockReply = 0x80;
constexpr std::size_t kSequenceByte = 6;
constexpr unsigned char kCardStateMask = 0x03;
constexpr unsigned char kFailedMask = 0x40;

// The answer to a question stands right behind what was left in the reader.
constexpr int kNextAnswerMs = 1000;

// More than a message can have: a reader that talks on and on is not listened to.
constexpr int kMostPackets = 1100;

constexpr int kMostQuestions = 3;

using Status = std::array<unsigned char, CCID::kPacketSize>;

// Commands are numbered from another number in each process, so that the answer to a question of an
// earlier one is not taken for an answer to this one's.
int first_sequence() {
    constexpr int numbers = 256 - kMostQuestions; // none of them becomes 0
    return static_cast<int>(getpid() % numbers) + 1;
}

// One question after the other, until an answer belongs to one of them (CCID 1.1, 6.2: an answer
// has the bSeq of its command).
class Questions {
  public:
    explicit Questions(CCID& connection) : connection_(connection) {}

    // The slot's status; nothing when the reader is silent or out of step.
    std::optional<Status> status() {
        for (int question = 0; question < kMostQuestions; ++question) {
            Status answer{};
            sequence_ = static_cast<unsigned char>(connection_.seq);
            connection_.GetSlotStatus(answer.data());
            if (connection_.transferred == 0) {
                break;
            }
            for (int packet = 0; packet < kMostPackets && connection_.transferred > 0; ++packet) {
                if (belongs(answer)) {
                    return answer;
                }
                ++dropped_;
                if (is_unnumbered(answer)) {
                    break;
                }
                connection_.Myusb::readTimeout(answer.data(), CCID::kPacketSize, kNextAnswerMs);
            }
        }
        return std::nullopt;
    }

    // Packets that belonged to no question.
    int dropped() const { return dropped_; }

  private:
    static bool is_unnumbered(const Status& answer) {
        return answer[0] == kSlotStatusReply && answer[kSequenceByte] == 0;
    }

    bool belongs(const Status& answer) {
        // A reader may leave all its answers unnumbered, but the first command of another program
        // had that number too: only the second such answer is believed, and the first one then.
        if (is_unnumbered(answer) && unnumbered_++ > 0) {
            --dropped_;
            return true;
        }
        return answer[0] == kSlotStatusReply && answer[kSequenceByte] == sequence_;
    }

    CCID& connection_;
    unsigned char sequence_ = 0;
    int unnumbered_ = 0;
    int dropped_ = 0;
};

SlotState state_in(const Status& status) {
    const bool empty = (status[CCID::kStatusByte] & kCardStateMask) == CCID::kNoCardPresent;
    return empty ? SlotState::kEmpty : SlotState::kCard;
}

Slot probe(CCID& connection) {
    Questions questions(connection);
    const auto status = questions.status();
    Slot slot;
    slot.leftover = questions.dropped() > 0 ? Leftover::kDropped : Leftover::kNone;
    if (status) {
        slot.state = state_in(*status);
    } else if (questions.dropped() > 0) {
        slot.state = SlotState::kOutOfStep;
    }
    return slot;
}

bool open(CCID& connection, int interface) {
    connection.open(kReaderVendor, kReaderProduct, interface);
    connection.seq = first_sequence();
    return connection.interface_claimed;
}

Slot probe_after_reset(CCID& connection, int interface) {
    libusb_reset_device(connection.handle);
    Slot slot{SlotState::kOutOfStep};
    if (open(connection, interface)) {
        slot = probe(connection);
        slot.leftover = Leftover::kReset;
    }
    return slot;
}

std::vector<unsigned char> atr_in(std::span<const unsigned char> reply) {
    if (reply[0] != kDataBlockReply || (reply[CCID::kStatusByte] & kFailedMask) != 0) {
        return {};
    }
    const auto length = std::min<std::size_t>(reply[1], CCID::kPacketSize - CCID::kHeaderSize);
    const auto bytes = reply.subspan(CCID::kHeaderSize, length);
    return {bytes.begin(), bytes.end()};
}

} // namespace

Slot query_slot(int interface, SlotQuery query) {
    // What a reader does not answer stays zero.
    CCID connection{};
    Slot slot;
    if (open(connection, interface)) {
        slot = probe(connection);
        if (slot.state == SlotState::kOutOfStep && query == SlotQuery::kAtr) {
            slot = probe_after_reset(connection, interface);
        }
        if (slot.state == SlotState::kCard && query == SlotQuery::kAtr) {
            connection.poweron();
            slot.atr = atr_in(connection.atr);
            connection.poweroff();
        }
    }
    connection.close();
    return slot;
}

} // namespace qaven::cli
