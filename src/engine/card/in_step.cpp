// The question whose answer nothing older can be mistaken for, and the messages before that answer.
#include "engine/card/in_step.h"

#include "support/qmlog.h"
#include "usb/link_state.h"

#include <algorithm>
#include <array>
#include <bit>
#include <optional>
#include <thread>

namespace qaven::in_step {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr std::size_t kHeader = CCID::kHeaderSize;

// A reader that streams packets for ever is not working off a backlog.
constexpr int kMaxPackets = 1100;

// bStatus and bError of a reader whose slot still works on an older command (CCID 1.1, 6.2.6).
constexpr int kErrorByte = 8;
constexpr unsigned char kCommandStatusMask = 0xC0;
constexpr unsigned char kCommandFailed = 0x40;
constexpr unsigned char kSlotBusy = 0xE0;
constexpr milliseconds kPauseBeforeAskingAgain{50};

// bmICCStatus of bStatus: the card is there and has power.
constexpr unsigned char kCardStatusMask = 0x03;
constexpr unsigned char kCardActive = 0x00;

// A reader that numbers nothing answers an older question about the slot in the same words. Only
// when this long nothing follows was the answer the last one.
constexpr milliseconds kSilence{200};

class Search {
  public:
    explicit Search(CCID& reader)
        : reader_(reader), until_(steady_clock::now() + milliseconds(CCID::kTransferTimeoutMs)),
          link_(link::of(&reader)), in_cut_message_(link_.reply_unfinished) {}

    // 0 when the answer has come.
    int run() {
        int failure = ask();
        for (int packets = 0; packets < kMaxPackets && failure == 0; ++packets) {
            failure = read_packet();
            if (failure == LIBUSB_ERROR_TIMEOUT && unnumbered_answer_) {
                packet_ = *unnumbered_answer_;
                return 0;
            }
            if (failure != 0) {
                break;
            }
            if (unnumbered_answer_) {
                ++messages_;
                bytes_ += kHeader;
                unnumbered_answer_.reset();
            }
            if (!is_answer()) {
                drop();
            } else if (slot_is_busy()) {
                std::this_thread::sleep_for(kPauseBeforeAskingAgain);
                failure = ask();
            } else if (link_.numbers_replies) {
                return 0;
            } else {
                unnumbered_answer_ = packet_;
            }
        }
        return failure == LIBUSB_ERROR_NO_DEVICE ? failure : LIBUSB_ERROR_TIMEOUT;
    }

    // Of the answer.
    bool card_active() const {
        return (packet_[CCID::kStatusByte] & kCardStatusMask) == kCardActive;
    }

    unsigned int dropped_messages() const { return messages_; }
    unsigned int dropped_bytes() const { return bytes_; }

  private:
    int ask() {
        question_ = static_cast<unsigned char>(reader_.seq);
        return reader_.send_slot_status_request();
    }

    int read_packet() {
        const auto left = unnumbered_answer_
                              ? kSilence
                              : std::chrono::ceil<milliseconds>(until_ - steady_clock::now());
        if (left.count() <= 0) {
            return LIBUSB_ERROR_TIMEOUT;
        }
        packet_.fill(0);
        return reader_.receive(packet_, static_cast<int>(left.count()));
    }

    // Inside a message a packet is data, whatever it looks like. The rest of a message that was cut
    // before the search began may never come, so there the answer is looked for all the same.
    bool is_answer() {
        if (awaited_ != 0 || received() != kHeader ||
            packet_[CCID::kTypeByte] != CCID::kSlotStatus || announced() != 0) {
            return false;
        }
        const unsigned char bseq = packet_[CCID::kSequenceByte];
        link_.numbers_replies = link_.numbers_replies || bseq != 0;
        return !link_.numbers_replies || bseq == question_;
    }

    bool slot_is_busy() const {
        return (packet_[CCID::kStatusByte] & kCommandStatusMask) == kCommandFailed &&
               packet_[kErrorByte] == kSlotBusy;
    }

    void drop() {
        if (awaited_ == 0 && !in_cut_message_ && received() >= kHeader) {
            link_.numbers_replies = link_.numbers_replies || packet_[CCID::kSequenceByte] != 0;
            awaited_ = kHeader + std::uint64_t{announced()};
        }
        awaited_ -= std::min<std::uint64_t>(awaited_, received());
        bytes_ += static_cast<unsigned int>(received());
        // A packet that is not full ends a message, whatever was announced.
        if (received() < packet_.size()) {
            awaited_ = 0;
            in_cut_message_ = false;
        }
        if (awaited_ == 0 && !in_cut_message_) {
            ++messages_;
        }
    }

    std::size_t received() const { return static_cast<std::size_t>(reader_.transferred); }
    std::uint32_t announced() const {
        return CCID::announced_length(std::span(packet_).first<kHeader>());
    }

    CCID& reader_;
    steady_clock::time_point until_;
    link::State& link_;
    bool in_cut_message_;
    std::array<unsigned char, CCID::kPacketSize> packet_{};
    unsigned char question_ = 0;
    std::optional<std::array<unsigned char, CCID::kPacketSize>> unnumbered_answer_;
    std::uint64_t awaited_ = 0; // bytes of the message that is being dropped
    unsigned int messages_ = 0;
    unsigned int bytes_ = 0;
};

} // namespace

bool proves_older_answer(std::span<const unsigned char, CCID::kHeaderSize> header,
                         unsigned char type_of_answer, unsigned char bseq) {
    const unsigned char type = header[CCID::kTypeByte];
    const unsigned char answered = header[CCID::kSequenceByte];
    const bool of_other_type =
        type != type_of_answer && (type == CCID::kDataBlock || type == CCID::kSlotStatus);
    return of_other_type || (answered != 0 && answered != bseq);
}

// ISO/IEC 7816-3, 8.2: TS; T0, the first of the Yi, which say what follows, with the number of
// historical bytes; TAi to TDi, the last of which is the next Yi; the historical bytes; TCK unless
// T=0 is the only protocol.
bool is_answer_to_reset(std::span<const unsigned char> response) {
    constexpr unsigned char kDirectConvention = 0x3B;
    constexpr unsigned char kInverseConvention = 0x3F;
    constexpr unsigned char kPresent = 0xF0;
    constexpr unsigned char kTdPresent = 0x80;
    constexpr unsigned char kLowHalf = 0x0F;
    if (response.size() < 2 ||
        (response[0] != kDirectConvention && response[0] != kInverseConvention)) {
        return false;
    }
    unsigned char y = response[1];
    std::size_t size = 2 + (response[1] & kLowHalf);
    std::size_t at = 1;
    bool tck = false;
    while (at < response.size()) {
        const auto interface_bytes =
            static_cast<std::size_t>(std::popcount(static_cast<unsigned char>(y & kPresent)));
        size += interface_bytes;
        at += interface_bytes;
        if ((y & kTdPresent) == 0 || at >= response.size()) {
            break;
        }
        y = response[at];
        tck = tck || (y & kLowHalf) != 0;
    }
    return response.size() == size + (tck ? 1 : 0);
}

Outcome reach(CCID& reader) {
    Search search(reader);
    const int failure = search.run();
    trace::line("Reader %s: %u messages dropped, %u bytes\n",
                failure == 0 ? "in step again" : "out of step", search.dropped_messages(),
                search.dropped_bytes());
    if (failure == 0) {
        link::of(&reader).disturbed = false;
        link::of(&reader).reply_unfinished = false;
    }
    return {failure, search.card_active()};
}

} // namespace qaven::in_step
