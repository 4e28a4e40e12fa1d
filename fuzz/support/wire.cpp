// What a fuzz input makes of each call.
#include "support/wire.h"

#include "engine/card/session.h"
#include "idcard/icc.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <utility>

namespace qaven::fuzz {

namespace {

constexpr std::size_t kPacket = 64;
constexpr std::size_t kHeader = 10;

// Where the length field stands in a reply of the security module.
constexpr std::size_t kReplyLengthAt = 5;

// The largest AFL names 16,065 records, and a card can ask for 256 follow-ups to each command; only
// an input of its own size feeds those. What is above this goes round in a circle.
constexpr unsigned long kMostTransfers = 250'000;

constexpr std::uint8_t kPowerOn = 0x62;
constexpr std::uint8_t kPowerOff = 0x63;
constexpr std::uint8_t kGetSlotStatus = 0x65;
constexpr std::uint8_t kTransferBlock = 0x6F;
constexpr std::uint8_t kDataBlock = 0x80;
constexpr std::uint8_t kSlotStatus = 0x81;

constexpr std::uint8_t kCardActive = 0;
constexpr std::uint8_t kCardAbsent = 2;
constexpr std::uint8_t kTimeExtension = 0x80;

// A card with T=0 and a few historical bytes.
constexpr std::array<std::uint8_t, 9> kAtr{0x3B, 0x65, 0x00, 0x00, 0x20, 0x63, 0xCB, 0x68, 0x00};

// Bytes of the bus stream below this are calls that work.
constexpr std::uint8_t kFirstFault = 0x80;

constexpr std::array kErrors{
    LIBUSB_ERROR_IO,
    LIBUSB_ERROR_NO_DEVICE,
    LIBUSB_ERROR_TIMEOUT,
    LIBUSB_ERROR_PIPE,
    LIBUSB_ERROR_BUSY,
    LIBUSB_ERROR_ACCESS,
    LIBUSB_ERROR_NOT_SUPPORTED,
    LIBUSB_ERROR_OVERFLOW,
    LIBUSB_ERROR_NO_MEM,
    LIBUSB_ERROR_NOT_FOUND,
    LIBUSB_ERROR_INTERRUPTED,
    LIBUSB_ERROR_OTHER,
    LIBUSB_ERROR_INVALID_PARAM,
};

int code_of(AnswerKind kind) {
    switch (kind) {
    case AnswerKind::kTimeout:
        return LIBUSB_ERROR_TIMEOUT;
    case AnswerKind::kStall:
        return LIBUSB_ERROR_PIPE;
    case AnswerKind::kNoDevice:
        return LIBUSB_ERROR_NO_DEVICE;
    case AnswerKind::kOverflow:
        return LIBUSB_ERROR_OVERFLOW;
    case AnswerKind::kIo:
        return LIBUSB_ERROR_IO;
    default:
        return 0;
    }
}

unsigned big_endian(std::span<const std::uint8_t> two) {
    return static_cast<unsigned>(two[0]) << 8U | two[1];
}

} // namespace

Wire::LiveCard Wire::live_card_;
Bytes Wire::kept_records_;

void Wire::use(LiveCard card) {
    live_card_ = std::move(card);
}

Bytes Wire::take_records() {
    return std::exchange(kept_records_, {});
}

void Wire::keep_record(std::span<const std::uint8_t> data) {
    kept_records_.push_back(static_cast<std::uint8_t>(AnswerKind::kGood));
    append_long_chunk(kept_records_, data);
}

Wire::Wire(Input& input, Mode mode)
    : Wire(input, mode, {test::ccid_reader(), test::identity_card_reader()}) {}

Wire::Wire(Input& input, Mode mode, std::vector<Device> devices)
    : input_(input), bus_(input.long_chunk()), mode_(mode) {
    for (Device& device : devices) {
        plug(std::move(device));
    }
}

Wire::~Wire() {
    require_all_given_back();
}

void Wire::connect() {
    undisturbed_ = true;
    if (session::open_with_card() != 0) {
        misuse("no card in a slot that holds one");
    }
    undisturbed_ = false;
}

void Wire::disconnect() {
    undisturbed_ = true;
    next_operation();
    session::end();
    usb_device_close();
    undisturbed_ = false;
    in_.clear();
}

Wire::Record Wire::next_record() {
    if (input_.empty()) {
        return {AnswerKind::kIo, {}};
    }
    const std::uint8_t kind = input_.byte();
    const bool known = kind < static_cast<std::uint8_t>(AnswerKind::kCount);
    return {known ? static_cast<AnswerKind>(kind) : AnswerKind::kGood, input_.long_chunk()};
}

int Wire::bus_code() {
    if (undisturbed_) {
        return 0;
    }
    const std::uint8_t byte = bus_.byte();
    return byte < kFirstFault ? 0 : kErrors[byte % kErrors.size()];
}

void Wire::queue_message(std::uint8_t type, std::uint8_t status, std::size_t length,
                         std::uint8_t sequence, std::span<const std::uint8_t> data) {
    Bytes message(kHeader);
    message[0] = type;
    message[1] = static_cast<std::uint8_t>(length);
    message[2] = static_cast<std::uint8_t>(length >> 8U);
    message[6] = sequence;
    message[7] = status;
    message.insert(message.end(), data.begin(), data.end());
    std::span<const std::uint8_t> rest(message);
    for (; rest.size() >= kPacket; rest = rest.subspan(kPacket)) {
        in_.push_back({0, Input::exact(rest.first(kPacket))});
    }
    in_.push_back({0, Input::exact(rest)});
}

// The reply to power on, power off or slot status.
void Wire::answer_power(std::uint8_t type) {
    const std::uint8_t outcome = undisturbed_ ? std::uint8_t{0} : bus_.byte();
    if (outcome >= kFirstFault) {
        in_.push_back({kErrors[outcome % kErrors.size()], {}});
        return;
    }
    const std::uint8_t status = (outcome & 1U) != 0 ? kCardAbsent : kCardActive;
    if (type == kPowerOn) {
        queue_message(kDataBlock, status, kAtr.size(), last_sequence_, kAtr);
    } else {
        queue_message(kSlotStatus, status, 0, last_sequence_, {});
    }
}

// The next packets of the reader, when none is left.
void Wire::answer_bulk() {
    if (live_card_) {
        answer_live();
        return;
    }
    const bool for_reader =
        last_type_ == kPowerOn || last_type_ == kPowerOff || last_type_ == kGetSlotStatus;
    if (for_reader && (mode_ == Mode::kCard || undisturbed_)) {
        answer_power(last_type_);
        return;
    }
    const Record record = next_record();
    const int code = code_of(record.kind);
    if (code != 0 || mode_ == Mode::kRaw || record.kind == AnswerKind::kPacket) {
        in_.push_back({code, Input::exact(record.data)});
        return;
    }
    const std::size_t size = record.data.size();
    switch (record.kind) {
    case AnswerKind::kSilence:
        in_.push_back({0, {}});
        break;
    case AnswerKind::kLiesAboutLength:
        if (size >= 2) {
            queue_message(kDataBlock, kCardActive, big_endian(record.data), last_sequence_,
                          record.data.subspan(2));
        } else {
            queue_message(kDataBlock, kCardActive, kPacket, last_sequence_, {});
        }
        break;
    case AnswerKind::kOtherSequence:
        queue_message(kDataBlock, kCardActive, size, static_cast<std::uint8_t>(last_sequence_ + 1U),
                      record.data);
        break;
    case AnswerKind::kCardRemoved:
        queue_message(kDataBlock, kCardAbsent, 0, last_sequence_, {});
        break;
    case AnswerKind::kTimeExtension:
        queue_message(kDataBlock, kTimeExtension, 0, last_sequence_, {});
        queue_message(kDataBlock, kCardActive, size, last_sequence_, record.data);
        break;
    default:
        queue_message(kDataBlock, kCardActive, size, last_sequence_, record.data);
        break;
    }
}

void Wire::answer_live() {
    const Bytes response = live_card_(message_);
    if (last_type_ != kTransferBlock) {
        answer_power(last_type_);
        return;
    }
    if (mode_ == Mode::kCard) {
        keep_record(response);
    }
    queue_message(kDataBlock, kCardActive, response.size(), last_sequence_, response);
}

// A reply of the security module in reports: length and checksum around status bytes and data.
void Wire::queue_reply(std::size_t length, std::span<const std::uint8_t> data) {
    Bytes frame{0xAA,
                0xAA,
                0xAA,
                0x96,
                0x69,
                static_cast<std::uint8_t>(length >> 8U),
                static_cast<std::uint8_t>(length)};
    frame.insert(frame.end(), data.begin(), data.end());
    std::uint8_t checksum = 0;
    for (const std::uint8_t byte : std::span(frame).subspan(kReplyLengthAt)) {
        checksum ^= byte;
    }
    frame.push_back(checksum);
    for (std::span<const std::uint8_t> rest(frame); !rest.empty();) {
        const auto report = rest.first(std::min(rest.size(), kPacket));
        in_.push_back({0, Input::exact(report)});
        rest = rest.subspan(report.size());
    }
}

// The next reports of the security module.
void Wire::answer_report() {
    if (live_card_) {
        const Bytes reply = live_card_(message_);
        if (mode_ == Mode::kCard) {
            keep_record(reply);
        }
        queue_reply(reply.size() + 1, reply);
        return;
    }
    const Record record = next_record();
    const int code = code_of(record.kind);
    if (code != 0) {
        in_.push_back({code, {}});
        return;
    }
    if (record.kind == AnswerKind::kSilence && record.data.size() >= 2) {
        // So many polls find nothing.
        in_.resize(big_endian(record.data.first(2)) % 1024U + 1U);
        return;
    }
    if (mode_ == Mode::kRaw || record.kind == AnswerKind::kPacket) {
        in_.push_back({0, Input::exact(record.data)});
        return;
    }
    if (record.kind == AnswerKind::kLiesAboutLength && record.data.size() >= 2) {
        queue_reply(big_endian(record.data), record.data.subspan(2));
        return;
    }
    queue_reply(record.data.size() + 1, record.data);
}

std::optional<int> Wire::outcome(test::Call call) {
    if (call == test::Call::kKernelDriverActive) {
        // Half of the calls that work find a driver.
        const std::uint8_t byte = undisturbed_ ? std::uint8_t{0} : bus_.byte();
        return byte < kFirstFault ? static_cast<int>(byte & 1U) : kErrors[byte % kErrors.size()];
    }
    const int code = bus_code();
    // Whatever was found is detached.
    return code != 0 || call == test::Call::kDetachKernelDriver ? std::optional(code)
                                                                : std::nullopt;
}

void Wire::count_transfer() {
    ++transfers_;
    if (transfers_ > kMostTransfers) {
        misuse("an operation goes round in a circle");
    }
}

int Wire::bulk_transfer(test::Transfer& transfer) {
    count_transfer();
    if (transfer.obstacle != 0) {
        return transfer.obstacle;
    }
    if (!transfer.in()) {
        return take_packet(transfer);
    }
    message_begun_ = false;
    if (in_.empty()) {
        answer_bulk();
    }
    return give_packet(transfer);
}

int Wire::take_packet(test::Transfer& transfer) {
    if (const int code = bus_code(); code != 0) {
        message_begun_ = false;
        return code;
    }
    // Reading what was sent lets the sanitizer see a length that is too long.
    const Bytes sent = Input::exact(transfer.data);
    if (!message_begun_ && sent.size() >= kHeader) {
        last_type_ = sent[0];
        last_sequence_ = sent[6];
        // Whatever the host had not fetched is gone.
        if (mode_ == Mode::kCard) {
            in_.clear();
        }
        message_.clear();
    }
    message_begun_ = true;
    message_.insert(message_.end(), sent.begin(), sent.end());
    transfer.moved = sent.size();
    return 0;
}

int Wire::give_packet(test::Transfer& transfer) {
    const Packet next = std::move(in_.front());
    in_.pop_front();
    if (live_card_ && mode_ == Mode::kRaw && !undisturbed_) {
        keep_record(next.data);
    }
    // The whole buffer that the caller promised must be there.
    std::ranges::fill(transfer.data, static_cast<std::uint8_t>(0));
    return transfer.deliver(next.code, next.data);
}

int Wire::control_transfer(test::ControlTransfer& transfer) {
    count_transfer();
    if (transfer.in()) {
        if (in_.empty()) {
            answer_report();
        }
        return give_packet(transfer);
    }
    if (const int code = bus_code(); code != 0) {
        return code;
    }
    in_.clear();
    message_ = Input::exact(transfer.data);
    transfer.moved = message_.size();
    return 0;
}

} // namespace qaven::fuzz

namespace {

// 22 April 2019, 16:13:55 UTC.
constexpr std::time_t kNow = 1555949635;

} // namespace

extern "C" {

// Nothing sleeps here, and the clock stands: dates and the terminal's unpredictable number are the
// same in every run of an input.

int usleep(useconds_t /*duration*/) {
    return 0;
}

std::time_t time(std::time_t* result) noexcept {
    if (result != nullptr) {
        *result = kNow;
    }
    return kNow;
}

} // extern "C"
