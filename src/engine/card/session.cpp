// The process-wide reader object and the rules of its connection.
#include "engine/card/session.h"

#include "engine/card/in_step.h"
#include "qaven/qaven.h"
#include "support/diagnostics.h"
#include "support/operation.h"
#include "usb/link_state.h"

#include <pthread.h>

#include <algorithm>
#include <array>
#include <optional>
#include <span>
#include <utility>

namespace qaven::session {

namespace {

constexpr int kReaderVendor = 0x2F7A;
constexpr int kReaderProduct = 0x4417;

// The contact slot that a teller uses answers on interface 2; the other one on interface 1.
constexpr std::array kSlotInterfaces{2, 1};

constexpr int kPrintedStatusBytes = 10;

// Of each packet of a reply.
constexpr int kReplyTimeoutMs = 10000;

// The only reader connection of the process: zero at load, never destroyed.
constinit CCID ccid{};

// What its transfers tell.
link::State& connection() {
    return link::of(&ccid);
}

// The last transfer found the reader unplugged. Its handle is still held, but nothing will ever be
// answered through it.
constinit bool reader_gone = false;

// No command has been sent since the opening.
constinit bool only_opened = false;

// The operation that opened the reader and has not got in step with it since. What another host
// left in the reader, its own power-on, slot status and commands, can look like the answers that
// are awaited, one after the other.
constinit std::optional<std::uint64_t> blind_in;

// The operation in which that came to light: what it has read is of no worth.
constinit std::optional<std::uint64_t> misled_in;

// A connection of this process ended disturbed: what it left in the reader may still come.
constinit bool left_disturbed = false;

// The operation in which the connection was given up: its further commands fail as if nobody
// answered, until it opens anew.
constinit std::optional<std::uint64_t> given_up_in;

bool given_up() {
    return given_up_in == operation::serial();
}

[[gnu::constructor]] void at_load() {
    link::watch(&ccid);
    pthread_atfork(nullptr, nullptr, forget);
}

void close() {
    left_disturbed = left_disturbed || (live() && connection().disturbed);
    ccid.close();
}

// Closes the reader without another word to it.
void give_up() {
    if (ccid.handle != nullptr) {
        close();
    }
    given_up_in = operation::serial();
}

// What the reader said to power-on and to the question for the slot's state.
struct Welcome {
    bool holds_card;
    bool proves_older_answer;
};

Welcome welcome() {
    const std::span<unsigned char, CCID::kPacketSize> atr(ccid.atr, CCID::kPacketSize);
    std::ranges::fill(atr, static_cast<unsigned char>(0));
    const auto power_on = static_cast<unsigned char>(ccid.seq);
    ccid.poweron();

    std::array<unsigned char, CCID::kPacketSize> status{};
    const auto question = static_cast<unsigned char>(ccid.seq);
    ccid.ask_slot_status(status);
    for (const unsigned char byte : std::span(status).first(kPrintedStatusBytes)) {
        diagnostics::text("%02x ", byte);
    }
    diagnostics::text("\n");
    return {
        status[CCID::kStatusByte] != CCID::kNoCardPresent,
        in_step::proves_older_answer(atr.first<CCID::kHeaderSize>(), CCID::kDataBlock, power_on) ||
            in_step::proves_older_answer(std::span(status).first<CCID::kHeaderSize>(),
                                         CCID::kSlotStatus, question)};
}

void open(int interface) {
    ccid.open(kReaderVendor, kReaderProduct, interface);
    reader_gone = false;
    only_opened = true;
    blind_in = operation::serial();
}

in_step::Outcome get_in_step() {
    const auto outcome = in_step::reach(ccid);
    if (outcome.failure == 0) {
        blind_in.reset();
    }
    return outcome;
}

// True when what came was a card's answer, to an older command.
bool power_off() {
    ccid.atr[CCID::kTypeByte] = 0; // an answer that does not come proves nothing
    ccid.poweroff();
    return live() && ccid.atr[CCID::kTypeByte] == CCID::kDataBlock;
}

// What the operation was told was meant for an earlier host.
void note_misled() {
    misled_in = operation::serial();
    connection().disturbed = true;
}

// Gets in step and asks anew, as if the reader had just been opened. Empty when older answers still
// come.
std::optional<Welcome> welcome_in_step() {
    if (get_in_step().failure != 0) {
        return std::nullopt;
    }
    const Welcome anew = welcome();
    return anew.proves_older_answer ? std::nullopt : std::optional(anew);
}

// Whether the slot of a reader from which older answers come holds a card. A reader that cannot be
// brought into step is reset once, then given up. It counts as one with a card: the first command
// finds out.
bool holds_card_once_in_step(int interface) {
    if (const auto anew = welcome_in_step()) {
        return anew->holds_card;
    }
    ccid.reset();
    open(interface);
    const Welcome first = welcome();
    if (!live() || !first.proves_older_answer) {
        blind_in.reset();
        return first.holds_card;
    }
    if (const auto anew = welcome_in_step()) {
        return anew->holds_card;
    }
    give_up();
    return true;
}

// Opens one slot and powers its card; true when the slot holds one.
bool open_slot(int interface, bool out_of_step) {
    open(interface);
    const Welcome first = welcome();
    return live() && (out_of_step || first.proves_older_answer) ? holds_card_once_in_step(interface)
                                                                : first.holds_card;
}

// Leaves a slot that was called empty. When the answer to power-off is an older one, so was the
// word about the card: true when the slot holds one after all.
bool leave_empty_slot(int interface) {
    if (!power_off()) {
        return false;
    }
    if (holds_card_once_in_step(interface)) {
        return true;
    }
    power_off();
    return false;
}

// Before anything is sent on a connection that was found: 0 when it is undisturbed or in step
// again. One whose card has lost its power since, by a reset of the reader or because another card
// was put in, is given up too: nothing of what was selected is left.
int settle() {
    if (!live() || !connection().disturbed) {
        return 0;
    }
    const auto outcome = get_in_step();
    if (outcome.failure == LIBUSB_ERROR_NO_DEVICE) {
        return outcome.failure;
    }
    if (outcome.failure == 0 && outcome.card_active) {
        return 0;
    }
    // What an opening left unanswered would look like the answers to the next one's own messages.
    if (outcome.failure != 0 && only_opened && !operation::over()) {
        ccid.reset();
    }
    give_up();
    return LIBUSB_ERROR_TIMEOUT;
}

// Whether what came for a command since an opening was the answer to something older. The first
// reply has to carry its command's number too; it is not looked at after that.
bool answers_older(std::span<const unsigned char> response, bool first, unsigned char bseq) {
    const auto& header = connection().reply_header;
    const bool slot_status = header[CCID::kTypeByte] == CCID::kSlotStatus && response.empty();
    return slot_status || in_step::is_answer_to_reset(response) ||
           (first && in_step::proves_older_answer(header, CCID::kDataBlock, bseq));
}

int send_command(std::span<const std::uint8_t> command, Reply& reply) {
    const auto bseq = static_cast<unsigned char>(ccid.seq);
    const bool first = std::exchange(only_opened, false);
    connection().reply_header.fill(0); // one that does not come proves nothing
    const int result = ccid.exchange(command, reply, kReplyTimeoutMs);
    const auto received = reply.place.first(result == 0 ? reply.length : 0);
    if (blind_in != operation::serial() || !answers_older(received, first, bseq)) {
        return result;
    }
    note_misled();
    give_up();
    return LIBUSB_ERROR_TIMEOUT;
}

} // namespace

int exchange(std::span<const std::uint8_t> command, Reply& reply) {
    if (!given_up() && operation::over()) {
        give_up();
    }
    if (given_up()) {
        return LIBUSB_ERROR_TIMEOUT;
    }
    operation::count_exchange();
    int result = settle();
    if (result == 0) {
        result = send_command(command, reply);
    }
    reader_gone = reader_gone || result == LIBUSB_ERROR_NO_DEVICE;
    return result;
}

void refuse_reply() {
    connection().disturbed = true;
}

void forget() {
    ccid = CCID{};
    connection() = link::State{};
    reader_gone = false;
    left_disturbed = false;
    blind_in.reset();
    misled_in.reset();
    given_up_in.reset();
}

bool misled() {
    return misled_in == operation::serial();
}

bool forget_misled() {
    return std::exchange(misled_in, std::nullopt) == operation::serial();
}

bool ready() {
    return settle() == 0 && live();
}

bool live() {
    return ccid.handle != nullptr && ccid.interface_claimed && !reader_gone;
}

int open_with_card() {
    given_up_in.reset();
    if (operation::over()) {
        give_up();
        return 0;
    }
    const bool out_of_step =
        std::exchange(left_disturbed, false) || (live() && connection().disturbed);
    for (const int interface : kSlotInterfaces) {
        if (open_slot(interface, out_of_step) || leave_empty_slot(interface)) {
            return 0;
        }
        close();
    }
    return QAVEN_NO_CARD;
}

void end() {
    given_up_in.reset();
    // An opening that found no reader has still started libusb.
    if (ccid.handle == nullptr && !ccid.library_started) {
        return;
    }
    if (!operation::over()) {
        const bool blind = blind_in == operation::serial() && !connection().disturbed;
        if (power_off() && blind) {
            note_misled();
        }
    }
    close();
}

Visit::Visit() : opened_(!ready()), result_(opened_ ? open_with_card() : 0) {}

Visit::~Visit() {
    if (opened_) {
        end();
    }
}

EndUnlessKept::~EndUnlessKept() {
    if (!kept_) {
        end();
    }
}

} // namespace qaven::session
